// Quoted-printable transfer encoding of raw bytes, with CR LF line breaks.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "MyMemory.h"
#include "XojoPluginABI.h"

namespace kxt {

// LineLen below 2 (as a signed 32-bit value) means 72.
RawBytes encodeQuotedPrintable(std::string_view bytes, RBInteger lineLen);
// The same one byte at a time through the run's reader and writer: the reference.
std::string encodeQuotedPrintablePlain(std::string_view bytes, RBInteger lineLen);
// Line ends become LF; soft breaks and malformed escapes read as the decoder documents.
std::string decodeQuotedPrintable(std::string_view bytes);

}  // namespace kxt
