// The emulated host's strings: layout, reference counting, encodings and conversions, Len and
// LenB, comparison. Runs against the fixture plugin, through the services the resolver hands out.
#include <iconv.h>

#include <cstring>
#include <optional>
#include <random>
#include <set>

#include "Encodings.h"
#include "HostFixture.h"

using namespace kxt_test;
namespace enc = xhost::encodings;

namespace {

using BuildFn = REALstring (*)(const char*, int32_t, uint32_t);
using BuildRawFn = REALstring (*)(const char*, int32_t);
using StringFn = void (*)(REALstring);

constexpr uint32_t kUTF8 = kREALTextEncodingUTF8;
constexpr uint32_t kNone = kREALTextEncodingUnknown;

class HostStrings : public FixtureHostTest {
  protected:
    REALstring build(std::string_view bytes, uint32_t encoding) {
        return service<BuildFn>("REALBuildStringWithEncoding")(
            bytes.data(), static_cast<int32_t>(bytes.size()), encoding);
    }
    void unlock(REALstring s) { service<StringFn>("REALUnlockString")(s); }
};

TEST_F(HostStrings, BytesSitAtTheFixedOffsetFollowedByAZeroByte) {
    for (std::string_view text : {"", "a", "hello world", "with\0zero"}) {
        REALstring s = build(text, kUTF8);
        ASSERT_NE(s, nullptr);
        const char* inline_ = reinterpret_cast<const char*>(s) + kREALStringDataOffset;
        EXPECT_EQ(std::string_view(inline_, text.size()), text);
        EXPECT_EQ(inline_[text.size()], '\0');
        EXPECT_EQ(service<const char* (*)(REALstring)>("StringGetCString")(s), inline_);
        EXPECT_EQ(service<uint32_t (*)(REALstring)>("REALGetStringEncoding")(s), kUTF8);
        unlock(s);
    }
}

TEST_F(HostStrings, BuildStringHasNoEncodingAndRejectsBadLengths) {
    auto buildRaw = service<BuildRawFn>("REALBuildString");
    REALstring s = buildRaw("ab", 2);
    EXPECT_EQ(service<uint32_t (*)(REALstring)>("REALGetStringEncoding")(s), kNone);
    unlock(s);
    EXPECT_EQ(buildRaw("ab", -1), nullptr);
    EXPECT_EQ(buildRaw(nullptr, 3), nullptr);
    EXPECT_EQ(host().liveStrings(), 0u);
}

TEST_F(HostStrings, ReferencesAreCountedAndTheLastReleaseFrees) {
    auto lock = service<StringFn>("REALLockString");
    REALstring s = build("x", kUTF8);
    EXPECT_EQ(host().liveStrings(), 1u);
    lock(s);
    lock(s);
    unlock(s);
    unlock(s);
    EXPECT_EQ(host().liveStrings(), 1u);
    unlock(s);
    EXPECT_EQ(host().liveStrings(), 0u);
}

TEST(HostStringMisuse, ReleasingADeadHandleIsRecordedNotFatal) {
    xhost::Host host(fixtureOptions());
    REALstring s = service<BuildFn>("REALBuildStringWithEncoding")("x", 1, kUTF8);
    service<StringFn>("REALUnlockString")(s);
    service<StringFn>("REALUnlockString")(s);
    service<StringFn>("REALLockString")(reinterpret_cast<REALstring>(&host));
    EXPECT_EQ(host.misuses().size(), 2u);
    EXPECT_EQ(host.liveStrings(), 0u);
}

TEST_F(HostStrings, SetEncodingRelabelsWithoutTouchingTheBytes) {
    REALstring s = build("\xE9", kREALTextEncodingISOLatin1);
    service<void (*)(REALstring, uint32_t)>("REALSetStringEncoding")(s, kNone);
    EXPECT_EQ(service<uint32_t (*)(REALstring)>("REALGetStringEncoding")(s), kNone);
    EXPECT_EQ(std::string_view(service<const char* (*)(REALstring)>("StringGetCString")(s)),
              "\xE9");
    unlock(s);
}

// ---- Conversions ------------------------------------------------------------------------------

struct ConversionCase {
    std::string bytes;
    uint32_t from, to;
    std::optional<std::string> expected;  // nullopt: the conversion fails
};

const ConversionCase kConversions[] = {
    // é from UTF-8 into each family
    {"caf\xC3\xA9", kUTF8, kREALTextEncodingISOLatin1, "caf\xE9"},
    {"caf\xC3\xA9", kUTF8, kREALTextEncodingWindowsLatin1, "caf\xE9"},
    {"caf\xC3\xA9", kUTF8, kREALTextEncodingMacRoman, "caf\x8E"},
    {"caf\xC3\xA9", kUTF8, kREALTextEncodingASCII, "caf?"},
    {"\xC3\xA9", kUTF8, kREALTextEncodingUTF16, std::string("\xE9\0", 2)},
    {"\xC3\xA9", kUTF8, kREALTextEncodingUTF16LE, std::string("\xE9\0", 2)},
    {"\xC3\xA9", kUTF8, kREALTextEncodingUTF16BE, std::string("\0\xE9", 2)},
    {"\xC3\xA9", kUTF8, kREALTextEncodingUTF32, std::string("\xE9\0\0\0", 4)},
    {"\xC3\xA9", kUTF8, kREALTextEncodingUTF32BE, std::string("\0\0\0\xE9", 4)},
    {"\xC3\xA9", kUTF8, kREALTextEncodingUTF32LE, std::string("\xE9\0\0\0", 4)},
    // outside the BMP: a surrogate pair, or one "?" per code point
    {"\xF0\x9F\x98\x80", kUTF8, kREALTextEncodingUTF16, std::string("\x3D\xD8\x00\xDE", 4)},
    {"\xF0\x9F\x98\x80!", kUTF8, kREALTextEncodingISOLatin1, "?!"},
    {std::string("\x3D\xD8\x00\xDE", 4), kREALTextEncodingUTF16, kUTF8, "\xF0\x9F\x98\x80"},
    // the euro sign differs between the single-byte pages
    {"\xE2\x82\xAC", kUTF8, kREALTextEncodingWindowsLatin1, "\x80"},
    {"\xE2\x82\xAC", kUTF8, kREALTextEncodingISOLatin1, "?"},
    {"\xE2\x82\xAC", kUTF8, kREALTextEncodingMacRoman, "\xDB"},
    {"\xE2\x82\xAC", kUTF8, 0x400, "?"},
    {"\x80", kREALTextEncodingWindowsLatin1, kUTF8, "\xE2\x82\xAC"},
    // code pages of the RTF reader
    {"\x82", 0x400, kUTF8, "\xC3\xA9"},          // CP437 é
    {"\xC0", 0x502, kUTF8, "\xD0\x90"},          // CP1251 А
    {"\xE1", 0x503, kUTF8, "\xCE\xB1"},          // CP1253 α
    {"\x82\xA0", 0x420, kUTF8, "\xE3\x81\x82"},  // Shift JIS あ
    {"\xB0\xA1", 0x421, kUTF8, "\xE5\x95\x8A"},  // GBK 啊
    {"\x80", 7, kUTF8, "\xD0\x90"},              // Mac Cyrillic А
    {"\x80", 29, kUTF8, "\xC3\x84"},             // Mac Central European Ä
    {"\xDA", 35, kUTF8, "\xC4\x9E"},             // Mac Turkish Ğ
    {"\xE1", 6, kUTF8, "\xCE\xB1"},              // Mac Greek α
    {"\xCE\xB1", kUTF8, 6, "\xE1"},
    // invalid sources fail
    {"\x81", kREALTextEncodingWindowsLatin1, kUTF8, std::nullopt},
    {"\xFF", kUTF8, kREALTextEncodingUTF16, std::nullopt},
    {"a\xC3", kUTF8, kREALTextEncodingUTF16, std::nullopt},
    {"\xED\xA0\x80", kUTF8, kREALTextEncodingUTF16, std::nullopt},
    {"\xC0\xAF", kUTF8, kREALTextEncodingUTF16, std::nullopt},
    {"abc", kREALTextEncodingUTF16, kUTF8, std::nullopt},
    {std::string("\x00\xD8", 2), kREALTextEncodingUTF16, kUTF8, std::nullopt},
    {"\x80", kREALTextEncodingASCII, kUTF8, std::nullopt},
    {"\x82", 0x420, kUTF8, std::nullopt},
    // no source encoding: the bytes pass unchanged, relabelled
    {"\xFF\xFE", kNone, kUTF8, "\xFF\xFE"},
    {"\xFF\xFE", kNone, kREALTextEncodingUTF16, "\xFF\xFE"},
    // same encoding: the bytes as they are
    {"\xC3\xA9", kUTF8, kUTF8, "\xC3\xA9"},
};

TEST_F(HostStrings, ConvertStringFollowsTheConversionTable) {
    auto convert = service<REALstring (*)(REALstring, uint32_t)>("REALConvertString");
    for (const ConversionCase& c : kConversions) {
        SCOPED_TRACE(::testing::PrintToString(c.bytes) + " " + enc::nameOf(c.from) + " -> " +
                     enc::nameOf(c.to));
        REALstring s = build(c.bytes, c.from);
        REALstring r = convert(s, c.to);
        if (!c.expected) {
            EXPECT_EQ(r, nullptr);
        } else {
            ASSERT_NE(r, nullptr);
            Value result = Value::adoptString(r);
            EXPECT_EQ(result.bytes(), *c.expected);
            EXPECT_EQ(result.encoding(), c.to);
        }
        unlock(s);
    }
}

TEST_F(HostStrings, GetStringDataFollowsTheSameTableAndIsCounted) {
    auto get = service<RBBoolean (*)(REALstring, uint32_t, REALstringData*)>("PluginGetStringData");
    auto dispose = service<void (*)(REALstringData*)>("PluginDisposeStringData");
    for (const ConversionCase& c : kConversions) {
        SCOPED_TRACE(::testing::PrintToString(c.bytes) + " " + enc::nameOf(c.from) + " -> " +
                     enc::nameOf(c.to));
        REALstring s = build(c.bytes, c.from);
        REALstringData d{};
        RBBoolean ok = get(s, c.to, &d);
        EXPECT_EQ(ok, c.expected.has_value());
        if (ok) {
            EXPECT_EQ(host().outstandingStringData(), 1u);
            EXPECT_EQ(std::string(static_cast<const char*>(d.data), d.length), *c.expected);
            EXPECT_EQ(static_cast<const char*>(d.data)[d.length], '\0');
            EXPECT_EQ(d.encoding, c.to);
            dispose(&d);
        }
        EXPECT_EQ(host().outstandingStringData(), 0u);
        unlock(s);
    }
}

TEST(HostStringMisuse, DisposingARecordTwiceIsRecorded) {
    xhost::Host host(fixtureOptions());
    REALstring s = service<BuildFn>("REALBuildStringWithEncoding")("x", 1, kUTF8);
    REALstringData d{};
    ASSERT_TRUE(service<RBBoolean (*)(REALstring, uint32_t, REALstringData*)>(
        "PluginGetStringData")(s, kUTF8, &d));
    REALstringData copy = d;
    service<void (*)(REALstringData*)>("PluginDisposeStringData")(&d);
    service<void (*)(REALstringData*)>("PluginDisposeStringData")(&copy);
    EXPECT_EQ(host.outstandingStringData(), 0u);
    EXPECT_EQ(host.misuses().size(), 1u);
    service<StringFn>("REALUnlockString")(s);
}

// Random text survives every Unicode form and back.
TEST(HostEncodings, UnicodeFormsRoundTrip) {
    std::mt19937 rng(1234);
    std::uniform_int_distribution<uint32_t> pick(0, 0x10FFFF);
    const uint32_t forms[] = {kUTF8,
                              kREALTextEncodingUTF16,
                              kREALTextEncodingUTF16BE,
                              kREALTextEncodingUTF16LE,
                              kREALTextEncodingUTF32,
                              kREALTextEncodingUTF32BE,
                              kREALTextEncodingUTF32LE};
    for (int round = 0; round < 200; ++round) {
        std::u32string text;
        for (int i = 0; i < 20; ++i) {
            char32_t c = pick(rng);
            if (c >= 0xD800 && c <= 0xDFFF) c -= 0x800;
            text.push_back(c);
        }
        for (uint32_t form : forms) {
            auto back = enc::decode(enc::encode(text, form), form);
            ASSERT_TRUE(back.has_value()) << "round " << round << " " << enc::nameOf(form);
            EXPECT_EQ(*back, text) << "round " << round << " " << enc::nameOf(form);
        }
    }
}

// The built-in Unicode encoders agree with the system's iconv.
// The direct conversions between the Unicode forms take the same decisions as going through
// code points: random text, valid and damaged, short and long, mostly ASCII or mixed, so the
// sixteen-byte steps meet every kind of neighbour.
TEST(HostEncodings, DirectUnicodeConversionsAgreeWithCodePoints) {
    namespace enc = xhost::encodings;
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

TEST(HostEncodings, UnicodeEncodersMatchIconv) {
    std::mt19937 rng(99);
    std::uniform_int_distribution<uint32_t> pick(0, 0x10FFFF);
    const std::pair<uint32_t, const char*> forms[] = {{kUTF8, "UTF-8"},
                                                      {kREALTextEncodingUTF16BE, "UTF-16BE"},
                                                      {kREALTextEncodingUTF16LE, "UTF-16LE"},
                                                      {kREALTextEncodingUTF32BE, "UTF-32BE"}};
    for (int round = 0; round < 100; ++round) {
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
            EXPECT_EQ(enc::encode(text, code), out) << "round " << round << " " << name;
        }
    }
}

// ---- Len, LenB, comparison --------------------------------------------------------------------

struct LengthCase {
    std::string bytes;
    uint32_t encoding;
    int64_t characters, bytesCount;
};

TEST_F(HostStrings, LenCountsCharactersInTheStringsEncodingAndLenBBytes) {
    const LengthCase cases[] = {
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
    auto len =
        reinterpret_cast<RBInteger (*)(REALstring)>(service<void* (*)(const char*, const char*)>(
            "REALLoadGlobalMethod")(nullptr, "Len(s as string) as integer"));
    auto lenB =
        reinterpret_cast<RBInteger (*)(REALstring)>(service<void* (*)(const char*, const char*)>(
            "REALLoadGlobalMethod")(nullptr, "LenB( s as string ) as integer"));
    ASSERT_NE(len, nullptr);
    ASSERT_NE(lenB, nullptr);
    for (const LengthCase& c : cases) {
        REALstring s = build(c.bytes, c.encoding);
        EXPECT_EQ(len(s), c.characters) << ::testing::PrintToString(c.bytes);
        EXPECT_EQ(lenB(s), c.bytesCount) << ::testing::PrintToString(c.bytes);
        unlock(s);
    }
    EXPECT_EQ(len(nullptr), 0);
    EXPECT_EQ(lenB(nullptr), 0);
}

TEST_F(HostStrings, FrameworkMethodsMatchIgnoringCaseAndBlanks) {
    auto load = service<void* (*)(const char*, const char*)>("REALLoadGlobalMethod");
    EXPECT_NE(load(nullptr, "LENB(S AS STRING) AS INTEGER"), nullptr);
    EXPECT_NE(load(nullptr, "  len ( s  as string )  as integer "), nullptr);
    EXPECT_EQ(load(nullptr, "Len(s as string) as double"), nullptr);
    EXPECT_EQ(load(nullptr, "Mid(s as string, start as integer) as string"), nullptr);
    EXPECT_EQ(load("SomeModule", "Len(s as string) as integer"), nullptr);
}

TEST_F(HostStrings, CompareIsByteWiseOverUTF8IgnoringASCIICase) {
    struct Case {
        std::string a;
        uint32_t ea;
        std::string b;
        uint32_t eb;
        int sign;
    };
    const Case cases[] = {
        {"abc", kUTF8, "ABC", kUTF8, 0},
        {"a", kUTF8, "b", kUTF8, -1},
        {"b", kUTF8, "A", kUTF8, 1},
        {"ab", kUTF8, "abc", kUTF8, -1},
        {"", kUTF8, "", kNone, 0},
        {"\xE9", kREALTextEncodingISOLatin1, "\xC3\xA9", kUTF8, 0},
        {"\xC3\x89", kUTF8, "\xC3\xA9", kUTF8, -1},  // only ASCII letters fold
    };
    auto compare = service<RBInteger (*)(REALstring, REALstring)>("RuntimeStringCompare");
    for (const Case& c : cases) {
        REALstring a = build(c.a, c.ea), b = build(c.b, c.eb);
        RBInteger r = compare(a, b);
        EXPECT_EQ((r > 0) - (r < 0), c.sign) << c.a << " vs " << c.b;
        unlock(a);
        unlock(b);
    }
    REALstring empty = build("", kUTF8);
    EXPECT_EQ(compare(nullptr, empty), 0);
    unlock(empty);
}

TEST(HostEncodings, NamesAndPrefixesResolve) {
    EXPECT_EQ(enc::byName("latin1"), kREALTextEncodingISOLatin1);
    EXPECT_EQ(enc::byName("UTF16BE"), kREALTextEncodingUTF16BE);
    EXPECT_EQ(enc::byName("raw"), kNone);
    EXPECT_EQ(enc::byName("klingon"), std::nullopt);
    EXPECT_EQ(enc::nameOf(kUTF8), "UTF-8");
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
                ASSERT_EQ(set.erase(p), reference.erase(p))
                    << "round " << round << " step " << step;
            } else {
                set.insert(p);
                reference.insert(p);
            }
            auto* q = reinterpret_cast<const void*>(uintptr_t(16 * (1 + rng() % range)));
            ASSERT_EQ(set.count(q), reference.count(q)) << "round " << round << " step " << step;
            ASSERT_EQ(set.size(), reference.size());
        }
        std::set<const void*> members(set.begin(), set.end());
        EXPECT_EQ(members, reference) << "round " << round;
        for (const void* p : reference) EXPECT_EQ(set.erase(p), 1u);
        EXPECT_TRUE(set.empty());
        EXPECT_EQ(set.count(nullptr), 0u);
        set.clear();
        EXPECT_EQ(set.begin() != set.end(), false);
    }
}
