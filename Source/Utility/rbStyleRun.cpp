// Reading the runs and paragraphs of a host StyledText.
#include "rbStyleRun.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include "REALplugin.h"
#include "XojoHostServices.h"
#include "rbData.h"
#include "rbRef.h"
#include "rbUtil.h"

void XojoStyleRun::copyStyle(const XojoStyleRun& other) {
    bold = other.bold;
    underline = other.underline;
    italic = other.italic;
    textColor = other.textColor;
    size = other.size;
    alignment = other.alignment;
    startPos = other.startPos;
    length = other.length;
    middlePos = other.middlePos;
}

XojoStyleRun::XojoStyleRun(const XojoStyleRun& other) {
    copyStyle(other);
    setFont(other.font);
    setText(other.text);
}

XojoStyleRun& XojoStyleRun::operator=(const XojoStyleRun& other) {
    if (this == &other) return *this;
    copyStyle(other);
    setFont(other.font);
    setText(other.text);
    return *this;
}

XojoStyleRun::XojoStyleRun(XojoStyleRun&& other) noexcept
    : font(std::exchange(other.font, nullptr)), text(std::exchange(other.text, nullptr)) {
    copyStyle(other);
}

XojoStyleRun& XojoStyleRun::operator=(XojoStyleRun&& other) noexcept {
    if (this == &other) return *this;
    copyStyle(other);
    if (text != nullptr) REALUnlockString(text);
    if (font != nullptr) REALUnlockString(font);
    font = std::exchange(other.font, nullptr);
    text = std::exchange(other.text, nullptr);
    return *this;
}

XojoStyleRun::~XojoStyleRun() {
    if (text != nullptr) REALUnlockString(text);
    if (font != nullptr) REALUnlockString(font);
}

void XojoStyleRun::setFont(REALstring s) {
    if (s != nullptr) REALLockString(s);
    if (font != nullptr) REALUnlockString(font);
    font = s;
}

void XojoStyleRun::setText(REALstring s) {
    if (s != nullptr) REALLockString(s);
    if (text != nullptr) REALUnlockString(text);
    text = s;
}

namespace {

// The host's byte: any non-zero value is true.
bool GetBoolean(REALobject object, const char* name) {
    RBBoolean value = 0;
    REALGetPropValueBoolean(object, name, &value);
    return value != 0;
}

}  // namespace

bool GetBold(REALobject styleRun) {
    return GetBoolean(styleRun, "Bold");
}

bool GetItalic(REALobject styleRun) {
    return GetBoolean(styleRun, "Italic");
}

bool GetUnderline(REALobject styleRun) {
    return GetBoolean(styleRun, "Underline");
}

uint32_t GetTextColor(REALobject styleRun) {
    RBColor value = 0;
    REALGetPropValueColor(styleRun, "TextColor", &value);
    return value;
}

namespace {

int64_t GetInteger(REALobject object, const char* name) {
    RBInteger value = 0;
    REALGetPropValueInteger(object, name, &value);
    return value;
}

using kxt::abi::ObjectMethod;
thread_local ObjectMethodCache<ObjectMethod::StyledTextStyleRun> gStyleRunMethod;
thread_local ObjectMethodCache<ObjectMethod::StyledTextParagraph> gParagraphMethod;

// The framework's Len, once found. Atomic with no separate "looked up" flag: a thread that sees
// a pointer sees a usable one.
std::atomic<kxt::abi::StringLengthMethod> gLen{nullptr};

}  // namespace

int64_t GetSize(REALobject styleRun) {
    return GetInteger(styleRun, "Size");
}

REALstring GetText(REALobject styleRun) {
    REALstring value = nullptr;
    REALGetPropValueString(styleRun, "Text", &value);
    return value;
}

int64_t GetStartPos(REALobject paragraph) {
    return GetInteger(paragraph, "StartPos");
}
int64_t GetEndPos(REALobject paragraph) {
    return GetInteger(paragraph, "EndPos");
}
int64_t GetAlignment(REALobject paragraph) {
    return GetInteger(paragraph, "Alignment");
}
int64_t GetParagraphCount(REALobject styledText) {
    return GetInteger(styledText, "ParagraphCount");
}
int64_t GetStyleRunCount(REALobject styledText) {
    return GetInteger(styledText, "StyleRunCount");
}

REALobject GetStyleRun(REALobject styledText, int64_t index) {
    auto f = gStyleRunMethod.lookup(styledText);
    return f != nullptr ? f(styledText, index) : nullptr;
}

REALobject GetParagraph(REALobject styledText, int64_t index) {
    auto f = gParagraphMethod.lookup(styledText);
    return f != nullptr ? f(styledText, index) : nullptr;
}

int64_t GetStringLength(REALstring s) {
    auto len = gLen.load(std::memory_order_relaxed);
    if (len == nullptr) {
        len = reinterpret_cast<kxt::abi::StringLengthMethod>(
            REALLoadFrameworkMethod(kxt::abi::kLenDeclaration));
        if (len != nullptr) gLen.store(len, std::memory_order_relaxed);
    }
    return len != nullptr ? len(s) : 0;
}

REALstring CleanupText(REALstring) {
    return nullptr;
}

REALstring GetFont(REALobject styleRun) {
    REALstring got = nullptr;
    REALGetPropValueString(styleRun, "Font", &got);
    HostString font(got);
    if (!font) return nullptr;
    rbData bytes(font.get());
    if (std::ranges::find(bytes.bytes(), uint8_t(0)) != bytes.bytes().end()) {
        if (REALstring repaired =
                REALBuildUnicodeString(bytes.data, bytes.size, kREALTextEncodingUTF16)) {
            return repaired;  // the font string goes with its holder
        }
    }
    return font.release();
}

void GetXojoStyleRunsForText(REALobject styledText, std::vector<XojoStyleRun>& runs,
                             bool skipParagraphs) {
    if (styledText == nullptr) return;
    int64_t runCount = GetStyleRunCount(styledText);
    if (runCount == 0) return;
    int64_t paragraphCount = GetParagraphCount(styledText);
    if (paragraphCount == 0) return;

    const size_t firstNew = runs.size();
    int64_t position = 0;
    for (int64_t index = 0; index < runCount; ++index) {
        REALobject run = GetStyleRun(styledText, index);
        if (run == nullptr) continue;
        HostString font(GetFont(run));
        HostString text(GetText(run));
        if (REALstring cleaned = CleanupText(text.get())) text.reset(cleaned);
        XojoStyleRun record;
        record.textColor = GetTextColor(run);
        record.bold = GetBold(run);
        record.italic = GetItalic(run);
        record.underline = GetUnderline(run);
        record.size = GetSize(run);
        // The record takes over the two new references.
        record.font = font.release();
        record.text = text.release();
        record.length = GetStringLength(record.text);
        record.startPos = position;
        record.middlePos = position + record.length / 2;
        position += record.length;
        runs.push_back(std::move(record));
    }

    if (skipParagraphs || paragraphCount < 1) return;
    for (int64_t index = 0; index < paragraphCount; ++index) {
        const HostObject paragraph(GetParagraph(styledText, index));
        if (!paragraph) continue;
        int64_t start = GetStartPos(paragraph.get());
        int64_t end = GetEndPos(paragraph.get());
        int64_t alignment = GetAlignment(paragraph.get());
        // Middle positions grow with the run index, so the runs of a paragraph are found by
        // binary search and the pass stays linear in the number of runs.
        auto first =
            std::lower_bound(runs.begin() + ptrdiff_t(firstNew), runs.end(), start,
                             [](const XojoStyleRun& r, int64_t pos) { return r.middlePos < pos; });
        for (auto it = first; it != runs.end() && it->middlePos <= end; ++it) {
            it->alignment = alignment;
        }
    }
}
