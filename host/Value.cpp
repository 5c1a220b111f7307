// Values handed to and returned from methods. A handle Value holds one reference of its own
// and touches the host only while the host that made it is alive.
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "HostInternal.h"

namespace xhost {

const char* typeName(Value::Type t) {
    switch (t) {
        case Value::Type::Nil:
            return "Nil";
        case Value::Type::String:
            return "String";
        case Value::Type::Integer:
            return "Integer";
        case Value::Type::Boolean:
            return "Boolean";
        case Value::Type::Double:
            return "Double";
        case Value::Type::Ptr:
            return "Ptr";
        case Value::Type::MemoryBlock:
            return "MemoryBlock";
        case Value::Type::Object:
            return "Object";
        case Value::Type::Array:
            return "String()";
    }
    return "?";
}

namespace {

bool holdsHandle(Value::Type t) {
    return t == Value::Type::String || t == Value::Type::MemoryBlock || t == Value::Type::Object ||
           t == Value::Type::Array;
}

Host::State& requireState() {
    Host::State* st = currentState();
    if (st == nullptr) throw std::logic_error("xhost::Value needs a live Host");
    return *st;
}

[[noreturn]] void wrongType(Value::Type have, const char* want) {
    throw std::logic_error(std::string("the Value is ") + typeName(have) + ", not " + want);
}

}  // namespace

// The state of the host that owns a Value's handle (active or not), or null when that host is
// gone.
static Host::State* ownerState(uint64_t host) {
    return liveState(host);
}

Value Value::string(std::string_view bytes, uint32_t encoding) {
    Host::State& st = requireState();
    Value v;
    v.type_ = Type::String;
    v.host_ = st.hostSerial;
    // Xojo hands the empty string to plugins as a nil handle.
    if (!bytes.empty()) v.handle_ = newString(st, bytes.data(), bytes.size(), encoding);
    return v;
}

Value Value::integer(int64_t i) {
    Value v;
    v.type_ = Type::Integer;
    v.i_ = i;
    return v;
}

Value Value::boolean(bool b) {
    Value v;
    v.type_ = Type::Boolean;
    v.i_ = b ? 1 : 0;
    return v;
}

Value Value::real(double d) {
    Value v;
    v.type_ = Type::Double;
    v.d_ = d;
    return v;
}

Value Value::pointer(void* p) {
    Value v;
    v.type_ = Type::Ptr;
    v.handle_ = p;
    return v;
}

Value Value::memoryBlock(std::string_view bytes) {
    Host::State& st = requireState();
    Object* mb = newObject(st, "MemoryBlock");
    if (!bytes.empty()) {
        mb->data = static_cast<char*>(allocateBlock(bytes.size(), false));
        if (mb->data == nullptr) {
            unlockObject(st, mb);
            throw std::bad_alloc();
        }
        std::memcpy(mb->data, bytes.data(), bytes.size());
        mb->size = static_cast<int64_t>(bytes.size());
    }
    return adoptObject(reinterpret_cast<REALobject>(mb), Type::MemoryBlock);
}

Value Value::adoptString(REALstring s) {
    Value v;
    v.type_ = Type::String;
    v.handle_ = s;
    if (Host::State* st = currentState()) v.host_ = st->hostSerial;
    return v;
}

Value Value::adoptObject(REALobject o, Type type) {
    if (!holdsHandle(type) || type == Type::String) {
        throw std::logic_error("adoptObject needs an object type");
    }
    Value v;
    v.type_ = type;
    v.handle_ = o;
    if (Host::State* st = currentState()) v.host_ = st->hostSerial;
    return v;
}

Value::Value(const Value& other)
    : type_(other.type_), i_(other.i_), d_(other.d_), handle_(other.handle_), host_(other.host_) {
    if (!holdsHandle(type_) || handle_ == nullptr) return;
    if (Host::State* st = ownerState(host_)) {
        if (type_ == Type::String) {
            lockString(*st, static_cast<REALstring>(handle_));
        } else {
            lockObject(*st, liveObject(*st, handle_));
        }
    }
}

Value::Value(Value&& other) noexcept
    : type_(other.type_), i_(other.i_), d_(other.d_), handle_(other.handle_), host_(other.host_) {
    other.type_ = Type::Nil;
    other.handle_ = nullptr;
}

Value& Value::operator=(Value other) noexcept {
    std::swap(type_, other.type_);
    std::swap(i_, other.i_);
    std::swap(d_, other.d_);
    std::swap(handle_, other.handle_);
    std::swap(host_, other.host_);
    return *this;
}

Value::~Value() {
    if (!holdsHandle(type_) || handle_ == nullptr) return;
    if (Host::State* st = ownerState(host_)) {
        if (type_ == Type::String) {
            unlockString(*st, static_cast<REALstring>(handle_));
        } else {
            unlockObject(*st, liveObject(*st, handle_));
        }
    }
}

bool Value::isNil() const {
    return type_ == Type::Nil || (holdsHandle(type_) && handle_ == nullptr);
}

std::string Value::bytes() const {
    if (isNil()) return {};
    Host::State* st = ownerState(host_);
    if (type_ == Type::String) {
        if (st == nullptr || liveString(*st, static_cast<REALstring>(handle_)) == nullptr) {
            throw std::logic_error("the Value's string is gone with its Host");
        }
        return std::string(stringBytes(static_cast<REALstring>(handle_)));
    }
    if (type_ == Type::MemoryBlock) {
        Object* mb = st ? liveObject(*st, handle_) : nullptr;
        if (mb == nullptr) throw std::logic_error("the Value's MemoryBlock is gone with its Host");
        return std::string(mb->data ? mb->data : "", static_cast<size_t>(mb->size));
    }
    wrongType(type_, "String or MemoryBlock");
}

uint32_t Value::encoding() const {
    if (type_ != Type::String || handle_ == nullptr) return kREALTextEncodingUnknown;
    Host::State* st = ownerState(host_);
    StringHeader* h = st ? liveString(*st, static_cast<REALstring>(handle_)) : nullptr;
    return h ? h->encoding : kREALTextEncodingUnknown;
}

int64_t Value::asInteger() const {
    if (type_ != Type::Integer) wrongType(type_, "Integer");
    return i_;
}

bool Value::asBoolean() const {
    if (type_ != Type::Boolean) wrongType(type_, "Boolean");
    return i_ != 0;
}

double Value::asDouble() const {
    if (type_ == Type::Integer) return static_cast<double>(i_);
    if (type_ != Type::Double) wrongType(type_, "Double");
    return d_;
}

void* Value::asPointer() const {
    if (type_ != Type::Ptr) wrongType(type_, "Ptr");
    return handle_;
}

std::vector<std::string> Value::strings() const {
    if (isNil()) return {};
    if (type_ != Type::Array) wrongType(type_, "Array");
    Host::State* st = ownerState(host_);
    Object* a = st ? liveObject(*st, handle_) : nullptr;
    if (a == nullptr) throw std::logic_error("the Value's array is gone with its Host");
    std::vector<std::string> out;
    out.reserve(a->elements.size());
    for (REALstring s : a->elements) {
        out.push_back(s && liveString(*st, s) ? std::string(stringBytes(s)) : std::string());
    }
    return out;
}

REALstring Value::stringHandle() const {
    if (type_ == Type::Nil) return nullptr;
    if (type_ != Type::String) wrongType(type_, "String");
    return static_cast<REALstring>(handle_);
}

REALobject Value::objectHandle() const {
    if (type_ == Type::Nil) return nullptr;
    if (!holdsHandle(type_) || type_ == Type::String) wrongType(type_, "an object");
    return static_cast<REALobject>(handle_);
}

}  // namespace xhost
