// Hexadecimal text, MySQL escapes and hex dumps.
#include "Hexencoding.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "ByteView.h"
#include "hexstring.h"

namespace {

using namespace std::string_literals;

TEST(HexProperty, DecodingUndoesEncodingInEitherCase) {
    std::mt19937 rng(16);
    for (int round = 0; round < 2000; ++round) {
        std::string in(rng() % 50, '\0');
        for (char& c : in) c = char(rng());
        std::string hex = kxt::encodeHex(in).str();
        ASSERT_EQ(kxt::decodeHex(hex), in) << hex;
        for (char& c : hex) c = char(tolower(static_cast<unsigned char>(c)));
        ASSERT_EQ(kxt::decodeHex(hex), in) << hex;
    }
}

// Any byte at all, in texts long enough for the 32-digit steps: the same as reading pair by
// pair with non-digits as 0, and encoding the same as digit by digit.
TEST(HexProperty, BlockStepsAgreeWithPairByPair) {
    auto value = [](unsigned char c) {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return 0;
    };
    const std::string digits = "0123456789abcdefABCDEF/:@G`g";
    std::mt19937 rng(61);
    for (int round = 0; round < 3000; ++round) {
        std::string text(rng() % 100, '\0');
        // Any bytes in half the rounds; ASCII in the others, with at most one high byte
        // anywhere (the odd last one too), for the ASCII answer.
        for (char& c : text) {
            c = rng() % 3 ? digits[rng() % digits.size()]
                          : char(rng() % (round % 2 ? 0x80 : 0x100));
        }
        if (round % 4 == 1 && !text.empty()) text[rng() % text.size()] = char(0xE9);
        std::string expected;
        for (size_t i = 0; i + 1 < text.size(); i += 2) {
            expected += char(value(uint8_t(text[i])) * 16 + value(uint8_t(text[i + 1])));
        }
        bool ascii = false;
        ASSERT_EQ(kxt::decodeHex(text, &ascii), expected) << testing::PrintToString(text);
        ASSERT_EQ(ascii,
                  std::all_of(text.begin(), text.end(), [](char c) { return uint8_t(c) < 0x80; }))
            << testing::PrintToString(text);
        std::string hex;
        for (const uint8_t c : kxt::unsignedBytes(text))
            hex += "0123456789ABCDEF"[c >> 4], hex += "0123456789ABCDEF"[c & 15];
        ASSERT_EQ(kxt::encodeHex(text), hex) << testing::PrintToString(text);
    }
}

TEST(MySQLDecode, UndoesBackslashEscapes) {
    const std::pair<std::string, std::string> cases[] = {
        {"it\\'s\\nok\\q", "it's\nok\\q"},  // an unknown escape is kept whole
        {"\\0\\'\\\"\\b\\n\\r\\t\\Z\\\\\\%\\_", "\0'\"\b\n\r\t\x1A\\%_"s},
        {"\\", "\\"},  // a trailing backslash stays
        {"ab\\", "ab\\"},
        {"\\\\\\", "\\\\"},
        {"\\x\\", "\\x\\"},
        {"\\\xFF", "\\\xFF"},
        {"plain", "plain"},
        {"", ""},
    };
    for (const auto& [in, expected] : cases) EXPECT_EQ(kxt::decodeMySQL(in), expected) << in;
}

kxt::HexLayout layout(int64_t hexlen, int64_t linelen, std::string_view start = "",
                      std::string_view end = "", std::string_view spacer = "",
                      std::string_view filler = "") {
    return {hexlen, linelen, start, end, spacer, filler};
}

TEST(Hexstring, RejectsEmptyInputAndNonPositiveSizes) {
    for (const auto& l :
         {layout(0, 2), layout(2, 0), layout(-2, 2), layout(2, -1), layout(INT64_MIN, INT64_MIN)}) {
        EXPECT_EQ(kxt::hexstring("ABC", l), "");
    }
    EXPECT_EQ(kxt::hexstring("", layout(2, 2)), "");
}

TEST(Hexstring, GivesNothingWhenTheDumpCouldNotBeAHostString) {
    EXPECT_EQ(kxt::hexstring("A", layout(int64_t(1) << 40, 1)), "");
    EXPECT_EQ(kxt::hexstring("A", layout(INT64_MAX, INT64_MAX)), "");
    EXPECT_EQ(kxt::hexstring("A", layout(1, 1, "", "", "", "")), "41");
    EXPECT_EQ(kxt::hexstring("A", layout(2, 1 << 30, "", "", "")), "");  // 2^31 characters
}

TEST(Hexstring, NilPartsAreEmpty) {
    // Views of nil host strings carry no data pointer (found by fuzzing under UBSan).
    kxt::HexLayout l;
    l.hexlen = 2;
    l.linelen = 2;
    EXPECT_EQ(kxt::hexstring("ABC", l),
              "414243"
              "00");
}

// The dump as first described: the hex text padded linelen x hexlen times with the filler,
// lines read from it, and the result cut at (padded length / G) x line size.
std::string referenceHexstring(std::string_view in, const kxt::HexLayout& l) {
    if (in.empty() || l.hexlen < 1 || l.linelen < 1) return "";
    std::string h = kxt::encodeHex(in).str();
    const int64_t hexLength = int64_t(h.size());
    std::string filler = l.filler.empty() ? "0" : std::string(l.filler);
    for (int64_t i = 0; i < l.linelen * l.hexlen; ++i) h += filler;
    const int64_t g = l.linelen * l.hexlen;
    const int64_t lineSize = ((g - 1) / l.hexlen) * int64_t(l.spacer.size()) + g +
                             int64_t(l.lineend.size() + l.linestart.size());
    const int64_t cap = (int64_t(h.size()) / g) * lineSize;
    std::string out;
    for (int64_t p = 0; p < hexLength;) {
        out += l.linestart;
        for (int64_t j = 0; j < l.linelen; ++j) {
            if (j != 0) out += l.spacer;
            out += h.substr(size_t(p), size_t(l.hexlen));
            p += l.hexlen;
        }
        out += l.lineend;
    }
    return out.substr(0, size_t(std::min<int64_t>(cap, int64_t(out.size()))));
}

TEST(HexstringProperty, AgreesWithThePaddedTextReading) {
    std::mt19937 rng(44);
    const std::string pieces[] = {"", " ", "-", "\r\n", "0x", "abc"};
    for (int round = 0; round < 3000; ++round) {
        std::string in(rng() % 40, '\0');
        for (char& c : in) c = char(rng());
        kxt::HexLayout l = layout(int64_t(rng() % 6), int64_t(rng() % 6), pieces[rng() % 6],
                                  pieces[rng() % 6], pieces[rng() % 6], pieces[rng() % 6]);
        ASSERT_EQ(kxt::hexstring(in, l), referenceHexstring(in, l))
            << in.size() << " bytes, " << l.hexlen << " x " << l.linelen << " filler '" << l.filler
            << "'";
    }
}

}  // namespace
