// The setter of StyledText.RTFDataKXT: reads RTF into style runs.
//
// The reader is split in two. The plain part (namespace kxt::rtf) scans the bytes, keeps the
// group states and decides when a run starts and ends; it reports to a ParseSink and knows
// nothing about the host. RTFWrite plugs in a sink that builds StyleRun objects; tests, the
// fuzzer and the kxt tool can use RunCollector instead.
//
// The lexical helpers read the document as if it were NUL-terminated: a position past the end
// reads as a zero byte, so no loop runs off the buffer.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "XojoPluginABI.h"

namespace kxt::rtf {

// One colour-table entry; components the entry does not name stay 0.
struct RTFColor {
    int32_t red = 0;
    int32_t green = 0;
    int32_t blue = 0;
    bool operator==(const RTFColor&) const = default;
};

using FontMap = std::map<int32_t, std::string>;
using ColorMap = std::map<int32_t, RTFColor>;

// The byte at pos, or 0 outside the text.
inline char ByteAt(std::string_view text, int64_t pos) {
    return (pos >= 0 && uint64_t(pos) < text.size()) ? text[size_t(pos)] : '\0';
}

// Steps over the byte that ends a control word. Returns the position of the last byte consumed.
int64_t ForwardOverDelimiter(std::string_view text, int64_t pos);

// Reads one control word starting at pos (the byte after the backslash). Returns the position
// of the last byte that belongs to it.
int64_t ReadCommand(std::string_view text, int64_t pos, std::string& word, int64_t& parameter);

// pos is on the last byte of the word that opened the table and is left on the last byte read.
FontMap ReadFontTable(std::string_view text, int64_t& pos);
ColorMap ReadColorTable(std::string_view text, int64_t& pos);

// Host text-encoding value for a Windows, DOS or Mac code page; Windows Latin 1 when unknown.
uint32_t FindEncoding(int64_t codePage);

// The character formatting a new run receives from its group.
struct RunStyle {
    std::string font;  // UTF-8
    int64_t size = 0;  // points
    uint32_t color = 0;
    bool bold = false;
    bool italic = false;
    bool underline = false;
    bool operator==(const RunStyle&) const = default;
};

// Receives what the reader makes of the document, in order. The sink owns the current run.
class ParseSink {
  public:
    virtual ~ParseSink() = default;
    virtual bool hasRun() const = 0;
    // Makes a new current run with this style; may fail, leaving hasRun() false.
    virtual void startRun(const RunStyle& style) = 0;
    // Appends the buffered bytes (in the given encoding) as the current run, then drops the run
    // and empties the buffer. An empty buffer only drops the run.
    virtual void flush(uint32_t encoding, std::string& buffer, int64_t alignment) = 0;
    // Appends one character, as its UTF-16 units (one, or a surrogate pair), as the current run,
    // then drops the run. The unit 0 appends nothing.
    virtual void addUnits(std::u16string_view units, int64_t alignment) = 0;
};

// Reads a whole document (from "{\rtf" on) into the sink. Anything that does not start with
// "{\rtf" or is shorter than 7 bytes gives nothing.
void ParseRTF(std::string_view rtf, ParseSink& sink);

// A run as the host receives it: the bytes as tagged with their encoding (UTF-16 runs hold one
// character in host byte order), with the alignment the reader passed along.
struct ParsedRun {
    RunStyle style;
    uint32_t encoding = kREALTextEncodingWindowsLatin1;
    std::string bytes;
    int64_t alignment = 0;
};

// A sink without a host: collects the runs the way the StyleRun builder appends them, and the
// paragraph alignments a StyledText would end up with (paragraphs split after CR, LF or CR LF;
// a trailing line end opens no new paragraph).
class RunCollector : public ParseSink {
  public:
    bool hasRun() const override { return current_ != nullptr; }
    void startRun(const RunStyle& style) override;
    void flush(uint32_t encoding, std::string& buffer, int64_t alignment) override;
    void addUnits(std::u16string_view units, int64_t alignment) override;

    std::vector<ParsedRun> runs;
    std::vector<int64_t> paragraphAlignments;  // by paragraph index; 0 where none was set

  private:
    void append(uint32_t encoding, std::string bytes, int64_t alignment);

    std::unique_ptr<RunStyle> current_;
    // Paragraph counting over the concatenated text.
    int64_t paragraphs_ = 0;
    bool endsWithLineEnd_ = true;  // empty text: the next character opens a paragraph
    bool lastWasCR_ = false;
};

}  // namespace kxt::rtf

// The setter of "RTFDataKXT(SkipParagraphs as boolean = false) as string". SkipParagraphs is
// ignored: assignment always reads paragraphs.
void RTFWrite(REALobject styledText, RBBoolean skipParagraphs, REALstring rtf);
