// HTML character references (EncodingToHTMLKXT, DecodingFromHTMLKXT, StringIsHTMLreadyKXT).
// The decoder also serves DecodingFromXMLKXT.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "MyMemory.h"
#include "XojoPluginABI.h"

namespace kxt {

struct EntityRecord {
    uint32_t code;
    const char* name;  // without "&" and ";"
};

// The HTML 4.01 entities plus "apos", in decoding priority order (first match wins), closed by
// a record with code 0.
inline constexpr size_t kHTMLEntityCount = 253;
extern const std::array<EntityRecord, kHTMLEntityCount + 1> HTMLEntityTable;

// Zero-terminated text: false at the first code point above 127 or one of " & ' < >.
// Controls do not count; a null or empty text is ready.
bool StringIsHTMLready(const uint32_t* text);
// The byte test behind StringIsHTMLreadyKXT and StringIsXMLreadyKXT: only Mac Roman,
// Windows Latin-1, ASCII and UTF-8 are looked at, and then any byte 0, any byte of 128 or more
// and the five markup bytes make a string unready.
bool isMarkupTestEncoding(uint32_t encoding);
bool bytesAreMarkupFree(std::string_view bytes);
bool bytesAreMarkupFreePlain(std::string_view bytes);  // one byte at a time: the reference

// 0 when the first n code points of text equal the first n bytes of name, else -1. A name
// shorter than n reads as zeros past its end; a longer one matches by its prefix, which the
// decoder relies on ("&sup;" is the earlier "sup2").
int stringcompare(const char* name, const uint32_t* text, long n);

// Named references for the table's code points (only those above 127 when plain), "&#39;" for
// the apostrophe unless plain, "&#N;" for other code points above 127; controls other than
// tab, LF and CR are dropped. A leading byte order mark is dropped.
std::string encodeHTML(std::span<const uint32_t> text, bool plain);
// Named (prefix-matched), "&#N;" and "&#xH;" references of at most 8 characters between "&"
// and ";" (or the end of the text); anything that does not decode stays as it is.
std::vector<uint32_t> decodeHTML(std::span<const uint32_t> text);

// The same on well-formed UTF-8 holding no byte order mark (such text is its own code points),
// with the result as UTF-8: what the handlers use on such strings. The code-point forms above
// are their references.
RawBytes encodeHTMLUTF8(std::string_view utf8, bool plain);
RawBytes decodeHTMLUTF8(std::string_view utf8);
bool utf8IsHTMLready(std::string_view utf8);  // up to the first zero byte, as above
bool utf8IsXMLready(std::string_view utf8);

}  // namespace kxt

REALstring EncodingToHTML(REALstring s, RBInteger options);
REALstring DecodingToHTML(REALstring s);
RBBoolean StringIsHTMLready(REALstring s);
