#include "Commands.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>

#include "Encodings.h"

namespace kxt_tool {

namespace {
std::vector<Command>& registry() {
    static std::vector<Command> list;
    return list;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw UsageError("cannot read the file " + path);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

std::string parseHex(const std::string& digits, const std::string& arg) {
    std::string out;
    int high = -1;
    for (char c : digits) {
        int v;
        if (c >= '0' && c <= '9') {
            v = c - '0';
        } else if (c >= 'a' && c <= 'f') {
            v = c - 'a' + 10;
        } else if (c >= 'A' && c <= 'F') {
            v = c - 'A' + 10;
        } else if (c == ' ' || c == '\t') {
            continue;
        } else {
            throw UsageError("bad hex digit '" + std::string(1, c) + "' in " + arg);
        }
        if (high < 0) {
            high = v;
        } else {
            out.push_back(static_cast<char>(high << 4 | v));
            high = -1;
        }
    }
    if (high >= 0) throw UsageError("odd number of hex digits in " + arg);
    return out;
}

void writeBytes(const std::string& bytes, bool hex, FILE* out) {
    if (hex) {
        static const char digits[] = "0123456789abcdef";
        std::string text;
        text.reserve(bytes.size() * 2);
        for (const char ch : bytes) {
            const auto c = static_cast<unsigned char>(ch);
            text.push_back(digits[c >> 4]);
            text.push_back(digits[c & 15]);
        }
        std::fwrite(text.data(), 1, text.size(), out);
    } else {
        std::fwrite(bytes.data(), 1, bytes.size(), out);
    }
    std::fputc('\n', out);
}
}  // namespace

bool registerCommand(const Command& command) {
    registry().push_back(command);
    return true;
}

const std::vector<Command>& commands() {
    return registry();
}

size_t parseOptions(const std::vector<std::string>& args, size_t i, GlobalOptions& o) {
    auto value = [&](const std::string& option) -> const std::string& {
        if (i + 1 >= args.size()) throw UsageError(option + " needs a value");
        return args[++i];
    };
    for (; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "--") return i + 1;
        if (a.size() < 2 || a.compare(0, 2, "--") != 0) return i;
        if (a == "--plugin") {
            o.host.pluginPath = value(a);
        } else if (a == "--host-version") {
            const std::string& v = value(a);
            char* end = nullptr;
            o.host.version = std::strtod(v.c_str(), &end);
            if (v.empty() || *end != '\0') throw UsageError("bad host version " + v);
        } else if (a == "--ide") {
            o.host.inRuntime = false;
        } else if (a == "--debug") {
            o.debug = true;
        } else if (a == "--hex") {
            o.hex = true;
        } else if (a == "--encoding") {
            o.showEncoding = true;
        } else if (a == "--hide") {
            o.host.hidden.insert(value(a));
        } else {
            throw UsageError("unknown option " + a);
        }
    }
    return i;
}

std::unique_ptr<xhost::Host> loadHost(const GlobalOptions& options) {
    auto host = std::make_unique<xhost::Host>(options.host);
    if (options.debug && !host->setDebugging(true)) {
        std::fprintf(stderr,
                     "kxt: warning: the plugin registered no Debugging property on host version "
                     "%g; --debug has no effect\n",
                     options.host.version);
    }
    return host;
}

std::optional<TextArgument> parseTextArgument(const std::string& arg) {
    if (arg == "nil") return std::nullopt;
    TextArgument t;
    t.encoding = kREALTextEncodingUTF8;
    if (!arg.empty() && arg[0] == '@') {
        t.bytes = readFile(arg.substr(1));
        return t;
    }
    size_t colon = arg.find(':');
    if (colon == std::string::npos) {
        t.bytes = arg;
        return t;
    }
    std::string prefix = arg.substr(0, colon), body = arg.substr(colon + 1);
    if (prefix == "text") {
        t.bytes = body;
    } else if (prefix == "hex") {
        t.bytes = parseHex(body, arg);
        t.encoding = kREALTextEncodingUnknown;
    } else if (prefix == "mb") {
        auto inner = parseTextArgument(body);
        if (inner) t = *inner;
        t.memoryBlock = true;
    } else if (auto enc = xhost::encodings::byName(prefix)) {
        t.encoding = *enc;
        if (body.compare(0, 4, "hex:") == 0) {
            t.bytes = parseHex(body.substr(4), arg);  // raw bytes, tagged as given
        } else {
            std::string utf8 = !body.empty() && body[0] == '@' ? readFile(body.substr(1)) : body;
            auto converted = xhost::encodings::convert(utf8, kREALTextEncodingUTF8, *enc);
            if (!converted) throw UsageError("the text of " + arg + " is not valid UTF-8");
            t.bytes = *converted;
        }
    } else {
        t.bytes = arg;  // a colon in ordinary text
    }
    return t;
}

void printValue(const xhost::Value& v, const GlobalOptions& o, FILE* out) {
    using T = xhost::Value::Type;
    switch (v.type()) {
        case T::Nil:
            return;
        case T::String:
            if (o.showEncoding) {
                std::fprintf(out, "%s\n", xhost::encodings::nameOf(v.encoding()).c_str());
            }
            writeBytes(v.bytes(), o.hex, out);
            return;
        case T::MemoryBlock:
            writeBytes(v.bytes(), o.hex, out);
            return;
        case T::Array:
            for (const std::string& s : v.strings()) writeBytes(s, o.hex, out);
            return;
        case T::Integer:
            std::fprintf(out, "%lld\n", static_cast<long long>(v.asInteger()));
            return;
        case T::Boolean:
            std::fprintf(out, "%s\n", v.asBoolean() ? "true" : "false");
            return;
        case T::Double: {
            double d = v.asDouble();
            if (std::isnan(d)) {
                std::fprintf(out, "nan\n");
            } else if (std::isinf(d)) {
                std::fprintf(out, "%s\n", d < 0 ? "-inf" : "inf");
            } else {
                std::fprintf(out, "%.17g\n", d);
            }
            return;
        }
        case T::Ptr:
            std::fprintf(out, "%p\n", v.asPointer());
            return;
        case T::Object:
            std::fprintf(out, "%s\n", v.isNil() ? "nil" : "(object)");
            return;
    }
}

}  // namespace kxt_tool
