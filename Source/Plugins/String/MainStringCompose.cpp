#include "MainStringCompose.h"

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

}  // namespace

void InitCharsWhoCanBeCompositionLookupTable() {
    if (CharsWhoCanBeComposition != nullptr) return;
    auto* table = static_cast<uint8_t*>(gAllocateLookup(int64_t(kUnitCount)));
    if (table == nullptr) return;
    for (const auto& e : kxt::DecompositionTable) {
        table[e.parts[0]] = 1;
        gSecondParts[e.parts[1] >> 6] |= uint64_t(1) << (e.parts[1] & 63);
    }
    // Published only when complete; a concurrent build at worst makes a second table.
    CharsWhoCanBeComposition = table;
}

namespace kxt {

const DecompositionEntry* findDecomposition(uint16_t unit) {
    return searchDecomposition<false>(unit);
}

std::vector<uint16_t> decomposeUTF16(std::span<const uint16_t> text) {
    const bool log = gDebugging;
    // Only units from U+00C0 on can grow, to at most four units. Reserving for that bound
    // costs address space only, and spares large texts the copy of a growing buffer.
    size_t mayGrow = 0;
    for (const uint16_t c : text) mayGrow += c >= kFirstComposed;
    std::vector<uint16_t> out;
    out.reserve(text.size() + 3 * mayGrow);
    for (const uint16_t c : text) {
        if (c < kFirstComposed) {
            out.push_back(c);
            continue;
        }
        const DecompositionEntry* e;
        if (log) {
            LogMessage("findComposition", int64_t(c));
            e = searchDecomposition<true>(c);
        } else {
            e = searchDecomposition<false>(c);
        }
        if (e == nullptr) {
            out.push_back(c);
            continue;
        }
        for (size_t p = 0; p < 5 && e->parts[p] != 0; ++p) out.push_back(e->parts[p]);
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
    // Every step writes one unit for at least one read, so the input length is enough.
    std::vector<uint16_t> out;
    out.reserve(n);
    size_t i = 0;
    while (i < n) {
        const uint16_t c = in[i];
        if (lookup[c] == 0) {
            out.push_back(c);
            ++i;
            continue;
        }
        if (log) LogMessage("findCompositionInText", int64_t(c));
        if (const DecompositionEntry* e = firstMatch(in, n, i)) {
            out.push_back(e->composed);
            i += partCount(*e);
        } else {
            out.push_back(c);
            ++i;
        }
    }
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
