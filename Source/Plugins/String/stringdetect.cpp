#include "stringdetect.h"

#include "ByteView.h"
#include "MyMemory.h"
#include "REALplugin.h"
#include "encoderboundary.h"
#include "rbData.h"
#include "rbMemoryBlock.h"
#include "rbText.h"
#include "rbUtil.h"
#include "simd.h"

namespace kxt {

namespace {

using S = simd::Native;
using V = S::V;

constexpr const char* kHexDigits = "0123456789ABCDEF";

}  // namespace

bool subjectNeedsEncoding(std::string_view utf8) {
    for (const uint8_t b : kxt::unsignedBytes(utf8)) {
        if (b < 32 || b > 127) return true;
    }
    return false;
}

std::string encodeEmailSubject(std::string_view utf8) {
    std::string out;
    ReserveLarge(out, utf8.size() * 2 + 20);
    // One encoded word however long the subject: no 75-character limit, no splitting.
    out += "=?utf-8?Q?";
    for (const uint8_t b : kxt::unsignedBytes(utf8)) {
        if (b == '=') {
            out += "=3D";
        } else if (b == '_') {
            out += "=5F";
        } else if (b == ' ') {
            out += '_';
        } else if (b < 128) {
            out += char(b);
        } else {
            out += '=';
            out += kHexDigits[b >> 4];
            out += kHexDigits[b & 15];
        }
    }
    out += "?=";
    return out;
}

uint8_t* yDecode(const uint8_t* source, uint8_t* destination, size_t length) {
    size_t i = 0;
    const V escape = S::splat8('='), offset = S::splat8(42);
    while (i < length) {
        // Sixteen bytes at a time up to the next escape, all less 42; the output never runs
        // ahead of the input, so the whole block can be stored.
        if (i + 16 <= length) {
            const V x = S::load(source + i);
            S::store(destination, S::sub8(x, offset));
            const size_t plain = S::first(S::eq8(x, escape));
            destination += plain;
            i += plain;
            if (plain == 16) continue;
        }
        if (source[i] == '=') {
            uint8_t escaped = i + 1 < length ? source[i + 1] : 0;
            *destination++ = uint8_t(escaped - 106);  // minus 64, minus 42
            i += 2;
        } else {
            *destination++ = uint8_t(source[i] - 42);
            i += 1;
        }
    }
    return destination;
}

RawBytes yDecode(std::string_view data) {
    RawBytes out(data.size());
    auto* begin = reinterpret_cast<uint8_t*>(out.data());
    uint8_t* end = yDecode(reinterpret_cast<const uint8_t*>(data.data()), begin, data.size());
    out.setSize(size_t(end - begin));
    return out;
}

int64_t detectUnicodeMarkers(std::string_view text) {
    auto b = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const size_t n = text.size();
    if (n < 2) return kNoMarker;
    if (n >= 4 && b(0) == 0x00) {
        return b(1) == 0x00 && b(2) == 0xFE && b(3) == 0xFF ? kUTF32BEMarker : kNoMarker;
    }
    if (n >= 4 && b(0) == 0xFF && b(1) == 0xFE && b(2) == 0x00 && b(3) == 0x00) {
        return kUTF32LEMarker;
    }
    if (n >= 3 && b(0) == 0xEF) return b(1) == 0xBB && b(2) == 0xBF ? kUTF8Marker : kNoMarker;
    if (b(0) == 0xFE) return b(1) == 0xFF ? kUTF16BEMarker : kNoMarker;
    if (b(0) == 0xFF) return b(1) == 0xFE ? kUTF16LEMarker : kNoMarker;
    return kNoMarker;
}

MarkerBytes unicodeMarkerBytes(int64_t kind) {
    using namespace std::string_view_literals;
    switch (kind) {
        case kUTF8Marker:
            return {"\xEF\xBB\xBF"sv, kREALTextEncodingUTF8};
        case kUTF16NativeMarker:  // this platform is little-endian
        case kUTF16LEMarker:
            return {"\xFF\xFE"sv, kREALTextEncodingUTF16};
        case kUTF16BEMarker:
            return {"\xFE\xFF"sv, kREALTextEncodingUTF16};
        case kUTF32NativeMarker:
        case kUTF32LEMarker:
            return {"\xFF\xFE\x00\x00"sv, kREALTextEncodingUTF32};
        case kUTF32BEMarker:
            return {"\x00\x00\xFE\xFF"sv, kREALTextEncodingUTF32};
        default:
            return {{}, kREALTextEncodingUnknown};
    }
}

}  // namespace kxt

REALstring EncodeEmailSubjectKXT(REALstring s) {
    return NilOnAllocationFailure<REALstring>(nullptr, [&]() -> REALstring {
        if (s == nullptr) return nullptr;
        rbText text(s);
        std::string_view utf8 = text.utf8();
        if (utf8.empty()) return nullptr;
        if (!kxt::subjectNeedsEncoding(utf8)) {
            REALLockString(s);
            return s;
        }
        // Built as a C string: a zero byte in the subject ends the result there.
        return CString2RB(kxt::encodeEmailSubject(utf8).c_str(), kREALTextEncodingASCII);
    });
}

REALstring yDecodeKXTs(REALstring data) {
    return NilOnAllocationFailure<REALstring>(nullptr, [&]() -> REALstring {
        rbData in(data);
        return REALBuildUnicodeString(kxt::yDecode(in.view()).view(), kREALTextEncodingUnknown);
    });
}

REALmemoryBlock yDecodeKXTm(REALmemoryBlock data) {
    return NilOnAllocationFailure<REALmemoryBlock>(nullptr, [&]() -> REALmemoryBlock {
        rbData in(data, 0, 0);
        const RawBytes out = kxt::yDecode(in.view());
        return REALBuildMemoryblock(out.view().data(), int64_t(out.size()));
    });
}

RBInteger DetectUnicodeMarkers(REALstring s) {
    return HandlerBoundary<RBInteger>(0, [&]() -> RBInteger {
        rbData in(s);
        return kxt::detectUnicodeMarkers(in.view());
    });
}

// The marks keep their bytes and their UTF-16 or UTF-32 tag: the general builder would convert
// them to UTF-8 and so lose the very bytes asked for.
REALstring GetUnicodeMarkers(RBInteger kind) {
    return HandlerBoundary<REALstring>(nullptr, [&]() -> REALstring {
        kxt::MarkerBytes mark = kxt::unicodeMarkerBytes(kind);
        if (mark.bytes.empty()) return nullptr;
        return REALBuildTaggedString(mark.bytes.data(), int64_t(mark.bytes.size()), mark.encoding);
    });
}
