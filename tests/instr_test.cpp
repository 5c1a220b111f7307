// Search and comparison over plain buffers: fixed cases, then the vector paths against the byte
// loops of search_reference.h on random and adversarial input.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "KxtTest.h"
#include "MainInstr.h"
#include "search_reference.h"

using namespace std::string_literals;
using namespace kxt_test;

namespace {

std::vector<kxt::ByteRange> toRanges(const std::vector<ref::Range>& r) {
    std::vector<kxt::ByteRange> out;
    for (auto x : r) out.push_back({x.first, x.last});
    return out;
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
        // Short targets are read byte by byte, from 64 bytes on by blocks.
        const std::string target = randomBytes(rng, rng() % (iteration % 2 ? 64 : 300), alphabet);
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
        // Every third text is long enough for the 16-byte candidate scan.
        for (size_t k = 0, n = rng() % (iteration % 3 ? 12 : 150); k < n; ++k) {
            text += kPieces[rng() % 10];
        }
        const std::string word = rng() % 4 ? "ab"s : rng() % 2 ? "aBa"s : "b\0a"s;
        ASSERT_EQ(kxt::containsWholeWord(text, word), ref::containsWholeWord(text, word))
            << testing::PrintToString(text) << " word " << testing::PrintToString(word);
    }
}

// Long texts are searched a stretch of 64 KiB at a time behind the scan for their first zero:
// occurrences across a stretch's end, rejected ones just before it, and a zero on either side.
TEST(FastPathsAgreeWithByteLoops, WholeWordsAcrossStretches) {
    constexpr size_t kStretch = size_t(64) << 10;
    std::string base;
    while (base.size() < 3 * kStretch) base += "xy zab ";  // "ab" only inside words
    for (const std::string& word : {"ab"s, "aBa"s, "b\0a"s}) {
        for (size_t end : {kStretch, 2 * kStretch}) {
            for (size_t at = end - 4; at < end + 3; ++at) {
                for (int zero : {-1, -5, 0, 6}) {
                    std::string text = base;
                    text.replace(at - 1, word.size() + 2, " " + word + " ");
                    text.replace(at - 30, 4, "zab ");  // rejected just before
                    if (zero != -1) text[size_t(int64_t(at) + zero)] = '\0';
                    ASSERT_EQ(kxt::containsWholeWord(text, word),
                              ref::containsWholeWord(text, word))
                        << "word " << testing::PrintToString(word) << " at " << at << " zero "
                        << zero;
                }
            }
        }
    }
}

TEST(FastPathsAgreeWithByteLoops, AdversarialCountingStaysExact) {
    // Periodic inputs where a naive restart would overlap matches.
    const std::string s = std::string(10000, 'a') + "b" + std::string(999, 'a');
    for (size_t len : std::initializer_list<size_t>{1, 2, 3, 7, 64, 999, 1000, 1001}) {
        const std::string find(len, 'a');
        EXPECT_EQ(kxt::countOccurrences(s, find), ref::countOccurrences(s, find)) << len;
    }
    EXPECT_EQ(kxt::countOccurrences(s, std::string(500, 'a') + "b"), 1);
    // Candidates by first and last byte nearly everywhere: the filter gives up part way and
    // the count goes on from there.
    std::string periodic;
    for (int k = 0; k < 3000; ++k) periodic += std::string(50, 'a') + "abbbbba";
    for (const std::string find :
         {"abbbbba", "aba", "aa", "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"}) {
        EXPECT_EQ(kxt::countOccurrences(periodic, find), ref::countOccurrences(periodic, find))
            << find;
    }
}

TEST(FastPathsAgreeWithByteLoops, CountingLongTexts) {
    std::mt19937_64 rng(4242);
    for (int iteration = 0; iteration < 400; ++iteration) {
        const int alphabet = 1 + iteration % 3;
        const std::string s = randomBytes(rng, rng() % 3000, alphabet);
        const std::string find = randomBytes(rng, 2 + rng() % 40, alphabet);
        ASSERT_EQ(kxt::countOccurrences(s, find), ref::countOccurrences(s, find))
            << testing::PrintToString(s) << " find " << testing::PrintToString(find);
        if (s.size() > 40) {
            const std::string inside = s.substr(rng() % (s.size() - 40), 2 + rng() % 38);
            ASSERT_EQ(kxt::countOccurrences(s, inside), ref::countOccurrences(s, inside))
                << testing::PrintToString(s) << " find " << testing::PrintToString(inside);
        }
    }
}

// ---- through the host ----

class SearchMethods : public HostTest {};

TEST_F(SearchMethods, InStrBytesIsFirstOfSet) {
    EXPECT_EQ(call("InStrBytesKXT", {S("hello"), S("ol")}).asInteger(), 3);
    EXPECT_EQ(call("InStrBytesKXT", {S("hello"), S("xyz")}).asInteger(), 0);
    EXPECT_EQ(call("InStrBytesKXT", {Nil(), S("a")}).asInteger(), 0);
    EXPECT_EQ(call("InStrBytesKXT", {S("abc"), Nil()}).asInteger(), 0);
    // Raw bytes: a Latin-1 byte is found as itself, not as its UTF-8 form.
    EXPECT_EQ(
        call("InStrBytesKXT", {S("a\xE9", kREALTextEncodingISOLatin1), Raw("\xE9")}).asInteger(),
        2);
}

TEST_F(SearchMethods, ByteRangeOverloadsWithoutFindReadUnsignedBytes) {
    struct Row {
        std::vector<Value> args;
        int64_t expected;
    } rows[] = {
        {{S("abc"), I(98), I(99)}, 2},
        {{Raw("ab\xC8"), I(128), I(255)}, 3},
        {{Raw("ab\xC8"), I(-128), I(-1)}, 0},
        {{S("xyz"), I(0), I(10), I(121), I(121)}, 2},
        {{S("xyz"), I(0), I(1), I(2), I(3), I(122), I(122)}, 3},
        {{S("xyz"), I(0), I(1), I(2), I(3), I(4), I(5)}, 0},
        {{Nil(), I(0), I(255)}, 0},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(call("InStrByteRangeKXT", r.args).asInteger(), r.expected)
            << r.args.size() << " arguments, target " << r.args[0].bytes();
    }
}

TEST_F(SearchMethods, ByteRangeOverloadsWithFindReadSignedBytes) {
    struct Row {
        std::vector<Value> args;
        int64_t expected;
    } rows[] = {
        {{Raw("ab\xC8"), S(""), I(128), I(255)}, 0},
        {{Raw("ab\xC8"), Nil(), I(-128), I(-1)}, 3},
        {{S("xyz"), S("z"), I(0), I(10)}, 3},
        {{S("xyz"), S("z"), I(0), I(10), I(121), I(121)}, 2},
        {{Raw("ab\xC8"), Nil(), I(0), I(1), I(-56), I(-56)}, 3},
        {{S("xyz"), Nil(), I(0), I(1), I(2), I(3), I(121), I(121)}, 2},
        {{S("xyz"), S("q"), I(0), I(1), I(2), I(3), I(4), I(5)}, 0},
        {{Raw("\xFF"), Raw("\xFF"), I(0), I(0)}, 1},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(call("InStrByteRangeKXT", r.args).asInteger(), r.expected)
            << r.args.size() << " arguments, target " << r.args[0].bytes();
    }
}

TEST_F(SearchMethods, StrCompBytesComparesRawBytes) {
    struct Row {
        Value a, b;
        int64_t expected;
    } rows[] = {
        {S(""), S(""), -1},
        {Nil(), Nil(), -1},
        {S("abc"), S("abd"), -1},
        {S("b"), S("abc"), 1},
        {S("abc"), Nil(), 1},
        {S("abc"), S("abc"), 0},
        {Raw("a"), Raw("a\0"s), 0},
        // Encodings play no role.
        {S("\xE9", kREALTextEncodingISOLatin1), S("\xC3\xA9"), 1},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(call("StrCompBytesKXT", {r.a, r.b}).asInteger(), r.expected)
            << r.a.bytes() << " / " << r.b.bytes();
    }
}

TEST_F(SearchMethods, StrCompCharactersComparesTextAcrossEncodings) {
    const std::string utf16B("b\0", 2);
    struct Row {
        Value a, b;
        int64_t expected;
    } rows[] = {
        {S("abc"), S("abd"), -1},
        {S("abd"), S("abc"), 1},
        {S("abc"), S("abc"), 0},
        {Raw("abc"), Nil(), -1},  // same encoding: an empty operand gives -1 either way round
        {Nil(), Raw("abc"), -1},
        {S("\xE9", kREALTextEncodingISOLatin1), S("\xC3\xA9"), 0},  // the same text
        {S("\xC3\xA9"), S("\xE8", kREALTextEncodingISOLatin1), 1},
        {S(utf16B, kREALTextEncodingUTF16), S("a"), 1},
        {S("abc"), Nil(), 1},  // different encodings: empty is not special
        {Nil(), S("abc"), -1},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(call("StrCompCharactersKXT", {r.a, r.b}).asInteger(), r.expected)
            << r.a.bytes() << " / " << r.b.bytes();
    }
}

TEST_F(SearchMethods, CountOccurancesCountsWithoutOverlapAndLogsTheCount) {
    EXPECT_EQ(call("CountOccurancesKXT", {S("aaaa"), S("aa")}).asInteger(), 2);
    EXPECT_EQ(call("CountOccurancesKXT", {S("aaaa"), Nil()}).asInteger(), 0);
    EXPECT_EQ(call("CountOccurancesKXT", {Nil(), S("a")}).asInteger(), 0);
    EXPECT_EQ(call("CountOccurancesKXT", {S("banana"), S("a")}).asInteger(), 3);

    ASSERT_TRUE(host().setDebugging(true));
    testing::internal::CaptureStderr();
    EXPECT_EQ(call("CountOccurancesKXT", {S("abcabc"), S("bc")}).asInteger(), 2);
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("KXT Debug: ReplaceCount 2\n"), std::string::npos) << log;
}

TEST_F(SearchMethods, PrefixAndPostfixCompareText) {
    struct Row {
        const char* method;
        Value text, part;
        bool expected;
    } rows[] = {
        {"HasPrefixKXT", S("abc"), S("ab"), true},
        {"HasPrefixKXT", S("abc"), S(""), false},
        {"HasPrefixKXT", S("abc"), Nil(), false},
        {"HasPrefixKXT", Nil(), S("a"), false},
        {"HasPrefixKXT", S("ab"), S("abc"), false},
        {"HasPrefixKXT", S("\xE9t\xE9", kREALTextEncodingISOLatin1), S("\xC3\xA9t"), true},
        {"HasPostfixKXT", S("abc"), S("bc"), true},
        {"HasPostfixKXT", S("abc"), S("Bc"), false},
        {"HasPostfixKXT", S("abc"), S(""), false},
        {"HasPostfixKXT", S("abc"), S("abcd"), false},
        {"HasPostfixKXT", S("t\xC3\xA9"), S("\xE9", kREALTextEncodingISOLatin1), true},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(call(r.method, {r.text, r.part}).asBoolean(), r.expected)
            << r.method << " " << r.text.bytes() << " / " << r.part.bytes();
    }
}

TEST_F(SearchMethods, ContainsWholeWord) {
    struct Row {
        Value text, word;
        bool expected;
    } rows[] = {
        {S("Hello World"), S("world"), true},
        {S("HelloWorld"), S("world"), false},
        {S("foo 1world2"), S("world"), true},
        {S("worldworld world"), S("WORLD"), true},
        {Nil(), S("a"), false},
        {S("a"), Nil(), false},
        {S("caf\xE9 au lait", kREALTextEncodingISOLatin1), S("au"), true},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(call("ContainsWholeWordKXT", {r.text, r.word}).asBoolean(), r.expected)
            << r.text.bytes() << " / " << r.word.bytes();
    }
}

}  // namespace
