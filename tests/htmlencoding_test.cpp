// HTML and XML character references: the tables, the plain encoders and the shared decoder.
#include "htmlencoding.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <set>
#include <string>

#include "KxtTest.h"
#include "markup_reference.h"
#include "utf_reference.h"
#include "xmlencoding.h"

namespace {

std::vector<uint32_t> points(std::u32string_view text) {
    return {text.begin(), text.end()};
}
std::u32string text(const std::vector<uint32_t>& points) {
    return {points.begin(), points.end()};
}
std::u32string decode(std::u32string_view in) {
    return text(kxt::decodeHTML(points(in)));
}
std::string encode(std::u32string_view in, bool plain = false) {
    return kxt::encodeHTML(points(in), plain);
}
std::u32string encodeXML(std::u32string_view in, int options = 0) {
    return text(kxt::encodeXML(points(in), options));
}
// For failure messages: code points as U+XXXX.
std::string show(std::u32string_view s) {
    std::string out;
    for (char32_t c : s) {
        char buf[16];
        snprintf(buf, sizeof buf, c >= 32 && c < 127 ? "%c" : "<U+%04X>", unsigned(c));
        out += buf;
    }
    return out;
}

const auto& table = kxt::HTMLEntityTable;

TEST(HTMLEntityTable, NoCodePointOrNameRepeats) {
    ASSERT_EQ(table.size(), 254u);
    EXPECT_EQ(table[253].code, 0u);
    std::set<uint32_t> codes;
    std::set<std::string> names;
    for (size_t i = 0; i < 253; ++i) {
        EXPECT_TRUE(codes.insert(table[i].code).second) << table[i].name;
        EXPECT_TRUE(names.insert(table[i].name).second) << table[i].name;
        // Longer names could never be decoded: a reference holds at most 8 characters.
        EXPECT_LE(strlen(table[i].name), 8u) << table[i].name;
    }
}

TEST(HTMLEntityTable, FollowsTheHTML401CodePoints) {
    // The Latin-1 entities cover U+00A0..U+00FF in order.
    for (uint32_t i = 0; i < 96; ++i) EXPECT_EQ(table[5 + i].code, 160 + i) << table[5 + i].name;
    const std::pair<const char*, uint32_t> spot[] = {
        {"OElig", 338},   {"Yuml", 376},   {"fnof", 402},     {"circ", 710},  {"Alpha", 913},
        {"Omega", 937},   {"sigmaf", 962}, {"sigma", 963},    {"piv", 982},   {"ensp", 8194},
        {"rlm", 8207},    {"euro", 8364},  {"alefsym", 8501}, {"larr", 8592}, {"crarr", 8629},
        {"forall", 8704}, {"sdot", 8901},  {"lceil", 8968},
    };
    for (const auto& [name, code] : spot) {
        const char* wanted = name;
        auto it = std::find_if(table.begin(), table.end() - 1,
                               [wanted](const auto& e) { return strcmp(e.name, wanted) == 0; });
        ASSERT_NE(it, table.end() - 1) << name;
        EXPECT_EQ(it->code, code) << name;
    }
}

TEST(XMLEntityTable, IsTheFiveASCIIEntriesOfTheHTMLTable) {
    ASSERT_EQ(kxt::XMLEntityTable.size(), 6u);
    for (size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(kxt::XMLEntityTable[i].code, table[i].code);
        EXPECT_STREQ(kxt::XMLEntityTable[i].name, table[i].name);
    }
    EXPECT_EQ(kxt::XMLEntityTable[5].code, 0u);
}

struct EncodeCase {
    std::u32string input;
    bool plain;
    std::string expected;
};

TEST(HTMLEncode, ReplacesMarkupAndNonASCIIAndDropsControls) {
    const EncodeCase cases[] = {
        {U"\"<b>\" & it's", false, "&quot;&lt;b&gt;&quot; &amp; it&#39;s"},
        {U"\u00E9a\u4E2D\U0001F600\u0080", false, "&eacute;a&#20013;&#128512;&#128;"},
        {U"\u03C2\u03C3\u2329\u2666\u20AC", false, "&sigmaf;&sigma;&lang;&diams;&euro;"},
        {std::u32string{0x80000000u}, false, "&#-2147483648;"},
        {U"<b>it's&\"\u00E9", true, "<b>it's&\"&eacute;"},
        {std::u32string(U"a\0b\x01\x1F\f<", 7), false, "ab&lt;"},
        {U"\t\n\r\u007F", false, "\t\n\r\x7F"},
        {U"\uFEFF<", false, "&lt;"},  // leading byte order mark dropped
        {U"\uFFFE<", false, "&lt;"},
        {U"<\uFEFF", false, "&lt;&#65279;"},  // elsewhere it is a character
        {U"\uFEFF\uFEFF<", false, "&#65279;&lt;"},
    };
    for (const auto& c : cases) EXPECT_EQ(encode(c.input, c.plain), c.expected) << show(c.input);
}

// Both stop at the first zero; HTML also refuses the apostrophe and anything above ASCII.
TEST(MarkupReady, HTMLAndXML) {
    const std::tuple<std::u32string, bool, bool> cases[] = {
        {U"", true, true},
        {U"plain text\x01\t\x7F", true, true},
        {U"a<b", false, false},
        {U"it's", false, false},
        {U"x>", false, false},
        {U"\"", false, false},
        {U"\u00E9\U0001F600", false, true},
        {std::u32string(U"a\0<", 3), true, true},
    };
    for (const auto& [in, html, xml] : cases) {
        std::vector<uint32_t> z = points(in);
        z.push_back(0);
        EXPECT_EQ(kxt::StringIsHTMLready(z.data()), html) << show(in);
        EXPECT_EQ(kxt::StringIsXMLready(z.data()), xml) << show(in);
    }
    EXPECT_TRUE(kxt::StringIsHTMLready(nullptr));
    EXPECT_TRUE(kxt::StringIsXMLready(nullptr));
}

TEST(MarkupReadyBytes, RejectZeroHighBytesAndMarkup) {
    const std::pair<std::string, bool> cases[] = {
        {"", true},          {"abc\x01\x7F", true}, {std::string("a\0b", 3), false},
        {"\xC3\xA9", false}, {"a&b", false},        {"'", false},
    };
    for (const auto& [in, ready] : cases) EXPECT_EQ(kxt::bytesAreMarkupFree(in), ready) << in;
    // The block scan against the byte loop: clean text with at most one byte of each kind that
    // ends the check, anywhere (in a block, in the tail).
    std::mt19937 rng(5);
    for (int iteration = 0; iteration < 4000; ++iteration) {
        std::string s(rng() % 70, 'a');
        for (char& c : s) c = char(32 + rng() % 95);
        for (char bad : {'\0', '\x80', '\xFF', '"', '&', '\'', '<', '>'}) {
            std::string t = s;
            for (char& c : t) {
                if (c == bad || kxt::bytesAreMarkupFreePlain(std::string(1, c)) == false) c = 'x';
            }
            if (!t.empty() && rng() % 2) t[rng() % t.size()] = bad;
            ASSERT_EQ(kxt::bytesAreMarkupFree(t), kxt::bytesAreMarkupFreePlain(t))
                << testing::PrintToString(t);
        }
    }
    for (uint32_t e : {0x0u, 0x500u, 0x600u, 0x8000100u}) EXPECT_TRUE(kxt::isMarkupTestEncoding(e));
    for (uint32_t e : {0x100u, 0xC000100u, 0x201u, 0xFFFFu}) {
        EXPECT_FALSE(kxt::isMarkupTestEncoding(e));
    }
}

struct DecodeCase {
    std::u32string input;
    std::u32string expected;
};

TEST(HTMLDecode, NamedReferencesMatchTheFirstEntryByPrefix) {
    const DecodeCase cases[] = {
        {U"Tom &amp; Jerry", U"Tom & Jerry"},
        {U"&lt;&gt;&quot;&apos;", U"<>\"'"},
        {U"&eacute;&Eacute;", U"\u00E9\u00C9"},
        {U"&sigma;", U"\u03C2"},  // the earlier "sigmaf"
        {U"&sup;", U"\u00B2"},    // the earlier "sup2"
        {U"&a;", U"&"},
        {U"&l;", U"<"},
        {U"&thetasym;", U"\u03D1"},
        {U"x&amp", U"x&"},  // unterminated at the very end
        {U"&amp;amp;", U"&amp;"},
        {U"&unknown;", U"&unknown;"},
        {U"&averyverylongname;", U"&averyverylongname;"},
        {U"&ampx;", U"&ampx;"},
        {U"&lt x", U"&lt x"},
        {U"&AMP;", U"&AMP;"},
        {U"&;", U"&;"},
        {U"&", U"&"},
        {U"a&", U"a&"},
        {U"&&lt;", U"&<"},
        {std::u32string(U"&lt\0\0;", 6), U"<"},
        {U"\uFEFF&lt;", U"<"},
        {U"\uFEFF", U""},
        {U"a\uFEFF", U"a\uFEFF"},
    };
    for (const auto& c : cases) EXPECT_EQ(decode(c.input), c.expected) << show(c.input);
}

TEST(HTMLDecode, NumericReferencesFollowTheirValidityRules) {
    const DecodeCase cases[] = {
        {U"&#65;&#x42;&#x4a;", U"ABJ"},
        {U"&#X41;", U"&#X41;"},  // capital X is not hexadecimal
        {U"&#0;", U"&#0;"},
        {U"&#-5;", U"&#-5;"},
        {U"&#5-;", U"&#5-;"},
        {U"&#x-41;", U"&#x-41;"},
        {U"&#x0;", U"&#x0;"},
        {U"&#x;", U"&#x;"},
        {U"&#x", U"&#x"},
        {U"&#", U"&#"},
        {U"&#;", U"&#;"},
        {U"&#65x;", U"A"},  // digits end early, the walk still resumes after ";"
        {U"&#x41g;", U"A"},
        {U"&#6 5;", U"\u0006"},
        {U"&#65", U"A"},
        {U"&#65;;", U"A;"},
        // Numbers that name no character are invalid; the rest of the text still decodes.
        {U"&#1114111;&#1114112;", U"\U0010FFFF&#1114112;"},
        {U"&#xFFFFFF;", U"&#xFFFFFF;"},
        {U"&#65;&#xD800;&#xDFFF;&#55295;&#xE000;", U"A&#xD800;&#xDFFF;\uD7FF\uE000"},
        {U"&#12345678;", U"&#12345678;"},                      // more than 8 characters
        {std::u32string{'&', '#', 'x', 0x10041, ';'}, U"\n"},  // low 16 bits: 'A'
        {std::u32string{'&', '#', 0x136, '5', ';'}, U"A"},     // low 8 bits: '6'
        {std::u32string{'&', '#', 0x12D, '5', ';'}, std::u32string{'&', '#', 0x12D, '5', ';'}},
    };
    for (const auto& c : cases) EXPECT_EQ(decode(c.input), c.expected) << show(c.input);
}

TEST(XMLEncode, EscapesOnlyMarkupAndChoosesTheApostrophe) {
    const std::tuple<std::u32string, int, std::u32string> cases[] = {
        {U"a<b", 0, U"a&lt;b"},
        {U"it's", 0, U"it&#39;s"},
        {U"it's", 1, U"it&apos;s"},
        {U"it's", 2, U"it&#39;s"},
        {U"\u00E9 & \u00FC", 0, U"\u00E9 &amp; \u00FC"},
        {U"\"x\">", 1, U"&quot;x&quot;&gt;"},
        {U"\x01\x1F\t\n\r\x7F\U0001F600", 0, U"\t\n\r\x7F\U0001F600"},
        {U"\uFEFF<", 0, U"&lt;"},
        {U"<\uFEFF", 0, U"&lt;\uFEFF"},
    };
    for (const auto& [in, options, expected] : cases) {
        EXPECT_EQ(encodeXML(in, options), expected) << show(in) << " / " << options;
    }
}

// ---- Properties ---------------------------------------------------------------------------

// Text without controls, weighted towards what the encoders and the decoder care about.
std::u32string randomText(std::mt19937& rng, size_t maxLength) {
    static const std::u32string interesting = U"&#;x<>\"' amplteacuteX0123456789";
    std::uniform_int_distribution<size_t> length(0, maxLength);
    std::uniform_int_distribution<int> kind(0, 5);
    std::u32string out;
    for (size_t n = length(rng); n > 0; --n) {
        switch (kind(rng)) {
            case 0:
            case 1:
                out += interesting[rng() % interesting.size()];
                break;
            case 2:
                out += char32_t(32 + rng() % 95);
                break;
            case 3:
                out += char32_t(table[rng() % 253].code);
                break;
            case 4:
                out += char32_t(0x80 + rng() % 0xFF80);
                break;
            default:
                out += char32_t(0x10000 + rng() % 0x100000);
                break;
        }
        if (rng() % 16 == 0) out += U"\t\n\r"[rng() % 3];
    }
    if (!out.empty() && (out[0] == 0xFEFF || out[0] == 0xFFFE)) out[0] = 'a';
    return out;
}

std::u32string widen(const std::string& ascii) {
    return {ascii.begin(), ascii.end()};
}

// Entities whose name is a prefix of an earlier name decode as that earlier entity.
std::set<uint32_t> shadowedCodePoints() {
    std::set<uint32_t> shadowed;
    for (size_t k = 0; k < 253; ++k) {
        for (size_t e = 0; e < k; ++e) {
            if (std::string_view(table[e].name).starts_with(table[k].name)) {
                shadowed.insert(table[k].code);
            }
        }
    }
    return shadowed;
}

TEST(HTMLProperty, OnlySigmaSupAndOrAreShadowedByEarlierNames) {
    EXPECT_EQ(shadowedCodePoints(), (std::set<uint32_t>{0x03C3, 0x2228, 0x2283}));
    EXPECT_EQ(decode(U"&or;"), U"\u00AA");  // "ordf"
}

TEST(HTMLProperty, DecodingUndoesEncoding) {
    const std::set<uint32_t> shadowed = shadowedCodePoints();
    std::mt19937 rng(20241111);
    for (int round = 0; round < 5000; ++round) {
        std::u32string in = randomText(rng, 40);
        for (char32_t& c : in) {
            // A reference to a surrogate names no character and is not decoded.
            if (shadowed.count(c) || (c >= 0xD800 && c <= 0xDFFF)) c = 'z';
        }
        std::string encoded = encode(in);
        ASSERT_EQ(decode(widen(encoded)), in) << show(in) << " -> " << encoded;
    }
}

TEST(XMLProperty, DecodingUndoesEncodingWithEitherApostrophe) {
    std::mt19937 rng(4711);
    for (int round = 0; round < 5000; ++round) {
        std::u32string in = randomText(rng, 40);
        for (int options : {0, 1}) {
            std::u32string encoded = encodeXML(in, options);
            ASSERT_EQ(decode(encoded), in) << show(in) << " -> " << show(encoded);
        }
    }
}

// The straightforward decoding: a linear table search per reference (the encoding is
// ref::encodeHTML).
std::u32string referenceDecode(std::u32string_view in) {
    if (!in.empty() && (in[0] == 0xFEFF || in[0] == 0xFFFE)) in.remove_prefix(1);
    std::u32string out;
    for (size_t i = 0; i < in.size();) {
        if (in[i] == '&' && i + 1 < in.size() && in[i + 1] != ';') {
            size_t n = 0;
            for (size_t k = 2; k <= 9 && n == 0; ++k) {
                if (i + k == in.size() || in[i + k] == ';') n = k - 1;
            }
            uint32_t code = 0;
            for (size_t k = 0; n != 0 && code == 0 && table[k].code != 0; ++k) {
                std::vector<uint32_t> ref(in.begin() + i + 1, in.begin() + i + 1 + n);
                if (kxt::stringcompare(table[k].name, ref.data(), long(n)) == 0) {
                    code = table[k].code;
                }
            }
            if (n != 0 && code == 0 && in[i + 1] == '#') {
                // Through the decoder itself on the reference alone: the numeric reading is
                // covered by the table-driven cases; here only the named search differs.
                std::u32string alone = U"&" + std::u32string(in.substr(i + 1, n)) + U";";
                std::vector<uint32_t> d = kxt::decodeHTML(points(alone));
                if (d.size() == 1) code = d[0];
            }
            if (code != 0) {
                out += char32_t(code);
                i += n + 2;
                continue;
            }
        }
        out += in[i++];
    }
    return out;
}

TEST(HTMLProperty, IndexedLookupsAgreeWithTableScans) {
    std::mt19937 rng(99);
    for (int round = 0; round < 5000; ++round) {
        std::u32string in = randomText(rng, 30);
        if (rng() % 4 == 0) in += char32_t(rng() % 32);  // controls too
        for (bool plain : {false, true}) {
            ASSERT_EQ(encode(in, plain), ref::encodeHTML(in, plain)) << show(in);
        }
        ASSERT_EQ(decode(in), referenceDecode(in)) << show(in);
    }
    // Every name, every prefix of it, in every position of the table.
    for (size_t k = 0; k < 253; ++k) {
        std::string name = table[k].name;
        for (size_t len = 1; len <= name.size(); ++len) {
            std::u32string ref = U"&" + widen(name.substr(0, len)) + U";";
            ASSERT_EQ(decode(ref), referenceDecode(ref)) << name.substr(0, len);
        }
    }
}

// ---- Well-formed UTF-8 read as it is ---------------------------------------------------------

// Text the UTF-8 forms take: scalar values only, no byte order marks; controls and zeros now
// and then, and ASCII runs long enough for the block steps.
std::u32string wellFormedText(std::mt19937& rng) {
    std::u32string out;
    for (int pieces = int(rng() % 6); pieces >= 0; --pieces) {
        out += randomText(rng, 24);
        if (rng() % 3 == 0) out += std::u32string(rng() % 40, U"a<&;#x1"[rng() % 7]);
        if (rng() % 8 == 0) out += char32_t(rng() % 32);
    }
    for (char32_t& c : out) {
        if ((c >= 0xD800 && c <= 0xDFFF) || c == 0xFEFF || c == 0xFFFE) c = U'\u00E9';
    }
    return out;
}

std::string utf8(std::u32string_view s) {
    return ref::utf8Of(points(s));
}

TEST(MarkupUTF8, AgreesWithTheCodePointForms) {
    // References filling the whole window of ten code points, followed by more text.
    const std::u32string fixed[] = {U"&thetasym;x", U"&#x1F600;y", U"&#0000065;z",
                                    U"&thetasym",   U"a&w",        U"&\u00E9cute;"};
    std::mt19937 rng(31);
    for (int round = 0; round < 4000; ++round) {
        const std::u32string in = round < 6 ? fixed[round] : wellFormedText(rng);
        const std::string bytes = utf8(in);
        for (bool plain : {false, true}) {
            ASSERT_EQ(kxt::encodeHTMLUTF8(bytes, plain).view(), encode(in, plain)) << show(in);
        }
        ASSERT_EQ(kxt::decodeHTMLUTF8(bytes).view(), utf8(decode(in))) << show(in);
        for (int options : {0, 1}) {
            ASSERT_EQ(kxt::encodeXMLUTF8(bytes, options).view(), utf8(encodeXML(in, options)))
                << show(in);
        }
        const std::u32string terminated = in + U'\0';
        const auto* wide = reinterpret_cast<const uint32_t*>(terminated.c_str());
        ASSERT_EQ(kxt::utf8IsHTMLready(bytes), kxt::StringIsHTMLready(wide)) << show(in);
        ASSERT_EQ(kxt::utf8IsXMLready(bytes), kxt::StringIsXMLready(wide)) << show(in);
    }
}

// The handlers read well-formed UTF-8 as it is and everything else through its wide form: a
// text gives the same result (bytes, encoding, or the argument itself) either way.
class MarkupMethods : public kxt_test::HostTest {};

TEST_F(MarkupMethods, UTF8TextGivesWhatItsUTF16FormGives) {
    using kxt_test::I;
    using kxt_test::S;
    std::mt19937 rng(32);
    const struct {
        const char* method;
        int64_t options;
    } calls[] = {{"EncodingToHTMLKXT", 0}, {"EncodingToHTMLKXT", 1},    {"EncodingToXMLKXT", 0},
                 {"EncodingToXMLKXT", 1},  {"DecodingFromHTMLKXT", -1}, {"DecodingFromXMLKXT", -1}};
    for (int round = 0; round < 600; ++round) {
        std::u32string in = wellFormedText(rng);
        if (round % 50 == 0) in = round % 100 ? U"" : U"ready text";
        std::string bytes = utf8(in);
        if (round % 40 == 1) bytes.insert(rng() % (bytes.size() + 1), "\xEF\xBB\xBF");  // a mark
        bool complete = true;
        const std::vector<uint16_t> units = ref::utf16Of(ref::decodeUTF8(bytes, &complete));
        const std::string wide(reinterpret_cast<const char*>(units.data()), units.size() * 2);
        for (const auto& c : calls) {
            std::vector<xhost::Value> asUTF8{S(bytes)}, asUTF16{S(wide, kREALTextEncodingUTF16)};
            if (c.options >= 0) {
                asUTF8.push_back(I(c.options));
                asUTF16.push_back(I(c.options));
            }
            const xhost::Value a = call(c.method, asUTF8), b = call(c.method, asUTF16);
            ASSERT_EQ(a.bytes(), b.isNil()           ? ""
                                 : b.bytes() == wide ? bytes
                                                     : b.bytes())
                << c.method << " " << show(in);
            ASSERT_EQ(a.isNil(), b.isNil()) << c.method << " " << show(in);
            if (!a.isNil() && a.bytes() != bytes) {
                ASSERT_EQ(a.encoding(), b.encoding()) << c.method << " " << show(in);
            }
        }
    }
}

}  // namespace
