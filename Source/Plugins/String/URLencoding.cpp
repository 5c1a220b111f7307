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

namespace {

// What every byte becomes in each way of encoding: its text (up to three characters, padded to
// four) and length.
struct ByteTexts {
    std::array<std::array<char, 4>, 256> text{};
    std::array<uint8_t, 256> length{};
    constexpr explicit ByteTexts(int mode) {
        const bool spaceAsPlus = mode == 1;
        const bool encodePlus = mode == 1 || mode == 2;
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
    }
};
constexpr ByteTexts kByteTexts[4] = {ByteTexts(0), ByteTexts(1), ByteTexts(2), ByteTexts(3)};

// The byte loop: writes the encoding of bytes to out (room for three per byte and one more),
// gives its length. Four bytes are stored for every input byte and the pointer moves by the
// length: no branch per byte. The spare byte takes the last store's padding.
size_t encodeURLBytes(std::string_view bytes, RBInteger options, char* out) {
    const ByteTexts& table = kByteTexts[options & 3];
    char* w = out;
    for (const uint8_t b : kxt::unsignedBytes(bytes)) {
        memcpy(w, table.text[b].data(), 4);
        w += table.length[b];
    }
    return size_t(w - out);
}

// The same as a class for the escape kernel: the bytes below 0x80 that take "%XX", and the
// space that becomes "+" instead where it does.
constexpr simd::EscapeClass escapeClassOf(int mode) {
    simd::EscapeClass c{};
    for (size_t b = 0; b < 128; ++b) {
        if (kByteTexts[mode].length[b] == 3)
            c.low[b & 15] = uint8_t(c.low[b & 15] | 1u << (b >> 4));
    }
    for (size_t h = 0; h < 8; ++h) c.high[h] = uint8_t(1u << h);
    c.replaced = ' ';
    c.replacement =
        kByteTexts[mode].length[' '] == 1 ? uint8_t(kByteTexts[mode].text[' '][0]) : ' ';
    c.digits = kHexDigits;
    return c;
}
constexpr simd::EscapeClass kEscapeClasses[4] = {escapeClassOf(0), escapeClassOf(1),
                                                 escapeClassOf(2), escapeClassOf(3)};

}  // namespace

const simd::EscapeClass& urlEscapeClass(RBInteger options) {
    return kEscapeClasses[options & 3];
}

RawBytes encodeURLPlain(std::string_view bytes, RBInteger options) {
    RawBytes out(bytes.size() * 3 + 1);
    out.setSize(encodeURLBytes(bytes, options, out.data()));
    return out;
}

RawBytes encodeURL(std::string_view bytes, RBInteger options) {
    // Whole blocks through the escape kernel (it wants 64 bytes to spare), the rest byte by
    // byte. Pages of the room that are never written cost nothing.
    const size_t room = bytes.size() * 3 + 64;
    RawBytes out(room);
    const simd::EscapeProgress done =
        simd::escapeBlocks(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), out.data(),
                           room, urlEscapeClass(options));
    out.setSize(done.written +
                encodeURLBytes(bytes.substr(done.read), options, out.data() + done.written));
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
