#include "MainStringCompose.h"

#include <emmintrin.h>

#include <algorithm>
#include <array>
#include <new>

#include "MyMemory.h"
#include "rbDebug.h"
#include "rbException.h"
#include "rbText.h"
#include "rbUtil.h"

uint8_t* CharsWhoCanBeComposition = nullptr;

namespace {

constexpr size_t kUnitCount = 65536;
constexpr uint16_t kFirstComposed = 0xC0;  // nothing below has an entry

// One bit per unit that is the second part of some entry. Every entry has at least two parts,
// so a candidate whose next unit is not among them is settled without a search; that keeps
// plain letters (almost all of which can start a decomposition) cheap.
std::array<uint64_t, kUnitCount / 64> gSecondParts{};
// No unit below this is the second part of any entry: text made of such units composes nothing
// and is copied in blocks.
uint16_t gSmallestSecondPart = 0;

void* (*gAllocateLookup)(int64_t) = AllocateClearMemory;

bool isSecondPart(uint16_t unit) {
    return (gSecondParts[unit >> 6] >> (unit & 63)) & 1;
}

size_t partCount(const kxt::DecompositionEntry& e) {
    size_t n = 0;
    while (n < 5 && e.parts[n] != 0) ++n;
    return n;
}

// The exact search order matters only for the debug log, which names every middle index.
template <bool kLog>
const kxt::DecompositionEntry* searchDecomposition(uint16_t unit) {
    int64_t low = 0;
    int64_t high = int64_t(kxt::kDecompositionCount) - 1;
    int64_t middle = (low + high) / 2;
    if constexpr (kLog) LogMessage("middle before", middle);
    while (low <= high) {
        const uint16_t composed = kxt::DecompositionTable[middle].composed;
        if (unit == composed) {
            if constexpr (kLog) LogMessage("Char found", int64_t(unit), middle);
            return &kxt::DecompositionTable[middle];
        }
        if (unit < composed) {
            high = middle - 1;
        } else {
            low = middle + 1;
        }
        middle = (low + high) / 2;
        if constexpr (kLog) LogMessage("middle", middle);
    }
    if constexpr (kLog) LogMessage("Char not found", int64_t(unit));
    return nullptr;
}

// The first entry in table order that matches text from position i, or null. Only entries
// whose first two parts are text[i], text[i + 1] can match; the index lists them in table order.
const kxt::DecompositionEntry* firstMatch(const uint16_t* text, size_t n, size_t i) {
    if (i + 1 >= n || !isSecondPart(text[i + 1])) return nullptr;
    const uint32_t key = (uint32_t(text[i]) << 16) | text[i + 1];
    const uint32_t* keys = kxt::CompositionPairKeys;
    const uint32_t* found = std::lower_bound(keys, keys + kxt::kCompositionPairCount, key);
    if (found == keys + kxt::kCompositionPairCount || *found != key) return nullptr;
    const size_t group = size_t(found - keys);
    for (size_t k = kxt::CompositionPairStart[group]; k < kxt::CompositionPairStart[group + 1];
         ++k) {
        const kxt::DecompositionEntry& e = kxt::DecompositionTable[kxt::CompositionOrder[k]];
        size_t p = 2;
        while (p < 5 && e.parts[p] != 0 && i + p < n && text[i + p] == e.parts[p]) ++p;
        if (p == 5 || e.parts[p] == 0) return &e;
    }
    return nullptr;
}

// For every unit, 1 + the number of the entry the binary search finds for it, 0 for none:
// the same answers in one step. Made once, on first use.
const std::vector<uint16_t>& decompositionIndex() {
    static const std::vector<uint16_t> index = [] {
        static_assert(kxt::kDecompositionCount < 0xFFFF);
        std::vector<uint16_t> t(kUnitCount, 0);
        for (size_t u = kFirstComposed; u < kUnitCount; ++u) {
            if (const kxt::DecompositionEntry* e = searchDecomposition<false>(uint16_t(u))) {
                t[u] = uint16_t(e - kxt::DecompositionTable + 1);
            }
        }
        return t;
    }();
    return index;
}

__m128i load8(const uint16_t* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

// True when all eight units are at most `limit`.
bool allAtMost(__m128i units, __m128i limit) {
    return _mm_movemask_epi8(_mm_cmpeq_epi16(_mm_subs_epu16(units, limit), _mm_setzero_si128())) ==
           0xFFFF;
}

// A result vector of n units whose memory is asked for huge pages before it is first written.
std::vector<uint16_t> resultUnits(size_t n) {
    std::vector<uint16_t> out;
    out.reserve(n);
    AdviseHugePages(out.data(), n * sizeof(uint16_t));
    out.resize(n);
    return out;
}

// The logging forms: every lookup is written to the debug log, as the plain loops do it.
std::vector<uint16_t> decomposeLogged(std::span<const uint16_t> text) {
    std::vector<uint16_t> out;
    out.reserve(text.size());
    for (const uint16_t c : text) {
        if (c < kFirstComposed) {
            out.push_back(c);
            continue;
        }
        LogMessage("findComposition", int64_t(c));
        const kxt::DecompositionEntry* e = searchDecomposition<true>(c);
        if (e == nullptr) {
            out.push_back(c);
            continue;
        }
        for (size_t p = 0; p < 5 && e->parts[p] != 0; ++p) out.push_back(e->parts[p]);
    }
    return out;
}

}  // namespace

void InitCharsWhoCanBeCompositionLookupTable() {
    if (CharsWhoCanBeComposition != nullptr) return;
    auto* table = static_cast<uint8_t*>(gAllocateLookup(int64_t(kUnitCount)));
    if (table == nullptr) return;
    uint16_t smallest = 0xFFFF;
    for (const auto& e : kxt::DecompositionTable) {
        table[e.parts[0]] = 1;
        gSecondParts[e.parts[1] >> 6] |= uint64_t(1) << (e.parts[1] & 63);
        smallest = std::min(smallest, e.parts[1]);
    }
    gSmallestSecondPart = smallest;
    // Published only when complete; a concurrent build at worst makes a second table.
    CharsWhoCanBeComposition = table;
}

namespace kxt {

const DecompositionEntry* findDecomposition(uint16_t unit) {
    return searchDecomposition<false>(unit);
}

std::vector<uint16_t> decomposeUTF16(std::span<const uint16_t> text) {
    if (gDebugging) return decomposeLogged(text);
    const std::vector<uint16_t>& index = decompositionIndex();
    const uint16_t* in = text.data();
    const size_t n = text.size();
    // Units below the first composed one are copied; eight of them at a time.
    const __m128i copied = _mm_set1_epi16(short(kFirstComposed - 1));
    // First the exact size, then one pass that writes it.
    size_t size = n;
    for (size_t i = 0; i < n; ++i) {
        if (i + 8 <= n && allAtMost(load8(in + i), copied)) {
            i += 7;
            continue;
        }
        if (const uint16_t k = index[in[i]]) size += partCount(DecompositionTable[k - 1]) - 1;
    }
    std::vector<uint16_t> out = resultUnits(size);
    uint16_t* w = out.data();
    size_t i = 0;
    while (i < n) {
        if (i + 8 <= n) {
            const __m128i x = load8(in + i);
            if (allAtMost(x, copied)) {
                _mm_storeu_si128(reinterpret_cast<__m128i*>(w), x);
                w += 8;
                i += 8;
                continue;
            }
        }
        const uint16_t c = in[i++];
        const uint16_t k = index[c];
        if (k == 0) {
            *w++ = c;
            continue;
        }
        const DecompositionEntry& e = DecompositionTable[k - 1];
        for (size_t p = 0; p < 5 && e.parts[p] != 0; ++p) *w++ = e.parts[p];
    }
    return out;
}

std::vector<uint16_t> composeUTF16(std::span<const uint16_t> text) {
    if (CharsWhoCanBeComposition == nullptr) InitCharsWhoCanBeCompositionLookupTable();
    if (CharsWhoCanBeComposition == nullptr) throw std::bad_alloc();
    const uint8_t* lookup = CharsWhoCanBeComposition;
    const bool log = gDebugging;
    const uint16_t* in = text.data();
    const size_t n = text.size();
    std::vector<uint16_t> out = resultUnits(n);  // composing never lengthens
    uint16_t* w = out.data();
    // A composition starts at a unit only when the unit after it is a second part, so eight
    // units whose successors are all below the smallest second part are copied at once.
    const __m128i noSecondPart = _mm_set1_epi16(short(gSmallestSecondPart - 1));
    size_t i = 0;
    while (i < n) {
        if (!log && gSmallestSecondPart > 0 && i + 9 <= n &&
            allAtMost(load8(in + i + 1), noSecondPart)) {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(w), load8(in + i));
            w += 8;
            i += 8;
            continue;
        }
        const uint16_t c = in[i];
        if (lookup[c] != 0) {
            if (log) LogMessage("findCompositionInText", int64_t(c));
            if (const DecompositionEntry* e = firstMatch(in, n, i)) {
                *w++ = e->composed;
                i += partCount(*e);
                continue;
            }
        }
        *w++ = c;
        ++i;
    }
    out.resize(size_t(w - out.data()));
    return out;
}

void resetCompositionLookupForTesting(void* (*allocate)(int64_t size)) {
    FreeMemoryNow(CharsWhoCanBeComposition);
    CharsWhoCanBeComposition = nullptr;
    gAllocateLookup = allocate != nullptr ? allocate : AllocateClearMemory;
}

}  // namespace kxt

namespace {

REALstring buildUTF16(const std::vector<uint16_t>& units) {
    if (gDebugging) LogMessage("outsize", int64_t(units.size()));
    return REALBuildUnicodeString(units.data(), int64_t(units.size() * sizeof(uint16_t)),
                                  kREALTextEncodingUTF16);
}

}  // namespace

REALstring ConvertUnicodeToCharacterDecompositionKXT(REALstring text) {
    return HandlerBoundary<REALstring>(nullptr, [&]() -> REALstring {
        if (gDebugging) LogMessage("ConvertUnicodeToCharacterDecompositionKXT");
        if (text == nullptr) return nullptr;
        rbText t(text);
        return buildUTF16(kxt::decomposeUTF16(t.utf16()));
    });
}

REALstring ConvertUnicodeToCharacterCompositionKXT(REALstring text) {
    return HandlerBoundary<REALstring>(nullptr, [&]() -> REALstring {
        if (gDebugging) LogMessage("ConvertUnicodeToCharacterCompositionKXT");
        if (text == nullptr) return nullptr;
        if (CharsWhoCanBeComposition == nullptr) InitCharsWhoCanBeCompositionLookupTable();
        if (CharsWhoCanBeComposition == nullptr) {
            RaiseException("OutOfMemoryException", "Failed to allocate lookup table.",
                           kREALTextEncodingUTF8);
            return nullptr;
        }
        if (gDebugging) LogMessage("count compositions", int64_t(kxt::kDecompositionCount));
        rbText t(text);
        return buildUTF16(kxt::composeUTF16(t.utf16()));
    });
}
