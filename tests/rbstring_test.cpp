// UTF-8 repair and validity scans, string extraction, ASCII tests and printable replacement over
// plain buffers; the 16-byte paths against the byte loops of search_reference.h.
#include "rbstring.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <optional>
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
        for (size_t i = 0; i < s.size(); ++i) {
            ASSERT_EQ(kxt::wellFormedSequenceLength(s.substr(i)), ref::sequenceLength(s, i))
                << testing::PrintToString(s) << " at " << i;
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

// Valid text of every length around the blocks with one byte changed to a value where byte
// classes change, or cut inside its last sequence, some of it all ASCII for a while first (the
// 64-byte skip). The block validator decides alone when it accepts, so each kernel (the
// dispatcher uses only the best one here), the plain twin included, must accept exactly the
// well-formed buffers; the scans and the repair built on it agree with their byte loops.
TEST(FastPathsAgreeWithByteLoops, OneFlawInValidText) {
    std::mt19937_64 rng(1618);
    const std::string edges = ref::adversarialBytes(rng, 4096);
    using kxt::simd::UTF8Kernel;
    for (int iteration = 0; iteration < 40000; ++iteration) {
        std::string s = iteration % 7 == 0 ? std::string(rng() % 200, 'x') : std::string();
        s += ref::mostlyUTF8(rng, rng() % 150, 0);
        if (!s.empty() && iteration % 4 == 1) s.pop_back();
        if (!s.empty() && iteration % 4 >= 2) s[rng() % s.size()] = edges[rng() % edges.size()];
        const size_t wellFormed = ref::wellFormedPrefix(s);
        ASSERT_EQ(kxt::wellFormedPrefixLength(s), wellFormed) << testing::PrintToString(s);
        ASSERT_EQ(repaired(s, "?"), ref::repairUTF8(s, "?")) << testing::PrintToString(s);
        for (UTF8Kernel kernel :
             {UTF8Kernel::Plain, UTF8Kernel::SSSE3, UTF8Kernel::AVX2, UTF8Kernel::Neon}) {
            if (!kxt::simd::kernelAvailable(kernel)) continue;
            ASSERT_EQ(kxt::simd::wellFormedUTF8(u8(s), s.size(), kernel), wellFormed == s.size())
                << "kernel " << int(kernel) << " " << testing::PrintToString(s);
        }
    }
}

// Extraction where random input does not reach: long rejected runs (stepping one byte at a time
// through them, each step rescanning the rest, would take minutes) and minimum lengths at the
// ends of their range.
TEST(Extraction, LongRunsAndExtremeMinimumLengths) {
    EXPECT_EQ(extracted(std::string(1 << 20, ' ') + "\x01word", 0),
              std::vector<std::string>{"word"});
    EXPECT_EQ(extracted(std::string(1 << 20, 'x') + "\x01yz", 1 << 20), std::vector<std::string>{});
    EXPECT_EQ(extracted("x", INT64_MAX), std::vector<std::string>{});
    EXPECT_EQ(extracted("hello\0\0world"s, -7), (std::vector<std::string>{"hello", "world"}));
}

// ---- through the host ----

class UTF8Methods : public HostTest {};

// Every overload repairs into UTF-8 (nil when there is nothing to read), the placeholder read as
// text; a Ptr is read only up to the given size.
TEST_F(UTF8Methods, CheckUTF8ForEveryOverload) {
    std::string bytes =
        "a\xFF"
        "b\xED\xA0\x80";
    Value ptr = Value::pointer(bytes.data());
    const struct {
        std::vector<Value> args;
        std::optional<std::string> expected;  // nullopt: nil
    } rows[] = {
        {{Raw(bytes), S("?")}, "a?b???"},
        {{MB(bytes), S("?")}, "a?b???"},
        {{ptr, I(int64_t(bytes.size())), S("?")}, "a?b???"},
        {{ptr, I(2), S("?")}, "a?"},
        {{Raw("x\x80"), S("\xFD\xFF"s, kREALTextEncodingUTF16)}, "x\xEF\xBF\xBD"},
        {{Raw("x\x80y"), Nil()}, "xy"},
        {{Raw("caf\xC3\xA9"), S("?")}, "caf\xC3\xA9"},
        {{Nil(), S("?")}, std::nullopt},
        {{S(""), S("?")}, std::nullopt},
        {{Value::pointer(nullptr), I(5), S("?")}, std::nullopt},
        {{ptr, I(0), S("?")}, std::nullopt},
        {{ptr, I(-1), S("?")}, std::nullopt},
    };
    for (const auto& r : rows) {
        Value v = call("CheckUTF8KXT", r.args);
        SCOPED_TRACE(testing::PrintToString(r.args));
        EXPECT_EQ(v.isNil(), !r.expected);
        if (r.expected) {
            EXPECT_EQ(v.bytes(), *r.expected);
            EXPECT_EQ(v.encoding(), kREALTextEncodingUTF8);
        }
    }
}

// Every overload, with and without the minimum length; nil when there is nothing to read, an
// empty array when nothing is found.
TEST_F(UTF8Methods, GetStringsFromDataForEveryOverload) {
    std::string data = "hello\0\0world"s;
    Value ptr = Value::pointer(data.data());
    const std::vector<std::string> both{"hello", "world"};
    const struct {
        std::vector<Value> args;
        std::optional<std::vector<std::string>> expected;  // nullopt: nil
    } rows[] = {
        {{Raw(data), I(4)}, both},
        {{Raw(data)}, both},
        {{MB(data), I(4)}, both},
        {{MB(data)}, both},
        {{ptr, I(int64_t(data.size())), I(4)}, both},
        {{ptr, I(5)}, std::vector<std::string>{"hello"}},
        {{Raw(data), I(5)}, std::vector<std::string>{}},
        {{Raw(" \t \t")}, std::vector<std::string>{}},
        {{Raw("\x01\xC3\xA9t\xC3\xA9\x02")}, std::vector<std::string>{"\xC3\xA9t\xC3\xA9"}},
        {{Nil()}, std::nullopt},
        {{Value::pointer(nullptr), I(3)}, std::nullopt},
        {{ptr, I(-1)}, std::nullopt},
    };
    for (const auto& r : rows) {
        Value v = call("GetStringsFromDataKXT", r.args);
        SCOPED_TRACE(testing::PrintToString(r.args));
        EXPECT_EQ(v.isNil(), !r.expected);
        if (r.expected) {
            EXPECT_EQ(v.strings(), *r.expected);
        }
    }
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

// The cases the documented examples leave out: nil, mode 3 of nil, mode 2 of high bytes, line
// ends in modes 0 and 2.
TEST_F(UTF8Methods, IsASCIIStringByMode) {
    const struct {
        std::vector<Value> args;
        bool expected;
    } rows[] = {
        {{Nil()}, true},           {{S("")}, true},
        {{Nil(), I(3)}, true},     {{Raw("a\x80"), I(2)}, true},
        {{S("a\n"), I(2)}, false}, {{S("a\n"), I(0)}, true},
    };
    for (const auto& r : rows) {
        EXPECT_EQ(call("IsASCIIStringKXT", r.args).asBoolean(), r.expected)
            << testing::PrintToString(r.args);
    }
}

// The replacement taken modulo 256, nil, and a result longer than one block; the documented
// examples give the default replacement and the ASCII tag.
TEST_F(UTF8Methods, ReplaceNonPrintable) {
    EXPECT_EQ(callBytes("ReplaceNonPrintableCharactersKXT", {S("\x01x\x7F"), I(63)}), "?x\x7F");
    EXPECT_EQ(callBytes("ReplaceNonPrintableCharactersKXT", {S("\x01"), I(256 + 42)}), "*");
    EXPECT_TRUE(call("ReplaceNonPrintableCharactersKXT", {Nil()}).isNil());
    const std::string long_(1000, '\x05');
    EXPECT_EQ(callBytes("ReplaceNonPrintableCharactersKXT", {Raw(long_)}), std::string(1000, '.'));
}

}  // namespace
