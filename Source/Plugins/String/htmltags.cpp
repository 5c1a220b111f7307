#include "htmltags.h"

#include "MyMemory.h"
#include "rbException.h"
#include "rbText.h"
#include "rbUtil.h"

namespace kxt {

namespace {

bool isASCIILetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

}  // namespace

std::string removeHTMLTags(std::string_view text, std::string_view replacement) {
    std::string out;
    ReserveLarge(out, text.size() + 10);
    int64_t depth = 0;
    bool inQuote = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (depth > 0 && inQuote) {
            inQuote = c != '"';
        } else if (depth > 0 && c == '"') {
            inQuote = true;
        } else if (c == '<' && i + 1 < text.size() &&
                   (text[i + 1] == '/' || isASCIILetter(text[i + 1]))) {
            ++depth;
        } else if (c == '>') {
            // Dropped even outside a tag.
            if (depth > 0) --depth;
        } else if (depth == 0) {
            out += c;
        } else {
            out += replacement;
        }
    }
    return out;
}

}  // namespace kxt

REALstring RemoveHTMLTagsWith(REALstring AsciiTextWithTags, REALstring Replacement) {
    return HandlerBoundary<REALstring>(nullptr, [&]() -> REALstring {
        if (!AsciiTextWithTags) return nullptr;
        rbText text(AsciiTextWithTags), replacement(Replacement);
        const std::string out = kxt::removeHTMLTags(text.utf8(), replacement.utf8());
        // Built as a C string: the result ends at its first zero byte.
        return CString2RB(out.c_str(), kREALTextEncodingUTF8);
    });
}

REALstring RemoveHTMLTags(REALstring AsciiTextWithTags) {
    return RemoveHTMLTagsWith(AsciiTextWithTags, nullptr);
}
