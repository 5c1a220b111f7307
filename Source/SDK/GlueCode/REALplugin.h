// The plugin's binding to its host: one wrapper per host service, looked up by name through the
// resolver on first use and cached. A service the host lacks makes its wrapper a no-op that
// returns 0, false or nil, and is looked up again on the next call.
#pragma once

#include "XojoHostServices.h"
#include "XojoPluginABI.h"

// A wrapper that only forwards to a host service has exactly the service's signature.
#define KXT_WRAPPER(wrapper, service) \
    kxt::abi::HostServiceSignature<kxt::abi::HostService::service> wrapper

// Process-wide start-up state, written by REALPluginMain.
extern double gHostVersion;
extern uint32_t gPluginInterfaceVersion;
extern const char* gPartName;

KXT_WRAPPER(REALGetStringData, PluginGetStringData);
KXT_WRAPPER(REALDisposeStringData, PluginDisposeStringData);
KXT_WRAPPER(REALCallFunctionWithExceptionHandler, PluginCallFunctionWithExceptionHandler);
// Negative, zero or positive, of any magnitude: compare the whole value with 0.
KXT_WRAPPER(REALCompareStrings, RuntimeStringCompare);
KXT_WRAPPER(REALinRuntime, REALinRuntime);
KXT_WRAPPER(REALBuildString, REALBuildString);
KXT_WRAPPER(REALBuildStringWithEncoding, REALBuildStringWithEncoding);
KXT_WRAPPER(REALLockObject, REALLockObject);
KXT_WRAPPER(REALUnlockObject, REALUnlockObject);
KXT_WRAPPER(REALLockString, REALLockString);
KXT_WRAPPER(REALUnlockString, REALUnlockString);
KXT_WRAPPER(REALRaiseException, RuntimeRaiseException);
KXT_WRAPPER(REALGetArrayUBound, RuntimeUBound);
KXT_WRAPPER(REALYieldToRB, REALYieldToRB);
KXT_WRAPPER(REALRegisterModule, PluginRegisterModule);
KXT_WRAPPER(REALRegisterMethod, PluginRegisterMethod);
KXT_WRAPPER(REALRegisterClassExtension, PluginRegisterClassExtension);
void* REALLoadFrameworkMethod(const char* declaration);
KXT_WRAPPER(REALLoadObjectMethod, REALLoadObjectMethod);
// The string's bytes (zero-terminated); stores the byte length when lengthOut is given.
const char* REALGetStringContents(REALstring s, size_t* lengthOut);
KXT_WRAPPER(REALGetPropValueString, REALGetPropValueString);
KXT_WRAPPER(REALSetPropValueString, REALSetPropValueString);
KXT_WRAPPER(REALGetPropValueBoolean, REALGetPropValueBool);
KXT_WRAPPER(REALGetPropValueColor, REALGetPropValueColor);
KXT_WRAPPER(REALGetPropValueInteger, REALGetPropValueInteger);
KXT_WRAPPER(REALSetPropValueInteger, REALSetPropValueInteger);
KXT_WRAPPER(REALSetPropValueUInt32, REALSetPropValueUInt32);
KXT_WRAPPER(REALSetPropValueBoolean, REALSetPropValueBoolean);
KXT_WRAPPER(REALCreateArray, RuntimeArrayCreateSingleDimBoundedArray);
void REALInsertArrayValueString(REALarray array, RBInteger index, REALstring value);
KXT_WRAPPER(REALGetStringEncoding, REALGetStringEncoding);
KXT_WRAPPER(REALSetStringEncoding, REALSetStringEncoding);
KXT_WRAPPER(REALConvertString, REALConvertString);
KXT_WRAPPER(REALnewInstance, PluginNewInstance);
KXT_WRAPPER(REALMemoryBlockGetPtr, memoryBlockGetPtr);
KXT_WRAPPER(REALMemoryBlockGetSize, memoryBlockGetSize);
#undef KXT_WRAPPER

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
