// Reading a Xojo declaration at compile time, so that a handler whose C types disagree with the
// declaration it is registered under does not compile. The host calls a handler with the C
// types of its declaration (the calling-convention table of the binary interface); x86-64
// registers would hide many mismatches (int32_t for Integer, bool for Boolean) until a real host
// passes a value that does not fit.
#pragma once

#include <cstddef>
#include <string_view>

#include "XojoPluginABI.h"

namespace kxt::abi {

// The kinds of value a declaration can name.
enum class XojoType {
    None,
    String,
    Integer,
    Boolean,
    Double,
    Ptr,
    MemoryBlock,
    StringArray,
    Object,
    Unknown
};

// The Xojo type a C type stands for at the boundary; Unknown for any other C type.
template <typename T>
inline constexpr XojoType kXojoTypeOf = XojoType::Unknown;
template <>
inline constexpr XojoType kXojoTypeOf<void> = XojoType::None;
template <>
inline constexpr XojoType kXojoTypeOf<REALstring> = XojoType::String;
template <>
inline constexpr XojoType kXojoTypeOf<RBInteger> = XojoType::Integer;
template <>
inline constexpr XojoType kXojoTypeOf<RBBoolean> = XojoType::Boolean;
template <>
inline constexpr XojoType kXojoTypeOf<double> = XojoType::Double;
template <>
inline constexpr XojoType kXojoTypeOf<void*> = XojoType::Ptr;
template <>
inline constexpr XojoType kXojoTypeOf<REALmemoryBlock> = XojoType::MemoryBlock;
template <>
inline constexpr XojoType kXojoTypeOf<REALarray> = XojoType::StringArray;
template <>
inline constexpr XojoType kXojoTypeOf<REALobject> = XojoType::Object;

// The parameter and result types of a declaration such as
// "Name(a as String, n as Integer = 0) as String()".
struct DeclaredTypes {
    static constexpr size_t kMaxParameters = 16;
    XojoType parameters[kMaxParameters] = {};
    size_t count = 0;
    XojoType result = XojoType::None;
    bool valid = false;
};

namespace detail {

constexpr char Lower(char c) {
    return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c;
}

constexpr bool SameIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (Lower(a[i]) != Lower(b[i])) return false;
    }
    return true;
}

constexpr std::string_view Trim(std::string_view s) {
    while (!s.empty() && s.front() == ' ') s.remove_prefix(1);
    while (!s.empty() && s.back() == ' ') s.remove_suffix(1);
    return s;
}

constexpr bool IsNameChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

constexpr XojoType TypeNamed(std::string_view name) {
    name = Trim(name);
    if (name.empty()) return XojoType::Unknown;
    if (SameIgnoringCase(name, "string")) return XojoType::String;
    if (SameIgnoringCase(name, "integer")) return XojoType::Integer;
    if (SameIgnoringCase(name, "boolean")) return XojoType::Boolean;
    if (SameIgnoringCase(name, "double")) return XojoType::Double;
    if (SameIgnoringCase(name, "ptr")) return XojoType::Ptr;
    if (SameIgnoringCase(name, "memoryblock")) return XojoType::MemoryBlock;
    if (SameIgnoringCase(name, "string()")) return XojoType::StringArray;
    for (char c : name) {
        if (!IsNameChar(c)) return XojoType::Unknown;
    }
    return XojoType::Object;  // a class: StyledText, ...
}

// The type after " as " in "[extends|assigns] name as Type [= default]".
constexpr XojoType ParameterType(std::string_view parameter) {
    size_t equals = parameter.find('=');
    if (equals != std::string_view::npos) parameter = parameter.substr(0, equals);
    parameter = Trim(parameter);
    for (size_t i = 0; i + 4 <= parameter.size(); ++i) {
        if (parameter[i] == ' ' && SameIgnoringCase(parameter.substr(i, 4), " as ")) {
            return TypeNamed(parameter.substr(i + 4));
        }
    }
    return XojoType::Unknown;
}

}  // namespace detail

constexpr DeclaredTypes ReadDeclaration(std::string_view declaration) {
    DeclaredTypes d;
    size_t open = declaration.find('(');
    size_t close = declaration.find(')', open);
    if (open == std::string_view::npos || close == std::string_view::npos) return d;
    std::string_view list = detail::Trim(declaration.substr(open + 1, close - open - 1));
    while (!list.empty()) {
        size_t comma = list.find(',');
        std::string_view parameter = list.substr(0, comma);
        if (d.count == DeclaredTypes::kMaxParameters) return d;
        d.parameters[d.count++] = detail::ParameterType(parameter);
        if (comma == std::string_view::npos) break;
        list = list.substr(comma + 1);
    }
    std::string_view rest = detail::Trim(declaration.substr(close + 1));
    if (!rest.empty()) {
        if (rest.size() < 3 || !detail::SameIgnoringCase(rest.substr(0, 3), "as ")) return d;
        d.result = detail::TypeNamed(rest.substr(3));
    }
    d.valid = true;
    return d;
}

namespace detail {

// The C parameters are: `first` leading ones (the instance), the declared ones, then `extra`
// when it is not None (an assigned value).
template <typename... A>
constexpr bool Matches(const DeclaredTypes& d, size_t first, XojoType extra = XojoType::None) {
    constexpr size_t n = sizeof...(A);
    constexpr XojoType types[] = {kXojoTypeOf<A>..., XojoType::None};
    size_t expected = first + d.count + (extra != XojoType::None ? 1 : 0);
    if (!d.valid || n != expected) return false;
    for (size_t i = 0; i < d.count; ++i) {
        if (d.parameters[i] == XojoType::Unknown || types[first + i] != d.parameters[i]) {
            return false;
        }
    }
    if (first == 1 && types[0] != XojoType::Object) return false;
    if (extra != XojoType::None && types[n > 0 ? n - 1 : 0] != extra) return false;
    return true;
}

}  // namespace detail

// A global method: the parameters in order, the declared result.
template <typename R, typename... A>
constexpr bool HandlerMatches(R (*)(A...), std::string_view declaration) {
    DeclaredTypes d = ReadDeclaration(declaration);
    return detail::Matches<A...>(d, 0) && kXojoTypeOf<R> == d.result;
}

// A class-extension getter: the instance, then the parameters; the declared result.
template <typename R, typename... A>
constexpr bool GetterMatches(R (*)(A...), std::string_view declaration) {
    DeclaredTypes d = ReadDeclaration(declaration);
    return detail::Matches<A...>(d, 1) && kXojoTypeOf<R> == d.result;
}

// A class-extension setter: the instance, the parameters, then the assigned value; no result.
template <typename R, typename... A>
constexpr bool SetterMatches(R (*)(A...), std::string_view declaration) {
    DeclaredTypes d = ReadDeclaration(declaration);
    return d.result != XojoType::None && detail::Matches<A...>(d, 1, d.result) &&
           kXojoTypeOf<R> == XojoType::None;
}

// Used in a constant expression, stops the build: its name is the message.
inline void HandlerDisagreesWithItsDeclaration() {}

// Evaluated while compiling: a false argument stops the build there.
consteval bool RequireMatch(bool matches) {
    if (!matches) HandlerDisagreesWithItsDeclaration();
    return true;
}

}  // namespace kxt::abi
