#include "rbUtil.h"

#include <cstring>
#include <exception>

#include "MyMemory.h"
#include "REALplugin.h"
#include "rbDebug.h"
#include "rbException.h"
#include "rbRef.h"

bool IsASCII(const void* data, int64_t length) {
    auto* bytes = static_cast<const uint8_t*>(data);
    int64_t i = 0;
    // 64 bytes a step as eight words, stopping at the first step that holds a high bit.
    for (; i + 64 <= length; i += 64) {
        uint64_t any = 0;
        for (int k = 0; k < 8; ++k) {
            uint64_t word;
            memcpy(&word, bytes + i + 8 * k, sizeof word);
            any |= word;
        }
        if (any & 0x8080808080808080u) return false;
    }
    uint8_t rest = 0;
    for (; i < length; ++i) rest |= bytes[i];
    return (rest & 0x80) == 0;
}

bool IsUTF16or32Encoding(uint32_t encoding) {
    switch (encoding) {
        case kREALTextEncodingUTF16:
        case kREALTextEncodingUTF16BE:
        case kREALTextEncodingUTF16LE:
        case kREALTextEncodingUTF32:
        case kREALTextEncodingUTF32BE:
        case kREALTextEncodingUTF32LE:
            return true;
        default:
            return false;
    }
}

namespace {

constexpr uint16_t kReplacementUnit = 0xFFFD;

bool IsSurrogate(uint32_t u) {
    return u >= 0xD800 && u <= 0xDFFF;
}

// Units are read through memcpy: a caller's bytes need not be aligned.
uint16_t Unit16(const void* data, int64_t i) {
    uint16_t u;
    memcpy(&u, static_cast<const char*>(data) + i * 2, 2);
    return u;
}

// Index of the first unit that is not part of well-formed UTF-16, or count.
int64_t WellFormedUTF16Prefix(const void* data, int64_t count) {
    for (int64_t i = 0; i < count; ++i) {
        uint16_t u = Unit16(data, i);
        if (!IsSurrogate(u)) continue;
        if (u <= 0xDBFF && i + 1 < count && (Unit16(data, i + 1) & 0xFC00) == 0xDC00) {
            ++i;
            continue;
        }
        return i;
    }
    return count;
}

// Index of the first value that is no Unicode scalar value, or count.
int64_t WellFormedUTF32Prefix(const void* data, int64_t count) {
    for (int64_t i = 0; i < count; ++i) {
        uint32_t c;
        memcpy(&c, static_cast<const char*>(data) + i * 4, 4);
        if (c > 0x10FFFF || IsSurrogate(c)) return i;
    }
    return count;
}

void ReplaceLoneSurrogates(uint16_t* units, int64_t count) {
    for (int64_t i = 0; i < count; ++i) {
        if (!IsSurrogate(units[i])) continue;
        if (units[i] <= 0xDBFF && i + 1 < count && (units[i + 1] & 0xFC00) == 0xDC00) {
            ++i;
        } else {
            units[i] = kReplacementUnit;
        }
    }
}

// The host converts only well-formed text, so one bad unit would cost the whole result: a copy
// with each bad unit replaced by U+FFFD goes to the host instead. Null when it cannot be had.
template <typename Unit, typename Fix>
std::unique_ptr<Unit[], void (*)(Unit*)> RepairedCopy(const void* data, int64_t count, Fix fix) {
    auto* copy = static_cast<Unit*>(AllocateMemory(count * int64_t(sizeof(Unit))));
    std::unique_ptr<Unit[], void (*)(Unit*)> owner(copy, [](Unit* p) { FreeMemoryNow(p); });
    if (copy == nullptr) {
        if (gDebugging) LogMessage("Out of memory repairing ill-formed text.");
        return owner;
    }
    memcpy(copy, data, size_t(count) * sizeof(Unit));
    fix(copy, count);
    return owner;
}

// Builds in `encoding`, then converts to UTF-8, giving back the intermediate.
REALstring buildConverted(const void* data, int64_t length, uint32_t encoding) {
    const HostString wide(REALBuildStringWithEncoding(static_cast<const char*>(data),
                                                      static_cast<int32_t>(length), encoding));
    if (!wide) return nullptr;
    return REALConvertString(wide.get(), kREALTextEncodingUTF8);
}

}  // namespace

REALstring REALBuildTaggedString(const void* data, int64_t length, uint32_t encoding) {
    if (data == nullptr || length < 1 || length > kMaxHostLength) return nullptr;
    if (gHostVersion >= 2012.0) {
        return REALBuildStringWithEncoding(static_cast<const char*>(data),
                                           static_cast<int32_t>(length), encoding);
    }
    REALstring s = REALBuildString(static_cast<const char*>(data), static_cast<int32_t>(length));
    if (s != nullptr) REALSetStringEncoding(s, encoding);
    return s;
}

REALstring REALBuildUnicodeStringUTF16(const void* data, int64_t byteLength) {
    if (data == nullptr || byteLength < 1) return nullptr;
    const int64_t count = byteLength / 2;
    if (WellFormedUTF16Prefix(data, count) < count) {
        auto repaired = RepairedCopy<uint16_t>(data, count, ReplaceLoneSurrogates);
        if (repaired == nullptr) return nullptr;
        return REALBuildUnicodeStringUTF16(repaired.get(), count * 2);
    }
    if (gHostVersion >= 2012.0) return buildConverted(data, byteLength, kREALTextEncodingUTF16);
    REALstring s =
        REALBuildString(static_cast<const char*>(data), static_cast<int32_t>(byteLength));
    if (s == nullptr) {
        if (gDebugging) LogMessage("Out of memory in REALBuildUnicodeStringUTF16.");
        return nullptr;
    }
    REALSetStringEncoding(s, kREALTextEncodingUTF16);
    return s;
}

REALstring REALBuildUnicodeStringUTF32(const void* data, int64_t byteLength) {
    if (data == nullptr || byteLength < 1) return nullptr;
    if (gHostVersion >= 2013.0) {
        const int64_t count = byteLength / 4;
        if (WellFormedUTF32Prefix(data, count) == count) {
            return buildConverted(data, byteLength, kREALTextEncodingUTF32);
        }
        auto repaired = RepairedCopy<uint32_t>(data, count, [](uint32_t* points, int64_t n) {
            for (int64_t i = 0; i < n; ++i) {
                if (points[i] > 0x10FFFF || IsSurrogate(points[i])) points[i] = kReplacementUnit;
            }
        });
        if (repaired == nullptr) return nullptr;
        return buildConverted(repaired.get(), count * 4, kREALTextEncodingUTF32);
    }

    // Older hosts cannot build UTF-32: go through UTF-16.
    const int64_t count = byteLength / 4;
    auto* points = static_cast<const uint32_t*>(data);
    uint16_t stackBuffer[400];
    uint16_t* units = stackBuffer;
    void* heap = nullptr;
    if (byteLength >= 800) {
        heap = AllocateClearMemory((count * 2 + 1) * int64_t(sizeof(uint16_t)));
        if (heap == nullptr) {
            if (gDebugging) LogMessage("Out of memory in REALBuildUnicodeStringUTF32.");
            return nullptr;
        }
        units = static_cast<uint16_t*>(heap);
    }
    int64_t n = 0;
    for (int64_t i = 0; i < count; ++i) {
        uint32_t c = points[i];
        if (IsSurrogate(c) || c > 0x10FFFF) {
            units[n++] = kReplacementUnit;
        } else if (c < 0x10000) {
            units[n++] = static_cast<uint16_t>(c);
        } else {
            c -= 0x10000;
            units[n++] = static_cast<uint16_t>(0xD800 + (c >> 10));
            units[n++] = static_cast<uint16_t>(0xDC00 + (c & 0x3FF));
        }
    }
    units[n] = 0;
    // A zero unit ends the text.
    int64_t length = 0;
    while (length < n && units[length] != 0) ++length;
    REALstring result = REALBuildUnicodeStringUTF16(units, length * 2);
    FreeMemoryNow(heap);
    return result;
}

namespace {

// isASCII: what the caller knows of the bytes, or none to test them here.
REALstring buildUnicodeString(const void* data, int64_t length, uint32_t encoding,
                              const bool* isASCII) {
    if (data == nullptr || length < 1) return nullptr;
    if (length > kMaxHostLength) {
        if (gDebugging) LogMessage("Count too big for REALBuildUnicodeString.");
        return nullptr;
    }
    try {
        switch (encoding) {
            case kREALTextEncodingUTF16:
                return REALBuildUnicodeStringUTF16(data, length);
            case kREALTextEncodingUTF32:
                return REALBuildUnicodeStringUTF32(data, length);
            case kREALTextEncodingASCII:
            case kREALTextEncodingUTF8:
                break;
            case kREALTextEncodingMacRoman:
            case kREALTextEncodingISOLatin1:
            case kREALTextEncodingWindowsLatin1:
            case kREALTextEncodingUnknown:
                if (isASCII ? *isASCII : IsASCII(data, length)) encoding = kREALTextEncodingASCII;
                break;
            default:
                if (gDebugging) LogMessage("Unknown encoding in REALBuildUnicodeString", encoding);
                break;
        }
        return REALBuildTaggedString(data, length, encoding);
    } catch (const std::exception& e) {
        RaiseRuntimeException(e);
    } catch (...) {
        RaiseUnnamedException();
    }
    return nullptr;
}

}  // namespace

REALstring REALBuildUnicodeString(const void* data, int64_t length, uint32_t encoding) {
    return buildUnicodeString(data, length, encoding, nullptr);
}

REALstring REALBuildUnicodeString(const void* data, int64_t length, uint32_t encoding,
                                  bool knownASCII) {
    return buildUnicodeString(data, length, encoding, &knownASCII);
}

REALstring CString2RB(const char* text, uint32_t encoding) {
    if (gDebugging) {
        if (encoding == kREALTextEncodingUTF16) {
            LogMessage("Error: kREALTextEncodingUTF16 not useful for CString2RB!");
        } else if (encoding == kREALTextEncodingUTF32) {
            LogMessage("Error: kREALTextEncodingUTF32 not useful for CString2RB!");
        } else if (encoding == kREALTextEncodingASCII && text != nullptr &&
                   !IsASCII(text, int64_t(strlen(text)))) {
            LogMessage("Error: text is not ascii", text);
        }
    }
    if (text == nullptr) return nullptr;
    return REALBuildUnicodeString(text, int64_t(strlen(text)), encoding);
}
