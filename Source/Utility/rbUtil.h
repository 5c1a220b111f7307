// Builders of host strings, and the scope guard for host references.
#pragma once

#include <cstdint>
#include <string_view>

#include "XojoPluginABI.h"

// The host's string lengths are 32-bit: the builders give nil for anything longer.
constexpr int64_t kMaxHostLength = 0x7FFFFFFF;

// A length below 1 or no data gives nil. Mac Roman, Latin-1, CP1252 and unknown bytes that are
// pure ASCII are tagged ASCII. UTF-16/UTF-32 input (host byte order) comes back as UTF-8 on
// hosts that can convert.
REALstring REALBuildUnicodeString(const void* data, int64_t length, uint32_t encoding);
// The same for a caller that already knows whether every byte is below 0x80 (it found out while
// writing them), which spares the ASCII test a second pass over a big result.
REALstring REALBuildUnicodeString(const void* data, int64_t length, uint32_t encoding,
                                  bool knownASCII);
// Tags the bytes with the encoding as they are, with no conversion or ASCII narrowing (for
// results whose exact bytes and tag matter, such as byte-order marks).
REALstring REALBuildTaggedString(const void* data, int64_t length, uint32_t encoding);
// The UTF-16 and UTF-32 builders never hand the host ill-formed text: each lone surrogate, and
// each UTF-32 value above U+10FFFF, becomes U+FFFD.
REALstring REALBuildUnicodeStringUTF16(const void* data, int64_t byteLength);
REALstring REALBuildUnicodeStringUTF32(const void* data, int64_t byteLength);
REALstring CString2RB(const char* text, uint32_t encoding);
inline REALstring REALBuildUnicodeString(std::string_view bytes, uint32_t encoding) {
    return REALBuildUnicodeString(bytes.data(), int64_t(bytes.size()), encoding);
}

bool IsASCII(const void* data, int64_t length);

// The UTF-16 and UTF-32 family, in host or explicit byte order.
bool IsUTF16or32Encoding(uint32_t encoding);
