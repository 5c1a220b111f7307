// E-mail subjects, yEnc data and byte-order marks.
#include "stringdetect.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "ByteView.h"

namespace {

using namespace std::string_literals;

TEST(EmailSubject, OnlyBytesOutside32To127NeedAnEncodedWord) {
    const std::pair<std::string, bool> cases[] = {
        {"Hello World", false},
        {"", false},
        {"a?=_~\x7F", false},
        {"Gr\xC3\xBC\xC3\x9F"
         "e",
         true},
        {"a\tb", true},
        {"\x1F", true},
        {"\x80", true},
    };
    for (const auto& [in, needs] : cases) EXPECT_EQ(kxt::subjectNeedsEncoding(in), needs) << in;
}

TEST(EmailSubject, BecomesOneQEncodedWord) {
    const std::pair<std::string, std::string> cases[] = {
        {"Gr\xC3\xBC\xC3\x9F"
         "e",
         "=?utf-8?Q?Gr=C3=BC=C3=9Fe?="},
        {"a b_c=d \xC3\xBC", "=?utf-8?Q?a_b=5Fc=3Dd_=C3=BC?="},
        {"a\tb?",
         "=?utf-8?Q?a\tb?"
         "?="},  // tab and "?" written as they are
        {"\xFF\x80", "=?utf-8?Q?=FF=80?="},
        {std::string(200, '\xE9'), "=?utf-8?Q?" +
                                       [] {
                                           std::string s;
                                           for (int i = 0; i < 200; ++i) s += "=E9";
                                           return s;
                                       }() +
                                       "?="},  // never split, however long
    };
    for (const auto& [in, expected] : cases) EXPECT_EQ(kxt::encodeEmailSubject(in), expected);
}

TEST(YDecode, SubtractsFortyTwoAndUndoesEscapes) {
    const std::pair<std::string, std::string> cases[] = {
        {"*", "\x00"s},     {"=j", "\x00"s}, {")", "\xFF"}, {"r\x8F\x96\x96\x99", "Hello"},
        {"=}", "\x13"},     {"=", "\x96"},  // "=" at the end escapes a zero
        {"a=", "\x37\x96"}, {"==", "\xD3"},  {"", ""},
    };
    for (const auto& [in, expected] : cases) EXPECT_EQ(kxt::yDecode(in), expected);
}

// yEnc as its encoders write it: plus 42, and the critical bytes escaped as "=" and plus 64.
std::string yEncode(std::string_view data) {
    std::string out;
    for (const uint8_t b : kxt::unsignedBytes(data)) {
        unsigned char e = uint8_t(b + 42);
        if (e == 0 || e == '\n' || e == '\r' || e == '=' || (e == '.' && out.empty())) {
            out += '=';
            e = uint8_t(e + 64);
        }
        out += char(e);
    }
    return out;
}

TEST(YDecodeProperty, DecodingUndoesEncoding) {
    std::mt19937 rng(42);
    for (int round = 0; round < 2000; ++round) {
        std::string in(rng() % 100, '\0');
        for (char& c : in) c = char(rng());
        ASSERT_EQ(kxt::yDecode(yEncode(in)), in);
    }
}

TEST(YDecodeProperty, NeverWritesMoreThanItReads) {
    std::mt19937 rng(7);
    for (int round = 0; round < 2000; ++round) {
        std::string in(rng() % 20, '=');
        for (char& c : in) c = rng() % 2 ? '=' : char(rng());
        std::string out(in.size() + 8, '\x5A');
        auto* begin = reinterpret_cast<uint8_t*>(out.data());
        uint8_t* end = kxt::yDecode(reinterpret_cast<const uint8_t*>(in.data()), begin, in.size());
        ASSERT_LE(size_t(end - begin), in.size());
        ASSERT_EQ(out.substr(in.size()), std::string(8, '\x5A'));
    }
}

// Any bytes, escapes at every place of the sixteen-byte steps: the same as byte by byte.
TEST(YDecodeProperty, AgreesWithByteByByteOnAnyInput) {
    std::mt19937 rng(4242);
    for (int round = 0; round < 3000; ++round) {
        std::string in(rng() % 90, '\0');
        for (char& c : in) c = rng() % 6 == 0 ? '=' : char(rng());
        std::string expected;
        for (size_t i = 0; i < in.size(); ++i) {
            if (in[i] == '=') {
                expected += char(uint8_t(i + 1 < in.size() ? in[i + 1] : 0) - 106);
                ++i;
            } else {
                expected += char(uint8_t(in[i]) - 42);
            }
        }
        ASSERT_EQ(kxt::yDecode(in), expected) << testing::PrintToString(in);
    }
}

TEST(UnicodeMarkers, DetectionFollowsItsOrder) {
    const std::pair<std::string, int64_t> cases[] = {
        {"\xFF\xFE", 4},
        {"\xFF\xFE\x00\x00"s, 7},  // tested before UTF-16 little-endian
        {"\xFF\xFE\x41\x00"s, 4},
        {"\xFF\xFE\x00"s, 4},
        {"\x00\x00\xFE\xFF"s, 6},
        {"\x00\x00\xFE\xFF\x00"s, 6},
        {"\x00\x00\xFF\xFE"s, 0},
        {"\x00\x41"s, 0},
        {"\x00\x00\xFE"s, 0},
        {"\xEF\xBB", 0},
        {"\xEF\xBB\xBF", 1},
        {"\xEF\xBB\xBFtext", 1},
        {"\xEF\xBB\xBE", 0},
        {"\xFE\xFF", 3},
        {"\xFE\xFE", 0},
        {"\xFF\xFF", 0},
        {"\xFF", 0},
        {"", 0},
        {"ab", 0},
    };
    for (const auto& [in, kind] : cases) EXPECT_EQ(kxt::detectUnicodeMarkers(in), kind);
}

}  // namespace
