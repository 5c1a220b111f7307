// Canonical composition and decomposition: the plain functions against table-driven cases and
// against a straightforward linear scan of the table, and the registered methods through the host.
#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "KxtTest.h"
#include "MainStringCompose.h"
#include "UnicodeTables.h"
#include "utf_reference.h"

using namespace kxt_test;

namespace {

using Units = std::vector<uint16_t>;

Units U(std::u16string_view s) {
    return Units(s.begin(), s.end());
}

std::string hex(const Units& units) {
    std::string s;
    char buf[8];
    for (uint16_t u : units) {
        snprintf(buf, sizeof buf, "%04X ", u);
        s += buf;
    }
    return s;
}

// Composition exactly as the rule reads: at each candidate unit, scan the whole table in order
// for the first entry whose parts all match.
Units composeByLinearScan(const Units& text) {
    const uint8_t* firstParts = InitCharsWhoCanBeCompositionLookupTable();
    Units out;
    size_t i = 0;
    while (i < text.size()) {
        const uint16_t c = text[i];
        const kxt::DecompositionEntry* match = nullptr;
        size_t length = 0;
        if (firstParts[c] != 0) {
            for (const auto& e : kxt::DecompositionTable) {
                size_t p = 0;
                while (p < 5 && e.parts[p] != 0 && i + p < text.size() &&
                       text[i + p] == e.parts[p]) {
                    ++p;
                }
                if (p < 5 && e.parts[p] != 0) continue;
                match = &e;
                length = p;
                break;
            }
        }
        if (match != nullptr) {
            out.push_back(match->composed);
            i += length;
        } else {
            out.push_back(c);
            ++i;
        }
    }
    return out;
}

Units decomposeByLinearScan(const Units& text) {
    Units out;
    for (uint16_t c : text) {
        const kxt::DecompositionEntry* found = nullptr;
        for (const auto& e : kxt::DecompositionTable) {
            if (e.composed == c) found = &e;
        }
        if (found == nullptr) {
            out.push_back(c);
            continue;
        }
        for (size_t p = 0; p < 5 && found->parts[p] != 0; ++p) out.push_back(found->parts[p]);
    }
    return out;
}

struct Case {
    std::u16string input;
    std::u16string expected;
};

TEST(Compose, TakesTheFirstMatchingEntryInTableOrder) {
    const Case cases[] = {
        {u"", u""},
        {u"e\u0301", u"\u00E9"},
        {u"Cre\u0300me Bru\u0302le\u0301e", u"Cr\u00E8me Br\u00FBl\u00E9e"},
        // U+00C7 precedes U+1E08, so the longer match is not taken.
        {u"C\u0327\u0301", u"\u00C7\u0301"},
        // Hangul: the L V syllable precedes every L V T syllable built on it.
        {u"\u1100\u1161\u11A8", u"\uAC00\u11A8"},
        {u"\u1100\u1161", u"\uAC00"},
        {u"\u1100", u"\u1100"},
        {u"\u1100\u11A8", u"\u1100\u11A8"},
        // No rescan: A+diaeresis is never combined again with the macron (U+01DE).
        {u"A\u0308\u0304", u"\u00C4\u0304"},
        {u"\u00C4\u0304", u"\u00C4\u0304"},
        // Marks in non-canonical order are not matched as one sequence.
        {u"e\u0302\u0323", u"\u00EA\u0323"},
        {u"e\u0323\u0302", u"\u1EB9\u0302"},
        {u"\u03B1\u0313\u0300\u0345", u"\u1F00\u0300\u0345"},
        {u"\u0CC6\u0CC2\u0CD5", u"\u0CCA\u0CD5"},
        {u"\u0308\u0301", u"\u0344"},
        // A part that would lie past the end does not match.
        {u"e", u"e"},
        {u"ba\u0301", u"b\u00E1"},
        {u"xe\u1100", u"xe\u1100"},
        // Precomposed text and plain letters stay as they are.
        {u"\u00E9abc", u"\u00E9abc"},
        // Surrogate pairs pass through, except the seven singleton targets.
        {u"\U0001F600", u"\U0001F600"},
        {u"\U000242EE\U0002284A\U00022844\U000233D5\U00025249\U00025CD0\U00027ED3",
         u"\uFA6C\uFACF\uFAD0\uFAD1\uFAD5\uFAD6\uFAD7"},
        {u"\xD850", u"\xD850"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(kxt::composeUTF16(U(c.input)), U(c.expected)) << hex(U(c.input));
    }
}

TEST(Compose, RecomposesPrecomposedLatinOneLetters) {
    for (uint16_t u = 0xC0; u <= 0xFF; ++u) {
        if (kxt::findDecomposition(u) == nullptr) continue;
        const Units one = {u};
        EXPECT_EQ(kxt::composeUTF16(kxt::decomposeUTF16(one)), one) << std::hex << u;
    }
}

// Random text built from the pieces where composition has choices to make.
class TextGenerator {
  public:
    explicit TextGenerator(uint32_t seed) : rng_(seed) {}

    Units next() {
        Units text;
        const int pieces = pick(0, 12);
        for (int k = 0; k < pieces; ++k) appendPiece(text);
        return text;
    }

  private:
    int pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(rng_); }
    uint16_t unit(uint16_t low, uint16_t high) { return uint16_t(pick(low, high)); }

    void appendPiece(Units& text) {
        static const uint16_t kMarks[] = {0x0300, 0x0301, 0x0302, 0x0303, 0x0304, 0x0306, 0x0307,
                                          0x0308, 0x0309, 0x030A, 0x030B, 0x030C, 0x031B, 0x0323,
                                          0x0327, 0x0328, 0x0313, 0x0314, 0x0342, 0x0345, 0x0338};
        switch (pick(0, 8)) {
            case 8:  // a run of unaccented text, long enough for the block steps
                for (int m = pick(5, 24); m > 0; --m)
                    text.push_back(pick(0, 5) ? unit('a', 'z') : u' ');
                break;
            case 0:  // Latin letter with marks
                text.push_back(pick(0, 1) ? unit('A', 'Z') : unit('a', 'z'));
                for (int m = pick(0, 3); m > 0; --m) text.push_back(kMarks[pick(0, 20)]);
                break;
            case 1:  // Hangul jamo, valid or not
                for (int m = pick(1, 4); m > 0; --m) {
                    const int kind = pick(0, 2);
                    text.push_back(kind == 0   ? unit(0x1100, 0x1112)
                                   : kind == 1 ? unit(0x1161, 0x1175)
                                               : unit(0x11A8, 0x11C2));
                }
                break;
            case 2:  // Greek with breathings, accents, iota subscript
                text.push_back(pick(0, 1) ? unit(0x0391, 0x03A9) : unit(0x03B1, 0x03C9));
                for (int m = pick(0, 3); m > 0; --m) text.push_back(kMarks[pick(14, 19)]);
                break;
            case 3: {  // a surrogate pair, often one of the seven table targets
                static const uint32_t kTargets[] = {0x242EE, 0x2284A, 0x22844, 0x233D5,
                                                    0x25249, 0x25CD0, 0x27ED3};
                const uint32_t v =
                    (pick(0, 1) ? kTargets[pick(0, 6)] : uint32_t(pick(0x10000, 0x10FFFF))) -
                    0x10000;
                text.push_back(uint16_t(0xD800 + (v >> 10)));
                if (pick(0, 5) != 0) text.push_back(uint16_t(0xDC00 + (v & 0x3FF)));
                break;
            }
            case 4:  // the parts of a random entry, perhaps cut short
            case 5: {
                const auto& e = kxt::DecompositionTable[pick(0, int(kxt::kDecompositionCount) - 1)];
                const int keep = pick(1, 4);
                for (int p = 0; p < keep && e.parts[p] != 0; ++p) text.push_back(e.parts[p]);
                break;
            }
            case 6:  // any unit
                text.push_back(unit(0, 0xFFFF));
                break;
            default:  // a mark on its own
                text.push_back(kMarks[pick(0, 20)]);
                break;
        }
    }

    std::mt19937 rng_;
};

TEST(Compose, AgreesWithTheLinearScanOnRandomText) {
    TextGenerator generator(20240611);
    for (int n = 0; n < 20000; ++n) {
        const Units text = generator.next();
        ASSERT_EQ(kxt::composeUTF16(text), composeByLinearScan(text)) << "input: " << hex(text);
    }
}

// Runs of unchanging units (Latin, CJK, Greek) of every length before and after a pair that
// composes or a unit that decomposes, so that it falls at every place of the eight-unit steps.
TEST(Compose, BlockStepsStopAtEveryChange) {
    const Units fillers = {u'a', 0x4E2D, 0x03B1};
    const Units pairs[] = {{u'e', 0x0301}, {0x1100, 0x1161}, {0x3046, 0x3099}, {0xAC00}, {0xE9}};
    for (const uint16_t filler : fillers) {
        for (const Units& pair : pairs) {
            for (size_t before = 0; before < 26; ++before) {
                for (size_t after = 0; after < 10; ++after) {
                    Units text(before, filler);
                    text.insert(text.end(), pair.begin(), pair.end());
                    text.insert(text.end(), after, filler);
                    ASSERT_EQ(kxt::composeUTF16(text), composeByLinearScan(text)) << hex(text);
                    ASSERT_EQ(kxt::decomposeUTF16(text), decomposeByLinearScan(text)) << hex(text);
                }
            }
        }
    }
}

TEST(Decompose, AgreesWithTheLinearScanOnRandomText) {
    TextGenerator generator(7);
    for (int n = 0; n < 300; ++n) {
        Units text = generator.next();
        // Precomposed text too, so that most units hit the table.
        for (uint16_t& u : text) {
            if (u % 3 == 0) u = kxt::DecompositionTable[u % kxt::kDecompositionCount].composed;
        }
        ASSERT_EQ(kxt::decomposeUTF16(text), decomposeByLinearScan(text)) << "input: " << hex(text);
    }
}

// ---- Through the host ---------------------------------------------------------------------------

std::string utf8(std::u16string_view s) {
    return ref::utf8Of(ref::codePointsOf(s));
}

std::string utf16Bytes(std::u16string_view s) {
    return std::string(reinterpret_cast<const char*>(s.data()), s.size() * 2);
}

// ---- The UTF-8 forms against the UTF-16 ones ---------------------------------------------------

// Generated text made well-formed (a lone surrogate becomes U+FFFD), with U+FEFF and U+FFFE
// sprinkled in: the UTF-16 form of such UTF-8 leaves those two out.
struct UTF8Case {
    std::string utf8;
    Units utf16;  // as the UTF-16 way reads it
};

UTF8Case utf8Case(const Units& generated, std::mt19937& rng) {
    std::u16string text;
    for (size_t i = 0; i < generated.size(); ++i) {
        const uint16_t u = generated[i];
        if (u >= 0xD800 && u < 0xDC00 && i + 1 < generated.size() && generated[i + 1] >= 0xDC00 &&
            generated[i + 1] < 0xE000) {
            text += char16_t(u);
            text += char16_t(generated[++i]);
        } else {
            text += char16_t(u >= 0xD800 && u < 0xE000 ? 0xFFFD : u);
        }
        if (rng() % 16 == 0) text += rng() % 2 ? u'\uFEFF' : u'\uFFFE';
    }
    UTF8Case c{utf8(text), {}};
    for (char16_t u : text) {
        if (u != 0xFEFF && u != 0xFFFE) c.utf16.push_back(u);
    }
    return c;
}

std::string composedUTF8(std::string_view text) {
    std::string out(kxt::composedUTF8Room(text.size()), '\x55');
    out.resize(kxt::composeUTF8(text, out.data()));
    return out;
}

std::string decomposedUTF8(std::string_view text) {
    std::string out(kxt::decomposedUTF8Room(text.size()), '\x55');
    out.resize(kxt::decomposeUTF8(text, out.data()));
    return out;
}

std::string utf8Of(const Units& units) {
    return utf8(std::u16string(units.begin(), units.end()));
}

TEST(UTF8Forms, AgreeWithTheUTF16FormsOnRandomText) {
    TextGenerator generator(1302);
    std::mt19937 rng(1303);
    for (int n = 0; n < 20000; ++n) {
        Units generated = generator.next();
        if (n % 2 == 1) {  // precomposed text too, so that decomposition has work
            for (uint16_t& u : generated) {
                if (u % 3 == 0) u = kxt::DecompositionTable[u % kxt::kDecompositionCount].composed;
            }
        }
        const UTF8Case c = utf8Case(generated, rng);
        // At every offset into a buffer, so the sixteen-byte steps meet every alignment.
        const size_t offset = size_t(n) % 16;
        const std::string buffer = std::string(offset, 'x') + c.utf8;
        const std::string_view in = std::string_view(buffer).substr(offset);
        ASSERT_EQ(composedUTF8(in), utf8Of(kxt::composeUTF16(c.utf16)))
            << "input: " << hex(c.utf16);
        ASSERT_EQ(decomposedUTF8(in), utf8Of(kxt::decomposeUTF16(c.utf16)))
            << "input: " << hex(c.utf16);
    }
}

// Scripts the block scan skips (Greek, Cyrillic, CJK, Hangul syllables, Latin) next to marks,
// jamo, kana voicing and byte order marks, at every place of the sixteen-byte steps.
TEST(UTF8Forms, BlockScanStopsBeforeEveryCombination) {
    const std::u16string fillers[] = {u"a",      u"\u00E9", u"\u03B1",    u"\u0438",
                                      u"\u4E2D", u"\uB2E4", u"\U0001F600"};
    const std::u16string pairs[] = {u"e\u0301",      u"\u0438\u0306",       u"\u1100\u1161",
                                    u"\u3046\u3099", u"\u03B1\uFEFF\u0301", u"\U000242EE"};
    for (const auto& filler : fillers) {
        for (const auto& pair : pairs) {
            for (size_t before = 0; before < 20; ++before) {
                std::u16string text;
                for (size_t k = 0; k < before; ++k) text += filler;
                text += pair;
                text += filler;
                Units units;
                for (char16_t u : text) {
                    if (u != 0xFEFF) units.push_back(u);
                }
                const std::string in = utf8(text);
                ASSERT_EQ(composedUTF8(in), utf8Of(kxt::composeUTF16(units))) << hex(units);
                ASSERT_EQ(decomposedUTF8(in), utf8Of(kxt::decomposeUTF16(units))) << hex(units);
            }
        }
    }
}

// The room the UTF-8 forms ask for holds: no entry's parts take more than four times the UTF-8
// bytes of its composed character, nor more than the composed one takes when composing.
TEST(UTF8Forms, EntriesFitTheRoom) {
    for (const auto& e : kxt::DecompositionTable) {
        Units parts;
        for (size_t p = 0; p < 5 && e.parts[p] != 0; ++p) parts.push_back(e.parts[p]);
        const size_t composed = utf8Of({e.composed}).size(), decomposed = utf8Of(parts).size();
        EXPECT_LE(decomposed, 4 * composed) << hex(parts);
        EXPECT_LE(composed, decomposed) << hex(parts);
    }
}

constexpr const char* kCompose = "ConvertUnicodeToCharacterCompositionKXT";
constexpr const char* kDecompose = "ConvertUnicodeToCharacterDecompositionKXT";

class ComposeMethods : public HostTest {};

TEST_F(ComposeMethods, AcceptAnyInputEncoding) {
    EXPECT_EQ(callBytes(kDecompose, {S("\xE9t\xE9", kREALTextEncodingISOLatin1)}),
              utf8(u"e\u0301te\u0301"));
    EXPECT_EQ(callBytes(kDecompose, {S("caf\xE9", kREALTextEncodingWindowsLatin1)}),
              utf8(u"cafe\u0301"));
    EXPECT_EQ(callBytes(kCompose, {S(utf16Bytes(u"e\u0301"), kREALTextEncodingUTF16)}),
              utf8(u"\u00E9"));
    EXPECT_EQ(callBytes(kCompose, {S("abc", kREALTextEncodingASCII)}), "abc");
}

// UTF-8 and ASCII text is worked on as UTF-8; what it gives must be what the UTF-16 way gives:
// byte order marks anywhere left out, malformed UTF-8 read up to the flaw, UTF-8 as the tag.
TEST_F(ComposeMethods, UTF8TextGivesWhatItsUTF16FormGives) {
    struct Row {
        const char* method;
        std::string input;
        uint32_t encoding;
        std::string expected;
    } rows[] = {
        {kCompose,
         "\xEF\xBB\xBF"
         "e\xEF\xBB\xBF\xCC\x81!",
         kREALTextEncodingUTF8, "\xC3\xA9!"},
        {kCompose, "e\xEF\xBF\xBE\xCC\x81", kREALTextEncodingUTF8, "\xC3\xA9"},
        {kCompose, "e\xCC\x81 \xFF tail", kREALTextEncodingUTF8, "\xC3\xA9 "},
        {kCompose, "plain ASCII", kREALTextEncodingASCII, "plain ASCII"},
        {kDecompose, "\xC3\xA9\xEF\xBB\xBF\xEA\xB0\x81", kREALTextEncodingUTF8,
         "e\xCC\x81\xE1\x84\x80\xE1\x85\xA1\xE1\x86\xA8"},
        {kDecompose, "\xC3\xA9 \xC3 tail", kREALTextEncodingUTF8, "e\xCC\x81 "},
        {kDecompose, "\xF0\xA4\x8B\xAE\xEF\xA9\xAC", kREALTextEncodingUTF8,
         "\xF0\xA4\x8B\xAE\xF0\xA4\x8B\xAE"},
        {kCompose, "\xF0\xA4\x8B\xAE", kREALTextEncodingUTF8, "\xEF\xA9\xAC"},
    };
    for (const Row& r : rows) {
        Value v = call(r.method, {S(r.input, r.encoding)});
        EXPECT_EQ(v.bytes(), r.expected) << r.method << " " << testing::PrintToString(r.input);
        EXPECT_EQ(v.encoding(), kREALTextEncodingUTF8) << r.method;
    }
}

TEST_F(ComposeMethods, NilAndEmptyGiveNil) {
    for (const char* method : {kCompose, kDecompose}) {
        EXPECT_TRUE(call(method, {Nil()}).isNil()) << method;
        EXPECT_TRUE(call(method, {S("")}).isNil()) << method;
    }
}

TEST_F(ComposeMethods, LargeTextGivesWhatThePlainFunctionsGive) {
    // Not a round trip: the first match recomposes ἄ as ἀ + U+0301 and 한 as 하 + U+11AB.
    const std::u16string sample = u"na\u00EFve \u1F04\u03BD\u03B4\u03C1\u03B1 \uD55C\uAD6D\uC5B4 ";
    std::u16string text;
    while (text.size() < (4u << 20)) text += sample;
    const Units decomposed = kxt::decomposeUTF16(U(text));
    const Units composed = kxt::composeUTF16(decomposed);
    Value viaHost = call(kDecompose, {S(utf8(text))});
    EXPECT_TRUE(viaHost.bytes() == utf8(std::u16string(decomposed.begin(), decomposed.end())));
    viaHost = call(kCompose, {viaHost});
    EXPECT_TRUE(viaHost.bytes() == utf8(std::u16string(composed.begin(), composed.end())));
    EXPECT_EQ(composed.size(), text.size() + text.size() / sample.size() * 3);
}

class ComposeMethodsOnOldHost : public HostTest {
    xhost::HostOptions options() const override {
        xhost::HostOptions o;
        o.version = 2011.04;
        return o;
    }
};

TEST_F(ComposeMethodsOnOldHost, AnswerInUTF16WhereTheHostCannotConvert) {
    Value r = call(kDecompose, {S(utf8(u"\u00E9"))});
    EXPECT_EQ(r.encoding(), kREALTextEncodingUTF16);
    EXPECT_EQ(r.bytes(), utf16Bytes(u"e\u0301"));
}

class ComposeMethodsDebugging : public HostTest {};

TEST_F(ComposeMethodsDebugging, LogTheirSteps) {
    ASSERT_TRUE(host().setDebugging(true));
    ::testing::internal::CaptureStderr();
    Value composed = call(kCompose, {S(utf8(u"!e\u0301"))});
    Value decomposed = call(kDecompose, {S(utf8(u"\u00E9"))});
    const std::string log = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(composed.bytes(), utf8(u"!\u00E9"));
    EXPECT_EQ(decomposed.bytes(), utf8(u"e\u0301"));
    for (const char* line :
         {"KXT Debug: ConvertUnicodeToCharacterCompositionKXT\n",
          "KXT Debug: count compositions 12197\n", "KXT Debug: findCompositionInText 101\n",
          "KXT Debug: outsize 2\n", "KXT Debug: ConvertUnicodeToCharacterDecompositionKXT\n",
          "KXT Debug: findComposition 233\n", "KXT Debug: middle before 6098\n",
          "KXT Debug: Char found 233, 34\n"}) {
        EXPECT_NE(log.find(line), std::string::npos) << line << " missing from\n" << log;
    }
    // "!" starts no decomposition and is not looked for.
    EXPECT_EQ(log.find("findCompositionInText 33"), std::string::npos);
}

}  // namespace
