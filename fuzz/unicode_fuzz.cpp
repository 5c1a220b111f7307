// Composition and decomposition straight on UTF-8 against the UTF-16 way, which is the
// reference: for the well-formed part of any bytes, the UTF-8 forms must give exactly the UTF-8
// of what the UTF-16 forms give for its UTF-16 form (code points less U+FEFF and U+FFFE), and
// stay within the room they ask for.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "MainStringCompose.h"
#include "rbstring.h"

namespace {

// Well-formed UTF-8 only (the caller cut the input to its well-formed prefix).
std::vector<uint16_t> utf16Form(std::string_view utf8) {
    std::vector<uint16_t> units;
    for (size_t i = 0; i < utf8.size();) {
        const unsigned char b = utf8[i];
        const size_t n = b < 0x80 ? 1 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : 4;
        uint32_t cp = n == 1 ? b : n == 2 ? b & 0x1F : n == 3 ? b & 0x0F : b & 0x07;
        for (size_t k = 1; k < n; ++k) cp = cp << 6 | (utf8[i + k] & 0x3F);
        i += n;
        if (cp == 0xFEFF || cp == 0xFFFE) continue;
        if (cp < 0x10000) {
            units.push_back(uint16_t(cp));
        } else {
            units.push_back(uint16_t(0xD800 + ((cp - 0x10000) >> 10)));
            units.push_back(uint16_t(0xDC00 + ((cp - 0x10000) & 0x3FF)));
        }
    }
    return units;
}

// UTF-16 from the converters may hold lone surrogates only if the input did, and it cannot
// here; a pair becomes one four-byte sequence.
std::string utf8Of(const std::vector<uint16_t>& units) {
    std::string out;
    for (size_t i = 0; i < units.size(); ++i) {
        uint32_t cp = units[i];
        if (cp >= 0xD800 && cp < 0xDC00 && i + 1 < units.size() && units[i + 1] >= 0xDC00 &&
            units[i + 1] < 0xE000) {
            cp = 0x10000 + ((cp - 0xD800) << 10) + (units[++i] - 0xDC00);
        }
        if (cp < 0x80) {
            out += char(cp);
        } else if (cp < 0x800) {
            out += char(0xC0 | cp >> 6);
            out += char(0x80 | (cp & 0x3F));
        } else if (cp < 0x10000) {
            out += char(0xE0 | cp >> 12);
            out += char(0x80 | (cp >> 6 & 0x3F));
            out += char(0x80 | (cp & 0x3F));
        } else {
            out += char(0xF0 | cp >> 18);
            out += char(0x80 | (cp >> 12 & 0x3F));
            out += char(0x80 | (cp >> 6 & 0x3F));
            out += char(0x80 | (cp & 0x3F));
        }
    }
    return out;
}

void check(std::string_view text, size_t room, size_t (*convert)(std::string_view, char*),
           const std::string& expected) {
    // The room exactly, with guard bytes behind it that must stay untouched.
    std::string out(room + 16, '\x5A');
    const size_t written = convert(text, out.data());
    if (written > room || std::string_view(out).substr(0, written) != expected) abort();
    if (out.find_first_not_of('\x5A', room) != std::string::npos) abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view bytes(reinterpret_cast<const char*>(data), size);
    bytes = bytes.substr(0, kxt::wellFormedPrefixLength(bytes));
    const std::vector<uint16_t> units = utf16Form(bytes);
    check(bytes, kxt::composedUTF8Room(bytes.size()), kxt::composeUTF8,
          utf8Of(kxt::composeUTF16(units)));
    check(bytes, kxt::decomposedUTF8Room(bytes.size()), kxt::decomposeUTF8,
          utf8Of(kxt::decomposeUTF16(units)));
    return 0;
}
