// The plugin's binding to its host: one wrapper per host service, looked up by name through the
// resolver on first use and cached. A service the host lacks makes its wrapper a no-op that
// returns 0, false or nil, and is looked up again on the next call.
#pragma once

#include "XojoPluginABI.h"

// Process-wide start-up state, written by REALPluginMain.
extern double gHostVersion;
extern uint32_t gPluginInterfaceVersion;
extern const char* gPartName;

RBBoolean REALGetStringData(REALstring s, uint32_t encoding, REALstringData* out);
void REALDisposeStringData(REALstringData* data);
REALobject REALCallFunctionWithExceptionHandler(void (*f)(void*), void* arg);
// Negative, zero or positive, of any magnitude: compare the whole value with 0.
RBInteger REALCompareStrings(REALstring a, REALstring b);
RBBoolean REALinRuntime();
REALstring REALBuildString(const char* data, int32_t length);
REALstring REALBuildStringWithEncoding(const char* data, int32_t length, uint32_t encoding);
void REALLockObject(REALobject obj);
void REALUnlockObject(REALobject obj);
void REALLockString(REALstring s);
void REALUnlockString(REALstring s);
void REALRaiseException(REALobject exception);
RBInteger REALGetArrayUBound(REALarray array);
void REALYieldToRB();
void REALRegisterModule(REALmoduleDefinition* module);
void REALRegisterMethod(REALmethodDefinition* method);
void REALRegisterClassExtension(REALclassDefinition* cls);
void* REALLoadFrameworkMethod(const char* declaration);
void* REALLoadObjectMethod(REALobject obj, const char* declaration);
// The string's bytes (zero-terminated); stores the byte length when lengthOut is given.
const char* REALGetStringContents(REALstring s, size_t* lengthOut);
RBBoolean REALGetPropValueString(REALobject obj, const char* name, REALstring* out);
RBBoolean REALSetPropValueString(REALobject obj, const char* name, REALstring value);
RBBoolean REALGetPropValueBoolean(REALobject obj, const char* name, RBBoolean* out);
RBBoolean REALGetPropValueColor(REALobject obj, const char* name, RBColor* out);
RBBoolean REALGetPropValueInteger(REALobject obj, const char* name, RBInteger* out);
RBBoolean REALSetPropValueInteger(REALobject obj, const char* name, RBInteger value);
RBBoolean REALSetPropValueUInt32(REALobject obj, const char* name, uint32_t value);
RBBoolean REALSetPropValueBoolean(REALobject obj, const char* name, RBBoolean value);
REALarray REALCreateArray(int32_t elementType, RBInteger upperBound);
void REALInsertArrayValueString(REALarray array, RBInteger index, REALstring value);
uint32_t REALGetStringEncoding(REALstring s);
void REALSetStringEncoding(REALstring s, uint32_t encoding);
REALstring REALConvertString(REALstring s, uint32_t encoding);
REALobject REALnewInstance(const char* className);
void* REALMemoryBlockGetPtr(REALmemoryBlock mb);
RBInteger REALMemoryBlockGetSize(REALmemoryBlock mb);

// Entry points (exported).
extern "C" {
void REALPluginMain(REALResolver resolver);
void PluginEntry();
void libEntry();
}

// Stores the resolver and derives the host and interface versions (the first half of
// REALPluginMain, without registering anything).
void BindHost(REALResolver resolver);

// Start-up steps provided by the plugin's main source.
void PluginStart(const char* partName);
