// Jaro-Winkler and Levenshtein distances: known values, the bit-parallel edit distance against
// the full table it replaces, and the two methods end to end.
#include "Distance.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "KxtTest.h"
#include "distance_reference.h"

using namespace kxt_test;

namespace {

std::vector<uint32_t> U(std::u32string_view s) {
    return {s.begin(), s.end()};
}

using ref::matrixDistance;

std::string show(const std::vector<uint32_t>& s) {
    std::string out;
    for (uint32_t c : s)
        if (c >= 0x20 && c < 0x7F) {
            out += char(c);
        } else {
            out.append("<").append(std::to_string(c)).append(">");
        }
    return out;
}

struct JaroCase {
    std::u32string a, b;
    double similarity;
};

TEST(JaroWinkler, KnownPairs) {
    const JaroCase cases[] = {
        {U"MARTHA", U"MARHTA", 0.961111111111111},
        {U"DIXON", U"DICKSONX", 0.813333333333333},
        {U"DWAYNE", U"DUANE", 0.84},
        {U"", U"", 1.0},
        {U"", U"abc", 0.0},
        {U"abc", U"", 0.0},
        {U"abc", U"xyz", 0.0},
        {U"abc", U"abc", 1.0},
        // Below the boost threshold the common prefix adds nothing: jaro = (1/2+1/2+1)/3.
        {U"ab", U"ax", 2.0 / 3.0},
        // Case-sensitive, and code points above U+FFFF count as one.
        {U"Abc", U"abc", (2.0 / 3 + 2.0 / 3 + 1) / 3},
        {U"\U0001F600x", U"\U0001F600y", 2.0 / 3.0},
    };
    for (const auto& c : cases) {
        const auto a = U(c.a), b = U(c.b);
        EXPECT_NEAR(kxt::proximityToString(a, b), c.similarity, 1e-12)
            << show(a) << " / " << show(b);
        EXPECT_NEAR(kxt::jaroWinklerDistance(a, b), 1.0 - c.similarity, 1e-12);
    }
}

TEST(JaroWinkler, TranspositionsAreHalvedWithIntegerDivision) {
    // Window 2: a, b and c all match, in the orders abc and bca, so t = 3 and t / 2 = 1.
    const auto a = U(U"abcdef"), b = U(U"bcaxyz");
    EXPECT_DOUBLE_EQ(kxt::proximityToString(a, b), (0.5 + 0.5 + 2.0 / 3.0) / 3.0);
}

TEST(JaroWinkler, MatchWindowIsHalfTheLongerLengthMinusOne) {
    // Lengths 6 and 6: window 2. "a" at 0 in one and at 3 in the other do not match.
    EXPECT_EQ(kxt::proximityToString(U(U"axxxxx"), U(U"yyyazz")), 0.0);
    EXPECT_GT(kxt::proximityToString(U(U"axxxxx"), U(U"yyazzz")), 0.0);
    // Lengths 1 and 2: window 0, so only equal positions match.
    EXPECT_EQ(kxt::proximityToString(U(U"a"), U(U"ba")), 0.0);
}

struct LevCase {
    std::u32string a, b;
    int64_t edits;
    double distance;
};

TEST(Levenshtein, KnownPairs) {
    const LevCase cases[] = {
        {U"saturday", U"sunday", 3, 0.5},
        {U"ab", U"ba", 1, 0.5},
        {U"abc", U"abc", 0, 0.0},
        {U"a", U"abcd", 3, 3.0},  // divided by the shorter length, not capped
        {U"", U"abc", 3, 1.0},
        {U"abc", U"", 3, 1.0},
        {U"", U"", 0, 1.0},
        {U"ca", U"abc", 3, 1.5},  // no part is edited twice: not 2 as with free transpositions
        {U"kitten", U"sitting", 3, 0.5},
        {U"\U0001F600\U0001F601", U"\U0001F601\U0001F600", 1, 0.5},
        {U"e\u0301", U"\u00e9", 2, 2.0},  // no normalisation
    };
    for (const auto& c : cases) {
        const auto a = U(c.a), b = U(c.b);
        EXPECT_EQ(kxt::osaDistance(a, b), c.edits) << show(a) << " / " << show(b);
        EXPECT_DOUBLE_EQ(kxt::levenshteinDistance(a, b), c.distance) << show(a) << " / " << show(b);
    }
}

// Random strings of chosen shapes, compared with the full table on every input.
std::vector<uint32_t> randomText(std::mt19937& rng, size_t length, uint32_t alphabet, bool astral) {
    std::vector<uint32_t> s(length);
    for (auto& c : s) c = (astral ? 0x1F600u : 'a') + uint32_t(rng() % alphabet);
    return s;
}

std::vector<uint32_t> mutate(std::mt19937& rng, std::vector<uint32_t> s, int edits,
                             uint32_t alphabet) {
    for (int e = 0; e < edits; ++e) {
        const size_t pos = s.empty() ? 0 : rng() % s.size();
        switch (rng() % 4) {
            case 0:
                if (pos + 1 < s.size()) std::swap(s[pos], s[pos + 1]);
                break;
            case 1:
                s.insert(s.begin() + long(pos), 'a' + uint32_t(rng() % alphabet));
                break;
            case 2:
                if (!s.empty()) s.erase(s.begin() + long(pos));
                break;
            default:
                if (!s.empty()) s[pos] = 'a' + uint32_t(rng() % alphabet);
        }
    }
    return s;
}

// The bit-parallel edit distance against the full table, Jaro-Winkler against its definition.
TEST(Distances, AgreeWithTheirDefinitions) {
    std::mt19937 rng(20240611);
    const size_t lengths[] = {0, 1, 2, 3, 5, 17, 63, 64, 65, 127, 128, 129, 200, 300};
    for (int round = 0; round < 3000; ++round) {
        const size_t la = lengths[rng() % std::size(lengths)] + (round % 3 == 0 ? rng() % 8 : 0);
        const uint32_t alphabet = 1 + uint32_t(rng() % (round % 2 ? 3 : 30));
        const bool astral = round % 5 == 0;
        std::vector<uint32_t> a = randomText(rng, la, alphabet, astral), b;
        switch (round % 3) {
            case 0:
                b = randomText(rng, lengths[rng() % std::size(lengths)], alphabet, astral);
                break;
            case 1:
                b = mutate(rng, a, 1 + int(rng() % 12), alphabet);
                break;
            default:  // mostly swaps of neighbours
                b = a;
                for (size_t k = 0; k + 1 < b.size(); k += 1 + rng() % 4) std::swap(b[k], b[k + 1]);
        }
        const int64_t expected = matrixDistance(a, b);
        ASSERT_EQ(kxt::osaDistance(a, b), expected)
            << "round " << round << "\na = " << show(a) << "\nb = " << show(b);
        ASSERT_EQ(kxt::osaDistance(b, a), expected)
            << "swapped, round " << round << "\na = " << show(a) << "\nb = " << show(b);
        ASSERT_NEAR(kxt::jaroWinklerDistance(a, b), 1.0 - ref::straightJaroWinkler(a, b), 1e-12)
            << "round " << round << "\na = " << show(a) << "\nb = " << show(b);
    }
}

TEST(Levenshtein, LongStringsEqualFullTable) {
    std::mt19937 rng(99);
    for (int round = 0; round < 6; ++round) {
        const uint32_t alphabet = round < 3 ? 2 : 26;
        auto a = randomText(rng, 1500 + rng() % 700, alphabet, round == 5);
        auto b = round % 2 ? mutate(rng, a, 300, alphabet) : randomText(rng, 1800, alphabet, false);
        ASSERT_EQ(kxt::osaDistance(a, b), matrixDistance(a, b))
            << "round " << round << "\na = " << show(a) << "\nb = " << show(b);
    }
}

class DistanceMethods : public HostTest {};

std::string utf16(std::u16string_view s) {
    return std::string(reinterpret_cast<const char*>(s.data()), s.size() * 2);
}

TEST_F(DistanceMethods, JaroWinklerThroughTheHost) {
    EXPECT_NEAR(call("JaroWinklerDistanceKXT", {S("MARTHA"), S("MARHTA")}).asDouble(),
                1.0 - 0.961111111111111, 1e-12);
    EXPECT_EQ(call("JaroWinklerDistanceKXT", {Nil(), S("")}).asDouble(), 0.0);
    EXPECT_EQ(call("JaroWinklerDistanceKXT", {S(""), S("x")}).asDouble(), 1.0);
    EXPECT_EQ(call("JaroWinklerDistanceKXT", {S("x"), Nil()}).asDouble(), 1.0);
    // Code points, whatever the encoding: UTF-8 and UTF-16 of the same text are equal.
    EXPECT_EQ(
        call("JaroWinklerDistanceKXT",
             {S("\xC3\xA9\xF0\x9F\x98\x80"), S(utf16(u"\u00e9\U0001F600"), kREALTextEncodingUTF16)})
            .asDouble(),
        0.0);
}

TEST_F(DistanceMethods, LevenshteinThroughTheHost) {
    EXPECT_EQ(call("LevenshteinDistanceKXT", {S("saturday"), S("sunday")}).asDouble(), 0.5);
    EXPECT_EQ(call("LevenshteinDistanceKXT", {S("ab"), S("ba")}).asDouble(), 0.5);
    EXPECT_EQ(call("LevenshteinDistanceKXT", {S("a"), S("abcd")}).asDouble(), 3.0);
    EXPECT_EQ(call("LevenshteinDistanceKXT", {S("same"), S("same")}).asDouble(), 0.0);
    EXPECT_EQ(call("LevenshteinDistanceKXT", {Nil(), Nil()}).asDouble(), 1.0);
    EXPECT_EQ(call("LevenshteinDistanceKXT", {S("abc"), S("")}).asDouble(), 1.0);
    // One code point above U+FFFF against its UTF-16 form: no difference.
    EXPECT_EQ(call("LevenshteinDistanceKXT",
                   {S("x\xF0\x9F\x98\x80"), S(utf16(u"x\U0001F600"), kREALTextEncodingUTF16)})
                  .asDouble(),
              0.0);
}

}  // namespace
