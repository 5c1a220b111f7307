// Percent-encoding of raw bytes (EncodingToURLKXT, DecodingFromURLKXT).
#pragma once

#include <string>
#include <string_view>

#include "MyMemory.h"
#include "XojoPluginABI.h"
#include "simd.h"

namespace kxt {

// options & 3: 0 and 3 space -> "%20", plus kept; 1 space -> "+", plus -> "%2B"; 2 both encoded.
RawBytes encodeURL(std::string_view bytes, RBInteger options);
// The same byte by byte: the reference of the block steps above, which escape the class of
// bytes that urlEscapeClass gives.
RawBytes encodeURLPlain(std::string_view bytes, RBInteger options);
const simd::EscapeClass& urlEscapeClass(RBInteger options);
// "%hh" decodes with non-digits read as 0 (missing digits at the end too); "+" becomes a space
// when options & 1. *ascii, when given, tells whether every byte of the result is below 0x80.
RawBytes decodeURL(std::string_view bytes, RBInteger options, bool* ascii = nullptr);
int hex2int(unsigned char c);

}  // namespace kxt

REALstring EncodingToURL1(REALstring s);
REALstring EncodingToURL2(REALstring s, RBInteger options);
REALstring DecodingToURL1(REALstring s);
REALstring DecodingToURL2(REALstring s, RBInteger options);
