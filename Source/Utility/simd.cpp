#include "simd.h"

#include <algorithm>

#if KXT_SIMD_SSE2
#include <immintrin.h>
#include <tmmintrin.h>
#endif

namespace kxt::simd {

namespace {

// Whole-buffer validation, 16 bytes a step, for the common case of valid text: the lookup
// method of Keiser and Lemire. Three 16-entry tables, indexed by the high and low nibble of
// each byte's predecessor and the high nibble of the byte, give the set of errors the pair
// could be; their intersection is the set it is. Lengths beyond two bytes are checked by
// requiring a continuation wherever a lead two or three bytes back asks for one. It accepts
// exactly the well-formed sequences (no overlong form, surrogate or code point above U+10FFFF).
enum : uint8_t {
    kTooShort = 1 << 0,   // lead followed by a lead or ASCII
    kTooLong = 1 << 1,    // ASCII followed by a continuation
    kOverlong3 = 1 << 2,  // E0 80..9F
    kTooLarge = 1 << 3,   // F4 90..BF, F5..FF
    kSurrogate = 1 << 4,  // ED A0..BF
    kOverlong2 = 1 << 5,  // C0, C1
    kTooLarge1000 = 1 << 6,
    kOverlong4 = 1 << 6,  // F0 80..8F
    kTwoConts = 1 << 7,   // continuation after continuation (fine inside 3- and 4-byte forms)
    kCarry = kTooShort | kTooLong | kTwoConts,
};

// The three tables of the lookup, shared by the 16- and 32-byte kernels.
alignas(16) constexpr uint8_t kByte1High[16] = {kTooLong,
                                                kTooLong,
                                                kTooLong,
                                                kTooLong,
                                                kTooLong,
                                                kTooLong,
                                                kTooLong,
                                                kTooLong,
                                                kTwoConts,
                                                kTwoConts,
                                                kTwoConts,
                                                kTwoConts,
                                                kTooShort | kOverlong2,
                                                kTooShort,
                                                kTooShort | kOverlong3 | kSurrogate,
                                                kTooShort | kTooLarge | kTooLarge1000 | kOverlong4};
alignas(16) constexpr uint8_t kByte1Low[16] = {kCarry | kOverlong3 | kOverlong2 | kOverlong4,
                                               kCarry | kOverlong2,
                                               kCarry,
                                               kCarry,
                                               kCarry | kTooLarge,
                                               kCarry | kTooLarge | kTooLarge1000,
                                               kCarry | kTooLarge | kTooLarge1000,
                                               kCarry | kTooLarge | kTooLarge1000,
                                               kCarry | kTooLarge | kTooLarge1000,
                                               kCarry | kTooLarge | kTooLarge1000,
                                               kCarry | kTooLarge | kTooLarge1000,
                                               kCarry | kTooLarge | kTooLarge1000,
                                               kCarry | kTooLarge | kTooLarge1000,
                                               kCarry | kTooLarge | kTooLarge1000 | kSurrogate,
                                               kCarry | kTooLarge | kTooLarge1000,
                                               kCarry | kTooLarge | kTooLarge1000};
alignas(16) constexpr uint8_t kByte2High[16] = {
    kTooShort,
    kTooShort,
    kTooShort,
    kTooShort,
    kTooShort,
    kTooShort,
    kTooShort,
    kTooShort,
    kTooLong | kOverlong2 | kTwoConts | kOverlong3 | kTooLarge1000 | kOverlong4,
    kTooLong | kOverlong2 | kTwoConts | kOverlong3 | kTooLarge,
    kTooLong | kOverlong2 | kTwoConts | kSurrogate | kTooLarge,
    kTooLong | kOverlong2 | kTwoConts | kSurrogate | kTooLarge,
    kTooShort,
    kTooShort,
    kTooShort,
    kTooShort};

// Bits (high nibble - 0xC) of the lead-class lookup, nothing for high nibbles below 0xC.
alignas(16) constexpr uint8_t kLeadHigh[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 2, 4, 8};

// Leads in the last three bytes of a block that need more bytes than the block has.
alignas(16) constexpr uint8_t kMaxValue[16] = {0xFF, 0xFF,     0xFF,     0xFF,    0xFF, 0xFF,
                                               0xFF, 0xFF,     0xFF,     0xFF,    0xFF, 0xFF,
                                               0xFF, 0xF0 - 1, 0xE0 - 1, 0xC0 - 1};

// The 16-byte lookup written once over the block operations, for every backend that has a
// table lookup (the plain twin, NEON; on x86-64 from SSSE3 on, Ssse3 below).
template <typename S>
typename S::V blockErrors(typename S::V input, typename S::V previous) {
    using V = typename S::V;
    const V nibble = S::splat8(0x0F);
    const V prev1 = S::template shiftIn<1>(previous, input);
    const V special = S::and_(
        S::and_(S::lookup(S::load(kByte1High), S::and_(S::template shr16<4>(prev1), nibble)),
                S::lookup(S::load(kByte1Low), S::and_(prev1, nibble))),
        S::lookup(S::load(kByte2High), S::and_(S::template shr16<4>(input), nibble)));
    // Bytes that must be the third or fourth of a sequence: 111_____ two back, 1111____ three.
    const V must23 =
        S::or_(S::subSat8(S::template shiftIn<2>(previous, input), S::splat8(0xE0 - 0x80)),
               S::subSat8(S::template shiftIn<3>(previous, input), S::splat8(0xF0 - 0x80)));
    return S::xor_(S::and_(must23, S::splat8(0x80)), special);
}

template <typename S>
bool wellFormedWith(const uint8_t* p, size_t n) {
    using V = typename S::V;
    const V maxValue = S::load(kMaxValue);
    V previous = S::zero(), error = S::zero(), incomplete = S::zero();
    auto step = [&](V input) {
        if (!S::any(input)) {
            error = S::or_(error, incomplete);  // ASCII cannot finish a sequence
        } else {
            error = S::or_(error, blockErrors<S>(input, previous));
            incomplete = S::subSat8(input, maxValue);
        }
        previous = input;
    };
    size_t i = 0;
    while (i + 16 <= n) {
        step(S::load(p + i));
        i += 16;
        // Stop early on bad data: the caller scans it again anyway.
        if ((i & 63) == 0 && S::nonZero(error)) return false;
    }
    if (i < n) {
        // The tail, followed by zeros: a sequence cut off by the end fails as too short.
        uint8_t tail[16] = {};
        std::copy(p + i, p + n, tail);
        step(S::load(tail));
    }
    return !S::nonZero(S::or_(error, incomplete));
}

bool isInLeadClass(uint8_t b, const uint8_t lowTable[16]) {
    return b >= 0xC0 && (lowTable[b & 0x0F] >> ((b >> 4) - 0xC) & 1) != 0;
}

#if KXT_SIMD_SSE2
// The SSSE3 kernels are the templates above over the baseline with the byte shuffle and byte
// alignment, flattened into functions compiled for SSSE3 (called only where the processor has
// it).
struct Ssse3 : Sse2 {
    __attribute__((target("ssse3"))) static V lookup(V table, V index) {
        return _mm_shuffle_epi8(table, index);
    }
    template <int N>
    __attribute__((target("ssse3"))) static V shiftIn(V previous, V next) {
        return _mm_alignr_epi8(next, previous, 16 - N);
    }
};

__attribute__((target("ssse3"), flatten)) bool wellFormedSSSE3(const uint8_t* p, size_t n) {
    return wellFormedWith<Ssse3>(p, n);
}

// The same lookup on 32 bytes a step. The predecessors of a step's first bytes come from the
// previous step: lane-crossing alignment takes them from the upper half of the step before.
__attribute__((target("avx2"))) __m256i table32(const uint8_t* table) {
    return _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(table)));
}

template <int kBack>
__attribute__((target("avx2"))) __m256i before(__m256i input, __m256i previous) {
    // previous's upper half, then input's lower half: each lane then has its 16 predecessors.
    const __m256i joined = _mm256_permute2x128_si256(previous, input, 0x21);
    return _mm256_alignr_epi8(input, joined, 16 - kBack);
}

__attribute__((target("avx2"))) __m256i blockErrors32(__m256i input, __m256i previous) {
    const __m256i lowNibble = _mm256_set1_epi8(0x0F);
    const __m256i prev1 = before<1>(input, previous);
    const __m256i special = _mm256_and_si256(
        _mm256_and_si256(
            _mm256_shuffle_epi8(table32(kByte1High),
                                _mm256_and_si256(_mm256_srli_epi16(prev1, 4), lowNibble)),
            _mm256_shuffle_epi8(table32(kByte1Low), _mm256_and_si256(prev1, lowNibble))),
        _mm256_shuffle_epi8(table32(kByte2High),
                            _mm256_and_si256(_mm256_srli_epi16(input, 4), lowNibble)));
    const __m256i prev2 = before<2>(input, previous);
    const __m256i prev3 = before<3>(input, previous);
    const __m256i must23 =
        _mm256_or_si256(_mm256_subs_epu8(prev2, _mm256_set1_epi8(char(0xE0 - 0x80))),
                        _mm256_subs_epu8(prev3, _mm256_set1_epi8(char(0xF0 - 0x80))));
    return _mm256_xor_si256(_mm256_and_si256(must23, _mm256_set1_epi8(char(0x80))), special);
}

// The running state of the 32-byte kernel.
struct Validation32 {
    __m256i previous, error, incomplete;

    __attribute__((target("avx2"))) void step(__m256i input) {
        // Leads in the last three bytes of a step that need more bytes than the step has.
        const __m256i maxValue = _mm256_setr_epi8(
            -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
            -1, -1, -1, -1, -1, -1, -1, char(0xF0 - 1), char(0xE0 - 1), char(0xC0 - 1));
        error = _mm256_or_si256(error, blockErrors32(input, previous));
        incomplete = _mm256_subs_epu8(input, maxValue);
        previous = input;
    }
};

__attribute__((target("avx2"))) bool wellFormedAVX2(const uint8_t* p, size_t n) {
    Validation32 v{_mm256_setzero_si256(), _mm256_setzero_si256(), _mm256_setzero_si256()};
    size_t i = 0;
    while (i + 64 <= n) {
        const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + i));
        const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + i + 32));
        if (_mm256_movemask_epi8(_mm256_or_si256(a, b)) == 0) {
            // 64 ASCII bytes: only a sequence left open before them can be wrong.
            v.error = _mm256_or_si256(v.error, v.incomplete);
            v.incomplete = _mm256_setzero_si256();
            v.previous = b;
        } else {
            v.step(a);
            v.step(b);
        }
        i += 64;
        // Stop early on bad data: the caller scans it again anyway.
        if ((i & 255) == 0 && !_mm256_testz_si256(v.error, v.error)) return false;
    }
    // The rest, followed by zeros: a sequence cut off by the end fails as too short.
    while (i < n) {
        alignas(32) uint8_t tail[32] = {};
        const size_t count = std::min<size_t>(32, n - i);
        std::copy(p + i, p + i + count, tail);
        v.step(_mm256_load_si256(reinterpret_cast<const __m256i*>(tail)));
        i += count;
    }
    v.error = _mm256_or_si256(v.error, v.incomplete);
    return _mm256_testz_si256(v.error, v.error) != 0;
}

#endif

}  // namespace

template <typename S>
size_t firstInLeadClassWith(const uint8_t* p, size_t i, size_t n, const uint8_t lowTable[16],
                            uint8_t floor) {
    using V = typename S::V;
    const V low16 = S::load(lowTable), high16 = S::load(kLeadHigh);
    const V nibble = S::splat8(0x0F), belowSet = S::splat8(uint8_t(floor - 1));
    for (; i + 16 <= n; i += 16) {
        const V x = S::load(p + i);
        if (S::all(S::eq8(S::max8(x, belowSet), belowSet))) continue;
        const V low = S::lookup(low16, S::and_(x, nibble));
        const V high = S::lookup(high16, S::and_(S::template shr16<4>(x), nibble));
        const unsigned k =
            S::first(S::andNot(S::eq8(S::and_(low, high), S::zero()), S::splat8(0xFF)));
        if (k < 16) return i + k;
    }
    while (i < n && !isInLeadClass(p[i], lowTable)) ++i;
    return i;
}
template size_t firstInLeadClassWith<Plain>(const uint8_t*, size_t, size_t, const uint8_t[16],
                                            uint8_t);

#if KXT_SIMD_SSE2
namespace {
__attribute__((target("ssse3"), flatten)) size_t firstInLeadClassSSSE3(const uint8_t* p, size_t i,
                                                                       size_t n,
                                                                       const uint8_t lowTable[16],
                                                                       uint8_t floor) {
    return firstInLeadClassWith<Ssse3>(p, i, n, lowTable, floor);
}
}  // namespace
#endif

size_t firstInLeadClass(const uint8_t* p, size_t i, size_t n, const uint8_t lowTable[16],
                        uint8_t floor) {
#if KXT_SIMD_SSE2
    if (cpu().ssse3) return firstInLeadClassSSSE3(p, i, n, lowTable, floor);
    // Without it, the bytes at or above the floor are the only ones looked at.
    i = firstByteFrom(p, i, n, floor);
    while (i < n && !isInLeadClass(p[i], lowTable)) i = firstByteFrom(p, i + 1, n, floor);
    return i;
#elif KXT_SIMD_NEON
    return firstInLeadClassWith<Neon>(p, i, n, lowTable, floor);
#else
    return firstInLeadClassWith<Plain>(p, i, n, lowTable, floor);
#endif
}

// ---- Escaping ------------------------------------------------------------------------------

namespace {

// For a group of four input bytes laid out as [b0 b1 b2 b3, h0 l0 h1 l1 h2 l2 h3 l3, '%'],
// the output for each mask of which of them are escaped: the shuffle that picks it and its
// length.
struct EscapePatterns {
    uint8_t shuffle[16][16];
    uint8_t length[16];
    constexpr EscapePatterns() : shuffle{}, length{} {
        for (unsigned m = 0; m < 16; ++m) {
            unsigned k = 0;
            for (unsigned j = 0; j < 4; ++j) {
                if (m & (1u << j)) {
                    shuffle[m][k++] = 12;
                    shuffle[m][k++] = uint8_t(4 + 2 * j);
                    shuffle[m][k++] = uint8_t(5 + 2 * j);
                } else {
                    shuffle[m][k++] = uint8_t(j);
                }
            }
            length[m] = uint8_t(k);
            while (k < 16) shuffle[m][k++] = 0x80;
        }
    }
};
constexpr EscapePatterns kEscapePatterns;

// Where a group's input bytes and digit pairs go in its layout, for groups 0..3 (the digit pairs
// of groups 0 and 1 come from the low interleaving of the digits, of 2 and 3 from the high one).
alignas(16) constexpr uint8_t kGroupBytes[4][16] = {
    {0, 1, 2, 3, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80},
    {4, 5, 6, 7, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80},
    {8, 9, 10, 11, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80},
    {12, 13, 14, 15, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80}};
alignas(16) constexpr uint8_t kGroupDigits[2][16] = {
    {0x80, 0x80, 0x80, 0x80, 0, 1, 2, 3, 4, 5, 6, 7, 0x80, 0x80, 0x80, 0x80},
    {0x80, 0x80, 0x80, 0x80, 8, 9, 10, 11, 12, 13, 14, 15, 0x80, 0x80, 0x80, 0x80}};
alignas(16) constexpr uint8_t kPercentAt12[16] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, '%', 0, 0, 0};

}  // namespace

template <typename S>
KXT_TARGET_SSSE3 EscapeProgress escapeBlocksWith(const uint8_t* in, size_t n, char* out,
                                                 size_t room, const EscapeClass& cls) {
    using V = typename S::V;
    const V low = S::load(cls.low), high = S::load(cls.high), digits = S::load(cls.digits);
    const V nibble = S::splat8(0x0F), replaced = S::splat8(cls.replaced),
            shift = S::splat8(uint8_t(cls.replacement - cls.replaced)), zero = S::zero();
    const V percent = S::load(kPercentAt12);
    size_t i = 0, w = 0;
    // A block writes at most 48 bytes, each store 16 at its start.
    while (i + 16 <= n && w + 48 + 16 <= room) {
        V x = S::load(in + i);
        const V lowNibbles = S::and_(x, nibble);
        const V highNibbles = S::and_(S::template shr16<4>(x), nibble);
        // High bit set: escaped (in the class by the tables, or at least 0x80).
        const V classed = S::andNot(
            S::eq8(S::and_(S::lookup(low, lowNibbles), S::lookup(high, highNibbles)), zero),
            S::splat8(0xFF));
        const uint32_t escaped = S::bits(S::or_(classed, x));
        x = S::add8(x, S::and_(S::eq8(x, replaced), shift));
        if (escaped == 0) {
            S::store(out + w, x);
            i += 16;
            w += 16;
            continue;
        }
        const V hexHigh = S::lookup(digits, highNibbles), hexLow = S::lookup(digits, lowNibbles);
        const V pairs[2] = {S::zipLow8(hexHigh, hexLow), S::zipHigh8(hexHigh, hexLow)};
        for (unsigned g = 0; g < 4; ++g) {
            const unsigned m = (escaped >> (4 * g)) & 15;
            const V layout = S::or_(S::or_(S::lookup(x, S::load(kGroupBytes[g])),
                                           S::lookup(pairs[g / 2], S::load(kGroupDigits[g % 2]))),
                                    percent);
            S::store(out + w, S::lookup(layout, S::load(kEscapePatterns.shuffle[m])));
            w += kEscapePatterns.length[m];
        }
        i += 16;
    }
    return {i, w};
}
template EscapeProgress escapeBlocksWith<Plain>(const uint8_t*, size_t, char*, size_t,
                                                const EscapeClass&);

EscapeProgress escapeBlocks(const uint8_t* in, size_t n, char* out, size_t room,
                            const EscapeClass& cls) {
#if KXT_SIMD_SSE2
    if (cpu().ssse3) return escapeBlocksWith<Ssse3>(in, n, out, room, cls);
    return {0, 0};
#elif KXT_SIMD_NEON
    return escapeBlocksWith<Neon>(in, n, out, room, cls);
#else
    return escapeBlocksWith<Plain>(in, n, out, room, cls);
#endif
}

bool kernelAvailable(UTF8Kernel kernel) {
    switch (kernel) {
        case UTF8Kernel::Plain:
            return true;
        case UTF8Kernel::SSSE3:
            return cpu().ssse3;
        case UTF8Kernel::AVX2:
            return cpu().avx2;
        case UTF8Kernel::Neon:
#if KXT_SIMD_NEON
            return true;
#else
            return false;
#endif
    }
    return false;
}

bool wellFormedUTF8(const uint8_t* p, size_t n, UTF8Kernel kernel) {
    if (!kernelAvailable(kernel)) return false;
    switch (kernel) {
        case UTF8Kernel::Plain:
            return wellFormedWith<Plain>(p, n);
#if KXT_SIMD_SSE2
        case UTF8Kernel::SSSE3:
            return wellFormedSSSE3(p, n);
        case UTF8Kernel::AVX2:
            return wellFormedAVX2(p, n);
#endif
#if KXT_SIMD_NEON
        case UTF8Kernel::Neon:
            return wellFormedWith<Neon>(p, n);
#endif
        default:
            return false;
    }
}

UTF8Kernel bestUTF8Kernel() {
    static const UTF8Kernel kBest = kernelAvailable(UTF8Kernel::AVX2)    ? UTF8Kernel::AVX2
                                    : kernelAvailable(UTF8Kernel::SSSE3) ? UTF8Kernel::SSSE3
                                    : kernelAvailable(UTF8Kernel::Neon)  ? UTF8Kernel::Neon
                                                                         : UTF8Kernel::Plain;
    return kBest;
}

}  // namespace kxt::simd
