// Accent removal on UTF-16 units (RemoveAccentsKXT).
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "XojoPluginABI.h"

// The replacement of every UTF-16 unit. All zero until InitTable runs, which the plugin does only
// at start inside a built application.
extern uint16_t AccentTable[65536];
// Identity, then the generated overrides (base letters, dashes, quotes, full-width forms).
void InitTable();

namespace kxt {

// Appends the bytes of a zero-terminated ASCII text, one unit each.
void AddText(std::vector<uint16_t>& output, const char* text);

// Drops combining marks U+0300..U+036F, spells out vulgar fractions and Æ/æ, maps every other
// unit through AccentTable; with ignoreCase, a..z of the result become A..Z (nothing else).
std::vector<uint16_t> removeAccentsUTF16(std::span<const uint16_t> text, bool ignoreCase);

}  // namespace kxt

REALstring RemoveAccentsKXT(REALstring text, RBBoolean IgnoreCase);
