// The getter of StyledText.RTFDataKXT: writes the style runs as a small RTF document (one font
// table, one colour table, and each run's text behind the control words that changed).
//
// GenerateRTF is the plain core over run records; RTFRead reads the host's runs into them.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "XojoPluginABI.h"

namespace kxt::rtf {

struct GeneratorRun {
    std::span<const uint16_t> text;  // UTF-16 code units
    std::string_view font;           // UTF-8; numbered even when nil (as the empty name)
    bool fontIsNil = false;          // a nil font writes no "\f" and keeps the previous one
    uint32_t color = 0;              // 0x00RRGGBB
    int64_t size = 0;                // points
    bool bold = false;
    bool italic = false;
    bool underline = false;
    int64_t alignment = 0;  // 2 centre, 3 right, anything else left
};

// Whether the fonts of runs a and b are the same name (the host compares its strings its own
// way); by default the UTF-8 bytes are compared.
using SameFont = std::function<bool(size_t a, size_t b)>;

std::string GenerateRTF(std::span<const GeneratorRun> runs, const SameFont& sameFont = {});

}  // namespace kxt::rtf

// The getter of "RTFDataKXT(SkipParagraphs as boolean = false) as string": nil for a text
// without runs or paragraphs, and nil (never an exception) when anything fails.
REALstring RTFRead(REALobject styledText, RBBoolean skipParagraphs);
