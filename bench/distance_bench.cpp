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
#include "distance_reference.h"

using namespace bench;
using ref::matrixDistance;
using ref::straightJaroWinkler;

namespace {

using Points32 = std::vector<uint32_t>;

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
    for (size_t count : std::initializer_list<size_t>{256, 2000, 10000, 20000}) {
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
