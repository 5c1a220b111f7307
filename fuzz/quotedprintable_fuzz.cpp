// Quoted-printable encoding and decoding of any bytes with any line length. The first eight
// bytes of the input are the line length (any 64-bit value); the rest is the text.
//  - the encoding is printable ASCII in lines joined by CR LF, no line longer than the line
//    length allows (line length - 1 with the "=" of a soft break; an encoded triple is never
//    split, so tiny line lengths allow up to four), and a text without line ends gets none but
//    soft breaks;
//  - decoding the encoding gives the text back with every line end (CR, LF, CR LF, LF CR) as
//    one LF;
//  - decoding anything never lengthens it.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "ByteView.h"
#include "quotedprintable.h"

namespace {

[[noreturn]] void fail(const char* what, std::string_view in, int64_t lineLen) {
    fprintf(stderr, "quotedprintable_fuzz: %s; line length %lld, input:", what,
            static_cast<long long>(lineLen));
    for (const uint8_t c : kxt::unsignedBytes(in)) fprintf(stderr, " %02X", c);
    fprintf(stderr, "\n");
    abort();
}

// Every line end, as the encoder reads them, becomes one LF.
std::string withLFLineEnds(std::string_view in) {
    std::string out;
    for (size_t i = 0; i < in.size(); ++i) {
        const char c = in[i];
        if (c != '\r' && c != '\n') {
            out += c;
            continue;
        }
        if (i + 1 < in.size() && (in[i + 1] == '\r' || in[i + 1] == '\n') && in[i + 1] != c) ++i;
        out += '\n';
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    int64_t lineLen = 0;
    if (size >= 8) {
        memcpy(&lineLen, data, 8);
        data += 8;
        size -= 8;
    }
    // Mostly small line lengths, where the breaks are dense.
    if ((lineLen & 0x300) != 0x300) lineLen = (lineLen & 0xFF) - 8;
    const std::string_view in(reinterpret_cast<const char*>(data), size);

    const std::string encoded = kxt::encodeQuotedPrintable(in, lineLen).str();
    if (encoded != kxt::encodeQuotedPrintablePlain(in, lineLen)) {
        fail("the block encoder differs from the byte loop", in, lineLen);
    }
    const int32_t asked = static_cast<int32_t>(lineLen);
    const int64_t effective = asked < 2 ? 72 : asked;
    const int64_t longest = effective - 1 > 4 ? effective - 1 : 4;
    const bool hasLineEnd = in.find_first_of("\r\n") != std::string_view::npos;
    size_t lineStart = 0;
    for (size_t i = 0; i <= encoded.size(); ++i) {
        const bool end = i == encoded.size();
        if (!end) {
            const unsigned char c = static_cast<unsigned char>(encoded[i]);
            if (c == '\r') {
                if (i + 1 >= encoded.size() || encoded[i + 1] != '\n') {
                    fail("a CR without LF in the encoding", in, lineLen);
                }
            } else if (c == '\n') {
                if (i == 0 || encoded[i - 1] != '\r') fail("an LF without CR", in, lineLen);
            } else if (!(c == ' ' || c == '\t' || (c >= 33 && c <= 126))) {
                fail("an unprintable byte in the encoding", in, lineLen);
            }
        }
        if (end || encoded[i] == '\r') {
            const int64_t length = int64_t(i - lineStart);
            if (length > longest) fail("an encoded line is too long", in, lineLen);
            const bool soft = length > 0 && encoded[i - 1] == '=';
            if (!end && !soft && !hasLineEnd) fail("a hard line break from none", in, lineLen);
            lineStart = i + 2;
        }
    }

    if (kxt::decodeQuotedPrintable(encoded) != withLFLineEnds(in)) {
        fail("decoding does not undo encoding", in, lineLen);
    }
    if (kxt::decodeQuotedPrintable(in).size() > in.size()) {
        fail("decoding lengthened the text", in, lineLen);
    }
    return 0;
}
