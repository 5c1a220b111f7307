// Number formatting, and conversions of a string's encoding through the host.
#pragma once

#include <cstdint>
#include <string>

#include "XojoPluginABI.h"

namespace kxt {

// Plain decimal notation cut (never rounded) to about fifteen significant digits, then with any
// repeated final character reduced to one, never below three characters: 7 gives "7.0", 0.1
// gives "0.10", 1/3 gives "0.3".
// It prints the digits that can survive the cut and `spareDigits` more (tests use few, so that
// rounding the print often reaches the digits kept and the long print must be taken instead).
std::string formatPlainNumber(double d, int spareDigits = 9);
// The same from all 99 digits that "%.99f" prints: the reference of the shorter print above.
std::string formatPlainNumberPlain(double d);
// Exponent notation with `digits` digits after the point ("%.<digits>e"); negative digits as 0.
std::string formatScientific(double d, int64_t digits);

}  // namespace kxt

// Handlers.
REALstring StrKXT(double d);
REALstring ScientificStrKXT(double d, RBInteger digits);
REALstring RBUnicodeString(REALstring s);
REALstring RBNativeString(REALstring s);
