// Judging and cleaning raw bytes: UTF-8 repair with a placeholder, extraction of readable UTF-8
// runs from binary data, ASCII tests, replacement of non-printable bytes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "XojoPluginABI.h"

namespace kxt {

// Length (1..4) of the well-formed UTF-8 sequence at the start of bytes, or 0 when it is not one
// (bad lead or continuation byte, overlong form, surrogate, above U+10FFFF, cut off by the end).
size_t wellFormedSequenceLength(std::string_view bytes);

// Length of the longest prefix of bytes that the repair scan would copy unchanged.
size_t wellFormedPrefixLength(std::string_view bytes);

// The repair scan: appends data to output with every byte that does not start a well-formed
// sequence replaced by placeholder (one placeholder per bad byte; scanning resumes at the next
// byte). Bytes below 0x80, control bytes included, are kept.
void CheckUTF8(std::string& output, std::string_view placeholder, const uint8_t* data,
               size_t length);
// The valid-prefix scan used for extraction: the length of the longest prefix of well-formed
// text in which the only single bytes are tab, LF, CR and 32..126; 0 for no data.
size_t CheckUTF8(const uint8_t* data, size_t length);
// Every byte below 33 (true for an empty range).
bool IsSpaceOnly(const uint8_t* data, size_t length);

// The next readable run at or after position (longer than max(minLength, 0), not only spaces
// and control bytes), moving position past it and the byte that ended it; none at the end.
std::optional<std::string_view> nextStringInData(std::string_view data, size_t& position,
                                                 int64_t minLength);
std::vector<std::string_view> stringsInData(std::string_view data, int64_t minLength);

// Non-empty bytes by mode: 0 all below 128; 1 all 32..127; 2 all 32 or above; others false.
// The empty string passes every mode (the host's nil).
bool isASCIIText(std::string_view bytes, int64_t mode);

// out[i] = replacement when bytes[i] < 32 or >= 128, else bytes[i] (127 is kept).
void replaceNonPrintable(std::string_view bytes, uint8_t replacement, uint8_t* out);

}  // namespace kxt

// The worker behind the three CheckUTF8KXT overloads: nil for no data.
REALstring CheckUTF8(const void* data, int64_t length, REALstring placeholder);

REALstring CheckUTF8p(void* data, RBInteger size, REALstring placeholder);
REALstring CheckUTF8m(REALmemoryBlock mem, REALstring placeholder);
REALstring CheckUTF8s(REALstring data, REALstring placeholder);
REALarray GetStringsKXTp(void* data, RBInteger size, RBInteger minLength);
REALarray GetStringsKXTm(REALmemoryBlock data, RBInteger minLength);
REALarray GetStringsKXTs(REALstring data, RBInteger minLength);
RBBoolean IsASCIIString1(REALstring s);
RBBoolean IsASCIIString2(REALstring s, RBInteger mode);
REALstring ReplaceNonPrintableCharactersKXT(REALstring s, RBInteger replaceValue);
