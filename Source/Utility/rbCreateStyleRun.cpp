// Building StyleRuns and appending them to a host StyledText.
#include "rbCreateStyleRun.h"

#include "REALplugin.h"
#include "rbDebug.h"
#include "rbRef.h"
#include "rbStyleRun.h"
#include "rbText.h"
#include "rbUtil.h"

namespace {

using kxt::abi::ObjectMethod;
thread_local ObjectMethodCache<ObjectMethod::StyledTextRemoveStyleRun> gRemoveStyleRun;
thread_local ObjectMethodCache<ObjectMethod::StyledTextAppendStyleRun> gAppendStyleRun;
thread_local ObjectMethodCache<ObjectMethod::StyledTextParagraphAlignment> gSetParagraphAlignment;

void Log(const char* text) {
    if (gDebugging) LogMessage(text);
}
template <typename T>
void Log(const char* text, T value) {
    if (gDebugging) LogMessage(text, value);
}

// The setters share one shape: log, check the run, set, log a failure.
template <typename Set>
void SetProperty(REALobject run, const char* name, const char* failure, Set set) {
    if (run == nullptr) {
        Log("StyleRun is nil in", name);
        return;
    }
    if (!set() && gDebugging) LogMessage(failure);
}

// Reads a string property back and logs when it differs from what was set.
void VerifyString(REALobject run, const char* property, REALstring expected,
                  const char* queryFailed, const char* readLabel, const char* differs) {
    REALstring value = nullptr;
    if (!REALGetPropValueString(run, property, &value)) {
        LogMessage(queryFailed);
        return;
    }
    const HostString read(value);
    if (readLabel != nullptr) LogMessage(readLabel, read.get());
    if (REALCompareStrings(read.get(), expected) != 0) LogMessage(differs, read.get());
}

}  // namespace

REALobject NewStyleRun() {
    REALobject run = REALnewInstance("StyleRun");
    if (run == nullptr) Log("NewStyleRun failed");
    return run;
}

void StyledTextRemoveStyleRun(REALobject styledText, int64_t index) {
    Log("StyledTextRemoveStyleRun", index);
    if (styledText == nullptr) {
        Log("styledText is nil in", "StyledTextRemoveStyleRun");
        return;
    }
    auto f = gRemoveStyleRun.lookup(styledText);
    if (f == nullptr) {
        Log("nil function in", "StyledTextRemoveStyleRun");
        return;
    }
    f(styledText, index);
}

void StyledTextAppendStyleRun(REALobject styledText, REALobject styleRun) {
    Log("StyledTextAppendStyleRun");
    if (styledText == nullptr) {
        Log("styledText is nil in", "StyledTextAppendStyleRun");
        return;
    }
    if (styleRun == nullptr) {
        // Lower-case "styleRun" here, upper-case in the setters: both spellings are kept.
        Log("styleRun is nil in", "StyledTextAppendStyleRun");
        return;
    }
    auto f = gAppendStyleRun.lookup(styledText);
    if (f == nullptr) {
        Log("nil function in", "StyledTextAppendStyleRun");
        return;
    }
    f(styledText, styleRun);
}

void StyledTextSetParagraphAlignment(REALobject styledText, int64_t index, int64_t alignment) {
    Log("StyledTextSetParagraphAlignment");
    if (styledText == nullptr) {
        Log("styledText is nil in", "StyledTextSetParagraphAlignment");
        return;
    }
    auto f = gSetParagraphAlignment.lookup(styledText);
    if (f == nullptr) {
        Log("nil function in", "StyledTextSetParagraphAlignment");
        return;
    }
    f(styledText, index, alignment);
}

void StyledTextClear(REALobject styledText) {
    Log("StyledTextClear");
    if (styledText == nullptr) {
        Log("styledText is nil in", "StyledTextClear");
        return;
    }
    for (int64_t index = GetStyleRunCount(styledText) - 1; index >= 0; --index) {
        StyledTextRemoveStyleRun(styledText, index);
    }
}

void StyleRunSetBold(REALobject run, bool flag) {
    Log("StyleRunSetBold", int32_t(flag));
    SetProperty(run, "StyleRunSetBold", "Failed to set Bold property.",
                [&] { return REALSetPropValueBoolean(run, "Bold", flag); });
}

void StyleRunSetItalic(REALobject run, bool flag) {
    Log("StyleRunSetItalic", int32_t(flag));
    SetProperty(run, "StyleRunSetItalic", "Failed to set Italic property.",
                [&] { return REALSetPropValueBoolean(run, "Italic", flag); });
}

void StyleRunSetUnderline(REALobject run, bool flag) {
    Log("StyleRunSetUnderline", int32_t(flag));
    SetProperty(run, "StyleRunSetUnderline", "Failed to set Underline property.",
                [&] { return REALSetPropValueBoolean(run, "Underline", flag); });
}

void StyleRunSetTextColor(REALobject run, uint32_t color) {
    Log("StyleRunSetTextColor", color);
    SetProperty(run, "StyleRunSetTextColor", "Failed to set TextColor property.",
                [&] { return REALSetPropValueUInt32(run, "TextColor", color); });
}

void StyleRunSetSize(REALobject run, int64_t size) {
    Log("StyleRunSetSize", size);
    SetProperty(run, "StyleRunSetSize", "Failed to set Size property.",
                [&] { return REALSetPropValueInteger(run, "Size", size); });
}

void StyleRunSetText(REALobject run, REALstring text) {
    Log("StyleRunSetText", text);
    if (run == nullptr) {
        Log("StyleRun is nil in", "StyleRunSetText");
        return;
    }
    if (!REALSetPropValueString(run, "Text", text)) {
        if (!gDebugging) return;
        LogMessage("Failed to set text property.");
    }
    if (!gDebugging) return;
    VerifyString(run, "Text", text, "Failed to query value set!", nullptr,
                 "text queried is not same!");
}

void StyleRunSetFontName(REALobject run, REALstring name) {
    if (gDebugging) {
        LogMessage("StyleRunSetFontName", name);
        rbText text(name);
        LogMessage("LengthUTF8", text.LengthUTF8());
    }
    if (run == nullptr) {
        Log("StyleRun is nil in", "StyleRunSetFontName");
        return;
    }
    const char* property = "Font";
    if (!REALSetPropValueString(run, "Font", name)) {
        Log("Failed to set Font property, trying FontName.");
        property = "FontName";
        if (!REALSetPropValueString(run, "FontName", name)) {
            Log("Failed to set FontName property.");
            return;
        }
    }
    if (!gDebugging) return;
    VerifyString(run, property, name,
                 property[4] == '\0' ? "Failed to query Font property!"
                                     : "Failed to query FontName property!",
                 "fontSet", "Warning: Font queried is not same!");
}

void StyledTextAddStyleRun(REALstring text, REALobject styledText, HostObject& run,
                           int64_t alignment) {
    Log("StyledTextAddStyleRun", alignment);
    int64_t before = GetParagraphCount(styledText);
    StyleRunSetText(run.get(), text);
    StyledTextAppendStyleRun(styledText, run.get());
    run.reset();
    int64_t after = GetParagraphCount(styledText);
    Log("NewParagraphCount", after);
    // The alignment belongs to the first paragraph the appended text opened.
    if (before != after && alignment >= 0) {
        if (gDebugging) LogMessage("SetParagraphAlignment", before, alignment);
        StyledTextSetParagraphAlignment(styledText, before, alignment);
    }
}

void StyledTextAddStyleRun(uint32_t encoding, std::string& buffer, REALobject styledText,
                           HostObject& run, int64_t alignment) {
    Log("StyledTextAddStyleRun");
    if (buffer.empty()) {
        Log("Ignore empty run");
        run.reset();
        return;
    }
    if (gDebugging) LogMessage(buffer.c_str());
    if (!run) {
        buffer.clear();
        return;
    }
    const HostString text(CString2RB(buffer.c_str(), encoding));
    Log("NewText", text.get());
    StyledTextAddStyleRun(text.get(), styledText, run, alignment);
    buffer.clear();
}

void StyledTextAddStyleRun(std::u16string_view units, REALobject styledText, HostObject& run,
                           int64_t alignment) {
    const uint32_t unit = units.empty() ? 0 : units[0];
    Log("StyledTextAddStyleRun", unit);
    if (unit == 0) {
        Log("Ignore null character");
        run.reset();
        return;
    }
    if (!run) return;
    const HostString text(
        REALBuildUnicodeString(units.data(), int64_t(units.size() * 2), kREALTextEncodingUTF16));
    Log("NewText", text.get());
    StyledTextAddStyleRun(text.get(), styledText, run, alignment);
}
