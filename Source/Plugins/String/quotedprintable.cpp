#include "quotedprintable.h"

#include "MyMemory.h"
#include "simd.h"

namespace kxt {

namespace {

enum CharacterClass : int32_t {
    kHexEncoded = 0,
    kLiteral = 1,
    kBlank = 2,
    kLineEnd = 3,
    // Literal too, but kept apart: these vary between code pages.
    kLiteralVariant = 4,
};

constexpr int kCR = 13;
constexpr int kLF = 10;
constexpr const char* kHexDigits = "0123456789ABCDEF";

bool isOtherLineEnd(int c, int n) {
    return (n == kCR || n == kLF) && n != c;
}

}  // namespace

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

EncodeData::EncodeData(std::string_view input, int32_t lineLength)
    : input_(reinterpret_cast<const uint8_t*>(input.data())),
      length_(input.size()),
      lineLength_(lineLength) {
    ReserveLarge(output, input.size() + 1024);
}

int EncodeData::GETC() {
    if (position_ >= length_) return -1;
    return input_[position_++];
}

void EncodeData::UNGETC() {
    if (position_ > 0) --position_;
}

void EncodeData::PUTC(int c) {
    output += char(c & 0xFF);
}

void EncodeData::FPUTS(const char* s) {
    output += s;
}

void EncodeData::output_line_break() {
    FPUTS("\r\n");
    column_ = 0;
}

void EncodeData::check_line_length(int n) {
    if (column_ + n >= int64_t(lineLength_) - 1) {
        PUTC('=');
        output_line_break();
    }
    column_ += n;
}

void EncodeData::emit_literally(int c) {
    check_line_length(1);
    PUTC(c);
}

void EncodeData::emit_hex_encoded(int c) {
    check_line_length(3);
    PUTC('=');
    PUTC(kHexDigits[(c >> 4) & 15]);
    PUTC(kHexDigits[c & 15]);
}

bool EncodeData::is_end_of_line_sequence(int c) {
    if (c != kCR && c != kLF) return false;
    int n = GETC();
    if (n != -1 && !isOtherLineEnd(c, n)) UNGETC();
    return true;
}

int EncodeData::read_decode_character() {
    int c = GETC();
    if (c != -1) ++charactersRead_;
    return c;
}

int EncodeData::hex_to_nybble(int c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

void EncodeData::encode() {
    for (int c = 0; c < 256; ++c) {
        if (c == 9 || c == 32) {
            classes_[c] = kBlank;
        } else if (c == kLF || c == kCR) {
            classes_[c] = kLineEnd;
        } else if (c < 33 || c == '=' || c > 126) {
            classes_[c] = kHexEncoded;
        } else if (c <= 36 || c == '@' || (c >= 91 && c <= 94) || c == 96 || c >= 123) {
            classes_[c] = kLiteralVariant;
        } else {
            classes_[c] = kLiteral;
        }
    }

    int64_t lineEnds = 0;
    for (int c = GETC(); c != -1; c = GETC()) {
        switch (classes_[c]) {
            case kLiteral:
            case kLiteralVariant:
                if (pendingBlank_ != 0) {
                    emit_literally(pendingBlank_);
                    pendingBlank_ = 0;
                }
                emit_literally(c);
                break;
            case kBlank:
                // Only the last blank before a line end needs protecting.
                if (pendingBlank_ != 0) emit_literally(pendingBlank_);
                pendingBlank_ = c;
                break;
            case kHexEncoded:
                if (pendingBlank_ != 0) {
                    emit_literally(pendingBlank_);
                    pendingBlank_ = 0;
                }
                emit_hex_encoded(c);
                break;
            case kLineEnd: {
                ++lineEnds;
                int n = GETC();
                if (n != -1 && !isOtherLineEnd(c, n)) UNGETC();
                if (pendingBlank_ != 0) {
                    emit_hex_encoded(pendingBlank_);
                    pendingBlank_ = 0;
                }
                output_line_break();
                break;
            }
            default:
                break;
        }
    }
    // A blank at the very end is written as it is.
    if (pendingBlank_ != 0) emit_literally(pendingBlank_);
    pendingBlank_ = 0;
    if (lineEnds != 0 && column_ > 0) {
        PUTC('=');
        output_line_break();
    }
}

void EncodeData::decode() {
    for (;;) {
        int c = read_decode_character();
        if (c == -1) return;
        bool restart = false;
        while (c != kCR && c != kLF) {
            if (c == '=') {
                int d = read_decode_character();
                if (d == ' ' || d == '\t') {
                    // "=" and blanks: a soft line break; whatever follows up to the line end
                    // is dropped.
                    for (;;) {
                        d = read_decode_character();
                        if (d == -1 || is_end_of_line_sequence(d)) break;
                        if (d != ' ' && d != '\t') ++errors;
                    }
                    restart = true;
                    break;
                }
                if (is_end_of_line_sequence(d)) {
                    restart = true;
                    break;
                }
                int hi = hex_to_nybble(d);
                int lo = hex_to_nybble(read_decode_character());
                if (hi == -1 || lo == -1) ++errors;
                int32_t value = int32_t(uint32_t(hi) << 4) | lo;
                if (value == -1) {
                    restart = true;
                    break;
                }
                // An invalid high digit reads as 0xF: "=G1" gives 0xF1.
                PUTC(value);
            } else {
                PUTC(c);
            }
            c = read_decode_character();
            if (c == -1) return;
        }
        if (restart) continue;
        int n = read_decode_character();
        if (n != -1 && !isOtherLineEnd(c, n)) UNGETC();
        PUTC(kLF);
    }
}

namespace {

int32_t effectiveLineLength(RBInteger lineLen) {
    const int32_t lineLength = int32_t(lineLen);
    return lineLength < 2 ? 72 : lineLength;
}

}  // namespace

std::string encodeQuotedPrintablePlain(std::string_view bytes, RBInteger lineLen) {
    EncodeData run(bytes, effectiveLineLength(lineLen));
    run.encode();
    return std::move(run.output);
}

namespace {

// What the encoder writes for a byte other than a blank or a line end (length 0 for those):
// the byte itself from 33 to 126 but "=", "=XX" for the rest; padded to four bytes.
struct ByteText {
    char text[4];
    uint8_t length;
};
struct ByteTexts {
    ByteText texts[256]{};
    constexpr ByteTexts() {
        for (size_t c = 0; c < 256; ++c) {
            if (c == 9 || c == 32 || c == kCR || c == kLF) continue;
            if (c < 33 || c == '=' || c > 126) {
                texts[c] = {{'=', kHexDigits[c >> 4], kHexDigits[c & 15], 0}, 3};
            } else {
                texts[c] = {{char(c), 0, 0, 0}, 1};
            }
        }
    }
    constexpr const ByteText& operator[](size_t c) const { return texts[c]; }
};
constexpr ByteTexts kByteTexts;

}  // namespace

// The run above, written through a pointer into a buffer of the largest possible size, with
// runs of literal bytes that fit on the line copied up to 16 at once. Each input byte gives at
// most six output bytes (a soft line break, then an escape), and the end one more soft break.
RawBytes encodeQuotedPrintable(std::string_view bytes, RBInteger lineLen) {
    using S = simd::Native;
    using V = S::V;
    const int64_t limit = int64_t(effectiveLineLength(lineLen)) - 1;
    const auto* in = reinterpret_cast<const uint8_t*>(bytes.data());
    const size_t n = bytes.size();
    RawBytes out(6 * n + 16);
    char* w = out.data();
    int64_t column = 0;
    uint8_t pendingBlank = 0;
    bool lineEnds = false;

    auto lineBreak = [&] {
        *w++ = '\r';
        *w++ = '\n';
        column = 0;
    };
    auto room = [&](int k) {
        if (column + k >= limit) {
            *w++ = '=';
            lineBreak();
        }
        column += k;
    };
    auto literal = [&](uint8_t c) {
        room(1);
        *w++ = char(c);
    };
    auto hex = [&](uint8_t c) {
        room(3);
        *w++ = '=';
        *w++ = kHexDigits[c >> 4];
        *w++ = kHexDigits[c & 15];
    };
    // Literal: 33..126 but "=" (as signed bytes, everything from 128 is below 33).
    const V below = S::splat8(33 - 1), above = S::splat8(126 + 1), equals = S::splat8('=');

    size_t i = 0;
    while (i < n) {
        if (i + 16 <= n) {
            // The literal bytes that start the block, copied at once where they fit on the line
            // (each would take room for one without breaking it); a blank held back goes first,
            // as the next literal byte would write it.
            const V x = S::load(in + i);
            const V literals =
                S::andNot(S::eq8(x, equals), S::and_(S::gt8(x, below), S::lt8(x, above)));
            const unsigned k = S::first(S::andNot(literals, S::splat8(0xFF)));
            if (k > 0) {
                if (pendingBlank != 0) literal(pendingBlank);
                pendingBlank = 0;
                if (column + int64_t(k) < limit) {
                    S::store(w, x);
                    w += k;
                    column += k;
                    i += k;
                    continue;
                }
            }
        }
        const uint8_t c = in[i++];
        const ByteText& text = kByteTexts[c];
        if (text.length != 0) {
            // Written the same way whether literal or escaped: no branch on which.
            if (pendingBlank != 0) literal(pendingBlank);
            pendingBlank = 0;
            room(text.length);
            memcpy(w, text.text, 4);
            w += text.length;
        } else if (c == 9 || c == 32) {
            // Only the last blank before a line end needs protecting.
            if (pendingBlank != 0) literal(pendingBlank);
            pendingBlank = c;
        } else if (c == kCR || c == kLF) {
            lineEnds = true;
            if (i < n && isOtherLineEnd(c, in[i])) ++i;
            if (pendingBlank != 0) hex(pendingBlank);
            pendingBlank = 0;
            lineBreak();
        }
    }
    // A blank at the very end is written as it is.
    if (pendingBlank != 0) literal(pendingBlank);
    if (lineEnds && column > 0) {
        *w++ = '=';
        lineBreak();
    }
    out.setSize(size_t(w - out.data()));
    return out;
}

std::string decodeQuotedPrintable(std::string_view bytes) {
    EncodeData run(bytes, 72);
    run.decode();
    return std::move(run.output);
}

}  // namespace kxt
