#include "rbstring.h"

#include <algorithm>
#include <array>
#include <memory>

#include "MyMemory.h"
#include "REALplugin.h"
#include "rbArray.h"
#include "rbData.h"
#include "rbException.h"
#include "rbRef.h"
#include "rbText.h"
#include "rbUtil.h"
#include "simd.h"

namespace kxt {

namespace {

using S = simd::Native;
using V = S::V;

// Lanes that are all ones where the byte passes; each is one or two compares. Function objects
// rather than functions, so that the block loops inline them.
struct Below128 {
    V operator()(V x) const { return S::gt8(x, S::splat8(0xFF)); }
};
struct From32To127 {
    V operator()(V x) const { return S::gt8(x, S::splat8(31)); }
};
struct From32 {
    V operator()(V x) const { return S::eq8(S::max8(x, S::splat8(32)), x); }
};
struct From32To126 {
    V operator()(V x) const { return S::and_(S::gt8(x, S::splat8(31)), S::lt8(x, S::splat8(127))); }
};

// Index of the first 16-byte block at or after i that has a failing byte (or the last
// position from which 16 bytes no longer fit); the caller finishes byte by byte.
template <typename Pass>
size_t skipPassingBlocks(const uint8_t* p, size_t i, size_t n, Pass pass) {
    for (; i + 64 <= n; i += 64) {
        const V ok = S::and_(S::and_(pass(S::load(p + i)), pass(S::load(p + i + 16))),
                             S::and_(pass(S::load(p + i + 32)), pass(S::load(p + i + 48))));
        if (!S::all(ok)) break;
    }
    for (; i + 16 <= n; i += 16) {
        if (!S::all(pass(S::load(p + i)))) break;
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
    for (size_t b = 0; b < 256; ++b) {
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

// True only when every byte belongs to a well-formed sequence; false may also mean that the
// processor lacks the instructions, so callers fall back to the state machine.
bool wholeBufferWellFormed(const uint8_t* p, size_t n) {
    return simd::wellFormedUTF8(p, n, simd::bestUTF8Kernel());
}

}  // namespace

size_t wellFormedSequenceLength(std::string_view bytes) {
    uint8_t state = kAccept;
    for (size_t i = 0; i < bytes.size() && i < 4; ++i) {
        state = kAnyASCII[size_t(state) * 256 + uint8_t(bytes[i])];
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
    const V fill = S::splat8(replacement);
    size_t i = 0;
    for (; i + 16 <= n; i += 16) {
        const V x = S::load(p + i);
        const V keep = From32To127{}(x);
        S::store(out + i, S::or_(S::and_(keep, x), S::andNot(keep, fill)));
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
        const HostString s(REALBuildUnicodeString(*found, kREALTextEncodingUTF8));
        REALAppendArrayValue(array, s.get());
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
