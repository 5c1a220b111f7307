// Loading the plugin, the resolver, registration, and calling registered methods through their
// declarations.
#include <dlfcn.h>
#include <ffi.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <span>
#include <sstream>
#include <stdexcept>
#include <unordered_map>
#include <utility>

#include "Encodings.h"
#include "HostInternal.h"
#include "HostServices.h"
#include "XojoHostServices.h"

namespace xhost {

namespace {

// The active host: the one whose plugin copy is running, and whose state the resolver and the
// services use. Several hosts may be alive; each call activates its own, for its thread. A
// thread that has activated none (or whose host is gone) gets the host made or activated last.
// The host library is linked into programs only, never into a shared object loaded later, so
// its thread-locals can take the initial-exec model: an offset from the thread pointer instead
// of a call per access (every service looks up the active host).
#define KXT_THREAD_LOCAL thread_local __attribute__((tls_model("initial-exec")))
KXT_THREAD_LOCAL Host* tActive = nullptr;
KXT_THREAD_LOCAL uint64_t tActiveChecked = 0;  // gHostsGone when tActive was last known alive
std::atomic<Host*> gLatest{nullptr};
// Never destroyed: hosts held in statics are destroyed at exit, after this file's globals.
std::shared_mutex gLiveLock;
std::vector<Host*>& gLive = *new std::vector<Host*>;
std::atomic<uint64_t> gHostsGone{0};
std::atomic<uint64_t> gHostSerials{0};

__attribute__((noinline)) Host* activeHostAfterChange(uint64_t gone) {
    if (tActive != nullptr) {
        std::shared_lock<std::shared_mutex> lock(gLiveLock);
        if (std::find(gLive.begin(), gLive.end(), tActive) == gLive.end()) tActive = nullptr;
        tActiveChecked = gone;
    }
    return tActive != nullptr ? tActive : gLatest.load(std::memory_order_acquire);
}

inline Host* activeHost() {
    const uint64_t gone = gHostsGone.load(std::memory_order_acquire);
    if (tActive != nullptr && tActiveChecked == gone) [[likely]]
        return tActive;
    return activeHostAfterChange(gone);
}

void makeActive(Host* h) {
    tActive = h;
    tActiveChecked = gHostsGone.load(std::memory_order_acquire);
    // Written only when it changes: threads calling one host do not contend for it.
    if (gLatest.load(std::memory_order_relaxed) != h) gLatest.store(h, std::memory_order_release);
}

bool isHidden(std::string_view name) {
    Host* h = activeHost();
    return h != nullptr && h->options().hidden.count(std::string(name)) != 0;
}

// Each thread's pending exceptions, one slot per host it has called (a deque: slots stay put
// while others are added). Freed at thread exit through a pthread key, not by a thread_local
// object's destructor: that one needs __cxa_thread_atexit_impl (glibc 2.18), newer than what
// kxt may import.
using PendingSlots = std::deque<std::pair<uint64_t, Object*>>;
KXT_THREAD_LOCAL PendingSlots* tPending = nullptr;

PendingSlots& pendingSlots() {
    if (tPending == nullptr) {
        static const pthread_key_t key = [] {
            pthread_key_t k;
            if (pthread_key_create(&k, [](void* p) { delete static_cast<PendingSlots*>(p); }) != 0)
                std::abort();
            return k;
        }();
        auto slots = std::make_unique<PendingSlots>();
        pthread_setspecific(key, slots.get());
        tPending = slots.release();
    }
    return *tPending;
}

// ---- Services that belong to the host as a whole ----------------------------------------------

double getVersion() {
    Host* h = activeHost();
    return h ? h->options().version : 0.0;
}
RBBoolean inRuntime() {
    Host* h = activeHost();
    return h ? h->options().inRuntime : false;
}

void registerPluginVersion(uint32_t version) {
    if (Host::State* st = currentState()) st->interfaceVersion = version;
}

void yieldToRB() {
    if (Host::State* st = currentState()) st->yields.fetch_add(1, std::memory_order_relaxed);
}

std::string text(const char* s) {
    return s ? s : "";
}

std::vector<std::pair<std::string, std::string>> copyAttributes(const REALattribute* a,
                                                                size_t count) {
    std::vector<std::pair<std::string, std::string>> out;
    for (size_t i = 0; a != nullptr && i < count; ++i) {
        out.emplace_back(text(a[i].mName), text(a[i].mValue));
    }
    return out;
}

RegisteredMethod copyMethod(const REALmethodDefinition& m, const std::string& module) {
    RegisteredMethod r;
    r.module = module;
    r.declarationText = text(m.declaration);
    try {
        r.declaration = parseDeclaration(r.declarationText);
    } catch (const std::exception& e) {
        r.parseError = e.what();
        r.declaration.name = r.declarationText.substr(0, r.declarationText.find('('));
    }
    r.function = m.function;
    r.setter = m.setterFunction;
    r.flags = m.mFlags;
    r.attributes = copyAttributes(m.attributes, m.attributeCount);
    return r;
}

std::vector<RegisteredMethod> copyMethods(Host::State& st, const REALmethodDefinition* m,
                                          size_t count, const std::string& owner) {
    std::vector<RegisteredMethod> out;
    if (m == nullptr && count != 0) {
        misuse(st, owner + ": method array is null, count " + std::to_string(count));
        return out;
    }
    for (size_t i = 0; i < count; ++i) out.push_back(copyMethod(m[i], owner));
    return out;
}

std::vector<RegisteredProperty> copyProperties(Host::State& st, const REALproperty* p, size_t count,
                                               const std::string& owner) {
    std::vector<RegisteredProperty> out;
    if (p == nullptr && count != 0) {
        misuse(st, owner + ": property array is null, count " + std::to_string(count));
        return out;
    }
    for (size_t i = 0; i < count; ++i) {
        RegisteredProperty r;
        r.module = owner;
        r.name = text(p[i].name);
        r.type = text(p[i].type);
        r.flags = p[i].flags;
        r.getter = p[i].getter;
        r.setter = p[i].setter;
        r.attributes = copyAttributes(p[i].attributes, p[i].attributeCount);
        out.push_back(std::move(r));
    }
    return out;
}

void registerModule(REALmoduleDefinition* def) {
    Host::State* st = currentState();
    if (st == nullptr) return;
    if (def == nullptr) return misuse(*st, "PluginRegisterModule(null)");
    RegisteredModule m;
    m.name = text(def->name);
    m.version = def->version;
    m.flags = def->flags;
    m.methods = copyMethods(*st, def->methods, def->methodCount, m.name);
    m.properties = copyProperties(*st, def->properties, def->propertyCount, m.name);
    st->modules.push_back(std::move(m));
}

void registerMethod(REALmethodDefinition* def) {
    Host::State* st = currentState();
    if (st == nullptr) return;
    if (def == nullptr) return misuse(*st, "PluginRegisterMethod(null)");
    st->globals.push_back(copyMethod(*def, ""));
}

void registerClassExtension(REALclassDefinition* def) {
    Host::State* st = currentState();
    if (st == nullptr) return;
    if (def == nullptr) return misuse(*st, "PluginRegisterClassExtension(null)");
    RegisteredClassExtension c;
    c.className = text(def->name);
    c.version = def->version;
    c.flags = def->mFlags;
    c.methods = copyMethods(*st, def->methods, def->methodCount, c.className);
    c.properties = copyProperties(*st, def->properties, def->propertyCount, c.className);
    st->extensions.push_back(std::move(c));
}

void* loadGlobalMethod(const char* module, const char* declaration) {
    if (module != nullptr || declaration == nullptr || isHidden(declaration)) return nullptr;
    std::string d = normalizeDeclaration(declaration);
    constexpr kxt::abi::StringLengthMethod lenB = kNoExcept<&services::lenB>;
    constexpr kxt::abi::StringLengthMethod len = kNoExcept<&services::len>;
    if (d == normalizeDeclaration(kxt::abi::kLenBDeclaration)) return reinterpret_cast<void*>(lenB);
    if (d == normalizeDeclaration(kxt::abi::kLenDeclaration)) return reinterpret_cast<void*>(len);
    return nullptr;
}

void* loadObjectMethodService(REALobject o, const char* declaration) {
    if (declaration == nullptr || isHidden(declaration)) return nullptr;
    return services::loadObjectMethod(o, declaration);
}

// Every service of the list, each of exactly its listed type: a drifting signature, a missing
// service or one that may throw does not compile.
constexpr kxt::abi::HostServiceTable kServices = {
    .REALGetRBVersion = kNoExcept<&getVersion>,
    .RegisterPluginVersion = kNoExcept<&registerPluginVersion>,
    .REALinRuntime = kNoExcept<&inRuntime>,
    .PluginGetStringData = kNoExcept<&services::getStringData>,
    .PluginDisposeStringData = kNoExcept<&services::disposeStringData>,
    .PluginCallFunctionWithExceptionHandler = kNoExcept<&services::callWithExceptionHandler>,
    .RuntimeStringCompare = kNoExcept<&services::compareStrings>,
    .REALBuildString = kNoExcept<&services::buildString>,
    .REALBuildStringWithEncoding = kNoExcept<&services::buildStringWithEncoding>,
    .REALLockObject = kNoExcept<&services::lockObjectService>,
    .REALUnlockObject = kNoExcept<&services::unlockObjectService>,
    .REALLockString = kNoExcept<&services::lockStringService>,
    .REALUnlockString = kNoExcept<&services::unlockStringService>,
    .RuntimeRaiseException = kNoExcept<&services::raiseException>,
    .RuntimeUBound = kNoExcept<&services::arrayUBound>,
    .REALYieldToRB = kNoExcept<&yieldToRB>,
    .PluginRegisterModule = kNoExcept<&registerModule>,
    .PluginRegisterMethod = kNoExcept<&registerMethod>,
    .PluginRegisterClassExtension = kNoExcept<&registerClassExtension>,
    .REALLoadGlobalMethod = kNoExcept<&loadGlobalMethod>,
    .REALLoadObjectMethod = kNoExcept<&loadObjectMethodService>,
    .StringGetCString = kNoExcept<&services::getCString>,
    .REALGetPropValueString = kNoExcept<&services::getPropString>,
    .REALSetPropValueString = kNoExcept<&services::setPropString>,
    .REALGetPropValueBool = kNoExcept<&services::getPropBool>,
    .REALGetPropValueColor = kNoExcept<&services::getPropColor>,
    .REALGetPropValueInteger = kNoExcept<&services::getPropInteger>,
    .REALSetPropValueInteger = kNoExcept<&services::setPropInteger>,
    .REALSetPropValueUInt32 = kNoExcept<&services::setPropUInt32>,
    .REALSetPropValueBoolean = kNoExcept<&services::setPropBoolean>,
    .RuntimeArrayCreateSingleDimBoundedArray = kNoExcept<&services::createArray>,
    .PluginStringArrayInsertProc = kNoExcept<&services::stringArrayInsertProc>,
    .REALGetStringEncoding = kNoExcept<&services::getStringEncoding>,
    .REALSetStringEncoding = kNoExcept<&services::setStringEncoding>,
    .REALConvertString = kNoExcept<&services::convertString>,
    .PluginNewInstance = kNoExcept<&services::newInstance>,
    .memoryBlockGetPtr = kNoExcept<&services::memoryBlockGetPtr>,
    .memoryBlockGetSize = kNoExcept<&services::memoryBlockGetSize>,
};
static_assert(kxt::abi::IsComplete(kServices), "every listed service needs a function");

const std::unordered_map<std::string, void*>& serviceTable() {
    static const std::unordered_map<std::string, void*> table = {
#define KXT_SERVICE_ENTRY(name, R, P) {#name, reinterpret_cast<void*>(kServices.name)},
        KXT_HOST_SERVICES(KXT_SERVICE_ENTRY)
#undef KXT_SERVICE_ENTRY
    };
    return table;
}

#ifdef KXT_SANITIZED
// Under LeakSanitizer the plugin's process-wide allocations (registration records, lookup
// tables) must stay reachable through its globals, as they do in Xojo, where a plugin is never
// unloaded.
constexpr int kKeepPluginMapped = RTLD_NODELETE;
#else
constexpr int kKeepPluginMapped = 0;
#endif

// ---- Calling ----------------------------------------------------------------------------------

// How well a parameter type takes a value: 0 not at all, 1 with a conversion or as Nil, 2 exactly.
int acceptance(TypeKind kind, const Value& v) {
    using T = Value::Type;
    const bool nil = v.type() == T::Nil;
    auto exactOrNil = [&](T t) { return v.type() == t ? 2 : nil ? 1 : 0; };
    switch (kind) {
        case TypeKind::String:
            return exactOrNil(T::String);
        case TypeKind::MemoryBlock:
            return exactOrNil(T::MemoryBlock);
        case TypeKind::Integer:
            return v.type() == T::Integer ? 2 : 0;
        case TypeKind::Double:
            return v.type() == T::Double ? 2 : v.type() == T::Integer ? 1 : 0;
        case TypeKind::Boolean:
            return v.type() == T::Boolean ? 2 : 0;
        case TypeKind::Ptr:
            return exactOrNil(T::Ptr);
        case TypeKind::StringArray:
            return exactOrNil(T::Array);
        case TypeKind::Object:
            return exactOrNil(T::Object);
        case TypeKind::None:
        case TypeKind::Unknown:
            break;
    }
    return 0;
}

struct Fit {
    bool ok = false;
    bool exactCount = false;
    int exactTypes = 0;
};

Fit fitOf(const Declaration& d, const std::vector<Value>& args) {
    Fit f;
    if (args.size() > d.params.size()) return f;
    for (size_t i = args.size(); i < d.params.size(); ++i) {
        if (!d.params[i].defaultValue) return f;
    }
    for (size_t i = 0; i < args.size(); ++i) {
        int a = acceptance(d.params[i].kind, args[i]);
        if (a == 0) return f;
        f.exactTypes += a == 2;
    }
    f.ok = true;
    f.exactCount = args.size() == d.params.size();
    return f;
}

bool better(const Fit& a, const Fit& b) {
    if (a.exactCount != b.exactCount) return a.exactCount;
    return a.exactTypes > b.exactTypes;
}

std::string describeArgs(const std::vector<Value>& args) {
    std::string s = "(";
    for (size_t i = 0; i < args.size(); ++i)
        s += (i ? ", " : "") + std::string(typeName(args[i].type()));
    return s + ")";
}

Value defaultValue(const Parameter& p, std::string_view whole) {
    const std::string& t = *p.defaultValue;
    auto bad = [&]() -> std::invalid_argument {
        return std::invalid_argument("cannot read the default \"" + t + "\" of " + p.name +
                                     " in \"" + std::string(whole) + "\"");
    };
    if (equalsIgnoringCase(t, "nil")) return Value::nil();
    if (p.type == "Boolean") {
        if (equalsIgnoringCase(t, "true")) return Value::boolean(true);
        if (equalsIgnoringCase(t, "false")) return Value::boolean(false);
        throw bad();
    }
    if (p.type == "Integer" || p.type == "Double") {
        const char* s = t.c_str();
        char* end = nullptr;
        errno = 0;
        if (p.type == "Integer") {
            long long v = t.size() > 2 && t[0] == '&' && (t[1] == 'h' || t[1] == 'H')
                              ? std::strtoll(s + 2, &end, 16)
                              : std::strtoll(s, &end, 10);
            if (*end != '\0' || errno != 0) throw bad();
            return Value::integer(v);
        }
        double v = std::strtod(s, &end);
        if (*end != '\0') throw bad();
        return Value::real(v);
    }
    if (p.type == "String" && t.size() >= 2 && t.front() == '"' && t.back() == '"') {
        return Value::string(t.substr(1, t.size() - 2));
    }
    throw bad();
}

ffi_type* ffiType(TypeKind kind) {
    switch (kind) {
        case TypeKind::None:
            return &ffi_type_void;
        case TypeKind::Integer:
            return &ffi_type_sint64;
        case TypeKind::Boolean:
            return &ffi_type_uint8;
        case TypeKind::Double:
            return &ffi_type_double;
        default:
            return &ffi_type_pointer;  // String, Ptr, MemoryBlock, String(), classes
    }
}

// Hands the exception the running call raised (if any) to the caller and releases it.
std::optional<RaisedException> takePending(Host::State& st) {
    Object* e = std::exchange(pendingException(st), nullptr);
    if (e == nullptr) return std::nullopt;
    RaisedException raised;
    raised.className = e->className;
    if (PropValue* m = findProp(e, "Message"); m && m->string) {
        raised.message = stringAsUTF8(st, m->string);
    }
    if (PropValue* n = findProp(e, "ErrorNumber")) raised.errorNumber = n->integer;
    unlockObject(st, e);
    return raised;
}

// Calls a handler with the C types of its declared parameters and adopts its result.
CallResult invoke(Host::State& st, REALproc function, std::span<const TypeKind> kinds,
                  TypeKind resultKind, const std::vector<Value>& args) {
    if (function == nullptr) throw std::invalid_argument("the method has no handler");
    union Slot {
        void* p;
        int64_t i;
        double d;
        uint8_t b;
    };
    // Room for every declaration here without allocating per call.
    constexpr size_t kInline = 16;
    const size_t n = kinds.size();
    Slot inlineSlots[kInline];
    void* inlineValues[kInline];
    ffi_type* inlineTypes[kInline];
    std::vector<Slot> heapSlots;
    std::vector<void*> heapValues;
    std::vector<ffi_type*> heapTypes;
    Slot* slots = inlineSlots;
    void** values = inlineValues;
    ffi_type** ffiTypes = inlineTypes;
    if (n > kInline) {
        heapSlots.resize(n);
        heapValues.resize(n);
        heapTypes.resize(n);
        slots = heapSlots.data();
        values = heapValues.data();
        ffiTypes = heapTypes.data();
    }
    for (size_t i = 0; i < n; ++i) {
        const Value& v = args[i];
        // A handle made while another host was active means nothing to this host's plugin copy.
        if (!v.isNil() && v.type() != Value::Type::Ptr && HostAccess::owner(v) != 0 &&
            HostAccess::owner(v) != st.hostSerial) {
            throw std::invalid_argument("argument " + std::to_string(i + 1) +
                                        " belongs to another host");
        }
        ffiTypes[i] = ffiType(kinds[i]);
        switch (kinds[i]) {
            case TypeKind::Integer:
                slots[i].i = v.asInteger();
                break;
            case TypeKind::Boolean:
                slots[i].b = v.asBoolean() ? 1 : 0;
                break;
            case TypeKind::Double:
                slots[i].d = v.asDouble();
                break;
            case TypeKind::Ptr:
                slots[i].p = v.type() == Value::Type::Ptr ? v.asPointer() : nullptr;
                break;
            case TypeKind::String:
                slots[i].p = v.stringHandle();
                break;
            default:
                slots[i].p = v.objectHandle();
                break;
        }
        values[i] = &slots[i];
    }
    ffi_cif cif;
    if (ffi_prep_cif(&cif, FFI_DEFAULT_ABI, static_cast<unsigned>(n), ffiType(resultKind),
                     ffiTypes) != FFI_OK) {
        throw std::runtime_error("libffi cannot prepare the call");
    }
    union {
        ffi_arg a;
        ffi_sarg s;
        double d;
        void* p;
    } ret{};
    if (Object* stale = std::exchange(pendingException(st), nullptr)) unlockObject(st, stale);
    ffi_call(&cif, FFI_FN(function), &ret, values);

    CallResult result;
    switch (resultKind) {
        case TypeKind::None:
            break;
        case TypeKind::Integer:
            result.value = Value::integer(static_cast<int64_t>(ret.s));
            break;
        case TypeKind::Boolean:
            result.value = Value::boolean((ret.a & 0xFF) != 0);
            break;
        case TypeKind::Double:
            result.value = Value::real(ret.d);
            break;
        case TypeKind::Ptr:
            result.value = Value::pointer(ret.p);
            break;
        case TypeKind::String: {
            auto s = static_cast<REALstring>(ret.p);
            if (s != nullptr && liveString(st, s) == nullptr) s = nullptr;  // misuse noted
            result.value = Value::adoptString(s);
            break;
        }
        default: {
            auto o = static_cast<REALobject>(ret.p);
            if (o != nullptr && liveObject(st, o) == nullptr) o = nullptr;
            const Value::Type type = resultKind == TypeKind::MemoryBlock ? Value::Type::MemoryBlock
                                     : resultKind == TypeKind::StringArray ? Value::Type::Array
                                                                           : Value::Type::Object;
            result.value = Value::adoptObject(o, type);
            break;
        }
    }
    result.exception = takePending(st);
    if (result.exception) result.value = Value::nil();  // a raising call has no result
    return result;
}

// Calls through a declaration's parameter kinds, with `before` and `after` around them (a class
// extension's object and assigned value, which its declaration does not list).
CallResult invokeDeclared(Host::State& st, REALproc function, const Declaration& d,
                          std::initializer_list<TypeKind> before,
                          std::initializer_list<TypeKind> after, TypeKind resultKind,
                          const std::vector<Value>& args) {
    std::array<TypeKind, 32> inlineKinds;
    std::vector<TypeKind> heapKinds;
    const size_t n = before.size() + d.params.size() + after.size();
    TypeKind* kinds = inlineKinds.data();
    if (n > inlineKinds.size()) {
        heapKinds.resize(n);
        kinds = heapKinds.data();
    }
    TypeKind* k = std::copy(before.begin(), before.end(), kinds);
    for (const Parameter& p : d.params) *k++ = p.kind;
    std::copy(after.begin(), after.end(), k);
    return invoke(st, function, std::span<const TypeKind>(kinds, n), resultKind, args);
}

const RegisteredMethod* findExtension(const Host& h, bool setter) {
    for (const RegisteredClassExtension& c : h.classExtensions()) {
        if (!equalsIgnoringCase(c.className, "StyledText")) continue;
        for (const RegisteredMethod& m : c.methods) {
            if (m.parseError.empty() && equalsIgnoringCase(m.declaration.name, "RTFDataKXT") &&
                (setter ? m.setter : m.function) != nullptr) {
                return &m;
            }
        }
    }
    return nullptr;
}

const RegisteredProperty* findDebugging(const Host& h) {
    for (const RegisteredModule& m : h.modules()) {
        for (const RegisteredProperty& p : m.properties) {
            if (equalsIgnoringCase(p.name, "Debugging")) return &p;
        }
    }
    return nullptr;
}

std::string copyPluginFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read the plugin " + path);
    const char* dir = std::getenv("TMPDIR");
    std::string tmpl = std::string(dir && *dir ? dir : "/tmp") + "/kxt-plugin-XXXXXX";
    int fd = mkstemp(tmpl.data());
    if (fd < 0) throw std::runtime_error("cannot create a copy of the plugin in " + tmpl);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    const std::string data = bytes.str();
    size_t done = 0;
    while (done < data.size()) {
        ssize_t w = ::write(fd, data.data() + done, data.size() - done);
        if (w <= 0) {
            ::close(fd);
            ::unlink(tmpl.c_str());
            throw std::runtime_error("cannot write the copy of the plugin " + tmpl);
        }
        done += static_cast<size_t>(w);
    }
    ::close(fd);
    return tmpl;
}

}  // namespace

Object*& pendingException(Host::State& st) {
    PendingSlots& slots = pendingSlots();
    for (auto& [serial, pending] : slots) {
        if (serial == st.hostSerial) return pending;
    }
    return slots.emplace_back(st.hostSerial, nullptr).second;
}

void dropPendingException(Host::State& st) {
    if (tPending == nullptr) return;
    auto it = std::find_if(tPending->begin(), tPending->end(),
                           [&](const auto& slot) { return slot.first == st.hostSerial; });
    if (it != tPending->end()) tPending->erase(it);
}

Host::State* currentState() {
    Host* h = activeHost();
    return h ? HostAccess::state(*h) : nullptr;
}

Host::State* liveState(uint64_t hostSerial) {
    // Mostly the thread's active host, alive while it calls.
    if (Host* h = activeHost(); h != nullptr && HostAccess::state(*h)->hostSerial == hostSerial) {
        return HostAccess::state(*h);
    }
    std::shared_lock<std::shared_mutex> lock(gLiveLock);
    for (Host* h : gLive) {
        if (HostAccess::state(*h)->hostSerial == hostSerial) return HostAccess::state(*h);
    }
    return nullptr;
}

void* resolve(const char* name) {
    if (activeHost() == nullptr || name == nullptr || isHidden(name)) return nullptr;
    auto it = serviceTable().find(name);
    return it == serviceTable().end() ? nullptr : it->second;
}

// ---- Host -------------------------------------------------------------------------------------

Host::Host(HostOptions options) : options_(std::move(options)) {
    copyPath_ = copyPluginFile(options_.pluginPath);
    state_ = new State;
    state_->hostSerial = gHostSerials.fetch_add(1) + 1;
    Host* previous = tActive;
    makeActive(this);
    library_ = dlopen(copyPath_.c_str(), RTLD_NOW | RTLD_LOCAL | kKeepPluginMapped);
    void* entry = library_ ? dlsym(library_, "REALPluginMain") : nullptr;
    if (entry == nullptr) {
        std::string why = library_ ? "the plugin exports no REALPluginMain" : dlerror();
        if (library_) dlclose(library_);
        ::unlink(copyPath_.c_str());
        tActive = previous;
        Host* expected = this;
        gLatest.compare_exchange_strong(expected, previous);
        delete state_;
        throw std::runtime_error("cannot load " + options_.pluginPath + ": " + why);
    }
    reinterpret_cast<void (*)(REALResolver)>(entry)(&resolve);
    if (Object* raised = std::exchange(pendingException(*state_), nullptr)) {
        misuse(*state_, "an exception was raised while the plugin started");
        unlockObject(*state_, raised);
    }
    std::lock_guard<std::shared_mutex> lock(gLiveLock);
    gLive.push_back(this);
}

Host::~Host() {
    makeActive(this);  // whatever the plugin copy does while it unloads concerns this host
    if (library_ != nullptr) dlclose(library_);
    ::unlink(copyPath_.c_str());
    {
        std::lock_guard<std::shared_mutex> lock(gLiveLock);
        gLive.erase(std::find(gLive.begin(), gLive.end(), this));
        gHostsGone.fetch_add(1, std::memory_order_release);
        Host* next = gLive.empty() ? nullptr : gLive.back();
        tActive = next;
        Host* expected = this;
        gLatest.compare_exchange_strong(expected, next);
    }
    freeEverything(*state_);
    delete state_;
}

Host* Host::current() {
    return activeHost();
}

void Host::activate() {
    makeActive(this);
}

void Host::setFailMemoryBlocks(bool fail) {
    options_.failMemoryBlocks = fail;
}

const std::vector<RegisteredModule>& Host::modules() const {
    return state_->modules;
}
const std::vector<RegisteredMethod>& Host::globalMethods() const {
    return state_->globals;
}
const std::vector<RegisteredClassExtension>& Host::classExtensions() const {
    return state_->extensions;
}
uint32_t Host::announcedInterfaceVersion() const {
    return state_->interfaceVersion;
}

std::vector<const RegisteredMethod*> Host::overloads(std::string_view name) const {
    std::vector<const RegisteredMethod*> out;
    for (const RegisteredModule& m : state_->modules) {
        for (const RegisteredMethod& r : m.methods) {
            if (equalsIgnoringCase(r.declaration.name, name)) out.push_back(&r);
        }
    }
    for (const RegisteredMethod& r : state_->globals) {
        if (equalsIgnoringCase(r.declaration.name, name)) out.push_back(&r);
    }
    return out;
}

CallResult Host::call(std::string_view name, const std::vector<Value>& args) {
    activate();
    auto candidates = overloads(name);
    if (candidates.empty()) {
        throw std::invalid_argument("no method named " + std::string(name) + " is registered");
    }
    const RegisteredMethod* best = nullptr;
    Fit bestFit;
    for (const RegisteredMethod* m : candidates) {
        if (!m->parseError.empty()) continue;
        Fit f = fitOf(m->declaration, args);
        if (f.ok && (best == nullptr || better(f, bestFit))) {
            best = m;
            bestFit = f;
        }
    }
    if (best == nullptr) {
        std::string msg = "no overload of " + std::string(name) + " accepts " + describeArgs(args) +
                          "; overloads:";
        for (const RegisteredMethod* m : candidates) msg += " \"" + m->declarationText + "\"";
        throw std::invalid_argument(msg);
    }
    return callMethod(*best, args);
}

CallResult Host::callMethod(const RegisteredMethod& method, const std::vector<Value>& args) {
    activate();
    if (!method.parseError.empty()) throw std::invalid_argument(method.parseError);
    const Declaration& d = method.declaration;
    if (!fitOf(d, args).ok) {
        throw std::invalid_argument("\"" + method.declarationText + "\" does not accept " +
                                    describeArgs(args));
    }
    if (args.size() == d.params.size()) {
        return invokeDeclared(*state_, method.function, d, {}, {}, d.resultKind, args);
    }
    // Copies only to add the defaults: each copy of a handle is a reference taken and released.
    std::vector<Value> full = args;
    for (size_t i = args.size(); i < d.params.size(); ++i) {
        full.push_back(defaultValue(d.params[i], method.declarationText));
    }
    return invokeDeclared(*state_, method.function, d, {}, {}, d.resultKind, full);
}

CallResult Host::getRTF(const Value& styledText, bool skipParagraphs) {
    activate();
    if (const RegisteredMethod* m = findExtension(*this, false)) {
        return invokeDeclared(*state_, m->function, m->declaration, {TypeKind::Object}, {},
                              m->declaration.resultKind,
                              {styledText, Value::boolean(skipParagraphs)});
    }
    for (const RegisteredMethod* m : overloads("RTFDataKXT")) {
        const auto& p = m->declaration.params;
        if (!p.empty() && p.front().extends && !p.back().assigns) {
            return callMethod(*m, {styledText, Value::boolean(skipParagraphs)});
        }
    }
    throw std::invalid_argument("the plugin registered no getter of RTFDataKXT");
}

CallResult Host::setRTF(const Value& styledText, const Value& rtf, bool skipParagraphs) {
    activate();
    if (const RegisteredMethod* m = findExtension(*this, true)) {
        return invokeDeclared(*state_, m->setter, m->declaration, {TypeKind::Object},
                              {m->declaration.resultKind}, TypeKind::None,
                              {styledText, Value::boolean(skipParagraphs), rtf});
    }
    for (const RegisteredMethod* m : overloads("RTFDataKXT")) {
        const auto& p = m->declaration.params;
        if (!p.empty() && p.front().extends && p.back().assigns) {
            return callMethod(*m, {styledText, Value::boolean(skipParagraphs), rtf});
        }
    }
    throw std::invalid_argument("the plugin registered no setter of RTFDataKXT");
}

bool Host::setDebugging(bool on) {
    activate();
    const RegisteredProperty* p = findDebugging(*this);
    if (p == nullptr || p->setter == nullptr) return false;
    reinterpret_cast<void (*)(RBBoolean)>(p->setter)(on ? 1 : 0);
    return true;
}

std::optional<bool> Host::debugging() {
    activate();
    const RegisteredProperty* p = findDebugging(*this);
    if (p == nullptr || p->getter == nullptr) return std::nullopt;
    return reinterpret_cast<RBBoolean (*)()>(p->getter)() != 0;
}

// ---- Objects for tests ------------------------------------------------------------------------

Value Host::newObject(const std::string& className) {
    activate();
    Object* o = xhost::newObject(*state_, className);
    if (o == nullptr) throw std::invalid_argument("the host has no class " + className);
    Value::Type type =
        o->kind == ObjectKind::MemoryBlock ? Value::Type::MemoryBlock : Value::Type::Object;
    return Value::adoptObject(reinterpret_cast<REALobject>(o), type);
}

Value Host::newStyledText(const std::vector<RunSpec>& runs) {
    activate();
    Value text = newObject("StyledText");
    Object* t = liveObject(*state_, text.objectHandle());
    for (const RunSpec& spec : runs) {
        Object* run = xhost::newObject(*state_, "StyleRun");
        auto setString = [&](const char* name, const std::string& value) {
            PropValue* p = findProp(run, name);
            if (p == nullptr && std::strcmp(name, "Font") == 0) p = findProp(run, "FontName");
            p->string = newString(*state_, value.data(), value.size(), kREALTextEncodingUTF8);
        };
        setString("Text", spec.text);
        setString("Font", spec.font);
        findProp(run, "Size")->integer = spec.size;
        findProp(run, "Bold")->integer = spec.bold;
        findProp(run, "Italic")->integer = spec.italic;
        findProp(run, "Underline")->integer = spec.underline;
        findProp(run, "TextColor")->integer = spec.color;
        t->runs.push_back(run);  // the new run's one reference now belongs to the styled text
        run->owners.push_back(t);
    }
    t->paragraphsValid = false;
    return text;
}

namespace {
Object* styledTextOf(Host::State& st, const Value& v) {
    Object* t = v.type() == Value::Type::Object ? liveObject(st, v.objectHandle()) : nullptr;
    if (t == nullptr || t->kind != ObjectKind::StyledText) {
        throw std::invalid_argument("the value is not a StyledText");
    }
    return t;
}
}  // namespace

std::vector<RunSpec> Host::styleRuns(const Value& styledText) {
    activate();
    Object* t = styledTextOf(*state_, styledText);
    std::vector<RunSpec> out;
    for (Object* run : t->runs) {
        RunSpec r;
        auto stringProp = [&](const char* name) {
            PropValue* p = findProp(run, name);
            return p && p->string ? stringAsUTF8(*state_, p->string) : std::string();
        };
        r.text = stringProp("Text");
        r.font = stringProp(options_.styleRunFontName ? "FontName" : "Font");
        r.size = findProp(run, "Size")->integer;
        r.bold = findProp(run, "Bold")->integer != 0;
        r.italic = findProp(run, "Italic")->integer != 0;
        r.underline = findProp(run, "Underline")->integer != 0;
        r.color = static_cast<uint32_t>(findProp(run, "TextColor")->integer);
        out.push_back(std::move(r));
    }
    return out;
}

std::vector<ParagraphSpec> Host::paragraphs(const Value& styledText) {
    activate();
    return paragraphsOf(*state_, styledTextOf(*state_, styledText));
}

void Host::setParagraphAlignment(const Value& styledText, int64_t index, int64_t alignment) {
    activate();
    Object* t = styledTextOf(*state_, styledText);
    if (index < 0 || index >= paragraphCount(*state_, t)) {
        throw std::invalid_argument("no paragraph " + std::to_string(index));
    }
    setAlignment(t, index, alignment);
}

// ---- Accounting -------------------------------------------------------------------------------

size_t Host::liveStrings() const {
    std::lock_guard<std::mutex> lock(state_->stringsLock);
    return state_->strings.size();
}
size_t Host::liveObjects() const {
    std::lock_guard<std::mutex> lock(state_->objectsLock);
    return state_->objects.size();
}
size_t Host::outstandingStringData() const {
    std::lock_guard<std::mutex> lock(state_->stringDataLock);
    return state_->stringData.size();
}
int64_t Host::yieldCount() const {
    return state_->yields.load(std::memory_order_relaxed);
}
std::vector<std::string> Host::misuses() const {
    std::lock_guard<std::mutex> lock(state_->misusesLock);
    return state_->misuses;
}
uint64_t Host::serviceFailures() const {
    return state_->serviceFailures;
}

void serviceFailed() noexcept {
    if (Host::State* st = currentState()) ++st->serviceFailures;
}

// Not while calls run: it reads the records of the live handles.
std::string Host::describeLive() const {
    std::vector<std::pair<uint64_t, std::string>> lines;
    for (const void* block : state_->strings) {
        auto* h = static_cast<const StringHeader*>(block);
        std::string_view bytes(static_cast<const char*>(block) + kREALStringDataOffset,
                               static_cast<size_t>(h->length));
        std::string preview;
        for (char c : bytes.substr(0, 24)) {
            auto u = static_cast<unsigned char>(c);
            if (u >= 0x20 && u < 0x7F && u != '"' && u != '\\') {
                preview += c;
            } else {
                char buf[8];
                std::snprintf(buf, sizeof buf, "\\x%02X", u);
                preview += buf;
            }
        }
        if (bytes.size() > 24) preview += "...";
        char buf[160];
        std::snprintf(buf, sizeof buf, "string %p #%llu refs %lld, %s, %lld bytes: \"", block,
                      static_cast<unsigned long long>(h->serial),
                      static_cast<long long>(h->refs.load()),
                      encodings::nameOf(h->encoding).c_str(), static_cast<long long>(h->length));
        lines.emplace_back(h->serial, buf + preview + "\"");
    }
    for (const Object* o : state_->objects) {
        char buf[200];
        std::snprintf(buf, sizeof buf, "object %p #%llu %s, refs %lld", static_cast<const void*>(o),
                      static_cast<unsigned long long>(o->serial), o->className.c_str(),
                      static_cast<long long>(o->refs.load()));
        lines.emplace_back(o->serial, buf);
    }
    std::sort(lines.begin(), lines.end());
    std::string out = std::to_string(state_->strings.size()) + " live strings, " +
                      std::to_string(state_->objects.size()) + " live objects, " +
                      std::to_string(state_->stringData.size()) + " string-data records\n";
    for (auto& [serial, line] : lines) out += "  " + line + "\n";
    for (const std::string& m : state_->misuses) out += "  misuse: " + m + "\n";
    return out;
}

}  // namespace xhost

namespace xhost {

void* Host::resolve(const char* name) {
    return xhost::resolve(name);
}

std::optional<RaisedException> Host::runAsCall(const std::function<void()>& body) {
    activate();
    State& st = *state_;
    if (Object* stale = std::exchange(pendingException(st), nullptr)) unlockObject(st, stale);
    body();
    return takePending(st);
}

}  // namespace xhost
