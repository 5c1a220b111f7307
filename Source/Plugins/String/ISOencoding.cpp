#include "ISOencoding.h"

#include "encoderboundary.h"
#include "rbData.h"
#include "rbText.h"
#include "rbUtil.h"

namespace kxt {

constexpr CodePageTable ISO8859Table = [] {
    CodePageTable t{};
    for (int b = 0; b < 256; ++b) t[b] = uint16_t(b);
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
    for (int b = 0; b < 256; ++b) t[b] = (b >= 0x80 && b <= 0x9F) ? k80to9F[b - 0x80] : uint16_t(b);
    return t;
}();

namespace {

using ReverseTable = std::array<int16_t, 65536>;

constexpr ReverseTable reverseOf(const CodePageTable& table) {
    ReverseTable reverse{};
    for (auto& entry : reverse) entry = -1;
    for (int b = 255; b >= 0; --b) reverse[table[b]] = int16_t(b);
    return reverse;
}

constexpr ReverseTable kISO8859Reverse = reverseOf(ISO8859Table);
constexpr ReverseTable kCP1252Reverse = reverseOf(CP1252Table);

}  // namespace

const CodePage ISO8859{ISO8859Table, kISO8859Reverse};
const CodePage CP1252{CP1252Table, kCP1252Reverse};

std::string encodeCodePage(std::span<const uint16_t> units, const CodePage& page) {
    // Texts of one or two characters are not converted; callers rely on it.
    if (units.size() < 3) return {};
    std::string out;
    out.reserve(units.size());
    for (uint16_t u : units) {
        if (page.firstByte[u] >= 0) out += char(page.firstByte[u]);
    }
    return out;
}

std::vector<uint16_t> decodeCodePage(std::string_view bytes, const CodePage& page) {
    std::vector<uint16_t> out;
    out.reserve(bytes.size());
    for (unsigned char b : bytes) out.push_back(page.table[b]);
    return out;
}

}  // namespace kxt

REALstring EncodingTo(REALstring s, const kxt::CodePage& page) {
    return NilOnAllocationFailure<REALstring>(nullptr, [&]() -> REALstring {
        if (s == nullptr) return nullptr;
        rbText text(s);
        return REALBuildUnicodeString(kxt::encodeCodePage(text.utf16(), page),
                                      kREALTextEncodingUnknown);
    });
}

REALstring DecodingTo(REALstring s, const kxt::CodePage& page) {
    return NilOnAllocationFailure<REALstring>(nullptr, [&]() -> REALstring {
        rbData in(s);
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
