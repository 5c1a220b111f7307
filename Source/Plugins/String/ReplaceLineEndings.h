// Rewrites every line break (CR, LF, CR LF or LF CR) into a given text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "MyMemory.h"
#include "XojoPluginABI.h"

namespace kxt {

// Called whenever the next byte to read sits at an address that is a multiple of 16 MiB.
using YieldHook = void (*)();
constexpr uintptr_t kYieldInterval = uintptr_t(1) << 24;

// CR, LF, CR LF and LF CR each become one `newline`; CR CR and LF LF are two. One pass (and a
// count of CR and LF bytes first, to size the result, for a newline of more than four bytes,
// or of two to four bytes in a text above 64 MiB). std::bad_alloc when the result cannot be
// had.
RawBytes replaceLineEndings(std::string_view text, std::string_view newline,
                            YieldHook yield = nullptr);

}  // namespace kxt

// Handler.
REALstring ReplaceLineEndingsKXT(REALstring Text, REALstring NewLine, RBBoolean yield);
