#include "numberformat.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "REALplugin.h"
#include "rbException.h"
#include "rbUtil.h"

namespace kxt {

namespace {

constexpr size_t kNoCut = size_t(-1);
using NumberText = char[500];

// What follows printing: trailing zeros, the cut to fifteen digits, repeated final characters.
// `text` holds the printed number with zeros after it; `cutAt` tells where the digits were cut
// (kNoCut when nothing was).
std::string finishPlainNumber(NumberText& text, size_t& cutAt) {
    size_t length = strlen(text);
    cutAt = kNoCut;

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
            cutAt = pointIndex;
        } else {
            size_t firstDigit = pointIndex + 1;
            while (firstDigit < length && text[firstDigit] == '0') ++firstDigit;
            const size_t atPoint = firstDigit - leading + 14;
            const size_t cut =
                atPoint < sizeof text && text[atPoint] == '.' ? atPoint : firstDigit - leading + 15;
            if (cut < length) {
                text[cut] = 0;
                length = cut;
                cutAt = cut;
            }
        }
    }

    // Any repeated final character is reduced, not only zeros: 1/3 gives "0.3".
    while (length > 3 && text[length - 1] == text[length - 2]) text[--length] = 0;
    return std::string(text, length);
}

// Digits after the point of d's exact decimal expansion: as many as its binary digits after the
// point.
int exactFractionDigits(double d) {
    if (d == 0) return 0;
    int exponent;
    const double mantissa = std::frexp(std::fabs(d), &exponent);  // |d| = mantissa * 2^exponent
    const auto bits = uint64_t(std::ldexp(mantissa, 53));
    return std::max(0, 53 - exponent - std::countr_zero(bits));
}

}  // namespace

std::string formatPlainNumberPlain(double d) {
    NumberText text = {};
    snprintf(text, sizeof text, "%.99f", d);
    size_t cut;
    return finishPlainNumber(text, cut);
}

std::string formatPlainNumber(double d, int spareDigits) {
    // Printing 99 digits exactly costs most of a call, and few of them survive the cut. Where
    // "%.99f" is exact (at most 99 digits after the point), a shorter print gives the same text
    // when it is exact with a zero to spare (both then end in zeros, which the first step trims
    // alike), or when a digit at or after the cut is not 0: rounding the short print carried
    // nothing into the digits kept then, and the long print goes on past the cut as well.
    const int exact = std::isfinite(d) ? exactFractionDigits(d) : 100;
    if (exact <= 99) {
        const double magnitude = std::fabs(d);
        const int zeros =
            magnitude > 0 && magnitude < 1 ? int(-std::floor(std::log10(magnitude))) : 0;
        const int precision = std::min(99, zeros + 15 + spareDigits);
        NumberText text = {};
        snprintf(text, sizeof text, "%.*f", precision, d);
        NumberText printed;
        memcpy(printed, text, sizeof text);
        size_t cut;
        std::string result = finishPlainNumber(text, cut);
        if (exact < precision) return result;
        for (size_t i = cut; cut != kNoCut && printed[i] != 0; ++i) {
            if (printed[i] >= '1' && printed[i] <= '9') return result;
        }
    }
    return formatPlainNumberPlain(d);
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
