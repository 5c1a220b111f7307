// Reading and building style runs: the plugin's helpers called in-process, bound to the
// emulated host.
#include <string>
#include <vector>

#include "HostInternal.h"
#include "KxtTest.h"
#include "REALplugin.h"
#include "rbCreateStyleRun.h"
#include "rbData.h"
#include "rbDebug.h"
#include "rbStyleRun.h"
#include "rbUtil.h"

using namespace kxt_test;
using xhost::ParagraphSpec;
using xhost::RunSpec;

namespace {

class StyleRunHelpers : public HostTest {
  protected:
    void SetUp() override {
        HostTest::SetUp();
        BindHost(&xhost::resolve);
    }
    static std::string Bytes(REALstring s) {
        rbData d(s);
        return std::string(d.view());
    }
};

TEST_F(StyleRunHelpers, RunsArePlacedByPosition) {
    Value text = host().newStyledText({{"0123456789", "Arial", 10},
                                       {"abcde", "Times", 12, true, false, true, 0x123456},
                                       {"\xC3\xA9\xE4\xB8\xAD\r", "Arial", 14}});
    std::vector<XojoStyleRun> runs;
    GetXojoStyleRunsForText(text.objectHandle(), runs, false);
    ASSERT_EQ(runs.size(), 3u);
    struct Expected {
        int64_t start, length, middle;
        std::string text, font;
    } expected[] = {{0, 10, 5, "0123456789", "Arial"},
                    {10, 5, 12, "abcde", "Times"},
                    {15, 3, 16, "\xC3\xA9\xE4\xB8\xAD\r", "Arial"}};
    for (size_t i = 0; i < runs.size(); ++i) {
        EXPECT_EQ(runs[i].startPos, expected[i].start) << i;
        EXPECT_EQ(runs[i].length, expected[i].length) << i;
        EXPECT_EQ(runs[i].middlePos, expected[i].middle) << i;
        EXPECT_EQ(Bytes(runs[i].text), expected[i].text) << i;
        EXPECT_EQ(Bytes(runs[i].font), expected[i].font) << i;
    }
    EXPECT_TRUE(runs[1].bold && runs[1].underline && !runs[1].italic);
    EXPECT_EQ(runs[1].textColor, 0x123456u);
    EXPECT_EQ(runs[1].size, 12);

    // Copies take locks of their own; the fixture sees every one given back.
    std::vector<XojoStyleRun> copies = runs;
    copies[0].setText(copies[0].text);  // setting the string it already holds is safe
    copies[0].setFont(copies[1].font);
    EXPECT_EQ(Bytes(copies[0].font), "Times");
}

// Reading a document holds exactly one reference per run on its text and font beyond the
// styled text's own, however the array grew; moves take references over, copies add one, and
// a move-assigned run gives back what it held.
TEST_F(StyleRunHelpers, RunsHoldOneReferenceEachThroughMoves) {
    std::vector<RunSpec> specs;
    for (int i = 0; i < 300; ++i) specs.push_back({"run" + std::to_string(i) + "\r", "Font"});
    Value text = host().newStyledText(specs);
    auto refs = [](REALstring s) {
        return static_cast<xhost::StringHeader*>((void*)s)->refs.load();
    };
    std::vector<XojoStyleRun> runs;
    GetXojoStyleRunsForText(text.objectHandle(), runs, false);
    ASSERT_EQ(runs.size(), specs.size());
    for (const auto& r : runs) {
        ASSERT_EQ(refs(r.text), 2);
        ASSERT_EQ(refs(r.font), 2);
    }
    XojoStyleRun moved(std::move(runs[0]));
    EXPECT_EQ(runs[0].text, nullptr);
    EXPECT_EQ(runs[0].font, nullptr);
    EXPECT_EQ(refs(moved.text), 2);
    XojoStyleRun copy(moved);
    EXPECT_EQ(refs(moved.text), 3);
    REALstring released = runs[1].text;
    runs[1] = std::move(copy);
    EXPECT_EQ(refs(released), 1);
    EXPECT_EQ(refs(moved.text), 3);
    EXPECT_EQ(copy.text, nullptr);
    EXPECT_EQ(Bytes(runs[1].text), "run0\r");
}

// The holder keeps exactly the one reference it adopted through moves, and gives it back once.
TEST_F(StyleRunHelpers, HostRefsHoldOneReferenceThroughMoves) {
    Value s = S("held");
    const REALstring h = s.stringHandle();
    auto refs = [h] { return static_cast<xhost::StringHeader*>((void*)h)->refs.load(); };
    const auto base = refs();
    REALLockString(h);
    HostString a(h);
    HostString b(std::move(a));
    HostString c;
    c = std::move(b);
    EXPECT_FALSE(a);
    EXPECT_FALSE(b);
    EXPECT_EQ(refs(), base + 1);
    REALLockString(h);
    c.reset(h);  // the old reference goes, the new one stays
    EXPECT_EQ(refs(), base + 1);
    const REALstring out = c.release();
    EXPECT_FALSE(c);
    EXPECT_EQ(refs(), base + 1);
    REALUnlockString(out);
    EXPECT_EQ(refs(), base);
}

TEST_F(StyleRunHelpers, FontWithZeroBytesIsRepairedAsUTF16) {
    Value text = host().newStyledText({{"x", std::string("A\0r\0", 4)}, {"y", "Arial"}});
    REALobject run = GetStyleRun(text.objectHandle(), 0);
    const HostString font(GetFont(run));
    EXPECT_EQ(Bytes(font.get()), "Ar");
    const HostString plain(GetFont(GetStyleRun(text.objectHandle(), 1)));
    EXPECT_EQ(Bytes(plain.get()), "Arial");
}

TEST_F(StyleRunHelpers, ReadersGiveZeroOnFailure) {
    EXPECT_FALSE(GetBold(nullptr));
    EXPECT_EQ(GetTextColor(nullptr), 0u);
    EXPECT_EQ(GetSize(nullptr), 0);
    EXPECT_EQ(GetText(nullptr), nullptr);
    EXPECT_EQ(GetFont(nullptr), nullptr);
    EXPECT_EQ(GetStyleRunCount(nullptr), 0);
    EXPECT_EQ(CleanupText(nullptr), nullptr);
    Value s = S("abc\xC3\xA9");
    EXPECT_EQ(GetStringLength(s.stringHandle()), 4);
}

// ---- Building ---------------------------------------------------------------------------

class StyleRunBuilding : public StyleRunHelpers {
  protected:
    HostObject newRun() {
        HostObject run(NewStyleRun());
        EXPECT_TRUE(run);
        return run;
    }
};

TEST_F(StyleRunBuilding, BufferForm) {
    Value text = host().newStyledText({});
    HostObject run = newRun();
    std::string buffer;
    StyledTextAddStyleRun(kREALTextEncodingWindowsLatin1, buffer, text.objectHandle(), run, 0);
    EXPECT_FALSE(run);  // an empty buffer still consumes the run
    EXPECT_TRUE(host().styleRuns(text).empty());

    run = newRun();
    buffer = std::string("caf\xE9\0tail", 9);
    StyledTextAddStyleRun(kREALTextEncodingWindowsLatin1, buffer, text.objectHandle(), run, 0);
    EXPECT_FALSE(run);
    EXPECT_TRUE(buffer.empty());

    buffer = "lost";  // no run: the bytes are dropped
    StyledTextAddStyleRun(kREALTextEncodingWindowsLatin1, buffer, text.objectHandle(), run, 0);
    EXPECT_TRUE(buffer.empty());

    std::vector<RunSpec> runs = host().styleRuns(text);
    ASSERT_EQ(runs.size(), 1u);
    EXPECT_EQ(runs[0].text, "caf\xC3\xA9");
}

TEST_F(StyleRunBuilding, CodeUnitForm) {
    Value text = host().newStyledText({});
    HostObject run = newRun();
    StyledTextAddStyleRun(u"\0", text.objectHandle(), run, 0);
    EXPECT_FALSE(run);
    run = newRun();
    StyledTextAddStyleRun(u"\x4E2D", text.objectHandle(), run, 0);
    EXPECT_FALSE(run);
    StyledTextAddStyleRun(u"A", text.objectHandle(), run, 0);  // nil run: nothing
    run = newRun();
    StyledTextAddStyleRun(u"\xD83D\xDE00", text.objectHandle(), run, 0);
    std::vector<RunSpec> runs = host().styleRuns(text);
    ASSERT_EQ(runs.size(), 2u);
    EXPECT_EQ(runs[0].text, "\xE4\xB8\xAD");
    EXPECT_EQ(runs[1].text, "\xF0\x9F\x98\x80");
}

TEST_F(StyleRunBuilding, SettersAndClear) {
    Value text = host().newStyledText({{"one"}, {"two"}, {"three"}});
    StyledTextClear(text.objectHandle());
    EXPECT_TRUE(host().styleRuns(text).empty());

    const HostObject run = newRun();
    StyleRunSetBold(run.get(), true);
    StyleRunSetItalic(run.get(), true);
    StyleRunSetUnderline(run.get(), false);
    StyleRunSetTextColor(run.get(), 0xABCDEF);
    StyleRunSetSize(run.get(), 17);
    Value font = S("Caf\xC3\xA9");
    StyleRunSetFontName(run.get(), font.stringHandle());
    Value body = S("text");
    StyleRunSetText(run.get(), body.stringHandle());
    StyledTextAppendStyleRun(text.objectHandle(), run.get());
    EXPECT_EQ(host().styleRuns(text),
              (std::vector<RunSpec>{{"text", "Caf\xC3\xA9", 17, true, true, false, 0xABCDEF}}));

    // Nil objects are accepted quietly.
    StyleRunSetBold(nullptr, true);
    StyleRunSetFontName(nullptr, font.stringHandle());
    StyledTextAppendStyleRun(text.objectHandle(), nullptr);
    StyledTextAppendStyleRun(nullptr, nullptr);
    StyledTextRemoveStyleRun(nullptr, 0);
    StyledTextSetParagraphAlignment(nullptr, 0, 1);
    StyledTextClear(nullptr);
    EXPECT_EQ(host().styleRuns(text).size(), 1u);
}

}  // namespace
