// Number formatting and the two encoding conversions.
#include "numberformat.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "KxtTest.h"

using namespace kxt_test;

namespace {

struct PlainCase {
    double value;
    const char* expected;
};

TEST(StrKXT, CutsToFifteenDigitsThenReducesRepeatedEndings) {
    const PlainCase cases[] = {
        {7.0, "7.0"},
        {100.0, "100.0"},
        {1.55, "1.550"},
        {0.1, "0.10"},
        {1.1, "1.10"},
        {0.125, "0.1250"},
        {-2.5, "-2.50"},
        {1.0 / 3.0, "0.3"},
        {2.0 / 3.0, "0.6"},
        {123456.789, "123456.7890"},
        {0.00001, "0.000010"},
        {1e20, "100000000000000000000.0"},
        {1234567890123456789.0, "1234567890123456768"},
        {0.0, "0.0"},
        {3.0, "3.0"},
        {11.0, "11.0"},  // the repeat trimming stops at the point
        {111.0, "111.0"},
        {-0.0, "-0.0"},
        {-1.0, "-1.0"},
        {2.000, "2.0"},
        {0.5, "0.50"},
        {99999999999999.0, "99999999999999.0"},
        // Zeros before the point do not count toward the fifteen digits, and the cut never
        // rounds: 123456789012345.59375 keeps one more digit, 5.
        {123456789012345.6, "123456789012345.5"},
        // More than fourteen counted characters before the point: the fraction goes.
        {1234567891234567.0, "1234567891234567"},
        {-123456789123456.0, "-123456789123456"},
        {1e-300, "0.0"},
        {std::numeric_limits<double>::infinity(), "inf"},
        {-std::numeric_limits<double>::infinity(), "-inf"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(kxt::formatPlainNumber(c.value), c.expected) << c.value;
    }
    EXPECT_EQ(kxt::formatPlainNumber(-std::numeric_limits<double>::max()).size(), 310u);
}

// The short print against all 99 digits: doubles of every magnitude (random bits), short
// decimals and their neighbours (where a shorter print rounds up into the kept digits: the
// runs of 9s and 0s), integers, and tiny values whose expansion is longer than 99 digits.
TEST(StrKXT, ShortPrintGivesWhatThe99DigitPrintGives) {
    std::mt19937_64 rng(11);
    std::vector<double> values = {0.0, -0.0, 1e-13, 2e-14, 0x1p-46, 0x1p-47, 0x1p-99, 0x1p-100};
    for (int i = 0; i < 20000; ++i) {
        double bits;
        const uint64_t pattern = rng();
        memcpy(&bits, &pattern, sizeof bits);
        values.push_back(bits);
        const double shortDecimal =
            double(int64_t(rng() % 2000000) - 1000000) / std::pow(10.0, double(rng() % 24));
        values.push_back(shortDecimal);
        values.push_back(std::nextafter(shortDecimal, 1e300));
        values.push_back(std::nextafter(shortDecimal, -1e300));
        // Exactly n digits after the point, for every n up to 99 and past it.
        values.push_back(std::ldexp(double(rng() % (1 << 20) | 1), -int(rng() % 110)));
    }
    for (double d : values) {
        const std::string expected = kxt::formatPlainNumberPlain(d);
        for (int spare : {0, 1, 2, 9}) {
            ASSERT_EQ(kxt::formatPlainNumber(d, spare), expected) << std::hexfloat << d << spare;
        }
    }
}

struct ScientificCase {
    double value;
    int64_t digits;
    const char* expected;
};

TEST(ScientificStrKXT, FormatsWithTheGivenDigits) {
    const ScientificCase cases[] = {
        {1234.5, 3, "1.234e+03"},  // C library rounding: 1234.5 is exact, ties to even
        {0.000123, 2, "1.23e-04"},
        {5.0, 0, "5e+00"},
        {5.0, -2, "5e+00"},                       // negative counts as none
        {5.0, int64_t(0x100000002), "5.00e+00"},  // taken as a 32-bit value
        {-1.5, 1, "-1.5e+00"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(kxt::formatScientific(c.value, c.digits), c.expected)
            << c.value << " " << c.digits;
    }
}

TEST(ScientificStrKXT, HugeDigitCountsAreCutAt498Characters) {
    const std::string text = kxt::formatScientific(1.0 / 3.0, 2000000000);
    ASSERT_EQ(text.size(), 498u);
    EXPECT_EQ(text.substr(0, 20), "3.333333333333333148");
    EXPECT_EQ(text, kxt::formatScientific(1.0 / 3.0, 5000).substr(0, 498));
}

class NumberMethods : public HostTest {};

TEST_F(NumberMethods, NumbersComeBackAsASCII) {
    Value r = call("StrKXT", {D(1.55)});
    EXPECT_EQ(r.bytes(), "1.550");
    EXPECT_EQ(r.encoding(), kREALTextEncodingASCII);
    EXPECT_EQ(callBytes("StrKXT", {D(2.0 / 3.0)}), "0.6");
    Value e = call("ScientificStrKXT", {D(1234.5), I(3)});
    EXPECT_EQ(e.bytes(), "1.234e+03");
    EXPECT_EQ(e.encoding(), kREALTextEncodingASCII);
    EXPECT_EQ(callBytes("ScientificStrKXT", {D(5), I(-7)}), "5e+00");
}

std::string utf16(std::u16string_view s) {
    return std::string(reinterpret_cast<const char*>(s.data()), s.size() * 2);
}

TEST_F(NumberMethods, ConversionsGoThroughTheHost) {
    Value wide = call("UnicodeStringKXT", {S("\xC3\xA9")});
    EXPECT_EQ(wide.encoding(), kREALTextEncodingUTF16);
    EXPECT_EQ(wide.bytes(), utf16(u"\u00e9"));
    Value native = call("NativeStringKXT", {S(utf16(u"\u00e9\U0001F600"), kREALTextEncodingUTF16)});
    EXPECT_EQ(native.encoding(), kREALTextEncodingUTF8);
    EXPECT_EQ(native.bytes(), "\xC3\xA9\xF0\x9F\x98\x80");
    Value latin = call("NativeStringKXT", {S("\xE9", kREALTextEncodingISOLatin1)});
    EXPECT_EQ(latin.bytes(), "\xC3\xA9");
    EXPECT_TRUE(call("UnicodeStringKXT", {Nil()}).isNil());
    EXPECT_TRUE(call("NativeStringKXT", {Nil()}).isNil());
}

}  // namespace
