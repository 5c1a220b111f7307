// Xojo method declarations: "Name(p as Type, q as Type = default, ...) as Result", with the
// "extends" and "assigns" parameter forms. Keywords and built-in type names ignore case.
#include <cctype>
#include <stdexcept>

#include "HostInternal.h"

namespace xhost {

namespace {

std::string_view trim(std::string_view s) {
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
    return s;
}

bool isIdentifierChar(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '.';
}

bool isIdentifier(std::string_view s) {
    if (s.empty() || std::isdigit(static_cast<unsigned char>(s.front()))) return false;
    for (char c : s) {
        if (!isIdentifierChar(c)) return false;
    }
    return true;
}

[[noreturn]] void fail(std::string_view text, const std::string& why) {
    throw std::invalid_argument("bad declaration \"" + std::string(text) + "\": " + why);
}

// Built-in type names take one spelling; class names stay as written.
std::string canonicalType(std::string_view text, std::string_view whole) {
    std::string_view t = trim(text);
    bool array = false;
    if (t.size() >= 2 && t.substr(t.size() - 2) == "()") {
        array = true;
        t = trim(t.substr(0, t.size() - 2));
    }
    if (!isIdentifier(t)) fail(whole, "bad type \"" + std::string(text) + "\"");
    static const char* const builtins[] = {"String",      "Integer", "Boolean", "Double", "Ptr",
                                           "MemoryBlock", "Color",   "Single",  "UInt32", "Int32",
                                           "Int64",       "UInt64",  "Variant"};
    std::string out(t);
    for (const char* b : builtins) {
        if (equalsIgnoringCase(t, b)) out = b;
    }
    return array ? out + "()" : out;
}

// Splits "name as Type" at the keyword "as" (any case, surrounded by blanks).
std::pair<std::string_view, std::string_view> splitAs(std::string_view s) {
    for (size_t i = 1; i + 3 < s.size(); ++i) {
        if (std::isspace(static_cast<unsigned char>(s[i - 1])) &&
            equalsIgnoringCase(s.substr(i, 2), "as") &&
            std::isspace(static_cast<unsigned char>(s[i + 2]))) {
            return {trim(s.substr(0, i)), trim(s.substr(i + 2))};
        }
    }
    return {trim(s), {}};
}

bool takeKeyword(std::string_view& s, std::string_view keyword) {
    if (s.size() > keyword.size() && equalsIgnoringCase(s.substr(0, keyword.size()), keyword) &&
        std::isspace(static_cast<unsigned char>(s[keyword.size()]))) {
        s = trim(s.substr(keyword.size()));
        return true;
    }
    return false;
}

Parameter parseParameter(std::string_view text, std::string_view whole) {
    std::string_view s = trim(text);
    if (s.empty()) fail(whole, "empty parameter");
    Parameter p;
    for (bool more = true; more;) {
        more = false;
        if (takeKeyword(s, "extends")) p.extends = more = true;
        if (takeKeyword(s, "assigns")) p.assigns = more = true;
        if (takeKeyword(s, "byref") || takeKeyword(s, "byval")) more = true;
    }
    std::string_view typeAndDefault;
    std::tie(s, typeAndDefault) = splitAs(s);
    if (typeAndDefault.empty()) fail(whole, "parameter \"" + std::string(text) + "\" has no type");
    if (!isIdentifier(s)) fail(whole, "bad parameter name \"" + std::string(s) + "\"");
    p.name = std::string(s);
    size_t eq = typeAndDefault.find('=');
    if (eq != std::string_view::npos) {
        std::string_view def = trim(typeAndDefault.substr(eq + 1));
        if (def.empty()) fail(whole, "empty default of \"" + p.name + "\"");
        p.defaultValue = std::string(def);
        typeAndDefault = typeAndDefault.substr(0, eq);
    }
    p.type = canonicalType(typeAndDefault, whole);
    p.kind = kindOf(p.type);
    return p;
}

}  // namespace

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        // ASCII folding only, as the C locale's tolower: names and declarations are ASCII.
        auto x = static_cast<unsigned char>(a[i]), y = static_cast<unsigned char>(b[i]);
        if (x != y && ((x | 0x20) != (y | 0x20) || (x | 0x20) < 'a' || (x | 0x20) > 'z')) {
            return false;
        }
    }
    return true;
}

std::string normalizeDeclaration(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char c : text) {
        if (!std::isspace(static_cast<unsigned char>(c))) {
            out.push_back(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
        }
    }
    return out;
}

TypeKind kindOf(std::string_view t) {
    static const std::pair<const char*, TypeKind> kinds[] = {{"String", TypeKind::String},
                                                             {"Integer", TypeKind::Integer},
                                                             {"Boolean", TypeKind::Boolean},
                                                             {"Double", TypeKind::Double},
                                                             {"Ptr", TypeKind::Ptr},
                                                             {"MemoryBlock", TypeKind::MemoryBlock},
                                                             {"String()", TypeKind::StringArray}};
    if (t.empty()) return TypeKind::None;
    for (const auto& [name, kind] : kinds) {
        if (t == name) return kind;
    }
    static const char* const others[] = {"Color", "Single", "UInt32", "Int32",
                                         "Int64", "UInt64", "Variant"};
    for (const char* name : others) {
        if (t == name) return TypeKind::Unknown;
    }
    return t.back() == ')' ? TypeKind::Unknown : TypeKind::Object;
}

Declaration parseDeclaration(std::string_view text) {
    Declaration d;
    std::string_view s = trim(text);
    size_t open = s.find('(');
    std::string_view rest;
    if (open == std::string_view::npos) {
        // "Name" or "Name as Type": no parameter list.
        auto [name, type] = splitAs(s);
        d.name = std::string(name);
        if (!type.empty()) d.resultType = canonicalType(type, text);
    } else {
        d.name = std::string(trim(s.substr(0, open)));
        // The parameter list ends at the ")" that matches (types may end in "()").
        size_t close = std::string_view::npos;
        int depth = 0;
        for (size_t i = open; i < s.size(); ++i) {
            if (s[i] == '(') ++depth;
            if (s[i] == ')' && --depth == 0) {
                close = i;
                break;
            }
        }
        if (close == std::string_view::npos) fail(text, "no closing parenthesis");
        std::string_view params = trim(s.substr(open + 1, close - open - 1));
        if (!params.empty()) {
            size_t start = 0;
            int nesting = 0;
            for (size_t i = 0; i <= params.size(); ++i) {
                if (i < params.size() && params[i] == '(') ++nesting;
                if (i < params.size() && params[i] == ')') --nesting;
                if (i == params.size() || (params[i] == ',' && nesting == 0)) {
                    d.params.push_back(parseParameter(params.substr(start, i - start), text));
                    start = i + 1;
                }
            }
        }
        rest = trim(s.substr(close + 1));
        if (!rest.empty()) {
            if (!takeKeyword(rest, "as")) fail(text, "unexpected \"" + std::string(rest) + "\"");
            d.resultType = canonicalType(rest, text);
        }
    }
    if (!isIdentifier(d.name)) fail(text, "bad method name \"" + d.name + "\"");
    d.resultKind = kindOf(d.resultType);
    for (size_t i = 0; i < d.params.size(); ++i) {
        if (d.params[i].extends && i != 0) fail(text, "\"extends\" on a later parameter");
        if (d.params[i].assigns && i + 1 != d.params.size()) {
            fail(text, "\"assigns\" on a parameter that is not the last");
        }
    }
    return d;
}

}  // namespace xhost
