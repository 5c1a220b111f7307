// E-mail subjects as MIME encoded words, yEnc data, and Unicode byte-order marks
// (EncodeEmailSubjectKXT, _yDecodeStringKXT, _yDecodeMemoryKXT, DetectUnicodeMarkersKXT,
// GetUnicodeMarkersKXT).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "MyMemory.h"
#include "XojoPluginABI.h"

namespace kxt {

// True when a byte lies outside 32..127, so the subject needs an encoded word.
bool subjectNeedsEncoding(std::string_view utf8);
// The whole subject as one "=?utf-8?Q?...?=" word: "=" and "_" escaped, space as "_", bytes of
// 128 or more as "=HH"; "?" and controls are written as they are.
std::string encodeEmailSubject(std::string_view utf8);

// Decodes a bare yEnc data stream (no header, trailer or line breaks) into destination, which
// must hold length bytes; returns the end of what was written. An "=" at the very end escapes
// a zero.
uint8_t* yDecode(const uint8_t* source, uint8_t* destination, size_t length);
RawBytes yDecode(std::string_view data);

// Byte-order mark kinds shared by detection and GetUnicodeMarkersKXT.
enum UnicodeMarker : int64_t {
    kNoMarker = 0,
    kUTF8Marker = 1,
    kUTF16NativeMarker = 2,
    kUTF16BEMarker = 3,
    kUTF16LEMarker = 4,
    kUTF32NativeMarker = 5,
    kUTF32BEMarker = 6,
    kUTF32LEMarker = 7,
};
// Which mark the bytes begin with; the machine-order kinds are never detected, and FF FE 00 00
// reads as UTF-32 even where it could be UTF-16 with a leading U+0000.
int64_t detectUnicodeMarkers(std::string_view bytes);
struct MarkerBytes {
    std::string_view bytes;  // empty for kinds without a mark
    uint32_t encoding;
};
MarkerBytes unicodeMarkerBytes(int64_t kind);

}  // namespace kxt

REALstring EncodeEmailSubjectKXT(REALstring s);
REALstring yDecodeKXTs(REALstring data);
REALmemoryBlock yDecodeKXTm(REALmemoryBlock data);
RBInteger DetectUnicodeMarkers(REALstring s);
REALstring GetUnicodeMarkers(RBInteger kind);
