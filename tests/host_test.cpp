// The emulated host as an oracle: its string services, conversions, accounting and declaration
// parser, called directly through the resolver with the real plugin loaded. Everything the
// plugin's own calls exercise (registration, overloads, calling conventions, exceptions, styled
// text) is left to the end-to-end tests of each family.
#include <iconv.h>

#include <optional>
#include <random>
#include <set>
#include <stdexcept>

#include "Encodings.h"
#include "HostInternal.h"
#include "KxtTest.h"
#include "XojoHostServices.h"

using namespace kxt_test;
namespace enc = xhost::encodings;

namespace {

constexpr uint32_t kUTF8 = kREALTextEncodingUTF8;
constexpr uint32_t kNone = kREALTextEncodingUnknown;

using kxt::abi::HostService;

// A host service through the resolver, typed as the service list declares it.
template <HostService S>
kxt::abi::HostServiceFunction<S> service() {
    const char* name = kxt::abi::HostServiceInfo<S>::name;
    void* p = xhost::resolve(name);
    if (p == nullptr) throw std::runtime_error(std::string("the resolver does not know ") + name);
    return reinterpret_cast<kxt::abi::HostServiceFunction<S>>(p);
}

REALstring build(std::string_view bytes, uint32_t encoding) {
    return service<HostService::REALBuildStringWithEncoding>()(
        bytes.data(), static_cast<int32_t>(bytes.size()), encoding);
}
void unlock(REALstring s) {
    service<HostService::REALUnlockString>()(s);
}

class HostServices : public HostTest {};

TEST_F(HostServices, StringsSitAtTheFixedOffsetAndAreCounted) {
    for (std::string_view text : {"", "a", "with\0zero"}) {
        REALstring s = build(text, kUTF8);
        const char* inline_ = reinterpret_cast<const char*>(s) + kREALStringDataOffset;
        EXPECT_EQ(std::string_view(inline_, text.size()), text);
        EXPECT_EQ(inline_[text.size()], '\0');
        EXPECT_EQ(service<HostService::StringGetCString>()(s), inline_);
        service<HostService::REALLockString>()(s);
        unlock(s);
        EXPECT_EQ(host().liveStrings(), 1u);
        unlock(s);
    }
    auto buildRaw = service<HostService::REALBuildString>();
    EXPECT_EQ(buildRaw("ab", -1), nullptr);
    EXPECT_EQ(buildRaw(nullptr, 3), nullptr);
}

// The accounting every end-to-end test relies on: a leak, an over-release, a foreign handle and
// a string-data record disposed twice are all visible.
TEST(HostAccounting, LeaksAndMisusesAreVisible) {
    xhost::Host host;
    REALstring kept = build("kept by the plugin", kUTF8);
    EXPECT_EQ(host.liveStrings(), 1u);
    EXPECT_NE(host.describeLive().find("kept by the plugin"), std::string::npos);
    REALstringData d{};
    ASSERT_TRUE(service<HostService::PluginGetStringData>()(kept, kUTF8, &d));
    EXPECT_EQ(host.outstandingStringData(), 1u);
    REALstringData copy = d;
    service<HostService::PluginDisposeStringData>()(&d);
    service<HostService::PluginDisposeStringData>()(&copy);
    EXPECT_EQ(host.outstandingStringData(), 0u);
    EXPECT_EQ(host.misuses().size(), 1u);
    unlock(kept);
    unlock(kept);
    service<HostService::REALLockString>()(reinterpret_cast<REALstring>(&host));
    EXPECT_EQ(host.misuses().size(), 3u);
    EXPECT_EQ(host.liveStrings(), 0u);
}

// A service whose own allocation fails answers with its neutral result and says so.
TEST_F(HostServices, AnAllocationFailingInsideAServiceGivesItsNeutralResult) {
#ifdef KXT_SANITIZED
    GTEST_SKIP() << "AddressSanitizer ends the process on an allocation this size";
#endif
    auto create = service<HostService::RuntimeArrayCreateSingleDimBoundedArray>();
    // More elements than the address space can hold.
    EXPECT_EQ(create(kREALArrayTypeString, RBInteger(1) << 45), nullptr);
    EXPECT_EQ(host().serviceFailures(), 1u);
}

struct ConversionCase {
    std::string bytes;
    uint32_t from, to;
    std::optional<std::string> expected;  // nullopt: the conversion fails
};

const ConversionCase kConversions[] = {
    {"caf\xC3\xA9", kUTF8, kREALTextEncodingISOLatin1, "caf\xE9"},
    {"caf\xC3\xA9", kUTF8, kREALTextEncodingWindowsLatin1, "caf\xE9"},
    {"caf\xC3\xA9", kUTF8, kREALTextEncodingMacRoman, "caf\x8E"},
    {"caf\xC3\xA9", kUTF8, kREALTextEncodingASCII, "caf?"},
    {"\xC3\xA9", kUTF8, kREALTextEncodingUTF16, std::string("\xE9\0", 2)},
    {"\xC3\xA9", kUTF8, kREALTextEncodingUTF16BE, std::string("\0\xE9", 2)},
    {"\xC3\xA9", kUTF8, kREALTextEncodingUTF32, std::string("\xE9\0\0\0", 4)},
    {"\xC3\xA9", kUTF8, kREALTextEncodingUTF32BE, std::string("\0\0\0\xE9", 4)},
    // outside the BMP: a surrogate pair, or one "?" per code point
    {"\xF0\x9F\x98\x80", kUTF8, kREALTextEncodingUTF16, std::string("\x3D\xD8\x00\xDE", 4)},
    {"\xF0\x9F\x98\x80!", kUTF8, kREALTextEncodingISOLatin1, "?!"},
    {std::string("\x3D\xD8\x00\xDE", 4), kREALTextEncodingUTF16, kUTF8, "\xF0\x9F\x98\x80"},
    // the euro sign differs between the single-byte pages
    {"\xE2\x82\xAC", kUTF8, kREALTextEncodingWindowsLatin1, "\x80"},
    {"\xE2\x82\xAC", kUTF8, kREALTextEncodingISOLatin1, "?"},
    {"\xE2\x82\xAC", kUTF8, kREALTextEncodingMacRoman, "\xDB"},
    {"\x80", kREALTextEncodingWindowsLatin1, kUTF8, "\xE2\x82\xAC"},
    // code pages of the RTF reader
    {"\x82", 0x400, kUTF8, "\xC3\xA9"},          // CP437 é
    {"\xC0", 0x502, kUTF8, "\xD0\x90"},          // CP1251 А
    {"\x82\xA0", 0x420, kUTF8, "\xE3\x81\x82"},  // Shift JIS あ
    {"\xB0\xA1", 0x421, kUTF8, "\xE5\x95\x8A"},  // GBK 啊
    {"\x80", 7, kUTF8, "\xD0\x90"},              // Mac Cyrillic А
    {"\xDA", 35, kUTF8, "\xC4\x9E"},             // Mac Turkish Ğ
    {"\xCE\xB1", kUTF8, 6, "\xE1"},              // Mac Greek α
    // invalid sources fail
    {"\x81", kREALTextEncodingWindowsLatin1, kUTF8, std::nullopt},
    {"\xFF", kUTF8, kREALTextEncodingUTF16, std::nullopt},
    {"a\xC3", kUTF8, kREALTextEncodingUTF16, std::nullopt},
    {"\xED\xA0\x80", kUTF8, kREALTextEncodingUTF16, std::nullopt},
    {"\xC0\xAF", kUTF8, kREALTextEncodingUTF16, std::nullopt},
    {"\xE0\x80\xAF", kUTF8, kREALTextEncodingUTF16, std::nullopt},  // overlong
    {"\xF0\x8F\xBF\xBF", kUTF8, kREALTextEncodingUTF32, std::nullopt},
    {"\xF4\x90\x80\x80", kUTF8, kREALTextEncodingUTF16, std::nullopt},  // past U+10FFFF
    {"abc", kREALTextEncodingUTF16, kUTF8, std::nullopt},
    {std::string("\x00\xD8", 2), kREALTextEncodingUTF16, kUTF8, std::nullopt},
    {"\x80", kREALTextEncodingASCII, kUTF8, std::nullopt},
    {"\x82", 0x420, kUTF8, std::nullopt},
    // no source encoding: the bytes pass unchanged, relabelled; same encoding: as they are
    {"\xFF\xFE", kNone, kREALTextEncodingUTF16, "\xFF\xFE"},
    {"\xC3\xA9", kUTF8, kUTF8, "\xC3\xA9"},
};

// REALConvertString and PluginGetStringData follow the same table.
TEST_F(HostServices, ConversionsFollowTheTable) {
    auto convert = service<HostService::REALConvertString>();
    auto get = service<HostService::PluginGetStringData>();
    auto dispose = service<HostService::PluginDisposeStringData>();
    for (const ConversionCase& c : kConversions) {
        SCOPED_TRACE(::testing::PrintToString(c.bytes) + " " + enc::nameOf(c.from) + " -> " +
                     enc::nameOf(c.to));
        REALstring s = build(c.bytes, c.from);
        REALstring r = convert(s, c.to);
        EXPECT_EQ(r != nullptr, c.expected.has_value());
        if (r != nullptr) {
            Value result = Value::adoptString(r);
            EXPECT_EQ(result.bytes(), *c.expected);
            EXPECT_EQ(result.encoding(), c.to);
        }
        REALstringData d{};
        RBBoolean ok = get(s, c.to, &d);
        EXPECT_EQ(ok, c.expected.has_value());
        if (ok) {
            EXPECT_EQ(std::string(static_cast<const char*>(d.data), d.length), *c.expected);
            EXPECT_EQ(static_cast<const char*>(d.data)[d.length], '\0');
            EXPECT_EQ(d.encoding, c.to);
            dispose(&d);
        }
        unlock(s);
    }
}

// The Unicode encoders against iconv, and decoding undoes them.
TEST(HostEncodings, UnicodeFormsMatchIconvAndRoundTrip) {
    std::mt19937 rng(99);
    std::uniform_int_distribution<uint32_t> pick(0, 0x10FFFF);
    const std::pair<uint32_t, const char*> forms[] = {{kUTF8, "UTF-8"},
                                                      {kREALTextEncodingUTF16, "UTF-16LE"},
                                                      {kREALTextEncodingUTF16BE, "UTF-16BE"},
                                                      {kREALTextEncodingUTF16LE, "UTF-16LE"},
                                                      {kREALTextEncodingUTF32, "UTF-32LE"},
                                                      {kREALTextEncodingUTF32BE, "UTF-32BE"},
                                                      {kREALTextEncodingUTF32LE, "UTF-32LE"}};
    for (int round = 0; round < 200; ++round) {
        std::u32string text;
        for (int i = 0; i < 16; ++i) {
            char32_t c = pick(rng);
            text.push_back(c >= 0xD800 && c <= 0xDFFF ? c + 0x800 : c);
        }
        std::string utf32le(reinterpret_cast<const char*>(text.data()), text.size() * 4);
        for (auto [code, name] : forms) {
            iconv_t cd = iconv_open(name, "UTF-32LE");
            std::string out(text.size() * 4 + 8, '\0');
            char* in = utf32le.data();
            size_t inLeft = utf32le.size(), outLeft = out.size();
            char* dst = out.data();
            ASSERT_NE(iconv(cd, &in, &inLeft, &dst, &outLeft), static_cast<size_t>(-1));
            iconv_close(cd);
            out.resize(out.size() - outLeft);
            ASSERT_EQ(enc::encode(text, code), out) << "round " << round << " " << name;
            EXPECT_EQ(enc::decode(out, code), text) << "round " << round << " " << name;
        }
    }
}

// The direct conversions between the Unicode forms take the same decisions as going through
// code points: random text, valid and damaged, short and long, mostly ASCII or mixed, so the
// sixteen-byte steps meet every kind of neighbour.
TEST(HostEncodings, DirectUnicodeConversionsAgreeWithCodePoints) {
    const uint32_t kForms[] = {kREALTextEncodingUTF8, kREALTextEncodingUTF16,
                               kREALTextEncodingUTF16LE, kREALTextEncodingUTF32,
                               kREALTextEncodingUTF32LE};
    const char32_t kPoints[] = {U'a',  U'Z',   U' ',   0x7F,   0x80,    0xE9,    0x7FF,
                                0x800, 0x4E2D, 0xFFFD, 0xFFFF, 0x10000, 0x1F600, 0x10FFFF};
    std::mt19937 rng(99);
    for (int round = 0; round < 4000; ++round) {
        std::u32string text;
        for (size_t k = 0, n = rng() % (round % 2 ? 40 : 120); k < n; ++k) {
            text += rng() % (round % 2 ? 3 : 12) ? char32_t('a' + rng() % 26)
                                                 : kPoints[rng() % std::size(kPoints)];
        }
        for (uint32_t from : kForms) {
            std::string bytes = enc::encode(text, from);
            if (!bytes.empty() && rng() % 3 == 0) bytes[rng() % bytes.size()] = char(rng());
            if (!bytes.empty() && rng() % 8 == 0) bytes.pop_back();
            for (uint32_t to : kForms) {
                const auto points = enc::decode(bytes, from);
                const std::optional<std::string> expected =
                    from == to ? std::optional<std::string>(bytes)
                    : points   ? std::optional<std::string>(enc::encode(*points, to))
                               : std::nullopt;
                ASSERT_EQ(enc::convert(bytes, from, to), expected)
                    << testing::PrintToString(bytes) << " from " << from << " to " << to;
            }
        }
    }
}

// Code pages read through their byte tables read exactly as iconv does: every byte alone, and
// random strings over a few bytes at a time, so that most are valid and every neighbour meets.
TEST(HostEncodings, ByteTablesReadAsIconv) {
    std::mt19937 rng(5);
    int tables = 0;
    for (const enc::EncodingInfo& info : enc::all()) {
        if (!enc::readByTable(info.code)) continue;
        ++tables;
        for (int round = 0; round < 2000; ++round) {
            std::string alphabet, bytes;
            for (int k = 0; k < 6; ++k) alphabet += char(rng());
            for (size_t k = 0, n = round < 256 ? 1 : rng() % 24; k < n; ++k) {
                bytes += round < 256 ? char(round) : alphabet[rng() % alphabet.size()];
            }
            ASSERT_EQ(enc::decode(bytes, info.code), enc::decodeWithIconv(bytes, info.code))
                << info.name << " " << testing::PrintToString(bytes);
            ASSERT_EQ(enc::characterCount(bytes, info.code), int64_t(bytes.size()));
        }
    }
    // The Windows, DOS and Mac code pages without composition or double bytes.
    EXPECT_TRUE(enc::readByTable(kREALTextEncodingWindowsLatin1));
    EXPECT_FALSE(enc::readByTable(kREALTextEncodingWindowsVietnamese));
    EXPECT_FALSE(enc::readByTable(kREALTextEncodingDOSJapanese));
    EXPECT_GE(tables, 20);
}

// Len and LenB as the plugin loads them, and the runtime's string comparison.
TEST_F(HostServices, LenLenBAndCompare) {
    const struct {
        std::string bytes;
        uint32_t encoding;
        int64_t characters, bytesCount;
    } lengths[] = {
        {"", kUTF8, 0, 0},
        {"caf\xC3\xA9", kUTF8, 4, 5},
        {"\xF0\x9F\x98\x80", kUTF8, 1, 4},
        {std::string("a\0\x3D\xD8\x00\xDE", 6), kREALTextEncodingUTF16, 2, 6},
        {std::string("\0a\xD8\x3D\xDE\x00", 6), kREALTextEncodingUTF16BE, 2, 6},
        {std::string("a\0\0\0b\0\0\0", 8), kREALTextEncodingUTF32, 2, 8},
        {"\xE9\xE9", kREALTextEncodingISOLatin1, 2, 2},
        {"\xC3\xA9", kNone, 2, 2},
        {"\x82\xA0"
         "a",
         0x420, 2, 3},
    };
    auto load = service<HostService::REALLoadGlobalMethod>();
    auto len = reinterpret_cast<RBInteger (*)(REALstring)>(
        load(nullptr, "  len ( s  as string )  as integer "));
    auto lenB =
        reinterpret_cast<RBInteger (*)(REALstring)>(load(nullptr, "LENB(S AS STRING) AS INTEGER"));
    ASSERT_NE(len, nullptr);
    ASSERT_NE(lenB, nullptr);
    EXPECT_EQ(load(nullptr, "Len(s as string) as double"), nullptr);
    EXPECT_EQ(load("SomeModule", "Len(s as string) as integer"), nullptr);
    for (const auto& c : lengths) {
        REALstring s = build(c.bytes, c.encoding);
        EXPECT_EQ(len(s), c.characters) << ::testing::PrintToString(c.bytes);
        EXPECT_EQ(lenB(s), c.bytesCount) << ::testing::PrintToString(c.bytes);
        unlock(s);
    }
    EXPECT_EQ(len(nullptr), 0);

    const struct {
        std::string a;
        uint32_t ea;
        std::string b;
        uint32_t eb;
        int sign;
    } comparisons[] = {
        {"abc", kUTF8, "ABC", kUTF8, 0},
        {"a", kUTF8, "b", kUTF8, -1},
        {"b", kUTF8, "A", kUTF8, 1},
        {"ab", kUTF8, "abc", kUTF8, -1},
        {"", kUTF8, "", kNone, 0},
        {"\xE9", kREALTextEncodingISOLatin1, "\xC3\xA9", kUTF8, 0},
        {"\xC3\x89", kUTF8, "\xC3\xA9", kUTF8, -1},  // only ASCII letters fold
    };
    auto compare = service<HostService::RuntimeStringCompare>();
    for (const auto& c : comparisons) {
        REALstring a = build(c.a, c.ea), b = build(c.b, c.eb);
        RBInteger r = compare(a, b);
        EXPECT_EQ((r > 0) - (r < 0), c.sign) << c.a << " vs " << c.b;
        unlock(a);
        unlock(b);
    }
}

TEST(HostEncodings, NamesAndCodePagesResolve) {
    EXPECT_EQ(enc::byName("latin1"), kREALTextEncodingISOLatin1);
    EXPECT_EQ(enc::byName("UTF16BE"), kREALTextEncodingUTF16BE);
    EXPECT_EQ(enc::byName("raw"), kNone);
    EXPECT_EQ(enc::byName("klingon"), std::nullopt);
    EXPECT_EQ(enc::nameOf(0x12345), "unknown (0x12345)");
    // Every code page of the RTF reader's table is known.
    for (uint32_t code :
         {0x400u, 0x410u, 0x412u, 0x415u, 0x417u, 0x418u, 0x419u, 0x41Au, 0x41Bu, 0x41Du, 0x420u,
          0x421u, 0x422u, 0x423u, 0x501u, 0x502u, 0x500u, 0x503u, 0x504u, 0x505u, 0x506u, 0x507u,
          0x508u, 0x510u, 0u,     1u,     4u,     5u,     6u,     7u,     29u,    35u}) {
        EXPECT_TRUE(enc::isKnown(code)) << code;
        EXPECT_TRUE(enc::decode("abc", code).has_value()) << code;
    }
}

// The declaration parser, which types every call: what it reads and what it refuses.
TEST(Declarations, ParseAndReject) {
    const struct {
        std::string text, expected;  // name(params)result, params as [>]name:type[=default][<]
    } cases[] = {
        {"HexstringKXT(input as string, hexlen as integer, linelen as integer, linestart as "
         "string, lineend as string, spacer as string,filler as string) as string",
         "HexstringKXT(input:String,hexlen:Integer,linelen:Integer,linestart:String,lineend:"
         "String,spacer:String,filler:String)String"},
        {"GetStringsFromDataKXT(data as ptr, size as Integer, MinLength as Integer = 0) as "
         "string()",
         "GetStringsFromDataKXT(data:Ptr,size:Integer,MinLength:Integer=0)String()"},
        {"_yDecodeMemoryKXT(data as memoryblock) as memoryblock",
         "_yDecodeMemoryKXT(data:MemoryBlock)MemoryBlock"},
        {"JaroWinklerDistanceKXT(a as string, b as string) as double",
         "JaroWinklerDistanceKXT(a:String,b:String)Double"},
        {"RTFDataKXT(extends ref as StyledText, SkipParagraphs as boolean = false, assigns value "
         "as string)",
         "RTFDataKXT(>ref:StyledText,SkipParagraphs:Boolean=false,value:String<)"},
        {"Foo as Integer", "Foo()Integer"},
        {"  Concat ( a AS STRING , b As String = \"!\" )  AS String ",
         "Concat(a:String,b:String=\"!\")String"},
    };
    for (const auto& c : cases) {
        xhost::Declaration d = xhost::parseDeclaration(c.text);
        std::string got = d.name + "(";
        for (const auto& p : d.params) {
            if (&p != &d.params.front()) got += ",";
            got += (p.extends ? ">" : "") + p.name + ":" + p.type +
                   (p.defaultValue ? "=" + *p.defaultValue : "") + (p.assigns ? "<" : "");
        }
        EXPECT_EQ(got + ")" + d.resultType, c.expected) << c.text;
    }
    for (const char* text :
         {"Foo(extends ref as C, , assigns value)", "Foo(a as)", "Foo(a integer)",
          "Foo(a as integer", "(a as integer)", "Foo(a as integer) integer",
          "Foo(a as integer, extends b as C)", "Foo(assigns a as integer, b as T)",
          "Foo(a as integer =)", "", "Foo(1a as integer)"}) {
        EXPECT_THROW(xhost::parseDeclaration(text), std::invalid_argument) << text;
    }
}

TEST(HostLifetime, ValuesOutliveTheirHostSafely) {
    Value stale;
    {
        xhost::Host host;
        stale = Value::string("left behind");
    }
    EXPECT_EQ(xhost::Host::current(), nullptr);
    EXPECT_THROW(stale.bytes(), std::logic_error);
    EXPECT_THROW(Value::string("no host"), std::logic_error);
    xhost::HostOptions missing;
    missing.pluginPath = "/nonexistent/plugin.so";
    xhost::Host host;
    EXPECT_THROW(xhost::Host bad(missing), std::runtime_error);
    EXPECT_EQ(xhost::Host::current(), &host);  // a host that fails to load changes nothing
}

}  // namespace

// The host's set of live handles against std::set: random inserts and erases (many colliding
// in the low bits, as aligned allocations do), membership, size and iteration after each step.
TEST(HandleSet, AgreesWithAnOrderedSet) {
    std::mt19937_64 rng(20241123);
    for (int round = 0; round < 20; ++round) {
        xhost::HandleSet<const void*> set;
        std::set<const void*> reference;
        const uint64_t range = round % 2 ? 64 : 5000;
        for (int step = 0; step < 4000; ++step) {
            auto* p = reinterpret_cast<const void*>(uintptr_t(16 * (1 + rng() % range)));
            if (rng() % 3 == 0) {
                ASSERT_EQ(set.erase(p), reference.erase(p)) << round << " " << step;
            } else {
                set.insert(p);
                reference.insert(p);
            }
            auto* q = reinterpret_cast<const void*>(uintptr_t(16 * (1 + rng() % range)));
            ASSERT_EQ(set.count(q), reference.count(q)) << round << " " << step;
            ASSERT_EQ(set.size(), reference.size());
        }
        EXPECT_EQ(std::set<const void*>(set.begin(), set.end()), reference) << round;
        for (const void* p : reference) EXPECT_EQ(set.erase(p), 1u);
        EXPECT_TRUE(set.empty());
    }
}
