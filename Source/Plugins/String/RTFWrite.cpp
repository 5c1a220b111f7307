// The RTF reader behind the setter of StyledText.RTFDataKXT.
#include "RTFWrite.h"

#include <cstring>
#include <deque>

#include "REALplugin.h"
#include "rbCreateStyleRun.h"
#include "rbData.h"
#include "rbDebug.h"
#include "rbRef.h"
#include "rbUtil.h"

namespace kxt::rtf {

namespace {

bool IsLowerLetter(char c) {
    return c >= 'a' && c <= 'z';
}
bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

// Numbers wrap instead of overflowing: a huge parameter is a fixed, meaningless value.
int64_t Wrapped(uint64_t v) {
    return static_cast<int64_t>(v);
}

// A parameter as a table key; numbers outside 32 bits name no entry.
bool AsKey(int64_t parameter, int32_t& key) {
    if (parameter < INT32_MIN || parameter > INT32_MAX) return false;
    key = static_cast<int32_t>(parameter);
    return true;
}

}  // namespace

int64_t ForwardOverDelimiter(std::string_view text, int64_t pos) {
    char c = ByteAt(text, pos);
    if (c == '\\' || c == ';' || c == '{' || c == '}') return pos - 1;
    if (c == '\r') {
        // Looks two bytes ahead, not one: a CR LF pair after a word consumes only the CR.
        if (ByteAt(text, pos + 1) != '\0' && ByteAt(text, pos + 2) == '\n') return pos + 1;
        return pos;
    }
    return pos;
}

int64_t ReadCommand(std::string_view text, int64_t pos, std::string& word, int64_t& parameter) {
    word.clear();
    parameter = -1;
    if (ByteAt(text, pos - 2) == '{' && ByteAt(text, pos - 1) == '\\' && ByteAt(text, pos) == '*' &&
        ByteAt(text, pos + 1) == '\\') {
        pos += 2;  // "{\*\word": read the word behind the ignorable-destination mark
    }
    int64_t start = pos;
    while (IsLowerLetter(ByteAt(text, pos))) ++pos;
    word.assign(text.substr(size_t(start), size_t(pos - start)));

    char c = ByteAt(text, pos);
    if (IsDigit(c)) {
        uint64_t value = uint64_t(c - '0');
        ++pos;
        while (IsDigit(ByteAt(text, pos))) value = value * 10 + uint64_t(ByteAt(text, pos++) - '0');
        parameter = Wrapped(value);
    } else if (c == '-') {
        // Digits after a minus sign accumulate from -1 and the sum is negated: "-5" reads 5,
        // "-12" reads 88. Writers' negative \u values come out positive; this is relied on.
        ++pos;
        uint64_t value = uint64_t(-1);
        while (IsDigit(ByteAt(text, pos))) value = value * 10 + uint64_t(ByteAt(text, pos++) - '0');
        parameter = Wrapped(0 - value);
    } else if (c == '\'' && word.empty()) {
        // "\'hh" outside the body: upper-case digits only, starting from -1, so two digits give
        // the byte minus 256. The byte that ends the digits is consumed with them.
        word = "u";
        ++pos;
        uint64_t value = uint64_t(-1);
        for (;;) {
            char d = ByteAt(text, pos);
            int v = (d >= 'a' && d <= 'f') ? -1 : HexValue(d);
            if (v < 0) break;
            value = value * 16 + uint64_t(v);
            ++pos;
        }
        parameter = Wrapped(value);
        return pos;
    } else if ((c == '\r' || c == '\n') && word.empty()) {
        word = "par";  // a backslash at the end of a line
        ++pos;
    }
    return ForwardOverDelimiter(text, pos);
}

FontMap ReadFontTable(std::string_view text, int64_t& pos) {
    FontMap fonts;
    std::string name;
    name.reserve(100);
    int32_t number = 0;
    int64_t depth = 0;
    int64_t skip = 0;
    bool groupOpened = false;
    std::string word;
    int64_t parameter = 0;
    for (;;) {
        char c = ByteAt(text, pos + 1);
        if (c == '\0') break;
        ++pos;
        if (c == '{') {
            ++depth;
            groupOpened = true;
            if (skip > 0) ++skip;
        } else if (c == '}') {
            if (depth == 0) break;  // the table's own closing brace
            --depth;
            groupOpened = false;
            if (skip > 0) --skip;
        } else if (c == '\\') {
            pos = ReadCommand(text, pos + 1, word, parameter);
            int32_t key;
            if (word == "f") {
                if (AsKey(parameter, key)) number = key;
            } else if (skip == 0 && groupOpened) {
                skip = 1;  // "{\*\panose ...}", "{\falt ...}": the whole group is not a name
            }
            groupOpened = false;
        } else if (skip > 0) {
            // inside an ignored group
        } else if (c == ';') {
            fonts[number] = name;
            name.clear();
        } else {
            name.push_back(c);
        }
    }
    return fonts;
}

ColorMap ReadColorTable(std::string_view text, int64_t& pos) {
    ColorMap colors;
    int64_t index = 0;
    RTFColor color;
    std::string word;
    int64_t parameter = 0;
    for (;;) {
        char c = ByteAt(text, pos + 1);
        if (c == '\0') break;
        ++pos;
        if (c == '}') {
            pos = ForwardOverDelimiter(text, pos + 1);
            break;
        }
        if (c == '\\') {
            pos = ReadCommand(text, pos + 1, word, parameter);
            if (word == "red") color.red = int32_t(parameter);
            if (word == "green") color.green = int32_t(parameter);
            if (word == "blue") color.blue = int32_t(parameter);
        } else if (c == ';') {
            colors[int32_t(index)] = color;
            ++index;
            color = RTFColor{};
        }
    }
    return colors;
}

uint32_t FindEncoding(int64_t codePage) {
    struct CodePage {
        int64_t codePage;
        uint32_t encoding;
    };
    static constexpr CodePage kCodePages[] = {
        {437, kREALTextEncodingDOSLatinUS},
        {850, kREALTextEncodingDOSLatin1},
        {852, kREALTextEncodingDOSLatin2},
        {860, kREALTextEncodingDOSPortuguese},
        {862, kREALTextEncodingDOSHebrew},
        {863, kREALTextEncodingDOSCanadianFrench},
        {864, kREALTextEncodingDOSArabic},
        {865, kREALTextEncodingDOSNordic},
        {866, kREALTextEncodingDOSRussian},
        {874, kREALTextEncodingDOSThai},
        {932, kREALTextEncodingDOSJapanese},
        {936, kREALTextEncodingDOSChineseSimplified},
        {949, kREALTextEncodingDOSKorean},
        {950, kREALTextEncodingDOSChineseTraditional},
        {1250, kREALTextEncodingWindowsLatin2},
        {1251, kREALTextEncodingWindowsCyrillic},
        {1252, kREALTextEncodingWindowsLatin1},
        {1253, kREALTextEncodingWindowsGreek},
        {1254, kREALTextEncodingWindowsLatin5},
        {1255, kREALTextEncodingWindowsHebrew},
        {1256, kREALTextEncodingWindowsArabic},
        {1257, kREALTextEncodingWindowsBalticRim},
        {1258, kREALTextEncodingWindowsVietnamese},
        {1361, kREALTextEncodingWindowsKoreanJohab},
        {10000, kREALTextEncodingMacRoman},
        {10001, kREALTextEncodingMacJapanese},
        {10004, kREALTextEncodingMacArabic},
        {10005, kREALTextEncodingMacHebrew},
        {10006, kREALTextEncodingMacGreek},
        {10007, kREALTextEncodingMacCyrillic},
        {10029, kREALTextEncodingMacCentralEurRoman},
        {10081, kREALTextEncodingMacTurkish},
    };
    for (const CodePage& entry : kCodePages) {
        if (entry.codePage == codePage) return entry.encoding;
    }
    return kREALTextEncodingWindowsLatin1;
}

namespace {

// The formatting of one open group. Font names are shared, so opening a group costs the same
// however long the name is.
struct GroupState {
    std::shared_ptr<const std::string> font;
    int64_t size = 0;
    uint32_t encoding = kREALTextEncodingWindowsLatin1;
    RTFColor color;
    bool bold = false;
    bool italic = false;
    bool underline = false;
};

// The open groups, innermost last. A group shares its enclosing group's entry until it changes
// something, so nesting plain braces costs no memory however deep it goes.
class GroupStack {
  public:
    bool empty() const { return entries_.empty(); }
    void push() {
        if (entries_.empty()) {
            entries_.push_back({GroupState{}, 1});
        } else {
            ++entries_.back().count;
        }
    }
    void pop() {
        if (!entries_.empty() && --entries_.back().count == 0) entries_.pop_back();
    }
    const GroupState& top() const { return entries_.back().state; }
    // The group around the innermost one, or none.
    const GroupState* enclosing() const {
        if (entries_.empty()) return nullptr;
        if (entries_.back().count > 1) return &entries_.back().state;
        return entries_.size() >= 2 ? &entries_[entries_.size() - 2].state : nullptr;
    }
    // The innermost group's own state, split from the groups that share it.
    GroupState& writableTop() {
        Entry& e = entries_.back();
        if (e.count > 1) {
            --e.count;
            Entry copy{e.state, 1};
            entries_.push_back(std::move(copy));
        }
        return entries_.back().state;
    }

  private:
    struct Entry {
        GroupState state;
        int64_t count;
    };
    std::deque<Entry> entries_;  // grows in blocks: no copying of deep stacks
};

class Parser {
  public:
    Parser(std::string_view text, ParseSink& sink) : text_(text), sink_(sink) {
        buffer_.reserve(10000);
    }

    void run() {
        const int64_t size = int64_t(text_.size());
        while (pos_ + 1 < size) {
            ++pos_;
            char c = text_[size_t(pos_)];
            switch (c) {
                case '{':
                    groups_.push();
                    groupOpened_ = true;
                    if (skip_ > 0) ++skip_;
                    break;
                case '}':
                    flush(groups_.enclosing() ? groups_.enclosing()->encoding
                                              : kREALTextEncodingWindowsLatin1);
                    groups_.pop();
                    if (skip_ > 0) --skip_;
                    groupOpened_ = false;
                    break;
                case '\r':
                case '\n':
                    // Line ends in the source only cut runs; they are not text.
                    flush(currentEncoding());
                    break;
                case '\\':
                    backslash();
                    break;
                default:
                    if (skip_ > 0) break;
                    addText(c);
                    groupOpened_ = false;
                    break;
            }
        }
        flush(currentEncoding());
    }

  private:
    uint32_t currentEncoding() const {
        return groups_.empty() ? kREALTextEncodingWindowsLatin1 : groups_.top().encoding;
    }

    RunStyle currentStyle() const {
        static const GroupState kNoGroup;
        const GroupState& g = groups_.empty() ? kNoGroup : groups_.top();
        RunStyle style;
        if (g.font) style.font = *g.font;
        style.size = g.size;
        style.color =
            (uint32_t(g.color.red) << 16) | (uint32_t(g.color.green) << 8) | uint32_t(g.color.blue);
        style.bold = g.bold;
        style.italic = g.italic;
        style.underline = g.underline;
        return style;
    }

    void ensureRun() {
        if (!sink_.hasRun()) sink_.startRun(currentStyle());
    }

    void flush(uint32_t encoding) { sink_.flush(encoding, buffer_, alignment_); }

    // Text reaches the buffer here. Line ends that come before any text (escaped line breaks
    // in the header) are dropped, so they do not open empty paragraphs; "\par" and "\u" do not
    // pass here and always count.
    void addText(char c) {
        if (skip_ > 0) return;
        if ((c == '\r' || c == '\n') && !textStarted_) return;
        ensureRun();
        buffer_.push_back(c);
        textStarted_ = true;
    }

    void backslash() {
        char d = ByteAt(text_, pos_ + 1);
        switch (d) {
            case '\n':
                ++pos_;
                addText('\r');
                groupOpened_ = false;
                return;
            case '\r':
                ++pos_;
                addText('\r');
                flush(currentEncoding());
                if (ByteAt(text_, pos_ + 1) == '\n') ++pos_;
                groupOpened_ = false;
                return;
            case '\'': {
                ++pos_;
                int value = -1;
                for (int i = 0; i < 2; ++i) {
                    int v = HexValue(ByteAt(text_, pos_ + 1));
                    if (v < 0) break;
                    value = (value < 0 ? 0 : value * 16) + v;
                    ++pos_;
                }
                // The byte is decoded later, by the encoding of the group that flushes it.
                if (value >= 0) addText(char(value));
                groupOpened_ = false;
                return;
            }
            case '\\':
            case '{':
            case '}':
                ++pos_;
                addText(d);
                groupOpened_ = false;
                return;
            default:
                break;
        }
        pos_ = ReadCommand(text_, pos_ + 1, word_, parameter_);
        controlWord();
        groupOpened_ = false;
    }

    void controlWord() {
        if (groups_.empty() || skip_ > 0) return;
        const uint32_t encoding = groups_.top().encoding;
        auto g = [this]() -> GroupState& { return groups_.writableTop(); };
        const std::string& w = word_;
        const int64_t p = parameter_;
        if (w == "bin") {
            if (p > 0) {
                int64_t left = int64_t(text_.size()) - 1 - pos_;
                pos_ += (p < left) ? p : left;
            }
        } else if (w == "rtf" || w == "partightenfactor" || w == "paperw" || w == "paperh" ||
                   w == "pard" || w == "pardirnatural") {
            // "pard" is deliberately ignored: it resets neither alignment nor formatting.
        } else if (w == "ansicpg") {
            flush(encoding);
            g().encoding = FindEncoding(p);
        } else if (w == "ansi") {
            flush(encoding);
            g().encoding = kREALTextEncodingWindowsLatin1;
        } else if (w == "mac") {
            flush(encoding);
            g().encoding = kREALTextEncodingMacRoman;
        } else if (w == "b") {
            flush(encoding);
            g().bold = p != 0;
        } else if (w == "i") {
            flush(encoding);
            g().italic = p != 0;
        } else if (w == "ul") {
            flush(encoding);
            g().underline = p != 0;
        } else if (w == "ulnone") {
            flush(encoding);
            g().underline = false;
        } else if (w == "u") {
            flush(encoding);
            ensureRun();
            unicodeCharacter(char16_t(uint64_t(p) & 0xFFFF));
            textStarted_ = true;
        } else if (w == "fonttbl") {
            fonts_ = ReadFontTable(text_, pos_);
        } else if (w == "colortbl") {
            colors_ = ReadColorTable(text_, pos_);
        } else if (w == "cf") {
            flush(encoding);
            int32_t key;
            auto it = AsKey(p, key) ? colors_.find(key) : colors_.end();
            g().color = it != colors_.end() ? it->second : RTFColor{};
        } else if (w == "f") {
            flush(encoding);
            int32_t key;
            auto it = AsKey(p, key) ? fonts_.find(key) : fonts_.end();
            g().font =
                it != fonts_.end() ? std::make_shared<const std::string>(it->second) : nullptr;
        } else if (w == "par") {
            ensureRun();
            buffer_.push_back('\r');
            flush(encoding);
            textStarted_ = true;
        } else if (w == "qc") {
            flush(encoding);
            alignment_ = 2;
        } else if (w == "qr") {
            flush(encoding);
            alignment_ = 3;
        } else if (w == "ql" || w == "qj") {
            flush(encoding);
            alignment_ = 1;  // justified text is taken as left-aligned
        } else if (w == "fs" || w == "upr") {
            flush(encoding);
            g().size = p / 2;  // half-points
        } else if (groupOpened_) {
            skip_ = 1;  // an unknown destination: "{\*\generator ...}", "{\info ...}"
        }
    }

    // A character outside the BMP is written as two "\uN", high then low surrogate: the pair is
    // read back as one character. A surrogate without its partner names no character and
    // becomes U+FFFD.
    void unicodeCharacter(char16_t unit) {
        char16_t units[2] = {unit, 0};
        size_t count = 1;
        if (unit >= 0xD800 && unit <= 0xDBFF && readLowSurrogate(units[1])) {
            count = 2;
        } else if (unit >= 0xD800 && unit <= 0xDFFF) {
            units[0] = 0xFFFD;
        }
        sink_.addUnits({units, count}, alignment_);
    }

    // Consumes a "\uN" that directly follows and holds a low surrogate.
    bool readLowSurrogate(char16_t& low) {
        if (ByteAt(text_, pos_ + 1) != '\\' || ByteAt(text_, pos_ + 2) != 'u') return false;
        std::string word;
        int64_t parameter = 0;
        int64_t end = ReadCommand(text_, pos_ + 2, word, parameter);
        char16_t unit = char16_t(uint64_t(parameter) & 0xFFFF);
        if (word != "u" || unit < 0xDC00 || unit > 0xDFFF) return false;
        low = unit;
        pos_ = end;
        return true;
    }

    std::string_view text_;
    ParseSink& sink_;
    int64_t pos_ = -1;
    GroupStack groups_;  // a stack, so nesting depth costs no call depth
    std::string buffer_;
    int64_t alignment_ = 0;  // parser-wide: survives closing braces
    FontMap fonts_;
    ColorMap colors_;
    int64_t skip_ = 0;
    bool groupOpened_ = false;
    bool textStarted_ = false;
    std::string word_;
    int64_t parameter_ = 0;
};

}  // namespace

void ParseRTF(std::string_view rtf, ParseSink& sink) {
    if (rtf.size() < 7 || rtf.substr(0, 5) != "{\\rtf") return;
    // The document ends at its first zero byte.
    size_t end = rtf.find('\0');
    if (end != std::string_view::npos) rtf = rtf.substr(0, end);
    Parser(rtf, sink).run();
}

void RunCollector::startRun(const RunStyle& style) {
    current_ = std::make_unique<RunStyle>(style);
}

void RunCollector::flush(uint32_t encoding, std::string& buffer, int64_t alignment) {
    if (buffer.empty()) {
        current_.reset();
        return;
    }
    if (current_) {
        // The builder takes the bytes as a C string: they end at the first zero byte.
        append(encoding, std::string(buffer.c_str()), alignment);
    }
    buffer.clear();
}

void RunCollector::addUnits(std::u16string_view units, int64_t alignment) {
    if (units.empty() || units[0] == 0) {
        current_.reset();
        return;
    }
    if (!current_) return;
    std::string bytes(units.size() * 2, '\0');
    std::memcpy(bytes.data(), units.data(), bytes.size());
    append(kREALTextEncodingUTF16, std::move(bytes), alignment);
}

void RunCollector::append(uint32_t encoding, std::string bytes, int64_t alignment) {
    int64_t before = paragraphs_;
    auto see = [&](uint32_t c) {
        if (c == '\n' && lastWasCR_) {
            lastWasCR_ = false;
            return;  // the LF of a CR LF pair
        }
        if (endsWithLineEnd_) {
            ++paragraphs_;
            endsWithLineEnd_ = false;
        }
        if (c == '\r' || c == '\n') endsWithLineEnd_ = true;
        lastWasCR_ = c == '\r';
    };
    if (encoding == kREALTextEncodingUTF16) {
        uint16_t unit;
        std::memcpy(&unit, bytes.data(), 2);
        see(unit);
    } else {
        for (char c : bytes) see(uint8_t(c));
    }
    if (before != paragraphs_ && alignment >= 0) {
        if (paragraphAlignments.size() < size_t(paragraphs_)) {
            paragraphAlignments.resize(size_t(paragraphs_), 0);
        }
        paragraphAlignments[size_t(before)] = alignment;
    }
    if (paragraphAlignments.size() < size_t(paragraphs_)) {
        paragraphAlignments.resize(size_t(paragraphs_), 0);
    }
    runs.push_back({*current_, encoding, std::move(bytes), alignment});
    current_.reset();
}

}  // namespace kxt::rtf

namespace {

// Builds the runs as host StyleRun objects appended to one StyledText.
class StyledTextSink : public kxt::rtf::ParseSink {
  public:
    explicit StyledTextSink(REALobject styledText) : styledText_(styledText) {}

    bool hasRun() const override { return bool(run_); }

    void startRun(const kxt::rtf::RunStyle& style) override {
        run_.reset(NewStyleRun());
        StyleRunSetBold(run_.get(), style.bold);
        StyleRunSetItalic(run_.get(), style.italic);
        StyleRunSetUnderline(run_.get(), style.underline);
        StyleRunSetSize(run_.get(), style.size);
        StyleRunSetTextColor(run_.get(), style.color);
        const HostString font(CString2RB(style.font.c_str(), kREALTextEncodingUTF8));
        StyleRunSetFontName(run_.get(), font.get());
    }

    void flush(uint32_t encoding, std::string& buffer, int64_t alignment) override {
        StyledTextAddStyleRun(encoding, buffer, styledText_, run_, alignment);
    }

    void addUnits(std::u16string_view units, int64_t alignment) override {
        StyledTextAddStyleRun(units, styledText_, run_, alignment);
    }

  private:
    REALobject styledText_;
    HostObject run_;
};

}  // namespace

void RTFWrite(REALobject styledText, RBBoolean, REALstring rtf) {
    // Assignment never raises: whatever goes wrong leaves the text as far as it was read.
    try {
        StyledTextClear(styledText);
        rbData bytes(rtf);
        StyledTextSink sink(styledText);
        kxt::rtf::ParseRTF(bytes.view(), sink);
    } catch (...) {
        if (gDebugging) LogMessage("RTFWrite stopped by an exception.");
    }
}
