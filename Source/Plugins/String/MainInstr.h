// Byte-level and text-level search and comparison: first-of-set and byte-range search,
// zero-padded comparison, occurrence counting, prefix/suffix and whole-word tests.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

#include "XojoPluginABI.h"

namespace kxt {

// Which of the 256 byte values a search accepts.
using ByteSet = std::array<bool, 256>;

// 1-based position of the first byte of target that is in the set, 0 when there is none.
// Sets that are a few runs of consecutive values are tested 16 bytes at a time.
int64_t firstInSet(std::string_view target, const ByteSet& set);

// Inclusive bounds as the caller gave them; a range with first > last accepts nothing.
struct ByteRange {
    int64_t first;
    int64_t last;
};

// First byte of target equal to any byte of set (a first-of-set scan, not a substring search).
int64_t firstOfAny(std::string_view target, std::string_view set);
// First byte whose unsigned value (0..255) lies in one of the ranges.
int64_t firstInRanges(std::string_view target, std::span<const ByteRange> ranges);
// First byte whose signed value (-128..127) lies in one of the ranges, or that equals a byte of
// find. Bytes 128..255 only fall in negative ranges: the overloads with a find argument have
// always read bytes as signed, and callers rely on it.
int64_t firstInSignedRangesOrSet(std::string_view target, std::span<const ByteRange> ranges,
                                 std::string_view find);

// -1, 0 or 1: both operands compared as unsigned bytes, the shorter continuing with zero bytes
// (so "a" and "a\0" are equal).
int compareZeroPadded(std::string_view a, std::string_view b);
// StrCompBytesKXT: an empty a gives -1 (even against an empty b), then an empty b gives 1.
int compareBytes(std::string_view a, std::string_view b);

// Non-overlapping occurrences of find in s, left to right; 0 for an empty operand.
int64_t countOccurrences(std::string_view s, std::string_view find);

// Byte-exact; an empty prefix is never a prefix (the host passes it as nil).
bool hasPrefix(std::string_view text, std::string_view prefix);
bool hasSuffix(std::string_view text, std::string_view suffix);

// Only ASCII letters are word characters: digits, '_' and bytes >= 128 are not.
bool isWordChar(uint8_t c);
// Case-insensitive (ASCII letters) search for word in text up to text's first zero byte, as
// strcasestr; an occurrence counts when it is not glued to a letter on either side. After a
// rejected occurrence the search resumes behind it, not one byte on.
bool containsWholeWord(std::string_view text, std::string_view word);

}  // namespace kxt

RBInteger InStrBytesKXT(REALstring target, REALstring find);
RBInteger InStrByteRange1KXT(REALstring target, RBInteger start1, RBInteger end1);
RBInteger InStrByteRange2KXT(REALstring target, RBInteger start1, RBInteger end1, RBInteger start2,
                             RBInteger end2);
RBInteger InStrByteRange3KXT(REALstring target, RBInteger start1, RBInteger end1, RBInteger start2,
                             RBInteger end2, RBInteger start3, RBInteger end3);
RBInteger InStrByteRange1BKXT(REALstring target, REALstring find, RBInteger start1, RBInteger end1);
RBInteger InStrByteRange2BKXT(REALstring target, REALstring find, RBInteger start1, RBInteger end1,
                              RBInteger start2, RBInteger end2);
RBInteger InStrByteRange3BKXT(REALstring target, REALstring find, RBInteger start1, RBInteger end1,
                              RBInteger start2, RBInteger end2, RBInteger start3, RBInteger end3);
RBInteger StrCompBytesKXT(REALstring a, REALstring b);
RBInteger StrCompCharsKXT(REALstring a, REALstring b);
RBInteger CountOccurancesKXT(REALstring s, REALstring find);
RBBoolean HasPrefixKXT(REALstring text, REALstring prefix);
RBBoolean HasPostfixKXT(REALstring text, REALstring prefix);
RBBoolean ContainsWholeWordKXT(REALstring text, REALstring word);
