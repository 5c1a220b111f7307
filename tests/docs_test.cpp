// The reference in docs/ against the plugin: every example runs through the emulated host the
// way `kxt call` and `kxt rtf` run it and must give the result written beside it, and the
// documented declarations are exactly the registered ones. The example forms are described in
// docs/README.md ("Examples").
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "ByteView.h"
#include "Commands.h"
#include "Encodings.h"

namespace {

namespace fs = std::filesystem;

std::string slurp(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

std::string hexOf(const std::string& bytes) {
    std::string out;
    char b[4];
    for (const uint8_t c : kxt::unsignedBytes(bytes)) {
        std::snprintf(b, sizeof b, out.empty() ? "%02x" : " %02x", c);
        out += b;
    }
    return out;
}

// One value written in Xojo syntax: a string expression (bytes and encoding), or a literal that
// kxt reads as it stands (number, boolean, Nil).
struct Term {
    std::string bytes, literal;
    uint32_t encoding = kREALTextEncodingUTF8;
    bool text = false, memoryBlock = false;
};

// Reads Xojo expressions of the documented forms; throws std::invalid_argument where it cannot.
struct Reader {
    std::string_view s;
    size_t i = 0;

    void blanks() {
        while (i < s.size() && s[i] == ' ') ++i;
    }
    bool eat(std::string_view token) {
        blanks();
        if (s.substr(i, token.size()) != token) return false;
        i += token.size();
        return true;
    }
    void expect(std::string_view token) {
        if (!eat(token)) fail("expected " + std::string(token));
    }
    [[noreturn]] void fail(const std::string& what) const {
        throw std::invalid_argument(what + " at column " + std::to_string(i + 1));
    }
    std::string word() {
        blanks();
        size_t start = i;
        while (i < s.size() && (std::isalnum((unsigned char)s[i]) || s[i] == '_' || s[i] == '.' ||
                                s[i] == '&' || s[i] == '-')) {
            ++i;
        }
        return std::string(s.substr(start, i - start));
    }
    std::string quoted() {
        expect("\"");
        std::string out;
        for (; i < s.size(); ++i) {
            if (s[i] == '"' && (i + 1 >= s.size() || s[i + 1] != '"')) return ++i, out;
            out += s[i];
            if (s[i] == '"') ++i;  // "" is one quote
        }
        fail("unterminated string");
    }
    Term expression() {
        Term t = term();
        while (eat("+")) {
            Term u = term();
            if (!t.text || !u.text) fail("+ joins strings only");
            if (u.encoding != t.encoding) t.encoding = kREALTextEncodingUnknown;
            t.bytes += u.bytes;
        }
        return t;
    }
    Term term() {
        blanks();
        Term t;
        t.text = true;
        if (i < s.size() && s[i] == '"') return t.bytes = quoted(), t;
        std::string w = word();
        if (w == "Chr" || w == "ChrB") {
            expect("(");
            std::string n = word();
            long v = n.rfind("&h", 0) == 0 ? std::stol(n.substr(2), nullptr, 16) : std::stol(n);
            expect(")");
            if (w == "ChrB") return t.bytes = std::string(1, char(v)), t.encoding = 0xFFFF, t;
            t.bytes = xhost::encodings::toUTF8(std::u32string(1, char32_t(v)));
        } else if (w == "DecodeHex") {  // kxt's own hex reading
            expect("(");
            t.bytes = kxt_tool::parseTextArgument("hex:" + term().bytes)->bytes;
            t.encoding = kREALTextEncodingUnknown;
            expect(")");
        } else if (w == "DefineEncoding" || w == "ConvertEncoding") {
            expect("(");
            Term inner = expression();
            expect(",");
            std::string name = word();
            if (name.rfind("Encodings.", 0) != 0) fail("expected Encodings.Name");
            name = name.substr(10);
            for (auto [xojo, alias] : {std::pair{"ISOLatin1", "latin1"},
                                       {"WindowsLatin1", "cp1252"},
                                       {"MacRoman", "macroman"}}) {
                if (name == xojo) name = alias;
            }
            auto code = xhost::encodings::byName(name);
            if (!code) fail("unknown encoding " + name);
            auto bytes = w == "DefineEncoding"
                             ? std::optional(inner.bytes)
                             : xhost::encodings::convert(inner.bytes, inner.encoding, *code);
            if (!bytes) fail("cannot convert");
            expect(")");
            t.bytes = *bytes;
            t.encoding = *code;
        } else if (w == "mb") {
            expect("(");
            t = expression();
            t.memoryBlock = true;
            expect(")");
        } else if (w == "Nil" || w == "True" || w == "False" || std::isdigit((unsigned char)w[0]) ||
                   w[0] == '-' || w[0] == '&') {
            t.text = false;
            t.literal = w == "Nil" ? "nil" : w == "True" ? "true" : w == "False" ? "false" : w;
        } else {
            fail("unknown expression " + w);
        }
        return t;
    }
};

// The argument as `kxt call` takes it.
std::string kxtArgument(const Term& t) {
    if (!t.text) return t.literal;
    std::string arg = t.memoryBlock ? "mb:" : "";
    if (t.encoding == kREALTextEncodingUTF8) return arg + "text:" + t.bytes;
    std::string prefix = "raw";
    for (const auto& e : xhost::encodings::all()) {
        if (e.code == t.encoding)
            prefix = std::string(e.aliases).substr(0, std::string(e.aliases).find(' '));
    }
    std::string digits = hexOf(t.bytes);
    return arg + (prefix == "raw" ? "hex:" : prefix + ":hex:") + digits;
}

// Checks one "Call(args)  // result" line; returns what is wrong, or nothing.
std::string checkExample(xhost::Host& host, std::string_view line) {
    Reader r{line};
    std::string name = r.word();
    std::vector<std::string> args;
    r.expect("(");
    if (!r.eat(")")) {
        do args.push_back(kxtArgument(r.expression()));
        while (r.eat(","));
        r.expect(")");
    }
    r.expect("//");
    xhost::CallResult got = kxt_tool::callWithArguments(host, name, args);
    const xhost::Value& v = got.value;
    std::string gotText = got.exception ? "raises " + got.exception->className : "";
    if (r.eat("raises")) {
        std::string want = "raises " + r.word();
        return gotText == want ? "" : "gave " + (got.exception ? gotText : hexOf(v.bytes()));
    }
    if (got.exception) return gotText + ": " + got.exception->message;
    r.blanks();
    Term want;
    bool same;
    if (r.eat("Array(")) {
        std::vector<std::string> items;
        if (!r.eat(")")) {
            do items.push_back(r.expression().bytes);
            while (r.eat(","));
            r.expect(")");
        }
        same = v.type() == xhost::Value::Type::Array && v.strings() == items;
        gotText = "an array of " + std::to_string(v.strings().size());
    } else if (r.eat("hex")) {
        std::string_view rest = line.substr(r.i);
        size_t end = std::min(rest.find(" ("), rest.size());
        std::string digits(rest.substr(0, end));
        digits.erase(0, digits.find_first_not_of(' '));
        r.i += end;
        gotText = hexOf(v.bytes());
        same = gotText == digits;
    } else if ((want = r.expression()).text) {
        std::string bytes = v.bytes();
        uint32_t enc = v.encoding();
        if (want.encoding == kREALTextEncodingUTF8 && enc != 0xFFFF && enc != 0x600) {
            bytes = xhost::encodings::convert(bytes, enc, kREALTextEncodingUTF8).value_or(bytes);
        }
        same = bytes == want.bytes;
        gotText = "\"" + bytes + "\" (hex " + hexOf(bytes) + ")";
    } else {
        std::ostringstream out;
        if (v.type() == xhost::Value::Type::Boolean) out << (v.asBoolean() ? "true" : "false");
        if (v.type() == xhost::Value::Type::Integer) out << v.asInteger();
        if (v.type() == xhost::Value::Type::Double) out.precision(17), out << v.asDouble();
        gotText = out.str();
        if (v.type() == xhost::Value::Type::Double) {
            size_t dot = want.literal.find('.');
            int places = dot == std::string::npos ? 0 : int(want.literal.size() - dot - 1);
            same = std::fabs(v.asDouble() - std::stod(want.literal)) <= 0.5 * std::pow(10, -places);
        } else {
            same = gotText == want.literal || (want.literal == "nil" && v.isNil());
        }
    }
    if (!same) return "gave " + gotText;
    if (r.eat("(")) {  // the result's encoding
        std::string want(line.substr(r.i, line.find(')', r.i) - r.i));
        std::string enc = xhost::encodings::nameOf(v.encoding());
        if (enc != want) return "gave the encoding " + enc;
    }
    return "";
}

struct Block {
    std::string file, info, body;
    size_t line = 0;
};

std::vector<Block> fencedBlocks() {
    std::vector<Block> blocks;
    for (const auto& entry : fs::directory_iterator(fs::path(KXT_SOURCE_DIR) / "docs")) {
        if (entry.path().extension() != ".md") continue;
        std::istringstream in(slurp(entry.path()));
        std::string line;
        Block* open = nullptr;
        for (size_t n = 1; std::getline(in, line); ++n) {
            if (line.rfind("```", 0) == 0) {
                if (open) {
                    open = nullptr;
                } else {
                    blocks.push_back({entry.path().filename(), line.substr(3), "", n});
                    open = &blocks.back();
                }
            } else if (open) {
                open->body += line + "\n";
            }
        }
    }
    return blocks;
}

bool isExample(const std::string& line) {
    return line.find("  // ") != std::string::npos;
}

TEST(Docs, EveryExampleGivesTheDocumentedResult) {
    size_t examples = 0;
    std::string rtf;
    auto host = std::make_unique<xhost::Host>();
    for (const Block& b : fencedBlocks()) {
        std::istringstream lines(b.body);
        std::string line;
        if (b.info == "rtf") rtf = b.body;
        if (b.info.rfind("kxt-rtf", 0) == 0) {
            std::istringstream words(b.info.substr(7));
            std::string w, input = rtf;
            bool roundTrip = false, skip = false;
            while (words >> w) {
                roundTrip |= w == "--roundtrip";
                skip |= w == "--skip-paragraphs";
                if (w[0] != '-') input = slurp(fs::path(KXT_SOURCE_DIR) / w);
            }
            char* got = nullptr;
            size_t size = 0;
            FILE* out = open_memstream(&got, &size);
            kxt_tool::reportRTF(*host, input, roundTrip, skip, out, out);
            std::fclose(out);
            EXPECT_EQ(std::string(got, size), b.body) << b.file << ":" << b.line;
            std::free(got);
            ++examples;
        }
        for (size_t n = b.line + 1; b.info == "xojo" && std::getline(lines, line); ++n) {
            if (!isExample(line)) continue;
            std::string problem;
            try {
                problem = checkExample(*host, line);
            } catch (const std::exception& e) {
                problem = e.what();
            }
            if (!problem.empty())
                ADD_FAILURE() << b.file << ":" << n << ": " << line << "\n  " << problem;
            ++examples;
        }
    }
    EXPECT_GT(examples, 100u);
    EXPECT_EQ(host->liveStrings(), 0u) << host->describeLive();
    EXPECT_EQ(host->liveObjects(), 0u) << host->describeLive();
    EXPECT_EQ(host->outstandingStringData(), 0u);
    EXPECT_TRUE(host->misuses().empty());
}

// Declarations are the lines of xojo blocks that are neither examples nor comments; every
// registered name also needs an example.
TEST(Docs, DocumentedDeclarationsAreExactlyTheRegisteredOnes) {
    std::set<std::string> documented, registered, shown;
    for (const Block& b : fencedBlocks()) {
        std::istringstream lines(b.body);
        std::string line;
        while (b.info == "xojo" && std::getline(lines, line)) {
            if (isExample(line)) {
                shown.insert(line.substr(0, line.find('(')));
            } else if (!line.empty() && line.rfind("//", 0) != 0) {
                documented.insert(line);
            }
        }
    }
    xhost::Host host;
    for (const auto& m : host.modules()) {
        for (const auto& method : m.methods) {
            registered.insert(method.declarationText);
            EXPECT_TRUE(shown.count(method.declaration.name) ||
                        method.declaration.name == "RTFDataKXT")
                << "no example: " << method.declaration.name;
        }
    }
    xhost::HostOptions before2013;
    before2013.version = 2012.0;
    xhost::Host old(before2013);
    for (const auto& c : old.classExtensions()) {
        for (const auto& method : c.methods) registered.insert(method.declarationText);
    }
    EXPECT_EQ(registered.size(), 75u);
    for (const std::string& d : registered)
        EXPECT_TRUE(documented.count(d)) << "undocumented: " << d;
    for (const std::string& d : documented)
        EXPECT_TRUE(registered.count(d)) << "not registered: " << d;
}

}  // namespace
