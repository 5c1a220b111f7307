// The plugin's one UTF-8 codec, one scalar value at a time: checked decoding (RFC 3629: no
// overlong forms, surrogates or values above U+10FFFF), decoding of text known to be
// well-formed, and encoding. The block operations beside it (ASCII runs, whole-buffer
// validation) are in simd.h; the validating state machine of the search and repair functions
// is a table made from the same rules (rbstring.cpp).
#pragma once

#include <cstddef>
#include <cstdint>

namespace kxt::utf8 {

struct CodePoint {
    uint32_t value;
    size_t length;  // bytes; 0 when no well-formed sequence starts there
};

// The sequence at p, of which n bytes may be read. A byte that cannot lead, a bad second byte
// (with the narrower ranges after E0, ED, F0 and F4), a missing continuation byte or the end of
// the input give length 0.
constexpr CodePoint decode(const uint8_t* p, size_t n) {
    const uint8_t lead = p[0];
    if (lead < 0x80) return {lead, 1};
    size_t length = 0;
    uint32_t c = 0;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
        c = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        c = lead & 0x0F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        c = lead & 0x07;
    } else {
        return {0, 0};  // 0x80..0xC1 and 0xF5.. never lead a well-formed sequence
    }
    if (length > n) return {0, 0};
    const uint8_t low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const uint8_t high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    if (p[1] < low || p[1] > high) return {0, 0};
    for (size_t k = 1; k < length; ++k) {
        if ((p[k] & 0xC0) != 0x80) return {0, 0};
        c = c << 6 | (p[k] & 0x3F);
    }
    return {c, length};
}

// The sequence at p of text known to be well-formed (no checks, nothing read past it).
constexpr CodePoint decodeValid(const uint8_t* p) {
    const uint8_t b = p[0];
    if (b < 0x80) return {b, 1};
    if (b < 0xE0) return {uint32_t(b & 0x1F) << 6 | (p[1] & 0x3F), 2};
    if (b < 0xF0) return {uint32_t(b & 0x0F) << 12 | uint32_t(p[1] & 0x3F) << 6 | (p[2] & 0x3F), 3};
    return {uint32_t(b & 0x07) << 18 | uint32_t(p[1] & 0x3F) << 12 | uint32_t(p[2] & 0x3F) << 6 |
                (p[3] & 0x3F),
            4};
}

// Writes the scalar value cp (at most U+10FFFF) at w; gives the end of what was written.
constexpr char* encode(char* w, uint32_t cp) {
    if (cp < 0x80) {
        *w++ = char(cp);
    } else if (cp < 0x800) {
        *w++ = char(0xC0 | cp >> 6);
        *w++ = char(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        *w++ = char(0xE0 | cp >> 12);
        *w++ = char(0x80 | (cp >> 6 & 0x3F));
        *w++ = char(0x80 | (cp & 0x3F));
    } else {
        *w++ = char(0xF0 | cp >> 18);
        *w++ = char(0x80 | (cp >> 12 & 0x3F));
        *w++ = char(0x80 | (cp >> 6 & 0x3F));
        *w++ = char(0x80 | (cp & 0x3F));
    }
    return w;
}

}  // namespace kxt::utf8
