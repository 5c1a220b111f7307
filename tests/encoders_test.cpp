// The encoder and decoder methods through the emulated host: arguments, result encodings, nil,
// returning the input itself, and no leaked references.
#include <random>
#include <string>

#include "Encodings.h"
#include "KxtTest.h"

using namespace kxt_test;
using namespace std::string_literals;

namespace {

constexpr uint32_t kASCII = 0x600, kUTF8 = 0x8000100, kUTF16 = 0x100, kUTF32 = 0xC000100,
                   kLatin1 = 0x201, kCP1252 = 0x500, kMacRoman = 0, kNone = 0xFFFF;

class Encoders : public HostTest {
  protected:
    // Calls and checks bytes and encoding of the result.
    void expectString(std::string_view name, const std::vector<Value>& args,
                      const std::string& bytes, uint32_t encoding) {
        Value r = call(name, args);
        EXPECT_FALSE(r.isNil()) << name;
        EXPECT_EQ(r.bytes(), bytes) << name;
        EXPECT_EQ(r.encoding(), encoding) << name;
    }
    void expectNil(std::string_view name, const std::vector<Value>& args) {
        EXPECT_TRUE(call(name, args).isNil()) << name;
    }
    // The method hands back the very string it was given, with a reference of its own.
    void expectSameString(std::string_view name, const Value& in, std::vector<Value> more = {}) {
        more.insert(more.begin(), in);
        Value r = call(name, more);
        EXPECT_EQ(r.stringHandle(), in.stringHandle()) << name;
        EXPECT_EQ(r.encoding(), in.encoding()) << name;
    }
};

TEST_F(Encoders, EveryMethodIsRegisteredWithItsDeclaration) {
    const char* declarations[] = {
        "EncodeEmailSubjectKXT(s as string) as string",
        "_yDecodeMemoryKXT(data as memoryblock) as memoryblock",
        "_yDecodeStringKXT(data as string) as string",
        "DetectUnicodeMarkersKXT(s as string) as integer",
        "GetUnicodeMarkersKXT(kind as integer) as string",
        "StringIsHTMLreadyKXT(s as string) as boolean",
        "StringIsXMLreadyKXT(s as string) as boolean",
        "DecodingFromMySQLKXT(s as string) as string",
        "EncodingToHTMLKXT(s as string, options as integer = 0) as string",
        "DecodingFromHTMLKXT(s as string) as string",
        "EncodingToXMLKXT(s as string, options as integer = 0) as string",
        "DecodingFromXMLKXT(s as string) as string",
        "EncodingToQuotedPrintableKXT(s as string, LineLen as integer = 72) as string",
        "DecodingFromQuotedPrintableKXT(s as string) as string",
        ("HexstringKXT(input as string, hexlen as integer, linelen as integer, linestart as "
         "string, lineend as string, spacer as string,filler as string) as string"),
        "EncodingToISO8859KXT(s as string) as string",
        "DecodingFromISO8859KXT(s as string) as string",
        "EncodingToCP1252KXT(s as string) as string",
        "DecodingFromCP1252KXT(s as string) as string",
        "EncodingToHexKXT(s as string) as string",
        "DecodingFromHexKXT(s as string) as string",
    };
    std::vector<std::string> registered;
    for (const auto& module : host().modules()) {
        for (const auto& m : module.methods) registered.push_back(m.declarationText);
    }
    for (const char* d : declarations) {
        EXPECT_EQ(std::count(registered.begin(), registered.end(), d), 1) << d;
    }
    // Listed in registration order.
    size_t previous = 0;
    for (const char* d : declarations) {
        size_t at = size_t(std::find(registered.begin(), registered.end(), d) - registered.begin());
        EXPECT_GE(at, previous) << d;
        previous = at;
    }
    // The XML decoder is the HTML decoder.
    ASSERT_EQ(host().overloads("DecodingFromXMLKXT").size(), 1u);
    EXPECT_EQ(host().overloads("DecodingFromXMLKXT")[0]->function,
              host().overloads("DecodingFromHTMLKXT")[0]->function);
}

TEST_F(Encoders, NilInGivesNilOrTheNeutralResult) {
    for (const char* name :
         {"EncodeEmailSubjectKXT", "_yDecodeStringKXT", "DecodingFromMySQLKXT", "EncodingToHTMLKXT",
          "DecodingFromHTMLKXT", "EncodingToXMLKXT", "DecodingFromXMLKXT",
          "EncodingToQuotedPrintableKXT", "DecodingFromQuotedPrintableKXT", "EncodingToISO8859KXT",
          "DecodingFromISO8859KXT", "EncodingToCP1252KXT", "DecodingFromCP1252KXT",
          "EncodingToHexKXT", "DecodingFromHexKXT"}) {
        expectNil(name, {Nil()});
        expectNil(name, {S("")});
    }
    EXPECT_TRUE(call("_yDecodeMemoryKXT", {Nil()}).isNil());
    EXPECT_EQ(call("DetectUnicodeMarkersKXT", {Nil()}).asInteger(), 0);
    EXPECT_TRUE(call("StringIsHTMLreadyKXT", {Nil()}).asBoolean());
    EXPECT_TRUE(call("StringIsXMLreadyKXT", {Nil()}).asBoolean());
    expectNil("HexstringKXT", {Nil(), I(2), I(2), S("["), S("]"), S(" "), S("")});
}

TEST_F(Encoders, HTMLEncodingReturnsReadyTextItself) {
    expectSameString("EncodingToHTMLKXT", S("plain letters"));
    expectSameString("EncodingToHTMLKXT", S("tab\tand\x01"
                                            "control",
                                            kMacRoman));
    expectSameString("EncodingToHTMLKXT", S("ABC", kCP1252), {I(1)});
    expectSameString("EncodingToXMLKXT", S("\xC3\xA9t\xC3\xA9 \x01"));
    expectSameString("EncodeEmailSubjectKXT", S("Hello World"));
    expectSameString("EncodeEmailSubjectKXT", S("Hello", kLatin1));
}

TEST_F(Encoders, HTMLEncodingWritesReferencesAsASCII) {
    expectString("EncodingToHTMLKXT", {S("Tom & Jerry")}, "Tom &amp; Jerry", kASCII);
    expectString("EncodingToHTMLKXT", {S("it's")}, "it&#39;s", kASCII);
    expectString("EncodingToHTMLKXT", {S("it's"), I(1)}, "it's", kASCII);
    expectString("EncodingToHTMLKXT", {S("<b>\xC3\xA9</b>"), I(1)}, "<b>&eacute;</b>", kASCII);
    expectString("EncodingToHTMLKXT",
                 {S("a\xE4\xB8\xAD"
                    "b\f\xF0\x9F\x98\x80")},
                 "a&#20013;b&#128512;", kASCII);
    expectString("EncodingToHTMLKXT", {S("\xE9<", kLatin1)}, "&eacute;&lt;", kASCII);
    expectString("EncodingToHTMLKXT", {S("\xFF\xFE\xE9\x00<\x00"s, kUTF16)}, "&eacute;&lt;",
                 kASCII);
}

TEST_F(Encoders, HTMLAndXMLDecodingGiveUTF8) {
    expectString("DecodingFromHTMLKXT", {S("&#65;&#x42;&#x4a;")}, "ABJ", kUTF8);
    expectString("DecodingFromHTMLKXT", {S("&eacute;&sigma;&sup;&a;")}, "\xC3\xA9\xCF\x82\xC2\xB2&",
                 kUTF8);
    expectString("DecodingFromHTMLKXT", {S("&#X41;&unknown;&#0;")}, "&#X41;&unknown;&#0;", kUTF8);
    expectString("DecodingFromHTMLKXT", {S("x&amp")}, "x&", kUTF8);
    // A reference to no character stays as written; it does not empty the result.
    expectString("DecodingFromHTMLKXT", {S("abc &#xD800; &#66; &#x110000;&amp;")},
                 "abc &#xD800; B &#x110000;&", kUTF8);
    expectString("DecodingFromXMLKXT", {S("&eacute;&#233;&apos;")}, "\xC3\xA9\xC3\xA9'", kUTF8);
    expectString("DecodingFromHTMLKXT", {S("\xE9&lt;", kLatin1)}, "\xC3\xA9<", kUTF8);
}

TEST_F(Encoders, XMLEncodingKeepsNonASCIIAndChoosesTheApostrophe) {
    expectString("EncodingToXMLKXT", {S("\xC3\xA9 & \xC3\xBC")}, "\xC3\xA9 &amp; \xC3\xBC", kUTF8);
    expectString("EncodingToXMLKXT", {S("it's")}, "it&#39;s", kUTF8);
    expectString("EncodingToXMLKXT", {S("it's"), I(1)}, "it&apos;s", kUTF8);
    expectString("EncodingToXMLKXT", {S("a<b\x01")}, "a&lt;b", kUTF8);
    // A lone surrogate in UTF-16 input costs one character, not the whole result.
    expectString("EncodingToXMLKXT",
                 {S("a\0\x3D\xD8"
                    "b\0<\0"s,
                    kUTF16)},
                 "a\xEF\xBF\xBD"
                 "b&lt;",
                 kUTF8);
}

TEST_F(Encoders, ReadyTestsLookAtTheDeclaredEncodingAndRawBytes) {
    struct Case {
        Value in;
        bool html, xml;
    };
    const Case cases[] = {
        {S("abc"), true, true},
        {S(""), true, true},
        {S("a<b"), false, false},
        {S("\xC3\xA9"), false, false},  // the encoder would keep it; the byte test does not
        {S("abc", kMacRoman), true, true},
        {S("abc", kCP1252), true, true},
        {S("abc", kASCII), true, true},
        {S("abc", kLatin1), false, false},
        {S("a\x00\x00\x00"s, kUTF32), false, false},
        {S("a\x00"s, kUTF16), false, false},
        {S("a\0b"s), false, false},
        {Raw("abc"), false, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(call("StringIsHTMLreadyKXT", {c.in}).asBoolean(), c.html) << c.in.bytes();
        EXPECT_EQ(call("StringIsXMLreadyKXT", {c.in}).asBoolean(), c.xml) << c.in.bytes();
    }
}

TEST_F(Encoders, QuotedPrintableWorksOnRawBytes) {
    expectString("EncodingToQuotedPrintableKXT", {S("a=b \xC3\xA9\n")}, "a=3Db =C3=A9\r\n", kASCII);
    expectString("EncodingToQuotedPrintableKXT", {S(std::string(100, 'x'))},
                 std::string(70, 'x') + "=\r\n" + std::string(30, 'x'), kASCII);
    expectString("EncodingToQuotedPrintableKXT", {S("abc"), I(2)}, "=\r\na=\r\nb=\r\nc", kASCII);
    expectString("EncodingToQuotedPrintableKXT", {S("\xE9", kLatin1), I(-5)}, "=E9", kASCII);
    // Decoded bytes are labelled ASCII whatever they hold.
    expectString("DecodingFromQuotedPrintableKXT", {S("=C3=A9=\r\nx\r\n")}, "\xC3\xA9x\n", kASCII);
    expectNil("DecodingFromQuotedPrintableKXT", {S("=\r\n")});
}

TEST_F(Encoders, HexFormsAndMySQLEscapes) {
    expectString("EncodingToHexKXT", {Raw("\x00\xFF"s)}, "00FF", kASCII);
    expectString("EncodingToHexKXT", {S("\xC3\xA9")}, "C3A9", kASCII);
    expectString("DecodingFromHexKXT", {S("00ff41")}, "\x00\xFF\x41"s, kNone);
    expectString("DecodingFromHexKXT", {S("414")}, "A", kASCII);
    expectString("DecodingFromHexKXT", {S("zz")}, "\0"s, kASCII);
    expectNil("DecodingFromHexKXT", {S("4")});
    expectString("DecodingFromMySQLKXT", {S("it\\'s\\nok\\q")}, "it's\nok\\q", kASCII);
    expectString("DecodingFromMySQLKXT", {S("\\\xC3\xA9\\")}, "\\\xC3\xA9\\", kNone);
    expectString("HexstringKXT", {S("ABC"), I(2), I(2), S("["), S("]"), S(" "), S("")},
                 "[41 42][43 00]", kASCII);
    expectString("HexstringKXT", {S("ABC"), I(2), I(2), Nil(), S("\n"), Nil(), S("xy")},
                 "4142\n43xy\n", kASCII);
    for (auto [hexlen, linelen] : {std::pair{0, 2}, {2, 0}, {-2, 2}, {2, -1}}) {
        expectNil("HexstringKXT", {S("ABC"), I(hexlen), I(linelen), S(""), S(""), S(""), S("")});
    }
}

TEST_F(Encoders, CodePagesConvertThroughUTF16) {
    expectString("EncodingToCP1252KXT", {S("\xE2\x82\xACuro")}, "\x80uro", kNone);
    expectString("EncodingToISO8859KXT", {S("\xE2\x82\xACuro")}, "uro", kASCII);
    expectString("EncodingToISO8859KXT", {S("ab\xC3\xA9")}, "ab\xE9", kNone);
    expectNil("EncodingToISO8859KXT", {S("\xC3\xA9")});
    expectNil("EncodingToCP1252KXT", {S("ab")});
    expectString("EncodingToCP1252KXT", {S("ab\xF0\x9F\x98\x80\xE2\x80\x9C")}, "ab\x93", kNone);
    expectString("DecodingFromCP1252KXT", {Raw("\x93")}, "\xE2\x80\x9C", kUTF8);
    expectString("DecodingFromCP1252KXT", {Raw("a\x81")}, "a\0"s, kUTF8);
    expectString("DecodingFromISO8859KXT", {Raw("\x93\xE9")}, "\xC2\x93\xC3\xA9", kUTF8);
}

TEST_F(Encoders, EmailSubjectsBecomeOneEncodedWord) {
    expectString("EncodeEmailSubjectKXT",
                 {S("Gr\xC3\xBC\xC3\x9F"
                    "e")},
                 "=?utf-8?Q?Gr=C3=BC=C3=9Fe?=", kASCII);
    expectString("EncodeEmailSubjectKXT", {S("a b_c=d \xC3\xBC")},
                 "=?utf-8?Q?a_b=5Fc=3Dd_=C3=BC?=", kASCII);
    expectString("EncodeEmailSubjectKXT", {S("\xFC", kLatin1)}, "=?utf-8?Q?=C3=BC?=", kASCII);
    expectString("EncodeEmailSubjectKXT", {S("a\tb")}, "=?utf-8?Q?a\tb?=", kASCII);
    // Built as a C string: a zero byte ends the result.
    expectString("EncodeEmailSubjectKXT", {S("a\0b"s)}, "=?utf-8?Q?a", kASCII);
}

TEST_F(Encoders, YEncDecodesStringsAndMemoryBlocks) {
    expectString("_yDecodeStringKXT", {Raw("r\x8F\x96\x96\x99")}, "Hello", kASCII);
    expectString("_yDecodeStringKXT", {Raw("*=j)")}, "\x00\x00\xFF"s, kNone);
    expectString("_yDecodeStringKXT", {Raw("a=")}, "\x37\x96", kNone);
    Value mb = call("_yDecodeMemoryKXT", {MB("r\x8F\x96\x96\x99=")});
    EXPECT_EQ(mb.type(), Value::Type::MemoryBlock);
    EXPECT_EQ(mb.bytes(), "Hello\x96");
    EXPECT_TRUE(call("_yDecodeMemoryKXT", {MB("")}).isNil());
}

TEST_F(Encoders, ByteOrderMarksAreDetectedAndReturnedWithTheirEncodings) {
    const std::pair<std::string, int64_t> detect[] = {
        {"\xFF\xFE", 4},          {"\xFF\xFE\x00\x00"s, 7}, {"\xFF\xFE\x41\x00"s, 4},
        {"\x00\x00\xFE\xFF"s, 6}, {"\x00\x41"s, 0},         {"\xEF\xBB", 0},
        {"\xEF\xBB\xBF", 1},      {"\xFE\xFF", 3},
    };
    for (const auto& [bytes, kind] : detect) {
        EXPECT_EQ(call("DetectUnicodeMarkersKXT", {Raw(bytes)}).asInteger(), kind);
    }
    const std::tuple<int64_t, std::string, uint32_t> marks[] = {
        {1, "\xEF\xBB\xBF", kUTF8},       {2, "\xFF\xFE", kUTF16},
        {3, "\xFE\xFF", kUTF16},          {4, "\xFF\xFE", kUTF16},
        {5, "\xFF\xFE\x00\x00"s, kUTF32}, {6, "\x00\x00\xFE\xFF"s, kUTF32},
        {7, "\xFF\xFE\x00\x00"s, kUTF32},
    };
    for (const auto& [kind, bytes, encoding] : marks) {
        expectString("GetUnicodeMarkersKXT", {I(kind)}, bytes, encoding);
    }
    expectNil("GetUnicodeMarkersKXT", {I(0)});
    expectNil("GetUnicodeMarkersKXT", {I(8)});
    expectNil("GetUnicodeMarkersKXT", {I(-1)});
}

class EncodersOnOldHosts : public Encoders {
  protected:
    xhost::HostOptions options() const override {
        xhost::HostOptions o;
        o.version = 2011.0;
        return o;
    }
};

// Hosts that convert UTF-16 results get the decoded UTF-8 directly, old ones the UTF-16 that
// they keep: the same text either way, at lengths past the sixteen-byte steps.
TEST_F(Encoders, CodePageDecodersGiveUTF8OfEveryByte) {
    std::string in =
        "Gr\xFC\xDF"
        "e aus K\xF6ln, \x93quoted\x94 and a caf\xE9 or two: ";
    for (int b = 255; b >= 0; --b) in += char(b);
    expectString("DecodingFromISO8859KXT", {Raw(in)},
                 xhost::encodings::convert(in, kLatin1, kUTF8).value(), kUTF8);
    // Without the five undefined bytes, which the plugin's own table decodes to U+0000.
    std::string defined;
    for (char c : in) {
        if (std::string_view("\x81\x8D\x8F\x90\x9D").find(c) == std::string_view::npos) {
            defined += c;
        }
    }
    expectString("DecodingFromCP1252KXT", {Raw(defined)},
                 xhost::encodings::convert(defined, kCP1252, kUTF8).value(), kUTF8);
}

// UTF-8 text is encoded from its UTF-8 directly; the result is that of its UTF-16 form.
TEST_F(Encoders, CodePageEncodersReadUTF8AsItsUTF16Form) {
    expectString("EncodingToISO8859KXT",
                 {S("\xEF\xBB\xBF"
                    "caf\xC3\xA9 and more than sixteen")},
                 "caf\xE9 and more than sixteen", kNone);
    expectString("EncodingToCP1252KXT", {S("a\xF0\x9F\x98\x80")}, "a", kASCII);  // three units
    expectNil("EncodingToCP1252KXT", {S("ab\xEF\xBB\xBF")});                     // two units
    expectString("EncodingToCP1252KXT", {S("\xE2\x82\xAC\xE2\x80\x9C ok")}, "\x80\x93 ok", kNone);
    expectString("EncodingToISO8859KXT", {S("plain ascii", kASCII)}, "plain ascii", kASCII);
    // Malformed UTF-8 takes the UTF-16 way, which reads up to the flaw.
    expectString("EncodingToISO8859KXT", {S("abc\xC3\xA9\xFFxyz")}, "abc\xE9", kNone);
}

TEST_F(EncodersOnOldHosts, CodePageDecodersGiveUTF16) {
    const std::string in = "caf\xE9 \x80 and more than sixteen bytes \x93";
    expectString("DecodingFromCP1252KXT", {Raw(in)},
                 xhost::encodings::convert(in, kCP1252, kUTF16).value(), kUTF16);
}

TEST_F(EncodersOnOldHosts, MarksKeepTheirBytesAndTags) {
    expectString("GetUnicodeMarkersKXT", {I(3)}, "\xFE\xFF", kUTF16);
    expectString("GetUnicodeMarkersKXT", {I(6)}, "\x00\x00\xFE\xFF"s, kUTF32);
}

// Whatever the bytes and their declared encoding, every decoder gives a result or nil without
// raising; the fixture checks that nothing leaks.
TEST_F(Encoders, AnyInputIsReadWithoutRaising) {
    std::mt19937 rng(2024);
    const uint32_t encodings[] = {kUTF8,     kASCII, kLatin1, kCP1252,
                                  kMacRoman, kUTF16, kUTF32,  kNone};
    const char* oneArgument[] = {"EncodeEmailSubjectKXT",
                                 "_yDecodeStringKXT",
                                 "DetectUnicodeMarkersKXT",
                                 "StringIsHTMLreadyKXT",
                                 "StringIsXMLreadyKXT",
                                 "DecodingFromMySQLKXT",
                                 "EncodingToHTMLKXT",
                                 "DecodingFromHTMLKXT",
                                 "EncodingToXMLKXT",
                                 "DecodingFromXMLKXT",
                                 "EncodingToQuotedPrintableKXT",
                                 "DecodingFromQuotedPrintableKXT",
                                 "EncodingToISO8859KXT",
                                 "DecodingFromISO8859KXT",
                                 "EncodingToCP1252KXT",
                                 "DecodingFromCP1252KXT",
                                 "EncodingToHexKXT",
                                 "DecodingFromHexKXT"};
    for (int round = 0; round < 300; ++round) {
        std::string bytes(rng() % 24, '\0');
        for (char& c : bytes) c = rng() % 3 ? "&#x;=\\\r\n\xFF\xFE"[rng() % 10] : char(rng());
        Value in = S(bytes, encodings[rng() % std::size(encodings)]);
        for (const char* name : oneArgument) {
            CallResult r = host().call(name, {in});
            ASSERT_FALSE(r.exception.has_value()) << name << " raised " << r.exception->message;
        }
        CallResult r = host().call("_yDecodeMemoryKXT", {MB(bytes)});
        ASSERT_FALSE(r.exception.has_value());
        r = host().call("HexstringKXT",
                        {in, I(int64_t(rng() % 5) - 1), I(int64_t(rng() % 5) - 1), in, in, in, in});
        ASSERT_FALSE(r.exception.has_value());
    }
}

}  // namespace
