// Accent removal: the plain function over UTF-16 units, and the registered method through the
// host (in a built application and in the IDE, where the table is never built).
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "KxtTest.h"
#include "RemoveAccents.h"
#include "utf_reference.h"

using namespace kxt_test;

namespace {

using Units = std::vector<uint16_t>;

Units U(std::u16string_view s) {
    return Units(s.begin(), s.end());
}

class RemoveAccents : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { InitTable(); }

    static Units remove(std::u16string_view text, bool ignoreCase = false) {
        return kxt::removeAccentsUTF16(U(text), ignoreCase);
    }
};

struct Case {
    std::u16string input;
    bool ignoreCase;
    std::u16string expected;
};

TEST_F(RemoveAccents, DropsExactlyTheCombiningDiacriticalMarks) {
    EXPECT_EQ(remove(u"e\u0301"), U(u"e"));
    EXPECT_EQ(remove(u"\u02FFa\u0300b\u036Fc\u0370"), U(u"\u02FFabc\u0370"));
    EXPECT_EQ(remove(u"\u0483\u1DC0\u20D0"), U(u"\u0483\u1DC0\u20D0"));  // other mark blocks stay
}

TEST_F(RemoveAccents, SpellsOutFractionsAndTheAELigature) {
    const std::pair<char16_t, const char16_t*> cases[] = {
        {u'\u00BC', u"1/4"}, {u'\u00BD', u"1/2"}, {u'\u00BE', u"3/4"}, {u'\u00C6', u"AE"},
        {u'\u00E6', u"ae"},  {u'\u2150', u"1/7"}, {u'\u2151', u"1/9"}, {u'\u2152', u"1/10"},
        {u'\u2153', u"1/3"}, {u'\u2154', u"2/3"}, {u'\u2155', u"1/5"}, {u'\u2156', u"2/5"},
        {u'\u2157', u"3/5"}, {u'\u2158', u"4/5"}, {u'\u2159', u"1/6"}, {u'\u215A', u"5/6"},
        {u'\u215B', u"1/8"}, {u'\u215C', u"3/8"}, {u'\u215D', u"5/8"}, {u'\u215E', u"7/8"},
        {u'\u2189', u"0/3"},
    };
    for (const auto& [unit, text] : cases) {
        EXPECT_EQ(remove(std::u16string(1, unit)), U(text)) << std::hex << int(unit);
    }
    EXPECT_EQ(remove(u"\u00C6sir"), U(u"AEsir"));
    EXPECT_EQ(remove(u"\u215F\u2160"), U(u"\u215F\u2160"));  // neighbours stay
}

TEST_F(RemoveAccents, IgnoreCaseUpperCasesOnlyASCIILetters) {
    const Case cases[] = {
        {u"Cr\u00E8me Br\u00FBl\u00E9e", true, u"CREME BRULEE"},
        {u"\u00E6 \u00DF \uFF41", true, u"AE S A"},
        {u"\u03B1\u03B2 \u0439 {|}`@[", true, u"\u03B1\u03B2 \u0439 {|}`@["},
        {u"az AZ", true, u"AZ AZ"},
        {u"az", false, u"az"},
    };
    for (const auto& c : cases) EXPECT_EQ(remove(c.input, c.ignoreCase), U(c.expected));
}

TEST_F(RemoveAccents, MapsEveryOtherUnitThroughTheTable) {
    Units all(65536);
    for (size_t u = 0; u < all.size(); ++u) all[u] = uint16_t(u);
    const Units out = kxt::removeAccentsUTF16(all, false);
    // Each unit gives its table value, apart from the 112 marks (dropped) and the 21 spelled
    // out characters (two of 2 units, one of 4, the rest 3).
    EXPECT_EQ(out.size(), 65536u - 112 - 21 + (2 * 2 + 4 + 18 * 3));
    size_t w = 0;
    for (uint32_t u = 0; u < 65536; ++u) {
        if (u >= 0x300 && u < 0x370) continue;
        if ((u >= 0xBC && u <= 0xBE) || u == 0xC6 || u == 0xE6 || (u >= 0x2150 && u <= 0x215E) ||
            u == 0x2189) {
            w += (u == 0x2152) ? 4 : (u == 0xC6 || u == 0xE6) ? 2 : 3;
            continue;
        }
        ASSERT_LT(w, out.size());
        ASSERT_EQ(out[w], AccentTable[u]) << std::hex << u;
        ++w;
    }
}

// What the UTF-8 form relies on.
TEST_F(RemoveAccents, TableLeavesASCIIAndSurrogatesAloneAndMakesNoSurrogate) {
    for (uint32_t u = 0; u < 65536; ++u) {
        const bool surrogate = u >= 0xD800 && u <= 0xDFFF;
        if (u < 0x80 || surrogate) {
            ASSERT_EQ(AccentTable[u], u) << std::hex << u;
        } else {
            ASSERT_FALSE(AccentTable[u] >= 0xD800 && AccentTable[u] <= 0xDFFF) << std::hex << u;
        }
    }
}

// Random text of ASCII runs, overridden and spelled-out characters, marks, byte order marks and
// supplementary code points.
std::vector<uint32_t> randomPoints(std::mt19937& rng) {
    static const uint32_t pieces[] = {'a',    'z',    'Q',     ' ',      0xC0,   0xE9,
                                      0xBD,   0xC6,   0xE6,    0x301,    0x36F,  0x2152,
                                      0x2189, 0xFF41, 0x1F48,  0x3C9,    0xFEFF, 0xFFFE,
                                      0x2019, 0xA0,   0x1F600, 0x10FFFF, 0};
    std::vector<uint32_t> points;
    for (size_t k = rng() % 40; k > 0; --k) {
        if (rng() % 4 == 0) {
            points.insert(points.end(), rng() % 40, uint32_t("abcXYZ 09"[rng() % 9]));
        } else {
            points.push_back(pieces[rng() % std::size(pieces)]);
        }
    }
    return points;
}

TEST_F(RemoveAccents, UTF8FormAgreesWithTheUTF16Form) {
    std::mt19937 rng(12);
    for (int round = 0; round < 3000; ++round) {
        const std::vector<uint32_t> points = randomPoints(rng);
        const std::string bytes = ref::utf8Of(points);
        std::vector<uint32_t> unmarked;
        for (uint32_t c : points) {
            if (c != 0xFEFF && c != 0xFFFE) unmarked.push_back(c);
        }
        for (bool ignoreCase : {false, true}) {
            ASSERT_EQ(kxt::removeAccentsUTF8(bytes, ignoreCase).view(),
                      ref::utf8Of(ref::codePointsOf(
                          kxt::removeAccentsUTF16(ref::utf16Of(unmarked), ignoreCase))))
                << testing::PrintToString(bytes) << " ignoreCase " << ignoreCase;
        }
    }
}

// ---- Through the host ---------------------------------------------------------------------------

constexpr const char* kRemoveAccents = "RemoveAccentsKXT";

class RemoveAccentsMethod : public HostTest {};

TEST_F(RemoveAccentsMethod, AnswersInUnicodeForAnyInputEncoding) {
    Value r = call(kRemoveAccents, {S("Cr\xC3\xA8me Br\xC3\xBBl\xC3\xA9"
                                      "e")});
    EXPECT_EQ(r.bytes(), "Creme Brulee");
    EXPECT_EQ(r.encoding(), kREALTextEncodingUTF8);
    EXPECT_EQ(callBytes(kRemoveAccents, {S("Cr\xC3\xA8me Br\xC3\xBBl\xC3\xA9"
                                           "e"),
                                         B(true)}),
              "CREME BRULEE");
    EXPECT_EQ(callBytes(kRemoveAccents, {S("\xBD \xC6sir Stra\xDF"
                                           "e",
                                           kREALTextEncodingISOLatin1)}),
              "1/2 AEsir Strase");
    const std::string utf16("\x19\x20\x21\xFF", 4);  // U+2019 U+FF21, little-endian
    EXPECT_EQ(callBytes(kRemoveAccents, {S(utf16, kREALTextEncodingUTF16)}), "'A");
    // Greek stays Greek: U+1F48 U+03B4 becomes U+039F U+03B4.
    EXPECT_EQ(callBytes(kRemoveAccents, {S("\xE1\xBD\x88\xCE\xB4"), B(true)}), "\xCE\x9F\xCE\xB4");
}

TEST_F(RemoveAccentsMethod, NilAndEmptyGiveNil) {
    EXPECT_TRUE(call(kRemoveAccents, {Nil()}).isNil());
    EXPECT_TRUE(call(kRemoveAccents, {S("")}).isNil());
    EXPECT_TRUE(call(kRemoveAccents, {S(""), B(true)}).isNil());
    // Only a combining mark: nothing is left.
    EXPECT_TRUE(call(kRemoveAccents, {S("\xCC\x81")}).isNil());
}

TEST_F(RemoveAccentsMethod, UTF8TextGivesWhatItsUTF16FormGives) {
    std::mt19937 rng(13);
    for (int round = 0; round < 300; ++round) {
        const std::vector<uint32_t> points = randomPoints(rng);
        // The UTF-16 form of UTF-8 text has no byte order marks anywhere.
        bool complete = true;
        const std::vector<uint16_t> units =
            ref::utf16Of(ref::decodeUTF8(ref::utf8Of(points), &complete));
        const std::string utf16(reinterpret_cast<const char*>(units.data()), units.size() * 2);
        for (bool ignoreCase : {false, true}) {
            const Value a = call(kRemoveAccents, {S(ref::utf8Of(points)), B(ignoreCase)});
            const Value b = call(kRemoveAccents, {S(utf16, kREALTextEncodingUTF16), B(ignoreCase)});
            ASSERT_EQ(a.isNil(), b.isNil());
            ASSERT_EQ(a.bytes(), b.bytes()) << testing::PrintToString(a.bytes());
            if (!a.isNil()) {
                ASSERT_EQ(a.encoding(), b.encoding());
            }
        }
    }
}

// The table is built only when the plugin starts inside a built application; in the IDE every
// unit that is not dropped or spelled out becomes U+0000.
class RemoveAccentsMethodInTheIDE : public HostTest {
    xhost::HostOptions options() const override {
        xhost::HostOptions o;
        o.inRuntime = false;
        return o;
    }
};

TEST_F(RemoveAccentsMethodInTheIDE, GivesZeroUnitsWithoutTheTable) {
    EXPECT_EQ(callBytes(kRemoveAccents, {S("Cr\xC3\xA8me \xC2\xBD")}),
              std::string(6, '\0') + "1/2");
    EXPECT_EQ(callBytes(kRemoveAccents, {S("ae\xCC\x81"), B(true)}), std::string(2, '\0'));
}

}  // namespace
