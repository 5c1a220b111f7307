// Edit distance (bit-parallel against the full table it replaces), Jaro-Winkler, and line-ending
// replacement on 64 MiB. Every benchmark reports the peak heap use of one call.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "Distance.h"
#include "ReplaceLineEndings.h"

// Heap accounting for the whole program, so the plugin code's allocations are seen too.
namespace {
std::atomic<size_t> gLiveBytes{0}, gPeakBytes{0};
}  // namespace

void* operator new(size_t size) {
    void* p = std::malloc(size + 16);
    if (!p) throw std::bad_alloc();
    *static_cast<size_t*>(p) = size;
    const size_t live = gLiveBytes += size;
    size_t peak = gPeakBytes.load();
    while (live > peak && !gPeakBytes.compare_exchange_weak(peak, live)) {
    }
    return static_cast<char*>(p) + 16;
}
void operator delete(void* p) noexcept {
    if (!p) return;
    void* block = static_cast<char*>(p) - 16;
    gLiveBytes -= *static_cast<size_t*>(block);
    std::free(block);
}
void operator delete(void* p, size_t) noexcept {
    operator delete(p);
}

namespace {

// Text-like operands: b is a with about one edit in ten (swaps, insertions, deletions, changes).
std::pair<std::vector<uint32_t>, std::vector<uint32_t>> operands(size_t length) {
    std::mt19937 rng(42);
    std::vector<uint32_t> a(length);
    for (auto& c : a) c = 'a' + rng() % 26;
    std::vector<uint32_t> b = a;
    for (size_t k = 0; k < length / 10; ++k) {
        const size_t pos = rng() % (b.size() - 1);
        switch (k % 4) {
            case 0:
                std::swap(b[pos], b[pos + 1]);
                break;
            case 1:
                b.insert(b.begin() + long(pos), 'a' + rng() % 26);
                break;
            case 2:
                b.erase(b.begin() + long(pos));
                break;
            default:
                b[pos] = 'a' + rng() % 26;
        }
    }
    return {a, b};
}

// The full (la + 1) x (lb + 1) table of 8-byte cells, as the distance is defined.
int64_t matrixDistance(const std::vector<uint32_t>& a, const std::vector<uint32_t>& b) {
    const size_t la = a.size(), lb = b.size();
    std::vector<int64_t> d((la + 1) * (lb + 1));
    auto at = [&](size_t i, size_t j) -> int64_t& { return d[i + j * (la + 1)]; };
    for (size_t i = 0; i <= la; ++i) at(i, 0) = int64_t(i);
    for (size_t j = 0; j <= lb; ++j) at(0, j) = int64_t(j);
    for (size_t i = 1; i <= la; ++i) {
        for (size_t j = 1; j <= lb; ++j) {
            const int64_t cost = a[i - 1] == b[j - 1] ? 0 : 1;
            at(i, j) = std::min({at(i - 1, j) + 1, at(i, j - 1) + 1, at(i - 1, j - 1) + cost});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                at(i, j) = std::min(at(i, j), at(i - 2, j - 2) + cost);
        }
    }
    return at(la, lb);
}

void reportPeak(benchmark::State& state, size_t before) {
    state.counters["peak_heap_bytes"] = double(gPeakBytes.load() - before);
}

void BM_LevenshteinBitParallel(benchmark::State& state) {
    const auto [a, b] = operands(size_t(state.range(0)));
    gPeakBytes = gLiveBytes.load();
    const size_t before = gLiveBytes.load();
    for (auto _ : state) benchmark::DoNotOptimize(kxt::levenshteinDistance(a, b));
    reportPeak(state, before);
}
BENCHMARK(BM_LevenshteinBitParallel)->Arg(2000)->Arg(10000)->Unit(benchmark::kMillisecond);

void BM_LevenshteinFullTable(benchmark::State& state) {
    const auto [a, b] = operands(size_t(state.range(0)));
    gPeakBytes = gLiveBytes.load();
    const size_t before = gLiveBytes.load();
    for (auto _ : state) benchmark::DoNotOptimize(matrixDistance(a, b));
    reportPeak(state, before);
}
BENCHMARK(BM_LevenshteinFullTable)->Arg(2000)->Arg(10000)->Unit(benchmark::kMillisecond);

void BM_JaroWinkler(benchmark::State& state) {
    const auto [a, b] = operands(size_t(state.range(0)));
    gPeakBytes = gLiveBytes.load();
    const size_t before = gLiveBytes.load();
    for (auto _ : state) benchmark::DoNotOptimize(kxt::jaroWinklerDistance(a, b));
    reportPeak(state, before);
}
BENCHMARK(BM_JaroWinkler)->Arg(2000)->Arg(10000)->Unit(benchmark::kMillisecond);

// 64 MiB of lines of 20 to 99 bytes, ending in CR LF, LF or CR.
std::string lines64MiB() {
    std::mt19937 rng(3);
    std::string text;
    text.reserve(size_t(64) << 20);
    while (text.size() < (size_t(64) << 20)) {
        text.append(20 + rng() % 80, 'x');
        const char* ends[] = {"\r\n", "\n", "\r"};
        text += ends[rng() % 3];
    }
    text.resize(size_t(64) << 20);
    return text;
}

int gYields = 0;
void countYield() {
    ++gYields;
}

void BM_ReplaceLineEndings64MiB(benchmark::State& state) {
    const std::string text = lines64MiB();
    const bool yield = state.range(0) != 0;
    gPeakBytes = gLiveBytes.load();
    const size_t before = gLiveBytes.load();
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            kxt::replaceLineEndings(text, "\n", yield ? &countYield : nullptr));
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(text.size()));
    reportPeak(state, before);
}
BENCHMARK(BM_ReplaceLineEndings64MiB)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// Baseline: allocating and writing 64 MiB of fresh memory, which any new result must pay for.
void BM_FreshBuffer64MiB(benchmark::State& state) {
    for (auto _ : state) {
        std::string out(size_t(64) << 20, 'x');
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * (int64_t(64) << 20));
}
BENCHMARK(BM_FreshBuffer64MiB)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
