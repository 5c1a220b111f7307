// The RTF writer without a host (the round trip through the host is in rtf_host_test.cpp).
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "RTFRead.h"
#include "RTFWrite.h"

using namespace kxt::rtf;

namespace {

// A run described by value; turned into a GeneratorRun (which only views its data).
struct TestRun {
    std::u16string text;
    std::string font = "Arial";
    uint32_t color = 0;
    int64_t size = 12;
    bool bold = false, italic = false, underline = false;
    int64_t alignment = 0;
    bool fontIsNil = false;
};

std::string Generate(const std::vector<TestRun>& runs) {
    std::vector<GeneratorRun> records;
    for (const TestRun& r : runs) {
        GeneratorRun g;
        g.text = {reinterpret_cast<const uint16_t*>(r.text.data()), r.text.size()};
        g.font = r.font;
        g.fontIsNil = r.fontIsNil;
        g.color = r.color;
        g.size = r.size;
        g.bold = r.bold;
        g.italic = r.italic;
        g.underline = r.underline;
        g.alignment = r.alignment;
        records.push_back(g);
    }
    return GenerateRTF(records);
}

const std::string kHeader = "{\\rtf1\\ansi\\ansicpg1252{\\fonttbl{\\f0\\fnil Arial;}}";

struct TextCase {
    std::u16string text;
    std::string body;  // what follows "\f0\fs24 "
};

TEST(RTFGenerate, TextEscaping) {
    const TextCase cases[] = {
        {u"a{b}\\c\r\n\u00E9", "a\\{b\\}\\\\c\\par \\u233 "},
        {u"\U0001F600", "\\u55357 \\u56832 "},
        {u"\r\r|\n\n|\n\r|\r\n", "\\par \\par |\\par \\par |\\par |\\par "},
        {u"\r\n\r\n", "\\par "},  // the second pair follows an LF and a CR: both dropped
        {std::u16string(u"\0\1\2\3\4\5\6\7\10|\t\13\14\16\37\177", 16),
         "|\t\13\14\16\37\177"},  // 0 to 8 vanish, the rest up to 127 is written raw
        {u"\u0080\uFFFF\u4E2D;'", "\\u128 \\u65535 \\u20013 ;'"},
    };
    for (const auto& c : cases) {
        TestRun run{c.text};
        EXPECT_EQ(Generate({run}),
                  kHeader + "{\\colortbl\\red0\\green0\\blue0;}\\uc0 \\f0\\fs24 " + c.body + "}")
            << c.body;
    }
}

struct StateCase {
    const char* what;
    std::vector<TestRun> runs;
    std::string body;  // after "\uc0 "
};

TEST(RTFGenerate, ControlWordsOnlyWhereTheStateChanges) {
    const StateCase cases[] = {
        {"same style: no words, no blank", {{u"a"}, {u"b"}}, "\\f0\\fs24 ab"},
        {"size 0 writes nothing, then \\fs20",
         {{u"a", "Arial", 0, 0}, {u"b", "Arial", 0, 10}},
         "\\f0 a\\fs20 b"},
        {"first run in black writes no \\cf", {{u"a", "Arial", 0, 0}}, "\\f0 a"},
        {"alignment 0 and 1 both write \\ql, only on change",
         {{.text = u"a", .alignment = 0},
          {.text = u"b", .alignment = 1},
          {.text = u"c", .alignment = 0},
          {.text = u"d", .alignment = 2},
          {.text = u"e", .alignment = 3},
          {.text = u"f", .alignment = 7}},
         "\\f0\\fs24 a\\ql b\\ql c\\qc d\\qr e\\ql f"},
        {"flags in order bold, italic, underline",
         {{.text = u"a", .bold = true, .italic = true, .underline = true}, {.text = u"b"}},
         "\\b\\i\\ul\\f0\\fs24 a\\b0\\i0\\ul0 b"},
        {"a nil font keeps the previous one",
         {{.text = u"a", .font = "Arial"}, {.text = u"b", .font = "", .fontIsNil = true}},
         "\\f0\\fs24 ab"},
        {"half-points round", {{.text = u"a", .size = 11}}, "\\f0\\fs22 a"},
    };
    for (const auto& c : cases) {
        std::string rtf = Generate(c.runs);
        size_t body = rtf.find("\\uc0 ");
        ASSERT_NE(body, std::string::npos);
        EXPECT_EQ(rtf.substr(body + 5), c.body + "}") << c.what;
    }
}

TEST(RTFGenerate, TablesInOrderOfFirstUse) {
    std::vector<TestRun> runs = {
        {.text = u"a", .font = "Caf\xC3\xA9 Sans", .color = 0x010203},
        {.text = u"b", .font = "Arial", .color = 0xFF000000},  // the high byte is not written
        {.text = u"c", .font = "Caf\xC3\xA9 Sans", .color = 0x010203},
        {.text = u"d", .font = "", .color = 0, .fontIsNil = true},
    };
    EXPECT_EQ(
        Generate(runs),
        "{\\rtf1\\ansi\\ansicpg1252{\\fonttbl{\\f0\\fnil Caf\xC3\xA9 Sans;}{\\f1\\fnil Arial;}"
        "{\\f2\\fnil ;}}{\\colortbl\\red1\\green2\\blue3;\\red0\\green0\\blue0;"
        "\\red0\\green0\\blue0;}\\uc0 \\f0\\cf0\\fs24 a\\f1\\cf1 b\\f0\\cf0 c\\cf2 d}");
}

TEST(RTFGenerate, FontsCompareAsTheCallerSays) {
    std::vector<TestRun> runs = {{.text = u"a", .font = "Arial"}, {.text = u"b", .font = "ARIAL"}};
    std::vector<GeneratorRun> records(2);
    for (size_t i = 0; i < 2; ++i) {
        records[i].text = {reinterpret_cast<const uint16_t*>(runs[i].text.data()), 1};
        records[i].font = runs[i].font;
    }
    // A host that compares without case sees one font: no \f for the second run.
    std::string rtf = GenerateRTF(records, [](size_t, size_t) { return true; });
    EXPECT_NE(rtf.find("{\\f1\\fnil ARIAL;}"), std::string::npos);
    EXPECT_EQ(rtf.substr(rtf.find("\\uc0 ")), "\\uc0 \\f0 ab}");
}

}  // namespace
