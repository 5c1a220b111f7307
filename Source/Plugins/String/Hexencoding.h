// Hexadecimal text and MySQL escapes (EncodingToHexKXT, DecodingFromHexKXT,
// DecodingFromMySQLKXT).
#pragma once

#include <string>
#include <string_view>

#include "MyMemory.h"
#include "XojoPluginABI.h"

namespace kxt {

// Two upper-case digits per byte, no separators.
RawBytes encodeHex(std::string_view bytes);
// Pairs of characters from the start, an odd last one ignored; a character that is not a hex
// digit reads as 0 and still takes its place in the pair. *ascii, when given, tells whether
// every byte of the text (the odd last one too) is below 0x80.
RawBytes decodeHex(std::string_view text, bool* ascii = nullptr);
// Undoes MySQL backslash escapes (\0 \' \" \b \n \r \t \Z \\ \% \_); any other escaped byte
// keeps its backslash, and so does a backslash at the very end.
RawBytes decodeMySQL(std::string_view bytes);

}  // namespace kxt

REALstring EncodingToHex(REALstring s);
REALstring DecodingToHex(REALstring s);
REALstring DecodingFromMySQL(REALstring s);
