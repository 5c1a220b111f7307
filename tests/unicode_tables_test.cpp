// The generated Unicode tables: the facts they must show, their index, and that regenerating them
// from the installed Unicode Character Database gives the committed files.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "MainStringCompose.h"
#include "RemoveAccents.h"
#include "UnicodeTables.h"

namespace {

using kxt::DecompositionTable;
using kxt::kDecompositionCount;

std::vector<uint16_t> partsOf(const kxt::DecompositionEntry& e) {
    std::vector<uint16_t> parts;
    for (uint16_t p : e.parts) {
        if (p == 0) break;
        parts.push_back(p);
    }
    return parts;
}

std::vector<uint16_t> decompositionOf(uint16_t unit) {
    const kxt::DecompositionEntry* e = kxt::findDecomposition(unit);
    return e != nullptr ? partsOf(*e) : std::vector<uint16_t>{};
}

bool isHangulSyllable(uint16_t unit) {
    return unit >= 0xAC00 && unit <= 0xD7A3;
}

TEST(DecompositionTable, HasTheStatedSizeOrderAndBounds) {
    ASSERT_EQ(kDecompositionCount, 12197u);
    EXPECT_EQ(sizeof(DecompositionTable) / sizeof(DecompositionTable[0]), 12197u);
    for (size_t i = 1; i < kDecompositionCount; ++i) {
        ASSERT_LT(DecompositionTable[i - 1].composed, DecompositionTable[i].composed) << i;
    }
    EXPECT_EQ(DecompositionTable[0].composed, 0x00C0);
    uint16_t lastOther = 0;
    size_t hangul = 0;
    for (const auto& e : DecompositionTable) {
        if (isHangulSyllable(e.composed)) {
            ++hangul;
        } else {
            lastOther = e.composed;
        }
    }
    EXPECT_EQ(hangul, 11172u);
    EXPECT_EQ(lastOther, 0xFB4E);
    EXPECT_EQ(kDecompositionCount - hangul, 1025u);
}

TEST(DecompositionTable, EntriesHoldTwoToFourUnitsEndedByZero) {
    std::map<size_t, size_t> byLength;
    for (const auto& e : DecompositionTable) {
        const size_t n = partsOf(e).size();
        ++byLength[n];
        for (size_t k = n; k < 5; ++k) EXPECT_EQ(e.parts[k], 0) << std::hex << e.composed;
    }
    EXPECT_EQ(byLength, (std::map<size_t, size_t>{{2, 1168}, {3, 10993}, {4, 36}}));
}

TEST(DecompositionTable, DecompositionsAreFull) {
    const std::pair<uint16_t, std::vector<uint16_t>> cases[] = {
        {0x1E08, {0x0043, 0x0327, 0x0301}}, {0x0344, {0x0308, 0x0301}},
        {0x212B, {0x0041, 0x030A}},         {0x0CCB, {0x0CC6, 0x0CC2, 0x0CD5}},
        {0x1F0C, {0x0391, 0x0313, 0x0301}}, {0x00E9, {0x0065, 0x0301}},
    };
    for (const auto& [unit, parts] : cases)
        EXPECT_EQ(decompositionOf(unit), parts) << std::hex << unit;
    // No part decomposes any further.
    for (const auto& e : DecompositionTable) {
        for (uint16_t p : partsOf(e)) {
            EXPECT_EQ(kxt::findDecomposition(p), nullptr)
                << std::hex << e.composed << " part " << p;
        }
    }
}

TEST(DecompositionTable, HangulSyllablesSplitIntoConjoiningJamo) {
    for (uint32_t s = 0xAC00; s <= 0xD7A3; ++s) {
        const uint32_t index = s - 0xAC00;
        std::vector<uint16_t> expected = {uint16_t(0x1100 + index / 588),
                                          uint16_t(0x1161 + index % 588 / 28)};
        if (index % 28 != 0) expected.push_back(uint16_t(0x11A7 + index % 28));
        ASSERT_EQ(decompositionOf(uint16_t(s)), expected) << std::hex << s;
    }
}

TEST(DecompositionTable, LeavesOutCompatibilityMappingsAndSingletons) {
    const uint16_t absent[] = {
        0x00A0, 0x00A8, 0x00BD, 0xFB00, 0xFF21,  // compatibility
        0x0340, 0x0341, 0x0343, 0x0374, 0x037E, 0x0387, 0x1FBE, 0x1FEF, 0x1FFD,
        0x2000, 0x2001, 0x2126, 0x212A, 0x2329, 0x232A, 0xF900, 0xFA2D,  // singletons
        0x00BF, 0x0041, 0x4E00, 0xD800, 0xDC00, 0xFFFF,                  // nothing to decompose
    };
    for (uint16_t unit : absent)
        EXPECT_EQ(kxt::findDecomposition(unit), nullptr) << std::hex << unit;
}

TEST(DecompositionTable, KeepsTheSevenIdeographsWhoseSingletonLeavesTheBMP) {
    const std::pair<uint16_t, uint32_t> cases[] = {
        {0xFA6C, 0x242EE}, {0xFACF, 0x2284A}, {0xFAD0, 0x22844}, {0xFAD1, 0x233D5},
        {0xFAD5, 0x25249}, {0xFAD6, 0x25CD0}, {0xFAD7, 0x27ED3},
    };
    size_t surrogateEntries = 0;
    for (const auto& e : DecompositionTable)
        surrogateEntries += e.parts[0] >= 0xD800 && e.parts[0] < 0xDC00;
    EXPECT_EQ(surrogateEntries, 7u);
    for (const auto& [unit, target] : cases) {
        const uint32_t v = target - 0x10000;
        const std::vector<uint16_t> pair = {uint16_t(0xD800 + (v >> 10)),
                                            uint16_t(0xDC00 + (v & 0x3FF))};
        EXPECT_EQ(decompositionOf(unit), pair) << std::hex << unit;
    }
}

TEST(CompositionIndex, GroupsEveryEntryOnceByItsFirstTwoUnitsInTableOrder) {
    std::vector<int> seen(kDecompositionCount, 0);
    for (size_t g = 0; g < kxt::kCompositionPairCount; ++g) {
        if (g > 0) {
            ASSERT_LT(kxt::CompositionPairKeys[g - 1], kxt::CompositionPairKeys[g]);
        }
        const size_t begin = kxt::CompositionPairStart[g], end = kxt::CompositionPairStart[g + 1];
        ASSERT_LT(begin, end) << g;
        for (size_t k = begin; k < end; ++k) {
            const uint16_t entry = kxt::CompositionOrder[k];
            if (k > begin) {
                ASSERT_LT(kxt::CompositionOrder[k - 1], entry);
            }
            ++seen[entry];
            const auto& e = DecompositionTable[entry];
            EXPECT_EQ((uint32_t(e.parts[0]) << 16) | e.parts[1], kxt::CompositionPairKeys[g]);
        }
    }
    EXPECT_EQ(kxt::CompositionPairStart[kxt::kCompositionPairCount], kDecompositionCount);
    for (size_t i = 0; i < kDecompositionCount; ++i) EXPECT_EQ(seen[i], 1) << i;
}

TEST(CompositionLookup, MarksExactlyTheFirstPartsOfEntries) {
    const uint8_t* firstParts = InitCharsWhoCanBeCompositionLookupTable();
    ASSERT_NE(firstParts, nullptr);
    std::set<uint16_t> firsts;
    for (const auto& e : DecompositionTable) firsts.insert(e.parts[0]);
    for (uint32_t u = 0; u < 65536; ++u) {
        ASSERT_EQ(firstParts[u], firsts.count(uint16_t(u)) ? 1 : 0) << std::hex << u;
    }
}

TEST(CompositionLookup, AllocationFailureLeavesItAbsentAndTheNextBuildTriesAgain) {
    kxt::resetCompositionLookupForTesting([](int64_t) -> void* { return nullptr; });
    EXPECT_EQ(InitCharsWhoCanBeCompositionLookupTable(), nullptr);
    const std::vector<uint16_t> text = {'e', 0x0301};
    EXPECT_THROW(kxt::composeUTF16(text), std::bad_alloc);
    kxt::resetCompositionLookupForTesting(nullptr);
    EXPECT_EQ(kxt::composeUTF16(text), std::vector<uint16_t>{0x00E9});
    EXPECT_NE(InitCharsWhoCanBeCompositionLookupTable(), nullptr);
}

// ---- Accent overrides ---------------------------------------------------------------------------

class AccentTableTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { InitTable(); }

    static std::string asText(uint16_t first, uint16_t last) {
        std::string s;
        for (uint32_t u = first; u <= last; ++u) {
            s += AccentTable[u] < 0x80 ? char(AccentTable[u]) : '?';
        }
        return s;
    }
};

TEST_F(AccentTableTest, Has844OverridesInAscendingRanges) {
    size_t total = 0;
    for (size_t r = 0; r < kxt::kAccentOverrideRangeCount; ++r) {
        const auto& range = kxt::AccentOverrideRanges[r];
        ASSERT_LE(range.first, range.last);
        if (r > 0) {
            ASSERT_LT(kxt::AccentOverrideRanges[r - 1].last, range.first);
        }
        EXPECT_EQ(range.valueIndex, total);
        total += range.last - range.first + 1u;
    }
    EXPECT_EQ(total, 844u);
    EXPECT_EQ(kxt::kAccentOverrideCount, 844u);
    size_t changed = 0;
    for (uint32_t u = 0; u < 65536; ++u) changed += AccentTable[u] != u;
    EXPECT_EQ(changed, 844u);
}

// Every precomposed Latin or Greek letter loses its accents to the base letter its canonical
// decomposition starts with; the fullwidth forms give their ASCII letters; a few others by name.
TEST_F(AccentTableTest, LettersGiveTheBaseOfTheirDecomposition) {
    for (const auto& e : kxt::DecompositionTable) {
        const uint16_t base = e.parts[0];
        const bool latin = e.composed < 0x0250 || (e.composed >= 0x1E00 && e.composed < 0x1F00);
        const bool greek = (e.composed >= 0x0386 && e.composed < 0x03D0) ||
                           (e.composed >= 0x1F00 && e.composed < 0x2000);
        if ((latin && base < 0x80 && std::isalpha(base)) ||
            (greek && base >= 0x0391 && base <= 0x03C9)) {
            EXPECT_EQ(AccentTable[e.composed], base) << std::hex << e.composed;
        }
    }
    for (uint32_t u = 0xFF01; u <= 0xFF5E; ++u) EXPECT_EQ(AccentTable[u], u - 65248);
    const std::pair<uint16_t, uint16_t> named[] = {
        {0x00A0, ' '}, {0x00D8, 'O'}, {0x00DF, 's'},    {0x0141, 'L'},
        {0x1E9E, 'S'}, {0x2013, '-'}, {0x2019, '\''},   {0x2022, '*'},
        {0x2260, '='}, {0x212B, 'A'}, {0x2126, 0x03A9}, {0x1FBE, 0x03B9},
    };
    for (const auto& [unit, base] : named) EXPECT_EQ(AccentTable[unit], base) << std::hex << unit;
}

TEST_F(AccentTableTest, LettersOutsideTheRangesKeepTheirIdentity) {
    const uint16_t kept[] = {0x0439, 0x0419, 0xAC00, 0x0110, 0x0111, 0x0152, 0x0153,
                             0x00C6, 0x00E6, 0x00D7, 0x00F7, 0x0387, 0x1E9A, 0x1FBD,
                             0x0041, 0xD83D, 0x0300, 0xFF00, 0xFF5F, 0x2015};
    for (uint16_t unit : kept) EXPECT_EQ(AccentTable[unit], unit) << std::hex << unit;
}

// ---- Regeneration -------------------------------------------------------------------------------

std::string readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

TEST(UnicodeTablesGenerator, RegeneratingGivesTheCommittedFiles) {
    const char* ucd = "/usr/share/unicode/UnicodeData.txt";
    if (!std::filesystem::exists(ucd)) GTEST_SKIP() << ucd << " absent (package unicode-data)";
    if (std::system("python3 --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "no python3";
    const std::filesystem::path dir = std::string(KXT_SOURCE_DIR) + "/Libs/shared/UnicodeTables";
    char pattern[] = "/tmp/kxt-unicode-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    const std::filesystem::path out = pattern;
    const std::string command = "python3 '" + (dir / "generate_unicode_tables.py").string() +
                                "' --ucd '" + ucd + "' --out '" + out.string() + "'";
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
    for (const char* name : {"UnicodeTables.h", "DecompositionTable.cpp", "AccentOverrides.cpp"}) {
        const std::string fresh = readFile(out / name);
        EXPECT_FALSE(fresh.empty()) << name;
        EXPECT_TRUE(fresh == readFile(dir / name))
            << name << " differs from a fresh generation; run the regenerate-unicode-tables target";
    }
    std::filesystem::remove_all(out);
}

}  // namespace
