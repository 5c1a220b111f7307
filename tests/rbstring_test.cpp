// UTF-8 repair and validity scans, string extraction, ASCII tests and printable replacement over
// plain buffers; the 16-byte paths against the byte loops of search_reference.h.
#include "rbstring.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include "KxtTest.h"
#include "search_reference.h"
#include "simd.h"

using namespace std::string_literals;
using namespace kxt_test;

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
        for (int64_t mode : {-1, 0, 1, 2, 3}) {
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

// The block validator decides alone when it accepts, so it must reject every flaw: valid text
// of every length around the 16-byte blocks with one byte changed to a value where byte
// classes change, or cut inside its last sequence.
TEST(FastPathsAgreeWithByteLoops, OneFlawInValidText) {
    std::mt19937_64 rng(2718);
    const std::string edges = ref::adversarialBytes(rng, 4096);
    for (int iteration = 0; iteration < 30000; ++iteration) {
        std::string s = ref::mostlyUTF8(rng, rng() % 90, 0);
        if (s.empty()) continue;
        if (iteration % 4 == 0) {
            s.pop_back();
        } else {
            s[rng() % s.size()] = edges[rng() % edges.size()];
        }
        ASSERT_EQ(kxt::wellFormedPrefixLength(s), ref::wellFormedPrefix(s))
            << testing::PrintToString(s);
        ASSERT_EQ(repaired(s, "?"), ref::repairUTF8(s, "?")) << testing::PrintToString(s);
    }
}

// Each kernel on its own (the dispatcher uses only the best one here), the plain twin included,
// on valid text of
// lengths around its steps (up to several early-exit checks) and with one flaw anywhere: it
// must accept exactly the well-formed buffers.
TEST(FastPathsAgreeWithByteLoops, EveryUTF8KernelAcceptsExactlyWellFormedText) {
    std::mt19937_64 rng(1618);
    const std::string edges = ref::adversarialBytes(rng, 4096);
    using kxt::simd::UTF8Kernel;
    for (UTF8Kernel kernel :
         {UTF8Kernel::Plain, UTF8Kernel::SSSE3, UTF8Kernel::AVX2, UTF8Kernel::Neon}) {
        if (!kxt::simd::kernelAvailable(kernel)) continue;
        for (int iteration = 0; iteration < 20000; ++iteration) {
            // Some texts all ASCII for a while (the 64-byte skip), with the flaw after it.
            std::string s = iteration % 8 == 0 ? std::string(rng() % 200, 'x') : std::string();
            s += ref::mostlyUTF8(rng, rng() % 150, 0);
            if (!s.empty() && iteration % 3 != 0) {
                if (iteration % 3 == 1) {
                    s.pop_back();
                } else {
                    s[rng() % s.size()] = edges[rng() % edges.size()];
                }
            }
            const bool wellFormed = ref::wellFormedPrefix(s) == s.size();
            ASSERT_EQ(kxt::simd::wellFormedUTF8(reinterpret_cast<const uint8_t*>(s.data()),
                                                s.size(), kernel),
                      wellFormed)
                << "kernel " << int(kernel) << " " << testing::PrintToString(s);
        }
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

// ---- through the host ----

class UTF8Methods : public HostTest {};

TEST_F(UTF8Methods, CheckUTF8RepairsEveryOverloadAsUTF8) {
    std::string bytes =
        "a\xFF"
        "b\xED\xA0\x80";
    Value fromString = call("CheckUTF8KXT", {Raw(bytes), S("?")});
    EXPECT_EQ(fromString.bytes(), "a?b???");
    EXPECT_EQ(fromString.encoding(), kREALTextEncodingUTF8);
    EXPECT_EQ(callBytes("CheckUTF8KXT", {MB(bytes), S("?")}), "a?b???");
    Value fromPtr =
        call("CheckUTF8KXT", {Value::pointer(bytes.data()), I(int64_t(bytes.size())), S("?")});
    EXPECT_EQ(fromPtr.bytes(), "a?b???");
    EXPECT_EQ(fromPtr.encoding(), kREALTextEncodingUTF8);
    // Only the given size is read.
    EXPECT_EQ(callBytes("CheckUTF8KXT", {Value::pointer(bytes.data()), I(2), S("?")}), "a?");
}

TEST_F(UTF8Methods, CheckUTF8ReadsThePlaceholderAsText) {
    const std::string utf16Replacement("\xFD\xFF", 2);  // U+FFFD in host order
    EXPECT_EQ(
        callBytes("CheckUTF8KXT", {Raw("x\x80"), S(utf16Replacement, kREALTextEncodingUTF16)}),
        "x\xEF\xBF\xBD");
    EXPECT_EQ(callBytes("CheckUTF8KXT", {Raw("x\x80y"), Nil()}), "xy");
    // Valid input comes back unchanged and tagged UTF-8, whatever it was tagged before.
    Value valid = call("CheckUTF8KXT", {Raw("caf\xC3\xA9"), S("?")});
    EXPECT_EQ(valid.bytes(), "caf\xC3\xA9");
    EXPECT_EQ(valid.encoding(), kREALTextEncodingUTF8);
}

TEST_F(UTF8Methods, CheckUTF8OfNothingIsNil) {
    EXPECT_TRUE(call("CheckUTF8KXT", {Nil(), S("?")}).isNil());
    EXPECT_TRUE(call("CheckUTF8KXT", {S(""), S("?")}).isNil());
    EXPECT_TRUE(call("CheckUTF8KXT", {Value::pointer(nullptr), I(5), S("?")}).isNil());
    std::string bytes = "abc";
    EXPECT_TRUE(call("CheckUTF8KXT", {Value::pointer(bytes.data()), I(0), S("?")}).isNil());
    EXPECT_TRUE(call("CheckUTF8KXT", {Value::pointer(bytes.data()), I(-1), S("?")}).isNil());
}

TEST_F(UTF8Methods, GetStringsFromDataForEveryOverload) {
    const std::string data = "hello\0\0world"s;
    const std::vector<std::string> both{"hello", "world"};
    EXPECT_EQ(call("GetStringsFromDataKXT", {Raw(data), I(4)}).strings(), both);
    EXPECT_EQ(call("GetStringsFromDataKXT", {Raw(data)}).strings(), both);
    EXPECT_EQ(call("GetStringsFromDataKXT", {MB(data), I(4)}).strings(), both);
    EXPECT_EQ(call("GetStringsFromDataKXT", {MB(data)}).strings(), both);
    std::string copy = data;
    EXPECT_EQ(
        call("GetStringsFromDataKXT", {Value::pointer(copy.data()), I(int64_t(copy.size())), I(4)})
            .strings(),
        both);
    EXPECT_EQ(call("GetStringsFromDataKXT", {Value::pointer(copy.data()), I(5)}).strings(),
              std::vector<std::string>{"hello"});
}

// Under an address-space limit the host runs out of memory while the strings pile up: the call
// still returns (with what fitted, or nil) instead of ending the application.
TEST_F(UTF8Methods, GetStringsFromDataSurvivesRunningOutOfMemory) {
#ifdef KXT_SANITIZED
    GTEST_SKIP() << "AddressSanitizer needs more address space than the limit leaves";
#endif
    std::mt19937_64 rng(60);
    std::string bytes(4 << 20, '\0');
    for (size_t i = 0; i + 8 <= bytes.size(); i += 8) {
        uint64_t r = rng();
        std::memcpy(&bytes[i], &r, 8);
    }
    Value data = Raw(bytes);
    auto callUnderALimit = [&] {
        long pages = 0;
        if (FILE* f = fopen("/proc/self/statm", "r")) {
            if (fscanf(f, "%ld", &pages) != 1) pages = 0;
            fclose(f);
        }
        const rlim_t limit = rlim_t(pages) * rlim_t(sysconf(_SC_PAGESIZE)) + (24u << 20);
        const rlimit r = {limit, limit};
        setrlimit(RLIMIT_AS, &r);
        host().call("GetStringsFromDataKXT", {data});
        fprintf(stderr, "services failed: %llu\n", (unsigned long long)host().serviceFailures());
        _exit(0);
    };
    EXPECT_EXIT(callUnderALimit(), ::testing::ExitedWithCode(0), "services failed: [1-9]");
}

TEST_F(UTF8Methods, GetStringsFromDataWithNothingFound) {
    Value none = call("GetStringsFromDataKXT", {Raw("hello\0\0world"s), I(5)});
    EXPECT_FALSE(none.isNil());
    EXPECT_TRUE(none.strings().empty());
    EXPECT_TRUE(call("GetStringsFromDataKXT", {Raw(" \t \t")}).strings().empty());
    EXPECT_TRUE(call("GetStringsFromDataKXT", {Nil()}).isNil());
    EXPECT_TRUE(call("GetStringsFromDataKXT", {Value::pointer(nullptr), I(3)}).isNil());
    std::string bytes = "abc";
    EXPECT_TRUE(call("GetStringsFromDataKXT", {Value::pointer(bytes.data()), I(-1)}).isNil());
}

TEST_F(UTF8Methods, ExtractedStringsAreUTF8) {
    Value r = call("GetStringsFromDataKXT", {Raw("\x01\xC3\xA9t\xC3\xA9\x02")});
    EXPECT_EQ(r.strings(), std::vector<std::string>{"\xC3\xA9t\xC3\xA9"});
}

TEST_F(UTF8Methods, IsASCIIStringByMode) {
    struct Row {
        std::vector<Value> args;
        bool expected;
    } rows[] = {
        {{Nil()}, true},
        {{S("")}, true},
        {{S("abc")}, true},
        {{S("\xC3\xA9")}, false},
        {{Nil(), I(3)}, true},
        {{S("abc"), I(3)}, false},
        {{S("a\x7F"), I(1)}, true},
        {{S("a\t"), I(1)}, false},
        {{Raw("a\x80"), I(2)}, true},
        {{S("a\n"), I(2)}, false},
        {{S("a\n"), I(0)}, true},
    };
    for (const Row& r : rows) {
        EXPECT_EQ(call("IsASCIIStringKXT", r.args).asBoolean(), r.expected)
            << r.args[0].bytes() << " with " << r.args.size() << " arguments";
    }
}

TEST_F(UTF8Methods, ReplaceNonPrintableGivesASCII) {
    Value r = call("ReplaceNonPrintableCharactersKXT", {S("\ta\xC3\xA9")});
    EXPECT_EQ(r.bytes(), ".a..");
    EXPECT_EQ(r.encoding(), kREALTextEncodingASCII);
    EXPECT_EQ(callBytes("ReplaceNonPrintableCharactersKXT", {S("\x01x\x7F"), I(63)}), "?x\x7F");
    EXPECT_EQ(callBytes("ReplaceNonPrintableCharactersKXT", {S("\x01"), I(256 + 42)}), "*");
    EXPECT_TRUE(call("ReplaceNonPrintableCharactersKXT", {Nil()}).isNil());
    const std::string long_(1000, '\x05');
    EXPECT_EQ(callBytes("ReplaceNonPrintableCharactersKXT", {Raw(long_)}), std::string(1000, '.'));
}

}  // namespace
