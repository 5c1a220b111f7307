// Quoted-printable transfer encoding of raw bytes, with CR LF line breaks.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "XojoPluginABI.h"

namespace kxt {

// One encoding or decoding run: a byte reader over the input and the output produced so far.
class EncodeData {
  public:
    EncodeData(std::string_view input, int32_t lineLength);

    int GETC();  // next byte (0..255) or -1 at the end
    void UNGETC();
    void PUTC(int c);
    void FPUTS(const char* s);

    void output_line_break();
    // Breaks the line with "=" CR LF first when n more characters would bring the column to
    // line length - 1 or more.
    void check_line_length(int n);
    void emit_literally(int c);
    void emit_hex_encoded(int c);
    // CR or LF: true, with a CR LF or LF CR pair consumed.
    bool is_end_of_line_sequence(int c);
    int read_decode_character();
    static int hex_to_nybble(int c);

    void encode();
    void decode();

    std::string output;
    int64_t errors = 0;  // malformed escapes met by decode; not reported

  private:
    const uint8_t* input_;
    uint64_t length_;
    uint64_t position_ = 0;
    int32_t lineLength_;
    int32_t classes_[256] = {};
    int64_t column_ = 0;  // wider than needed so very long lines cannot overflow
    int pendingBlank_ = 0;
    int64_t charactersRead_ = 0;
};

// LineLen below 2 (as a signed 32-bit value) means 72.
std::string encodeQuotedPrintable(std::string_view bytes, RBInteger lineLen);
// Line ends become LF; soft breaks and malformed escapes read as decode() documents.
std::string decodeQuotedPrintable(std::string_view bytes);

}  // namespace kxt
