// The one SIMD layer: 16-byte block operations with a plain twin, the processor's features
// (checked once), and the few kernels that need more than the baseline instruction set.
// The fast paths use only what is here, so porting them means filling in this file.
//
// Each backend (Plain, Sse2, Neon) has the same members; `Native` is the one this build uses.
// Lane operations follow the SSE2 definitions (pack saturates signed 16-bit lanes, lookup gives
// 0 for an index with its high bit set), so results are byte-identical on every backend. 16-bit
// lanes are little-endian, as on every processor this builds for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#define KXT_SIMD_SSE2 1
#elif defined(__ARM_NEON) && defined(__aarch64__)
#include <arm_neon.h>
#define KXT_SIMD_NEON 1
#endif

namespace kxt::simd {

// Index of the lowest set bit of a non-zero mask.
inline unsigned lowestBit(uint32_t mask) {
    return unsigned(__builtin_ctz(mask));
}

// ---- The plain twin: one byte at a time --------------------------------------------------------
struct Plain {
    struct V {
        uint8_t b[16];
    };
    static constexpr const char* kName = "plain";

    static V load(const void* p) {
        V v;
        std::memcpy(v.b, p, 16);
        return v;
    }
    static void store(void* p, V v) { std::memcpy(p, v.b, 16); }
    static void storeLow(void* p, V v) { std::memcpy(p, v.b, 8); }
    static V zero() { return splat8(0); }
    static V splat8(uint8_t c) {
        V v;
        std::memset(v.b, c, 16);
        return v;
    }
    static V splat16(uint16_t c) {
        V v;
        for (int k = 0; k < 8; ++k) set16(v, k, c);
        return v;
    }

    static V and_(V a, V b) {
        return map(a, b, [](uint8_t x, uint8_t y) { return x & y; });
    }
    static V or_(V a, V b) {
        return map(a, b, [](uint8_t x, uint8_t y) { return x | y; });
    }
    static V xor_(V a, V b) {
        return map(a, b, [](uint8_t x, uint8_t y) { return x ^ y; });
    }
    // ~a & b
    static V andNot(V a, V b) {
        return map(a, b, [](uint8_t x, uint8_t y) { return ~x & y; });
    }
    static V add8(V a, V b) {
        return map(a, b, [](uint8_t x, uint8_t y) { return x + y; });
    }
    static V sub8(V a, V b) {
        return map(a, b, [](uint8_t x, uint8_t y) { return x - y; });
    }
    static V subSat8(V a, V b) {
        return map(a, b, [](uint8_t x, uint8_t y) { return x > y ? x - y : 0; });
    }
    static V min8(V a, V b) {
        return map(a, b, [](uint8_t x, uint8_t y) { return x < y ? x : y; });
    }
    static V max8(V a, V b) {
        return map(a, b, [](uint8_t x, uint8_t y) { return x > y ? x : y; });
    }
    static V eq8(V a, V b) {
        return map(a, b, [](uint8_t x, uint8_t y) { return mask(x == y); });
    }
    // Signed byte compares.
    static V gt8(V a, V b) {
        return map(a, b, [](uint8_t x, uint8_t y) { return mask(int8_t(x) > int8_t(y)); });
    }
    static V lt8(V a, V b) { return gt8(b, a); }

    static V eq16(V a, V b) {
        return map16(a, b, [](uint16_t x, uint16_t y) { return uint16_t(x == y ? 0xFFFF : 0); });
    }
    static V subSat16(V a, V b) {
        return map16(a, b, [](uint16_t x, uint16_t y) { return uint16_t(x > y ? x - y : 0); });
    }
    template <int N>
    static V shr16(V a) {
        return map16(a, a, [](uint16_t x, uint16_t) { return uint16_t(x >> N); });
    }
    template <int N>
    static V shl16(V a) {
        return map16(a, a, [](uint16_t x, uint16_t) { return uint16_t(x << N); });
    }

    // Interleaving: low halves of a and b (a0 b0 a1 b1 ...), high halves.
    static V zipLow8(V a, V b) { return zip8(a, b, 0); }
    static V zipHigh8(V a, V b) { return zip8(a, b, 8); }
    static V zipLow16(V a, V b) { return zip16(a, b, 0); }
    static V zipHigh16(V a, V b) { return zip16(a, b, 4); }
    // Signed 16-bit lanes of a then b, saturated to 0..255.
    static V packSat16(V a, V b) {
        V r;
        for (int k = 0; k < 8; ++k) {
            r.b[k] = saturate(int16_t(get16(a, k)));
            r.b[k + 8] = saturate(int16_t(get16(b, k)));
        }
        return r;
    }
    // table[index & 15] per byte, 0 where the index has its high bit set.
    static V lookup(V table, V index) {
        V r;
        for (int k = 0; k < 16; ++k) r.b[k] = index.b[k] & 0x80 ? 0 : table.b[index.b[k] & 15];
        return r;
    }
    // The 16 bytes that end N bytes into `next`: the last N bytes of `previous`, then `next`.
    template <int N>
    static V shiftIn(V previous, V next) {
        V r;
        for (int k = 0; k < 16; ++k) r.b[k] = k < N ? previous.b[16 - N + k] : next.b[k - N];
        return r;
    }

    // The high bit of each byte, byte k in bit k.
    static uint32_t bits(V a) {
        uint32_t m = 0;
        for (int k = 0; k < 16; ++k) m |= uint32_t(a.b[k] >> 7) << k;
        return m;
    }
    static bool any(V a) { return bits(a) != 0; }
    static bool all(V a) { return bits(a) == 0xFFFF; }
    // Index of the first byte with its high bit set, 16 for none.
    static unsigned first(V a) { return any(a) ? lowestBit(bits(a)) : 16; }
    static bool nonZero(V a) {
        uint8_t x = 0;
        for (uint8_t c : a.b) x |= c;
        return x != 0;
    }
    static uint32_t sum8(V a) {
        uint32_t s = 0;
        for (uint8_t c : a.b) s += c;
        return s;
    }

  private:
    static uint8_t mask(bool x) { return x ? 0xFF : 0; }
    static uint8_t saturate(int16_t x) { return uint8_t(x < 0 ? 0 : x > 255 ? 255 : x); }
    static uint16_t get16(const V& v, int k) { return uint16_t(v.b[2 * k] | v.b[2 * k + 1] << 8); }
    static void set16(V& v, int k, uint16_t x) {
        v.b[2 * k] = uint8_t(x);
        v.b[2 * k + 1] = uint8_t(x >> 8);
    }
    template <typename F>
    static V map(V a, V b, F f) {
        V r;
        for (int k = 0; k < 16; ++k) r.b[k] = uint8_t(f(a.b[k], b.b[k]));
        return r;
    }
    template <typename F>
    static V map16(V a, V b, F f) {
        V r;
        for (int k = 0; k < 8; ++k) set16(r, k, f(get16(a, k), get16(b, k)));
        return r;
    }
    static V zip8(V a, V b, int from) {
        V r;
        for (int k = 0; k < 8; ++k) {
            r.b[2 * k] = a.b[from + k];
            r.b[2 * k + 1] = b.b[from + k];
        }
        return r;
    }
    static V zip16(V a, V b, int from) {
        V r;
        for (int k = 0; k < 4; ++k) {
            set16(r, 2 * k, get16(a, from + k));
            set16(r, 2 * k + 1, get16(b, from + k));
        }
        return r;
    }
};

#if KXT_SIMD_SSE2
// ---- x86-64: SSE2, the baseline of every x86-64 processor ---------------------------------------
// No lookup or shiftIn: they need SSSE3, which the dispatched kernels of simd.cpp add (Ssse3).
struct Sse2 {
    using V = __m128i;
    static constexpr const char* kName = "sse2";

    static V load(const void* p) { return _mm_loadu_si128(static_cast<const __m128i*>(p)); }
    static void store(void* p, V v) { _mm_storeu_si128(static_cast<__m128i*>(p), v); }
    static void storeLow(void* p, V v) { _mm_storel_epi64(static_cast<__m128i*>(p), v); }
    static V zero() { return _mm_setzero_si128(); }
    static V splat8(uint8_t c) { return _mm_set1_epi8(char(c)); }
    static V splat16(uint16_t c) { return _mm_set1_epi16(short(c)); }

    static V and_(V a, V b) { return _mm_and_si128(a, b); }
    static V or_(V a, V b) { return _mm_or_si128(a, b); }
    static V xor_(V a, V b) { return _mm_xor_si128(a, b); }
    static V andNot(V a, V b) { return _mm_andnot_si128(a, b); }
    static V add8(V a, V b) { return _mm_add_epi8(a, b); }
    static V sub8(V a, V b) { return _mm_sub_epi8(a, b); }
    static V subSat8(V a, V b) { return _mm_subs_epu8(a, b); }
    static V min8(V a, V b) { return _mm_min_epu8(a, b); }
    static V max8(V a, V b) { return _mm_max_epu8(a, b); }
    static V eq8(V a, V b) { return _mm_cmpeq_epi8(a, b); }
    static V gt8(V a, V b) { return _mm_cmpgt_epi8(a, b); }
    static V lt8(V a, V b) { return _mm_cmplt_epi8(a, b); }
    static V eq16(V a, V b) { return _mm_cmpeq_epi16(a, b); }
    static V subSat16(V a, V b) { return _mm_subs_epu16(a, b); }
    template <int N>
    static V shr16(V a) {
        return _mm_srli_epi16(a, N);
    }
    template <int N>
    static V shl16(V a) {
        return _mm_slli_epi16(a, N);
    }
    static V zipLow8(V a, V b) { return _mm_unpacklo_epi8(a, b); }
    static V zipHigh8(V a, V b) { return _mm_unpackhi_epi8(a, b); }
    static V zipLow16(V a, V b) { return _mm_unpacklo_epi16(a, b); }
    static V zipHigh16(V a, V b) { return _mm_unpackhi_epi16(a, b); }
    static V packSat16(V a, V b) { return _mm_packus_epi16(a, b); }

    static uint32_t bits(V a) { return uint32_t(_mm_movemask_epi8(a)); }
    static bool any(V a) { return bits(a) != 0; }
    static bool all(V a) { return bits(a) == 0xFFFF; }
    static unsigned first(V a) {
        const uint32_t m = bits(a);
        return m != 0 ? lowestBit(m) : 16;
    }
    static bool nonZero(V a) { return !all(eq8(a, zero())); }
    static uint32_t sum8(V a) {
        const V sums = _mm_sad_epu8(a, zero());
        return uint32_t(_mm_cvtsi128_si32(sums) +
                        _mm_cvtsi128_si32(_mm_unpackhi_epi64(sums, sums)));
    }
};
using Native = Sse2;

#elif KXT_SIMD_NEON
// ---- aarch64: NEON, always present -------------------------------------------------------------
struct Neon {
    using V = uint8x16_t;
    static constexpr const char* kName = "neon";

    static V load(const void* p) { return vld1q_u8(static_cast<const uint8_t*>(p)); }
    static void store(void* p, V v) { vst1q_u8(static_cast<uint8_t*>(p), v); }
    static void storeLow(void* p, V v) { vst1_u8(static_cast<uint8_t*>(p), vget_low_u8(v)); }
    static V zero() { return vdupq_n_u8(0); }
    static V splat8(uint8_t c) { return vdupq_n_u8(c); }
    static V splat16(uint16_t c) { return vreinterpretq_u8_u16(vdupq_n_u16(c)); }

    static V and_(V a, V b) { return vandq_u8(a, b); }
    static V or_(V a, V b) { return vorrq_u8(a, b); }
    static V xor_(V a, V b) { return veorq_u8(a, b); }
    static V andNot(V a, V b) { return vbicq_u8(b, a); }
    static V add8(V a, V b) { return vaddq_u8(a, b); }
    static V sub8(V a, V b) { return vsubq_u8(a, b); }
    static V subSat8(V a, V b) { return vqsubq_u8(a, b); }
    static V min8(V a, V b) { return vminq_u8(a, b); }
    static V max8(V a, V b) { return vmaxq_u8(a, b); }
    static V eq8(V a, V b) { return vceqq_u8(a, b); }
    static V gt8(V a, V b) { return vcgtq_s8(vreinterpretq_s8_u8(a), vreinterpretq_s8_u8(b)); }
    static V lt8(V a, V b) { return vcltq_s8(vreinterpretq_s8_u8(a), vreinterpretq_s8_u8(b)); }
    static V eq16(V a, V b) {
        return vreinterpretq_u8_u16(vceqq_u16(vreinterpretq_u16_u8(a), vreinterpretq_u16_u8(b)));
    }
    static V subSat16(V a, V b) {
        return vreinterpretq_u8_u16(vqsubq_u16(vreinterpretq_u16_u8(a), vreinterpretq_u16_u8(b)));
    }
    template <int N>
    static V shr16(V a) {
        return vreinterpretq_u8_u16(vshrq_n_u16(vreinterpretq_u16_u8(a), N));
    }
    template <int N>
    static V shl16(V a) {
        return vreinterpretq_u8_u16(vshlq_n_u16(vreinterpretq_u16_u8(a), N));
    }
    static V zipLow8(V a, V b) { return vzip1q_u8(a, b); }
    static V zipHigh8(V a, V b) { return vzip2q_u8(a, b); }
    static V zipLow16(V a, V b) {
        return vreinterpretq_u8_u16(vzip1q_u16(vreinterpretq_u16_u8(a), vreinterpretq_u16_u8(b)));
    }
    static V zipHigh16(V a, V b) {
        return vreinterpretq_u8_u16(vzip2q_u16(vreinterpretq_u16_u8(a), vreinterpretq_u16_u8(b)));
    }
    static V packSat16(V a, V b) {
        return vcombine_u8(vqmovun_s16(vreinterpretq_s16_u8(a)),
                           vqmovun_s16(vreinterpretq_s16_u8(b)));
    }
    static V lookup(V table, V index) {
        // tbl gives 0 for any index above 15; only an index with the high bit set must give 0.
        return vqtbl1q_u8(table, vandq_u8(index, vdupq_n_u8(0x8F)));
    }
    template <int N>
    static V shiftIn(V previous, V next) {
        return vextq_u8(previous, next, 16 - N);
    }

    static uint32_t bits(V a) {
        static const int8_t kShift[16] = {0, 1, 2, 3, 4, 5, 6, 7, 0, 1, 2, 3, 4, 5, 6, 7};
        const uint8x16_t b = vshlq_u8(vshrq_n_u8(a, 7), vld1q_s8(kShift));
        return uint32_t(vaddv_u8(vget_low_u8(b))) | uint32_t(vaddv_u8(vget_high_u8(b))) << 8;
    }
    static bool any(V a) { return vmaxvq_u8(a) >= 0x80; }
    static bool all(V a) { return vminvq_u8(a) >= 0x80; }
    static unsigned first(V a) {
        // Four bits per byte: the usual stand-in for a byte mask on NEON.
        const uint8x16_t m = vcltzq_s8(vreinterpretq_s8_u8(a));
        const uint64_t nibbles =
            vget_lane_u64(vreinterpret_u64_u8(vshrn_n_u16(vreinterpretq_u16_u8(m), 4)), 0);
        return nibbles != 0 ? unsigned(__builtin_ctzll(nibbles)) / 4 : 16;
    }
    static bool nonZero(V a) { return vmaxvq_u8(a) != 0; }
    static uint32_t sum8(V a) { return vaddlvq_u8(a); }
};
using Native = Neon;

#else
using Native = Plain;
#endif

// ---- Processor features, asked once -------------------------------------------------------------
struct Features {
    bool ssse3 = false;
    bool avx2 = false;
};
inline const Features& cpu() {
    static const Features kFeatures = [] {
        Features f;
#if defined(__x86_64__) || defined(__i386__)
        f.ssse3 = __builtin_cpu_supports("ssse3");
        f.avx2 = __builtin_cpu_supports("avx2");
#endif
        return f;
    }();
    return kFeatures;
}

// ---- Block primitives over buffers, each with its plain twin (S = Plain) -----------------------
// Stores the 16 bytes at p to w (room for 16) and gives how many come before the first one
// that `stop` marks (high bit of its lane), 16 for none: a run of safe bytes copied ahead.
template <typename S = Native, typename Stop>
unsigned copyBlockUntil(const void* p, void* w, Stop stop) {
    const typename S::V x = S::load(p);
    S::store(w, x);
    return S::first(stop(x));
}

// The 16 bytes of x as 16 units of 16 or 32 bits.
template <typename S = Native>
void widenBlock(typename S::V x, uint16_t* out) {
    S::store(out, S::zipLow8(x, S::zero()));
    S::store(out + 8, S::zipHigh8(x, S::zero()));
}
template <typename S = Native>
void widenBlock(typename S::V x, uint32_t* out) {
    const typename S::V zero = S::zero();
    const typename S::V low = S::zipLow8(x, zero), high = S::zipHigh8(x, zero);
    S::store(out, S::zipLow16(low, zero));
    S::store(out + 4, S::zipHigh16(low, zero));
    S::store(out + 8, S::zipLow16(high, zero));
    S::store(out + 12, S::zipHigh16(high, zero));
}

// Eight 16-bit units, each below 0x100, as eight bytes.
template <typename S = Native>
void narrowBlock(typename S::V units, void* out) {
    S::storeLow(out, S::packSat16(units, units));
}

// Position of the first byte at or after i that is at least `floor`, or n.
template <typename S = Native>
size_t firstByteFrom(const uint8_t* p, size_t i, size_t n, uint8_t floor) {
    const typename S::V limit = S::splat8(floor);
    for (; i + 16 <= n; i += 16) {
        const typename S::V x = S::load(p + i);
        const unsigned k = S::first(S::eq8(S::max8(x, limit), x));
        if (k < 16) return i + k;
    }
    while (i < n && p[i] < floor) ++i;
    return i;
}

// Position of the first byte at or after i whose bit (high nibble - 0xC) is set in
// lowTable[low nibble], or n: a class of bytes 0xC0..0xFF given by 16 bytes. Bytes below
// `floor` are known to be outside the class.
size_t firstInLeadClass(const uint8_t* p, size_t i, size_t n, const uint8_t lowTable[16],
                        uint8_t floor);
template <typename S>
size_t firstInLeadClassWith(const uint8_t* p, size_t i, size_t n, const uint8_t lowTable[16],
                            uint8_t floor);

// Escaping bytes as "%" and two hexadecimal digits, 16 input bytes a step: the bytes of a class
// become three characters, one byte may first be replaced by another (kept as it is then), the
// rest are copied. The class is bytes 0x80..0xFF and those below for which
// low[b & 15] & high[b >> 4] is not zero (high[8..15] unused). Whole blocks only, while the
// output has room for 16 more bytes past what it needs; gives how far both got, the rest is the
// caller's. The instruction set must have a byte shuffle: SSSE3 on x86-64 (nothing is done
// without it), NEON, or the Plain twin everywhere.
struct EscapeClass {
    uint8_t low[16];
    uint8_t high[16];
    uint8_t replaced, replacement;  // equal when nothing is replaced
    const char* digits;             // 16 hexadecimal digits
};
struct EscapeProgress {
    size_t read, written;
};
EscapeProgress escapeBlocks(const uint8_t* in, size_t n, char* out, size_t room,
                            const EscapeClass& cls);
// Compiled for SSSE3 on x86-64 (for every S: the Plain twin runs only in tests there).
#if KXT_SIMD_SSE2
#define KXT_TARGET_SSSE3 __attribute__((target("ssse3")))
#else
#define KXT_TARGET_SSSE3
#endif
template <typename S>
KXT_TARGET_SSSE3 EscapeProgress escapeBlocksWith(const uint8_t* in, size_t n, char* out,
                                                 size_t room, const EscapeClass& cls);

// The UTF-8 validators for whole buffers: true only when every byte belongs to a well-formed
// sequence. Ssse3 and Avx2 exist on x86-64, Neon on aarch64; Plain everywhere (the twin the
// others are checked against). A kernel that is not available says false.
enum class UTF8Kernel { Plain, SSSE3, AVX2, Neon };
bool kernelAvailable(UTF8Kernel kernel);
bool wellFormedUTF8(const uint8_t* p, size_t n, UTF8Kernel kernel);
// The best available kernel.
UTF8Kernel bestUTF8Kernel();

}  // namespace kxt::simd
