#include "rbstring.h"

#include <emmintrin.h>

#include <algorithm>
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

// Lanes that are all ones where the byte passes; each is one or two SSE2 compares.
__m128i below128(__m128i x) {
    return _mm_cmpgt_epi8(x, _mm_set1_epi8(-1));
}
__m128i from32To127(__m128i x) {
    return _mm_cmpgt_epi8(x, _mm_set1_epi8(31));
}
__m128i from32(__m128i x) {
    return _mm_cmpeq_epi8(_mm_max_epu8(x, _mm_set1_epi8(32)), x);
}
__m128i from32To126(__m128i x) {
    return _mm_and_si128(_mm_cmpgt_epi8(x, _mm_set1_epi8(31)),
                         _mm_cmplt_epi8(x, _mm_set1_epi8(127)));
}

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

bool isContinuation(uint8_t b) {
    return (b & 0xC0) == 0x80;
}

size_t sequenceLength(const uint8_t* p, size_t available) {
    const uint8_t lead = p[0];
    if (lead < 0x80) return 1;
    if (lead < 0xC2 || lead > 0xF4) return 0;
    if (lead < 0xE0) return available >= 2 && isContinuation(p[1]) ? 2 : 0;
    if (lead < 0xF0) {
        // E0 excludes overlong forms, ED the surrogates.
        const uint8_t low = lead == 0xE0 ? 0xA0 : 0x80;
        const uint8_t high = lead == 0xED ? 0x9F : 0xBF;
        return available >= 3 && p[1] >= low && p[1] <= high && isContinuation(p[2]) ? 3 : 0;
    }
    // F0 excludes overlong forms, F4 everything above U+10FFFF.
    const uint8_t low = lead == 0xF0 ? 0x90 : 0x80;
    const uint8_t high = lead == 0xF4 ? 0x8F : 0xBF;
    return available >= 4 && p[1] >= low && p[1] <= high && isContinuation(p[2]) &&
                   isContinuation(p[3])
               ? 4
               : 0;
}

// End of the well-formed run that starts at i (ASCII of every kind included).
size_t wellFormedRunEnd(const uint8_t* p, size_t i, size_t n) {
    while (i < n) {
        i = skipPassingBlocks(p, i, n, below128);
        while (i < n && p[i] < 0x80) ++i;
        if (i == n) break;
        const size_t len = sequenceLength(p + i, n - i);
        if (len == 0) break;
        i += len;
    }
    return i;
}

}  // namespace

size_t wellFormedSequenceLength(std::string_view bytes) {
    if (bytes.empty()) return 0;
    return sequenceLength(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

void CheckUTF8(std::string& output, std::string_view placeholder, const uint8_t* data,
               size_t length) {
    size_t i = 0;
    while (i < length) {
        const size_t end = wellFormedRunEnd(data, i, length);
        output.append(reinterpret_cast<const char*>(data + i), end - i);
        if (end == length) break;
        output.append(placeholder);
        i = end + 1;
    }
}

size_t CheckUTF8(const uint8_t* data, size_t length) {
    if (data == nullptr) return 0;
    size_t i = 0;
    while (i < length) {
        i = skipPassingBlocks(data, i, length, from32To126);
        if (i == length) break;
        const uint8_t b = data[i];
        if (b < 0x80) {
            if ((b >= 32 && b <= 126) || b == 9 || b == 10 || b == 13) {
                ++i;
                continue;
            }
            break;
        }
        const size_t len = sequenceLength(data + i, length - i);
        if (len == 0) break;
        i += len;
    }
    return i;
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
            return allPass(bytes, below128, [](uint8_t b) { return b < 128; });
        case 1:
            return allPass(bytes, from32To127, [](uint8_t b) { return b >= 32 && b < 128; });
        case 2:
            return allPass(bytes, from32, [](uint8_t b) { return b >= 32; });
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
        __m128i keep = from32To127(x);
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
    rbText replacement(placeholder);
    std::string output;
    output.reserve(size_t(length) + 4096);
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
        if (s == nullptr) return true;
        rbData bytes(s);
        if (bytes.size < 1) return false;
        return kxt::isASCIIText(bytes.view(), mode);
    });
}

REALstring ReplaceNonPrintableCharactersKXT(REALstring s, RBInteger replaceValue) {
    return HandlerBoundary<REALstring>(nullptr, [&]() -> REALstring {
        if (s == nullptr) return nullptr;
        rbData bytes(s);
        std::unique_ptr<uint8_t, void (*)(void*)> buffer(
            static_cast<uint8_t*>(AllocateClearMemory(bytes.size)), FreeMemoryNow);
        if (!buffer) return nullptr;
        kxt::replaceNonPrintable(bytes.view(), uint8_t(replaceValue), buffer.get());
        return REALBuildUnicodeString(buffer.get(), bytes.size, kREALTextEncodingASCII);
    });
}
