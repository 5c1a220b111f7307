#include "URLencoding.h"

#include <array>
#include <cstring>

#include "ByteView.h"
#include "MyMemory.h"
#include "rbData.h"
#include "rbException.h"
#include "rbUtil.h"
#include "simd.h"

namespace {

// What each byte 0..127 becomes: itself for the unreserved set, "%XX" otherwise. Space and
// plus depend on the options and are chosen per call. "!", "*" and "@" stay literal while
// "'", "(" and ")" are encoded: callers rely on exactly this set.
struct URLEncodeTable {
    std::array<std::array<char, 4>, 128> text{};
    std::array<uint8_t, 128> length{};

    constexpr URLEncodeTable() {
        constexpr const char* kDigits = "0123456789ABCDEF";
        for (size_t b = 0; b < 128; ++b) {
            bool literal = (b >= 'A' && b <= 'Z') || (b >= 'a' && b <= 'z') ||
                           (b >= '0' && b <= '9') || b == '!' || b == '*' || b == '+' || b == '-' ||
                           b == '.' || b == '@' || b == '_' || b == '~';
            if (literal) {
                text[b] = {char(b), 0, 0, 0};
                length[b] = 1;
            } else {
                text[b] = {'%', kDigits[b >> 4], kDigits[b & 15], 0};
                length[b] = 3;
            }
        }
    }
};

constexpr URLEncodeTable kURLEncodeTable;
constexpr const char* kHexDigits = "0123456789ABCDEF";

}  // namespace

namespace kxt {

int hex2int(unsigned char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return 0;
}

RawBytes encodeURL(std::string_view bytes, RBInteger options) {
    const int mode = int(options & 3);
    const bool spaceAsPlus = mode == 1;
    const bool encodePlus = mode == 1 || mode == 2;
    // This call's table: every byte's text (up to three characters, padded to four) and length.
    std::array<std::array<char, 4>, 256> text;
    std::array<uint8_t, 256> length;
    for (size_t b = 0; b < 256; ++b) {
        if (b >= 128 || (b == '+' && encodePlus)) {
            text[b] = {'%', kHexDigits[b >> 4], kHexDigits[b & 15], 0};
            length[b] = 3;
        } else if (b == ' ' && spaceAsPlus) {
            text[b] = {'+', 0, 0, 0};
            length[b] = 1;
        } else {
            text[b] = kURLEncodeTable.text[b];
            length[b] = kURLEncodeTable.length[b];
        }
    }
    // Four bytes are stored for every input byte and the pointer moves by the length: no
    // branch per byte. One spare byte takes the last store's padding. Room for every byte
    // escaped; pages that are never written cost nothing.
    RawBytes out(bytes.size() * 3 + 1);
    char* w = out.data();
    for (const uint8_t b : kxt::unsignedBytes(bytes)) {
        memcpy(w, text[b].data(), 4);
        w += length[b];
    }
    out.setSize(size_t(w - out.data()));
    return out;
}

namespace {

using S = simd::Native;
using V = S::V;

// Hex digit values for decoding: digits of either case, 0 for anything else (as hex2int).
constexpr std::array<uint8_t, 256> kHexValue = [] {
    std::array<uint8_t, 256> t{};
    for (size_t c = 0; c < 256; ++c) {
        if (c >= '0' && c <= '9') t[c] = uint8_t(c - '0');
        if (c >= 'a' && c <= 'f') t[c] = uint8_t(c - 'a' + 10);
        if (c >= 'A' && c <= 'F') t[c] = uint8_t(c - 'A' + 10);
    }
    return t;
}();

}  // namespace

RawBytes decodeURL(std::string_view bytes, RBInteger options, bool* ascii) {
    const bool plusAsSpace = (options & 1) != 0;
    const size_t n = bytes.size();
    RawBytes out(n);
    unsigned high = 0;  // the high bits of every byte written, ORed
    const auto* in = reinterpret_cast<const unsigned char*>(bytes.data());
    char* w = out.data();
    size_t i = 0;
    const V percent = S::splat8('%');
    const V plus = S::splat8(plusAsSpace ? '+' : '%');
    while (i < n) {
        const unsigned char b = in[i];
        if (b == '%') {
            // Digits past the end read as 0; the escape always consumes three bytes.
            const int digit1 = i + 1 < n ? kHexValue[in[i + 1]] : 0;
            const int digit2 = i + 2 < n ? kHexValue[in[i + 2]] : 0;
            const unsigned value = unsigned(digit1 * 16 + digit2) & 0xFF;
            high |= value;
            *w++ = static_cast<char>(value);
            i += 3;
            continue;
        }
        if (b == '+' && plusAsSpace) {
            *w++ = ' ';
            ++i;
            continue;
        }
        // From a plain byte on, sixteen bytes at a time up to the next escape (or plus read as
        // a space). The output never runs ahead of the input, so the whole block can be stored.
        if (i + 16 <= n) {
            const V x = S::load(in + i);
            S::store(w, x);
            const size_t plain = S::first(S::or_(S::eq8(x, percent), S::eq8(x, plus)));
            // A byte above 0x7F among those that count as written.
            high |= S::first(x) < plain ? 0x80u : 0u;
            w += plain;
            i += plain;
            continue;
        }
        high |= b;
        *w++ = static_cast<char>(b);
        ++i;
    }
    out.setSize(size_t(w - out.data()));
    if (ascii != nullptr) *ascii = (high & 0x80) == 0;
    return out;
}

}  // namespace kxt

REALstring EncodingToURL2(REALstring s, RBInteger options) {
    return HandlerBoundary<REALstring>(nullptr, [&]() -> REALstring {
        if (s == nullptr) return nullptr;
        rbData in(s);
        return REALBuildUnicodeString(kxt::encodeURL(in.view(), options).view(),
                                      kREALTextEncodingASCII);
    });
}

REALstring EncodingToURL1(REALstring s) {
    return EncodingToURL2(s, 0);
}

REALstring DecodingToURL2(REALstring s, RBInteger options) {
    return HandlerBoundary<REALstring>(nullptr, [&]() -> REALstring {
        if (s == nullptr) return nullptr;
        rbData in(s);
        bool ascii = false;
        const RawBytes out = kxt::decodeURL(in.view(), options, &ascii);
        return REALBuildUnicodeString(out.view().data(), int64_t(out.size()),
                                      kREALTextEncodingUnknown, ascii);
    });
}

REALstring DecodingToURL1(REALstring s) {
    return DecodingToURL2(s, 0);
}
