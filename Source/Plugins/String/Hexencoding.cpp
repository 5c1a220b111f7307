#include "Hexencoding.h"

#include "MyMemory.h"
#include "REALplugin.h"
#include "URLencoding.h"
#include "encoderboundary.h"
#include "rbData.h"
#include "rbDebug.h"
#include "rbText.h"
#include "rbUtil.h"
#include "simd.h"

namespace kxt {

namespace {

using S = simd::Native;
using V = S::V;

constexpr const char* kHexDigits = "0123456789ABCDEF";

// The byte a MySQL escape stands for, or -1 when the pair is kept as it is.
int mySQLEscape(unsigned char b) {
    switch (b) {
        case '0':
            return 0;
        case '\'':
            return '\'';
        case '"':
            return '"';
        case 'b':
            return 8;
        case 'n':
            return 10;
        case 'r':
            return 13;
        case 't':
            return 9;
        case 'Z':
            return 26;
        case '\\':
            return '\\';
        // MySQL itself keeps the backslash of these outside LIKE patterns; callers rely on
        // its removal.
        case '%':
            return '%';
        case '_':
            return '_';
        default:
            return -1;
    }
}

}  // namespace

RawBytes encodeHex(std::string_view bytes) {
    RawBytes out(bytes.size() * 2);
    out.setSize(bytes.size() * 2);
    const auto* p = reinterpret_cast<const uint8_t*>(bytes.data());
    char* w = out.data();
    const size_t n = bytes.size();
    size_t i = 0;
    // 16 bytes to 32 digits a step: split the nibbles, interleave high and low, and turn each
    // into "0".."9" or "A".."F" (7 more past 9).
    const V lowMask = S::splat8(0x0F), nine = S::splat8(9);
    const V zero = S::splat8('0'), letterGap = S::splat8('A' - '0' - 10);
    auto digits = [&](V nibbles) {
        const V letters = S::and_(S::gt8(nibbles, nine), letterGap);
        return S::add8(S::add8(nibbles, zero), letters);
    };
    for (; i + 16 <= n; i += 16) {
        const V x = S::load(p + i);
        const V high = S::and_(S::shr16<4>(x), lowMask);
        const V low = S::and_(x, lowMask);
        S::store(w + 2 * i, digits(S::zipLow8(high, low)));
        S::store(w + 2 * i + 16, digits(S::zipHigh8(high, low)));
    }
    for (; i < n; ++i) {
        w[2 * i] = kHexDigits[p[i] >> 4];
        w[2 * i + 1] = kHexDigits[p[i] & 15];
    }
    return out;
}

namespace {

// The value of each hex digit in x (either case), 0 for any other byte, as hex2int reads them.
V hexValues(V x) {
    auto between = [&](char first, char last) {
        return S::and_(S::gt8(x, S::splat8(uint8_t(first - 1))),
                       S::lt8(x, S::splat8(uint8_t(last + 1))));
    };
    const V digit = S::and_(between('0', '9'), S::sub8(x, S::splat8('0')));
    const V upper = S::and_(between('A', 'F'), S::sub8(x, S::splat8('A' - 10)));
    const V lower = S::and_(between('a', 'f'), S::sub8(x, S::splat8('a' - 10)));
    return S::or_(digit, S::or_(upper, lower));
}

// 16 digits to 8 bytes in the low half of 16-bit lanes: high digit * 16 + low digit.
V pairsToBytes(V values) {
    const V high = S::and_(values, S::splat16(0x00FF));
    const V low = S::shr16<8>(values);
    return S::or_(S::shl16<4>(high), low);
}

}  // namespace

RawBytes decodeHex(std::string_view text, bool* ascii) {
    RawBytes out(text.size() / 2);
    out.setSize(text.size() / 2);
    const auto* p = reinterpret_cast<const uint8_t*>(text.data());
    char* w = out.data();
    const size_t n = out.size();
    size_t i = 0;
    V read = S::zero();  // every input byte ORed, for the ASCII answer
    for (; i + 16 <= n; i += 16) {
        const V x = S::load(p + 2 * i);
        const V y = S::load(p + 2 * i + 16);
        read = S::or_(read, S::or_(x, y));
        S::store(w + i, S::packSat16(pairsToBytes(hexValues(x)), pairsToBytes(hexValues(y))));
    }
    uint8_t rest = 0;
    for (; i < n; ++i) {
        rest |= p[2 * i] | p[2 * i + 1];
        int high = hex2int(p[2 * i]);
        int low = hex2int(p[2 * i + 1]);
        w[i] = char(high * 16 + low);
    }
    if (text.size() % 2 != 0)
        rest |= p[text.size() - 1];  // read by nobody, asked about all the same
    if (ascii != nullptr) *ascii = !S::any(read) && (rest & 0x80) == 0;
    return out;
}

RawBytes decodeMySQL(std::string_view bytes) {
    RawBytes out(bytes.size());
    char* w = out.data();
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (bytes[i] == '\\' && i + 1 < bytes.size()) {
            int escaped = mySQLEscape(static_cast<unsigned char>(bytes[i + 1]));
            if (escaped >= 0) {
                *w++ = char(escaped);
                ++i;
                continue;
            }
            *w++ = '\\';
            *w++ = bytes[++i];
            continue;
        }
        *w++ = bytes[i];
    }
    out.setSize(size_t(w - out.data()));
    return out;
}

}  // namespace kxt

REALstring EncodingToHex(REALstring s) {
    return NilOnAllocationFailure<REALstring>(nullptr, [&]() -> REALstring {
        rbData in(s);
        return REALBuildUnicodeString(kxt::encodeHex(in.view()).view(), kREALTextEncodingASCII);
    });
}

REALstring DecodingToHex(REALstring s) {
    return NilOnAllocationFailure<REALstring>(nullptr, [&]() -> REALstring {
        if (s == nullptr) return nullptr;
        // The text's ASCII form is its own bytes when they are all ASCII and it is tagged with
        // a single-byte encoding, UTF-8 or none: decode those directly, finding out on the way
        // whether they were (which saves the form its separate pass over them). Otherwise, and
        // while debugging, through the form.
        switch (REALGetStringEncoding(s)) {
            case kREALTextEncodingASCII:
            case kREALTextEncodingUTF8:
            case kREALTextEncodingISOLatin1:
            case kREALTextEncodingWindowsLatin1:
            case kREALTextEncodingMacRoman:
            case kREALTextEncodingUnknown:
                if (!gDebugging) {
                    rbData in(s);
                    bool ascii = false;
                    const RawBytes out = kxt::decodeHex(in.view(), &ascii);
                    if (ascii) {
                        return REALBuildUnicodeString(out.view(), kREALTextEncodingUnknown);
                    }
                }
                break;
            default:
                break;
        }
        rbText text(s);
        return REALBuildUnicodeString(kxt::decodeHex(text.ascii()).view(),
                                      kREALTextEncodingUnknown);
    });
}

REALstring DecodingFromMySQL(REALstring s) {
    return NilOnAllocationFailure<REALstring>(nullptr, [&]() -> REALstring {
        rbData in(s);
        return REALBuildUnicodeString(kxt::decodeMySQL(in.view()).view(), kREALTextEncodingUnknown);
    });
}
