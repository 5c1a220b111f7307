// Plain UTF conversions: the straightforward readings that the plugin's text forms and its UTF-8
// fast paths must agree with in the fuzzers, and the benchmarks' corpus conversions.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ref {

// One sequence at s[i] decoded by its lead byte, then the code point checked (RFC 3629: no
// overlong forms, surrogates or values past U+10FFFF): another reading of the well-formedness
// table than the plugin's byte-range tests. Its length, or 0 when malformed or cut.
inline size_t sequenceLength(std::string_view s, size_t i, uint32_t* point = nullptr) {
    if (i >= s.size()) return 0;
    const uint8_t lead = uint8_t(s[i]);
    size_t len;
    uint32_t cp;
    if (lead < 0x80) {
        len = 1, cp = lead;
    } else if (lead >= 0xC0 && lead < 0xE0) {
        len = 2, cp = lead & 0x1F;
    } else if (lead >= 0xE0 && lead < 0xF0) {
        len = 3, cp = lead & 0x0F;
    } else if (lead >= 0xF0 && lead < 0xF8) {
        len = 4, cp = lead & 0x07;
    } else {
        return 0;
    }
    if (i + len > s.size()) return 0;
    for (size_t k = 1; k < len; ++k) {
        const uint8_t c = uint8_t(s[i + k]);
        if ((c & 0xC0) != 0x80) return 0;
        cp = (cp << 6) | (c & 0x3F);
    }
    static const uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (cp < kSmallest[len] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return 0;
    if (point != nullptr) *point = cp;
    return len;
}

// Decoding up to the first malformed or cut sequence, byte order marks dropped.
inline std::vector<uint32_t> decodeUTF8(std::string_view bytes, bool* complete) {
    std::vector<uint32_t> out;
    size_t i = 0;
    for (size_t len; i < bytes.size(); i += len) {
        uint32_t c;
        len = sequenceLength(bytes, i, &c);
        if (len == 0) break;
        if (c != 0xFEFF && c != 0xFFFE) out.push_back(c);
    }
    *complete = i == bytes.size();
    return out;
}

inline std::vector<uint16_t> utf16Of(const std::vector<uint32_t>& points) {
    std::vector<uint16_t> out;
    for (uint32_t c : points) {
        if (c < 0x10000) {
            out.push_back(uint16_t(c));
        } else {
            out.push_back(uint16_t(0xD800 + ((c - 0x10000) >> 10)));
            out.push_back(uint16_t(0xDC00 + ((c - 0x10000) & 0x3FF)));
        }
    }
    return out;
}

inline std::string utf8Of(const std::vector<uint32_t>& points) {
    std::string out;
    for (uint32_t c : points) {
        if (c < 0x80) {
            out += char(c);
        } else if (c < 0x800) {
            out += char(0xC0 | (c >> 6));
            out += char(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += char(0xE0 | (c >> 12));
            out += char(0x80 | ((c >> 6) & 0x3F));
            out += char(0x80 | (c & 0x3F));
        } else {
            out += char(0xF0 | (c >> 18));
            out += char(0x80 | ((c >> 12) & 0x3F));
            out += char(0x80 | ((c >> 6) & 0x3F));
            out += char(0x80 | (c & 0x3F));
        }
    }
    return out;
}

// Code points of UTF-16 units (any container of 16-bit units): a surrogate pair is one code
// point, a lone surrogate stays a code point of its own.
template <typename Units>
std::vector<uint32_t> codePointsOf(const Units& units) {
    std::vector<uint32_t> out;
    out.reserve(units.size());
    for (size_t i = 0; i < units.size(); ++i) {
        uint32_t c = units[i];
        if (c >= 0xD800 && c < 0xDC00 && i + 1 < units.size() && units[i + 1] >= 0xDC00 &&
            units[i + 1] < 0xE000) {
            c = 0x10000 + ((c - 0xD800) << 10) + (units[++i] - 0xDC00);
        }
        out.push_back(c);
    }
    return out;
}

}  // namespace ref
