#include "Hexencoding.h"

#include "MyMemory.h"
#include "URLencoding.h"
#include "encoderboundary.h"
#include "rbData.h"
#include "rbText.h"
#include "rbUtil.h"

namespace kxt {

namespace {

constexpr const char* kHexDigits = "0123456789ABCDEF";

// The byte a MySQL escape stands for, or -1 when the pair is kept as it is.
int mySQLEscape(unsigned char b) {
    switch (b) {
        case '0':
            return 0;
        case '\'':
            return '\'';
        case '"':
            return '"';
        case 'b':
            return 8;
        case 'n':
            return 10;
        case 'r':
            return 13;
        case 't':
            return 9;
        case 'Z':
            return 26;
        case '\\':
            return '\\';
        // MySQL itself keeps the backslash of these outside LIKE patterns; callers rely on
        // its removal.
        case '%':
            return '%';
        case '_':
            return '_';
        default:
            return -1;
    }
}

}  // namespace

std::string encodeHex(std::string_view bytes) {
    std::string out = NewLargeString(bytes.size() * 2);
    char* w = out.data();
    for (unsigned char b : bytes) {
        *w++ = kHexDigits[b >> 4];
        *w++ = kHexDigits[b & 15];
    }
    return out;
}

std::string decodeHex(std::string_view text) {
    std::string out = NewLargeString(text.size() / 2);
    for (size_t i = 0; i < out.size(); ++i) {
        int high = hex2int(static_cast<unsigned char>(text[2 * i]));
        int low = hex2int(static_cast<unsigned char>(text[2 * i + 1]));
        out[i] = char(high * 16 + low);
    }
    return out;
}

std::string decodeMySQL(std::string_view bytes) {
    std::string out = NewLargeString(bytes.size());
    char* w = out.data();
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (bytes[i] == '\\' && i + 1 < bytes.size()) {
            int escaped = mySQLEscape(static_cast<unsigned char>(bytes[i + 1]));
            if (escaped >= 0) {
                *w++ = char(escaped);
                ++i;
                continue;
            }
            *w++ = '\\';
            *w++ = bytes[++i];
            continue;
        }
        *w++ = bytes[i];
    }
    out.resize(size_t(w - out.data()));
    return out;
}

}  // namespace kxt

REALstring EncodingToHex(REALstring s) {
    return NilOnAllocationFailure<REALstring>(nullptr, [&]() -> REALstring {
        rbData in(s);
        return REALBuildUnicodeString(kxt::encodeHex(in.view()), kREALTextEncodingASCII);
    });
}

REALstring DecodingToHex(REALstring s) {
    return NilOnAllocationFailure<REALstring>(nullptr, [&]() -> REALstring {
        if (s == nullptr) return nullptr;
        rbText text(s);
        return REALBuildUnicodeString(kxt::decodeHex(text.ascii()), kREALTextEncodingUnknown);
    });
}

REALstring DecodingFromMySQL(REALstring s) {
    return NilOnAllocationFailure<REALstring>(nullptr, [&]() -> REALstring {
        rbData in(s);
        return REALBuildUnicodeString(kxt::decodeMySQL(in.view()), kREALTextEncodingUnknown);
    });
}
