// Entry points and the binding layer: every host service is resolved by name on first use.
#include <unistd.h>

#include <atomic>
#include <type_traits>
#include <utility>

#include "REALplugin.h"
#include "XojoHostServices.h"

namespace {

using kxt::abi::HostService;
using kxt::abi::HostServiceFunction;

// Handlers may run on several threads, so the first use of a service may race: every pointer
// here is atomic. Only the pointer itself is published (the code it points to is the host's),
// so relaxed order is enough.
std::atomic<REALResolver> gResolver{nullptr};

// The cached function of a service. A null lookup is not remembered, so a service that appears
// later (or a test host that stops hiding it) is found on the next call.
template <HostService S>
HostServiceFunction<S> hostFunction() {
    using Fn = HostServiceFunction<S>;
    static constinit std::atomic<Fn> cached{nullptr};
    Fn f = cached.load(std::memory_order_relaxed);
    if (f == nullptr) {
        if (REALResolver resolver = gResolver.load(std::memory_order_relaxed)) {
            f = reinterpret_cast<Fn>(resolver(kxt::abi::HostServiceInfo<S>::name));
            if (f != nullptr) cached.store(f, std::memory_order_relaxed);
        }
    }
    return f;
}

// Calls a service with its listed parameter types, or gives the neutral result when the host
// lacks it.
template <HostService S, typename... Args>
auto callHost(Args... args) {
    using R = decltype(std::declval<HostServiceFunction<S>>()(args...));
    if (auto f = hostFunction<S>()) return f(args...);
    if constexpr (!std::is_void_v<R>) return R{};
}

// The framework's LenB, loaded once it is available.
std::atomic<kxt::abi::StringLengthMethod> gLenB{nullptr};

}  // namespace

double gHostVersion = 0.0;
uint32_t gPluginInterfaceVersion = 9;

RBBoolean REALGetStringData(REALstring s, uint32_t encoding, REALstringData* out) {
    return callHost<HostService::PluginGetStringData>(s, encoding, out);
}
void REALDisposeStringData(REALstringData* data) {
    callHost<HostService::PluginDisposeStringData>(data);
}

REALobject REALCallFunctionWithExceptionHandler(void (*f)(void*), void* arg) {
    if (auto guarded = hostFunction<HostService::PluginCallFunctionWithExceptionHandler>())
        return guarded(f, arg);
    // Without the host's guard the function still has to run.
    f(arg);
    return nullptr;
}

RBInteger REALCompareStrings(REALstring a, REALstring b) {
    return callHost<HostService::RuntimeStringCompare>(a, b);
}
RBBoolean REALinRuntime() {
    return callHost<HostService::REALinRuntime>();
}
REALstring REALBuildString(const char* data, int32_t length) {
    return callHost<HostService::REALBuildString>(data, length);
}
REALstring REALBuildStringWithEncoding(const char* data, int32_t length, uint32_t encoding) {
    return callHost<HostService::REALBuildStringWithEncoding>(data, length, encoding);
}
void REALLockObject(REALobject obj) {
    callHost<HostService::REALLockObject>(obj);
}
void REALUnlockObject(REALobject obj) {
    callHost<HostService::REALUnlockObject>(obj);
}
void REALLockString(REALstring s) {
    callHost<HostService::REALLockString>(s);
}
void REALUnlockString(REALstring s) {
    callHost<HostService::REALUnlockString>(s);
}
void REALRaiseException(REALobject exception) {
    callHost<HostService::RuntimeRaiseException>(exception);
}
RBInteger REALGetArrayUBound(REALarray array) {
    return callHost<HostService::RuntimeUBound>(array);
}
void REALYieldToRB() {
    callHost<HostService::REALYieldToRB>();
}
void REALRegisterModule(REALmoduleDefinition* module) {
    callHost<HostService::PluginRegisterModule>(module);
}
void REALRegisterMethod(REALmethodDefinition* method) {
    callHost<HostService::PluginRegisterMethod>(method);
}
void REALRegisterClassExtension(REALclassDefinition* cls) {
    callHost<HostService::PluginRegisterClassExtension>(cls);
}
void* REALLoadFrameworkMethod(const char* declaration) {
    return callHost<HostService::REALLoadGlobalMethod>(static_cast<const char*>(nullptr),
                                                       declaration);
}
void* REALLoadObjectMethod(REALobject obj, const char* declaration) {
    return callHost<HostService::REALLoadObjectMethod>(obj, declaration);
}

const char* REALGetStringContents(REALstring s, size_t* lengthOut) {
    if (s == nullptr) return nullptr;
    auto getCString = hostFunction<HostService::StringGetCString>();
    if (lengthOut != nullptr) {
        auto lenB = gLenB.load(std::memory_order_relaxed);
        if (lenB == nullptr) {
            lenB = reinterpret_cast<kxt::abi::StringLengthMethod>(
                REALLoadFrameworkMethod(kxt::abi::kLenBDeclaration));
            if (lenB != nullptr) gLenB.store(lenB, std::memory_order_relaxed);
        }
        if (lenB != nullptr) *lengthOut = static_cast<size_t>(lenB(s));
    }
    return getCString != nullptr ? getCString(s) : nullptr;
}

RBBoolean REALGetPropValueString(REALobject obj, const char* name, REALstring* out) {
    return callHost<HostService::REALGetPropValueString>(obj, name, out);
}
RBBoolean REALSetPropValueString(REALobject obj, const char* name, REALstring value) {
    return callHost<HostService::REALSetPropValueString>(obj, name, value);
}
RBBoolean REALGetPropValueBoolean(REALobject obj, const char* name, RBBoolean* out) {
    return callHost<HostService::REALGetPropValueBool>(obj, name, out);
}
RBBoolean REALGetPropValueColor(REALobject obj, const char* name, RBColor* out) {
    return callHost<HostService::REALGetPropValueColor>(obj, name, out);
}
RBBoolean REALGetPropValueInteger(REALobject obj, const char* name, RBInteger* out) {
    return callHost<HostService::REALGetPropValueInteger>(obj, name, out);
}
RBBoolean REALSetPropValueInteger(REALobject obj, const char* name, RBInteger value) {
    return callHost<HostService::REALSetPropValueInteger>(obj, name, value);
}
RBBoolean REALSetPropValueUInt32(REALobject obj, const char* name, uint32_t value) {
    return callHost<HostService::REALSetPropValueUInt32>(obj, name, value);
}
RBBoolean REALSetPropValueBoolean(REALobject obj, const char* name, RBBoolean value) {
    return callHost<HostService::REALSetPropValueBoolean>(obj, name, value);
}
REALarray REALCreateArray(int32_t elementType, RBInteger upperBound) {
    return callHost<HostService::RuntimeArrayCreateSingleDimBoundedArray>(elementType, upperBound);
}
void REALInsertArrayValueString(REALarray array, RBInteger index, REALstring value) {
    // Two steps: the service hands out the array's own insert function, which does the work.
    auto insert = reinterpret_cast<REALStringArrayInsertFunction>(
        callHost<HostService::PluginStringArrayInsertProc>(array));
    if (insert != nullptr) insert(array, index, value);
}
uint32_t REALGetStringEncoding(REALstring s) {
    return callHost<HostService::REALGetStringEncoding>(s);
}
void REALSetStringEncoding(REALstring s, uint32_t encoding) {
    callHost<HostService::REALSetStringEncoding>(s, encoding);
}
REALstring REALConvertString(REALstring s, uint32_t encoding) {
    return callHost<HostService::REALConvertString>(s, encoding);
}
REALobject REALnewInstance(const char* className) {
    return callHost<HostService::PluginNewInstance>(className);
}
void* REALMemoryBlockGetPtr(REALmemoryBlock mb) {
    return callHost<HostService::memoryBlockGetPtr>(mb);
}
RBInteger REALMemoryBlockGetSize(REALmemoryBlock mb) {
    return callHost<HostService::memoryBlockGetSize>(mb);
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
    gResolver.store(resolver, std::memory_order_relaxed);
    if (resolver != nullptr) {
        if (auto getVersion = hostFunction<HostService::REALGetRBVersion>()) {
            gHostVersion = getVersion();
        }
    }
    gPluginInterfaceVersion = interfaceVersionFor(gHostVersion);
}

extern "C" __attribute__((visibility("default"))) void REALPluginMain(REALResolver resolver) {
    BindHost(resolver);
    if (resolver == nullptr) return;
    // Every host that loads plugins offers this; it is deliberately not checked.
    auto announce = reinterpret_cast<HostServiceFunction<HostService::RegisterPluginVersion>>(
        resolver(kxt::abi::HostServiceInfo<HostService::RegisterPluginVersion>::name));
    announce(gPluginInterfaceVersion);
    PluginEntry();
}

// Started as a program, the shared object prints its banner. On x86 the loader enters here with
// the stack aligned for a jump, not a call, hence the realignment (ARM64 has no such attribute
// and needs none).
#if defined(__x86_64__) || defined(__i386__)
#define KXT_REALIGN_STACK __attribute__((force_align_arg_pointer))
#else
#define KXT_REALIGN_STACK
#endif
extern "C" __attribute__((visibility("default"), noreturn)) KXT_REALIGN_STACK void libEntry() {
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
