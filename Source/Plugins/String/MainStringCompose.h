// Canonical composition and decomposition of UTF-16 text in the Basic Multilingual Plane
// (ConvertUnicodeToCharacterCompositionKXT, ConvertUnicodeToCharacterDecompositionKXT).
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "UnicodeTables.h"
#include "XojoPluginABI.h"

// CharsWhoCanBeComposition: 65,536 bytes, one per UTF-16 unit, 1 when the unit is the first part
// of some decomposition. Built by the first composition (on any thread), never freed. Returns
// it, built if it was absent, or null when memory runs out (the next call tries again).
const uint8_t* InitCharsWhoCanBeCompositionLookupTable();

namespace kxt {

// The table entry whose composed unit is `unit`, or null.
const DecompositionEntry* findDecomposition(uint16_t unit);

// Replaces every unit that has an entry by its parts; everything else (surrogates too) is
// copied. No reordering, no second pass.
std::vector<uint16_t> decomposeUTF16(std::span<const uint16_t> text);

// At each unit, the first entry in table order whose parts all match the text from there is
// replaced by its composed unit; otherwise the unit is copied. Not a longest match, and the
// output is never scanned again. Builds the lookup table when absent; throws std::bad_alloc
// when it cannot.
std::vector<uint16_t> composeUTF16(std::span<const uint16_t> text);

// The same conversions on well-formed UTF-8, written as UTF-8 to out (which needs room for
// composedUTF8Room / decomposedUTF8Room of the input's size): the UTF-8 of what the UTF-16
// forms give for the input's UTF-16 form, which leaves out U+FEFF and U+FFFE. Return the
// bytes written.
size_t composeUTF8(std::string_view text, char* out);
size_t decomposeUTF8(std::string_view text, char* out);
// Composing never lengthens UTF-8; a decomposition takes at most four times the bytes of
// what it replaces. Sixteen bytes of slack for block stores.
inline size_t composedUTF8Room(size_t bytes) {
    return bytes + 16;
}
inline size_t decomposedUTF8Room(size_t bytes) {
    return 4 * bytes + 16;
}
// For tests: drops the lookup table and makes the next build allocate with `allocate` (null:
// the normal allocator).
void resetCompositionLookupForTesting(void* (*allocate)(int64_t size));

}  // namespace kxt

REALstring ConvertUnicodeToCharacterDecompositionKXT(REALstring text);
REALstring ConvertUnicodeToCharacterCompositionKXT(REALstring text);
