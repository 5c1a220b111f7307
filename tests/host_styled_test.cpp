// The emulated host's StyledText, StyleRun and Paragraph classes, used through the object
// methods and property accessors the plugin resolves.
#include <random>

#include "HostFixture.h"

using namespace kxt_test;
using xhost::ParagraphSpec;
using xhost::RunSpec;

namespace {

using ObjectAt = REALobject (*)(REALobject, RBInteger);

class StyledTextHost : public FixtureHostTest {
  public:
    void* method(REALobject o, const char* declaration) {
        return service<HostService::REALLoadObjectMethod>()(o, declaration);
    }
    REALobject styleRunAt(const Value& t, RBInteger i) {
        return reinterpret_cast<ObjectAt>(method(
            t.objectHandle(), "StyleRun(Index as Integer) As StyleRun"))(t.objectHandle(), i);
    }
    // A new reference.
    REALobject paragraphAt(const Value& t, RBInteger i) {
        return reinterpret_cast<ObjectAt>(method(
            t.objectHandle(), "Paragraph(Index as Integer) As Paragraph"))(t.objectHandle(), i);
    }
    void append(const Value& t, REALobject run) {
        reinterpret_cast<void (*)(REALobject, REALobject)>(
            method(t.objectHandle(), "AppendStyleRun(Run as StyleRun)"))(t.objectHandle(), run);
    }
    RBInteger integer(REALobject o, const char* name) {
        RBInteger v = -99;
        EXPECT_TRUE(service<HostService::REALGetPropValueInteger>()(o, name, &v)) << name;
        return v;
    }
    // Appends a run with this UTF-8 text the way the plugin does: new instance, set, append.
    void appendText(const Value& t, const std::string& text) {
        REALobject run = service<HostService::PluginNewInstance>()("StyleRun");
        Value s = S(text);
        service<HostService::REALSetPropValueString>()(run, "Text", s.stringHandle());
        append(t, run);
        service<HostService::REALUnlockObject>()(run);
    }
    RBInteger paragraphCount(const Value& t) { return integer(t.objectHandle(), "ParagraphCount"); }
};

std::vector<RunSpec> runsOf(const std::vector<std::string>& texts) {
    std::vector<RunSpec> runs;
    for (const auto& t : texts) runs.push_back({t});
    return runs;
}

// Paragraphs straight from the rule, over the whole text.
std::vector<ParagraphSpec> referenceParagraphs(const std::u32string& text) {
    std::vector<ParagraphSpec> out;
    int64_t start = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == U'\r' || text[i] == U'\n') {
            if (text[i] == U'\r' && i + 1 < text.size() && text[i + 1] == U'\n') ++i;
            out.push_back({start, static_cast<int64_t>(i), 0});
            start = static_cast<int64_t>(i) + 1;
        }
    }
    if (start < static_cast<int64_t>(text.size())) {
        out.push_back({start, static_cast<int64_t>(text.size()) - 1, 0});
    }
    return out;
}

TEST_F(StyledTextHost, ParagraphsSplitAfterEachLineEnd) {
    struct Case {
        std::vector<std::string> runs;
        std::vector<ParagraphSpec> expected;
    };
    const Case cases[] = {
        {{}, {}},
        {{""}, {}},
        {{"abc"}, {{0, 2, 0}}},
        {{"abc\r"}, {{0, 3, 0}}},  // a trailing line end opens no empty paragraph
        {{"a\rb"}, {{0, 1, 0}, {2, 2, 0}}},
        {{"a\nb"}, {{0, 1, 0}, {2, 2, 0}}},
        {{"a\r\nb"}, {{0, 2, 0}, {3, 3, 0}}},
        {{"a\n\rb"}, {{0, 1, 0}, {2, 2, 0}, {3, 3, 0}}},  // LF CR is two line ends
        {{"\r\r"}, {{0, 0, 0}, {1, 1, 0}}},
        {{"a\r", "\nb"}, {{0, 2, 0}, {3, 3, 0}}},  // CR LF split over two runs
        {{"ab", "c\rd", "e"}, {{0, 3, 0}, {4, 5, 0}}},
        {{"\xC3\xA9\n\xF0\x9F\x98\x80x"}, {{0, 1, 0}, {2, 3, 0}}},  // positions count code points
    };
    for (const Case& c : cases) {
        Value t = host().newStyledText(runsOf(c.runs));
        EXPECT_EQ(host().paragraphs(t), c.expected) << ::testing::PrintToString(c.runs);
        EXPECT_EQ(paragraphCount(t), static_cast<RBInteger>(c.expected.size()));
    }
}

// Appending run by run keeps the paragraph structure equal to the one read from the whole text.
TEST_F(StyledTextHost, AppendingRunsAgreesWithTheWholeText) {
    std::mt19937 rng(42);
    const char* pieces[] = {"a", "\xC3\xA9", "\r", "\n", "\r\n", "xy"};
    const std::u32string pieceText[] = {U"a", U"\u00E9", U"\r", U"\n", U"\r\n", U"xy"};
    for (int round = 0; round < 50; ++round) {
        Value t = host().newObject("StyledText");
        std::u32string whole;
        std::vector<std::string> texts;
        for (int r = 0; r < 8; ++r) {
            std::string text;
            for (int k = static_cast<int>(rng() % 4); k > 0; --k) {
                int p = static_cast<int>(rng() % 6);
                text += pieces[p];
                whole += pieceText[p];
            }
            texts.push_back(text);
            appendText(t, text);
            ASSERT_EQ(host().paragraphs(t), referenceParagraphs(whole))
                << "round " << round << ", runs " << ::testing::PrintToString(texts);
        }
        // The run-by-run structure survives a rebuild from scratch.
        Value rebuilt = host().newStyledText(runsOf(texts));
        EXPECT_EQ(host().paragraphs(rebuilt), host().paragraphs(t));
    }
}

TEST_F(StyledTextHost, RunsAreBorrowedParagraphsAreNewReferences) {
    Value t = host().newStyledText({{"ab\r", "Arial", 12, true}, {"cd", "Times"}});
    size_t before = host().liveObjects();
    REALobject run = styleRunAt(t, 1);
    ASSERT_NE(run, nullptr);
    EXPECT_EQ(host().liveObjects(), before);
    REALobject p = paragraphAt(t, 1);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(host().liveObjects(), before + 1);
    EXPECT_EQ(integer(p, "StartPos"), 3);
    EXPECT_EQ(integer(p, "EndPos"), 4);
    EXPECT_EQ(integer(p, "Alignment"), 0);
    service<HostService::REALUnlockObject>()(p);
    EXPECT_EQ(host().liveObjects(), before);
    EXPECT_EQ(integer(t.objectHandle(), "StyleRunCount"), 2);
}

TEST_F(StyledTextHost, RemoveReleasesAndAppendKeepsItsOwnReference) {
    Value t = host().newStyledText(runsOf({"one", "two", "three"}));
    auto remove = reinterpret_cast<void (*)(REALobject, RBInteger)>(
        method(t.objectHandle(), "RemoveStyleRun(Index as Integer)"));
    size_t before = host().liveObjects();
    remove(t.objectHandle(), 1);
    EXPECT_EQ(host().liveObjects(), before - 1);
    EXPECT_EQ(host().styleRuns(t).size(), 2u);
    EXPECT_EQ(host().styleRuns(t)[1].text, "three");
    appendText(t, "four");
    EXPECT_EQ(host().liveObjects(), before);
    auto runs = host().styleRuns(t);
    ASSERT_EQ(runs.size(), 3u);
    EXPECT_EQ(runs[2].text, "four");
    REALstring text = nullptr;
    service<HostService::REALGetPropValueString>()(t.objectHandle(), "Text", &text);
    EXPECT_EQ(Value::adoptString(text).bytes(), "onethreefour");
}

TEST_F(StyledTextHost, ParagraphAlignmentIsKeptPerParagraph) {
    Value t = host().newStyledText(runsOf({"a\rb\rc"}));
    auto align = reinterpret_cast<void (*)(REALobject, RBInteger, RBInteger)>(method(
        t.objectHandle(), "ParagraphAlignment(Index As Integer, assigns _value as Integer)"));
    align(t.objectHandle(), 1, 2);
    align(t.objectHandle(), 2, 3);
    EXPECT_EQ(host().paragraphs(t), (std::vector<ParagraphSpec>{{0, 1, 0}, {2, 3, 2}, {4, 4, 3}}));
    REALobject p = paragraphAt(t, 2);
    EXPECT_EQ(integer(p, "Alignment"), 3);
    service<HostService::REALUnlockObject>()(p);
}

// Alignments are kept by paragraph index: one for every paragraph of a long document, kept
// when runs are removed and appended again, and dropped when Text replaces the content.
TEST_F(StyledTextHost, ParagraphAlignmentsForEveryParagraph) {
    constexpr int kParagraphs = 20000;
    Value t = host().newStyledText(runsOf({std::string(kParagraphs - 1, '\r') + "end"}));
    auto align = reinterpret_cast<void (*)(REALobject, RBInteger, RBInteger)>(method(
        t.objectHandle(), "ParagraphAlignment(Index As Integer, assigns _value as Integer)"));
    for (int i = kParagraphs - 1; i >= 0; i -= 3) align(t.objectHandle(), i, 1 + i % 3);
    auto paragraphs = host().paragraphs(t);
    ASSERT_EQ(paragraphs.size(), size_t(kParagraphs));
    for (int i = 0; i < kParagraphs; ++i) {
        ASSERT_EQ(paragraphs[size_t(i)].alignment, (kParagraphs - 1 - i) % 3 ? 0 : 1 + i % 3) << i;
    }

    Value small = host().newStyledText(runsOf({"a\r", "b\r", "c"}));
    align(small.objectHandle(), 2, 3);
    reinterpret_cast<void (*)(REALobject, RBInteger)>(
        method(small.objectHandle(), "RemoveStyleRun(Index as Integer)"))(small.objectHandle(), 2);
    EXPECT_EQ(host().paragraphs(small), (std::vector<ParagraphSpec>{{0, 1, 0}, {2, 3, 0}}));
    appendText(small, "d");
    EXPECT_EQ(host().paragraphs(small),
              (std::vector<ParagraphSpec>{{0, 1, 0}, {2, 3, 0}, {4, 4, 3}}));
    Value replacement = S("x\ry");
    service<HostService::REALSetPropValueString>()(small.objectHandle(), "Text",
                                                   replacement.stringHandle());
    EXPECT_EQ(host().paragraphs(small), (std::vector<ParagraphSpec>{{0, 1, 0}, {2, 2, 0}}));
}

// Out-of-range indices raise OutOfBoundsException, as the host's arrays do.
TEST_F(StyledTextHost, BadIndicesRaiseOutOfBounds) {
    static Value* text = nullptr;
    Value t = host().newStyledText(runsOf({"a"}));
    text = &t;
    auto guard = service<HostService::PluginCallFunctionWithExceptionHandler>();
    void (*cases[])(void*) = {
        [](void*) {},
        [](void* self) {
            auto* test = static_cast<StyledTextHost*>(self);
            EXPECT_EQ(test->styleRunAt(*text, 1), nullptr);
        },
        [](void* self) {
            auto* test = static_cast<StyledTextHost*>(self);
            EXPECT_EQ(test->paragraphAt(*text, -1), nullptr);
        },
    };
    EXPECT_EQ(guard(cases[0], this), nullptr);
    for (int i = 1; i < 3; ++i) {
        REALobject e = guard(cases[i], this);
        ASSERT_NE(e, nullptr) << i;
        REALstring m = nullptr;
        service<HostService::REALGetPropValueString>()(e, "Message", &m);
        EXPECT_NE(Value::adoptString(m).bytes().find("out of bounds"), std::string::npos);
        service<HostService::REALUnlockObject>()(e);
    }
    text = nullptr;
}

TEST_F(StyledTextHost, ObjectMethodsMatchIgnoringCaseAndBlanks) {
    Value t = host().newObject("StyledText");
    EXPECT_NE(method(t.objectHandle(), "stylerun( index AS integer ) as STYLERUN"), nullptr);
    EXPECT_EQ(method(t.objectHandle(), "StyleRun(Index as Integer) As Paragraph"), nullptr);
    EXPECT_EQ(method(t.objectHandle(), "Constructor(bytes as Integer)"), nullptr);
    EXPECT_EQ(method(nullptr, "StyleRun(Index as Integer) As StyleRun"), nullptr);
    Value mb = MB("");
    EXPECT_NE(method(mb.objectHandle(), "Constructor(bytes as integer)"), nullptr);
}

TEST_F(StyledTextHost, PropertyAccessorsAreTyped) {
    struct Case {
        const char* property;
        const char* accessor;
        bool ok;
    };
    const Case cases[] = {
        {"Bold", "REALGetPropValueBool", true},
        {"Bold", "REALGetPropValueInteger", false},
        {"Size", "REALGetPropValueInteger", true},
        {"Size", "REALGetPropValueBool", false},
        {"TextColor", "REALGetPropValueColor", true},
        {"TextColor", "REALGetPropValueInteger", false},
        {"Italic", "REALSetPropValueBoolean", true},
        {"Size", "REALSetPropValueInteger", true},
        {"TextColor", "REALSetPropValueUInt32", true},
        {"Bold", "REALSetPropValueUInt32", false},
        {"Font", "REALSetPropValueString", true},
        {"FontName", "REALSetPropValueString", false},
        {"Nope", "REALGetPropValueInteger", false},
        {"Text", "REALSetPropValueInteger", false},
    };
    Value run = host().newObject("StyleRun");
    Value font = S("Arial");
    for (const Case& c : cases) {
        REALobject o = run.objectHandle();
        std::string a = c.accessor;
        RBBoolean b = false;
        RBInteger i = 0;
        RBColor col = 0;
        bool ok = false;
        if (a == "REALGetPropValueBool") {
            ok = service<RBBoolean (*)(REALobject, const char*, RBBoolean*)>(c.accessor)(
                o, c.property, &b);
        } else if (a == "REALGetPropValueInteger") {
            ok = service<RBBoolean (*)(REALobject, const char*, RBInteger*)>(c.accessor)(
                o, c.property, &i);
        } else if (a == "REALGetPropValueColor") {
            ok = service<RBBoolean (*)(REALobject, const char*, RBColor*)>(c.accessor)(
                o, c.property, &col);
        } else if (a == "REALSetPropValueBoolean") {
            ok = service<RBBoolean (*)(REALobject, const char*, RBBoolean)>(c.accessor)(
                o, c.property, true);
        } else if (a == "REALSetPropValueInteger") {
            ok = service<RBBoolean (*)(REALobject, const char*, RBInteger)>(c.accessor)(
                o, c.property, 14);
        } else if (a == "REALSetPropValueUInt32") {
            ok = service<RBBoolean (*)(REALobject, const char*, uint32_t)>(c.accessor)(
                o, c.property, 0xFF0000);
        } else if (a == "REALSetPropValueString") {
            ok = service<RBBoolean (*)(REALobject, const char*, REALstring)>(c.accessor)(
                o, c.property, font.stringHandle());
        }
        EXPECT_EQ(ok, c.ok) << c.property << " with " << c.accessor;
    }
    // Nil objects are refused.
    RBInteger i = 0;
    EXPECT_FALSE(service<HostService::REALGetPropValueInteger>()(nullptr, "Size", &i));
    // What was set reads back through the host helpers.
    Value t = host().newObject("StyledText");
    append(t, run.objectHandle());
    auto runs = host().styleRuns(t);
    ASSERT_EQ(runs.size(), 1u);
    EXPECT_EQ(runs[0], (RunSpec{"", "Arial", 14, false, true, false, 0xFF0000}));
}

class FontNameHost : public StyledTextHost {
    xhost::HostOptions options() const override {
        xhost::HostOptions o = fixtureOptions();
        o.styleRunFontName = true;
        return o;
    }
};

TEST_F(FontNameHost, StyleRunsKnowFontNameInsteadOfFont) {
    Value run = host().newObject("StyleRun");
    Value font = S("Courier");
    auto set = service<HostService::REALSetPropValueString>();
    EXPECT_FALSE(set(run.objectHandle(), "Font", font.stringHandle()));
    EXPECT_TRUE(set(run.objectHandle(), "FontName", font.stringHandle()));
    Value t = host().newStyledText({{"x", "Helvetica"}});
    EXPECT_EQ(host().styleRuns(t)[0].font, "Helvetica");
}

TEST_F(StyledTextHost, StyleRunsRoundTripThroughTheHelpers) {
    const std::vector<RunSpec> runs = {{"Hello ", "Arial", 12, true, false, true, 0xFF0000},
                                       {"w\xC3\xB6rld\r", "", 0, false, true, false, 0x00FF00}};
    Value t = host().newStyledText(runs);
    EXPECT_EQ(host().styleRuns(t), runs);
    EXPECT_THROW(host().styleRuns(S("not styled")), std::invalid_argument);
    EXPECT_THROW(host().newObject("NoSuchClass"), std::invalid_argument);
}

}  // namespace
