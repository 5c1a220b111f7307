// Plain UTF conversions: the straightforward readings that the plugin's text forms and its UTF-8
// fast paths must agree with in the fuzzers, and the benchmarks' corpus conversions.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ref {

// RFC 3629 decoding up to the first malformed or cut sequence, byte order marks dropped.
inline std::vector<uint32_t> decodeUTF8(const std::string& bytes, bool* complete) {
    std::vector<uint32_t> out;
    size_t i = 0;
    const size_t n = bytes.size();
    auto at = [&](size_t k) { return static_cast<uint8_t>(bytes[k]); };
    while (i < n) {
        const uint8_t b = at(i);
        size_t len;
        uint32_t c;
        uint8_t lo = 0x80, hi = 0xBF;
        if (b < 0x80) {
            len = 1, c = b;
        } else if (b >= 0xC2 && b <= 0xDF) {
            len = 2, c = b & 0x1F;
        } else if (b >= 0xE0 && b <= 0xEF) {
            len = 3, c = b & 0x0F;
            if (b == 0xE0) lo = 0xA0;
            if (b == 0xED) hi = 0x9F;
        } else if (b >= 0xF0 && b <= 0xF4) {
            len = 4, c = b & 0x07;
            if (b == 0xF0) lo = 0x90;
            if (b == 0xF4) hi = 0x8F;
        } else {
            break;
        }
        if (i + len > n) break;
        bool ok = true;
        for (size_t k = 1; k < len; ++k) {
            const uint8_t t = at(i + k);
            if (t < (k == 1 ? lo : 0x80) || t > (k == 1 ? hi : 0xBF)) ok = false;
            c = (c << 6) | (t & 0x3F);
        }
        if (!ok) break;
        if (c != 0xFEFF && c != 0xFFFE) out.push_back(c);
        i += len;
    }
    *complete = i == n;
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
