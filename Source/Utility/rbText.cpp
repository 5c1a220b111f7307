#include "rbText.h"

#include <cstring>

#include "MyMemory.h"
#include "REALplugin.h"
#include "rbData.h"
#include "rbDebug.h"
#include "rbUtil.h"
#include "simd.h"
#include "utf8.h"

namespace {

using S = kxt::simd::Native;
using V = S::V;

constexpr uint32_t kGuard = 0x4B585431;  // "KXT1"

const char kEmpty8[1] = {0};
const uint16_t kEmpty16[1] = {0};
const uint32_t kEmpty32[1] = {0};

bool isUTF16Family(uint32_t encoding) {
    return encoding == kREALTextEncodingUTF16 || encoding == kREALTextEncodingUTF16BE ||
           encoding == kREALTextEncodingUTF16LE;
}

template <typename Unit>
Unit byteSwapped(Unit u) {
    if constexpr (sizeof(Unit) == 2) return static_cast<Unit>(__builtin_bswap16(u));
    return static_cast<Unit>(__builtin_bswap32(u));
}

// Every unit and the terminating zero are written, so the buffer is not cleared first.
template <typename Unit>
Unit* widen(const char* bytes, int64_t length) {
    auto* out = static_cast<Unit*>(AllocateMemory((length + 1) * int64_t(sizeof(Unit))));
    if (out == nullptr) return nullptr;
    for (int64_t i = 0; i < length; ++i) out[i] = static_cast<uint8_t>(bytes[i]);
    out[length] = 0;
    return out;
}

}  // namespace

rbText::rbText(REALstring s) {
    reset();
    SetText(s);
}

rbText::~rbText() {
    if (startGuard_ != kGuard && gDebugging) LogMessage("Check1 in rbText invalid");
    if (endGuard_ != kGuard && gDebugging) LogMessage("Check2 in rbText invalid");
    release();
}

void rbText::reset() {
    startGuard_ = kGuard;
    endGuard_ = kGuard;
    string_ = nullptr;
    encoding_ = kREALTextEncodingASCII;
    kind_ = kPureASCII;
    failed_ = false;
    asciiPending_ = false;
    ascii_ = kEmpty8;
    utf8_ = kEmpty8;
    utf16_ = kEmpty16;
    utf32_ = kEmpty32;
    asciiLength_ = utf8Length_ = utf16Length_ = utf32Length_ = 0;
    ownedASCII_ = ownedUTF8_ = ownedUTF16_ = ownedUTF32_ = nullptr;
}

void rbText::release() noexcept {
    FreeMemoryNow(ownedASCII_);
    FreeMemoryNow(ownedUTF8_);
    FreeMemoryNow(ownedUTF16_);
    FreeMemoryNow(ownedUTF32_);
    ownedASCII_ = ownedUTF8_ = ownedUTF16_ = ownedUTF32_ = nullptr;
    if (string_ != nullptr) REALUnlockString(string_);
    string_ = nullptr;
}

void rbText::Clear() {
    release();
    reset();
}

void rbText::SetText(REALstring s) {
    Clear();
    if (s == nullptr) return;
    REALLockString(s);
    string_ = s;
    encoding_ = REALGetStringEncoding(s);
    asciiLength_ = utf8Length_ = utf16Length_ = utf32Length_ = -1;
    kind_ = kUndecided;

    auto shareBytes = [this](bool asASCII) {
        size_t length = 0;
        const char* bytes = REALGetStringContents(string_, &length);
        if (bytes == nullptr) {
            bytes = kEmpty8;
            length = 0;
        }
        utf8_ = bytes;
        utf8Length_ = int64_t(length);
        if (asASCII) {
            ascii_ = bytes;
            asciiLength_ = int64_t(length);
        }
    };

    switch (encoding_) {
        case kREALTextEncodingASCII:
            kind_ = kEightBit;
            shareBytes(true);
            asciiPending_ = true;
            return;
        case kREALTextEncodingUTF8:
            kind_ = kEightBit;
            shareBytes(false);
            asciiPending_ = true;
            return;
        case kREALTextEncodingISOLatin1:
        case kREALTextEncodingWindowsLatin1:
        case kREALTextEncodingMacRoman:
            kind_ = kEightBit;
            break;
        case kREALTextEncodingUnknown: {
            kind_ = kEightBit;
            checkASCII();
            if (kind_ != kPureASCII) {
                // Bytes of no declared encoding are read as Latin-1.
                rbData bytes(string_);
                REALstring latin1 =
                    REALBuildUnicodeString(bytes.data, bytes.size, kREALTextEncodingISOLatin1);
                bytes.clear();
                if (latin1 != nullptr) {
                    REALUnlockString(string_);
                    string_ = latin1;
                    encoding_ = REALGetStringEncoding(latin1);
                }
                kind_ = kUnicode;
            }
            // Logged and flagged whatever the outcome, as callers have always seen it.
            if (gDebugging) LogMessage("REALBuildUnicodeString failed");
            failed_ = true;
            return;
        }
        default:
            if (IsUTF16or32Encoding(encoding_)) kind_ = kUnicode;
            break;
    }
    if (kind_ == kEightBit) checkASCII();
}

void rbText::checkASCII() {
    rbData bytes(string_);
    if (!IsASCII(bytes.data, bytes.size)) return;
    kind_ = kPureASCII;
    size_t length = 0;
    const char* p = REALGetStringContents(string_, &length);
    if (p == nullptr) {
        p = kEmpty8;
        length = 0;
    }
    ascii_ = utf8_ = p;
    asciiLength_ = utf8Length_ = int64_t(length);
}

bool rbText::fromHost(uint32_t encoding, int unitSize, void*& owned, int64_t& units) {
    REALstringData record{};
    if (!REALGetStringData(string_, encoding, &record)) {
        if (gDebugging) LogMessage("REALGetStringData failed.");
        failed_ = true;
        return false;
    }
    // The host's buffer need not be terminated: copy it into our own, with room for the zero.
    int64_t bytes = int64_t(record.length);
    units = bytes / unitSize;
    owned = AllocateClearMemory((units + 1) * unitSize);
    if (owned != nullptr && units > 0) memcpy(owned, record.data, size_t(units * unitSize));
    REALDisposeStringData(&record);
    if (owned == nullptr) {
        if (gDebugging) LogMessage("Out of memory");
        units = 0;
        return false;
    }
    return true;
}

void rbText::makeNarrow(bool utf8) {
    const char*& form = utf8 ? utf8_ : ascii_;
    int64_t& length = utf8 ? utf8Length_ : asciiLength_;
    void*& owned = utf8 ? ownedUTF8_ : ownedASCII_;
    length = 0;
    form = kEmpty8;
    int64_t units = 0;
    if (fromHost(utf8 ? kREALTextEncodingUTF8 : kREALTextEncodingASCII, 1, owned, units)) {
        form = static_cast<const char*>(owned);
        length = units;
    }
}

const char* rbText::GetASCII() {
    decideKind();
    if (asciiLength_ < 0) makeNarrow(false);
    return ascii_;
}
int64_t rbText::LengthASCII() {
    GetASCII();
    return asciiLength_;
}
const char* rbText::GetUTF8() {
    if (utf8Length_ < 0) makeNarrow(true);
    return utf8_;
}
const char* rbText::GetUTF8Nil() {
    const char* p = GetUTF8();
    return utf8Length_ > 0 ? p : nullptr;
}
int64_t rbText::LengthUTF8() {
    GetUTF8();
    return utf8Length_;
}

bool rbText::decodesOwnUTF8() const {
    return encoding_ == kREALTextEncodingASCII || encoding_ == kREALTextEncodingUTF8;
}

template <typename Unit>
void rbText::repairWide(const Unit*& ptr, int64_t& length, void*& owned) {
    if (length > 0 && ptr[length] != 0) {
        if (gDebugging) LogMessage("String is not zero terminated. Fixed.");
        auto* copy = static_cast<Unit*>(AllocateClearMemory((length + 1) * int64_t(sizeof(Unit))));
        if (copy == nullptr) {
            if (gDebugging) LogMessage("Out of memory");
            ptr = sizeof(Unit) == 2 ? reinterpret_cast<const Unit*>(kEmpty16)
                                    : reinterpret_cast<const Unit*>(kEmpty32);
            length = 0;
            return;
        }
        memcpy(copy, ptr, size_t(length) * sizeof(Unit));
        FreeMemoryNow(owned);
        owned = copy;
        ptr = copy;
    }
    const Unit swappedMark = sizeof(Unit) == 2 ? Unit(0xFFFE) : Unit(0xFFFE0000u);
    if (length > 0 && ptr[0] == swappedMark) {
        if (gDebugging) LogMessage("String is Little Endian. Swap.");
        auto* swapped =
            static_cast<Unit*>(AllocateClearMemory((length + 1) * int64_t(sizeof(Unit))));
        if (swapped == nullptr) {
            if (gDebugging) LogMessage("Out of memory");
            ptr = sizeof(Unit) == 2 ? reinterpret_cast<const Unit*>(kEmpty16)
                                    : reinterpret_cast<const Unit*>(kEmpty32);
            length = 0;
            return;
        }
        for (int64_t i = 0; i < length; ++i) swapped[i] = byteSwapped(ptr[i]);
        FreeMemoryNow(owned);
        owned = swapped;
        ptr = swapped;
    }
    if (length > 0 && ptr[0] == 0xFEFF) {
        ++ptr;
        --length;
    }
    if (length > 0 && ptr[0] == 0xFFFE) {
        ++ptr;
        --length;
    }
}

void rbText::decodeUTF8(bool toUTF32) {
    const auto* in = reinterpret_cast<const uint8_t*>(GetUTF8());
    const int64_t n = LengthUTF8();
    void*& owned = toUTF32 ? ownedUTF32_ : ownedUTF16_;
    if (n <= 0) {
        if (toUTF32)
            utf32Length_ = 0;
        else
            utf16Length_ = 0;
        return;
    }
    const int64_t unitSize = toUTF32 ? 4 : 2;
    // Everything up to the terminating zero is written below.
    owned = AllocateMemory((n + 1) * unitSize);
    if (owned == nullptr) {
        if (gDebugging) LogMessage("Out of memory");
        if (toUTF32)
            utf32Length_ = 0;
        else
            utf16Length_ = 0;
        return;
    }
    auto* out16 = static_cast<uint16_t*>(owned);
    auto* out32 = static_cast<uint32_t*>(owned);
    int64_t written = 0;
    int64_t i = 0;
    while (i < n) {
        // Runs of ASCII sixteen bytes a step.
        if (i + 16 <= n) {
            const S::V x = S::load(in + i);
            if (!S::any(x)) {
                if (toUTF32) {
                    kxt::simd::widenBlock(x, out32 + written);
                } else {
                    kxt::simd::widenBlock(x, out16 + written);
                }
                written += 16;
                i += 16;
                continue;
            }
        }
        uint8_t lead = in[i];
        if (lead < 0x80) {
            if (toUTF32)
                out32[written++] = lead;
            else
                out16[written++] = lead;
            ++i;
            continue;
        }
        const kxt::utf8::CodePoint decoded = kxt::utf8::decode(in + i, size_t(n - i));
        if (decoded.length == 0) {
            if (gDebugging) LogMessage("Illegal UTF-8 sequence!", i);
            break;
        }
        uint32_t c = decoded.value;
        i += int64_t(decoded.length);
        if (c == 0xFEFF || c == 0xFFFE) continue;  // marks vanish wherever they stand
        if (toUTF32) {
            out32[written++] = c;
        } else if (c < 0x10000) {
            out16[written++] = static_cast<uint16_t>(c);
        } else {
            c -= 0x10000;
            out16[written++] = static_cast<uint16_t>(0xD800 + (c >> 10));
            out16[written++] = static_cast<uint16_t>(0xDC00 + (c & 0x3FF));
        }
    }
    if (toUTF32) {
        out32[written] = 0;
        utf32_ = out32;
        utf32Length_ = written;
    } else {
        out16[written] = 0;
        utf16_ = out16;
        utf16Length_ = written;
    }
    failed_ = false;
}

void rbText::makeUTF16() {
    decideKind();
    utf16_ = kEmpty16;
    utf16Length_ = 0;
    if (kind_ == kPureASCII) {
        auto* units = widen<uint16_t>(ascii_, asciiLength_);
        if (units == nullptr) return;
        ownedUTF16_ = units;
        utf16_ = units;
        utf16Length_ = asciiLength_;
        return;
    }
    if (decodesOwnUTF8()) {
        if (gDebugging) LogMessage("Try UTF8 to UTF16 conversion...");
        decodeUTF8(false);
    } else {
        int64_t units = 0;
        if (!fromHost(kREALTextEncodingUTF16, 2, ownedUTF16_, units)) return;
        utf16_ = static_cast<const uint16_t*>(ownedUTF16_);
        utf16Length_ = units;
    }
    repairWide(utf16_, utf16Length_, ownedUTF16_);
}

void rbText::makeUTF32() {
    decideKind();
    utf32_ = kEmpty32;
    utf32Length_ = 0;
    if (kind_ == kPureASCII) {
        auto* units = widen<uint32_t>(ascii_, asciiLength_);
        if (units == nullptr) return;
        ownedUTF32_ = units;
        utf32_ = units;
        utf32Length_ = asciiLength_;
        return;
    }
    bool viaUTF16 = false;
    if (decodesOwnUTF8()) {
        if (gDebugging) LogMessage("Try UTF8 to UTF32 conversion...");
        decodeUTF8(true);
    } else if (isUTF16Family(encoding_)) {
        if (gDebugging) LogMessage("Try UTF16 to UTF32 conversion...");
        viaUTF16 = true;
    } else {
        int64_t units = 0;
        if (fromHost(kREALTextEncodingUTF32, 4, ownedUTF32_, units)) {
            utf32_ = static_cast<const uint32_t*>(ownedUTF32_);
            utf32Length_ = units;
        } else {
            viaUTF16 = true;
        }
    }
    if (viaUTF16) {
        const uint16_t* in = GetUTF16();
        const int64_t n = LengthUTF16();
        auto* out = static_cast<uint32_t*>(AllocateClearMemory((n + 1) * 4));
        if (out == nullptr) {
            if (n > 0 && gDebugging) LogMessage("Out of memory");
            return;
        }
        int64_t written = 0;
        for (int64_t i = 0; i < n; ++i) {
            uint32_t u = in[i];
            if (u >= 0xD800 && u <= 0xDBFF && i + 1 < n && in[i + 1] >= 0xDC00 &&
                in[i + 1] <= 0xDFFF) {
                u = 0x10000 + ((u - 0xD800) << 10) + (in[i + 1] - 0xDC00);
                ++i;
            }
            out[written++] = u;
        }
        FreeMemoryNow(ownedUTF32_);
        ownedUTF32_ = out;
        utf32_ = out;
        utf32Length_ = written;
    }
    repairWide(utf32_, utf32Length_, ownedUTF32_);
}

const uint16_t* rbText::GetUTF16() {
    if (utf16Length_ < 0) makeUTF16();
    return utf16_;
}
int64_t rbText::LengthUTF16() {
    GetUTF16();
    return utf16Length_;
}
const uint32_t* rbText::GetUTF32() {
    if (utf32Length_ < 0) makeUTF32();
    return utf32_;
}
int64_t rbText::LengthUTF32() {
    GetUTF32();
    return utf32Length_;
}
