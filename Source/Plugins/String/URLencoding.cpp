#include "URLencoding.h"

#include <array>

#include "MyMemory.h"
#include "rbData.h"
#include "rbException.h"
#include "rbUtil.h"

namespace {

// What each byte 0..127 becomes: itself for the unreserved set, "%XX" otherwise. Space and
// plus depend on the options and are chosen per call. "!", "*" and "@" stay literal while
// "'", "(" and ")" are encoded: callers rely on exactly this set.
struct URLEncodeTable {
    std::array<std::array<char, 4>, 128> text{};
    std::array<uint8_t, 128> length{};

    constexpr URLEncodeTable() {
        constexpr const char* kDigits = "0123456789ABCDEF";
        for (int b = 0; b < 128; ++b) {
            bool literal = (b >= 'A' && b <= 'Z') || (b >= 'a' && b <= 'z') ||
                           (b >= '0' && b <= '9') || b == '!' || b == '*' || b == '+' || b == '-' ||
                           b == '.' || b == '@' || b == '_' || b == '~';
            if (literal) {
                text[b] = {char(b), 0, 0, 0};
                length[b] = 1;
            } else {
                text[b] = {'%', kDigits[b >> 4], kDigits[b & 15], 0};
                length[b] = 3;
            }
        }
    }
};

constexpr URLEncodeTable kURLEncodeTable;
constexpr const char* kHexDigits = "0123456789ABCDEF";

}  // namespace

namespace kxt {

int hex2int(unsigned char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return 0;
}

std::string encodeURL(std::string_view bytes, RBInteger options) {
    const int mode = int(options & 3);
    const bool spaceAsPlus = mode == 1;
    const bool encodePlus = mode == 1 || mode == 2;
    std::string out = NewLargeString(bytes.size() * 3);
    char* w = out.data();
    for (unsigned char b : bytes) {
        if (b >= 128) {
            w[0] = '%';
            w[1] = kHexDigits[b >> 4];
            w[2] = kHexDigits[b & 15];
            w += 3;
        } else if (b == ' ' && spaceAsPlus) {
            *w++ = '+';
        } else if (b == '+' && encodePlus) {
            w[0] = '%', w[1] = '2', w[2] = 'B';
            w += 3;
        } else {
            const auto& entry = kURLEncodeTable.text[b];
            w[0] = entry[0], w[1] = entry[1], w[2] = entry[2];
            w += kURLEncodeTable.length[b];
        }
    }
    out.resize(size_t(w - out.data()));
    return out;
}

std::string decodeURL(std::string_view bytes, RBInteger options) {
    const bool plusAsSpace = (options & 1) != 0;
    const size_t n = bytes.size();
    std::string out = NewLargeString(n);
    char* w = out.data();
    size_t i = 0;
    while (i < n) {
        unsigned char b = static_cast<unsigned char>(bytes[i]);
        if (b == '%') {
            // Digits past the end read as 0; the escape always consumes three bytes.
            int high = i + 1 < n ? hex2int(static_cast<unsigned char>(bytes[i + 1])) : 0;
            int low = i + 2 < n ? hex2int(static_cast<unsigned char>(bytes[i + 2])) : 0;
            *w++ = static_cast<char>((high * 16 + low) & 0xFF);
            i += 3;
        } else {
            *w++ = (b == '+' && plusAsSpace) ? ' ' : static_cast<char>(b);
            ++i;
        }
    }
    out.resize(size_t(w - out.data()));
    return out;
}

}  // namespace kxt

REALstring EncodingToURL2(REALstring s, RBInteger options) {
    return HandlerBoundary<REALstring>(nullptr, [&]() -> REALstring {
        if (s == nullptr) return nullptr;
        rbData in(s);
        return REALBuildUnicodeString(kxt::encodeURL(in.view(), options), kREALTextEncodingASCII);
    });
}

REALstring EncodingToURL1(REALstring s) {
    return EncodingToURL2(s, 0);
}

REALstring DecodingToURL2(REALstring s, RBInteger options) {
    return HandlerBoundary<REALstring>(nullptr, [&]() -> REALstring {
        if (s == nullptr) return nullptr;
        rbData in(s);
        return REALBuildUnicodeString(kxt::decodeURL(in.view(), options), kREALTextEncodingUnknown);
    });
}

REALstring DecodingToURL1(REALstring s) {
    return DecodingToURL2(s, 0);
}
