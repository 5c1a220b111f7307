// The host's implementations of the services the resolver hands out.
#pragma once

#include <string_view>

#include "XojoHostServices.h"
#include "XojoPluginABI.h"

namespace xhost::services {

// Each of exactly the signature the service list gives its service (a definition of another
// signature would be an overload, and the host's table would not compile).
#define KXT_SERVICE(function, service) \
    kxt::abi::HostServiceSignature<kxt::abi::HostService::service> function

// Strings and encodings (Strings.cpp).
KXT_SERVICE(buildString, REALBuildString);
KXT_SERVICE(buildStringWithEncoding, REALBuildStringWithEncoding);
KXT_SERVICE(lockStringService, REALLockString);
KXT_SERVICE(unlockStringService, REALUnlockString);
KXT_SERVICE(getCString, StringGetCString);
KXT_SERVICE(getStringEncoding, REALGetStringEncoding);
KXT_SERVICE(setStringEncoding, REALSetStringEncoding);
KXT_SERVICE(convertString, REALConvertString);
KXT_SERVICE(getStringData, PluginGetStringData);
KXT_SERVICE(disposeStringData, PluginDisposeStringData);
KXT_SERVICE(compareStrings, RuntimeStringCompare);
// Xojo's default comparison: byte-wise over UTF-8, ASCII letters compared case-insensitively.
int32_t compareTexts(std::string_view a, std::string_view b);
RBInteger lenB(REALstring s);
RBInteger len(REALstring s);

// Objects, properties, arrays and exceptions (Objects.cpp).
KXT_SERVICE(newInstance, PluginNewInstance);
KXT_SERVICE(lockObjectService, REALLockObject);
KXT_SERVICE(unlockObjectService, REALUnlockObject);
KXT_SERVICE(getPropString, REALGetPropValueString);
KXT_SERVICE(setPropString, REALSetPropValueString);
KXT_SERVICE(getPropBool, REALGetPropValueBool);
KXT_SERVICE(getPropColor, REALGetPropValueColor);
KXT_SERVICE(getPropInteger, REALGetPropValueInteger);
KXT_SERVICE(setPropInteger, REALSetPropValueInteger);
KXT_SERVICE(setPropUInt32, REALSetPropValueUInt32);
KXT_SERVICE(setPropBoolean, REALSetPropValueBoolean);
KXT_SERVICE(createArray, RuntimeArrayCreateSingleDimBoundedArray);
// The insert function of a string array (insertArrayString), or null.
KXT_SERVICE(stringArrayInsertProc, PluginStringArrayInsertProc);
void insertArrayString(REALarray array, RBInteger index, REALstring value);
KXT_SERVICE(arrayUBound, RuntimeUBound);
KXT_SERVICE(raiseException, RuntimeRaiseException);
KXT_SERVICE(callWithExceptionHandler, PluginCallFunctionWithExceptionHandler);
KXT_SERVICE(memoryBlockGetPtr, memoryBlockGetPtr);
KXT_SERVICE(memoryBlockGetSize, memoryBlockGetSize);
void* loadObjectMethod(REALobject o, const char* declaration);

#undef KXT_SERVICE

}  // namespace xhost::services
