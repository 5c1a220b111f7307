// Straightforward byte loops for the search, mask and UTF-8 functions: what the fast paths must
// agree with (differential tests) and what the benchmarks measure them against.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "utf_reference.h"

namespace ref {

inline uint8_t at(std::string_view s, size_t i) {
    return i < s.size() ? uint8_t(s[i]) : 0;
}

inline int64_t firstOfAny(std::string_view target, std::string_view set) {
    for (size_t i = 0; i < target.size(); ++i) {
        if (set.find(target[i]) != std::string_view::npos) return int64_t(i) + 1;
    }
    return 0;
}

struct Range {
    int64_t first, last;
};

inline int64_t firstInRanges(std::string_view target, const std::vector<Range>& ranges) {
    for (size_t i = 0; i < target.size(); ++i) {
        const int64_t v = uint8_t(target[i]);
        for (const Range& r : ranges) {
            if (r.first <= v && v <= r.last) return int64_t(i) + 1;
        }
    }
    return 0;
}

inline int64_t firstInSignedRangesOrSet(std::string_view target, const std::vector<Range>& ranges,
                                        std::string_view find) {
    for (size_t i = 0; i < target.size(); ++i) {
        const int64_t v = int8_t(target[i]);
        for (const Range& r : ranges) {
            if (r.first <= v && v <= r.last) return int64_t(i) + 1;
        }
        if (find.find(target[i]) != std::string_view::npos) return int64_t(i) + 1;
    }
    return 0;
}

// memcmp over max(la, lb) + 1 bytes with zeros past each end, clamped.
inline int compareZeroPadded(std::string_view a, std::string_view b) {
    const size_t n = std::max(a.size(), b.size()) + 1;
    for (size_t i = 0; i < n; ++i) {
        if (at(a, i) != at(b, i)) return at(a, i) < at(b, i) ? -1 : 1;
    }
    return 0;
}

inline int64_t countOccurrences(std::string_view s, std::string_view find) {
    if (s.empty() || find.empty() || find.size() > s.size()) return 0;
    int64_t count = 0;
    size_t i = 0;
    while (i + find.size() <= s.size()) {
        if (s[i] == find[0] && s.compare(i, find.size(), find) == 0) {
            ++count;
            i += find.size();
        } else {
            ++i;
        }
    }
    return count;
}

inline char lower(char c) {
    return c >= 'A' && c <= 'Z' ? char(c + 32) : c;
}

// strcasestr on zero-terminated copies, stepping past each rejected occurrence.
inline bool containsWholeWord(std::string_view text, std::string_view word) {
    if (text.empty() || word.empty() || word.size() > text.size()) return false;
    const std::string t(text), w(word);
    const char* hay = t.c_str();
    const char* needle = w.c_str();
    const size_t needleLen = std::char_traits<char>::length(needle);
    auto isWord = [](char c) {
        const auto s = static_cast<signed char>(c);
        return s >= 33 && ((s >= 'a' && s <= 'z') || (s >= 'A' && s <= 'Z'));
    };
    size_t from = 0;
    const size_t hayLen = std::char_traits<char>::length(hay);
    while (from <= hayLen) {
        size_t p = std::string::npos;
        for (size_t i = from; i + needleLen <= hayLen; ++i) {
            size_t k = 0;
            while (k < needleLen && lower(hay[i + k]) == lower(needle[k])) ++k;
            if (k == needleLen) {
                p = i;
                break;
            }
        }
        if (p == std::string::npos) return false;
        const bool before = p == 0 || !isWord(t[p - 1]);
        const bool after = !isWord(char(at(text, p + word.size())));
        if (before && after) return true;
        from = p + word.size();
    }
    return false;
}

enum class MaskOp { And, Or, Xor, XorIndexed };

inline std::string applyMask(std::string_view data, std::string_view mask, int64_t offset,
                             MaskOp op) {
    std::string out(data.size(), '\0');
    const int64_t m = int64_t(mask.size());
    int64_t pos = ((offset % m) + m) % m;
    for (size_t i = 0; i < data.size(); ++i) {
        const uint8_t a = uint8_t(data[i]), b = uint8_t(mask[size_t(pos)]);
        uint8_t r = op == MaskOp::And ? a & b : op == MaskOp::Or ? a | b : a ^ b;
        if (op == MaskOp::XorIndexed) r ^= uint8_t(i);
        out[i] = char(r);
        if (++pos == m) pos = 0;
    }
    return out;
}

inline std::string repairUTF8(std::string_view s, std::string_view placeholder) {
    std::string out;
    for (size_t i = 0; i < s.size();) {
        const size_t len = sequenceLength(s, i);
        if (len == 0) {
            out.append(placeholder);
            ++i;
        } else {
            out.append(s.substr(i, len));
            i += len;
        }
    }
    return out;
}

inline size_t wellFormedPrefix(std::string_view s) {
    size_t i = 0;
    while (i < s.size()) {
        const size_t len = sequenceLength(s, i);
        if (len == 0) break;
        i += len;
    }
    return i;
}

inline size_t validPrefix(std::string_view s) {
    size_t i = 0;
    while (i < s.size()) {
        const uint8_t b = uint8_t(s[i]);
        if (b < 0x80) {
            if (!(b == 9 || b == 10 || b == 13 || (b >= 32 && b <= 126))) break;
            ++i;
            continue;
        }
        const size_t len = sequenceLength(s, i);
        if (len == 0) break;
        i += len;
    }
    return i;
}

// One byte at a time, as described: quadratic on long rejected runs, so only for small inputs.
inline std::vector<std::string> stringsInData(std::string_view s, int64_t minLength) {
    std::vector<std::string> out;
    const size_t threshold = size_t(std::max<int64_t>(minLength, 0));
    size_t p = 0;
    while (p < s.size()) {
        const size_t n = validPrefix(s.substr(p));
        bool spaceOnly = true;
        for (size_t k = 0; k < n; ++k) spaceOnly = spaceOnly && uint8_t(s[p + k]) < 33;
        if (n > 0 && !spaceOnly && n > threshold) {
            out.emplace_back(s.substr(p, n));
            p += n + 1;
        } else {
            ++p;
        }
    }
    return out;
}

inline bool isASCIIText(std::string_view s, int64_t mode) {
    if (s.empty()) return true;
    for (char c : s) {
        const uint8_t b = uint8_t(c);
        const bool ok = mode == 0   ? b < 128
                        : mode == 1 ? b >= 32 && b <= 127
                        : mode == 2 ? b >= 32
                                    : false;
        if (!ok) return false;
    }
    return true;
}

inline std::string replaceNonPrintable(std::string_view s, uint8_t replacement) {
    std::string out(s);
    for (char& c : out) {
        if (uint8_t(c) < 32 || uint8_t(c) >= 128) c = char(replacement);
    }
    return out;
}

// Random bytes drawn mostly from the values where byte classes change: the boundaries of the
// UTF-8 table, the printable range and the sign bit.
inline std::string adversarialBytes(std::mt19937_64& rng, size_t n) {
    static const uint8_t kEdges[] = {0x00, 0x09, 0x0A, 0x0D, 0x1F, 0x20, 0x21, 0x41, 0x61,
                                     0x7E, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0,
                                     0xC1, 0xC2, 0xDF, 0xE0, 0xE1, 0xEC, 0xED, 0xEE, 0xEF,
                                     0xF0, 0xF1, 0xF3, 0xF4, 0xF5, 0xFE, 0xFF};
    std::string s(n, '\0');
    for (char& c : s) {
        const uint64_t r = rng();
        c = char((r & 3) == 0 ? uint8_t(r >> 8) : kEdges[(r >> 8) % sizeof(kEdges)]);
    }
    return s;
}

// Valid UTF-8 of mixed widths with the occasional damaged byte.
inline std::string mostlyUTF8(std::mt19937_64& rng, size_t codePoints, int damagePercent) {
    std::string s;
    for (size_t k = 0; k < codePoints; ++k) {
        const uint64_t r = rng();
        uint32_t cp;
        switch (r % 5) {
            case 0:
                cp = 0x20 + uint32_t(r >> 8) % 0x5F;
                break;
            case 1:
                cp = uint32_t(r >> 8) % 0x80;
                break;
            case 2:
                cp = 0x80 + uint32_t(r >> 8) % 0x780;
                break;
            case 3:
                cp = 0x800 + uint32_t(r >> 8) % 0xF800;
                break;
            default:
                cp = 0x10000 + uint32_t(r >> 8) % 0x100000;
                break;
        }
        if (cp >= 0xD800 && cp <= 0xDFFF) cp = 0xE000;
        s += utf8Of({cp});
        if (int(rng() % 100) < damagePercent) s[rng() % s.size()] = char(rng());
    }
    return s;
}

}  // namespace ref
