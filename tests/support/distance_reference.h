// The distances exactly as defined, for the differential tests and as the benchmarks' anchors.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace ref {

// The full table, column by column, as the distance is defined (adjacent swaps cost 1).
inline int64_t matrixDistance(const std::vector<uint32_t>& a, const std::vector<uint32_t>& b) {
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
inline double straightJaroWinkler(const std::vector<uint32_t>& a, const std::vector<uint32_t>& b) {
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

}  // namespace ref
