// Accent removal on UTF-16 units (RemoveAccentsKXT).
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "MyMemory.h"
#include "XojoPluginABI.h"

// The replacement of every UTF-16 unit. All zero until InitTable runs, which the plugin does only
// at start inside a built application.
extern uint16_t AccentTable[65536];
// Identity, then the generated overrides (base letters, dashes, quotes, full-width forms).
void InitTable();
// Whether InitTable has run (in the IDE the table stays zero).
bool AccentTableBuilt();

namespace kxt {

// Appends the bytes of a zero-terminated ASCII text, one unit each.
void AddText(std::vector<uint16_t>& output, const char* text);

// Drops combining marks U+0300..U+036F, spells out vulgar fractions and Æ/æ, maps every other
// unit through AccentTable; with ignoreCase, a..z of the result become A..Z (nothing else).
std::vector<uint16_t> removeAccentsUTF16(std::span<const uint16_t> text, bool ignoreCase);
// The same on well-formed UTF-8 once the table is built, with the result as UTF-8 (what the
// method uses on such strings): the built table leaves ASCII and the surrogate units alone and
// maps no unit to a surrogate, so every code point maps as its unit or its pair does. U+FEFF
// and U+FFFE are dropped, as from the UTF-16 form of such text.
RawBytes removeAccentsUTF8(std::string_view utf8, bool ignoreCase);

}  // namespace kxt

REALstring RemoveAccentsKXT(REALstring text, RBBoolean IgnoreCase);
