// Strings that a method may read as their UTF-8 bytes instead of their wide form.
#pragma once

#include <cstddef>
#include <string_view>

#include "XojoPluginABI.h"

namespace kxt {

// Whether `s`, whose bytes are `bytes`, can be worked on as they are with the result its wide
// form (rbText's
// UTF-16 or UTF-32) would give: on hosts that convert wide results to UTF-8 themselves (2012
// and later), with the debug log off (its messages name the wide steps), for a UTF-8 or ASCII
// string of well-formed bytes. The wide form of such a string is its code points less every
// U+FEFF and U+FFFE; with `withoutMarks` a string holding one does not qualify. A result may
// take up to `wideBytesPerByte` bytes of UTF-32 per input byte: inputs for which that could
// pass the host's length limit stay on the wide way, which decides what too long gives.
bool readsAsUTF8(REALstring s, std::string_view bytes, bool withoutMarks, size_t wideBytesPerByte);

// Whether well-formed UTF-8 holds U+FEFF or U+FFFE.
bool hasByteOrderMarks(std::string_view utf8);

}  // namespace kxt
