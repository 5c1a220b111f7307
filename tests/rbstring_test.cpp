// UTF-8 repair and validity scans, string extraction, ASCII tests and printable replacement over
// plain buffers; the 16-byte paths against the byte loops of search_reference.h.
#include "rbstring.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "search_reference.h"

using namespace std::string_literals;

namespace {

const uint8_t* u8(std::string_view s) {
    return reinterpret_cast<const uint8_t*>(s.data());
}

std::string repaired(std::string_view s, std::string_view placeholder) {
    std::string out;
    kxt::CheckUTF8(out, placeholder, u8(s), s.size());
    return out;
}

std::vector<std::string> extracted(std::string_view s, int64_t minLength) {
    std::vector<std::string> out;
    for (auto v : kxt::stringsInData(s, minLength)) out.emplace_back(v);
    return out;
}

TEST(WellFormedSequences, FollowTheUnicodeTable) {
    struct Row {
        std::string bytes;
        size_t expected;
    } rows[] = {
        {"a", 1},
        {"\x7F", 1},
        {"\x80", 0},
        {"\xC1\xBF", 0},
        {"\xC2\x80", 2},
        {"\xDF\xBF", 2},
        {"\xC2", 0},
        {"\xC2\x41", 0},
        {"\xE0\x9F\x80", 0},
        {"\xE0\xA0\x80", 3},
        {"\xED\x9F\xBF", 3},
        {"\xED\xA0\x80", 0},
        {"\xEF\xBF\xBF", 3},
        {"\xE1\x80", 0},
        {"\xF0\x8F\x80\x80", 0},
        {"\xF0\x90\x80\x80", 4},
        {"\xF4\x8F\xBF\xBF", 4},
        {"\xF4\x90\x80\x80", 0},
        {"\xF5\x80\x80\x80", 0},
        {"\xFF", 0},
        {"\xF1\x80\x80", 0},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(kxt::wellFormedSequenceLength(r.bytes), r.expected)
            << testing::PrintToString(r.bytes);
    }
}

TEST(RepairScan, OnePlaceholderPerBadByte) {
    struct Row {
        std::string bytes, placeholder, expected;
    } rows[] = {
        {"a\xFF"
         "b",
         "?", "a?b"},
        {"\xC3\xA9", "?", "\xC3\xA9"},
        {"\xED\xA0\x80", "?", "???"},       // a surrogate
        {"\xE2\x82", "<>", "<><>"},         // cut off by the end
        {"\x01\x7F\t", "?", "\x01\x7F\t"},  // control bytes are valid
        {"a\x80"
         "b",
         "", "ab"},  // an empty placeholder drops
        {"\xF0\x9F\x98\x80!", "?", "\xF0\x9F\x98\x80!"},
        {"\xC3\xA9\xC3", "\xEF\xBF\xBD", "\xC3\xA9\xEF\xBF\xBD"},
        {"", "?", ""},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(repaired(r.bytes, r.placeholder), r.expected) << testing::PrintToString(r.bytes);
    }
}

TEST(ValidPrefix, StopsAtControlBytesAndBadSequences) {
    struct Row {
        std::string bytes;
        size_t expected;
    } rows[] = {
        {"hello", 5},  {"he\x01llo", 2}, {"a\tb\r\nc", 6},
        {"ab\x7F", 2}, {"\xC3\xA9x", 3}, {"x\xC3", 1},
        {"\0a"s, 0},   {"", 0},          {std::string(50, 'q') + "\x1B" + "tail", 50},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(kxt::CheckUTF8(u8(r.bytes), r.bytes.size()), r.expected)
            << testing::PrintToString(r.bytes);
    }
    EXPECT_EQ(kxt::CheckUTF8(nullptr, 10), 0u);
}

TEST(Extraction, RunsLongerThanMinLengthAndNotOnlySpaces) {
    const std::string helloWorld = "hello\0\0world"s;
    struct Row {
        std::string bytes;
        int64_t minLength;
        std::vector<std::string> expected;
    } rows[] = {
        {helloWorld, 4, {"hello", "world"}},
        {helloWorld, 5, {}},
        {helloWorld, 0, {"hello", "world"}},
        {helloWorld, -7, {"hello", "world"}},
        {" \t \t ", 0, {}},
        {"a", 0, {"a"}},
        {"ab\x01"
         "cd",
         1,
         {"ab", "cd"}},
        {"ab\x01\x01"
         "cd",
         0,
         {"ab", "cd"}},
        {"  \x01x", 0, {"x"}},
        {"\xC3\xA9t\xC3\xA9\xFF"
         "zz",
         1,
         {"\xC3\xA9t\xC3\xA9", "zz"}},
        {"abc\xFF"
         "def",
         3,
         {}},
        {"abc\xFF"
         "defg",
         3,
         {"defg"}},
        {"x", INT64_MAX, {}},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(extracted(r.bytes, r.minLength), r.expected)
            << testing::PrintToString(r.bytes) << " min " << r.minLength;
    }
}

TEST(Extraction, SpaceOnlyRangesAreSkipped) {
    EXPECT_TRUE(kxt::IsSpaceOnly(u8(" \t\r\n"), 4));
    EXPECT_TRUE(kxt::IsSpaceOnly(nullptr, 0));
    EXPECT_FALSE(kxt::IsSpaceOnly(u8(" !"), 2));
}

TEST(ASCIITests, ByMode) {
    struct Row {
        std::string bytes;
        int64_t mode;
        bool expected;
    } rows[] = {
        {"", 0, true},       {"", 3, true},       {"abc", 3, false},   {"abc", -1, false},
        {"a\x01", 0, true},  {"a\x80", 0, false}, {"a\x7F", 1, true},  {"a\x1F", 1, false},
        {"a\x80", 1, false}, {"a\x80", 2, true},  {"a\x1F", 2, false}, {"\xFF ", 2, true},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(kxt::isASCIIText(r.bytes, r.mode), r.expected)
            << testing::PrintToString(r.bytes) << " mode " << r.mode;
    }
}

TEST(Printable, ReplacesControlAndHighBytes) {
    const std::string in = "\ta\xC3\xA9\x7F ";
    std::string out(in.size(), '\0');
    kxt::replaceNonPrintable(in, '.', reinterpret_cast<uint8_t*>(out.data()));
    EXPECT_EQ(out, ".a..\x7F ");
}

// The fast paths meet their byte loops at every length around the 16- and 64-byte blocks and
// with the interesting byte at every position.
TEST(FastPathsAgreeWithByteLoops, UTF8AndASCIIScans) {
    std::mt19937_64 rng(31337);
    for (int iteration = 0; iteration < 6000; ++iteration) {
        std::string s;
        switch (iteration % 3) {
            case 0:
                s = ref::adversarialBytes(rng, rng() % 150);
                break;
            case 1:
                s = ref::mostlyUTF8(rng, rng() % 60, 3);
                break;
            default: {
                s = std::string(rng() % 140, 'a' + char(rng() % 26));
                if (!s.empty() && rng() % 4) s[rng() % s.size()] = char(rng());
            }
        }
        const std::string placeholder = iteration % 5 == 0 ? "" : "\xEF\xBF\xBD";
        ASSERT_EQ(repaired(s, placeholder), ref::repairUTF8(s, placeholder))
            << testing::PrintToString(s);
        ASSERT_EQ(kxt::wellFormedPrefixLength(s), ref::wellFormedPrefix(s))
            << testing::PrintToString(s);
        ASSERT_EQ(kxt::CheckUTF8(u8(s), s.size()), ref::validPrefix(s))
            << testing::PrintToString(s);
        const int64_t minLength = int64_t(rng() % 6) - 1;
        ASSERT_EQ(extracted(s, minLength), ref::stringsInData(s, minLength))
            << testing::PrintToString(s) << " min " << minLength;
        for (int64_t mode : {0, 1, 2, 3}) {
            ASSERT_EQ(kxt::isASCIIText(s, mode), ref::isASCIIText(s, mode))
                << testing::PrintToString(s) << " mode " << mode;
        }
        const uint8_t replacement = uint8_t(rng());
        std::string out(s.size(), '\0');
        kxt::replaceNonPrintable(s, replacement, reinterpret_cast<uint8_t*>(out.data()));
        ASSERT_EQ(out, ref::replaceNonPrintable(s, replacement)) << testing::PrintToString(s);
    }
}

TEST(FastPathsAgreeWithByteLoops, ValidTextRepairsToItself) {
    std::mt19937_64 rng(5);
    for (int iteration = 0; iteration < 200; ++iteration) {
        const std::string s = ref::mostlyUTF8(rng, rng() % 400, 0);
        ASSERT_EQ(repaired(s, "?"), s) << testing::PrintToString(s);
    }
}

TEST(Extraction, LongRejectedRunsStayLinear) {
    // A megabyte of spaces then one word: stepping one byte at a time through the spaces, each
    // step rescanning the rest, would take minutes.
    const std::string s = std::string(1 << 20, ' ') + "\x01word";
    EXPECT_EQ(extracted(s, 0), std::vector<std::string>{"word"});
    const std::string t = std::string(1 << 20, 'x') + "\x01" + "yz";
    EXPECT_EQ(extracted(t, 1 << 20), std::vector<std::string>{});
}

}  // namespace
