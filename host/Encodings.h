// Text encodings of the emulated host: the codes the plugin names, their conversion through code
// points, and character counting. Conversion is deterministic: invalid source bytes fail the whole
// conversion, and code points the target cannot represent become "?".
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace xhost::encodings {

struct EncodingInfo {
    uint32_t code;
    const char* name;     // display name, e.g. "UTF-8"
    const char* aliases;  // short names for the command line, blank separated, e.g. "utf8"
};

// Every encoding the host knows, in a fixed order.
const std::vector<EncodingInfo>& all();
bool isKnown(uint32_t code);
// "UTF-8", "none" for 0xFFFF, "unknown (0x...)" for codes the host does not know.
std::string nameOf(uint32_t code);
// By alias or display name, ignoring case; "none" and "raw" give 0xFFFF.
std::optional<uint32_t> byName(std::string_view name);

// Code points of the bytes; nullopt when the bytes are not valid in the encoding (or the
// encoding is unknown). 0xFFFF is not a text encoding and fails too.
std::optional<std::u32string> decode(std::string_view bytes, uint32_t encoding);
// Bytes of the code points; unrepresentable ones become "?".
std::string encode(std::u32string_view text, uint32_t encoding);
// The bytes re-encoded; the same bytes when the encodings are equal or the source has none
// (0xFFFF); nullopt when decoding fails.
std::optional<std::string> convert(std::string_view bytes, uint32_t from, uint32_t to);
// Characters (code points) of the bytes in the encoding; bytes for 0xFFFF. Malformed parts
// count one character per byte (per unit for UTF-16), so the count is always defined.
int64_t characterCount(std::string_view bytes, uint32_t encoding);

// Single-byte code pages that iconv reads are read through a table of their bytes, checked
// against iconv when first used. These say which are, and give what iconv alone reads (nullopt
// for an encoding iconv does not read, or bytes it refuses): the reference of the tables.
bool readByTable(uint32_t encoding);
std::optional<std::u32string> decodeWithIconv(std::string_view bytes, uint32_t encoding);

// The UTF-8 form of a code point sequence, and back (strict: nullopt on malformed UTF-8).
std::string toUTF8(std::u32string_view text);
std::optional<std::u32string> fromUTF8(std::string_view bytes);

}  // namespace xhost::encodings
