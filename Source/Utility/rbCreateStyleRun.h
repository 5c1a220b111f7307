// Building the content of a host StyledText: new StyleRun objects, their properties, appending
// and removing runs, paragraph alignment. Nil objects are accepted quietly; with Debugging on
// every operation and failure goes to the debug log, never to the user.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "XojoPluginABI.h"
#include "rbRef.h"

REALobject NewStyleRun();  // new reference, or nil

void StyledTextRemoveStyleRun(REALobject styledText, int64_t index);
void StyledTextAppendStyleRun(REALobject styledText, REALobject styleRun);
void StyledTextSetParagraphAlignment(REALobject styledText, int64_t index, int64_t alignment);
// Removes every run, from the last index down to 0.
void StyledTextClear(REALobject styledText);

void StyleRunSetBold(REALobject run, bool flag);
void StyleRunSetItalic(REALobject run, bool flag);
void StyleRunSetUnderline(REALobject run, bool flag);
void StyleRunSetTextColor(REALobject run, uint32_t color);
void StyleRunSetSize(REALobject run, int64_t size);
void StyleRunSetText(REALobject run, REALstring text);
// Tries "Font" first, then "FontName": hosts name the property differently.
void StyleRunSetFontName(REALobject run, REALstring name);

// Each form appends the run to the styled text and consumes the caller's run reference (it is
// released and set to nil). The alignment goes to the paragraph the appended text opens; a
// negative alignment sets none.
void StyledTextAddStyleRun(REALstring text, REALobject styledText, HostObject& run,
                           int64_t alignment);
// The bytes up to the first zero byte, tagged with encoding; the buffer is emptied. An empty
// buffer appends nothing (the run is still consumed).
void StyledTextAddStyleRun(uint32_t encoding, std::string& buffer, REALobject styledText,
                           HostObject& run, int64_t alignment);
// One character as UTF-16 units (one, or a surrogate pair); the unit 0 appends nothing (the run
// is still consumed).
void StyledTextAddStyleRun(std::u16string_view units, REALobject styledText, HostObject& run,
                           int64_t alignment);
