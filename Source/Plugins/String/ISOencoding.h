// ISO-8859-1 and Windows-1252 (EncodingToISO8859KXT, DecodingFromISO8859KXT,
// EncodingToCP1252KXT, DecodingFromCP1252KXT).
#pragma once

#include <array>
#include <cstdint>
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
// encoding is one lookup per character instead of a scan of the table.
struct CodePage {
    const CodePageTable& table;
    const std::array<int16_t, 65536>& firstByte;
};
extern const CodePage ISO8859, CP1252;

// One byte per code unit: the first byte whose table entry is the unit; units the table does
// not hold (surrogates included) are dropped. Texts of fewer than 3 units give nothing.
std::string encodeCodePage(std::span<const uint16_t> units, const CodePage& page);
std::vector<uint16_t> decodeCodePage(std::string_view bytes, const CodePage& page);

}  // namespace kxt

REALstring EncodingTo(REALstring s, const kxt::CodePage& page);
REALstring DecodingTo(REALstring s, const kxt::CodePage& page);

REALstring EncodingToISO8859(REALstring s);
REALstring DecodingToISO8859(REALstring s);
REALstring EncodingToCP1252(REALstring s);
REALstring DecodingToCP1252(REALstring s);
