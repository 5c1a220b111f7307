// ISO-8859-1 and Windows-1252: the tables and both directions.
#include "ISOencoding.h"

#include <gtest/gtest.h>
#include <iconv.h>

#include <algorithm>
#include <random>
#include <string>

#include "utf_reference.h"

namespace {

using namespace std::string_literals;

std::string encode(std::u16string_view units, const kxt::CodePage& page) {
    return kxt::encodeCodePage({reinterpret_cast<const uint16_t*>(units.data()), units.size()},
                               page);
}
std::u16string decode(std::string_view bytes, const kxt::CodePage& page) {
    std::vector<uint16_t> units = kxt::decodeCodePage(bytes, page);
    return {units.begin(), units.end()};
}

TEST(CodePageTables, ISO8859IsTheIdentity) {
    for (size_t b = 0; b < 256; ++b) EXPECT_EQ(kxt::ISO8859Table[b], b);
}

// The C library's own converter is an independent copy of the published mapping; it rejects
// the undefined bytes.
TEST(CodePageTables, CP1252AgreesWithTheCLibrary) {
    iconv_t cd = iconv_open("UTF-16LE", "CP1252");
    ASSERT_NE(cd, iconv_t(-1));
    for (size_t b = 0; b < 256; ++b) {
        char in = char(b);
        char out[4] = {};
        char* inPtr = &in;
        char* outPtr = out;
        size_t inLeft = 1, outLeft = sizeof out;
        iconv(cd, nullptr, nullptr, nullptr, nullptr);
        size_t r = iconv(cd, &inPtr, &inLeft, &outPtr, &outLeft);
        if (r == size_t(-1)) {
            EXPECT_EQ(kxt::CP1252Table[b], 0) << "byte " << b << " is undefined";
        } else {
            uint16_t unit = uint16_t(uint8_t(out[0]) | uint8_t(out[1]) << 8);
            EXPECT_EQ(kxt::CP1252Table[b], unit) << "byte " << b;
        }
    }
    iconv_close(cd);
}

TEST(CodePageEncode, KeepsWhatThePageHoldsAndDropsTheRest) {
    const std::tuple<std::u16string, const kxt::CodePage*, std::string> cases[] = {
        {u"\u20ACuro", &kxt::CP1252, "\x80uro"},
        {u"\u20ACuro", &kxt::ISO8859, "uro"},
        {u"\u00E9", &kxt::ISO8859, ""},  // fewer than 3 units are not converted
        {u"ab", &kxt::CP1252, ""},
        {u"ab\u00E9", &kxt::ISO8859, "ab\xE9"},
        {u"\u201C\u201D\u0178", &kxt::CP1252, "\x93\x94\x9F"},
        {u"ab\u0093", &kxt::CP1252, "ab"},  // U+0093 is not in Windows-1252
        {u"ab\u0093", &kxt::ISO8859, "ab\x93"},
        {u"ab\u0081", &kxt::CP1252, "ab"},
        {u"ab\0"s, &kxt::CP1252, "ab\0"s},  // the first zero entry, byte 0
        {u"ab\U0001F600", &kxt::CP1252, "ab"},
        {u"ab\U0001F600", &kxt::ISO8859, "ab"},
        {u"\u0100\u4E2D\uFFFF", &kxt::ISO8859, ""},
    };
    for (const auto& [in, page, expected] : cases) EXPECT_EQ(encode(in, *page), expected);
}

TEST(CodePageDecode, MapsEveryByteThroughTheTable) {
    EXPECT_EQ(decode("\x93", kxt::CP1252), u"\u201C");
    EXPECT_EQ(decode("\x81", kxt::CP1252), std::u16string(1, u'\0'));
    EXPECT_EQ(decode("\x93", kxt::ISO8859), u"\u0093");
    EXPECT_EQ(decode("a\x80\xFF", kxt::CP1252), u"a\u20AC\u00FF");
    EXPECT_EQ(decode("", kxt::CP1252), u"");
}

// The lookup as first described: the first table index whose entry equals the unit.
std::string referenceEncode(std::u16string_view units, const kxt::CodePageTable& table) {
    if (units.size() < 3) return "";
    std::string out;
    for (char16_t u : units) {
        for (size_t k = 0; k < 256; ++k) {
            if (table[k] == u) {
                out += char(k);
                break;
            }
        }
    }
    return out;
}

TEST(CodePageProperty, ReverseLookupAgreesWithTableScan) {
    std::mt19937 rng(1252);
    for (int round = 0; round < 3000; ++round) {
        // Short texts, and long ones of mostly ASCII for the eight-unit steps.
        const bool longText = round % 2 == 1;
        std::u16string in(rng() % (longText ? 120 : 12), u'\0');
        for (char16_t& u : in) {
            u = rng() % 2 ? char16_t(rng() % 0x100) : char16_t(kxt::CP1252Table[rng() % 256]);
            if (longText && rng() % 8 != 0) u = char16_t(rng() % 0x80);
            if (rng() % 8 == 0) u = char16_t(rng());
        }
        ASSERT_EQ(encode(in, kxt::CP1252), referenceEncode(in, kxt::CP1252Table));
        ASSERT_EQ(encode(in, kxt::ISO8859), referenceEncode(in, kxt::ISO8859Table));
    }
}

TEST(CodePageProperty, EncodingUndoesDecoding) {
    std::mt19937 rng(8859);
    for (int round = 0; round < 2000; ++round) {
        std::string in(3 + rng() % 100, '\0');
        for (char& c : in) c = round % 2 && rng() % 8 ? char(rng() % 0x80) : char(rng());
        EXPECT_EQ(encode(decode(in, kxt::ISO8859), kxt::ISO8859), in);
        // Undefined Windows-1252 bytes come back as byte 0.
        std::string expected = in;
        for (char& c : expected) {
            if (kxt::CP1252Table[uint8_t(c)] == 0) c = '\0';
        }
        EXPECT_EQ(encode(decode(in, kxt::CP1252), kxt::CP1252), expected);
    }
}

std::string utf8Of(std::u16string_view units) {
    return ref::utf8Of(ref::codePointsOf(units));
}

std::string decodeUTF8(std::string_view bytes, const kxt::CodePage& page) {
    std::string out(kxt::decodedUTF8Room(bytes.size()), '\x55');
    out.resize(kxt::decodeCodePageUTF8(bytes, page, out.data()));
    return out;
}

TEST(CodePageProperty, DirectUTF8AgreesWithUTF16ThenUTF8) {
    std::mt19937 rng(1250);
    const std::string all = [] {
        std::string s;
        for (int b = 0; b < 256; ++b) s += char(b);
        return s;
    }();
    for (const kxt::CodePage* page : {&kxt::ISO8859, &kxt::CP1252}) {
        ASSERT_EQ(decodeUTF8(all, *page), utf8Of(decode(all, *page)));
    }
    for (int round = 0; round < 4000; ++round) {
        // Every length up to a few blocks, at every offset into a buffer; mostly ASCII with
        // high bytes (single, in runs, at block edges and in the tail) or all high bytes.
        const auto length = size_t(round % 80), offset = size_t(round / 80 % 16);
        std::string buffer(offset + length, '\0');
        const unsigned highOneIn = round % 3 == 0 ? 1 : 2 + unsigned(round % 17);
        for (char& c : buffer)
            c = rng() % highOneIn == 0 ? char(0x80 + rng() % 0x80) : char(rng() % 0x80);
        const std::string_view in = std::string_view(buffer).substr(offset);
        for (const kxt::CodePage* page : {&kxt::ISO8859, &kxt::CP1252}) {
            ASSERT_EQ(decodeUTF8(in, *page), utf8Of(decode(in, *page)))
                << (page == &kxt::CP1252 ? "CP1252 " : "ISO8859 ") << testing::PrintToString(in);
        }
    }
}

// UTF-8 of code points, and the UTF-16 form that the UTF-16 way reads from it.
struct Text {
    std::string utf8;
    std::u16string utf16;
};

Text textOf(const std::vector<uint32_t>& points) {
    std::vector<uint32_t> read;  // the UTF-16 way drops byte-order marks
    for (uint32_t cp : points) {
        if (cp != 0xFEFF && cp != 0xFFFE) read.push_back(cp);
    }
    const std::vector<uint16_t> units = ref::utf16Of(read);
    return {ref::utf8Of(points), std::u16string(units.begin(), units.end())};
}

TEST(CodePageProperty, EncodingFromUTF8AgreesWithEncodingItsUTF16Form) {
    std::mt19937 rng(1258);
    const uint32_t specials[] = {0x20AC, 0x201C, 0x0152,  0x00E9, 0x00FF, 0x0081,
                                 0xFEFF, 0xFFFE, 0x1F600, 0x4E2D, 0x0100, 0x0000};
    for (int round = 0; round < 5000; ++round) {
        std::vector<uint32_t> points(round % 60 < 10 ? size_t(round % 6) : size_t(rng() % 70));
        for (uint32_t& cp : points) {
            const unsigned r = rng() % 8;
            cp = r < 5   ? rng() % 0x80
                 : r < 7 ? specials[rng() % std::size(specials)]
                         : rng() % 0x800;
        }
        const Text t = textOf(points);
        const size_t offset = size_t(round) % 16;
        const std::string buffer = std::string(offset, '-') + t.utf8;
        const std::string_view in = std::string_view(buffer).substr(offset);
        for (const kxt::CodePage* page : {&kxt::ISO8859, &kxt::CP1252}) {
            std::string out(in.size() + 16, '\x55');
            bool ascii = false;
            const auto length = kxt::encodeCodePageUTF8(in, *page, out.data(), &ascii);
            const std::string expected = encode(t.utf16, *page);
            const std::string got = length ? out.substr(0, *length) : std::string();
            ASSERT_EQ(got, expected) << testing::PrintToString(in);
            // None exactly when the UTF-16 form is too short to be converted.
            ASSERT_EQ(length.has_value(), t.utf16.size() >= 3) << testing::PrintToString(in);
            if (length) {
                ASSERT_EQ(ascii, std::all_of(expected.begin(), expected.end(),
                                             [](char c) { return uint8_t(c) < 0x80; }))
                    << testing::PrintToString(in);
            }
        }
    }
}

}  // namespace
