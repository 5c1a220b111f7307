// Every host service the plugin reaches through the resolver, as data: the name asked of the
// resolver, the result type and the parameter types. The plugin's bindings (PluginMain.cpp) and
// the emulated host's service table (host/Host.cpp) are both made from this one list, so the two
// sides cannot disagree about a signature.
//
// Services are noexcept: a failure inside one is answered with the neutral result (a null
// handle, false, 0), never with a C++ exception unwinding into the caller. The host's table
// only takes functions declared so.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

#include "XojoDeclaration.h"
#include "XojoPluginABI.h"

// X(name, result, (parameters))
#define KXT_HOST_SERVICES(X)                                                        \
    X(REALGetRBVersion, double, ())                                                 \
    X(RegisterPluginVersion, void, (uint32_t))                                      \
    X(REALinRuntime, RBBoolean, ())                                                 \
    X(PluginGetStringData, RBBoolean, (REALstring, uint32_t, REALstringData*))      \
    X(PluginDisposeStringData, void, (REALstringData*))                             \
    X(PluginCallFunctionWithExceptionHandler, REALobject, (void (*)(void*), void*)) \
    X(RuntimeStringCompare, RBInteger, (REALstring, REALstring))                    \
    X(REALBuildString, REALstring, (const char*, int32_t))                          \
    X(REALBuildStringWithEncoding, REALstring, (const char*, int32_t, uint32_t))    \
    X(REALLockObject, void, (REALobject))                                           \
    X(REALUnlockObject, void, (REALobject))                                         \
    X(REALLockString, void, (REALstring))                                           \
    X(REALUnlockString, void, (REALstring))                                         \
    X(RuntimeRaiseException, void, (REALobject))                                    \
    X(RuntimeUBound, RBInteger, (REALarray))                                        \
    X(REALYieldToRB, void, ())                                                      \
    X(PluginRegisterModule, void, (REALmoduleDefinition*))                          \
    X(PluginRegisterMethod, void, (REALmethodDefinition*))                          \
    X(PluginRegisterClassExtension, void, (REALclassDefinition*))                   \
    X(REALLoadGlobalMethod, void*, (const char*, const char*))                      \
    X(REALLoadObjectMethod, void*, (REALobject, const char*))                       \
    X(StringGetCString, const char*, (REALstring))                                  \
    X(REALGetPropValueString, RBBoolean, (REALobject, const char*, REALstring*))    \
    X(REALSetPropValueString, RBBoolean, (REALobject, const char*, REALstring))     \
    X(REALGetPropValueBool, RBBoolean, (REALobject, const char*, RBBoolean*))       \
    X(REALGetPropValueColor, RBBoolean, (REALobject, const char*, RBColor*))        \
    X(REALGetPropValueInteger, RBBoolean, (REALobject, const char*, RBInteger*))    \
    X(REALSetPropValueInteger, RBBoolean, (REALobject, const char*, RBInteger))     \
    X(REALSetPropValueUInt32, RBBoolean, (REALobject, const char*, uint32_t))       \
    X(REALSetPropValueBoolean, RBBoolean, (REALobject, const char*, RBBoolean))     \
    X(RuntimeArrayCreateSingleDimBoundedArray, REALarray, (int32_t, RBInteger))     \
    X(PluginStringArrayInsertProc, void*, (REALarray))                              \
    X(REALGetStringEncoding, uint32_t, (REALstring))                                \
    X(REALSetStringEncoding, void, (REALstring, uint32_t))                          \
    X(REALConvertString, REALstring, (REALstring, uint32_t))                        \
    X(PluginNewInstance, REALobject, (const char*))                                 \
    X(memoryBlockGetPtr, void*, (REALmemoryBlock))                                  \
    X(memoryBlockGetSize, RBInteger, (REALmemoryBlock))

namespace kxt::abi {

enum class HostService : size_t {
#define KXT_SERVICE_ID(name, R, P) name,
    KXT_HOST_SERVICES(KXT_SERVICE_ID)
#undef KXT_SERVICE_ID
};

#define KXT_SERVICE_COUNT(name, R, P) +1
constexpr size_t kHostServiceCount = 0 KXT_HOST_SERVICES(KXT_SERVICE_COUNT);
#undef KXT_SERVICE_COUNT

// The name the resolver knows a service by, and its C type.
template <HostService S>
struct HostServiceInfo;
#define KXT_SERVICE_INFO(name_, R, P)               \
    template <>                                     \
    struct HostServiceInfo<HostService::name_> {    \
        static constexpr const char* name = #name_; \
        using Signature = R P;                      \
        using Function = R(*) P noexcept;           \
    };
KXT_HOST_SERVICES(KXT_SERVICE_INFO)
#undef KXT_SERVICE_INFO

template <HostService S>
using HostServiceFunction = typename HostServiceInfo<S>::Function;
// The function type, for declaring a function of exactly a service's signature.
template <HostService S>
using HostServiceSignature = typename HostServiceInfo<S>::Signature;

// Every name, by service index.
constexpr const char* kHostServiceNames[] = {
#define KXT_SERVICE_NAME(name, R, P) #name,
    KXT_HOST_SERVICES(KXT_SERVICE_NAME)
#undef KXT_SERVICE_NAME
};
static_assert(std::size(kHostServiceNames) == kHostServiceCount);

// One function per service, each of exactly its listed type (noexcept included): a host fills
// one with designated initializers, so a service of another signature does not compile.
struct HostServiceTable {
#define KXT_SERVICE_MEMBER(name, R, P) HostServiceFunction<HostService::name> name = nullptr;
    KXT_HOST_SERVICES(KXT_SERVICE_MEMBER)
#undef KXT_SERVICE_MEMBER
};

// True when the table has every service.
constexpr bool IsComplete(const HostServiceTable& table) {
#define KXT_SERVICE_PRESENT(name, R, P) &&table.name != nullptr
    return true KXT_HOST_SERVICES(KXT_SERVICE_PRESENT);
#undef KXT_SERVICE_PRESENT
}

// Framework methods, loaded by declaration ("REALLoadGlobalMethod"), with their C type.
inline constexpr const char kLenBDeclaration[] = "LenB( s as string ) as integer";
inline constexpr const char kLenDeclaration[] = "Len(s as string) as integer";
using StringLengthMethod = RBInteger (*)(REALstring);

// Methods of host objects, loaded by declaration ("REALLoadObjectMethod"): the class, the
// declaration and the C type (the object comes first).
// X(id, class, declaration, result, (parameters))
#define KXT_OBJECT_METHODS(X)                                                                    \
    X(MemoryBlockConstructor, "MemoryBlock", "Constructor(bytes as Integer)", void,              \
      (REALobject, RBInteger))                                                                   \
    X(StyledTextStyleRun, "StyledText", "StyleRun(Index as Integer) As StyleRun", REALobject,    \
      (REALobject, RBInteger))                                                                   \
    X(StyledTextParagraph, "StyledText", "Paragraph(Index as Integer) As Paragraph", REALobject, \
      (REALobject, RBInteger))                                                                   \
    X(StyledTextRemoveStyleRun, "StyledText", "RemoveStyleRun(Index as Integer)", void,          \
      (REALobject, RBInteger))                                                                   \
    X(StyledTextAppendStyleRun, "StyledText", "AppendStyleRun(Run as StyleRun)", void,           \
      (REALobject, REALobject))                                                                  \
    X(StyledTextParagraphAlignment, "StyledText",                                                \
      "ParagraphAlignment(Index As Integer, assigns _value as Integer)", void,                   \
      (REALobject, RBInteger, RBInteger))

enum class ObjectMethod {
#define KXT_OBJECT_METHOD_ID(id, cls, decl, R, P) id,
    KXT_OBJECT_METHODS(KXT_OBJECT_METHOD_ID)
#undef KXT_OBJECT_METHOD_ID
};

template <ObjectMethod M>
struct ObjectMethodInfo;
#define KXT_OBJECT_METHOD_INFO(id, cls, decl, R, P)      \
    template <>                                          \
    struct ObjectMethodInfo<ObjectMethod::id> {          \
        static constexpr const char* className = cls;    \
        static constexpr const char* declaration = decl; \
        using Function = R(*) P noexcept;                \
    };
KXT_OBJECT_METHODS(KXT_OBJECT_METHOD_INFO)
#undef KXT_OBJECT_METHOD_INFO

template <ObjectMethod M>
using ObjectMethodFunction = typename ObjectMethodInfo<M>::Function;

// Each C type is that of its declaration, the object first.
#define KXT_OBJECT_METHOD_CHECK(id, cls, decl, R, P)                 \
    static_assert(GetterMatches(static_cast<R(*) P>(nullptr), decl), \
                  #id " disagrees with its declaration");
KXT_OBJECT_METHODS(KXT_OBJECT_METHOD_CHECK)
#undef KXT_OBJECT_METHOD_CHECK

}  // namespace kxt::abi
