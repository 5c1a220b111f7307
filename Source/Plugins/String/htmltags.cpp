#include "htmltags.h"

#include "MyMemory.h"
#include "rbException.h"
#include "rbText.h"
#include "rbUtil.h"
#include "simd.h"

namespace kxt {

namespace {

bool isASCIILetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

}  // namespace

std::string removeHTMLTagsPlain(std::string_view text, std::string_view replacement) {
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

namespace {

using S = simd::Native;
using V = S::V;

// The first position from i holding a byte that `stops` marks, or n; 16 bytes a step.
template <typename Stops>
size_t nextStop(const char* p, size_t i, size_t n, Stops stops) {
    for (; i + 16 <= n; i += 16) {
        if (const unsigned k = S::first(stops(S::load(p + i))); k < 16) return i + k;
    }
    while (i < n && !S::any(stops(S::splat8(uint8_t(p[i]))))) ++i;
    return i;
}

}  // namespace

// The byte rule above, with the runs where it does the same to every byte taken at once: text
// outside tags up to the next "<" or ">" is copied, a quoted value inside a tag is skipped up to
// its closing quote, and so is the rest of a tag when each byte adds an empty replacement.
std::string removeHTMLTags(std::string_view text, std::string_view replacement) {
    std::string out;
    ReserveLarge(out, text.size() + 10);
    const char* p = text.data();
    const size_t n = text.size();
    const V lt = S::splat8('<'), gt = S::splat8('>'), quote = S::splat8('"');
    auto angle = [&](V x) { return S::or_(S::eq8(x, lt), S::eq8(x, gt)); };
    auto angleOrQuote = [&](V x) { return S::or_(angle(x), S::eq8(x, quote)); };
    auto closingQuote = [&](V x) { return S::eq8(x, quote); };
    int64_t depth = 0;
    bool inQuote = false;
    for (size_t i = 0; i < n; ++i) {
        if (depth == 0) {
            const size_t stop = nextStop(p, i, n, angle);
            out.append(p + i, stop - i);
            i = stop;
        } else if (inQuote) {
            i = nextStop(p, i, n, closingQuote);
        } else if (replacement.empty()) {
            i = nextStop(p, i, n, angleOrQuote);
        }
        if (i == n) break;
        const char c = p[i];
        if (depth > 0 && inQuote) {
            inQuote = c != '"';
        } else if (depth > 0 && c == '"') {
            inQuote = true;
        } else if (c == '<' && i + 1 < n && (p[i + 1] == '/' || isASCIILetter(p[i + 1]))) {
            ++depth;
        } else if (c == '>') {
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
