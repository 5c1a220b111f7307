// Percent-encoding: the plain functions and the registered methods through the host.
#include <algorithm>
#include <random>

#include "KxtTest.h"
#include "URLencoding.h"

using namespace kxt_test;

namespace {

struct EncodeCase {
    std::string input;
    int options;
    std::string expected;
};

TEST(URLEncode, ModesChooseHowSpaceAndPlusAreWritten) {
    const EncodeCase cases[] = {
        {"a b+c", 0, "a%20b+c"},  {"a b+c", 1, "a+b%2Bc"}, {"a b+c", 2, "a%20b%2Bc"},
        {"a b+c", 3, "a%20b+c"},  {"a b+c", 4, "a%20b+c"}, {"a b+c", 5, "a+b%2Bc"},
        {"a b+c", -1, "a%20b+c"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(kxt::encodeURL(c.input, c.options), c.expected) << c.input << " / " << c.options;
    }
}

TEST(URLEncode, EveryByteFollowsTheTable) {
    // A reference written from the rule, independent of the table.
    for (int b = 0; b < 256; ++b) {
        std::string in(1, char(b));
        bool literal = isalnum(b) && b < 128;
        literal = literal || std::string_view("!*+-.@_~").find(char(b)) != std::string_view::npos;
        char hex[4];
        snprintf(hex, sizeof hex, "%%%02X", b);
        EXPECT_EQ(kxt::encodeURL(in, 0), literal ? in : std::string(hex)) << b;
    }
}

struct DecodeCase {
    std::string input;
    int options;
    std::string expected;
};

TEST(URLDecode, ReadsEscapesWithoutValidation) {
    const DecodeCase cases[] = {
        {"a+b", 0, "a+b"},
        {"a+b", 1, "a b"},
        {"a+b", 2, "a+b"},
        {"a+b", 3, "a b"},
        {"%41%4a%4A", 0, "AJJ"},
        {"%G1", 0, std::string(1, '\x01')},
        {"%zz", 0, std::string(1, '\0')},
        {"%4z", 0, "@"},
        {"%C3%A9", 0, "\xC3\xA9"},
        // Missing digits at the end read as 0 and nothing past the input is touched.
        {"%", 0, std::string(1, '\0')},
        {"a%4", 0, std::string("a@")},
        {"ab%", 0, std::string("ab") + '\0'},
        {"%%41", 0, std::string(1, '\x04') + "1"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(kxt::decodeURL(c.input, c.options), c.expected) << c.input << " / " << c.options;
    }
}

TEST(URLRoundTrip, DecodingUndoesEncodingForEveryMode) {
    std::mt19937 rng(20241111);
    for (int round = 0; round < 2000; ++round) {
        std::string in(rng() % 64, '\0');
        for (char& ch : in) ch = char(rng());
        for (int mode : {0, 1, 2}) {
            // Mode 0 keeps "+" literal, which its decoder (options 0) leaves alone too.
            ASSERT_EQ(kxt::decodeURL(kxt::encodeURL(in, mode).view(), mode), in) << "mode " << mode;
        }
    }
}

// Long texts, where the decoder copies sixteen bytes a step between escapes and the encoder
// works from a per-call table: the same as reading and writing byte by byte.
TEST(URLProperty, LongTextsAgreeWithByteByByte) {
    auto value = [](unsigned char c) {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return 0;
    };
    auto decodeByteByByte = [&](const std::string& s, int options) {
        std::string out;
        for (size_t i = 0; i < s.size();) {
            if (s[i] == '%') {
                const int high = i + 1 < s.size() ? value(uint8_t(s[i + 1])) : 0;
                const int low = i + 2 < s.size() ? value(uint8_t(s[i + 2])) : 0;
                out += char(high * 16 + low);
                i += 3;
            } else {
                out += (s[i] == '+' && (options & 1)) ? ' ' : s[i];
                ++i;
            }
        }
        return out;
    };
    const std::string pieces = "%%%++abcXYZ019 ~.-_!*@'()";
    std::mt19937 rng(1611);
    for (int round = 0; round < 3000; ++round) {
        std::string in(rng() % 120, '\0');
        // Raw bytes in half the rounds; in the others at most one high byte, so that the
        // decoder's ASCII answer meets both outcomes in every place of its steps.
        for (char& ch : in) {
            ch = round % 2 == 0 && rng() % 4 == 0 ? char(rng()) : pieces[rng() % pieces.size()];
        }
        if (round % 4 == 1 && !in.empty()) in[rng() % in.size()] = char(0xC3);
        const int options = int(rng() % 4);
        bool ascii = false;
        const std::string expectedDecoded = decodeByteByByte(in, options);
        ASSERT_EQ(kxt::decodeURL(in, options, &ascii), expectedDecoded)
            << testing::PrintToString(in) << " options " << options;
        ASSERT_EQ(ascii, std::all_of(expectedDecoded.begin(), expectedDecoded.end(),
                                     [](char c) { return uint8_t(c) < 0x80; }))
            << testing::PrintToString(in) << " options " << options;
        std::string expected;
        for (char ch : in) expected += kxt::encodeURL(std::string(1, ch), options).view();
        ASSERT_EQ(kxt::encodeURL(in, options), expected) << testing::PrintToString(in);
    }
}

// The escape kernel, as this build dispatches it and as its portable twin, against the byte
// loop: random text of every length up to a few blocks, each byte drawn from the ones whose
// handling differs (literal, escaped, space and plus, high) or any at all, in every mode; and
// output room that ends anywhere.
TEST(URLProperty, EscapeKernelsAgreeWithTheByteLoop) {
    const std::string pieces = " +aZ09~.-_!*@'()%\x01\x7F\x80\xFF";
    std::mt19937 rng(77);
    for (int round = 0; round < 4000; ++round) {
        std::string in(rng() % 100, '\0');
        for (char& ch : in) ch = round % 3 ? pieces[rng() % pieces.size()] : char(rng());
        if (round % 5 == 0) std::fill(in.begin(), in.end(), 'x');  // blocks without escapes
        const int options = int(rng() % 4);
        ASSERT_EQ(kxt::encodeURL(in, options), kxt::encodeURLPlain(in, options).view())
            << testing::PrintToString(in) << " options " << options;
        std::string out(in.size() * 3 + 64, '?');
        const size_t room = rng() % out.size();
        const auto done = kxt::simd::escapeBlocksWith<kxt::simd::Plain>(
            reinterpret_cast<const uint8_t*>(in.data()), in.size(), out.data(), room,
            kxt::urlEscapeClass(options));
        ASSERT_EQ(done.read % 16, 0u);
        ASSERT_EQ(out.find_first_not_of('?', room), std::string::npos) << "wrote past the room";
        ASSERT_EQ(out.substr(0, done.written),
                  kxt::encodeURLPlain(in.substr(0, done.read), options).view())
            << testing::PrintToString(in) << " options " << options;
    }
}

TEST(URLDecode, TrailingPercentNeverReadsPastTheInput) {
    // The view ends before the bytes that follow in memory.
    const std::string backing =
        "%4"
        "1111";
    EXPECT_EQ(kxt::decodeURL(std::string_view(backing.data(), 2), 0), "@");
    EXPECT_EQ(kxt::decodeURL(std::string_view(backing.data(), 1), 0), std::string(1, '\0'));
}

class URLMethods : public HostTest {};

TEST_F(URLMethods, EncodeThroughTheHostIsTaggedASCII) {
    Value r = call("EncodingToURLKXT", {S("a b+c"), I(1)});
    EXPECT_EQ(r.bytes(), "a+b%2Bc");
    EXPECT_EQ(r.encoding(), kREALTextEncodingASCII);
    EXPECT_EQ(callBytes("EncodingToURLKXT", {S("a b+c")}), "a%20b+c");
    EXPECT_EQ(callBytes("EncodingToURLKXT", {S("\xC3\xA9", kREALTextEncodingUTF8)}), "%C3%A9");
}

TEST_F(URLMethods, EncodeWorksOnTheRawBytesOfAnyEncoding) {
    // Latin-1 "é" is one byte: no text conversion happens.
    EXPECT_EQ(callBytes("EncodingToURLKXT", {S("\xE9", kREALTextEncodingISOLatin1)}), "%E9");
    std::string utf16("\x41\x00", 2);
    EXPECT_EQ(callBytes("EncodingToURLKXT", {S(utf16, kREALTextEncodingUTF16)}), "A%00");
}

TEST_F(URLMethods, DecodeHasNoDeclaredEncodingUnlessASCII) {
    Value r = call("DecodingFromURLKXT", {S("%C3%A9")});
    EXPECT_EQ(r.bytes(), "\xC3\xA9");
    EXPECT_EQ(r.encoding(), kREALTextEncodingUnknown);
    Value ascii = call("DecodingFromURLKXT", {S("a+b"), I(1)});
    EXPECT_EQ(ascii.bytes(), "a b");
    EXPECT_EQ(ascii.encoding(), kREALTextEncodingASCII);
}

TEST_F(URLMethods, NilAndEmptyGiveNil) {
    for (const char* name : {"EncodingToURLKXT", "DecodingFromURLKXT"}) {
        EXPECT_TRUE(call(name, {Nil()}).isNil()) << name;
        EXPECT_TRUE(call(name, {S("")}).isNil()) << name;
        EXPECT_TRUE(call(name, {Nil(), I(1)}).isNil()) << name;
    }
}

TEST_F(URLMethods, LargeInputStaysLinear) {
    std::string big(8 << 20, ' ');
    Value r = call("EncodingToURLKXT", {S(big), I(1)});
    EXPECT_EQ(r.bytes().size(), big.size());
    Value back = call("DecodingFromURLKXT", {r, I(1)});
    EXPECT_EQ(back.bytes(), big);
}

}  // namespace
