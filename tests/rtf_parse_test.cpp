// The RTF reader without a host: which runs, with which style and encoding, it hands on.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "ByteView.h"
#include "RTFWrite.h"
#include "utf_reference.h"

using namespace kxt::rtf;

namespace {

// One run as "text|font|size|colour|flags|encoding|alignment"; flags are b, i, u or -; text
// bytes outside ASCII as \xHH, UTF-16 runs as U+XXXX per unit.
std::string Describe(const ParsedRun& r) {
    std::string text;
    if (r.encoding == kREALTextEncodingUTF16) {
        for (size_t i = 0; i + 1 < r.bytes.size(); i += 2) {
            uint16_t unit;
            std::memcpy(&unit, r.bytes.data() + i, 2);
            char buf[16];
            snprintf(buf, sizeof buf, "U+%04X", unit);
            text += buf;
        }
    } else {
        for (const uint8_t c : kxt::unsignedBytes(r.bytes)) {
            if (c == '\r') {
                text += "\\r";
            } else if (c < 0x20 || c >= 0x7F) {
                char buf[8];
                snprintf(buf, sizeof buf, "\\x%02X", c);
                text += buf;
            } else {
                text += char(c);
            }
        }
    }
    char buf[200];
    snprintf(buf, sizeof buf, "|%s|%lld|%06X|%c%c%c|%X|%lld", r.style.font.c_str(),
             (long long)r.style.size, r.style.color, r.style.bold ? 'b' : '-',
             r.style.italic ? 'i' : '-', r.style.underline ? 'u' : '-', r.encoding,
             (long long)r.alignment);
    return text + buf;
}

std::vector<std::string> Parse(std::string_view rtf) {
    RunCollector collector;
    ParseRTF(rtf, collector);
    std::vector<std::string> out;
    for (const auto& r : collector.runs) out.push_back(Describe(r));
    return out;
}

// The document's text with runs joined: 8-bit runs taken as Windows-1252, UTF-16 runs by unit.
std::string PlainText(const RunCollector& c) {
    static const char16_t kHigh[32] = {
        0x20AC, 0x81,   0x201A, 0x192,  0x201E, 0x2026, 0x2020, 0x2021, 0x2C6,  0x2030, 0x160,
        0x2039, 0x152,  0x8D,   0x17D,  0x8F,   0x90,   0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
        0x2013, 0x2014, 0x2DC,  0x2122, 0x161,  0x203A, 0x153,  0x9D,   0x17E,  0x178};
    std::vector<uint32_t> points;
    for (const auto& r : c.runs) {
        if (r.encoding == kREALTextEncodingUTF16) {
            uint16_t unit;
            std::memcpy(&unit, r.bytes.data(), 2);
            points.push_back(unit);
            continue;
        }
        EXPECT_EQ(r.encoding, kREALTextEncodingWindowsLatin1);
        for (const uint8_t b : kxt::unsignedBytes(r.bytes))
            points.push_back(b >= 0x80 && b < 0xA0 ? kHigh[b - 0x80] : b);
    }
    return ref::utf8Of(points);
}

struct ParseCase {
    std::string rtf;
    std::vector<std::string> runs;
};

void Check(const std::vector<ParseCase>& cases) {
    for (const auto& c : cases) EXPECT_EQ(Parse(c.rtf), c.runs) << c.rtf;
}

TEST(RTFParse, CharacterFormattingFromTables) {
    Check({
        {"{\\rtf1\\ansi{\\fonttbl{\\f0\\fnil Arial;}}{\\colortbl;\\red255\\green0\\blue0;}"
         "\\f0\\cf1\\fs24\\b Hello}",
         {"Hello|Arial|12|FF0000|b--|500|0"}},
        // Unknown numbers fall back to no font and black; odd half-points truncate.
        {"{\\rtf1{\\fonttbl{\\f0 Arial;}}{\\colortbl;\\red1\\green2\\blue3;}\\f7\\cf9\\fs25 x}",
         {"x||12|000000|---|500|0"}},
        {"{\\rtf1\\f0\\cf0 x}", {"x||0|000000|---|500|0"}},  // no tables at all
        {"{\\rtf1 \\b a\\b0 b\\i c\\i0\\ul d\\ul0 e\\ul f\\ulnone g}",
         {"a||0|000000|b--|500|0", "b||0|000000|---|500|0", "c||0|000000|-i-|500|0",
          "d||0|000000|--u|500|0", "e||0|000000|---|500|0", "f||0|000000|--u|500|0",
          "g||0|000000|---|500|0"}},
        // A group's formatting ends with the group.
        {"{\\rtf1 a{\\b b{\\i c}d}e}",
         {"a||0|000000|---|500|0", "b||0|000000|b--|500|0", "c||0|000000|bi-|500|0",
          "d||0|000000|b--|500|0", "e||0|000000|---|500|0"}},
        {"{\\rtf1 \\fs-20 x}", {"x||40|000000|---|500|0"}},  // the minus reading: -20 is 80
        {"{\\rtf1 {\\upr x}}", {"x||0|000000|---|500|0"}},   // "upr" sets the size like "fs"
    });
}

TEST(RTFParse, TheColourTableBraceIsConsumedWithTheByteAfterIt) {
    Check({
        // The text right after the table's brace loses its first byte.
        {"{\\rtf1{\\colortbl;\\red255\\green0\\blue0;}\\cf1 Red}", {"Red||0|FF0000|---|500|0"}},
        {"{\\rtf1{\\colortbl;}Hello}", {"ello||0|000000|---|500|0"}},
    });
}

TEST(RTFParse, EscapesAndCodePages) {
    Check({
        {"{\\rtf1\\ansi\\ansicpg1252 caf\\'e9\\par}", {"caf\\xE9\\r||0|000000|---|500|0"}},
        {"{\\rtf1\\ansicpg1251 \\'cf\\'D0\\par}", {"\\xCF\\xD0\\r||0|000000|---|502|0"}},
        {"{\\rtf1\\mac \\'8e\\par}", {"\\x8E\\r||0|000000|---|0|0"}},
        {"{\\rtf1\\ansicpg932 \\'82\\'a0\\par}", {"\\x82\\xA0\\r||0|000000|---|420|0"}},
        // The closing brace flushes with the enclosing group's encoding: the outermost group
        // closes with Windows Latin 1 whatever it declared...
        {"{\\rtf1\\ansicpg1251 \\'cf}", {"\\xCF||0|000000|---|500|0"}},
        // ...while a document with a font table keeps that table's group open, so the last
        // run is read in the declared code page.
        {"{\\rtf1\\ansicpg1251{\\fonttbl{\\f0 A;}}\\'cf}", {"\\xCF||0|000000|---|502|0"}},
        // Hex digits: either case; one digit is a value too; none appends nothing.
        {"{\\rtf1 \\'4a\\'4A\\'4\\'zz}", {"JJ\\x04zz||0|000000|---|500|0"}},
        {"{\\rtf1 a\\'00b}", {"a||0|000000|---|500|0"}},  // text ends at a zero byte
        {"{\\rtf1 \\'00b}", {"||0|000000|---|500|0"}},    // an empty run is still appended
        {"{\\rtf1 \\{a\\}\\\\}", {"{a}\\||0|000000|---|500|0"}},
        {"{\\rtf1 tab\\tab x\\line y}", {"tabxy||0|000000|---|500|0"}},
    });
}

TEST(RTFParse, UnicodeEscapesAreRunsOfTheirOwn) {
    Check({
        {"{\\rtf1 a\\u233?b}",
         {"a||0|000000|---|500|0", "U+00E9||0|000000|---|100|0", "b||0|000000|---|500|0"}},
        // The fallback survives only when a blank separates it.
        {"{\\rtf1 \\u233 ?}", {"U+00E9||0|000000|---|100|0", "?||0|000000|---|500|0"}},
        {"{\\rtf1 \\u233\\'e9}", {"U+00E9||0|000000|---|100|0", "\\xE9||0|000000|---|500|0"}},
        {"{\\rtf1 \\u-3913 }", {"U+17C7||0|000000|---|100|0"}},  // 6087
        // A surrogate pair is one character; a lone surrogate is none and reads as U+FFFD.
        {"{\\rtf1 a\\u55357 \\u56832 b}",
         {"a||0|000000|---|500|0", "U+D83DU+DE00||0|000000|---|100|0", "b||0|000000|---|500|0"}},
        {"{\\rtf1 \\u55357\\u55357\\u56832 \\u56832 x\\u55357 \\u65 }",
         {"U+FFFD||0|000000|---|100|0", "U+D83DU+DE00||0|000000|---|100|0",
          "U+FFFD||0|000000|---|100|0", "x||0|000000|---|500|0", "U+FFFD||0|000000|---|100|0",
          "U+0041||0|000000|---|100|0"}},
        {"{\\rtf1 \\u65536 \\u0 \\u131137 }", {"U+0041||0|000000|---|100|0"}},
        {"{\\rtf1 \\b\\u20013 }", {"U+4E2D||0|000000|b--|100|0"}},
        {"{\\rtf1 \\uc1\\u233 x}", {"U+00E9||0|000000|---|100|0", "x||0|000000|---|500|0"}},
    });
}

TEST(RTFParse, DestinationsAndUnknownGroupsAddNoText) {
    Check({
        {"{\\rtf1{\\*\\generator Writer 1.0;}x}", {"x||0|000000|---|500|0"}},
        {"{\\rtf1{\\stylesheet{\\s0 Normal;}{\\s1\\b Heading;}}x}", {"x||0|000000|---|500|0"}},
        {"{\\rtf1{\\info{\\title T}{\\author A}}x}", {"x||0|000000|---|500|0"}},
        {"{\\rtf1{\\*\\unknown {\\b nested} text}x}", {"x||0|000000|---|500|0"}},
        // A known word first keeps the group; an unknown word later in a group is ignored.
        {"{\\rtf1{\\b\\loch x}}", {"x||0|000000|b--|500|0"}},
        // Control words inside a skipped group change nothing outside it.
        {"{\\rtf1{\\foo\\b\\qc}x}", {"x||0|000000|---|500|0"}},
        // A line break between the brace and the word does not hide the word.
        {"{\\rtf1{\r\n\\loch x}y}", {"y||0|000000|---|500|0"}},
    });
}

TEST(RTFParse, ParagraphsAndAlignment) {
    Check({
        {"{\\rtf1 a\\par b\\par}", {"a\\r||0|000000|---|500|0", "b\\r||0|000000|---|500|0"}},
        // Line ends in the source only cut runs.
        {"{\\rtf1 a\r\nb\nc}",
         {"a||0|000000|---|500|0", "b||0|000000|---|500|0", "c||0|000000|---|500|0"}},
        // Escaped line breaks are paragraph marks once text has begun.
        {"{\\rtf1\\\n a\\\nb\\\r\nc}", {" a\\rb\\r||0|000000|---|500|0", "c||0|000000|---|500|0"}},
        {"{\\rtf1\\par\\par x}",
         {"\\r||0|000000|---|500|0", "\\r||0|000000|---|500|0", "x||0|000000|---|500|0"}},
        // Alignment is parser-wide: it survives braces, and "pard" does not reset it.
        {"{\\rtf1\\qc a\\par{\\qr b\\par}c\\pard d\\ql\\par\\qj e}",
         {"a\\r||0|000000|---|500|2", "b\\r||0|000000|---|500|3", "cd||0|000000|---|500|3",
          "\\r||0|000000|---|500|1", "e||0|000000|---|500|1"}},
    });
}

TEST(RTFParse, AlignmentGoesToTheParagraphTheRunOpens) {
    RunCollector c;
    ParseRTF("{\\rtf1\\qc Title\\par\\ql Body \\qr more\\par\\qr\\par Right}", c);
    // "Body " opens paragraph 1 (left); " more" opens none; the empty paragraph is right.
    EXPECT_EQ(c.paragraphAlignments, (std::vector<int64_t>{2, 1, 3, 3}));
}

TEST(RTFParse, BinaryDataIsSkipped) {
    Check({
        {"{\\rtf1 a\\bin3 {}xb}", {"ab||0|000000|---|500|0"}},
        {"{\\rtf1 a\\bin0 b}", {"ab||0|000000|---|500|0"}},
        {"{\\rtf1 a\\bin b}", {"ab||0|000000|---|500|0"}},
        {"{\\rtf1 a\\bin999999999999 xyz}", {"a||0|000000|---|500|0"}},
        {"{\\rtf1 a\\bin99999999999999999999999 xyz}", {"a||0|000000|---|500|0"}},
        {"{\\rtf1 a\\bin-5 b}", {"a||0|000000|---|500|0"}},  // "-5" reads 5: past the end
    });
}

TEST(RTFParse, TextOutsideTheDocumentGroup) {
    Check({
        // After the last brace there is no group: words are ignored, text still counts.
        {"{\\rtf1 a}\\b b", {"a||0|000000|---|500|0", "b||0|000000|---|500|0"}},
        {"{\\rtf1 a}}}}b", {"a||0|000000|---|500|0", "b||0|000000|---|500|0"}},
        {"{\\rtf1 a{{{", {"a||0|000000|---|500|0"}},
        {std::string("{\\rtf1 a\0b}", 11), {"a||0|000000|---|500|0"}},
    });
}

TEST(RTFParse, DeepNestingNeedsNoStack) {
    const int depth = 100000;
    std::string rtf = "{\\rtf1 ";
    for (int i = 0; i < depth; ++i) rtf += "{\\b ";
    rtf += "deep";
    for (int i = 0; i < depth; ++i) rtf += "}";
    rtf += "after}";
    EXPECT_EQ(Parse(rtf),
              (std::vector<std::string>{"deep||0|000000|b--|500|0", "after||0|000000|---|500|0"}));
    // Unbalanced: opened and never closed, or closed without being opened.
    std::string open = "{\\rtf1 " + std::string(depth, '{') + "x";
    EXPECT_EQ(Parse(open).size(), 1u);
    std::string close = "{\\rtf1 x" + std::string(depth, '}') + "y";
    EXPECT_EQ(Parse(close).size(), 2u);
    // Skipped groups nested deep inside a skipped group.
    std::string skipped = "{\\rtf1{\\foo ";
    for (int i = 0; i < depth; ++i) skipped += "{\\bar ";
    skipped += std::string(depth + 1, '}') + "z}";
    EXPECT_EQ(Parse(skipped), (std::vector<std::string>{"z||0|000000|---|500|0"}));
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

// Documents in the shapes word processors write: the text the reader makes of them.
TEST(RTFParse, DocumentsFromOtherWriters) {
    struct Case {
        const char* writer;
        std::string rtf;
        std::string text;
    } cases[] = {
        {"WordPad",
         "{\\rtf1\\ansi\\ansicpg1252\\deff0\\nouicompat\\deflang1033{\\fonttbl{"
         "\\f0\\fnil\\fcharset0 "
         "Calibri;}}\r\n{\\*\\generator Riched20 10.0.19041}\\viewkind4\\uc1 "
         "\r\n\\pard\\sa200\\sl276"
         "\\slmult1\\f0\\fs22\\lang9 Caf\\'e9 \\b bold\\b0\\par\r\nNext\\par\r\n}\r\n",
         "Caf\xC3\xA9 bold\rNext\r"},
        {"Word",
         "{\\rtf1\\adeflang1025\\ansi\\ansicpg1252\\uc1\\adeff31507\\deff0{\\fonttbl{\\f0\\fbidi "
         "\\froman\\fcharset0\\fprq2{\\*\\panose 02020603050405020304}Times New Roman;}\r\n"
         "{\\f1\\fbidi \\fswiss\\fcharset0\\fprq2{\\*\\panose 020b0604020202020204}Arial;}}\r\n"
         "{\\colortbl;\\red0\\green0\\blue0;\\red255\\green0\\blue0;}\r\n"
         "{\\stylesheet{\\ql \\li0\\ri0\\widctlpar\\f0\\fs24 \\snext0 Normal;}}\r\n"
         "{\\info{\\title Report}{\\author Someone}{\\creatim\\yr2024\\mo1\\dy2}}\r\n"
         "\\paperw12240\\paperh15840\\margl1440\\margr1440 \\pard\\plain \\ql \\f1\\fs24 "
         "Gr\\u252\\'fc\\'dfe {\\cf2 rot}\\par\r\n"
         "\\pard \\qc \\u8364\\'80 5\\par\r\n}",
         "Gr\xC3\xBC\xC3\xBC\xC3\x9F"
         "e rot\r\xE2\x82\xAC\xE2\x82\xAC 5\r"},
        {"TextEdit",
         "{\\rtf1\\ansi\\ansicpg1252\\cocoartf2639\r\n\\cocoatextscaling0\\cocoaplatform0"
         "{\\fonttbl\\f0\\fswiss\\fcharset0 "
         "Helvetica;}\r\n{\\colortbl;\\red255\\green255\\blue255;}\r\n"
         "{\\*\\expandedcolortbl;;}\r\n\\paperw11900\\paperh16840\\margl1440\\margr1440\\vieww11520"
         "\\viewh8400\\viewkind0\r\n\\pard\\tx566\\tx1133\\pardirnatural\\partightenfactor0\r\n\r\n"
         "\\f0\\fs24 \\cf0 Hello \\'93world\\'94\\\r\nsecond line}",
         "Hello \xE2\x80\x9Cworld\xE2\x80\x9D\rsecond line"},
        {"AbiWord, with a picture",
         "{\\rtf1\\ansi\\ansicpg1252\\uc1\\deff0{\\fonttbl{\\f0\\froman\\fcharset0 Times;}}"
         "\\pard\\plain\\f0\\fs24 A{\\*\\shppict{\\pict\\pngblip\\bin4 \x89PNG}}B\\par}",
         "AB\r"},
        {"a writer using \\bin in the body", "{\\rtf1 x\\bin4 }{}\\y}", "xy"},
    };
    for (const auto& c : cases) {
        RunCollector collector;
        ParseRTF(c.rtf, collector);
        EXPECT_EQ(PlainText(collector), c.text) << c.writer;
    }
}

TEST(RTFParse, LibreOfficeSamples) {
    // LibreOffice wraps every text portion in a group that opens with "\loch" or "\dbch"; such
    // a group reads as an unknown destination, so only the paragraph marks and the portions
    // outside those groups remain.
    RunCollector plain;
    ParseRTF(ReadFile(std::string(KXT_TEST_DATA) + "/rtf/plain.rtf"), plain);
    EXPECT_EQ(PlainText(plain), "\r\r");
    RunCollector letter;
    ParseRTF(ReadFile(std::string(KXT_TEST_DATA) + "/rtf/letter.rtf"), letter);
    EXPECT_EQ(PlainText(letter), "\r\r\r\r\r");
    EXPECT_EQ(letter.paragraphAlignments, (std::vector<int64_t>{2, 1, 1, 3, 1}));
}

}  // namespace
