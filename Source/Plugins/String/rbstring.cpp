#include "rbstring.h"

#include <emmintrin.h>
#include <immintrin.h>
#include <tmmintrin.h>

#include <algorithm>
#include <array>
#include <memory>

#include "MyMemory.h"
#include "REALplugin.h"
#include "rbArray.h"
#include "rbData.h"
#include "rbException.h"
#include "rbText.h"
#include "rbUtil.h"

namespace kxt {

namespace {

__m128i load16(const uint8_t* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

// Lanes that are all ones where the byte passes; each is one or two SSE2 compares. Function
// objects rather than functions, so that the block loops inline them.
struct Below128 {
    __m128i operator()(__m128i x) const { return _mm_cmpgt_epi8(x, _mm_set1_epi8(-1)); }
};
struct From32To127 {
    __m128i operator()(__m128i x) const { return _mm_cmpgt_epi8(x, _mm_set1_epi8(31)); }
};
struct From32 {
    __m128i operator()(__m128i x) const {
        return _mm_cmpeq_epi8(_mm_max_epu8(x, _mm_set1_epi8(32)), x);
    }
};
struct From32To126 {
    __m128i operator()(__m128i x) const {
        return _mm_and_si128(_mm_cmpgt_epi8(x, _mm_set1_epi8(31)),
                             _mm_cmplt_epi8(x, _mm_set1_epi8(127)));
    }
};

// Index of the first 16-byte block at or after i that has a failing byte (or the last
// position from which 16 bytes no longer fit); the caller finishes byte by byte.
template <typename Pass>
size_t skipPassingBlocks(const uint8_t* p, size_t i, size_t n, Pass pass) {
    for (; i + 64 <= n; i += 64) {
        __m128i ok =
            _mm_and_si128(_mm_and_si128(pass(load16(p + i)), pass(load16(p + i + 16))),
                          _mm_and_si128(pass(load16(p + i + 32)), pass(load16(p + i + 48))));
        if (_mm_movemask_epi8(ok) != 0xFFFF) break;
    }
    for (; i + 16 <= n; i += 16) {
        if (_mm_movemask_epi8(pass(load16(p + i))) != 0xFFFF) break;
    }
    return i;
}

template <typename Pass, typename PassByte>
bool allPass(std::string_view bytes, Pass pass, PassByte passByte) {
    const uint8_t* p = reinterpret_cast<const uint8_t*>(bytes.data());
    const size_t n = bytes.size();
    for (size_t i = skipPassingBlocks(p, 0, n, pass); i < n; ++i) {
        if (!passByte(p[i])) return false;
    }
    return true;
}

// The well-formedness table as a state machine: one table step per byte and no branch that
// depends on the kind of character, which keeps mixed-script text fast. Two tables: the repair
// scan accepts every byte below 0x80, the readable scan only tab, LF, CR and 32..126.
enum : uint8_t {
    kAccept,  // between sequences
    kReject,
    kNeed1,  // any continuation byte, then done
    kNeed2,
    kNeed3,
    kAfterE0,  // A0..BF: no overlong forms
    kAfterED,  // 80..9F: no surrogates
    kAfterF0,  // 90..BF: no overlong forms
    kAfterF4,  // 80..8F: nothing above U+10FFFF
    kStates
};

constexpr std::array<uint8_t, kStates * 256> makeTransitions(bool readableOnly) {
    std::array<uint8_t, kStates * 256> t{};
    for (auto& x : t) x = kReject;
    for (int b = 0; b < 256; ++b) {
        uint8_t& fromAccept = t[kAccept * 256 + b];
        if (b < 0x80) {
            const bool readable = (b >= 32 && b <= 126) || b == 9 || b == 10 || b == 13;
            fromAccept = !readableOnly || readable ? kAccept : kReject;
        } else if (b >= 0xC2 && b <= 0xDF) {
            fromAccept = kNeed1;
        } else if (b == 0xE0) {
            fromAccept = kAfterE0;
        } else if (b == 0xED) {
            fromAccept = kAfterED;
        } else if (b >= 0xE1 && b <= 0xEF) {
            fromAccept = kNeed2;
        } else if (b == 0xF0) {
            fromAccept = kAfterF0;
        } else if (b == 0xF4) {
            fromAccept = kAfterF4;
        } else if (b >= 0xF1 && b <= 0xF3) {
            fromAccept = kNeed3;
        }
        if (b >= 0x80 && b <= 0xBF) {
            t[kNeed1 * 256 + b] = kAccept;
            t[kNeed2 * 256 + b] = kNeed1;
            t[kNeed3 * 256 + b] = kNeed2;
        }
        if (b >= 0xA0 && b <= 0xBF) t[kAfterE0 * 256 + b] = kNeed1;
        if (b >= 0x80 && b <= 0x9F) t[kAfterED * 256 + b] = kNeed1;
        if (b >= 0x90 && b <= 0xBF) t[kAfterF0 * 256 + b] = kNeed2;
        if (b >= 0x80 && b <= 0x8F) t[kAfterF4 * 256 + b] = kNeed2;
    }
    return t;
}

constexpr auto kAnyASCII = makeTransitions(false);
constexpr auto kReadableASCII = makeTransitions(true);

// End of the well-formed run that starts at i (the start of the sequence that broke it, or of
// one cut off by the end). After each 16 bytes that end between sequences, blocks of passing
// single bytes are skipped whole; short runs in binary data never pay for the block test.
template <bool kReadable>
size_t validRunEnd(const uint8_t* p, size_t i, size_t n) {
    const uint8_t* table = kReadable ? kReadableASCII.data() : kAnyASCII.data();
    uint8_t state = kAccept;
    size_t runEnd = i;
    while (i < n) {
        for (const size_t stop = std::min(n, i + 16); i < stop; ++i) {
            state = table[state * 256 + p[i]];
            if (state == kReject) return runEnd;
            runEnd = state == kAccept ? i + 1 : runEnd;
        }
        if (state == kAccept) {
            if constexpr (kReadable) {
                i = skipPassingBlocks(p, i, n, From32To126{});
            } else {
                i = skipPassingBlocks(p, i, n, Below128{});
            }
            runEnd = i;
        }
    }
    return runEnd;
}

// Whole-buffer validation, 16 bytes a step, for the common case of valid text: the lookup
// method of Keiser and Lemire. Three 16-entry tables, indexed by the high and low nibble of
// each byte's predecessor and the high nibble of the byte, give the set of errors the pair
// could be; their intersection is the set it is. Lengths beyond two bytes are checked by
// requiring a continuation wherever a lead two or three bytes back asks for one. It accepts
// exactly the well-formed sequences of the Unicode table above, so a buffer it rejects is
// scanned again by the state machine, which finds where the valid part ends.
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

__attribute__((target("ssse3"))) __m128i lookup(__m128i table, __m128i nibbles) {
    return _mm_shuffle_epi8(table, nibbles);
}

__attribute__((target("ssse3"))) __m128i highNibbles(__m128i v) {
    return _mm_and_si128(_mm_srli_epi16(v, 4), _mm_set1_epi8(0x0F));
}

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

__attribute__((target("ssse3"))) __m128i blockErrors(__m128i input, __m128i previous) {
    const __m128i byte1High = _mm_load_si128(reinterpret_cast<const __m128i*>(kByte1High));
    const __m128i byte1Low = _mm_load_si128(reinterpret_cast<const __m128i*>(kByte1Low));
    const __m128i byte2High = _mm_load_si128(reinterpret_cast<const __m128i*>(kByte2High));
    const __m128i prev1 = _mm_alignr_epi8(input, previous, 15);
    const __m128i special =
        _mm_and_si128(_mm_and_si128(lookup(byte1High, highNibbles(prev1)),
                                    lookup(byte1Low, _mm_and_si128(prev1, _mm_set1_epi8(0x0F)))),
                      lookup(byte2High, highNibbles(input)));
    // Bytes that must be the third or fourth of a sequence: 111_____ two back, 1111____ three.
    const __m128i prev2 = _mm_alignr_epi8(input, previous, 14);
    const __m128i prev3 = _mm_alignr_epi8(input, previous, 13);
    const __m128i must23 = _mm_or_si128(_mm_subs_epu8(prev2, _mm_set1_epi8(char(0xE0 - 0x80))),
                                        _mm_subs_epu8(prev3, _mm_set1_epi8(char(0xF0 - 0x80))));
    return _mm_xor_si128(_mm_and_si128(must23, _mm_set1_epi8(char(0x80))), special);
}

__attribute__((target("ssse3"))) bool wellFormedSSSE3(const uint8_t* p, size_t n) {
    // Leads in the last three bytes of a block that need more bytes than the block has.
    const __m128i maxValue = _mm_setr_epi8(-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
                                           char(0xF0 - 1), char(0xE0 - 1), char(0xC0 - 1));
    __m128i previous = _mm_setzero_si128(), error = _mm_setzero_si128();
    __m128i incomplete = _mm_setzero_si128();
    size_t i = 0;
    auto step = [&](__m128i input) {
        if (_mm_movemask_epi8(input) == 0) {
            error = _mm_or_si128(error, incomplete);  // ASCII cannot finish a sequence
        } else {
            error = _mm_or_si128(error, blockErrors(input, previous));
            incomplete = _mm_subs_epu8(input, maxValue);
        }
        previous = input;
    };
    while (i + 16 <= n) {
        step(load16(p + i));
        i += 16;
        // Stop early on bad data: the caller scans it again anyway.
        if ((i & 63) == 0 &&
            _mm_movemask_epi8(_mm_cmpeq_epi8(error, _mm_setzero_si128())) != 0xFFFF) {
            return false;
        }
    }
    if (i < n) {
        // The tail, followed by zeros: a sequence cut off by the end fails as too short.
        alignas(16) uint8_t tail[16] = {};
        std::copy(p + i, p + n, tail);
        step(load16(tail));
    }
    error = _mm_or_si128(error, incomplete);
    return _mm_movemask_epi8(_mm_cmpeq_epi8(error, _mm_setzero_si128())) == 0xFFFF;
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

}  // namespace

bool wholeBufferWellFormed(std::string_view bytes, UTF8Kernel kernel) {
    static const bool kHaveSSSE3 = __builtin_cpu_supports("ssse3");
    static const bool kHaveAVX2 = __builtin_cpu_supports("avx2");
    const auto* p = reinterpret_cast<const uint8_t*>(bytes.data());
    switch (kernel) {
        case UTF8Kernel::SSSE3:
            return kHaveSSSE3 && wellFormedSSSE3(p, bytes.size());
        case UTF8Kernel::AVX2:
            return kHaveAVX2 && wellFormedAVX2(p, bytes.size());
    }
    return false;
}

bool kernelAvailable(UTF8Kernel kernel) {
    switch (kernel) {
        case UTF8Kernel::SSSE3:
            return __builtin_cpu_supports("ssse3");
        case UTF8Kernel::AVX2:
            return __builtin_cpu_supports("avx2");
    }
    return false;
}

namespace {

// True only when every byte belongs to a well-formed sequence; false may also mean that the
// processor lacks the instructions, so callers fall back to the state machine.
bool wholeBufferWellFormed(const uint8_t* p, size_t n) {
    static const UTF8Kernel kBest =
        kernelAvailable(UTF8Kernel::AVX2) ? UTF8Kernel::AVX2 : UTF8Kernel::SSSE3;
    return wholeBufferWellFormed(std::string_view(reinterpret_cast<const char*>(p), n), kBest);
}

}  // namespace

size_t wellFormedSequenceLength(std::string_view bytes) {
    uint8_t state = kAccept;
    for (size_t i = 0; i < bytes.size() && i < 4; ++i) {
        state = kAnyASCII[state * 256 + uint8_t(bytes[i])];
        if (state == kAccept) return i + 1;
        if (state == kReject) return 0;
    }
    return 0;
}

size_t wellFormedPrefixLength(std::string_view bytes) {
    const auto* p = reinterpret_cast<const uint8_t*>(bytes.data());
    if (wholeBufferWellFormed(p, bytes.size())) return bytes.size();
    return validRunEnd<false>(p, 0, bytes.size());
}

void CheckUTF8(std::string& output, std::string_view placeholder, const uint8_t* data,
               size_t length) {
    if (wholeBufferWellFormed(data, length)) {
        output.append(reinterpret_cast<const char*>(data), length);
        return;
    }
    size_t i = 0;
    while (i < length) {
        const size_t end = validRunEnd<false>(data, i, length);
        output.append(reinterpret_cast<const char*>(data + i), end - i);
        if (end == length) break;
        output.append(placeholder);
        i = end + 1;
    }
}

size_t CheckUTF8(const uint8_t* data, size_t length) {
    return data == nullptr ? 0 : validRunEnd<true>(data, 0, length);
}

bool IsSpaceOnly(const uint8_t* data, size_t length) {
    return std::all_of(data, data + length, [](uint8_t b) { return b < 33; });
}

std::optional<std::string_view> nextStringInData(std::string_view data, size_t& position,
                                                 int64_t minLength) {
    const uint8_t* p = reinterpret_cast<const uint8_t*>(data.data());
    const uint64_t threshold = uint64_t(std::max<int64_t>(minLength, 0));
    while (position < data.size()) {
        const size_t run = CheckUTF8(p + position, data.size() - position);
        if (run == 0) {
            ++position;
            continue;
        }
        if (run > threshold && !IsSpaceOnly(p + position, run)) {
            std::string_view found = data.substr(position, run);
            position += run + 1;  // the byte that ended the run goes too
            return found;
        }
        // Every start inside a rejected run is rejected as well (a shorter run of the same
        // bytes, or a continuation byte), so stepping one byte at a time would give the same
        // result in quadratic time.
        position += run;
    }
    return std::nullopt;
}

std::vector<std::string_view> stringsInData(std::string_view data, int64_t minLength) {
    std::vector<std::string_view> found;
    size_t position = 0;
    while (auto s = nextStringInData(data, position, minLength)) found.push_back(*s);
    return found;
}

bool isASCIIText(std::string_view bytes, int64_t mode) {
    if (bytes.empty()) return true;
    switch (mode) {
        case 0:
            return allPass(bytes, Below128{}, [](uint8_t b) { return b < 128; });
        case 1:
            return allPass(bytes, From32To127{}, [](uint8_t b) { return b >= 32 && b < 128; });
        case 2:
            return allPass(bytes, From32{}, [](uint8_t b) { return b >= 32; });
        default:
            return false;
    }
}

void replaceNonPrintable(std::string_view bytes, uint8_t replacement, uint8_t* out) {
    const uint8_t* p = reinterpret_cast<const uint8_t*>(bytes.data());
    const size_t n = bytes.size();
    const __m128i fill = _mm_set1_epi8(char(replacement));
    size_t i = 0;
    for (; i + 16 <= n; i += 16) {
        __m128i x = load16(p + i);
        __m128i keep = From32To127{}(x);
        __m128i r = _mm_or_si128(_mm_and_si128(keep, x), _mm_andnot_si128(keep, fill));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), r);
    }
    for (; i < n; ++i) out[i] = p[i] < 32 || p[i] >= 128 ? replacement : p[i];
}

}  // namespace kxt

namespace {

REALarray stringsFromData(const void* data, int64_t length, RBInteger minLength) {
    if (data == nullptr || length < 1) return nullptr;
    std::string_view bytes(static_cast<const char*>(data), size_t(length));
    REALarray array = REALCreateArrayString(-1);
    if (array == nullptr) return nullptr;
    size_t position = 0;
    while (auto found = kxt::nextStringInData(bytes, position, minLength)) {
        REALstring s = REALBuildUnicodeString(*found, kREALTextEncodingUTF8);
        REALAppendArrayValue(array, s);
        if (s != nullptr) REALUnlockString(s);
    }
    return array;
}

}  // namespace

REALstring CheckUTF8(const void* data, int64_t length, REALstring placeholder) {
    if (data == nullptr || length < 1) return nullptr;
    // Valid text is its own repair: build it straight from the input instead of copying it
    // through a work buffer first.
    std::string_view bytes(static_cast<const char*>(data), size_t(length));
    if (kxt::wellFormedPrefixLength(bytes) == bytes.size()) {
        return REALBuildUnicodeString(bytes, kREALTextEncodingUTF8);
    }
    rbText replacement(placeholder);
    std::string output;
    ReserveLarge(output, size_t(length) + 4096);
    kxt::CheckUTF8(output, replacement.utf8(), static_cast<const uint8_t*>(data), size_t(length));
    return REALBuildUnicodeString(output, kREALTextEncodingUTF8);
}

REALstring CheckUTF8p(void* data, RBInteger size, REALstring placeholder) {
    return HandlerBoundary<REALstring>(nullptr, [&] { return CheckUTF8(data, size, placeholder); });
}

REALstring CheckUTF8m(REALmemoryBlock mem, REALstring placeholder) {
    return HandlerBoundary<REALstring>(nullptr, [&] {
        rbData bytes(mem, 0, 0);
        return CheckUTF8(bytes.data, bytes.size, placeholder);
    });
}

REALstring CheckUTF8s(REALstring data, REALstring placeholder) {
    return HandlerBoundary<REALstring>(nullptr, [&] {
        rbData bytes(data);
        return CheckUTF8(bytes.data, bytes.size, placeholder);
    });
}

REALarray GetStringsKXTp(void* data, RBInteger size, RBInteger minLength) {
    return HandlerBoundary<REALarray>(
        nullptr, [&] { return size < 0 ? nullptr : stringsFromData(data, size, minLength); });
}

REALarray GetStringsKXTm(REALmemoryBlock data, RBInteger minLength) {
    return HandlerBoundary<REALarray>(nullptr, [&] {
        rbData bytes(data, 0, 0);
        return stringsFromData(bytes.data, bytes.size, minLength);
    });
}

REALarray GetStringsKXTs(REALstring data, RBInteger minLength) {
    return HandlerBoundary<REALarray>(nullptr, [&] {
        rbData bytes(data);
        return stringsFromData(bytes.data, bytes.size, minLength);
    });
}

RBBoolean IsASCIIString1(REALstring s) {
    return IsASCIIString2(s, 0);
}

RBBoolean IsASCIIString2(REALstring s, RBInteger mode) {
    return HandlerBoundary<RBBoolean>(false, [&] {
        // Nil and the empty string are the same to Xojo, and both pass.
        rbData bytes(s);
        return kxt::isASCIIText(bytes.view(), mode);
    });
}

REALstring ReplaceNonPrintableCharactersKXT(REALstring s, RBInteger replaceValue) {
    return HandlerBoundary<REALstring>(nullptr, [&]() -> REALstring {
        if (s == nullptr) return nullptr;
        rbData bytes(s);
        // Every byte is written, so the buffer needs no clearing.
        std::unique_ptr<uint8_t, void (*)(void*)> buffer(
            static_cast<uint8_t*>(AllocateMemory(bytes.size)), FreeMemoryNow);
        if (!buffer) return nullptr;
        kxt::replaceNonPrintable(bytes.view(), uint8_t(replaceValue), buffer.get());
        return REALBuildUnicodeString(buffer.get(), bytes.size, kREALTextEncodingASCII);
    });
}
