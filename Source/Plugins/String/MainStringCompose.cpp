#include "MainStringCompose.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <mutex>
#include <new>
#include <string_view>

#include "MyMemory.h"
#include "REALplugin.h"
#include "rbData.h"
#include "rbDebug.h"
#include "rbException.h"
#include "rbText.h"
#include "rbUtil.h"
#include "rbstring.h"
#include "simd.h"
#include "utf8.h"
#include "utf8input.h"

namespace {

constexpr size_t kUnitCount = 65536;
constexpr uint16_t kFirstComposed = 0xC0;  // nothing below has an entry

// What composition looks up besides the generated tables. Built whole by the first composition
// and published only when complete, then never changed: calls on other threads read it without
// locks.
struct CompositionLookup {
    // CharsWhoCanBeComposition: one byte per UTF-16 unit, 1 when it is the first part of some
    // entry.
    uint8_t* firstParts = nullptr;
    // One bit per unit that is the second part of some entry. Every entry has at least two
    // parts, so a candidate whose next unit is not among them is settled without a search;
    // that keeps plain letters (almost all of which can start a decomposition) cheap.
    std::array<uint64_t, kUnitCount / 64> secondParts{};
    // No unit below this is the second part of any entry: text made of such units composes
    // nothing and is copied in blocks.
    uint16_t smallestSecondPart = 0xFFFF;
    // The UTF-8 lead bytes of every second part, of four-byte sequences (whose two units may be
    // an entry's parts) and of U+FEFF and U+FFFE, as a set that sixteen bytes are tested
    // against at once: bit h of leadLow[low nibble] for each high nibble h = 0xC..0xF present.
    // All of them are 0xCC or above.
    alignas(16) uint8_t leadLow[16] = {};

    bool isSecondPart(uint16_t unit) const { return (secondParts[unit >> 6] >> (unit & 63)) & 1; }
    void addSpecialLead(uint8_t lead) { leadLow[lead & 0x0F] |= uint8_t(1 << ((lead >> 4) - 0xC)); }
};

void* (*gAllocateLookup)(int64_t) = AllocateClearMemory;
std::atomic<CompositionLookup*> gLookup{nullptr};
std::mutex gLookupBuild;

// Null when memory runs out.
CompositionLookup* buildLookup() {
    auto* table = static_cast<uint8_t*>(gAllocateLookup(int64_t(kUnitCount)));
    if (table == nullptr) return nullptr;
    auto* t = new (std::nothrow) CompositionLookup;
    if (t == nullptr) {
        FreeMemoryNow(table);
        return nullptr;
    }
    t->firstParts = table;
    for (const auto& e : kxt::DecompositionTable) {
        table[e.parts[0]] = 1;
        t->secondParts[e.parts[1] >> 6] |= uint64_t(1) << (e.parts[1] & 63);
        t->smallestSecondPart = std::min(t->smallestSecondPart, e.parts[1]);
        const uint16_t u = e.parts[1];
        if (u >= 0x800 && (u < 0xD800 || u >= 0xE000)) {
            t->addSpecialLead(uint8_t(0xE0 | u >> 12));
        } else if (u >= 0x80 && u < 0x800) {
            t->addSpecialLead(uint8_t(0xC0 | u >> 6));
        }
    }
    for (uint8_t lead = 0xF0; lead <= 0xF4; ++lead) t->addSpecialLead(lead);
    t->addSpecialLead(0xEF);  // U+FEFF, U+FFFE
    return t;
}

// The lookup, built on first use; null while memory for it runs out (the next call tries
// again). One thread builds it while any others wait.
const CompositionLookup* compositionLookup() {
    if (const CompositionLookup* t = gLookup.load(std::memory_order_acquire)) return t;
    std::lock_guard<std::mutex> lock(gLookupBuild);
    CompositionLookup* t = gLookup.load(std::memory_order_relaxed);
    if (t == nullptr) {
        t = buildLookup();
        gLookup.store(t, std::memory_order_release);
    }
    return t;
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
const kxt::DecompositionEntry* firstMatch(const CompositionLookup& t, const uint16_t* text,
                                          size_t n, size_t i) {
    if (i + 1 >= n || !t.isSecondPart(text[i + 1])) return nullptr;
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

using S = kxt::simd::Native;

// True when all eight units are at most `limit`.
bool allAtMost(S::V units, S::V limit) {
    return S::all(S::eq16(S::subSat16(units, limit), S::zero()));
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

const uint8_t* InitCharsWhoCanBeCompositionLookupTable() {
    const CompositionLookup* t = compositionLookup();
    return t != nullptr ? t->firstParts : nullptr;
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
    const S::V copied = S::splat16(uint16_t(kFirstComposed - 1));
    // First the exact size, then one pass that writes it.
    size_t size = n;
    for (size_t i = 0; i < n; ++i) {
        if (i + 8 <= n && allAtMost(S::load(in + i), copied)) {
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
            const S::V x = S::load(in + i);
            if (allAtMost(x, copied)) {
                S::store(w, x);
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
    const CompositionLookup* table = compositionLookup();
    if (table == nullptr) throw std::bad_alloc();
    const uint8_t* lookup = table->firstParts;
    const uint16_t smallestSecondPart = table->smallestSecondPart;
    const bool log = gDebugging;
    const uint16_t* in = text.data();
    const size_t n = text.size();
    std::vector<uint16_t> out = resultUnits(n);  // composing never lengthens
    uint16_t* w = out.data();
    // A composition starts at a unit only when the unit after it is a second part, so eight
    // units whose successors are all below the smallest second part are copied at once.
    const S::V noSecondPart = S::splat16(uint16_t(smallestSecondPart - 1));
    size_t i = 0;
    while (i < n) {
        if (!log && smallestSecondPart > 0 && i + 9 <= n &&
            allAtMost(S::load(in + i + 1), noSecondPart)) {
            S::store(w, S::load(in + i));
            w += 8;
            i += 8;
            continue;
        }
        const uint16_t c = in[i];
        if (lookup[c] != 0) {
            if (log) LogMessage("findCompositionInText", int64_t(c));
            if (const DecompositionEntry* e = firstMatch(*table, in, n, i)) {
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

namespace {

// The UTF-16 form drops these wherever they stand.
bool droppedFromUTF16(uint32_t cp) {
    return cp == 0xFEFF || cp == 0xFFFE;
}

uint16_t firstUnit(uint32_t cp) {
    return cp < 0x10000 ? uint16_t(cp) : uint16_t(0xD800 + ((cp - 0x10000) >> 10));
}

// UTF-8 of an entry's parts (a surrogate pair among them is one code point).
char* putParts(char* w, const DecompositionEntry& e) {
    for (size_t p = 0; p < 5 && e.parts[p] != 0; ++p) {
        const uint32_t u = e.parts[p];
        if (u >= 0xD800 && u < 0xDC00 && p + 1 < 5 && e.parts[p + 1] >= 0xDC00 &&
            e.parts[p + 1] < 0xE000) {
            w = utf8::encode(w, 0x10000 + ((u - 0xD800) << 10) + (e.parts[p + 1] - 0xDC00));
            ++p;
        } else {
            w = utf8::encode(w, u);
        }
    }
    return w;
}

// Lead bytes of U+0300 and above: no code point below can be a second part, U+FEFF or U+FFFE,
// or take four bytes.
constexpr uint8_t kSpecialLead = 0xCC;

bool isSpecialLead(const uint8_t* leadLow, uint8_t b) {
    return b >= 0xC0 && (leadLow[b & 0x0F] >> ((b >> 4) - 0xC) & 1) != 0;
}

// Position of the first byte at or after i in the lead set, or n: the text in between is
// Latin, Greek, Cyrillic, CJK, Hangul syllables and the like, none of it a second part.
size_t firstSpecialLead(const uint8_t* leadLow, const uint8_t* p, size_t i, size_t n) {
    return simd::firstInLeadClass(p, i, n, leadLow, kSpecialLead);
}

}  // namespace

size_t decomposeUTF8(std::string_view text, char* out) {
    const std::vector<uint16_t>& index = decompositionIndex();
    const auto* p = reinterpret_cast<const uint8_t*>(text.data());
    const size_t n = text.size();
    char* w = out;
    size_t i = 0;
    while (i < n) {
        // Bytes below 0xC3 lead or continue code points below U+00C0, which have no entry:
        // copied as they come, sixteen a step (the store runs ahead into the room's slack).
        if (i + 16 <= n) {
            S::store(w, S::load(p + i));
            const size_t plain = simd::firstByteFrom(p, i, i + 16, 0xC3) - i;
            i += plain;
            w += plain;
            if (plain == 16) continue;
        } else if (p[i] < 0xC3) {
            *w++ = char(p[i++]);
            continue;
        }
        // A lead byte of U+00C0 or above.
        const utf8::CodePoint c = utf8::decodeValid(p + i);
        if (droppedFromUTF16(c.value)) {
            i += c.length;
            continue;
        }
        const uint16_t k = c.value < 0x10000 ? index[c.value] : 0;
        if (k != 0) {
            w = putParts(w, DecompositionTable[k - 1]);
        } else {
            memcpy(w, p + i, c.length);
            w += c.length;
        }
        i += c.length;
    }
    return size_t(w - out);
}

size_t composeUTF8(std::string_view text, char* out) {
    const CompositionLookup* table = compositionLookup();
    if (table == nullptr) throw std::bad_alloc();
    const uint8_t* lookup = table->firstParts;
    const uint8_t* leadLow = table->leadLow;
    const auto* p = reinterpret_cast<const uint8_t*>(text.data());
    const size_t n = text.size();
    char* w = out;
    // Code point at i, composed with what follows when an entry matches, else copied (or
    // dropped, as the UTF-16 form drops it). Returns the next position.
    auto step = [&](size_t i) -> size_t {
        const utf8::CodePoint c = utf8::decodeValid(p + i);
        if (droppedFromUTF16(c.value)) return i + c.length;
        const uint16_t u = firstUnit(c.value);
        if (lookup[u] != 0) {
            // The UTF-16 units from i on (at most five: no entry has more than four parts),
            // with the byte position after each code point.
            uint16_t units[6];
            size_t ends[6];
            size_t count = 0, at = i;
            while (count < 5 && at < n) {
                const utf8::CodePoint d = utf8::decodeValid(p + at);
                at += d.length;
                if (droppedFromUTF16(d.value)) continue;
                if (d.value < 0x10000) {
                    units[count] = uint16_t(d.value);
                    ends[count++] = at;
                } else {
                    units[count] = firstUnit(d.value);
                    ends[count++] = 0;  // inside the code point
                    units[count] = uint16_t(0xDC00 + ((d.value - 0x10000) & 0x3FF));
                    ends[count++] = at;
                }
                // Settled after the second unit unless it is a second part.
                if (count >= 2 && !table->isSecondPart(units[1])) break;
            }
            if (const DecompositionEntry* e = firstMatch(*table, units, count, 0)) {
                const size_t used = partCount(*e);
                if (ends[used - 1] != 0) {
                    w = utf8::encode(w, e->composed);
                    return ends[used - 1];
                }
            }
        }
        if (i + 4 <= n) {
            memcpy(w, p + i, 4);  // one fixed store; the room has slack for the rest
        } else {
            memcpy(w, p + i, c.length);
        }
        w += c.length;
        return i + c.length;
    };
    size_t i = 0;
    while (i < n) {
        // Code points whose lead is not in the set, up to the next one whose lead is, are never
        // a second part: all but the last of them compose with nothing and are copied at once.
        const size_t special = firstSpecialLead(leadLow, p, i, n);
        if (special == n) {
            memcpy(w, p + i, n - i);
            w += n - i;
            break;
        }
        if (special > i) {
            size_t last = special - 1;
            while ((p[last] & 0xC0) == 0x80) --last;
            memcpy(w, p + i, last - i);
            w += last - i;
            i = last;
        }
        i = step(i);
        // Where they come, such code points mostly come one after another.
        while (i < n && isSpecialLead(leadLow, p[i])) i = step(i);
    }
    return size_t(w - out);
}

void resetCompositionLookupForTesting(void* (*allocate)(int64_t size)) {
    std::lock_guard<std::mutex> lock(gLookupBuild);
    if (CompositionLookup* t = gLookup.exchange(nullptr)) {
        FreeMemoryNow(t->firstParts);
        delete t;
    }
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

// Well-formed UTF-8 (or ASCII) input is worked on as it is and the UTF-8 result written
// directly: the same text as the UTF-16 way (which also drops the marks), without the two
// conversions and the UTF-16 copy in the host. Returns false when the input does not qualify.
template <typename Convert>
bool convertUTF8Directly(REALstring text, size_t (*room)(size_t), Convert convert,
                         REALstring& result) {
    rbData in(text);
    const std::string_view bytes = in.view();
    // The same length limit as before: past it the UTF-16 way decides what too long gives.
    if (!kxt::readsAsUTF8(text, bytes, false, 4)) return false;
    RawBytes out(room(bytes.size()));
    out.setSize(convert(bytes, out.data()));
    result = REALBuildUnicodeString(out.view(), kREALTextEncodingUTF8);
    return true;
}

REALstring ConvertUnicodeToCharacterDecompositionKXT(REALstring text) {
    return HandlerBoundary<REALstring>(nullptr, [&]() -> REALstring {
        if (gDebugging) LogMessage("ConvertUnicodeToCharacterDecompositionKXT");
        if (text == nullptr) return nullptr;
        REALstring direct = nullptr;
        if (convertUTF8Directly(text, kxt::decomposedUTF8Room, kxt::decomposeUTF8, direct)) {
            return direct;
        }
        rbText t(text);
        return buildUTF16(kxt::decomposeUTF16(t.utf16()));
    });
}

REALstring ConvertUnicodeToCharacterCompositionKXT(REALstring text) {
    return HandlerBoundary<REALstring>(nullptr, [&]() -> REALstring {
        if (gDebugging) LogMessage("ConvertUnicodeToCharacterCompositionKXT");
        if (text == nullptr) return nullptr;
        if (InitCharsWhoCanBeCompositionLookupTable() == nullptr) {
            RaiseException("OutOfMemoryException", "Failed to allocate lookup table.",
                           kREALTextEncodingUTF8);
            return nullptr;
        }
        if (gDebugging) LogMessage("count compositions", int64_t(kxt::kDecompositionCount));
        REALstring direct = nullptr;
        if (convertUTF8Directly(text, kxt::composedUTF8Room, kxt::composeUTF8, direct)) {
            return direct;
        }
        rbText t(text);
        return buildUTF16(kxt::composeUTF16(t.utf16()));
    });
}
