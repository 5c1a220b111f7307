// StyledText.RTFDataKXT end to end: the plugin loaded into the emulated host, read and assigned
// through both ways of registering the property.
#include <random>
#include <string>
#include <vector>

#include "KxtTest.h"

using namespace kxt_test;
using xhost::ParagraphSpec;
using xhost::RunSpec;

namespace {

const std::string kOneRun =
    "{\\rtf1\\ansi\\ansicpg1252{\\fonttbl{\\f0\\fnil Arial;}}{\\colortbl\\red255\\green0\\blue0;}"
    "\\uc0 \\b\\f0\\cf0\\fs24 Hello}";

RunSpec Hello() {
    return {"Hello", "Arial", 12, true, false, false, 0xFF0000};
}

// ---- Registration: generated module (2013.0 up to below 3000.0) or real class extension ------

class RTFRegistration : public HostTest, public testing::WithParamInterface<double> {
  protected:
    xhost::HostOptions options() const override {
        xhost::HostOptions o;
        o.version = GetParam();
        return o;
    }
};

// Both ways of registering (checked in registration_test.cpp) read and assign.
TEST_P(RTFRegistration, ReadAndAssignWork) {
    // From 2013.0 up to below 3000.0 through a generated module, otherwise a class extension.
    EXPECT_EQ(host().classExtensions().empty(), GetParam() >= 2013.0 && GetParam() < 3000.0);
    Value text = host().newStyledText({Hello()});
    CallResult got = host().getRTF(text);
    ASSERT_FALSE(got.exception.has_value());
    EXPECT_EQ(got.value.bytes(), kOneRun);
    EXPECT_EQ(got.value.encoding(), kREALTextEncodingUTF8);

    Value target = host().newStyledText({{"old"}});
    CallResult set = host().setRTF(target, got.value);
    ASSERT_FALSE(set.exception.has_value());
    EXPECT_EQ(host().styleRuns(target), std::vector<RunSpec>{Hello()});
}

INSTANTIATE_TEST_SUITE_P(HostVersions, RTFRegistration,
                         testing::Values(2012.0, 2013.0, 2019.03, 2020.02, 2999.0, 3000.0));

// ---- The getter ---------------------------------------------------------------------------

class RTFGetter : public HostTest {
  protected:
    std::string rtf(const Value& text, bool skipParagraphs = false) {
        CallResult r = host().getRTF(text, skipParagraphs);
        EXPECT_FALSE(r.exception.has_value());
        return r.value.bytes();
    }
    // What follows "\uc0 ", for texts whose tables are not the point.
    std::string body(const Value& text, bool skipParagraphs = false) {
        std::string s = rtf(text, skipParagraphs);
        size_t at = s.find("\\uc0 ");
        return at == std::string::npos ? "(no body) " + s : s.substr(at + 5);
    }
};

TEST_F(RTFGetter, ExamplesByteForByte) {
    EXPECT_EQ(rtf(host().newStyledText({Hello()})), kOneRun);
    EXPECT_EQ(rtf(host().newStyledText({Hello(), {" world", "Arial", 12}})),
              "{\\rtf1\\ansi\\ansicpg1252{\\fonttbl{\\f0\\fnil Arial;}}{\\colortbl\\red255\\green0"
              "\\blue0;\\red0\\green0\\blue0;}\\uc0 \\b\\f0\\cf0\\fs24 Hello\\b0\\cf1  world}");
    EXPECT_EQ(body(host().newStyledText({{"a{b}\\c\r\n\xC3\xA9", "Arial", 12}})),
              "\\f0\\fs24 a\\{b\\}\\\\c\\par \\u233 }");
    EXPECT_EQ(body(host().newStyledText({{"\xF0\x9F\x98\x80", "Arial", 12}})),
              "\\f0\\fs24 \\u55357 \\u56832 }");
    // Fonts are told apart by the host's comparison, whatever the magnitude of its answer.
    EXPECT_EQ(body(host().newStyledText({{"a", "Arial", 12}, {"b", "Courier", 12}})),
              "\\f0\\fs24 a\\f1 b}");
}

TEST_F(RTFGetter, NothingToWriteGivesNil) {
    EXPECT_TRUE(host().getRTF(Value::nil()).value.isNil());
    EXPECT_TRUE(host().getRTF(host().newStyledText({})).value.isNil());
    // A run, but no paragraph: the text is empty.
    EXPECT_TRUE(host().getRTF(host().newStyledText({{"", "Arial", 12}})).value.isNil());
}

TEST_F(RTFGetter, NonASCIIFontNamesAreWrittenAsUTF8) {
    std::string s = rtf(host().newStyledText({{"x", "Caf\xC3\xA9 \xE5\xAE\x8B", 10}}));
    EXPECT_NE(s.find("{\\f0\\fnil Caf\xC3\xA9 \xE5\xAE\x8B;}"), std::string::npos) << s;
}

TEST_F(RTFGetter, RunsTakeTheAlignmentOfTheParagraphHoldingTheirMiddle) {
    auto run = [](std::string text) { return RunSpec{std::move(text), "Arial", 12}; };
    // Paragraphs "abc\r" (0 to 3) and "de" (4 to 5). "c\r" has its middle on 3, the end of
    // the first paragraph.
    Value text = host().newStyledText({run("ab"), run("c\r"), run("de")});
    host().setParagraphAlignment(text, 0, 2);
    host().setParagraphAlignment(text, 1, 3);
    EXPECT_EQ(body(text), "\\qc\\f0\\fs24 abc\\par \\qr de}");
    EXPECT_EQ(body(text, true), "\\f0\\fs24 abc\\par de}");

    // A run that straddles a paragraph end goes with the paragraph holding most of it.
    Value straddling = host().newStyledText({run("a\rbcd")});
    host().setParagraphAlignment(straddling, 1, 3);
    EXPECT_EQ(body(straddling), "\\qr\\f0\\fs24 a\\par bcd}");
    // Left (1) and default (0) both write "\ql", and only where the value changes.
    Value left = host().newStyledText({run("a\r"), run("b\r"), run("c")});
    host().setParagraphAlignment(left, 1, 1);
    EXPECT_EQ(body(left), "\\f0\\fs24 a\\par \\ql b\\par \\ql c}");
    // CR LF is one paragraph end, also split over two runs.
    EXPECT_EQ(host().paragraphs(host().newStyledText({run("a\r"), run("\nbc\r\nd")})).size(), 3u);
}

// ---- The setter ---------------------------------------------------------------------------

class RTFSetter : public HostTest {
  protected:
    std::vector<RunSpec> read(const std::string& rtf, std::vector<RunSpec> before = {{"old"}}) {
        Value text = host().newStyledText(before);
        CallResult r = host().setRTF(text, S(rtf, kREALTextEncodingUnknown));
        EXPECT_FALSE(r.exception.has_value());
        return host().styleRuns(text);
    }
    std::string textOf(const std::string& rtf) {
        std::string s;
        for (const auto& r : read(rtf)) s += r.text;
        return s;
    }
    std::vector<int64_t> alignments(const std::string& rtf) {
        Value text = host().newStyledText({});
        host().setRTF(text, S(rtf));
        std::vector<int64_t> out;
        for (const auto& p : host().paragraphs(text)) out.push_back(p.alignment);
        return out;
    }
};

TEST_F(RTFSetter, ExampleDocument) {
    EXPECT_EQ(
        read("{\\rtf1\\ansi{\\fonttbl{\\f0\\fnil Arial;}}{\\colortbl;\\red255\\green0\\blue0;}"
             "\\f0\\cf1\\fs24\\b Hello}"),
        std::vector<RunSpec>{Hello()});
}

TEST_F(RTFSetter, InputThatIsNotRTFLeavesTheTextEmpty) {
    for (std::string bad : {"", "{\\rtf", "{\\rtf}", "{\\rtx1 Hello}", " {\\rtf1 Hello}",
                            "{\\RTF1 Hello}", "Hello"}) {
        EXPECT_EQ(read(bad, {{"old"}, {"runs"}}), std::vector<RunSpec>{}) << bad;
    }
    Value text = host().newStyledText({{"old"}});
    host().setRTF(text, Value::nil());
    EXPECT_EQ(host().styleRuns(text), std::vector<RunSpec>{});
}

TEST_F(RTFSetter, TextIsDecodedByTheGroupsCodePage) {
    struct Case {
        std::string rtf, text;
    } cases[] = {
        {"{\\rtf1\\ansicpg1252 caf\\'e9\\par}", "caf\xC3\xA9\r"},
        {"{\\rtf1\\ansicpg1251 \\'cf\\'f0\\'e8\\par}", "\xD0\x9F\xD1\x80\xD0\xB8\r"},
        {"{\\rtf1\\mac \\'8e\\par}", "\xC3\xA9\r"},
        {"{\\rtf1 \\u20013 \\u-3913 x}", "\xE4\xB8\xAD\xE1\x9F\x87x"},
        {"{\\rtf1{\\*\\generator Writer 1.0;}\\u233?}", "\xC3\xA9"},
    };
    for (const auto& c : cases) EXPECT_EQ(textOf(c.rtf), c.text) << c.rtf;
}

TEST_F(RTFSetter, EscapesAboveTheBasicPlaneRoundTrip) {
    // The writer's two escapes for U+1F600 read back as one character; it is written again.
    const std::string rtf = "{\\rtf1\\f0 a\\u55357 \\u56832 b}";
    std::vector<RunSpec> runs = read(rtf);
    ASSERT_EQ(runs.size(), 3u);
    EXPECT_EQ(runs[1].text, "\xF0\x9F\x98\x80");
    Value text = host().newStyledText(runs);
    EXPECT_NE(host().getRTF(text).value.bytes().find("a\\u55357 \\u56832 b"), std::string::npos);
}

TEST_F(RTFSetter, AlignmentGoesToTheParagraphsThatRunsOpen) {
    EXPECT_EQ(alignments("{\\rtf1\\qc centred\\par\\pard plain\\par\\qr right}"),
              (std::vector<int64_t>{2, 2, 3}));
    // A run that opens no paragraph sets no alignment.
    EXPECT_EQ(alignments("{\\rtf1 a\\qc b\\qr c}"), (std::vector<int64_t>{0}));
    EXPECT_EQ(alignments("{\\rtf1\\ql a\\par\\qj b\\par}"), (std::vector<int64_t>{1, 1}));
}

TEST_F(RTFSetter, MalformedInputNeverBreaksOrLeaks) {
    std::string deep = "{\\rtf1 " + std::string(100000, '{') + "x" + std::string(100000, '}');
    std::string deepFormatted = "{\\rtf1 ";
    for (int i = 0; i < 100000; ++i) deepFormatted += "{\\b\\i ";
    const std::string cases[] = {
        "{\\rtf1 unbalanced {{{",
        "{\\rtf1 }}}}} after",
        "{\\rtf1 \\",
        "{\\rtf1 \\'",
        "{\\rtf1 \\'4",
        "{\\rtf1 \\u",
        "{\\rtf1 \\u-",
        "{\\rtf1 \\fs99999999999999999999999999 x}",
        "{\\rtf1 \\u99999999999999999999 x}",
        "{\\rtf1 \\cf-99999999999 \\f99999999999 x}",
        "{\\rtf1 a\\bin99999 b}",
        "{\\rtf1 a\\bin",
        "{\\rtf1 {\\fonttbl{\\f0 Unterminated",
        "{\\rtf1 {\\colortbl\\red",
        std::string("{\\rtf1 a\0b\\'00c}", 16),
        "{\\rtf1 \xFF\xFE\x80 \\'ff}",
        "{\\rtf1\\ansicpg936 \\'81}",
        "{\\rtf1\\ansicpg65001 \\'e2\\'82}",
        deep,
        deepFormatted,
    };
    for (const auto& rtf : cases) {
        Value text = host().newStyledText({{"old"}});
        CallResult r = host().setRTF(text, S(rtf, kREALTextEncodingUnknown));
        EXPECT_FALSE(r.exception.has_value()) << rtf.substr(0, 60);
        host().styleRuns(text);
        host().paragraphs(text);
        EXPECT_TRUE(host().getRTF(text).exception == std::nullopt);
    }
}

// ---- Round trip ---------------------------------------------------------------------------

struct StyledChar {
    char32_t c;
    std::string font;
    int64_t size;
    uint32_t color;
    bool bold, italic, underline;
    bool operator==(const StyledChar&) const = default;
};

void PrintTo(const StyledChar& c, std::ostream* os) {
    *os << "U+" << std::hex << uint32_t(c.c) << std::dec << " " << c.font << " " << c.size << " "
        << std::hex << c.color << std::dec << " " << c.bold << c.italic << c.underline;
}

std::u32string Decode(const std::string& utf8) {
    std::u32string out;
    for (size_t i = 0; i < utf8.size();) {
        const auto b = static_cast<unsigned char>(utf8[i]);
        const size_t n = b < 0x80 ? 1 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : 4;
        char32_t c = n == 1 ? b : n == 2 ? b & 0x1F : n == 3 ? b & 0x0F : b & 0x07;
        for (size_t k = 1; k < n && i + k < utf8.size(); ++k) {
            c = (c << 6) | char32_t(utf8[i + k] & 0x3F);
        }
        out += c;
        i += n;
    }
    return out;
}

std::string Show(const std::vector<RunSpec>& runs) {
    std::string s;
    for (const auto& r : runs) {
        s += "[" + testing::PrintToString(r.text) + " " + r.font + " " + std::to_string(r.size) +
             " " + std::to_string(r.color) + " " + std::to_string(r.bold) +
             std::to_string(r.italic) + std::to_string(r.underline) + "]";
    }
    return s;
}

int64_t Left(int64_t a) {
    return a == 0 ? 1 : a;
}  // "\ql" is written for 0 and 1 alike

class RTFRoundTrip : public RTFRegistration {};

// Random styled texts written by the getter and read back by the setter: the same characters
// (line ends as the reader writes them, characters 0 to 8 dropped) with the same font, size,
// flags and colour; and each paragraph aligned like the run that holds its first character.
TEST_P(RTFRoundTrip, StyledTextsReadBackAsWritten) {
    const std::string pool[] = {"a",
                                "Z",
                                "7",
                                " ",
                                "\\",
                                "{",
                                "}",
                                ";",
                                "\t",
                                "\r",
                                "\n",
                                "\r\n",
                                "\x01",
                                "\x7F",
                                "\xC3\xA9",
                                "\xC3\xBC",
                                "\xE4\xB8\xAD",
                                "\xE6\x97\xA5",
                                "\xCE\xA9",
                                "\xE2\x82\xAC",
                                "\xF0\x9F\x98\x80",
                                "\xF0\x90\x80\x80",
                                "\\par",
                                "b0"};
    const std::string fonts[] = {"Arial", "Times New Roman", "Caf\xC3\xA9 Sans",
                                 "\xE5\xAE\x8B\xE4\xBD\x93", "Courier"};
    std::mt19937 rng(4242);
    for (int round = 0; round < 120; ++round) {
        std::vector<RunSpec> runs(1 + rng() % 6);
        for (RunSpec& r : runs) {
            int n = 1 + int(rng() % 10);
            for (int i = 0; i < n; ++i) r.text += pool[rng() % std::size(pool)];
            r.font = fonts[rng() % std::size(fonts)];
            r.size = rng() % 5 == 0 ? 0 : 1 + int64_t(rng() % 120);
            r.bold = rng() & 1;
            r.italic = rng() & 1;
            r.underline = rng() & 1;
            r.color = rng() % 3 == 0 ? 0 : rng() & 0xFFFFFF;
        }
        Value original = host().newStyledText(runs);
        std::vector<ParagraphSpec> paragraphs = host().paragraphs(original);
        for (size_t i = 0; i < paragraphs.size(); ++i) {
            host().setParagraphAlignment(original, int64_t(i), int64_t(rng() % 4));
        }
        paragraphs = host().paragraphs(original);

        CallResult written = host().getRTF(original);
        ASSERT_FALSE(written.exception.has_value());
        Value copy = host().newStyledText({});
        ASSERT_FALSE(host().setRTF(copy, written.value).exception.has_value());

        // Expected: each run's characters as the writer keeps them, and each run's alignment
        // from the paragraph that holds its middle character.
        std::vector<StyledChar> want;
        std::vector<int64_t> wantAlignment;
        int64_t position = 0;
        for (const RunSpec& r : runs) {
            std::u32string chars = Decode(r.text);
            int64_t middle = position + int64_t(chars.size()) / 2;
            position += int64_t(chars.size());
            int64_t alignment = 0;
            for (const auto& p : paragraphs) {
                if (middle >= p.start && middle <= p.end) alignment = p.alignment;
            }
            char32_t prev = 0;
            for (char32_t c : chars) {
                bool dropped = c <= 8 || (c == '\n' && prev == '\r') || (c == '\r' && prev == '\n');
                prev = c;
                if (dropped) continue;
                want.push_back({c == '\n' ? U'\r' : c, r.font, r.size, r.color, r.bold, r.italic,
                                r.underline});
                wantAlignment.push_back(alignment);
            }
        }
        std::vector<StyledChar> got;
        for (const RunSpec& r : host().styleRuns(copy)) {
            for (char32_t c : Decode(r.text)) {
                got.push_back({c, r.font, r.size, r.color, r.bold, r.italic, r.underline});
            }
        }
        ASSERT_EQ(got, want) << Show(runs) << "\n" << written.value.bytes();

        std::vector<int64_t> wantParagraphs;
        for (size_t i = 0; i < want.size(); ++i) {
            if (i == 0 || want[i - 1].c == U'\r') wantParagraphs.push_back(Left(wantAlignment[i]));
        }
        std::vector<int64_t> gotParagraphs;
        for (const auto& p : host().paragraphs(copy)) gotParagraphs.push_back(Left(p.alignment));
        ASSERT_EQ(gotParagraphs, wantParagraphs) << Show(runs) << "\n" << written.value.bytes();
    }
}

INSTANTIATE_TEST_SUITE_P(HostVersions, RTFRoundTrip, testing::Values(2012.0, 2019.03, 3000.0));

// ---- Hosts whose StyleRun calls the font "FontName" -----------------------------------------

class RTFFontNameHost : public HostTest {
  protected:
    xhost::HostOptions options() const override {
        xhost::HostOptions o;
        o.styleRunFontName = true;
        return o;
    }
};

TEST_F(RTFFontNameHost, SetterFallsBackToFontName) {
    Value text = host().newStyledText({});
    testing::internal::CaptureStderr();
    host().setDebugging(true);
    host().setRTF(text, S(kOneRun));
    host().setDebugging(false);
    std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(host().styleRuns(text), std::vector<RunSpec>{Hello()});
    EXPECT_NE(log.find("KXT Debug: Failed to set Font property, trying FontName.\n"),
              std::string::npos)
        << log;
    EXPECT_NE(log.find("KXT Debug: fontSet "), std::string::npos) << log;
    EXPECT_EQ(log.find("Failed to set FontName property."), std::string::npos) << log;
}

TEST_F(RTFFontNameHost, GetterReadsOnlyFontSoTheNameIsLost) {
    // The reader asks for "Font" alone: every run has no font, and no "\f" is written.
    Value text = host().newStyledText({Hello()});
    EXPECT_EQ(host().getRTF(text).value.bytes(),
              "{\\rtf1\\ansi\\ansicpg1252{\\fonttbl{\\f0\\fnil ;}}{\\colortbl\\red255\\green0"
              "\\blue0;}\\uc0 \\b\\cf0\\fs24 Hello}");
}

// ---- Debug log ----------------------------------------------------------------------------

TEST_F(RTFSetter, DebugLogFollowsTheBuilder) {
    Value text = host().newStyledText({{"one"}, {"two"}, {"three"}});
    testing::internal::CaptureStderr();
    ASSERT_TRUE(host().setDebugging(true));
    host().setRTF(text, S("{\\rtf1\\qc a\\par\\u0 \\b\\'00}"));
    host().setDebugging(false);
    std::string log = testing::internal::GetCapturedStderr();
    const char* inOrder[] = {
        "KXT Debug: StyledTextClear\n",
        "KXT Debug: StyledTextRemoveStyleRun 2\n",
        "KXT Debug: StyledTextRemoveStyleRun 1\n",
        "KXT Debug: StyledTextRemoveStyleRun 0\n",
        "KXT Debug: StyleRunSetBold 0\n",
        "KXT Debug: StyleRunSetFontName ",
        "KXT Debug: NewParagraphCount 1\n",
        "KXT Debug: SetParagraphAlignment 0, 2\n",
        "KXT Debug: Ignore null character\n",
        "KXT Debug: StyleRunSetBold 1\n",
        "KXT Debug: NewText ",
    };
    size_t at = 0;
    for (const char* line : inOrder) {
        size_t found = log.find(line, at);
        ASSERT_NE(found, std::string::npos) << line << "\n" << log;
        at = found + 1;
    }
    EXPECT_EQ(host().paragraphs(text).at(0).alignment, 2);
}

}  // namespace

namespace {

// The kxt tool's rtf command, run as a program.
TEST(RTFTool, PrintsRunsParagraphsAndTheRTFReadBack) {
    std::string command = programCommand(std::string(KXT_BINARY_DIR) + "/kxt rtf --roundtrip " +
                                         KXT_TEST_DATA + "/rtf/small.rtf");
    FILE* pipe = popen(command.c_str(), "r");
    ASSERT_NE(pipe, nullptr);
    std::string out;
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
    EXPECT_EQ(pclose(pipe), 0);
    EXPECT_EQ(out,
              "runs: 3\n"
              "  0: \"Title\" font=\"Arial\" size=12 color=#000000 bold\n"
              "  1: \"\\r\" font=\"Arial\" size=12 color=#000000\n"
              "  2: \"caf\xC3\xA9x\\r\" font=\"Arial\" size=12 color=#FF0000\n"
              "paragraphs: 2\n"
              "  0: 0-5 alignment=2 (centre)\n"
              "  1: 6-11 alignment=1 (left)\n"
              "rtf:\n"
              "{\\rtf1\\ansi\\ansicpg1252{\\fonttbl{\\f0\\fnil Arial;}}{\\colortbl\\red0\\green0"
              "\\blue0;\\red255\\green0\\blue0;}\\uc0 \\qc\\b\\f0\\fs24 Title\\b0 \\par \\ql\\cf1 "
              "caf\\u233 x\\par }\n");
}

}  // namespace
