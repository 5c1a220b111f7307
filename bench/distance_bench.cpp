// The distances on multilingual operands of 256 to 20,000 code points, the second a copy of the
// first with about one edit in ten: Levenshtein (bit-parallel) against the full (la+1) x (lb+1)
// table of 8-byte cells the distance is defined by, and Jaro-Winkler against a straightforward
// implementation. Both are quadratic in the worst case, so sizes are counted in code points.
// Every plain benchmark reports the peak heap use of one call. Run: build/bench/distance_bench
// (configure with -DKXT_BENCH=ON).
#include <algorithm>

#include "Bench.h"
#include "Distance.h"
#include "HeapCount.h"

using namespace bench;

namespace {

using Points32 = std::vector<uint32_t>;

// The full table, column by column, as the distance is defined (adjacent swaps cost 1).
int64_t matrixDistance(const Points32& a, const Points32& b) {
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

// Jaro-Winkler similarity exactly as defined: flags, window, transpositions, prefix boost.
double straightJaroWinkler(const Points32& a, const Points32& b) {
    const size_t la = a.size(), lb = b.size();
    if (la == 0) return lb == 0 ? 1.0 : 0.0;
    std::vector<char> fa(la), fb(lb);
    const int64_t w = std::max<int64_t>(int64_t(std::max(la, lb)) / 2 - 1, 0);
    int64_t m = 0;
    for (size_t i = 0; i < la; ++i) {
        const int64_t from = std::max<int64_t>(int64_t(i) - w, 0);
        const int64_t to = std::min<int64_t>(int64_t(i) + w + 1, int64_t(lb));
        for (int64_t j = from; j < to; ++j) {
            if (!fb[size_t(j)] && b[size_t(j)] == a[i]) {
                fa[i] = fb[size_t(j)] = 1;
                ++m;
                break;
            }
        }
    }
    if (m == 0) return 0.0;
    int64_t t = 0;
    for (size_t i = 0, j = 0; i < la; ++i) {
        if (!fa[i]) continue;
        while (!fb[j]) ++j;
        if (a[i] != b[j]) ++t;
        ++j;
    }
    const double jaro =
        (double(m) / double(la) + double(m) / double(lb) + double(m - t / 2) / double(m)) / 3.0;
    if (jaro <= 0.7) return jaro;
    const size_t limit = std::min({la, size_t(4), lb});
    size_t l = 0;
    while (l < limit && a[l] == b[l]) ++l;
    return jaro + double(l) * 0.1 * (1 - jaro);
}

std::string utf8Of(const Points32& p) {
    std::u16string units;
    for (uint32_t cp : p) {
        if (cp < 0x10000) {
            units += char16_t(cp);
        } else {
            units += char16_t(0xD800 + ((cp - 0x10000) >> 10));
            units += char16_t(0xDC00 + ((cp - 0x10000) & 0x3FF));
        }
    }
    return toUTF8(units);
}

void addDistance(const std::string& layer, const std::string& what, const std::string& anchor,
                 size_t count,
                 std::function<void(benchmark::State&, const Points32&, const Points32&)> body) {
    const std::string name =
        layer + ":" + what + "/multilingual-edits/" + std::to_string(count) + "cp";
    auto* b = benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& st) {
        const auto [a, b] = distanceOperands(count);
        const size_t base = heap::resetPeak();
        body(st, a, b);
        if (layer != "host") st.counters["peak_heap_bytes"] = double(heap::peakSince(base));
        if (!anchor.empty()) st.SetLabel(anchor);
    });
    b->Unit(benchmark::kMillisecond)->MinTime(count >= 10000 ? 0.3 : 0.1);
}

const int registered = [] {
    for (size_t count : {256, 2000, 10000, 20000}) {
        addDistance("host", "LevenshteinDistanceKXT", "full-matrix", count,
                    [](auto& st, const Points32& a, const Points32& b) {
                        hostLoop(st, "LevenshteinDistanceKXT", {text(utf8Of(a)), text(utf8Of(b))},
                                 (a.size() + b.size()) * 4, false);
                    });
        addDistance("plain", "kxt::osaDistance", "full-matrix", count,
                    [](auto& st, const Points32& a, const Points32& b) {
                        loop(st, (a.size() + b.size()) * 4, [&] { return kxt::osaDistance(a, b); });
                    });
        if (count <= 10000) {
            addDistance("anchor", "full-matrix", "", count,
                        [](auto& st, const Points32& a, const Points32& b) {
                            // The anchor is only worth comparing with when results agree.
                            if (matrixDistance(a, b) != kxt::osaDistance(a, b)) {
                                return st.SkipWithError("osaDistance differs from the table");
                            }
                            loop(st, (a.size() + b.size()) * 4,
                                 [&] { return matrixDistance(a, b); });
                        });
        }
        addDistance("host", "JaroWinklerDistanceKXT", "straight-jaro-winkler", count,
                    [](auto& st, const Points32& a, const Points32& b) {
                        hostLoop(st, "JaroWinklerDistanceKXT", {text(utf8Of(a)), text(utf8Of(b))},
                                 (a.size() + b.size()) * 4, false);
                    });
        addDistance("plain", "kxt::proximityToString", "straight-jaro-winkler", count,
                    [](auto& st, const Points32& a, const Points32& b) {
                        loop(st, (a.size() + b.size()) * 4,
                             [&] { return kxt::proximityToString(a, b); });
                    });
        addDistance("anchor", "straight-jaro-winkler", "", count,
                    [](auto& st, const Points32& a, const Points32& b) {
                        if (straightJaroWinkler(a, b) != kxt::proximityToString(a, b)) {
                            return st.SkipWithError("proximityToString differs");
                        }
                        loop(st, (a.size() + b.size()) * 4,
                             [&] { return straightJaroWinkler(a, b); });
                    });
    }
    return 0;
}();

}  // namespace

BENCHMARK_MAIN();
