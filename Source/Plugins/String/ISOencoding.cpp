#include "ISOencoding.h"

#include <cstring>
#include <optional>

#include "MyMemory.h"
#include "REALplugin.h"
#include "encoderboundary.h"
#include "rbData.h"
#include "rbDebug.h"
#include "rbText.h"
#include "rbUtil.h"
#include "rbstring.h"
#include "simd.h"
#include "utf8.h"

namespace kxt {

constexpr CodePageTable ISO8859Table = [] {
    CodePageTable t{};
    for (size_t b = 0; b < 256; ++b) t[b] = uint16_t(b);
    return t;
}();

constexpr CodePageTable CP1252Table = [] {
    constexpr uint16_t k80to9F[32] = {
        0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,  // 80..87
        0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0,      0x017D, 0,       // 88..8F
        0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,  // 90..97
        0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178,  // 98..9F
    };
    CodePageTable t{};
    for (size_t b = 0; b < 256; ++b)
        t[b] = (b >= 0x80 && b <= 0x9F) ? k80to9F[b - 0x80] : uint16_t(b);
    return t;
}();

namespace {

using S = simd::Native;
using V = S::V;

using ReverseTable = std::array<int16_t, 65536>;

constexpr ReverseTable reverseOf(const CodePageTable& table) {
    ReverseTable reverse{};
    for (auto& entry : reverse) entry = -1;
    for (size_t b = 256; b-- > 0;) reverse[table[b]] = int16_t(b);
    return reverse;
}

constexpr ReverseTable kISO8859Reverse = reverseOf(ISO8859Table);
constexpr ReverseTable kCP1252Reverse = reverseOf(CP1252Table);

using UTF8Table = std::array<uint32_t, 256>;

constexpr UTF8Table utf8Of(const CodePageTable& table) {
    UTF8Table out{};
    for (size_t b = 0; b < 256; ++b) {
        // Never a surrogate: the tables hold BMP characters, of at most three bytes.
        char bytes[4] = {};
        const auto length = uint32_t(utf8::encode(bytes, table[b]) - bytes);
        out[b] = length << 24;
        for (uint32_t k = 0; k < length; ++k) out[b] |= uint32_t(uint8_t(bytes[k])) << 8 * k;
    }
    return out;
}

constexpr UTF8Table kISO8859UTF8 = utf8Of(ISO8859Table);
constexpr UTF8Table kCP1252UTF8 = utf8Of(CP1252Table);

}  // namespace

const CodePage ISO8859{ISO8859Table, kISO8859Reverse, kISO8859UTF8};
const CodePage CP1252{CP1252Table, kCP1252Reverse, kCP1252UTF8};

// The block steps below rely on this: every byte outside 80..9F is the unit of its own value,
// and the first byte that maps to that unit.
constexpr bool identityOutside80To9F(const CodePageTable& t) {
    for (size_t b = 0; b < 256; ++b) {
        if (b >= 0x80 && b <= 0x9F) continue;
        if (t[b] != b) return false;
        for (size_t k = 0; k < b; ++k) {
            if (t[k] == b) return false;
        }
    }
    return true;
}
static_assert(identityOutside80To9F(ISO8859Table) && identityOutside80To9F(CP1252Table));

std::string encodeCodePage(std::span<const uint16_t> units, const CodePage& page) {
    // Texts of one or two characters are not converted; callers rely on it.
    if (units.size() < 3) return {};
    std::string out = NewLargeString(units.size());
    char* w = out.data();
    const uint16_t* u = units.data();
    const size_t n = units.size();
    size_t i = 0;
    // Both pages map every byte outside 80..9F to the unit of the same value: eight such units
    // become eight bytes at once; other steps go unit by unit through the reverse table (a unit
    // it lacks writes nothing).
    for (; i + 8 <= n; i += 8) {
        const V x = S::load(u + i);
        const V below100 = S::eq16(S::and_(x, S::splat16(0xFF00)), S::zero());
        const V in80to9F = S::eq16(S::and_(x, S::splat16(0xFFE0)), S::splat16(0x80));
        if (S::all(S::andNot(in80to9F, below100))) {
            simd::narrowBlock(x, w);
            w += 8;
            continue;
        }
        for (size_t k = i; k < i + 8; ++k) {
            const int16_t b = page.firstByte[u[k]];
            *w = char(b);
            w += b >= 0;
        }
    }
    for (; i < n; ++i) {
        const int16_t b = page.firstByte[u[i]];
        *w = char(b);
        w += b >= 0;
    }
    out.resize(size_t(w - out.data()));
    return out;
}

std::optional<size_t> encodeCodePageUTF8(std::string_view utf8, const CodePage& page, char* out,
                                         bool* ascii) {
    const auto* p = reinterpret_cast<const uint8_t*>(utf8.data());
    const size_t n = utf8.size();
    char* w = out;
    size_t units = 0;  // of the UTF-16 form
    uint8_t high = 0;
    size_t i = 0;
    while (i < n) {
        // ASCII is its own byte in both pages: sixteen at once, up to the first other byte.
        if (i + 16 <= n) {
            const size_t plain = simd::copyBlockUntil(p + i, w, [](V x) { return x; });
            i += plain;
            w += plain;
            units += plain;
            if (plain == 16) continue;
        } else if (p[i] < 0x80) {
            *w++ = char(p[i++]);
            ++units;
            continue;
        }
        // A lead byte of a well-formed sequence.
        const uint8_t b = p[i];
        uint32_t cp;
        if (b < 0xE0) {
            cp = uint32_t(b & 0x1F) << 6 | (p[i + 1] & 0x3F);
            i += 2;
        } else if (b < 0xF0) {
            cp = uint32_t(b & 0x0F) << 12 | uint32_t(p[i + 1] & 0x3F) << 6 | (p[i + 2] & 0x3F);
            i += 3;
        } else {
            i += 4;  // a surrogate pair in UTF-16, which no page holds
            units += 2;
            continue;
        }
        if (cp == 0xFEFF || cp == 0xFFFE) continue;  // not in the UTF-16 form at all
        ++units;
        const int16_t byte = page.firstByte[cp];
        *w = char(byte);
        w += byte >= 0;
        high |= byte >= 0 ? uint8_t(byte) : 0;
    }
    if (units < 3) return std::nullopt;
    if (ascii != nullptr) *ascii = (high & 0x80) == 0;
    return size_t(w - out);
}

std::vector<uint16_t> decodeCodePage(std::string_view bytes, const CodePage& page) {
    const size_t n = bytes.size();
    std::vector<uint16_t> out;
    out.reserve(n);
    AdviseHugePages(out.data(), n * sizeof(uint16_t));
    out.resize(n);
    const auto* p = reinterpret_cast<const uint8_t*>(bytes.data());
    uint16_t* w = out.data();
    size_t i = 0;
    // 16 bytes outside 80..9F widen at once (both pages map them to themselves); steps with
    // others go through the table.
    for (; i + 16 <= n; i += 16) {
        const V x = S::load(p + i);
        if (!S::any(S::eq8(S::and_(x, S::splat8(0xE0)), S::splat8(0x80)))) {
            simd::widenBlock(x, w + i);
            continue;
        }
        for (size_t k = i; k < i + 16; ++k) w[k] = page.table[p[k]];
    }
    for (; i < n; ++i) w[i] = page.table[p[i]];
    return out;
}

size_t decodeCodePageUTF8(std::string_view bytes, const CodePage& page, char* out) {
    const size_t n = bytes.size();
    const auto* p = reinterpret_cast<const uint8_t*>(bytes.data());
    char* w = out;
    size_t i = 0;
    // Both pages keep ASCII as it is: sixteen bytes are stored at once and the step moves to
    // the first byte above 0x7F, if any, which goes through the table (four bytes stored, its
    // count kept). At most 3 bytes are written per byte read, so every store fits the room.
    auto one = [&](uint8_t b) {
        const uint32_t v = page.utf8[b];
        memcpy(w, &v, sizeof v);
        w += v >> 24;
    };
    while (i + 16 <= n) {
        const unsigned ascii = simd::copyBlockUntil(p + i, w, [](V x) { return x; });
        i += ascii;
        w += ascii;
        if (ascii < 16) one(p[i++]);
    }
    for (; i < n; ++i) one(p[i]);
    return size_t(w - out);
}

}  // namespace kxt

REALstring EncodingTo(REALstring s, const kxt::CodePage& page) {
    return NilOnAllocationFailure<REALstring>(nullptr, [&]() -> REALstring {
        if (s == nullptr) return nullptr;
        // Well-formed UTF-8 (or ASCII) text is read as it is, without making its UTF-16 form
        // first; the debug log names the UTF-16 conversion, so it keeps that way.
        const uint32_t encoding = REALGetStringEncoding(s);
        if (!gDebugging &&
            (encoding == kREALTextEncodingUTF8 || encoding == kREALTextEncodingASCII)) {
            rbData in(s);
            const std::string_view bytes = in.view();
            const bool readable = encoding == kREALTextEncodingASCII
                                      ? IsASCII(bytes.data(), int64_t(bytes.size()))
                                      : kxt::wellFormedPrefixLength(bytes) == bytes.size();
            if (readable) {
                RawBytes out(bytes.size() + 16);
                bool ascii = false;
                const auto length = kxt::encodeCodePageUTF8(bytes, page, out.data(), &ascii);
                if (!length) return nullptr;
                return REALBuildUnicodeString(out.data(), int64_t(*length),
                                              kREALTextEncodingUnknown, ascii);
            }
        }
        rbText text(s);
        return REALBuildUnicodeString(kxt::encodeCodePage(text.utf16(), page),
                                      kREALTextEncodingUnknown);
    });
}

REALstring DecodingTo(REALstring s, const kxt::CodePage& page) {
    return NilOnAllocationFailure<REALstring>(nullptr, [&]() -> REALstring {
        rbData in(s);
        // Hosts that convert a UTF-16 result to UTF-8 get that UTF-8 written directly, which
        // spares the UTF-16 buffer, its copy into the host and the host's conversion. Sizes
        // where either form could be too long for a host string take the UTF-16 way, which
        // reports that as it always did.
        const size_t n = size_t(in.size);
        if (gHostVersion >= 2012.0 && n > 0 && kxt::decodedUTF8Room(n) <= size_t(kMaxHostLength)) {
            RawBytes out(kxt::decodedUTF8Room(n));  // std::bad_alloc gives nil
            out.setSize(kxt::decodeCodePageUTF8(in.view(), page, out.data()));
            return REALBuildUnicodeString(out.view(), kREALTextEncodingUTF8);
        }
        std::vector<uint16_t> units = kxt::decodeCodePage(in.view(), page);
        return REALBuildUnicodeString(units.data(), int64_t(units.size() * sizeof(uint16_t)),
                                      kREALTextEncodingUTF16);
    });
}

REALstring EncodingToISO8859(REALstring s) {
    return EncodingTo(s, kxt::ISO8859);
}
REALstring DecodingToISO8859(REALstring s) {
    return DecodingTo(s, kxt::ISO8859);
}
REALstring EncodingToCP1252(REALstring s) {
    return EncodingTo(s, kxt::CP1252);
}
REALstring DecodingToCP1252(REALstring s) {
    return DecodingTo(s, kxt::CP1252);
}
