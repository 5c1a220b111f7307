// Search and comparison over plain buffers: fixed cases, then the vector paths against the byte
// loops of search_reference.h on random and adversarial input.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "MainInstr.h"
#include "search_reference.h"

using namespace std::string_literals;

namespace {

std::vector<kxt::ByteRange> toRanges(const std::vector<ref::Range>& r) {
    std::vector<kxt::ByteRange> out;
    for (auto x : r) out.push_back({x.first, x.last});
    return out;
}

TEST(FirstOfAny, FindsTheFirstByteOfTheSetNotASubstring) {
    struct Row {
        std::string target, set;
        int64_t expected;
    } rows[] = {
        {"hello", "ol", 3},
        {"hello", "xyz", 0},
        {"", "a", 0},
        {"abc", "", 0},
        {"abc\xFF", "\xFF", 4},
        {"a\0b"s, "\0"s, 2},
        {std::string(40, 'x') + "y", "zy", 41},  // past the first vector block
    };
    for (const Row& r : rows) EXPECT_EQ(kxt::firstOfAny(r.target, r.set), r.expected) << r.target;
}

TEST(ByteRanges, UnsignedWithoutFindSignedWithFind) {
    const std::vector<kxt::ByteRange> upper{{128, 255}}, negative{{-128, -1}};
    EXPECT_EQ(kxt::firstInRanges("abc", std::vector<kxt::ByteRange>{{98, 99}}), 2);
    EXPECT_EQ(kxt::firstInRanges("ab\xC8", upper), 3);
    EXPECT_EQ(kxt::firstInSignedRangesOrSet("ab\xC8", upper, ""), 0);
    EXPECT_EQ(kxt::firstInSignedRangesOrSet("ab\xC8", negative, ""), 3);
    // A byte outside every range still matches when it is in find.
    EXPECT_EQ(kxt::firstInSignedRangesOrSet("xyz", std::vector<kxt::ByteRange>{{0, 10}}, "z"), 3);
    // Reversed and out-of-domain ranges accept nothing / clip.
    EXPECT_EQ(kxt::firstInRanges("abc", std::vector<kxt::ByteRange>{{99, 97}}), 0);
    EXPECT_EQ(kxt::firstInRanges("abc", std::vector<kxt::ByteRange>{{-1000, 97}}), 1);
    EXPECT_EQ(kxt::firstInRanges("abc", std::vector<kxt::ByteRange>{{INT64_MIN, INT64_MAX}}), 1);
    EXPECT_EQ(kxt::firstInRanges("abc", std::vector<kxt::ByteRange>{{256, 1000}}), 0);
    // Ranges are tried in any order; the first matching byte wins.
    EXPECT_EQ(kxt::firstInRanges("zab", std::vector<kxt::ByteRange>{{97, 97}, {122, 122}}), 1);
}

TEST(Compare, ZeroPaddedAndTheEmptyOperandRules) {
    struct Row {
        std::string a, b;
        int bytes, padded;
    } rows[] = {
        {"", "", -1, 0},      {"", "a", -1, -1},    {"a", "", 1, 1},        {"abc", "abd", -1, -1},
        {"b", "abc", 1, 1},   {"abc", "abc", 0, 0}, {"a", "a\0"s, 0, 0},    {"a\0\0"s, "a", 0, 0},
        {"a\0b"s, "a", 1, 1}, {"a", "ab", -1, -1},  {"\xFF", "\x01", 1, 1},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(kxt::compareBytes(r.a, r.b), r.bytes) << r.a << " / " << r.b;
        EXPECT_EQ(kxt::compareZeroPadded(r.a, r.b), r.padded) << r.a << " / " << r.b;
    }
}

TEST(CountOccurrences, NonOverlappingLeftToRight) {
    struct Row {
        std::string s, find;
        int64_t expected;
    } rows[] = {
        {"aaaa", "aa", 2},  {"aaaaa", "aa", 2}, {"aaaa", "", 0},
        {"", "a", 0},       {"abc", "abcd", 0}, {"abcabc", "abc", 2},
        {"banana", "a", 3}, {"aXbXc", "X", 2},  {"abababa", "aba", 2},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(kxt::countOccurrences(r.s, r.find), r.expected) << r.s << " / " << r.find;
    }
}

TEST(PrefixSuffix, ByteExactAndNeverEmpty) {
    EXPECT_TRUE(kxt::hasPrefix("abc", "ab"));
    EXPECT_FALSE(kxt::hasPrefix("abc", "Ab"));
    EXPECT_FALSE(kxt::hasPrefix("abc", ""));
    EXPECT_FALSE(kxt::hasPrefix("ab", "abc"));
    EXPECT_TRUE(kxt::hasSuffix("abc", "bc"));
    EXPECT_TRUE(kxt::hasSuffix("abc", "abc"));
    EXPECT_FALSE(kxt::hasSuffix("abc", ""));
    EXPECT_FALSE(kxt::hasSuffix("abc", "ab"));
}

TEST(WholeWord, LettersOnlyAreWordCharacters) {
    struct Row {
        std::string text, word;
        bool expected;
    } rows[] = {
        {"Hello World", "world", true},
        {"HelloWorld", "world", false},
        {"foo 1world2", "world", true},  // digits are not word characters
        {"ab_", "ab", true},
        {"\xC3\xA9"
         "ab\xC3\xA9",
         "ab", true},                     // nor are bytes >= 128
        {"worlds world", "world", true},  // the second occurrence
        {"worldworld", "world", false},   // resumes behind the first, not one byte on
        {"xworld world", "WORLD", true},
        {"world", "worlds", false},
        {"", "a", false},
        {"a", "", false},
        {"xab\0 ab"s, "ab", false},  // the search ends at the first zero byte
        {"x ab\0ab"s, "ab", true},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(kxt::containsWholeWord(r.text, r.word), r.expected) << r.text << " / " << r.word;
    }
    EXPECT_TRUE(kxt::isWordChar('a'));
    EXPECT_TRUE(kxt::isWordChar('Z'));
    EXPECT_FALSE(kxt::isWordChar('5'));
    EXPECT_FALSE(kxt::isWordChar('_'));
    EXPECT_FALSE(kxt::isWordChar(0xE9));
}

// Alphabets that make matches likely, and the sign-bit boundary.
std::string randomBytes(std::mt19937_64& rng, size_t n, int alphabet) {
    if (alphabet == 0) return ref::adversarialBytes(rng, n);
    std::string s(n, '\0');
    for (char& c : s) {
        c = alphabet == 1   ? char('a' + rng() % 3)
            : alphabet == 2 ? char(rng())
                            : char(0x7E + rng() % 4);
    }
    return s;
}

TEST(FastPathsAgreeWithByteLoops, SearchesOnRandomInput) {
    std::mt19937_64 rng(20240501);
    for (int iteration = 0; iteration < 4000; ++iteration) {
        const int alphabet = iteration % 4;
        const std::string target = randomBytes(rng, rng() % 80, alphabet);
        const std::string set = randomBytes(rng, rng() % (iteration % 7 == 0 ? 40 : 4), alphabet);
        std::vector<ref::Range> ranges;
        for (int k = 0, n = 1 + int(rng() % 3); k < n; ++k) {
            int64_t a = int64_t(rng() % 300) - 150, b = a + int64_t(rng() % 60) - 10;
            if (rng() % 2) a += 128, b += 128;
            ranges.push_back({a, b});
        }
        const auto kr = toRanges(ranges);
        ASSERT_EQ(kxt::firstOfAny(target, set), ref::firstOfAny(target, set))
            << testing::PrintToString(target) << " set " << testing::PrintToString(set);
        ASSERT_EQ(kxt::firstInRanges(target, kr), ref::firstInRanges(target, ranges))
            << testing::PrintToString(target);
        ASSERT_EQ(kxt::firstInSignedRangesOrSet(target, kr, set),
                  ref::firstInSignedRangesOrSet(target, ranges, set))
            << testing::PrintToString(target) << " find " << testing::PrintToString(set);
        const std::string other = rng() % 2 ? target.substr(0, rng() % (target.size() + 1)) +
                                                  randomBytes(rng, rng() % 3, 3)
                                            : randomBytes(rng, rng() % 20, alphabet);
        ASSERT_EQ(kxt::compareZeroPadded(target, other), ref::compareZeroPadded(target, other))
            << testing::PrintToString(target) << " vs " << testing::PrintToString(other);
    }
}

TEST(FastPathsAgreeWithByteLoops, CountingAndWholeWords) {
    std::mt19937_64 rng(77);
    for (int iteration = 0; iteration < 3000; ++iteration) {
        const int alphabet = iteration % 2 ? 1 : 3;
        const std::string s = randomBytes(rng, rng() % 200, alphabet);
        const std::string find = randomBytes(rng, 1 + rng() % 4, alphabet);
        ASSERT_EQ(kxt::countOccurrences(s, find), ref::countOccurrences(s, find))
            << testing::PrintToString(s) << " find " << testing::PrintToString(find);

        static const std::string kPieces[] = {"ab", "AB",       "aB", " ",   "1",
                                              "_",  "\xC3\xA9", "x",  "\0"s, "b"};
        std::string text;
        for (size_t k = 0, n = rng() % 12; k < n; ++k) text += kPieces[rng() % 10];
        const std::string word = rng() % 4 ? "ab"s : rng() % 2 ? "aBa"s : "b\0a"s;
        ASSERT_EQ(kxt::containsWholeWord(text, word), ref::containsWholeWord(text, word))
            << testing::PrintToString(text) << " word " << testing::PrintToString(word);
    }
}

TEST(FastPathsAgreeWithByteLoops, AdversarialCountingStaysExact) {
    // Periodic inputs where a naive restart would overlap matches.
    const std::string s = std::string(10000, 'a') + "b" + std::string(999, 'a');
    for (size_t len : {1, 2, 3, 7, 64, 999, 1000, 1001}) {
        const std::string find(len, 'a');
        EXPECT_EQ(kxt::countOccurrences(s, find), ref::countOccurrences(s, find)) << len;
    }
    EXPECT_EQ(kxt::countOccurrences(s, std::string(500, 'a') + "b"), 1);
}

}  // namespace
