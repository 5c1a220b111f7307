// The services the resolver hands out, with the C signatures of the binary interface.
#pragma once

#include <string_view>

#include "XojoPluginABI.h"

namespace xhost::services {

// Strings and encodings (Strings.cpp).
REALstring buildString(const char* data, int32_t length);
REALstring buildStringWithEncoding(const char* data, int32_t length, uint32_t encoding);
void lockStringService(REALstring s);
void unlockStringService(REALstring s);
const char* getCString(REALstring s);
uint32_t getStringEncoding(REALstring s);
void setStringEncoding(REALstring s, uint32_t encoding);
REALstring convertString(REALstring s, uint32_t encoding);
RBBoolean getStringData(REALstring s, uint32_t encoding, REALstringData* out);
void disposeStringData(REALstringData* data);
RBInteger compareStrings(REALstring a, REALstring b);
// Xojo's default comparison: byte-wise over UTF-8, ASCII letters compared case-insensitively.
int32_t compareTexts(std::string_view a, std::string_view b);
RBInteger lenB(REALstring s);
RBInteger len(REALstring s);

// Objects, properties, arrays and exceptions (Objects.cpp).
REALobject newInstance(const char* className);
void lockObjectService(REALobject o);
void unlockObjectService(REALobject o);
RBBoolean getPropString(REALobject o, const char* name, REALstring* out);
RBBoolean setPropString(REALobject o, const char* name, REALstring value);
RBBoolean getPropBool(REALobject o, const char* name, RBBoolean* out);
RBBoolean getPropColor(REALobject o, const char* name, RBColor* out);
RBBoolean getPropInteger(REALobject o, const char* name, RBInteger* out);
RBBoolean setPropInteger(REALobject o, const char* name, RBInteger value);
RBBoolean setPropUInt32(REALobject o, const char* name, uint32_t value);
RBBoolean setPropBoolean(REALobject o, const char* name, RBBoolean value);
REALarray createArray(int32_t elementType, RBInteger upperBound);
void insertArrayString(REALarray array, RBInteger index, REALstring value);
// The insert function of a string array (insertArrayString), or null.
void* stringArrayInsertProc(REALarray array);
RBInteger arrayUBound(REALarray array);
void raiseException(REALobject exception);
REALobject callWithExceptionHandler(void (*f)(void*), void* arg);
void* memoryBlockGetPtr(REALmemoryBlock mb);
RBInteger memoryBlockGetSize(REALmemoryBlock mb);
void* loadObjectMethod(REALobject o, const char* declaration);

}  // namespace xhost::services
