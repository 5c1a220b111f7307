// XML escaping of the five markup characters (EncodingToXMLKXT, StringIsXMLreadyKXT).
// DecodingFromXMLKXT is the HTML decoder, DecodingToHTML.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "XojoPluginABI.h"
#include "htmlencoding.h"

namespace kxt {

// quot, amp, apos, lt, gt, closed by a record with code 0.
extern const std::array<EntityRecord, 6> XMLEntityTable;

// Zero-terminated text: false at the first markup character; anything else, also non-ASCII
// and controls, is fine. A null or empty text is ready.
bool StringIsXMLready(const uint32_t* text);

// Replaces the markup characters by named references; the apostrophe becomes "&#39;" unless
// options & 1 asks for "&apos;" (the opposite sense of the HTML option). Controls other than
// tab, LF and CR are dropped, every other code point is kept. A leading byte order mark is
// dropped.
std::vector<uint32_t> encodeXML(std::span<const uint32_t> text, RBInteger options);
// The same on well-formed UTF-8 holding no byte order mark, with the result as UTF-8.
RawBytes encodeXMLUTF8(std::string_view utf8, RBInteger options);

}  // namespace kxt

REALstring EncodingToXML(REALstring s, RBInteger options);
RBBoolean StringIsXMLready(REALstring s);
