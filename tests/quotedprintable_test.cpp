// Quoted-printable: encoding with soft breaks and protected blanks, decoding of every escape.
#include "quotedprintable.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "ByteView.h"

namespace {

using namespace std::string_literals;

std::string visible(std::string_view s) {
    std::string out;
    for (const uint8_t c : kxt::unsignedBytes(s)) {
        char buf[8];
        snprintf(buf, sizeof buf, c >= 32 && c < 127 ? "%c" : "\\x%02X", c);
        out += buf;
    }
    return out;
}

struct EncodeCase {
    std::string input;
    int64_t lineLen;
    std::string expected;
};

TEST(QuotedPrintableEncode, EscapesAndKeepsByClass) {
    const EncodeCase cases[] = {
        {"a=b", 72, "a=3Db"},
        {"a b", 72, "a b"},
        {"a  b", 72, "a  b"},
        {"ab ", 72, "ab "},  // a blank at the very end stays literal
        {"\x00\x7F\xFF"s, 72, "=00=7F=FF"},
        {"\xC3\xA9", 72, "=C3=A9"},
        {"\x01\x0B\x0C\x1F", 72, "=01=0B=0C=1F"},
        {"!\"#$@[\\]^`{|}~", 72, "!\"#$@[\\]^`{|}~"},
        {"%&'()*+,-./:;<>?_", 72, "%&'()*+,-./:;<>?_"},
        {"", 72, ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(kxt::encodeQuotedPrintable(c.input, c.lineLen), c.expected) << visible(c.input);
    }
}

TEST(QuotedPrintableEncode, LineEndsBecomeCRLFWithBlanksProtected) {
    const EncodeCase cases[] = {
        {"a \r\nb", 72, "a=20\r\nb=\r\n"},
        {"a\t\nb", 72, "a=09\r\nb=\r\n"},
        {"a  \nb", 72, "a =20\r\nb=\r\n"},
        {"a\nb", 72, "a\r\nb=\r\n"},
        {"a\n\nb", 72, "a\r\n\r\nb=\r\n"},
        {"a\r\rb", 72, "a\r\n\r\nb=\r\n"},
        {"a\n\rb", 72, "a\r\nb=\r\n"},
        {"a\rb", 72, "a\r\nb=\r\n"},
        {"a\r\n", 72, "a\r\n"},  // ends at column 0: no closing soft break
        {"a\n", 72, "a\r\n"},
        {"\r", 72, "\r\n"},
        {"a\nb ", 72, "a\r\nb =\r\n"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(kxt::encodeQuotedPrintable(c.input, c.lineLen), c.expected) << visible(c.input);
    }
}

TEST(QuotedPrintableEncode, SoftBreaksBeforeLineLengthMinusOne) {
    const EncodeCase cases[] = {
        {std::string(100, 'x'), 72, std::string(70, 'x') + "=\r\n" + std::string(30, 'x')},
        {std::string(70, 'x'), 72, std::string(70, 'x')},
        {std::string(71, 'x'), 72, std::string(70, 'x') + "=\r\nx"},
        {"aaaaaa=", 10, "aaaaaa=\r\n=3D"},  // an escape is never split
        {"aaaaa=", 10, "aaaaa=3D"},
        {"ab", 2, "=\r\na=\r\nb"},  // a soft break before every character
        {"abc", 3, "a=\r\nb=\r\nc"},
        {"x\ny", 2, "=\r\nx\r\n=\r\ny=\r\n"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(kxt::encodeQuotedPrintable(c.input, c.lineLen), c.expected)
            << visible(c.input) << " / " << c.lineLen;
    }
}

TEST(QuotedPrintableEncode, LineLengthsBelowTwoMean72) {
    const std::string in = std::string(100, 'x') + "\n" + std::string(80, 'y');
    const std::string expected = kxt::encodeQuotedPrintable(in, 72).str();
    for (int64_t lineLen : {int64_t(0), int64_t(1), int64_t(-5), INT64_MIN, int64_t(1) << 32 | 1,
                            (int64_t(1) << 32) + 72}) {
        EXPECT_EQ(kxt::encodeQuotedPrintable(in, lineLen), expected) << lineLen;
    }
    EXPECT_NE(kxt::encodeQuotedPrintable(in, 73), expected);
}

struct DecodeCase {
    std::string input;
    std::string expected;
};

TEST(QuotedPrintableDecode, ReadsEscapesSoftBreaksAndLineEnds) {
    const DecodeCase cases[] = {
        {"=41=3d", "A="},       {"=C3=A9", "\xC3\xA9"},
        {"a=\r\nb", "ab"},      {"a=\nb", "ab"},
        {"a=\n\rb", "ab"},      {"a=  \r\nb", "ab"},
        {"a= x\r\nb", "ab"},  // anything after "=" and a blank up to the line end is dropped
        {"a=\t \tzz\nb", "ab"}, {"a= ", "a"},
        {"a\r\nb", "a\nb"},     {"a\n\rb", "a\nb"},
        {"a\rb", "a\nb"},       {"a\r\rb", "a\n\nb"},
        {"a\n\nb", "a\n\nb"},   {"a \r\n", "a \n"},  // blanks before a line end are kept
        {"ab", "ab"},           {"", ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(kxt::decodeQuotedPrintable(c.input), c.expected) << visible(c.input);
    }
}

TEST(QuotedPrintableDecode, MalformedEscapesHaveFixedReadings) {
    const DecodeCase cases[] = {
        {"=G1", "\xF1"},  // an invalid high digit reads as all ones
        {"=Z0x", "\xF0x"},
        {"=1G", ""},  // an invalid low digit drops the escape
        {"=1Gx", "x"},
        {"=GF", ""},  // 0xFF would need a valid high digit
        {"=GG", ""},
        {"a=", "a"},
        {"a=4", "a"},
        {"=1\r\nb", "\nb"},  // the CR is taken as the low digit
        {"==41",
         "\xF4"
         "1"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(kxt::decodeQuotedPrintable(c.input), c.expected) << visible(c.input);
    }
}

// Random bytes with CR LF as the only line ends, blanks and "=" over-represented.
std::string randomCRLFText(std::mt19937& rng) {
    std::string out;
    size_t length = rng() % 300;
    for (size_t i = 0; i < length; ++i) {
        switch (rng() % 8) {
            case 0:
                out += "\r\n";
                break;
            case 1:
                out += " \t="[rng() % 3];
                break;
            default: {
                char c;
                do c = char(rng() % 256);
                while (c == '\r' || c == '\n');
                out += c;
            }
        }
    }
    return out;
}

std::string crlfToLF(const std::string& s) {
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '\r' && i + 1 < s.size() && s[i + 1] == '\n') continue;
        out += s[i];
    }
    return out;
}

TEST(QuotedPrintableProperty, DecodingUndoesEncodingOfCRLFText) {
    std::mt19937 rng(72);
    for (int round = 0; round < 5000; ++round) {
        std::string in = randomCRLFText(rng);
        int64_t lineLen = round % 3 == 0 ? 72 : int64_t(2 + rng() % 100);
        std::string encoded = kxt::encodeQuotedPrintable(in, lineLen).str();
        ASSERT_EQ(encoded, kxt::encodeQuotedPrintablePlain(in, lineLen)) << visible(in);
        ASSERT_EQ(kxt::decodeQuotedPrintable(encoded), crlfToLF(in))
            << visible(in) << " / " << lineLen << " -> " << visible(encoded);
        // Long literal runs with a rare byte of another class, for the 16-byte copy.
        std::string runs(rng() % 400, 'a');
        for (char& c : runs) c = rng() % 40 ? char(33 + rng() % 94) : "= \t\r\n\x80\x01"[rng() % 7];
        ASSERT_EQ(kxt::encodeQuotedPrintable(runs, lineLen).str(),
                  kxt::encodeQuotedPrintablePlain(runs, lineLen))
            << visible(runs) << " / " << lineLen;
    }
}

TEST(QuotedPrintableProperty, EncodedLinesStayShortAndASCII) {
    std::mt19937 rng(1);
    for (int round = 0; round < 2000; ++round) {
        std::string in = randomCRLFText(rng);
        int64_t lineLen = int64_t(5 + rng() % 90);
        std::string encoded = kxt::encodeQuotedPrintable(in, lineLen).str();
        size_t start = 0;
        while (start <= encoded.size()) {
            size_t end = encoded.find("\r\n", start);
            if (end == std::string::npos) end = encoded.size();
            ASSERT_LE(int64_t(end - start), lineLen - 1) << visible(in) << " / " << lineLen;
            for (size_t i = start; i < end; ++i) {
                unsigned char c = static_cast<unsigned char>(encoded[i]);
                ASSERT_TRUE(c == 9 || (c >= 32 && c < 127)) << visible(encoded);
            }
            start = end + 2;
        }
    }
}

TEST(QuotedPrintableProperty, AnyBytesDecodeWithinTheirLength) {
    std::mt19937 rng(5);
    for (int round = 0; round < 5000; ++round) {
        std::string in(rng() % 64, '\0');
        for (char& c : in) c = "=\r\n \tA1g"[rng() % 8] ^ (rng() % 4 == 0 ? char(rng()) : 0);
        ASSERT_LE(kxt::decodeQuotedPrintable(in).size(), in.size()) << visible(in);
    }
}

}  // namespace
