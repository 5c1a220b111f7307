// Every registered method, and RTFDataKXT read and assigned, on huge inputs through the emulated
// host, each case in a child process of its own so that its peak memory, time and crashes are
// its own. A case fails when the memory it adds above what its arguments already hold exceeds
// a bound linear in its input and output, when it does not finish in time (a hang or
// quadratic work), when it crashes, raises, or leaves a host reference behind. The method list
// comes from the host's registrations: an overload without a case fails as missing.
//
//   kxt_stress [--scale 1/64] [--results FILE] [--timeout SECONDS] [--only TEXT] [--skip TEXT]
//              [--no-memory-bound] [--list]
//   kxt_stress --threads 8 [--rounds 3] [--scale 1/4096]
//
// --only and --skip pick cases whose declaration or description contains the text.
// --no-memory-bound reports memory without failing on it (sanitizer builds, whose shadow memory
// and quarantine say nothing about the plugin's own needs).
// --threads runs every case on that many threads at once instead (runThreads below), in
// this process; built with ThreadSanitizer (scripts/tsan.sh) it proves the calls race-free.
//
// Full scale (1) is 64 MiB inputs and 10 million line ends, entities or escapes.
#include <malloc.h>
#include <poll.h>
#include <signal.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <barrier>
#include <chrono>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "XojoHost.h"

using xhost::Value;

namespace {

constexpr size_t MiB = size_t(1) << 20;

// ---- Inputs --------------------------------------------------------------------------------

struct Scale {
    size_t bytes;  // size of a big input
    size_t count;  // number of line ends, entities or escapes in it
};

// A fixed-seed generator, so every run measures the same bytes.
struct Rng {
    uint64_t s = 0x9E3779B97F4A7C15ull;
    uint32_t next() {
        s ^= s << 13;
        s ^= s >> 7;
        s ^= s << 17;
        return uint32_t(s >> 16);
    }
};

const std::string kFill = "lorem ipsum dolor sit amet consectetur adipiscing elit sed do ";

// `count` tokens spread evenly over `size` bytes of plain words. Tokens longer than their
// share make the text longer; the sizes reported are the real ones.
using Token = std::function<void(std::string&, Rng&, size_t index)>;
std::string spread(size_t size, size_t count, const Token& token, const std::string& fill = kFill) {
    std::string s;
    s.reserve(size + 64);
    Rng rng;
    count = std::max<size_t>(count, 1);
    for (size_t i = 0; i < count; ++i) {
        token(s, rng, i);
        const size_t end = (i + 1) * (size / count);
        while (s.size() < end) s.push_back(fill[s.size() % fill.size()]);
    }
    while (s.size() < size) s.push_back(fill[s.size() % fill.size()]);
    return s;
}

Token cycle(std::vector<std::string> tokens) {
    return [tokens = std::move(tokens)](std::string& s, Rng&, size_t i) {
        s += tokens[i % tokens.size()];
    };
}

std::string plain(size_t size) {
    return spread(size, 1, cycle({""}));
}

std::string repeated(size_t size, const std::string& unit) {
    std::string s;
    s.reserve(size + unit.size());
    while (s.size() + unit.size() <= size) s += unit;
    while (s.size() < size) s.push_back(' ');
    return s;
}

// Text in many scripts, whole characters only.
std::string multilingual(size_t size) {
    return repeated(size, "café Grüße Ærøskøbing Ελληνικά русский 日本語の文 😀 naïve façade ");
}

std::string randomBytes(size_t size) {
    std::string s(size, '\0');
    Rng rng;
    for (size_t i = 0; i < size; i += 4) {
        uint32_t v = rng.next();
        std::memcpy(s.data() + i, &v, std::min<size_t>(4, size - i));
    }
    return s;
}

std::string asUTF16(const std::string& ascii) {
    std::string s(ascii.size() * 2, '\0');
    for (size_t i = 0; i < ascii.size(); ++i) s[2 * i] = ascii[i];
    return s;
}

std::string hexDigits(uint32_t v, int n) {
    static const char* kHex = "0123456789ABCDEF";
    std::string s;
    for (int i = n - 1; i >= 0; --i) s.push_back(kHex[(v >> (4 * i)) & 15]);
    return s;
}

// ---- Cases ---------------------------------------------------------------------------------

enum class Kind { Method, RTFGetter, RTFSetter };

struct Args {
    std::vector<Value> values;
    std::vector<std::string> buffers;  // memory behind Ptr arguments
    size_t inputBytes = 0;
    // Bytes the case may add per counted thing beyond the general bound, for structures whose
    // cost is per thing rather than per byte (set by the few cases that need it).
    double allowancePerThing = 0;
    size_t things = 0;
};

struct Case {
    std::string declaration;  // as registered
    std::string hard;         // what the input stresses
    std::function<void(Args&, const Scale&)> make;
    Kind kind = Kind::Method;
};

// Argument helpers: each adds to the input count what the method receives.
void text(Args& a, std::string bytes, uint32_t encoding = kREALTextEncodingUTF8) {
    a.inputBytes += bytes.size();
    a.values.push_back(Value::string(bytes, encoding));
}
void raw(Args& a, std::string bytes) {
    text(a, std::move(bytes), kREALTextEncodingUnknown);
}
void integer(Args& a, int64_t v) {
    a.values.push_back(Value::integer(v));
}
void boolean(Args& a, bool v) {
    a.values.push_back(Value::boolean(v));
}
void memoryBlock(Args& a, const std::string& bytes) {
    a.inputBytes += bytes.size();
    a.values.push_back(Value::memoryBlock(bytes));
}
void pointer(Args& a, std::string bytes) {
    a.inputBytes += bytes.size();
    a.buffers.push_back(std::move(bytes));
    a.values.push_back(Value::pointer(a.buffers.back().data()));
    a.values.push_back(Value::integer(int64_t(a.buffers.back().size())));
}

// Printable runs of five letters between zero bytes: one string per six bytes.
std::string stringsInBinary(const Scale& s) {
    return spread(s.bytes, s.count, cycle({std::string("\0", 1)}), "abcde");
}
std::string brokenUTF8(const Scale& s) {
    return spread(s.bytes, s.count, cycle({"\xC3", "\xFF", "\xE2\x82", "\xED\xA0\x80"}));
}
std::string lineEnds(const Scale& s) {
    return spread(s.bytes, s.count, cycle({"\r\n", "\n", "\r"}));
}
std::string yEncoded(const Scale& s) {
    // Escapes of the critical bytes (NUL, LF, CR, '=') among ordinary coded bytes.
    return spread(s.bytes, s.count, cycle({"=@", "=J", "=M", "=}"}));
}
std::string decomposed(const Scale& s) {
    return spread(s.bytes, s.count, cycle({"e\xCC\x81", "A\xCC\x8A", "o\xCC\x88", "n\xCC\x83"}));
}
std::string precomposed(const Scale& s) {
    return spread(s.bytes, s.count, cycle({"é", "Å", "ö", "ñ", "ǘ", "Ḉ"}));
}
// One base letter followed by every combining mark: canonical ordering sorts one long run.
std::string markRun(const Scale& s) {
    std::string t = "a";
    const char* marks[] = {"\xCC\x81", "\xCC\x96", "\xCD\x85", "\xCC\x9B"};  // 230 220 240 216
    for (size_t i = 0; t.size() + 2 <= s.bytes && i < s.count; ++i) t += marks[i % 4];
    return t;
}

std::vector<std::string> splitInto(const std::string& s, size_t parts) {
    std::vector<std::string> out;
    for (size_t i = 0; i < parts; ++i) {
        out.push_back(
            s.substr(i * s.size() / parts, (i + 1) * s.size() / parts - i * s.size() / parts));
    }
    return out;
}

// A document with a font and a colour table around the body.
std::string rtfDocument(const std::string& body) {
    return "{\\rtf1\\ansi\\deff0{\\fonttbl{\\f0 Times;}{\\f1 Arial;}}"
           "{\\colortbl;\\red255\\green0\\blue0;\\red0\\green0\\blue255;}\\f0\\fs24 " +
           body + "}";
}

// One argument of a table row: bytes made at the run's scale (text in an encoding, a
// MemoryBlock, or a pointer with its size), or a number.
using Gen = std::function<std::string(const Scale&)>;
struct Arg {
    enum Kind { Text, Memory, Pointer, Integer, Size, Boolean, Real } kind;
    Gen bytes = nullptr;
    uint32_t encoding = kREALTextEncodingUTF8;
    int64_t integer = 0;
    double real = 0;
};
Arg T(Gen g, uint32_t encoding = kREALTextEncodingUTF8) {
    return {Arg::Text, std::move(g), encoding};
}
Arg T(std::string fixed, uint32_t encoding = kREALTextEncodingUTF8) {
    return T([fixed](const Scale&) { return fixed; }, encoding);
}
Arg R(Gen g) {
    return T(std::move(g), kREALTextEncodingUnknown);
}
Arg R(std::string fixed) {
    return T(std::move(fixed), kREALTextEncodingUnknown);
}
Arg U16(Gen ascii) {
    return T([ascii](const Scale& s) { return asUTF16(ascii(s)); }, kREALTextEncodingUTF16);
}
Arg M(Gen g) {
    return {Arg::Memory, std::move(g)};
}
Arg P(Gen g) {
    return {Arg::Pointer, std::move(g)};
}
Arg N(int64_t v) {
    return {Arg::Integer, nullptr, 0, v};
}
Arg B(bool v) {
    return {Arg::Boolean, nullptr, 0, v};
}
Arg D(double v) {
    return {Arg::Real, nullptr, 0, 0, v};
}
const Arg kSize = {Arg::Size};  // the big input's size, as an integer

void apply(Args& a, const Scale& s, const Arg& arg) {
    switch (arg.kind) {
        case Arg::Text:
            return text(a, arg.bytes(s), arg.encoding);
        case Arg::Memory:
            return memoryBlock(a, arg.bytes(s));
        case Arg::Pointer:
            return pointer(a, arg.bytes(s));
        case Arg::Integer:
            return integer(a, arg.integer);
        case Arg::Size:
            return integer(a, int64_t(s.bytes));
        case Arg::Boolean:
            return boolean(a, arg.integer != 0);
        case Arg::Real:
            a.values.push_back(Value::real(arg.real));
    }
}

// Generators at the run's scale.
Gen sized(std::string (*f)(size_t)) {
    return [f](const Scale& s) { return f(s.bytes); };
}
Gen half(std::string (*f)(size_t)) {
    return [f](const Scale& s) { return f(s.bytes / 2); };
}
Gen sp(std::vector<std::string> tokens, std::string fill = kFill) {
    return [tokens, fill](const Scale& s) { return spread(s.bytes, s.count, cycle(tokens), fill); };
}
Gen sp(Token token) {
    return [token](const Scale& s) { return spread(s.bytes, s.count, token); };
}
Gen withLastByte(Gen g, char last) {
    return [g, last](const Scale& s) {
        std::string t = g(s);
        t.back() = last;
        return t;
    };
}
Gen around(std::string before, Gen g, std::string after) {
    return [=](const Scale& s) { return before + g(s) + after; };
}
Gen rtf(Gen body) {
    return [body](const Scale& s) { return rtfDocument(body(s)); };
}
const Gen kMulti = sized(multilingual), kPlain = sized(plain), kRandom = sized(randomBytes);
const Gen kAllA = [](const Scale& s) { return std::string(s.bytes, 'a'); };
const std::string kA4095B = std::string(4095, 'a') + "b";
const std::string kLongWord = "Grüße Ærøskøbing Ελληνικά русский 日本語の文 😀 naïve façade cafe";
const std::string kWestern = "Grüße aus Köln, façade œuvre € ";
const std::vector<std::string> kToEscape = {"<", "&", "\"", "é", "€", "'"};
const std::vector<std::string> kTags = {"<b>", "</b>", "<br/>", "<a href=\"x\">"};

struct CaseRow {
    std::string declaration, hard;
    std::vector<Arg> args;
};

std::vector<Case> cases() {
    const std::string kLineEndings =
        "ReplaceLineEndingsKXT(Text as String, NewLine as String, yield as boolean = false) as "
        "String";
    const std::string kPrefix = "HasPrefixKXT(Text as String, Prefix as String) as boolean";
    const std::string kPostfix = "HasPostfixKXT(Text as String, Prefix as String) as boolean";
    const std::string kWholeWord =
        "ContainsWholeWordKXT(Text as String, Word as String) as boolean";
    const std::string kStringsFrom = "GetStringsFromDataKXT(data as ";
    const std::string kStringsFromTail = "MinLength as Integer = 0) as string()";
    const std::string kCheckUTF8 = "CheckUTF8KXT(data as string, Placeholder as string) as string";
    const std::string kJaro = "JaroWinklerDistanceKXT(a as string, b as string) as double";
    const std::string kLevenshtein = "LevenshteinDistanceKXT(a as string, b as string) as double";
    const std::string kRandomBytes =
        "RandomBytesStringKXT(Length as integer, ASCII as boolean=false) as string";
    const std::string kCount = "CountOccurancesKXT(s as string, find as string) as integer";
    const std::string kXOR =
        "XORKXT(data as string, XorMask as string, MaskOffset as integer = 0) as string";
    const std::string kUnicode = "UnicodeStringKXT(s as string) as string";
    const std::string kNative = "NativeStringKXT(s as string) as string";
    const std::string kToHTML = "EncodingToHTMLKXT(s as string, options as integer = 0) as string";
    const std::string kFromHTML = "DecodingFromHTMLKXT(s as string) as string";
    const std::string kToXML = "EncodingToXMLKXT(s as string, options as integer = 0) as string";
    const std::string kToQP =
        "EncodingToQuotedPrintableKXT(s as string, LineLen as integer = 72) as string";
    const std::string kIsASCII = "IsASCIIStringKXT(s as string";
    const std::string kRemoveTags = "RemoveHTMLTagsKXT(AsciiTextWithTags as string) as string";
    const std::string kRemoveTagsWith =
        "RemoveHTMLTagsWithKXT(AsciiTextWithTags as string, Replacement as string) as string";
    const std::string kInStrBytes = "InStrBytesKXT(target as string, find as string) as integer";
    const std::string kCompose =
        "ConvertUnicodeToCharacterCompositionKXT(text as string) as string";
    const std::string kDecompose =
        "ConvertUnicodeToCharacterDecompositionKXT(text as string) as string";
    const std::string kAccents =
        "RemoveAccentsKXT(text as string, IgnoreCase as boolean = false) as string";
    const std::string kBroken = "invalid sequences, 3-byte placeholder";
    const std::string kLinear = " (linear only then)";
    const Gen halfPlain = half(plain);

    const CaseRow rows[] = {
        {kLineEndings, "line ends CR LF CRLF -> LF", {T(lineEnds), T("\n")}},
        {kLineEndings, "line ends -> CRLF, yielding", {T(lineEnds), T("\r\n"), B(true)}},
        {kPrefix, "prefix as long as text", {T(kPlain), T(kPlain)}},
        {kPrefix, "UTF-16 text, UTF-8 prefix", {U16(halfPlain), T(halfPlain)}},
        {kPostfix, "postfix as long as text", {T(kPlain), T(kPlain)}},
        {kPostfix, "UTF-16 text, UTF-8 postfix", {U16(halfPlain), T(halfPlain)}},
        {kWholeWord,
         "word inside other words everywhere",
         {T(sp({"xword", "wordy", "Word_"})), T("word")}},
        {kWholeWord, "multilingual, long word absent", {T(kMulti), T(kLongWord)}},
        {kWholeWord, "periodic: a* against a^4095 b", {T(kAllA), T(kA4095B)}},
        {kStringsFrom + "ptr, size as Integer, " + kStringsFromTail,
         "strings between zero bytes",
         {P(stringsInBinary), N(4)}},
        {kStringsFrom + "MemoryBlock, " + kStringsFromTail,
         "strings between zero bytes",
         {M(stringsInBinary), N(4)}},
        {kStringsFrom + "String, " + kStringsFromTail,
         "strings between zero bytes",
         {R(stringsInBinary), N(4)}},
        {kStringsFrom + "String, " + kStringsFromTail,
         "random bytes, default length",
         {R(kRandom)}},
        {"CheckUTF8KXT(data as ptr, size as Integer, Placeholder as string) as string",
         kBroken,
         {P(brokenUTF8), T("\xEF\xBF\xBD")}},
        {"CheckUTF8KXT(mem as MemoryBlock, Placeholder as string) as string",
         kBroken,
         {M(brokenUTF8), T("\xEF\xBF\xBD")}},
        {kCheckUTF8, kBroken, {R(brokenUTF8), T("\xEF\xBF\xBD")}},
        {kCheckUTF8, "valid multilingual", {T(kMulti), T("?")}},
        {"EncodeEmailSubjectKXT(s as string) as string", "multilingual, all encoded", {T(kMulti)}},
        {"_yDecodeMemoryKXT(data as memoryblock) as memoryblock", "yEnc escapes", {M(yEncoded)}},
        {"_yDecodeStringKXT(data as string) as string", "yEnc escapes", {R(yEncoded)}},
        {kJaro, "long against short" + kLinear, {T(kMulti), T("café naïve")}},
        {kJaro, "short against long" + kLinear, {T("café naïve"), T(kMulti)}},
        {kLevenshtein, "long against short" + kLinear, {T(kMulti), T("café naïve")}},
        {kLevenshtein, "short against long" + kLinear, {T("café naïve"), T(kMulti)}},
        {"ScientificStrKXT(d as double, digits as integer) as string",
         "no size input; most digits",
         {D(1.0 / 3.0), N(1000000000)}},
        {"StrKXT(d as double) as string", "no size input", {D(-1.7976931348623157e308)}},
        {kRandomBytes, "size of the result", {kSize}},
        {kRandomBytes, "size of the result, ASCII", {kSize, B(true)}},
        {"CreateStringKXT(Length as integer, Content as String) as string",
         "size of the result",
         {kSize, T("abc")}},
        {"StrCompBytesKXT(a as string, b as string) as integer",
         "equal but the last byte",
         {T(kPlain), T(withLastByte(kPlain, '!'))}},
        {"StrCompCharactersKXT(a as string, b as string) as integer",
         "UTF-8 against UTF-16, equal but the last",
         {T(halfPlain), U16(withLastByte(halfPlain, '!'))}},
        {kCount, "matches", {T(sp({"needle"})), T("needle")}},
        {kCount, "periodic: a* against a^4095 b", {T(kAllA), T(kA4095B)}},
        {"ClearStringContentKXT(s as String) as Boolean", "size", {T(kPlain)}},
        {"DetectUnicodeMarkersKXT(s as string) as integer",
         "size, byte-order mark",
         {R(around("\xEF\xBB\xBF", kPlain, ""))}},
        {"GetUnicodeMarkersKXT(kind as integer) as string", "no size input", {N(2)}},
        {"StringIsHTMLreadyKXT(s as string) as boolean",
         "entities",
         {T(sp({"&amp;", "&lt;", "&#233;", "&eacute;"}))}},
        {"StringIsXMLreadyKXT(s as string) as boolean",
         "entities",
         {T(sp({"&amp;", "&lt;", "&#233;", "&quot;"}))}},
        {"StringANDKXT(a as string,b as string) as string",
         "two big operands",
         {R(kRandom), R(kPlain)}},
        {"StringORKXT(a as string,b as string) as string",
         "two big operands",
         {R(kRandom), R(kPlain)}},
        {"String" + kXOR, "short mask, offset", {R(kRandom), R("secret!"), N(3)}},
        {"String" + kXOR, "mask as long as data", {R(kRandom), R(kPlain)}},
        {"StringXOR2" + kXOR.substr(3), "short mask, offset", {R(kRandom), R("secret!"), N(3)}},
        {kUnicode, "multilingual UTF-8", {T(kMulti)}},
        {kUnicode, "ISO Latin 1 bytes", {T(sp({"\xE9", "\xFC\xDF"}), kREALTextEncodingISOLatin1)}},
        {kNative, "multilingual UTF-8", {T(kMulti)}},
        {kNative, "UTF-16", {U16(halfPlain)}},
        {"DecodingFromMySQLKXT(s as string) as string",
         "backslash escapes",
         {T(sp({"\\n", "\\'", "\\\\", "\\0", "\\Z", "\\%"}))}},
        {kToHTML, "characters to escape", {T(sp(kToEscape))}},
        {kToHTML, "multilingual, options 1", {T(kMulti), N(1)}},
        {kFromHTML, "entities", {T(sp({"&amp;", "&eacute;", "&#233;", "&#x20AC;", "&bogus"}))}},
        {kFromHTML, "ampersands, no entity ends", {T(sp({"&"}, "abcdefghij"))}},
        {kToXML, "characters to escape", {T(sp(kToEscape))}},
        {kToXML, "multilingual, options 1", {T(kMulti), N(1)}},
        {"DecodingFromXMLKXT(s as string) as string",
         "entities",
         {T(sp({"&amp;", "&lt;", "&#233;", "&#x20AC;", "&quot;"}))}},
        {"EncodingToURLKXT(s as string) as string", "multilingual, all escaped", {T(kMulti)}},
        {"EncodingToURLKXT(s as string, options as integer) as string",
         "spaces and plus signs",
         {T(sp({"+", " ", "%", "/"})), N(1)}},
        {"DecodingFromURLKXT(s as string) as string",
         "%xx escapes",
         {T(sp([](std::string& t, Rng& r, size_t) { t += "%" + hexDigits(r.next(), 2); }))}},
        {"DecodingFromURLKXT(s as string, options as integer) as string",
         "%xx escapes and plus signs",
         {T(sp({"%C3%A9", "+", "%2", "%zz"})), N(1)}},
        {kToQP, "multilingual, line breaks", {T(kMulti)}},
        {kToQP, "line ends, one line", {T(lineEnds), N(0)}},
        {"DecodingFromQuotedPrintableKXT(s as string) as string",
         "=XX escapes, soft breaks",
         {T(sp([](std::string& t, Rng& r, size_t i) {
             t += i % 8 == 7 ? "=\r\n" : "=" + hexDigits(r.next(), 2);
         }))}},
        {"HexstringKXT(input as string, hexlen as integer, linelen as integer, linestart as "
         "string, lineend as string, spacer as string,filler as string) as string",
         "a dump three times the input",
         {R([](const Scale& s) { return randomBytes(s.bytes / 4); }), N(2), N(16), T("> "), T("\n"),
          T(" "), T("..")}},
        {"EncodingToISO8859KXT(s as string) as string", "Western text", {T([](const Scale& s) {
             return repeated(s.bytes, kWestern);
         })}},
        {"DecodingFromISO8859KXT(s as string) as string",
         "high bytes",
         {R(sp({"\xE9", "\xFC\xDF"}))}},
        {"EncodingToCP1252KXT(s as string) as string", "Western text", {T([](const Scale& s) {
             return repeated(s.bytes, kWestern);
         })}},
        {"DecodingFromCP1252KXT(s as string) as string",
         "high bytes",
         {R(sp({"\x80", "\x93\x94"}))}},
        {"EncodingToHexKXT(s as string) as string", "size", {R(kRandom)}},
        {"DecodingFromHexKXT(s as string) as string", "hex pairs", {T([](const Scale& s) {
             std::string t;
             t.reserve(s.bytes);
             Rng r;
             while (t.size() + 8 <= s.bytes) t += hexDigits(r.next(), 8);
             return t;
         })}},
        {"ReplaceNonPrintableCharactersKXT(s as string, replacevalue as integer=46) as string",
         "control bytes",
         {R(sp({"\x01", "\x7F", "\x1B", "\x90"}))}},
        {kIsASCII + ") as boolean", "all ASCII", {T(kPlain)}},
        {kIsASCII + ", mode as integer) as boolean", "all ASCII, mode 1", {T(kPlain), N(1)}},
        {kRemoveTags, "tags", {T(sp(kTags))}},
        {kRemoveTags, "'<' never closed", {T(sp({"<"}))}},
        {kRemoveTagsWith, "tags", {T(sp(kTags)), T(" \xE2\x80\xA2 ")}},
        {kRemoveTagsWith, "'<' never closed", {T(sp({"<"})), T("#")}},
    };
    std::vector<Case> c;
    auto add = [&](std::string declaration, std::string hard,
                   std::function<void(Args&, const Scale&)> make, Kind kind = Kind::Method) {
        c.push_back({std::move(declaration), std::move(hard), std::move(make), kind});
    };
    // An assigned RTF goes to a new StyledText.
    auto addRow = [&](const CaseRow& row, Kind kind = Kind::Method) {
        add(
            row.declaration, row.hard,
            [args = row.args, kind](Args& a, const Scale& s) {
                if (kind == Kind::RTFSetter) {
                    a.values.push_back(xhost::Host::current()->newStyledText({}));
                }
                for (const Arg& arg : args) apply(a, s, arg);
            },
            kind);
    };
    for (const CaseRow& row : rows) addRow(row);
    for (int parts = 6; parts >= 2; --parts) {
        std::string d = "ConcatBinaryStringsKXT(";
        for (int i = 0; i < parts; ++i) {
            d += std::string(i ? ", " : "") + char('a' + i) + " as string";
        }
        d += ") as string";
        add(d, std::to_string(parts) + " operands, mixed encodings",
            [parts](Args& a, const Scale& s) {
                auto pieces = splitInto(randomBytes(s.bytes), size_t(parts));
                for (int i = 0; i < parts; ++i) {
                    text(a, pieces[size_t(i)],
                         i % 2 ? kREALTextEncodingUnknown : kREALTextEncodingUTF8);
                }
            });
    }
    const CaseRow more[] = {
        {"SQLReplaceBooleanKXT(SQL as string) as string",
         "boolean literals",
         {T(sp({" TRUE", " false", " 'true'", " True;"}))}},
        {kInStrBytes, "found at the very end", {T(around("", kPlain, "#needle#")), T("#needle#")}},
        {kInStrBytes, "periodic: a* against a^4095 b", {T(kAllA), T(kA4095B)}},
    };
    for (const CaseRow& row : more) addRow(row);
    for (int n = 1; n <= 3; ++n) {
        for (bool find : {false, true}) {
            std::string d = "InStrByteRangeKXT(target as string, ";
            if (find) d += "find as string, ";
            CaseRow row{"", "no byte in range until the end", {T(around("", kPlain, "\x01"))}};
            if (find) row.args.push_back(T("#"));
            const char* suffix[] = {"", "2", "3"};
            for (int i = 0; i < n; ++i) {
                d += std::string(i ? ", " : "") + "StartValue" + suffix[i] +
                     " as integer, EndValue" + suffix[i] + " as integer";
                row.args.insert(row.args.end(), {N(1 + i), N(1 + i)});
            }
            row.declaration = d + ") as integer";
            addRow(row);
        }
    }
    const CaseRow unicode[] = {
        {kCompose, "combining marks to compose", {T(decomposed)}},
        {kCompose, "one base, one run of all the marks", {T(markRun)}},
        {kDecompose, "precomposed letters", {T(precomposed)}},
        {kDecompose, "one base, one run of all the marks", {T(markRun)}},
        {kAccents, "accented letters", {T(precomposed)}},
        {kAccents, "multilingual, ignoring case", {T(kMulti), B(true)}},
    };
    for (const CaseRow& row : unicode) addRow(row);

    // RTFDataKXT: a styled text to read, or RTF to assign to a new one.
    const std::string kGetter =
        "RTFDataKXT(extends ref as StyledText, SkipParagraphs as boolean = false) as string";
    const std::string kSetter =
        "RTFDataKXT(extends ref as StyledText, SkipParagraphs as boolean = false, assigns value "
        "as string)";
    add(
        kGetter, "one run, line ends (paragraphs)",
        [](Args& a, const Scale& s) {
            xhost::RunSpec run;
            run.text = spread(s.bytes, s.count, cycle({"\r", "\r", "{", "\\", "é"}));
            run.font = "Times";
            run.size = 12;
            a.inputBytes += run.text.size();
            a.values.push_back(xhost::Host::current()->newStyledText({run}));
        },
        Kind::RTFGetter);
    add(
        kGetter, "many styled runs",
        [](Args& a, const Scale& s) {
            // Runs are host objects of their own (about 1 KB each): one per ten counted things.
            std::vector<xhost::RunSpec> runs(std::max<size_t>(s.count / 10, 1));
            const std::string body = plain(s.bytes / runs.size());
            for (size_t i = 0; i < runs.size(); ++i) {
                runs[i].text = body;
                runs[i].text.back() = '\r';
                runs[i].font = i % 2 ? "Arial" : "Times";
                runs[i].size = 10 + int64_t(i % 5);
                runs[i].bold = i % 3 == 0;
                runs[i].color = uint32_t(i * 0x10203);
                a.inputBytes += body.size();
            }
            a.values.push_back(xhost::Host::current()->newStyledText(runs));
        },
        Kind::RTFGetter);
    const CaseRow setters[] = {
        {kSetter,
         "control words, groups, escapes",
         {R(rtf(sp({"{\\b bold}", "\\par ", "\\'e9", "\\u8364?", "{\\i\\cf1 x}", "\\tab ", "\\f1 ",
                    "\\f0 "})))}},
        {kSetter, "paragraphs only", {R(rtf(sp({"\\par\n"})))}},
        {kSetter,
         "style change every few bytes",
         {R(rtf(sp({"\\b ", "\\b0 ", "\\cf2 ", "\\cf0 "})))}},
        {kSetter, "groups nested deep", {R(rtf([](const Scale& s) {
             const size_t depth = std::min(s.count, s.bytes / 2);
             return std::string(depth, '{') + "x" + std::string(depth, '}');
         }))}},
    };
    for (const CaseRow& row : setters) addRow(row, Kind::RTFSetter);
    add(
        kSetter, "groups nested deep, each changing the style",
        [](Args& a, const Scale& s) {
            a.values.push_back(xhost::Host::current()->newStyledText({}));
            const size_t depth = std::min(s.count, s.bytes / 5);
            std::string body;
            body.reserve(depth * 6 + 2);
            for (size_t i = 0; i < depth; ++i) body += i % 2 ? "{\\b0 " : "{\\b ";
            body += "x";
            body.append(depth, '}');
            raw(a, rtfDocument(body));
            // Every open group that changes the style keeps its own saved state (font, size,
            // encoding, colour, flags: 56 bytes) for its closing brace, from 4 bytes of input.
            a.allowancePerThing = 64;
            a.things = depth;
        },
        Kind::RTFSetter);
    return c;
}

// ---- Measuring -----------------------------------------------------------------------------

// Kibibytes of a line of /proc/self/status ("VmRSS:", "VmHWM:").
int64_t statusKiB(const char* key) {
    std::ifstream f("/proc/self/status");
    std::string line;
    const size_t n = strlen(key);
    while (std::getline(f, line)) {
        if (line.compare(0, n, key) == 0) return std::atoll(line.c_str() + n);
    }
    return -1;
}

bool resetPeak() {
    FILE* f = fopen("/proc/self/clear_refs", "w");
    if (f == nullptr) return false;
    const bool ok = fputs("5", f) >= 0;
    return fclose(f) == 0 && ok;
}

struct Outcome {
    int64_t baselineKiB = 0, peakKiB = 0;
    int64_t heldKiB = 0;  // RSS right after the call, its result still alive
    uint64_t inputBytes = 0, outputBytes = 0;
    uint64_t elements = 0;     // strings of an array result, or style runs
    bool newRuns = false;      // the elements are style runs the call made
    bool inputRuns = false;    // the elements are the style runs it was given
    double perThingBytes = 0;  // the case's own allowance (Args::allowancePerThing)
    double seconds = 0;
    char problem[240] = "";  // empty when the call behaved
};

size_t textBytes(const std::vector<xhost::RunSpec>& runs) {
    size_t n = 0;
    for (const auto& r : runs) n += r.text.size();
    return n;
}

// The registered overload a method case calls (null for RTFDataKXT and when none is).
const xhost::RegisteredMethod* findMethod(xhost::Host& host, const Case& c) {
    if (c.kind != Kind::Method) return nullptr;
    for (const auto* m : host.overloads(c.declaration.substr(0, c.declaration.find('(')))) {
        if (m->declarationText == c.declaration) return m;
    }
    return nullptr;
}

xhost::CallResult callCase(xhost::Host& host, const Case& c, const xhost::RegisteredMethod* method,
                           const Args& args) {
    switch (c.kind) {
        case Kind::RTFGetter:
            return host.getRTF(args.values[0]);
        case Kind::RTFSetter:
            return host.setRTF(args.values[0], args.values[1]);
        case Kind::Method:
            break;
    }
    return host.callMethod(*method, args.values);
}

// Runs one case in this (child) process.
Outcome runCase(const Case& c, const Scale& scale) {
    Outcome o;
    auto note = [&](const std::string& what) {
        if (o.problem[0] == 0) snprintf(o.problem, sizeof o.problem, "%s", what.c_str());
    };
    xhost::Host host;
    const xhost::RegisteredMethod* method = findMethod(host, c);
    if (c.kind == Kind::Method && method == nullptr) {
        note("no such overload registered");
        return o;
    }
    {
        Args args;
        c.make(args, scale);
        o.inputBytes = args.inputBytes;
        o.perThingBytes = args.allowancePerThing * double(args.things);
        malloc_trim(0);
        if (!resetPeak()) note("cannot reset the peak RSS");
        o.baselineKiB = statusKiB("VmRSS:");
        const auto start = std::chrono::steady_clock::now();
        xhost::CallResult r = callCase(host, c, method, args);
        o.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        o.peakKiB = statusKiB("VmHWM:");
        o.heldKiB = statusKiB("VmRSS:");
        if (r.exception) note("raised " + r.exception->className + ": " + r.exception->message);
        switch (r.value.type()) {
            case Value::Type::String:
            case Value::Type::MemoryBlock:
                o.outputBytes = r.value.bytes().size();
                break;
            case Value::Type::Array: {
                auto strings = r.value.strings();
                o.elements = strings.size();
                for (const auto& s : strings) o.outputBytes += s.size();
                break;
            }
            default:
                break;
        }
        if (c.kind == Kind::RTFSetter && !r.exception) {
            auto runs = host.styleRuns(args.values[0]);
            o.elements = runs.size();
            o.newRuns = true;
            o.outputBytes = textBytes(runs);
        }
        if (c.kind == Kind::RTFGetter) {
            o.elements = host.styleRuns(args.values[0]).size();
            o.inputRuns = true;
        }
    }
    if (host.liveStrings() || host.liveObjects() || host.outstandingStringData()) {
        note("leaked: " + host.describeLive());
    }
    if (!host.misuses().empty()) note("misused the host: " + host.misuses().front());
    return o;
}

struct Row {
    const Case* c;
    Outcome o;
    bool passed = false;
    std::string verdict;
    double allowedMiB = 0;
};

// Per byte of input and output, what a linear method may add: its own working copies and
// result (a few buffers of that size) plus the host's UTF-16 or UTF-32 form of a text, which
// is up to four times its UTF-8 bytes (the most measured is 7.1, HTML and XML escaping and
// unescaping, which work on UTF-32 and build their result through a UTF-32 host string).
// Fixed costs (tables, the loaded plugin) get their own allowance. The host keeps every
// string of an array result and every style run as a record of its own, whatever its length:
// a string costs its block header, the allocator's overhead and its slot in the host's handle
// set (about 90 bytes measured); a style run is an object with seven properties, its text and
// font strings, handle-set slots and its place in the styled text's run and paragraph tables
// (about 1,000 bytes measured).
constexpr double kPerByte = 8;
constexpr double kFixedMiB = 64;
constexpr double kPerString = 160;
constexpr double kPerRun = 1280;

double allowedMiB(const Outcome& o) {
    double bytes = kPerByte * double(o.inputBytes + o.outputBytes) + o.perThingBytes;
    if (o.newRuns) {
        bytes += kPerRun * double(o.elements);
    } else if (!o.inputRuns) {
        bytes += kPerString * double(o.elements);
    }
    return kFixedMiB + bytes / double(MiB);
}

Row runInChild(const Case& c, const Scale& scale, double timeoutSeconds, bool memoryBound) {
    Row row{&c, {}, false, "", 0};
    int fds[2];
    if (pipe(fds) != 0) {
        row.verdict = "cannot make a pipe";
        return row;
    }
    fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        Outcome o;
        try {
            o = runCase(c, scale);
        } catch (const std::exception& e) {
            snprintf(o.problem, sizeof o.problem, "exception in the harness: %s", e.what());
        }
        const char* p = reinterpret_cast<const char*>(&o);
        size_t left = sizeof o;
        while (left > 0) {
            ssize_t n = write(fds[1], p, left);
            if (n <= 0) break;
            p += n;
            left -= size_t(n);
        }
        _exit(0);
    }
    close(fds[1]);
    const auto start = std::chrono::steady_clock::now();
    std::string received;
    bool timedOut = false;
    for (;;) {
        const double left =
            timeoutSeconds -
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (left <= 0) {
            timedOut = true;
            break;
        }
        pollfd pfd{fds[0], POLLIN, 0};
        if (poll(&pfd, 1, int(std::min(left, 1.0) * 1000) + 1) <= 0) continue;
        char buf[4096];
        ssize_t n = read(fds[0], buf, sizeof buf);
        if (n <= 0) break;
        received.append(buf, size_t(n));
    }
    close(fds[0]);
    if (timedOut) kill(pid, SIGKILL);
    int status = 0;
    waitpid(pid, &status, 0);
    const double wall =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (timedOut) {
        row.o.seconds = wall;
        row.verdict = "no result within " + std::to_string(int(timeoutSeconds)) + " s";
        return row;
    }
    if (WIFSIGNALED(status)) {
        row.verdict = std::string("crashed: ") + strsignal(WTERMSIG(status));
        return row;
    }
    if (received.size() != sizeof(Outcome)) {
        row.verdict = "the child exited without a result";
        return row;
    }
    std::memcpy(&row.o, received.data(), sizeof(Outcome));
    row.allowedMiB = allowedMiB(row.o);
    const double extraMiB = double(row.o.peakKiB - row.o.baselineKiB) / 1024;
    if (row.o.problem[0]) {
        row.verdict = row.o.problem;
    } else if (memoryBound && extraMiB > row.allowedMiB) {
        char buf[120];
        snprintf(buf, sizeof buf, "peak %.0f MiB above the bound %.0f MiB", extraMiB,
                 row.allowedMiB);
        row.verdict = buf;
    } else {
        row.passed = true;
        row.verdict = "ok";
    }
    return row;
}

// ---- Reporting -----------------------------------------------------------------------------

std::string firstLine(const char* path, const char* key) {
    std::ifstream f(path);
    std::string line;
    while (std::getline(f, line)) {
        if (line.compare(0, strlen(key), key) == 0) {
            auto colon = line.find(':');
            std::string v = line.substr(colon + 1);
            v.erase(0, v.find_first_not_of(" \t"));
            return v;
        }
    }
    return "?";
}

std::string mib(double bytes) {
    char buf[32];
    snprintf(buf, sizeof buf, bytes >= 10 * MiB ? "%.0f" : "%.1f", bytes / double(MiB));
    return buf;
}

std::string escapeCell(std::string s) {
    std::string out;
    for (char ch : s) {
        if (ch == '|')
            out += "\\|";
        else if (ch == '\n' || ch == '\r')
            out += ' ';
        else
            out += ch;
    }
    return out;
}

// The registered declarations, from a host of its own (gone before any case forks).
std::vector<std::string> registeredDeclarations() {
    xhost::Host host;
    std::vector<std::string> out;
    for (const auto& m : host.modules()) {
        for (const auto& method : m.methods) out.push_back(method.declarationText);
    }
    for (const auto& method : host.globalMethods()) out.push_back(method.declarationText);
    for (const auto& e : host.classExtensions()) {
        for (const auto& method : e.methods)
            out.push_back(e.className + "." + method.declarationText);
    }
    return out;
}

Scale parseScale(const std::string& text) {
    double f;
    auto slash = text.find('/');
    if (slash != std::string::npos) {
        f = std::atof(text.substr(0, slash).c_str()) / std::atof(text.substr(slash + 1).c_str());
    } else {
        f = std::atof(text.c_str());
    }
    if (!(f > 0) || f > 4) {
        fprintf(stderr, "kxt_stress: a scale between 0 and 4, such as 1 or 1/64\n");
        exit(2);
    }
    return {size_t(double(64 * MiB) * f), size_t(10e6 * f)};
}

// ---- Threads -------------------------------------------------------------------------------

// What a call gave, to compare across threads: the result (type, encoding, size and a hash of
// its bytes) or the exception, the arguments' bytes afterwards (ClearStringContentKXT wipes
// its own), and the runs and paragraphs an assigned RTFDataKXT made. Random bytes differ each
// call: their size, encoding and range stand for them.
std::string outcomeText(xhost::Host& host, const Case& c, const Args& args,
                        const xhost::CallResult& r) {
    auto digest = [](const std::string& bytes) {
        return std::to_string(bytes.size()) + ":" + std::to_string(std::hash<std::string>{}(bytes));
    };
    if (r.exception) return "raised " + r.exception->className + ": " + r.exception->message;
    const Value& v = r.value;
    std::string out = "type " + std::to_string(int(v.type()));
    if (c.declaration.rfind("RandomBytesStringKXT", 0) == 0) {
        const std::string b = v.bytes();
        const bool ascii = std::all_of(
            b.begin(), b.end(), [](char ch) { return uint8_t(ch) >= 32 && uint8_t(ch) < 128; });
        return out + " " + std::to_string(b.size()) + (ascii ? " ascii" : "");
    }
    switch (v.type()) {
        case Value::Type::String:
            out += " " + std::to_string(v.encoding()) + " " + digest(v.bytes());
            break;
        case Value::Type::MemoryBlock:
            out += " " + digest(v.bytes());
            break;
        case Value::Type::Array:
            for (const auto& s : v.strings()) out += " " + digest(s);
            break;
        case Value::Type::Integer:
            out += " " + std::to_string(v.asInteger());
            break;
        case Value::Type::Boolean:
            out += v.asBoolean() ? " true" : " false";
            break;
        case Value::Type::Double: {
            char buf[40];
            snprintf(buf, sizeof buf, " %a", v.asDouble());
            out += buf;
            break;
        }
        default:
            break;
    }
    for (const Value& a : args.values) {
        if (a.type() == Value::Type::String || a.type() == Value::Type::MemoryBlock) {
            out += " | " + digest(a.bytes());
        }
    }
    if (c.kind == Kind::RTFSetter) {
        for (const auto& run : host.styleRuns(args.values[0])) {
            out += " | " + digest(run.text) + " " + run.font + " " + std::to_string(run.size) +
                   (run.bold ? "b" : "") + (run.italic ? "i" : "") + (run.underline ? "u" : "") +
                   " " + std::to_string(run.color);
        }
        for (const auto& p : host.paragraphs(args.values[0])) {
            out += " | " + std::to_string(p.start) + "-" + std::to_string(p.end) + " " +
                   std::to_string(p.alignment);
        }
    }
    return out;
}

std::string outcomeOf(xhost::Host& host, const Case& c, const xhost::RegisteredMethod* method,
                      const Args& args) {
    if (c.kind == Kind::Method && method == nullptr) return "no such overload registered";
    try {
        return outcomeText(host, c, args, callCase(host, c, method, args));
    } catch (const std::exception& e) {
        return std::string("threw ") + e.what();
    }
}

// Every case on `threads` threads at once, each on arguments of its own (its own strings,
// MemoryBlocks and StyledTexts, made beforehand), against the results of one thread computed
// first on a host of its own. Each round loads a fresh copy of the plugin, so the threads meet
// its lazily built tables and caches cold; the Debugging switch is set meanwhile. After the
// threads are joined and the arguments and results released, no host reference may be left.
int runThreads(const std::vector<Case>& all, const Scale& scale, int threads, int rounds) {
    std::vector<std::string> expected;
    {
        xhost::Host host;
        for (const auto& c : all) {
            Args args;
            c.make(args, scale);
            expected.push_back(outcomeOf(host, c, findMethod(host, c), args));
        }
    }
    int failed = 0;
    for (int round = 1; round <= rounds; ++round) {
        const auto start = std::chrono::steady_clock::now();
        xhost::Host host;
        std::vector<const xhost::RegisteredMethod*> methods;
        for (const auto& c : all) methods.push_back(findMethod(host, c));
        std::vector<std::vector<Args>> args(size_t(threads), std::vector<Args>(all.size()));
        for (auto& mine : args) {
            for (size_t i = 0; i < all.size(); ++i) all[i].make(mine[i], scale);
        }
        std::vector<std::vector<std::string>> got(static_cast<size_t>(threads));
        // The threads start each case together, so they meet whatever it builds on first use
        // at the same moment.
        std::barrier together(threads);
        std::atomic<int> running = threads;
        std::vector<std::thread> pool;
        for (int t = 0; t < threads; ++t) {
            pool.emplace_back([&, t] {
                for (size_t i = 0; i < all.size(); ++i) {
                    together.arrive_and_wait();
                    got[size_t(t)].push_back(
                        outcomeOf(host, all[i], methods[i], args[size_t(t)][i]));
                }
                --running;
            });
        }
        while (running > 0) {
            host.setDebugging(false);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        for (auto& t : pool) t.join();
        int wrong = 0;
        for (int t = 0; t < threads; ++t) {
            for (size_t i = 0; i < all.size(); ++i) {
                if (got[size_t(t)][i] == expected[i]) continue;
                ++wrong;
                printf("FAIL round %d thread %d: %s [%s]\n  got      %s\n  expected %s\n", round, t,
                       all[i].declaration.c_str(), all[i].hard.c_str(),
                       got[size_t(t)][i].substr(0, 300).c_str(),
                       expected[i].substr(0, 300).c_str());
            }
        }
        args.clear();
        if (host.liveStrings() || host.liveObjects() || host.outstandingStringData()) {
            printf("FAIL round %d leaked: %s", round, host.describeLive().c_str());
            ++wrong;
        }
        for (const auto& m : host.misuses()) {
            printf("FAIL round %d misused the host: %s\n", round, m.c_str());
            ++wrong;
        }
        printf("round %d: %d threads x %zu cases, %d wrong, %.2f s\n", round, threads, all.size(),
               wrong,
               std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        fflush(stdout);
        failed += wrong;
    }
    return failed;
}

}  // namespace

int main(int argc, char** argv) {
    std::string scaleText = "1", resultsPath, only, skip;
    double timeout = 0;
    bool listOnly = false;
    bool memoryBound = true;
    int threads = 0, rounds = 3;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= argc) {
                fprintf(stderr, "kxt_stress: %s needs a value\n", a.c_str());
                exit(2);
            }
            return argv[++i];
        };
        if (a == "--scale")
            scaleText = value();
        else if (a == "--results")
            resultsPath = value();
        else if (a == "--timeout")
            timeout = std::atof(value().c_str());
        else if (a == "--only")
            only = value();
        else if (a == "--skip")
            skip = value();
        else if (a == "--no-memory-bound")
            memoryBound = false;
        else if (a == "--list")
            listOnly = true;
        else if (a == "--threads")
            threads = std::atoi(value().c_str());
        else if (a == "--rounds")
            rounds = std::atoi(value().c_str());
        else {
            fprintf(stderr,
                    "usage: kxt_stress [--scale 1/64] [--results FILE] [--timeout SECONDS] "
                    "[--only TEXT] [--skip TEXT] [--no-memory-bound] [--list] [--threads N "
                    "[--rounds N]]\n");
            return 2;
        }
    }
    if (threads > 0 && scaleText == "1") scaleText = "1/4096";  // 16 KiB: many rounds, cold
    const Scale scale = parseScale(scaleText);
    // A linear case at full scale takes seconds; a quadratic one would take hours.
    if (timeout <= 0) timeout = 20 + 280 * double(scale.bytes) / double(64 * MiB);

    const std::vector<Case> all = cases();
    const std::vector<std::string> registered = registeredDeclarations();
    std::set<std::string> covered;
    for (const auto& c : all) covered.insert(c.declaration);
    std::vector<std::string> missing, unknown;
    for (const auto& d : registered) {
        if (d.rfind("property ", 0) == 0) continue;
        if (!covered.count(d)) missing.push_back(d);
    }
    const std::set<std::string> known(registered.begin(), registered.end());
    for (const auto& d : covered) {
        if (!known.count(d)) unknown.push_back(d);
    }
    if (listOnly) {
        for (const auto& c : all) printf("%s  [%s]\n", c.declaration.c_str(), c.hard.c_str());
        return 0;
    }
    if (threads > 0) {
        printf("kxt_stress: %zu cases on %d threads, %d rounds, scale %s (%zu bytes, %zu things)\n",
               all.size(), threads, rounds, scaleText.c_str(), scale.bytes, scale.count);
        int failed = runThreads(all, scale, threads, rounds);
        for (const auto& d : missing) printf("FAIL no case for %s\n", d.c_str());
        for (const auto& d : unknown)
            printf("FAIL case for an overload that is not registered: %s\n", d.c_str());
        failed += int(missing.size() + unknown.size());
        printf("%s\n", failed == 0 ? "all threads agree with one" : "FAILED");
        return failed == 0 ? 0 : 1;
    }

    printf(
        "kxt_stress: %zu cases, %zu registered overloads, scale %s (%s MiB, %zu things), "
        "time limit %.0f s per case\n",
        all.size(), registered.size(), scaleText.c_str(), mib(double(scale.bytes)).c_str(),
        scale.count, timeout);
    std::vector<Row> rows;
    int passed = 0, failed = 0;
    for (const auto& c : all) {
        if (!only.empty() && c.declaration.find(only) == std::string::npos &&
            c.hard.find(only) == std::string::npos) {
            continue;
        }
        if (!skip.empty() && (c.declaration.find(skip) != std::string::npos ||
                              c.hard.find(skip) != std::string::npos)) {
            continue;
        }
        Row row = runInChild(c, scale, timeout, memoryBound);
        const double extra = double(row.o.peakKiB - row.o.baselineKiB) * 1024;
        const double io = double(row.o.inputBytes + row.o.outputBytes);
        printf("%-4s %7.2f s  in %6s  out %6s  extra %6s held %6s MiB  x%5.2f  %s [%s]%s%s\n",
               row.passed ? "ok" : "FAIL", row.o.seconds, mib(double(row.o.inputBytes)).c_str(),
               mib(double(row.o.outputBytes)).c_str(), mib(extra).c_str(),
               mib(double(row.o.heldKiB - row.o.baselineKiB) * 1024).c_str(),
               io > 0 ? extra / io : 0.0, c.declaration.substr(0, c.declaration.find('(')).c_str(),
               c.hard.c_str(), row.passed ? "" : ": ", row.passed ? "" : row.verdict.c_str());
        fflush(stdout);
        (row.passed ? passed : failed)++;
        rows.push_back(std::move(row));
    }
    if (only.empty() && skip.empty()) {
        for (const auto& d : missing) {
            printf("FAIL no case for %s\n", d.c_str());
            ++failed;
        }
    }
    for (const auto& d : unknown) {
        printf("FAIL case for an overload that is not registered: %s\n", d.c_str());
        ++failed;
    }

    if (!resultsPath.empty()) {
        std::ofstream md(resultsPath);
        utsname u{};
        uname(&u);
        char date[64];
        const time_t now = time(nullptr);
        strftime(date, sizeof date, "%Y-%m-%d %H:%M UTC", gmtime(&now));
        md << "# Stress results\n\n"
           << "Every registered overload and RTFDataKXT through the emulated host, one child "
              "process per case (`scripts/stress.sh`). Scale "
           << scaleText << ": inputs of " << mib(double(scale.bytes)) << " MiB with " << scale.count
           << " line ends, entities or escapes.\n\n"
           << "- Machine: " << firstLine("/proc/cpuinfo", "model name") << ", "
           << sysconf(_SC_NPROCESSORS_ONLN) << " cores, "
           << mib(double(std::atoll(firstLine("/proc/meminfo", "MemTotal").c_str()))) << " GiB"
           << ", " << u.sysname << " " << u.release << " " << u.machine << "\n"
           << "- Date: " << date << "; load at the end " << firstLine("/proc/loadavg", "") << "\n"
           << "- Extra: peak RSS of the call (VmHWM, reset just before it) above the RSS with its "
              "arguments built. Ratio: extra / (input + output).\n"
           << "- Bound: extra <= " << kPerByte << " x (input + output) + " << kPerString
           << " B per string of an array result + " << kPerRun
           << " B per style run made (host records of their own) + " << kFixedMiB
           << " MiB, and for RTF nested groups that each change the style 64 B per open group "
              "(the state saved for its closing brace); time limit "
           << int(timeout) << " s per case.\n"
           << "- Distances are not linear by nature (the work is the product of the lengths): "
              "a big operand against a short one is what must stay linear, and is what is "
              "measured.\n"
           << "- Held: RSS right after the call above the baseline, the result still alive (what "
              "the result costs the host, against what the call needed while it ran). Cases "
              "without a sized input (numbers, markers) have no ratio.\n"
           << "\n"
           << "| Method | Hard part | Input MiB | Output MiB | Elements | Baseline MiB | Extra "
              "MiB | Held MiB | Ratio | Bound MiB | Seconds | Result |\n"
           << "|---|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---|\n";
        for (const auto& r : rows) {
            const double extra = double(r.o.peakKiB - r.o.baselineKiB) * 1024;
            const double io = double(r.o.inputBytes + r.o.outputBytes);
            char ratio[32], secs[32];
            if (io >= double(MiB)) {
                snprintf(ratio, sizeof ratio, "%.2f", extra / io);
            } else {
                snprintf(ratio, sizeof ratio, "-");
            }
            snprintf(secs, sizeof secs, "%.2f", r.o.seconds);
            md << "| `" << escapeCell(r.c->declaration) << "` | " << escapeCell(r.c->hard) << " | "
               << mib(double(r.o.inputBytes)) << " | " << mib(double(r.o.outputBytes)) << " | "
               << r.o.elements << " | " << mib(double(r.o.baselineKiB) * 1024) << " | "
               << mib(extra) << " | " << mib(double(r.o.heldKiB - r.o.baselineKiB) * 1024) << " | "
               << ratio << " | " << mib(r.allowedMiB * double(MiB)) << " | " << secs << " | "
               << (r.passed ? "ok" : "**" + escapeCell(r.verdict) + "**") << " |\n";
        }
        for (const auto& d : missing)
            md << "| `" << escapeCell(d) << "` | | | | | | | | | | | **no case** |\n";
        md << "\n" << passed << " passed, " << failed << " failed\n";
    }
    printf("%d passed, %d failed\n", passed, failed);
    return failed == 0 ? 0 : 1;
}
