// Line-ending replacement, HTML tag removal and SQL boolean rewriting.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <random>
#include <string>

#include "ByteView.h"
#include "KxtTest.h"
#include "ReplaceLineEndings.h"
#include "htmltags.h"
#include "sqlboolean.h"

using namespace kxt_test;

namespace {

using namespace std::string_literals;

std::string visible(std::string_view s) {
    std::string out;
    for (const uint8_t c : kxt::unsignedBytes(s)) {
        if (c == 13)
            out += "<CR>";
        else if (c == 10)
            out += "<LF>";
        else if (c < 0x20 || c >= 0x7F)
            out.append("<").append(std::to_string(c)).append(">");
        else
            out += char(c);
    }
    return out;
}

// ---- Line endings ------------------------------------------------------------------------------

// The definition, one byte at a time, counting the steps that end on a 16 MiB address.
std::string referenceLineEndings(std::string_view t, std::string_view newline, int& yields) {
    std::string out;
    size_t i = 0;
    while (i < t.size()) {
        const char c = t[i++];
        if (c == '\r' || c == '\n') {
            out += newline;
            if (i < t.size() && t[i] == (c == '\r' ? '\n' : '\r')) ++i;
        } else {
            out += c;
        }
        if (reinterpret_cast<uintptr_t>(t.data() + i) % kxt::kYieldInterval == 0) ++yields;
    }
    return out;
}

std::string randomLines(std::mt19937& rng, size_t length) {
    static const char alphabet[] = "ab\r\n\r\n \x80\xff";
    std::string s(length, ' ');
    const int spread = int(rng() % 3);  // mostly breaks, some, or almost none
    for (auto& c : s) {
        const auto r = unsigned(rng() % 100);
        c = spread == 0 ? alphabet[rng() % 9]
                        : (r < (spread == 1 ? 20u : 1u) ? "\r\n"[r % 2] : 'x');
    }
    return s;
}

TEST(ReplaceLineEndings, FastScanEqualsByteByByteDefinition) {
    std::mt19937 rng(1234);
    const std::string digits = "0123456789abcdefghijklmnop";
    for (int round = 0; round < 4000; ++round) {
        // Texts around the sixteen-byte steps at every offset; newlines empty, short, longer
        // than four bytes (sized by counting) and longer than one sixteen-byte store.
        const size_t offset = size_t(round) % 16;
        const std::string buffer =
            std::string(offset, '-') + randomLines(rng, rng() % (round % 2 ? 100 : 300));
        const std::string_view text = std::string_view(buffer).substr(offset);
        // Line ends themselves too: a lone CR or LF that becomes itself is copied in blocks.
        static const char* const kBreaks[] = {"\n", "\r", "\r\n", "\n\r"};
        const std::string newline = round % 3 == 2
                                        ? std::string(kBreaks[rng() % 4])
                                        : digits.substr(0, round % 4 == 0 ? rng() % 21 : rng() % 3);
        int unused = 0;
        ASSERT_EQ(kxt::replaceLineEndings(text, newline).view(),
                  referenceLineEndings(text, newline, unused))
            << "text " << visible(text) << " newline " << visible(newline);
    }
}

int gYields = 0;
void countYield() {
    ++gYields;
}

TEST(ReplaceLineEndings, YieldsWhenTheNextByteSitsOnA16MiBBoundary) {
    // 32 MiB aligned to 16 MiB; only the pages around the middle boundary are ever touched.
    const size_t size = 2 * kxt::kYieldInterval;
    std::unique_ptr<char, decltype(&std::free)> block(
        static_cast<char*>(std::aligned_alloc(kxt::kYieldInterval, size)), &std::free);
    ASSERT_TRUE(block);
    char* const boundary = block.get() + kxt::kYieldInterval;
    std::mt19937 rng(77);
    int totalYields = 0;
    for (int round = 0; round < 3000; ++round) {
        const size_t before = rng() % 40, after = rng() % 40;
        const std::string content = randomLines(rng, before + after);
        std::copy(content.begin(), content.end(), boundary - before);
        const std::string_view text(boundary - before, before + after);

        int expectedYields = 0;
        const std::string expected = referenceLineEndings(text, "\n", expectedYields);
        gYields = 0;
        ASSERT_EQ(kxt::replaceLineEndings(text, "\n", &countYield).view(), expected)
            << "before " << before << " text " << visible(text);
        ASSERT_EQ(gYields, expectedYields) << "before " << before << " text " << visible(text);
        totalYields += gYields;
    }
    EXPECT_GT(totalYields, 1000);  // the boundary is crossed both by one- and two-byte steps

    // A text without breaks that ends exactly on the boundary yields once, at its end.
    std::fill(boundary - 100, boundary, 'x');
    gYields = 0;
    EXPECT_EQ(kxt::replaceLineEndings({boundary - 100, 100}, "\n", &countYield).size(), 100u);
    EXPECT_EQ(gYields, 1);
    // A CR LF whose LF sits at the boundary steps over it without yielding.
    boundary[-1] = '\r';
    boundary[0] = '\n';
    boundary[1] = 'y';
    gYields = 0;
    EXPECT_EQ(kxt::replaceLineEndings({boundary - 3, 5}, "|", &countYield).view(), "xx|y");
    EXPECT_EQ(gYields, 0);
}

// ---- HTML tags ---------------------------------------------------------------------------------

struct TagCase {
    std::string text, replacement, expected;
};

TEST(RemoveHTMLTags, DropsTagsKeepsText) {
    const TagCase cases[] = {
        {"<b>x</b>", "", "x"},
        {"a < b", "", "a < b"},  // a < that starts no tag is text
        {"x > y", "", "x  y"},   // a stray > is dropped
        {"a<br/>b", " ", "a   b"},
        {"<a href=\"x>y\">link</a>", "", "link"},  // > inside double quotes
        {"<a href='x>y'>link</a>", "", "y'link"},  // single quotes do not protect
        {"<!-- c -->t", "", "<!-- c --t"},
        {"<!DOCTYPE html>t", "", "<!DOCTYPE htmlt"},
        {"1<2 and 3>2", "", "1<2 and 32"},
        {"<<b>>x", "", "<x"},  // "<<" is text then a tag
        {"<b<i>>x", "", "x"},  // nested
        {"x<", "", "x<"},
        {"<p>\xC3\xA9</p>", "", "\xC3\xA9"},
        {"<p>", "--", "--"},  // one replacement per byte inside the tag after the <
        {"<ab>", "--", "----"},
        {"<a \"q\">", "*", "**"},  // bytes in quotes and the quotes add nothing
    };
    for (const auto& c : cases) {
        EXPECT_EQ(kxt::removeHTMLTags(c.text, c.replacement), c.expected)
            << c.text << " with '" << c.replacement << "'";
    }
}

TEST(RemoveHTMLTags, TextWithoutAngleBracketsIsUnchanged) {
    std::mt19937 rng(5);
    for (int round = 0; round < 500; ++round) {
        std::string text(rng() % 50, ' ');
        for (auto& c : text) {
            do c = char(rng() % 256);
            while (c == '<' || c == '>');
        }
        ASSERT_EQ(kxt::removeHTMLTags(text, "r"), text) << visible(text);
    }
}

TEST(RemoveHTMLTags, RunsAgreeWithTheByteLoop) {
    std::mt19937 rng(6);
    const std::string pieces[] = {"<",
                                  ">",
                                  "\"",
                                  "</",
                                  "<b",
                                  "a",
                                  " ",
                                  "x\xC3\xA9",
                                  "plain text of some length, enough for a block",
                                  std::string("\0", 1)};
    for (int round = 0; round < 3000; ++round) {
        std::string text;
        for (size_t k = rng() % 30; k > 0; --k) text += pieces[rng() % 10];
        for (const char* replacement : {"", " ", "--"}) {
            ASSERT_EQ(kxt::removeHTMLTags(text, replacement),
                      kxt::removeHTMLTagsPlain(text, replacement))
                << visible(text) << " with '" << replacement << "'";
        }
    }
}

// ---- SQL booleans ------------------------------------------------------------------------------

struct SQLCase {
    std::string sql, expected;
};

TEST(SQLReplaceBoolean, RewritesWholeTokensOutsideQuotes) {
    const SQLCase cases[] = {
        {"WHERE a = TRUE AND b", "WHERE a = 1 AND b"},
        {"VALUES (TRUE, false, 3)", "VALUES (1, 0, 3)"},
        {"a=TRUE AND b", "a=TRUE AND b"},  // = is no separator
        {"x TRUEX y", "x TRUEX y"},
        {"x XTRUE y", "x XTRUE y"},
        {"x 'TRUE' y", "x 'TRUE' y"},
        {"x ' TRUE ' y", "x ' TRUE ' y"},
        {"x \" TRUE \" y", "x \" TRUE \" y"},
        {"x \"it's\" TRUE y", "x \"it's\" 1 y"},
        {"x 'a \"b' TRUE y", "x 'a \"b' 1 y"},
        {"TRUE AND x", "1 AND x"},
        {"tRuE\tfAlSe\nx", "1\t0\nx"},
        {"(TRUE)x", "(1)x"},
        {"x\x80TRUE\x80x",
         "x\x80"
         "1\x80x"},  // high bytes separate
        // A word within the last five bytes stays.
        {"a = TRUE", "a = TRUE"},
        {"a = TRUE;", "a = TRUE;"},
        {"a = TRUE;\n", "a = 1;\n"},
        {"a = FALSE;", "a = 0;"},
        {"a = FALSE", "a = FALSE"},
        {"a = FALSE; ", "a = 0; "},
        {"a = FALSEx;", "a = FALSEx;"},
        {"TRUE", "TRUE"},
        {"", ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(visible(kxt::sqlReplaceBoolean(c.sql).str()), visible(c.expected))
            << visible(c.sql);
        EXPECT_EQ(visible(kxt::sqlReplaceBooleanPlain(c.sql)), visible(c.expected));
    }
}

TEST(SQLReplaceBoolean, RunsAgreeWithTheByteLoop) {
    std::mt19937 rng(8);
    // One piece a string, so the formatter keeps the list short.
    const std::string pieces = "TRUE|false| |'|\"|,|(|)|;|\x80|x|\n|select * from t where a = |";
    std::vector<std::string> parts;
    for (size_t at = 0, bar; (bar = pieces.find('|', at)) != std::string::npos; at = bar + 1) {
        parts.push_back(pieces.substr(at, bar - at));
    }
    parts.push_back(std::string("\0", 1));
    for (int round = 0; round < 4000; ++round) {
        std::string sql;
        for (size_t k = rng() % 40; k > 0; --k) sql += parts[rng() % parts.size()];
        ASSERT_EQ(kxt::sqlReplaceBoolean(sql).view(), kxt::sqlReplaceBooleanPlain(sql))
            << visible(sql);
    }
}

// ---- Through the host --------------------------------------------------------------------------

class CleanupMethods : public HostTest {};

std::string utf16(std::u16string_view s) {
    return std::string(reinterpret_cast<const char*>(s.data()), s.size() * 2);
}

TEST_F(CleanupMethods, LineEndingsKeepTheEncodingOfByteText) {
    Value r = call("ReplaceLineEndingsKXT", {S("a\r\nb\nc\rd"), S("\n")});
    EXPECT_EQ(r.bytes(), "a\nb\nc\nd");
    EXPECT_EQ(r.encoding(), kREALTextEncodingUTF8);

    // NewLine is converted into the text's encoding first: UTF-8 e-acute becomes one byte.
    Value latin = call("ReplaceLineEndingsKXT",
                       {S("\xE9\r\n\xE9", kREALTextEncodingISOLatin1), S("\xC3\xA9")});
    EXPECT_EQ(latin.bytes(), "\xE9\xE9\xE9");
    EXPECT_EQ(latin.encoding(), kREALTextEncodingISOLatin1);

    Value raw = call("ReplaceLineEndingsKXT", {Raw("\x80\n\r\x81"), S("|")});
    EXPECT_EQ(raw.bytes(), "\x80|\x81");
    EXPECT_EQ(raw.encoding(), kREALTextEncodingUnknown);

    // Pure ASCII bytes tagged with a single-byte encoding come back tagged ASCII.
    Value ascii = call("ReplaceLineEndingsKXT", {S("a\rb", kREALTextEncodingISOLatin1), S(",")});
    EXPECT_EQ(ascii.bytes(), "a,b");
    EXPECT_EQ(ascii.encoding(), kREALTextEncodingASCII);
}

TEST_F(CleanupMethods, LineEndingsOfWideTextComeBackAsUTF8) {
    Value r = call("ReplaceLineEndingsKXT",
                   {S(utf16(u"\u00e9\r\n\U0001F600"), kREALTextEncodingUTF16), S("\n")});
    EXPECT_EQ(r.bytes(), "\xC3\xA9\n\xF0\x9F\x98\x80");
    EXPECT_EQ(r.encoding(), kREALTextEncodingUTF8);

    Value newline16 =
        call("ReplaceLineEndingsKXT", {S("a\nb"), S(utf16(u"\u2028"), kREALTextEncodingUTF16)});
    EXPECT_EQ(newline16.bytes(),
              "a\xE2\x80\xA8"
              "b");
    EXPECT_EQ(newline16.encoding(), kREALTextEncodingUTF8);
}

TEST_F(CleanupMethods, LineEndingsOfNilOrEmptyAreNil) {
    EXPECT_TRUE(call("ReplaceLineEndingsKXT", {Nil(), S("\n")}).isNil());
    EXPECT_TRUE(call("ReplaceLineEndingsKXT", {S(""), S("\n"), B(true)}).isNil());
    EXPECT_TRUE(call("ReplaceLineEndingsKXT", {S("\r\n"), Nil()}).isNil());
    EXPECT_EQ(callBytes("ReplaceLineEndingsKXT", {S("a\r\nb"), Nil()}), "ab");
}

TEST_F(CleanupMethods, YieldVariantGivesControlBackOncePer16MiB) {
    // 16 MiB of short lines ending in LF: one-byte steps never pass a boundary unnoticed, and
    // any 16 MiB of addresses holds exactly one boundary, wherever the string sits.
    std::string text;
    text.reserve(kxt::kYieldInterval);
    while (text.size() < kxt::kYieldInterval) text += "line\n";
    text.resize(kxt::kYieldInterval);
    Value input = S(text);

    Value quiet = call("ReplaceLineEndingsKXT", {input, S("\r\n")});
    EXPECT_EQ(host().yieldCount(), 0);
    Value yielding = call("ReplaceLineEndingsKXT", {input, S("\r\n"), B(true)});
    EXPECT_EQ(host().yieldCount(), 1);
    const std::string out = yielding.bytes();
    EXPECT_EQ(out.size(), text.size() / 5 * 6 + text.size() % 5);
    EXPECT_EQ(out.substr(0, 12), "line\r\nline\r\n");
    EXPECT_TRUE(quiet.bytes() == out);
}

TEST_F(CleanupMethods, TagRemovalReturnsUTF8UpToTheFirstZeroByte) {
    Value r = call("RemoveHTMLTagsKXT", {S("<p>caf\xC3\xA9</p>")});
    EXPECT_EQ(r.bytes(), "caf\xC3\xA9");
    EXPECT_EQ(r.encoding(), kREALTextEncodingUTF8);
    EXPECT_EQ(callBytes("RemoveHTMLTagsWithKXT", {S("a<br/>b"), S(" ")}), "a   b");
    EXPECT_EQ(callBytes("RemoveHTMLTagsWithKXT", {S("a<br/>b"), Nil()}), "ab");
    EXPECT_EQ(callBytes("RemoveHTMLTagsKXT", {S("a\0<b>c"s)}), "a");
    // Any encoding is read as UTF-8.
    EXPECT_EQ(callBytes("RemoveHTMLTagsKXT", {S(utf16(u"<i>\u00e9</i>"), kREALTextEncodingUTF16)}),
              "\xC3\xA9");
    EXPECT_TRUE(call("RemoveHTMLTagsKXT", {Nil()}).isNil());
    EXPECT_TRUE(call("RemoveHTMLTagsKXT", {S("<b></b>")}).isNil());
    EXPECT_TRUE(call("RemoveHTMLTagsWithKXT", {Nil(), S("x")}).isNil());
}

TEST_F(CleanupMethods, SQLBooleansThroughTheHost) {
    Value r = call("SQLReplaceBooleanKXT", {S("UPDATE t SET a = TRUE, b = false WHERE c")});
    EXPECT_EQ(r.bytes(), "UPDATE t SET a = 1, b = 0 WHERE c");
    EXPECT_EQ(r.encoding(), kREALTextEncodingUTF8);
    EXPECT_EQ(callBytes("SQLReplaceBooleanKXT", {S("x = TRUE \0 y"s)}), "x = 1 ");
    EXPECT_TRUE(call("SQLReplaceBooleanKXT", {Nil()}).isNil());
    EXPECT_TRUE(call("SQLReplaceBooleanKXT", {S("")}).isNil());
}

}  // namespace
