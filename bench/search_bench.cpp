// The vector paths of search, byte arithmetic and UTF-8 checking against the plain byte loops
// they must agree with, on 64 MiB inputs. Run: build/bench/search_bench (built with
// -DKXT_BENCH=ON).
#include <benchmark/benchmark.h>

#include <random>
#include <string>

#include "MainInstr.h"
#include "rbstring.h"
#include "search_reference.h"
#include "stringcalc.h"

namespace {

constexpr size_t kSize = size_t(64) << 20;

// Printable ASCII text without the bytes the searches look for.
const std::string& asciiText() {
    static const std::string text = [] {
        std::mt19937_64 rng(1);
        std::string s(kSize, ' ');
        for (char& c : s) c = char('a' + rng() % 26);
        return s;
    }();
    return text;
}

const std::string& utf8Text() {
    static const std::string text = [] {
        std::mt19937_64 rng(2);
        std::string s = ref::mostlyUTF8(rng, kSize / 3, 0);
        s.resize(kSize, ' ');
        // Cut at a code point boundary so the text stays valid.
        while ((uint8_t(s[s.size() - 1]) & 0xC0) == 0x80 || uint8_t(s[s.size() - 1]) >= 0xC0) {
            s.pop_back();
        }
        return s;
    }();
    return text;
}

const std::string& binaryData() {
    static const std::string data = [] {
        std::mt19937_64 rng(3);
        std::string s(kSize, '\0');
        for (char& c : s) c = char(rng());
        return s;
    }();
    return data;
}

template <typename F>
void run(benchmark::State& state, const std::string& input, F f) {
    for (auto _ : state) benchmark::DoNotOptimize(f(input));
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(input.size()));
}

// ---- search ----
void BM_FirstOfAny(benchmark::State& s) {
    run(s, asciiText(), [](auto& t) { return kxt::firstOfAny(t, "\x01\x02!"); });
}
void BM_FirstOfAny_Loop(benchmark::State& s) {
    run(s, asciiText(), [](auto& t) { return ref::firstOfAny(t, "\x01\x02!"); });
}
void BM_FirstInRanges(benchmark::State& s) {
    const std::vector<kxt::ByteRange> r{{0, 31}, {128, 255}, {48, 57}};
    run(s, asciiText(), [&](auto& t) { return kxt::firstInRanges(t, r); });
}
void BM_FirstInRanges_Loop(benchmark::State& s) {
    const std::vector<ref::Range> r{{0, 31}, {128, 255}, {48, 57}};
    run(s, asciiText(), [&](auto& t) { return ref::firstInRanges(t, r); });
}
void BM_FirstInSignedRangesOrSet(benchmark::State& s) {
    const std::vector<kxt::ByteRange> r{{-128, -1}, {0, 31}};
    run(s, asciiText(), [&](auto& t) { return kxt::firstInSignedRangesOrSet(t, r, "#@"); });
}
void BM_FirstInSignedRangesOrSet_Loop(benchmark::State& s) {
    const std::vector<ref::Range> r{{-128, -1}, {0, 31}};
    run(s, asciiText(), [&](auto& t) { return ref::firstInSignedRangesOrSet(t, r, "#@"); });
}
void BM_CountByte(benchmark::State& s) {
    run(s, asciiText(), [](auto& t) { return kxt::countOccurrences(t, "e"); });
}
void BM_CountByte_Loop(benchmark::State& s) {
    run(s, asciiText(), [](auto& t) { return ref::countOccurrences(t, "e"); });
}
void BM_CountWord(benchmark::State& s) {
    run(s, asciiText(), [](auto& t) { return kxt::countOccurrences(t, "abc"); });
}
void BM_CountWord_Loop(benchmark::State& s) {
    run(s, asciiText(), [](auto& t) { return ref::countOccurrences(t, "abc"); });
}
void BM_CountPeriodic(benchmark::State& s) {
    static const std::string periodic(kSize, 'a');
    const std::string find = std::string(63, 'a') + "b";
    run(s, periodic, [&](auto& t) { return kxt::countOccurrences(t, find); });
}
void BM_CountPeriodic_Loop(benchmark::State& s) {
    static const std::string periodic(kSize, 'a');
    const std::string find = std::string(63, 'a') + "b";
    run(s, periodic, [&](auto& t) { return ref::countOccurrences(t, find); });
}

// ---- byte arithmetic ----
void BM_MaskAND(benchmark::State& s) {
    const std::string mask(size_t(s.range(0)), '\x5A');
    std::string out(kSize, '\0');
    run(s, binaryData(), [&](auto& t) {
        kxt::maskAND(t, mask, reinterpret_cast<uint8_t*>(out.data()));
        return out[0];
    });
}
void BM_MaskAND_Loop(benchmark::State& s) {
    const std::string mask(size_t(s.range(0)), '\x5A');
    run(s, binaryData(), [&](auto& t) { return ref::applyMask(t, mask, 0, ref::MaskOp::And)[0]; });
}
void BM_MaskXORIndexed(benchmark::State& s) {
    const std::string mask(size_t(s.range(0)), '\x5A');
    std::string out(kSize, '\0');
    run(s, binaryData(), [&](auto& t) {
        kxt::maskXORIndexed(t, mask, 1, reinterpret_cast<uint8_t*>(out.data()));
        return out[0];
    });
}
void BM_MaskXORIndexed_Loop(benchmark::State& s) {
    const std::string mask(size_t(s.range(0)), '\x5A');
    run(s, binaryData(),
        [&](auto& t) { return ref::applyMask(t, mask, 1, ref::MaskOp::XorIndexed)[0]; });
}

// ---- UTF-8 and ASCII ----
void BM_ReplaceNonPrintable(benchmark::State& s) {
    std::string out(kSize, '\0');
    run(s, binaryData(), [&](auto& t) {
        kxt::replaceNonPrintable(t, '.', reinterpret_cast<uint8_t*>(out.data()));
        return out[0];
    });
}
void BM_ReplaceNonPrintable_Loop(benchmark::State& s) {
    run(s, binaryData(), [](auto& t) { return ref::replaceNonPrintable(t, '.')[0]; });
}
void BM_IsASCII(benchmark::State& s) {
    run(s, asciiText(), [&](auto& t) { return kxt::isASCIIText(t, s.range(0)); });
}
void BM_IsASCII_Loop(benchmark::State& s) {
    run(s, asciiText(), [&](auto& t) { return ref::isASCIIText(t, s.range(0)); });
}
void BM_WellFormedUTF8(benchmark::State& s) {
    run(s, utf8Text(), [](auto& t) { return kxt::wellFormedPrefixLength(t); });
}
void BM_WellFormedUTF8_Loop(benchmark::State& s) {
    run(s, utf8Text(), [](auto& t) { return ref::wellFormedPrefix(t); });
}
void BM_WellFormedASCII(benchmark::State& s) {
    run(s, asciiText(), [](auto& t) { return kxt::wellFormedPrefixLength(t); });
}
void BM_RepairValidASCII(benchmark::State& s) {
    run(s, asciiText(), [](auto& t) {
        std::string out;
        out.reserve(t.size() + 4096);
        kxt::CheckUTF8(out, "?", reinterpret_cast<const uint8_t*>(t.data()), t.size());
        return out.size();
    });
}
void BM_RepairValidASCII_Loop(benchmark::State& s) {
    run(s, asciiText(), [](auto& t) { return ref::repairUTF8(t, "?").size(); });
}
void BM_RepairValidUTF8(benchmark::State& s) {
    run(s, utf8Text(), [](auto& t) {
        std::string out;
        out.reserve(t.size() + 4096);
        kxt::CheckUTF8(out, "?", reinterpret_cast<const uint8_t*>(t.data()), t.size());
        return out.size();
    });
}
void BM_RepairValidUTF8_Loop(benchmark::State& s) {
    run(s, utf8Text(), [](auto& t) { return ref::repairUTF8(t, "?").size(); });
}
void BM_StringsInBinary(benchmark::State& s) {
    run(s, binaryData(), [](auto& t) { return kxt::stringsInData(t, 3).size(); });
}
void BM_StringsInText(benchmark::State& s) {
    run(s, asciiText(), [](auto& t) { return kxt::stringsInData(t, 3).size(); });
}

}  // namespace

#define KXT_BENCH(name) BENCHMARK(name)->Unit(benchmark::kMillisecond)
KXT_BENCH(BM_FirstOfAny);
KXT_BENCH(BM_FirstOfAny_Loop);
KXT_BENCH(BM_FirstInRanges);
KXT_BENCH(BM_FirstInRanges_Loop);
KXT_BENCH(BM_FirstInSignedRangesOrSet);
KXT_BENCH(BM_FirstInSignedRangesOrSet_Loop);
KXT_BENCH(BM_CountByte);
KXT_BENCH(BM_CountByte_Loop);
KXT_BENCH(BM_CountWord);
KXT_BENCH(BM_CountWord_Loop);
KXT_BENCH(BM_CountPeriodic);
KXT_BENCH(BM_CountPeriodic_Loop);
KXT_BENCH(BM_MaskAND)->Arg(1)->Arg(3)->Arg(4)->Arg(100);
KXT_BENCH(BM_MaskAND_Loop)->Arg(1)->Arg(3)->Arg(4)->Arg(100);
KXT_BENCH(BM_MaskXORIndexed)->Arg(3)->Arg(100);
KXT_BENCH(BM_MaskXORIndexed_Loop)->Arg(3)->Arg(100);
KXT_BENCH(BM_ReplaceNonPrintable);
KXT_BENCH(BM_ReplaceNonPrintable_Loop);
KXT_BENCH(BM_IsASCII)->Arg(0)->Arg(1)->Arg(2);
KXT_BENCH(BM_IsASCII_Loop)->Arg(0)->Arg(1)->Arg(2);
KXT_BENCH(BM_WellFormedASCII);
KXT_BENCH(BM_WellFormedUTF8);
KXT_BENCH(BM_WellFormedUTF8_Loop);
KXT_BENCH(BM_RepairValidASCII);
KXT_BENCH(BM_RepairValidASCII_Loop);
KXT_BENCH(BM_RepairValidUTF8);
KXT_BENCH(BM_RepairValidUTF8_Loop);
KXT_BENCH(BM_StringsInBinary);
KXT_BENCH(BM_StringsInText);

BENCHMARK_MAIN();
