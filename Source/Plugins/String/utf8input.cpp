#include "utf8input.h"

#include <cstring>

#include "REALplugin.h"
#include "rbDebug.h"
#include "rbUtil.h"
#include "rbstring.h"

namespace kxt {

bool hasByteOrderMarks(std::string_view utf8) {
    // Both marks are three bytes led by 0xEF: EF BB BF and EF BF BE.
    const char* p = utf8.data();
    const char* end = p + utf8.size();
    while (const void* hit = std::memchr(p, 0xEF, size_t(end - p))) {
        p = static_cast<const char*>(hit);
        if (end - p >= 3 && ((uint8_t(p[1]) == 0xBB && uint8_t(p[2]) == 0xBF) ||
                             (uint8_t(p[1]) == 0xBF && uint8_t(p[2]) == 0xBE))) {
            return true;
        }
        ++p;
    }
    return false;
}

bool readsAsUTF8(REALstring s, std::string_view bytes, bool withoutMarks, size_t wideBytesPerByte) {
    if (s == nullptr || gHostVersion < 2012.0 || gDebugging) return false;
    const uint32_t encoding = REALGetStringEncoding(s);
    if (encoding != kREALTextEncodingUTF8 && encoding != kREALTextEncodingASCII) return false;
    const size_t n = bytes.size();
    if (n > size_t(kMaxHostLength) / wideBytesPerByte) return false;
    if (encoding == kREALTextEncodingASCII) return IsASCII(bytes.data(), int64_t(n));
    return wellFormedPrefixLength(bytes) == n && !(withoutMarks && hasByteOrderMarks(bytes));
}

}  // namespace kxt
