// Reading a host StyledText: its style runs as plain records, and the single-property readers
// of StyledText, StyleRun and Paragraph.
#pragma once

#include <cstdint>
#include <vector>

#include "REALplugin.h"
#include "XojoHostServices.h"
#include "XojoPluginABI.h"

// A host method of an object by declaration, remembered for the object it was last looked up
// for (the style-run helpers call the same few methods on the same object many times). Each
// thread keeps its own (thread_local): threads working on different texts would otherwise
// overwrite each other's object and function, and a reader could pair one's object with the
// other's function.
template <typename Fn>
struct MethodCache {
    const char* declaration;
    REALobject object = nullptr;
    Fn function = nullptr;

    Fn lookup(REALobject target) {
        if (target != object || function == nullptr) {
            object = target;
            function = reinterpret_cast<Fn>(REALLoadObjectMethod(target, declaration));
        }
        return function;
    }
};

// The cache of a method of the host's object-method list, with its declaration and C type.
template <kxt::abi::ObjectMethod M>
struct ObjectMethodCache : MethodCache<kxt::abi::ObjectMethodFunction<M>> {
    ObjectMethodCache()
        : MethodCache<kxt::abi::ObjectMethodFunction<M>>{
              kxt::abi::ObjectMethodInfo<M>::declaration} {}
};

// One style run as read from a StyledText. Owns one lock on each of its two strings.
class XojoStyleRun {
  public:
    XojoStyleRun() = default;
    XojoStyleRun(const XojoStyleRun& other);
    XojoStyleRun& operator=(const XojoStyleRun& other);
    // Moving takes the locks over: no host calls (a document's runs are read into a growing
    // array, millions of them).
    XojoStyleRun(XojoStyleRun&& other) noexcept;
    XojoStyleRun& operator=(XojoStyleRun&& other) noexcept;
    ~XojoStyleRun();

    // Lock the new string before releasing the old one, so setting the same string is safe.
    void setFont(REALstring s);
    void setText(REALstring s);

    bool bold = false;
    bool underline = false;
    bool italic = false;
    uint32_t textColor = 0;
    int64_t size = 0;
    int64_t alignment = 0;  // of the paragraph holding the middle character
    int64_t startPos = 0;
    int64_t length = 0;
    int64_t middlePos = 0;
    REALstring font = nullptr;
    REALstring text = nullptr;

  private:
    void copyStyle(const XojoStyleRun& other);  // everything but the two strings
};

// Each reader starts from zero (false, nil), so a failed read yields that.
bool GetBold(REALobject styleRun);
bool GetItalic(REALobject styleRun);
bool GetUnderline(REALobject styleRun);
uint32_t GetTextColor(REALobject styleRun);
int64_t GetSize(REALobject styleRun);
REALstring GetText(REALobject styleRun);  // new reference
int64_t GetStartPos(REALobject paragraph);
int64_t GetEndPos(REALobject paragraph);
int64_t GetAlignment(REALobject paragraph);
int64_t GetParagraphCount(REALobject styledText);
int64_t GetStyleRunCount(REALobject styledText);

// "StyleRun(Index as Integer) As StyleRun": the run stays owned by the styled text.
REALobject GetStyleRun(REALobject styledText, int64_t index);
// "Paragraph(Index as Integer) As Paragraph": a new reference.
REALobject GetParagraph(REALobject styledText, int64_t index);

// Characters as the host's Len counts them; 0 when the host has no Len.
int64_t GetStringLength(REALstring s);

// Cleans a run's text before it is stored; nil keeps the text as it is. Nothing needs cleaning
// today, but callers honour a replacement.
REALstring CleanupText(REALstring text);

// The run's "Font" (new reference). A name holding zero bytes is UTF-16 that lost its tag and
// comes back re-tagged as UTF-16.
REALstring GetFont(REALobject styleRun);

// Appends the runs of styledText. Alignment comes from the paragraph holding each run's middle
// character, unless skipParagraphs. A text that reports no paragraph yields no runs.
void GetXojoStyleRunsForText(REALobject styledText, std::vector<XojoStyleRun>& runs,
                             bool skipParagraphs);
