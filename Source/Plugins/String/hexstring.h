// Hex dumps laid out in lines and groups (HexstringKXT).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "XojoPluginABI.h"

namespace kxt {

struct HexLayout {
    int64_t hexlen = 0;   // hex characters per group
    int64_t linelen = 0;  // groups per line
    std::string_view linestart, lineend, spacer;
    std::string_view filler;  // pads the last line; "0" when empty
};

// Upper-case hex of the bytes in lines of linestart, linelen groups of hexlen characters
// separated by spacer, and lineend. The last line is completed with the filler repeated.
// Empty when hexlen or linelen is not positive, when there are no bytes, and when the dump
// would not fit in a host string (2^31 - 1 bytes).
std::string hexstring(std::string_view input, const HexLayout& layout);

}  // namespace kxt

REALstring Hexstring(REALstring input, RBInteger hexlen, RBInteger linelen, REALstring linestart,
                     REALstring lineend, REALstring spacer, REALstring filler);
