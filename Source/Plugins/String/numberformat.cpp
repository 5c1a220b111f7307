#include "numberformat.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "REALplugin.h"
#include "rbException.h"
#include "rbUtil.h"

namespace kxt {

std::string formatPlainNumber(double d) {
    char text[500] = {};
    snprintf(text, sizeof text, "%.99f", d);
    size_t length = strlen(text);

    // A run of trailing zeros keeps one zero: "2.000" gives "2.0".
    while (length > 3 && text[length - 1] == '0' && text[length - 2] == '0') text[--length] = 0;

    // Cut to fifteen digits counted from the first digit that is not 0, where zeros before the
    // point do not count ("100.0" has one) and a minus sign does.
    const char* point = static_cast<const char*>(memchr(text, '.', length));
    if (point) {
        const size_t pointIndex = size_t(point - text);
        const size_t leading = size_t(
            std::count_if(static_cast<const char*>(text), point, [](char c) { return c != '0'; }));
        if (leading > 14) {
            text[pointIndex] = 0;
            length = pointIndex;
        } else {
            size_t firstDigit = pointIndex + 1;
            while (firstDigit < length && text[firstDigit] == '0') ++firstDigit;
            const size_t atPoint = firstDigit - leading + 14;
            const size_t cut =
                atPoint < sizeof text && text[atPoint] == '.' ? atPoint : firstDigit - leading + 15;
            if (cut < length) {
                text[cut] = 0;
                length = cut;
            }
        }
    }

    // Any repeated final character is reduced, not only zeros: 1/3 gives "0.3".
    while (length > 3 && text[length - 1] == text[length - 2]) text[--length] = 0;
    return std::string(text, length);
}

std::string formatScientific(double d, int64_t digits) {
    // The count is taken as a 32-bit value; negative counts mean none. Beyond 1000 digits every
    // double's expansion is exact and the text is cut at 498 characters anyway, so larger counts
    // would only cost time.
    const int32_t precision = std::clamp(int32_t(uint32_t(uint64_t(digits))), 0, 1000);
    char format[99];
    snprintf(format, sizeof format, "%%.%de", precision);
    char text[499];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    snprintf(text, sizeof text, format, d);
#pragma GCC diagnostic pop
    return text;
}

}  // namespace kxt

REALstring StrKXT(double d) {
    return HandlerBoundary<REALstring>(nullptr, [&] {
        return CString2RB(kxt::formatPlainNumber(d).c_str(), kREALTextEncodingASCII);
    });
}

REALstring ScientificStrKXT(double d, RBInteger digits) {
    return HandlerBoundary<REALstring>(nullptr, [&] {
        return CString2RB(kxt::formatScientific(d, digits).c_str(), kREALTextEncodingASCII);
    });
}

REALstring RBUnicodeString(REALstring s) {
    return HandlerBoundary<REALstring>(
        nullptr, [&] { return REALConvertString(s, kREALTextEncodingUTF16); });
}

REALstring RBNativeString(REALstring s) {
    return HandlerBoundary<REALstring>(nullptr,
                                       [&] { return REALConvertString(s, kREALTextEncodingUTF8); });
}
