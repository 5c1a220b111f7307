// RTF control words, delimiters, font and colour tables, code pages.
#include <gtest/gtest.h>
#include <iconv.h>

#include <string>

#include "Encodings.h"
#include "RTFWrite.h"

using namespace kxt::rtf;

namespace {

struct CommandCase {
    std::string text;  // the command starts after the first backslash
    std::string word;
    int64_t parameter;
    int64_t end;  // position of the last byte of the command
};

TEST(RTFReadCommand, WordsParametersAndDelimiters) {
    const CommandCase cases[] = {
        {"\\b0 x", "b", 0, 3},     // the blank is consumed
        {"\\b\\i", "b", -1, 1},    // the backslash is left for the next token
        {"\\fs24;", "fs", 24, 4},  // ";" is not consumed
        {"\\fs24{", "fs", 24, 4},  // nor "{"
        {"\\fs24}", "fs", 24, 4},  // nor "}"
        {"\\par x", "par", -1, 4},
        {"\\par!x", "par", -1, 4},  // a text byte after it is consumed as delimiter
        {"\\Par", "", -1, 1},       // upper case ends the word at once
        {"\\ansicpg1252\\f", "ansicpg", 1252, 11},
        {"\\u233?", "u", 233, 5},  // a one-byte fallback right after the number goes
        {"\\u233 ?", "u", 233, 5},
        {"\\u-3913?", "u", 6087, 7},  // negative numbers: accumulated from -1, negated
        {"\\u-5 ", "u", 5, 4},
        {"\\u-12 ", "u", 88, 5},
        {"\\u- ", "u", 1, 3},
        {"\\'E9 ", "u", -23, 4},  // hex: from -1, so the low byte is 0xE9; blank taken
        {"\\'E9x", "u", -23, 4},
        {"\\'e9 ", "u", -1, 2},      // lower-case letters are no digits here
        {"\\'41\\b", "u", -191, 4},  // the ending byte is consumed even when a backslash
        {"\\'", "u", -1, 2},         // at the end: the zero byte ends the loop
        {"\\\nx", "par", -1, 2},     // backslash at the end of a line
        {"\\\rx", "par", -1, 2},
        {"\\b\r\n", "b", -1, 2},    // CR LF: only the CR (two bytes ahead is no LF)
        {"\\b\r\n\n", "b", -1, 3},  // CR, then LF two ahead: CR and the next byte
        {"\\b\r", "b", -1, 2},
        {"\\b", "b", -1, 2},  // the terminating zero counts as consumed
        {"\\", "", -1, 1},
    };
    for (const auto& c : cases) {
        std::string word = "junk";
        int64_t parameter = 12345;
        int64_t end = ReadCommand(c.text, 1, word, parameter);
        EXPECT_EQ(word, c.word) << c.text;
        EXPECT_EQ(parameter, c.parameter) << c.text;
        EXPECT_EQ(end, c.end) << c.text;
    }
}

TEST(RTFReadCommand, IgnorableDestinationMarkIsSteppedOver) {
    std::string text = "{\\*\\generator x;}";
    std::string word;
    int64_t parameter;
    EXPECT_EQ(ReadCommand(text, 2, word, parameter), 13);
    EXPECT_EQ(word, "generator");
    // Without the opening brace the star is a word of its own (empty), consumed.
    text = "x\\*\\generator";
    EXPECT_EQ(ReadCommand(text, 2, word, parameter), 2);
    EXPECT_EQ(word, "");
}

TEST(RTFReadCommand, HugeNumbersWrapInsteadOfOverflowing) {
    std::string word;
    int64_t parameter = 0;
    std::string text = "\\fs" + std::string(5000, '9') + " ";
    EXPECT_EQ(ReadCommand(text, 1, word, parameter), int64_t(text.size()) - 1);
    EXPECT_EQ(word, "fs");
    text = "\\u-" + std::string(5000, '9');
    EXPECT_EQ(ReadCommand(text, 1, word, parameter), int64_t(text.size()));
    text = "\\'" + std::string(5000, 'F');
    EXPECT_EQ(ReadCommand(text, 1, word, parameter), int64_t(text.size()));
}

TEST(RTFForwardOverDelimiter, ConsumesOnlyPlainBytes) {
    struct Case {
        std::string text;
        int64_t pos, expected;
    } cases[] = {
        {"a\\", 1, 0},    {"a;", 1, 0},  {"a{", 1, 0},    {"a}", 1, 0},     {"a ", 1, 1},
        {"ax", 1, 1},     {"a\r", 1, 1}, {"a\r\n", 1, 1}, {"a\r\nb", 1, 1}, {"a\r\n\n", 1, 2},
        {"a\rx\n", 1, 2}, {"a", 1, 1},   {"a\n", 1, 1},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ForwardOverDelimiter(c.text, c.pos), c.expected)
            << testing::PrintToString(c.text);
    }
}

TEST(RTFFontTable, NamesByNumber) {
    struct Case {
        std::string text;  // from the byte after "\fonttbl"
        FontMap expected;
        std::string rest;  // what the reader continues with
    } cases[] = {
        {"{\\f0\\fnil Arial;}{\\f1\\froman Times;}}X", {{0, "Arial"}, {1, "Times"}}, "X"},
        {"\\f0\\fswiss Helvetica;\\f1 Courier;}X", {{0, "Helvetica"}, {1, "Courier"}}, "X"},
        // Groups that open with a word are skipped with everything nested in them.
        {"{\\f2\\froman{\\*\\panose 02020603050405020304}Times New Roman;}}",
         {{2, "Times New Roman"}},
         ""},
        {"{\\f4\\fswiss Liberation Sans{\\*\\falt Arial};}}", {{4, "Liberation Sans"}}, ""},
        {"{\\f3 Caf\xC3\xA9 Sans;}}", {{3, "Caf\xC3\xA9 Sans"}}, ""},
        // A repeated number replaces the entry; bytes between entries join the next name.
        {"{\\f0 A;}{\\f0 B;}}", {{0, "B"}}, ""},
        {"{\\f0 A;}\r\n{\\f1 B;}}", {{0, "A"}, {1, "\r\nB"}}, ""},
        {"{\\f0 NoEnd}}", {}, ""},
        {"{\\f0 Unterminated", {}, ""},
        {"", {}, ""},
    };
    for (const auto& c : cases) {
        std::string text = "\\fonttbl" + c.text;
        int64_t pos = 7;
        FontMap fonts = ReadFontTable(text, pos);
        EXPECT_EQ(fonts, c.expected) << c.text;
        EXPECT_EQ(text.substr(size_t(pos + 1) < text.size() ? size_t(pos + 1) : text.size()),
                  c.rest)
            << c.text;
    }
}

TEST(RTFColorTable, EntriesCountFromZero) {
    struct Case {
        std::string text;  // from the byte after "\colortbl"
        ColorMap expected;
        std::string rest;
    } cases[] = {
        {"\\red255\\green0\\blue0;}\\x", {{0, {255, 0, 0}}}, "\\x"},
        {";\\red255\\green0\\blue0;}\\x", {{0, {0, 0, 0}}, {1, {255, 0, 0}}}, "\\x"},
        {"\r\n\\red1\\green2\\blue3;\r\n\\blue9;}", {{0, {1, 2, 3}}, {1, {0, 0, 9}}}, ""},
        // The byte after the closing brace is taken as a delimiter: text there is lost.
        {";}Hello", {{0, {}}}, "ello"},
        {";}{x", {{0, {}}}, "{x"},
        {"\\red5", {}, ""},
    };
    for (const auto& c : cases) {
        std::string text = "\\colortbl" + c.text;
        int64_t pos = 8;
        ColorMap colors = ReadColorTable(text, pos);
        EXPECT_EQ(colors, c.expected) << c.text;
        EXPECT_EQ(text.substr(std::min(size_t(pos + 1), text.size())), c.rest) << c.text;
    }
}

// \ansicpg numbers against the system's iconv: each high byte of a code page the reader maps
// reads as iconv reads it under the code page's own name; any other number is Windows Latin 1.
TEST(RTFFindEncoding, CodePagesReadAsIconvReadsThem) {
    int mapped = 0;
    for (int64_t codePage = -1; codePage <= 70000; ++codePage) {
        const uint32_t encoding = FindEncoding(codePage);
        if (encoding == FindEncoding(1252) && codePage != 1252) continue;
        ++mapped;
        const std::string name = codePage < 10000    ? "CP" + std::to_string(codePage)
                                 : codePage == 10000 ? "MACINTOSH"
                                                     : "";
        iconv_t cd = name.empty() ? iconv_t(-1) : iconv_open("UTF-8", name.c_str());
        if (cd == iconv_t(-1)) continue;
        for (int byte = 0x80; byte < 0x100; ++byte) {
            char in = char(byte), out[8];
            char *src = &in, *dst = out;
            size_t inLeft = 1, outLeft = sizeof out;
            const bool ok = iconv(cd, &src, &inLeft, &dst, &outLeft) != size_t(-1);
            iconv(cd, nullptr, nullptr, &dst, &outLeft);  // CP1255 and CP1258 hold a base back
            const auto points = xhost::encodings::decode(std::string(1, in), encoding);
            if (ok && points) {
                EXPECT_EQ(xhost::encodings::encode(*points, kREALTextEncodingUTF8),
                          std::string(out, dst))
                    << codePage << " byte " << byte;
            }
        }
        iconv_close(cd);
    }
    EXPECT_EQ(mapped, 32);  // 24 Windows and DOS pages, 8 Mac pages
}

}  // namespace
