// ISO-8859-1 and Windows-1252 (EncodingToISO8859KXT, DecodingFromISO8859KXT,
// EncodingToCP1252KXT, DecodingFromCP1252KXT).
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "XojoPluginABI.h"

namespace kxt {

// Byte value -> UTF-16 code unit.
using CodePageTable = std::array<uint16_t, 256>;
extern const CodePageTable ISO8859Table;
// The published Windows-1252 mapping; its undefined bytes 0x81, 0x8D, 0x8F, 0x90 and 0x9D
// map to 0.
extern const CodePageTable CP1252Table;

// A table with its reverse, code unit -> the first byte that maps to it (-1 for none), so
// encoding is one lookup per character instead of a scan of the table; and the UTF-8 form of
// each byte's unit (its one to three bytes from the lowest up, the count in the top byte).
struct CodePage {
    const CodePageTable& table;
    const std::array<int16_t, 65536>& firstByte;
    const std::array<uint32_t, 256>& utf8;
};
extern const CodePage ISO8859, CP1252;

// One byte per code unit: the first byte whose table entry is the unit; units the table does
// not hold (surrogates included) are dropped. Texts of fewer than 3 units give nothing.
std::string encodeCodePage(std::span<const uint16_t> units, const CodePage& page);
// The same from well-formed UTF-8, as its UTF-16 form (which leaves out U+FEFF and U+FFFE)
// would be encoded: the bytes written to out (room for the input's size plus 16), or none
// when that form has fewer than 3 units. *ascii tells whether every byte is below 0x80.
std::optional<size_t> encodeCodePageUTF8(std::string_view utf8, const CodePage& page, char* out,
                                         bool* ascii = nullptr);
std::vector<uint16_t> decodeCodePage(std::string_view bytes, const CodePage& page);
// The same text as UTF-8, written to out, which must have room for decodedUTF8Room(size)
// bytes; returns the number written.
size_t decodeCodePageUTF8(std::string_view bytes, const CodePage& page, char* out);
constexpr size_t decodedUTF8Room(size_t byteCount) {
    return 3 * byteCount + 1;
}

}  // namespace kxt

REALstring EncodingTo(REALstring s, const kxt::CodePage& page);
REALstring DecodingTo(REALstring s, const kxt::CodePage& page);

REALstring EncodingToISO8859(REALstring s);
REALstring DecodingToISO8859(REALstring s);
REALstring EncodingToCP1252(REALstring s);
REALstring DecodingToCP1252(REALstring s);
