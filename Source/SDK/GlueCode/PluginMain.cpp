// Entry points and the binding layer: every host service is resolved by name on first use.
#include <unistd.h>

#include <type_traits>

#include "REALplugin.h"

namespace {

REALResolver gResolver = nullptr;

// One cached host function. A null lookup is not remembered, so a service that appears later
// (or a test host that stops hiding it) is found on the next call.
template <typename Fn>
struct HostFunction {
    const char* name;
    Fn cached = nullptr;

    Fn get() {
        if (cached == nullptr && gResolver != nullptr) {
            cached = reinterpret_cast<Fn>(gResolver(name));
        }
        return cached;
    }
};

template <typename R, typename... Args>
R callHost(HostFunction<R (*)(Args...)>& fn, Args... args) {
    if (auto f = fn.get()) return f(args...);
    if constexpr (!std::is_void_v<R>) return R{};
}

#define KXT_HOST(var, hostName, R, ...)    \
    HostFunction<R (*)(__VA_ARGS__)> var { \
        hostName                           \
    }

KXT_HOST(hGetStringData, "PluginGetStringData", RBBoolean, REALstring, uint32_t, REALstringData*);
KXT_HOST(hDisposeStringData, "PluginDisposeStringData", void, REALstringData*);
KXT_HOST(hCallWithHandler, "PluginCallFunctionWithExceptionHandler", REALobject, void (*)(void*),
         void*);
KXT_HOST(hCompareStrings, "RuntimeStringCompare", int32_t, REALstring, REALstring);
KXT_HOST(hInRuntime, "REALinRuntime", RBBoolean);
KXT_HOST(hBuildString, "REALBuildString", REALstring, const char*, int32_t);
KXT_HOST(hBuildStringWithEncoding, "REALBuildStringWithEncoding", REALstring, const char*, int32_t,
         uint32_t);
KXT_HOST(hLockObject, "REALLockObject", void, REALobject);
KXT_HOST(hUnlockObject, "REALUnlockObject", void, REALobject);
KXT_HOST(hLockString, "REALLockString", void, REALstring);
KXT_HOST(hUnlockString, "REALUnlockString", void, REALstring);
KXT_HOST(hRaiseException, "RuntimeRaiseException", void, REALobject);
KXT_HOST(hUBound, "RuntimeUBound", RBInteger, REALarray);
KXT_HOST(hYield, "REALYieldToRB", void);
KXT_HOST(hRegisterModule, "PluginRegisterModule", void, REALmoduleDefinition*);
KXT_HOST(hRegisterMethod, "PluginRegisterMethod", void, REALmethodDefinition*);
KXT_HOST(hRegisterClassExtension, "PluginRegisterClassExtension", void, REALclassDefinition*);
KXT_HOST(hLoadGlobalMethod, "REALLoadGlobalMethod", void*, const char*, const char*);
KXT_HOST(hLoadObjectMethod, "REALLoadObjectMethod", void*, REALobject, const char*);
KXT_HOST(hGetCString, "StringGetCString", const char*, REALstring);
KXT_HOST(hGetPropString, "REALGetPropValueString", RBBoolean, REALobject, const char*, REALstring*);
KXT_HOST(hSetPropString, "REALSetPropValueString", RBBoolean, REALobject, const char*, REALstring);
KXT_HOST(hGetPropBool, "REALGetPropValueBool", RBBoolean, REALobject, const char*, RBBoolean*);
KXT_HOST(hGetPropColor, "REALGetPropValueColor", RBBoolean, REALobject, const char*, RBColor*);
KXT_HOST(hGetPropInteger, "REALGetPropValueInteger", RBBoolean, REALobject, const char*,
         RBInteger*);
KXT_HOST(hSetPropInteger, "REALSetPropValueInteger", RBBoolean, REALobject, const char*, RBInteger);
KXT_HOST(hSetPropUInt32, "REALSetPropValueUInt32", RBBoolean, REALobject, const char*, uint32_t);
KXT_HOST(hSetPropBoolean, "REALSetPropValueBoolean", RBBoolean, REALobject, const char*, RBBoolean);
KXT_HOST(hCreateArray, "RuntimeArrayCreateSingleDimBoundedArray", REALarray, int32_t, RBInteger);
KXT_HOST(hInsertArrayString, "PluginStringArrayInsertProc", void, REALarray, RBInteger, REALstring);
KXT_HOST(hGetStringEncoding, "REALGetStringEncoding", uint32_t, REALstring);
KXT_HOST(hSetStringEncoding, "REALSetStringEncoding", void, REALstring, uint32_t);
KXT_HOST(hConvertString, "REALConvertString", REALstring, REALstring, uint32_t);
KXT_HOST(hNewInstance, "PluginNewInstance", REALobject, const char*);
KXT_HOST(hMemoryBlockGetPtr, "memoryBlockGetPtr", void*, REALmemoryBlock);
KXT_HOST(hMemoryBlockGetSize, "memoryBlockGetSize", RBInteger, REALmemoryBlock);

// The framework's LenB, loaded once it is available.
RBInteger (*gLenB)(REALstring) = nullptr;

}  // namespace

double gHostVersion = 0.0;
uint32_t gPluginInterfaceVersion = 9;

RBBoolean REALGetStringData(REALstring s, uint32_t encoding, REALstringData* out) {
    return callHost(hGetStringData, s, encoding, out);
}
void REALDisposeStringData(REALstringData* data) {
    callHost(hDisposeStringData, data);
}

REALobject REALCallFunctionWithExceptionHandler(void (*f)(void*), void* arg) {
    if (auto guarded = hCallWithHandler.get()) return guarded(f, arg);
    // Without the host's guard the function still has to run.
    f(arg);
    return nullptr;
}

int32_t REALCompareStrings(REALstring a, REALstring b) {
    return callHost(hCompareStrings, a, b);
}
RBBoolean REALinRuntime() {
    return callHost(hInRuntime);
}
REALstring REALBuildString(const char* data, int32_t length) {
    return callHost(hBuildString, data, length);
}
REALstring REALBuildStringWithEncoding(const char* data, int32_t length, uint32_t encoding) {
    return callHost(hBuildStringWithEncoding, data, length, encoding);
}
void REALLockObject(REALobject obj) {
    callHost(hLockObject, obj);
}
void REALUnlockObject(REALobject obj) {
    callHost(hUnlockObject, obj);
}
void REALLockString(REALstring s) {
    callHost(hLockString, s);
}
void REALUnlockString(REALstring s) {
    callHost(hUnlockString, s);
}
void REALRaiseException(REALobject exception) {
    callHost(hRaiseException, exception);
}
RBInteger REALGetArrayUBound(REALarray array) {
    return callHost(hUBound, array);
}
void REALYieldToRB() {
    callHost(hYield);
}
void REALRegisterModule(REALmoduleDefinition* module) {
    callHost(hRegisterModule, module);
}
void REALRegisterMethod(REALmethodDefinition* method) {
    callHost(hRegisterMethod, method);
}
void REALRegisterClassExtension(REALclassDefinition* cls) {
    callHost(hRegisterClassExtension, cls);
}
void* REALLoadFrameworkMethod(const char* declaration) {
    return callHost(hLoadGlobalMethod, static_cast<const char*>(nullptr), declaration);
}
void* REALLoadObjectMethod(REALobject obj, const char* declaration) {
    return callHost(hLoadObjectMethod, obj, declaration);
}

const char* REALGetStringContents(REALstring s, size_t* lengthOut) {
    if (s == nullptr) return nullptr;
    auto getCString = hGetCString.get();
    if (lengthOut != nullptr) {
        if (gLenB == nullptr) {
            gLenB = reinterpret_cast<RBInteger (*)(REALstring)>(
                REALLoadFrameworkMethod("LenB( s as string ) as integer"));
        }
        if (gLenB != nullptr) *lengthOut = static_cast<size_t>(gLenB(s));
    }
    return getCString != nullptr ? getCString(s) : nullptr;
}

RBBoolean REALGetPropValueString(REALobject obj, const char* name, REALstring* out) {
    return callHost(hGetPropString, obj, name, out);
}
RBBoolean REALSetPropValueString(REALobject obj, const char* name, REALstring value) {
    return callHost(hSetPropString, obj, name, value);
}
RBBoolean REALGetPropValueBoolean(REALobject obj, const char* name, RBBoolean* out) {
    return callHost(hGetPropBool, obj, name, out);
}
RBBoolean REALGetPropValueColor(REALobject obj, const char* name, RBColor* out) {
    return callHost(hGetPropColor, obj, name, out);
}
RBBoolean REALGetPropValueInteger(REALobject obj, const char* name, RBInteger* out) {
    return callHost(hGetPropInteger, obj, name, out);
}
RBBoolean REALSetPropValueInteger(REALobject obj, const char* name, RBInteger value) {
    return callHost(hSetPropInteger, obj, name, value);
}
RBBoolean REALSetPropValueUInt32(REALobject obj, const char* name, uint32_t value) {
    return callHost(hSetPropUInt32, obj, name, value);
}
RBBoolean REALSetPropValueBoolean(REALobject obj, const char* name, RBBoolean value) {
    return callHost(hSetPropBoolean, obj, name, value);
}
REALarray REALCreateArray(int32_t elementType, RBInteger upperBound) {
    return callHost(hCreateArray, elementType, upperBound);
}
void REALInsertArrayValueString(REALarray array, RBInteger index, REALstring value) {
    callHost(hInsertArrayString, array, index, value);
}
uint32_t REALGetStringEncoding(REALstring s) {
    return callHost(hGetStringEncoding, s);
}
void REALSetStringEncoding(REALstring s, uint32_t encoding) {
    callHost(hSetStringEncoding, s, encoding);
}
REALstring REALConvertString(REALstring s, uint32_t encoding) {
    return callHost(hConvertString, s, encoding);
}
REALobject REALnewInstance(const char* className) {
    return callHost(hNewInstance, className);
}
void* REALMemoryBlockGetPtr(REALmemoryBlock mb) {
    return callHost(hMemoryBlockGetPtr, mb);
}
RBInteger REALMemoryBlockGetSize(REALmemoryBlock mb) {
    return callHost(hMemoryBlockGetSize, mb);
}

namespace {

uint32_t interfaceVersionFor(double hostVersion) {
    if (hostVersion >= 2013.04) return 13;
    if (hostVersion >= 2013.03) return 12;
    if (hostVersion >= 2013.0) return 11;
    if (hostVersion >= 2012.0) return 10;
    return 9;
}

}  // namespace

void BindHost(REALResolver resolver) {
    gResolver = resolver;
    if (resolver != nullptr) {
        if (auto getVersion = reinterpret_cast<double (*)()>(resolver("REALGetRBVersion"))) {
            gHostVersion = getVersion();
        }
    }
    gPluginInterfaceVersion = interfaceVersionFor(gHostVersion);
}

extern "C" __attribute__((visibility("default"))) void REALPluginMain(REALResolver resolver) {
    BindHost(resolver);
    if (resolver == nullptr) return;
    // Every host that loads plugins offers this; it is deliberately not checked.
    auto announce = reinterpret_cast<void (*)(uint32_t)>(resolver("RegisterPluginVersion"));
    announce(gPluginInterfaceVersion);
    PluginEntry();
}

// Started as a program, the shared object prints its banner. The loader enters here with the
// stack aligned for a jump, not a call, hence the realignment.
extern "C" __attribute__((visibility("default"), force_align_arg_pointer, noreturn)) void
libEntry() {
    static const char kBanner[] = "KXT Plugin, version 24.5, built Nov 11 2024\n";
    ssize_t ignored = write(1, kBanner, sizeof(kBanner) - 1);
    (void)ignored;
    _exit(0);
}

// Makes the shared object executable: the loader to run it with.
extern "C" const char kxtInterpreter[] __attribute__((section(".interp"), used)) =
#if defined(__aarch64__)
    "/lib/ld-linux-aarch64.so.1";
#elif defined(__x86_64__)
    "/lib64/ld-linux-x86-64.so.2";
#else
#error "the loader path of this processor is missing"
#endif

const char* gPartName = "";

void PluginStart(const char* partName) {
    static const char kBuildInfo[] __attribute__((used)) = "$$ Plugin version: 24.5 (2024) $$";
    (void)kBuildInfo;
    gPartName = partName;
}
