#include "Distance.h"

#include <algorithm>
#include <cstdio>
#include <new>
#include <vector>

#include "rbException.h"
#include "rbText.h"

namespace kxt {

double proximityToString(CodePoints a, CodePoints b) {
    const int64_t la = int64_t(a.size()), lb = int64_t(b.size());
    if (la == 0) return lb == 0 ? 1.0 : 0.0;

    std::vector<uint8_t> flags(size_t(la + lb), 0);
    uint8_t* matchedA = flags.data();
    uint8_t* matchedB = flags.data() + la;

    const int64_t window = std::max<int64_t>(std::max(la, lb) / 2 - 1, 0);
    int64_t m = 0;
    for (int64_t i = 0; i < la; ++i) {
        const int64_t end = std::min(i + window + 1, lb);
        for (int64_t j = std::max<int64_t>(i - window, 0); j < end; ++j) {
            if (!matchedB[j] && b[size_t(j)] == a[size_t(i)]) {
                matchedA[i] = matchedB[j] = 1;
                ++m;
                break;
            }
        }
    }
    if (m == 0) return 0.0;

    int64_t t = 0;
    for (int64_t i = 0, k = 0; i < la; ++i) {
        if (!matchedA[i]) continue;
        while (!matchedB[k]) ++k;
        if (a[size_t(i)] != b[size_t(k)]) ++t;
        ++k;
    }
    const double md = double(m);
    const double jaro = (md / double(la) + md / double(lb) + double(m - t / 2) / md) / 3.0;
    if (!(jaro > 0.7)) return jaro;

    const int64_t limit = std::min({la, int64_t(4), lb});
    int64_t prefix = 0;
    while (prefix < limit && a[size_t(prefix)] == b[size_t(prefix)]) ++prefix;
    return jaro + double(prefix) * 0.1 * (1.0 - jaro);
}

double jaroWinklerDistance(CodePoints a, CodePoints b) {
    return 1.0 - proximityToString(a, b);
}

namespace {

// For every code point of the pattern, the words of the pattern that hold it and, per word, the
// bits of its positions. Stored as one list per distinct code point (ascending words), so memory
// stays proportional to the pattern however large the alphabet.
class PatternMasks {
  public:
    explicit PatternMasks(CodePoints pattern) {
        alphabet_.assign(pattern.begin(), pattern.end());
        std::sort(alphabet_.begin(), alphabet_.end());
        alphabet_.erase(std::unique(alphabet_.begin(), alphabet_.end()), alphabet_.end());

        std::vector<uint32_t> ids(pattern.size());
        for (size_t p = 0; p < pattern.size(); ++p) ids[p] = uint32_t(idOf(pattern[p]));

        // Pass 1: entries per code point; pass 2: fill them in word order.
        std::vector<int64_t> lastWord(alphabet_.size(), -1);
        first_.assign(alphabet_.size() + 1, 0);
        for (size_t p = 0; p < pattern.size(); ++p) {
            const int64_t word = int64_t(p / 64);
            if (lastWord[ids[p]] != word) {
                lastWord[ids[p]] = word;
                ++first_[ids[p] + 1];
            }
        }
        for (size_t id = 0; id < alphabet_.size(); ++id) first_[id + 1] += first_[id];
        words_.resize(size_t(first_.back()));
        masks_.assign(size_t(first_.back()), 0);
        std::vector<uint32_t> next(first_.begin(), first_.end() - 1);
        std::fill(lastWord.begin(), lastWord.end(), -1);
        for (size_t p = 0; p < pattern.size(); ++p) {
            const uint32_t id = ids[p];
            const int64_t word = int64_t(p / 64);
            if (lastWord[id] != word) {
                lastWord[id] = word;
                words_[next[id]++] = uint32_t(word);
            }
            masks_[next[id] - 1] |= uint64_t(1) << (p % 64);
        }
    }

    // Index of the code point in the alphabet, or -1 when the pattern does not hold it.
    int64_t idOf(uint32_t c) const {
        auto it = std::lower_bound(alphabet_.begin(), alphabet_.end(), c);
        return it != alphabet_.end() && *it == c ? int64_t(it - alphabet_.begin()) : -1;
    }
    uint32_t begin(int64_t id) const { return id < 0 ? 0 : first_[size_t(id)]; }
    uint32_t end(int64_t id) const { return id < 0 ? 0 : first_[size_t(id) + 1]; }
    uint32_t word(uint32_t entry) const { return words_[entry]; }
    uint64_t mask(uint32_t entry) const { return masks_[entry]; }

  private:
    std::vector<uint32_t> alphabet_;
    std::vector<uint32_t> first_;
    std::vector<uint32_t> words_;
    std::vector<uint64_t> masks_;
};

}  // namespace

// Myers' bit-vector edit distance in Hyyrö's form with the transposition term, over words of 64
// pattern positions. Per text code point each word updates its column of vertical deltas (VP/VN)
// and its diagonal-zero flags (D0); the score follows the pattern's last row.
int64_t osaDistance(CodePoints a, CodePoints b) {
    // The distance is symmetric: take the shorter operand as the pattern to keep memory small.
    const CodePoints pattern = a.size() <= b.size() ? a : b;
    const CodePoints text = a.size() <= b.size() ? b : a;
    const size_t m = pattern.size();
    if (m == 0) return int64_t(text.size());

    const PatternMasks masks(pattern);
    const size_t words = (m + 63) / 64;
    const uint64_t lastBit = uint64_t(1) << ((m - 1) % 64);
    struct Word {
        uint64_t vp = ~uint64_t(0), vn = 0, d0 = 0, pm = 0;
    };
    std::vector<Word> column(words);

    int64_t distance = int64_t(m);
    for (const uint32_t c : text) {
        const int64_t id = masks.idOf(c);
        uint32_t entry = masks.begin(id);
        const uint32_t entryEnd = masks.end(id);
        uint64_t hpCarry = 1, hnCarry = 0;
        uint64_t lowerOldD0 = 0, lowerPm = 0;  // the word below: previous D0, current match bits
        for (size_t w = 0; w < words; ++w) {
            uint64_t pm = 0;
            if (entry < entryEnd && masks.word(entry) == w) pm = masks.mask(entry++);
            Word& s = column[w];
            const uint64_t tr = (((~s.d0 & pm) << 1) | ((~lowerOldD0 & lowerPm) >> 63)) & s.pm;
            const uint64_t x = pm | hnCarry;
            const uint64_t d0 = (((x & s.vp) + s.vp) ^ s.vp) | x | s.vn | tr;
            uint64_t hp = s.vn | ~(d0 | s.vp);
            uint64_t hn = d0 & s.vp;
            if (w == words - 1) {
                distance += (hp & lastBit) != 0;
                distance -= (hn & lastBit) != 0;
            }
            const uint64_t hpOut = hp >> 63, hnOut = hn >> 63;
            hp = (hp << 1) | hpCarry;
            hn = (hn << 1) | hnCarry;
            hpCarry = hpOut;
            hnCarry = hnOut;
            lowerOldD0 = s.d0;
            lowerPm = pm;
            s.vp = hn | ~(d0 | hp);
            s.vn = hp & d0;
            s.d0 = d0;
            s.pm = pm;
        }
    }
    return distance;
}

double levenshteinDistance(CodePoints a, CodePoints b) {
    if (a.empty() || b.empty()) return 1.0;
    const double shorter = double(std::min(a.size(), b.size()));
    // Kept as the inverse of a quotient: a distance of 0 gives infinity, whose inverse is 0.
    return 1.0 / (shorter / double(osaDistance(a, b)));
}

}  // namespace kxt

namespace {

void raiseAllocationFailure(uint64_t bytes) {
    char message[100];
    snprintf(message, sizeof message, "Failed to allocate %d bytes of memory.",
             int32_t(uint32_t(bytes)));
    RaiseException("OutOfMemoryException", message, kREALTextEncodingASCII);
}

}  // namespace

double jaroWinklerDistanceKXT(REALstring a, REALstring b) {
    return HandlerBoundary(1.0, [&] {
        rbText ta(a), tb(b);
        try {
            return kxt::jaroWinklerDistance(ta.utf32(), tb.utf32());
        } catch (const std::bad_alloc&) {
            raiseAllocationFailure(uint64_t(ta.LengthUTF32() + tb.LengthUTF32()));
            return 0.0;  // 1 - the similarity reported for a failed allocation
        }
    });
}

double levenshteinDistanceKXT(REALstring a, REALstring b) {
    return HandlerBoundary(1.0, [&] {
        rbText ta(a), tb(b);
        try {
            return kxt::levenshteinDistance(ta.utf32(), tb.utf32());
        } catch (const std::bad_alloc&) {
            // Reported as the size of the full distance table, the figure callers know.
            raiseAllocationFailure(uint64_t(ta.LengthUTF32() + 1) * uint64_t(tb.LengthUTF32() + 1) *
                                   8);
            return 1.0;
        }
    });
}
