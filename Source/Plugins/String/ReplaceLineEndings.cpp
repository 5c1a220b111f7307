#include "ReplaceLineEndings.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "MyMemory.h"
#include "REALplugin.h"
#include "rbData.h"
#include "rbException.h"
#include "rbRef.h"
#include "rbText.h"
#include "rbUtil.h"
#include "simd.h"

namespace kxt {

namespace {

using S = simd::Native;
using V = S::V;

constexpr char kCR = 13, kLF = 10;

// Copies [p, stop) to w up to the first CR or LF; returns where the copy stopped in both. The
// copy goes sixteen bytes a step, so up to 16 bytes past the end of what it copies are
// written too (the caller's room has that slack; later writes cover them).
struct Copied {
    const char* p;
    char* w;
};

Copied copyUntilBreak(const char* p, const char* stop, char* w) {
    const V cr = S::splat8(kCR), lf = S::splat8(kLF);
    while (stop - p >= 16) {
        const unsigned k =
            simd::copyBlockUntil(p, w, [&](V v) { return S::or_(S::eq8(v, cr), S::eq8(v, lf)); });
        if (k < 16) return {p + k, w + k};
        p += 16;
        w += 16;
    }
    while (p < stop && *p != kCR && *p != kLF) *w++ = *p++;
    return {p, w};
}

// The same when the newline is the single byte `kept` (CR or LF): a lone `kept` becomes
// itself, so it is copied as any other byte, and the copy stops only at the other break byte
// or at `kept` followed by the other (a pair that becomes one newline). Text that already has
// the wanted line ends is then copied whole, sixteen bytes a step. `end` is the text's end
// (the byte after a `kept` is looked at).
Copied copyUntilChange(const char* p, const char* stop, const char* end, char kept, char* w) {
    const char other = kept == kCR ? kLF : kCR;
    const V keptV = S::splat8(uint8_t(kept)), otherV = S::splat8(uint8_t(other));
    while (stop - p >= 16 && end - p >= 17) {
        const V next = S::load(p + 1);
        const unsigned k = simd::copyBlockUntil(p, w, [&](V v) {
            return S::or_(S::eq8(v, otherV), S::and_(S::eq8(v, keptV), S::eq8(next, otherV)));
        });
        if (k < 16) return {p + k, w + k};
        p += 16;
        w += 16;
    }
    while (p < stop && *p != other && !(*p == kept && end - p >= 2 && p[1] == other)) {
        *w++ = *p++;
    }
    return {p, w};
}

bool onYieldBoundary(const char* p) {
    return reinterpret_cast<uintptr_t>(p) % kYieldInterval == 0;
}

constexpr size_t kSlack = 32;

// The most the result can take: the text itself when a break becomes at most one byte; else,
// for newlines of up to four bytes and texts of up to 64 MiB, every byte a newline (cheap to
// reserve: pages that are never written are never mapped); beyond that the text plus the
// growth of every CR or LF byte, counted first.
size_t resultBound(std::string_view text, size_t newlineLength) {
    size_t bound = 0;
    if (newlineLength <= 1) return text.size();
    if (newlineLength <= 4 && text.size() <= (size_t(64) << 20)) {
        return text.size() * newlineLength;
    }
    const size_t breaks = size_t(
        std::count_if(text.begin(), text.end(), [](char c) { return c == kCR || c == kLF; }));
    if (__builtin_mul_overflow(breaks, newlineLength - 1, &bound) ||
        __builtin_add_overflow(bound, text.size(), &bound)) {
        throw std::bad_alloc();
    }
    return bound;
}

}  // namespace

RawBytes replaceLineEndings(std::string_view text, std::string_view newline, YieldHook yield) {
    if (text.empty()) return {};
    size_t room = 0;
    if (__builtin_add_overflow(resultBound(text, newline.size()), kSlack, &room)) {
        throw std::bad_alloc();
    }
    RawBytes out(room);
    char* w = out.data();
    // Newlines of up to 16 bytes are written as one 16-byte store (the slack covers the rest).
    alignas(16) char newline16[16] = {};
    const bool shortNewline = newline.size() <= 16;
    if (shortNewline) std::copy(newline.begin(), newline.end(), newline16);

    // Without yielding, a newline of one break byte leaves that byte alone where it stands by
    // itself (the yield points keep the plain scan).
    const bool keepLone = !yield && newline.size() == 1 && (newline[0] == kCR || newline[0] == kLF);
    const char* p = text.data();
    const char* const end = p + text.size();
    while (p < end) {
        // With a hook, scan no further than the next 16 MiB boundary, so that the host gets
        // control in the middle of a long run of text without breaks.
        const char* stop = end;
        if (yield) {
            const size_t toBoundary =
                kYieldInterval - reinterpret_cast<uintptr_t>(p) % kYieldInterval;
            if (size_t(end - p) > toBoundary) stop = p + toBoundary;
        }
        const Copied c =
            keepLone ? copyUntilChange(p, stop, end, newline[0], w) : copyUntilBreak(p, stop, w);
        const char* q = c.p;
        w = c.w;
        if (yield && q != p && onYieldBoundary(q)) yield();
        if (q == stop) {
            p = q;
            continue;
        }
        if (shortNewline) {
            memcpy(w, newline16, 16);
        } else {
            memcpy(w, newline.data(), newline.size());
        }
        w += newline.size();
        const char partner = *q == kCR ? kLF : kCR;
        p = q + 1;
        if (p < end && *p == partner) ++p;  // a two-byte step may pass a boundary unnoticed
        if (yield && onYieldBoundary(p)) yield();
    }
    out.setSize(size_t(w - out.data()));
    return out;
}

}  // namespace kxt

namespace {

kxt::YieldHook hookFor(bool yield) {
    return yield ? &REALYieldToRB : nullptr;
}

// UTF-16 and UTF-32 text: both operands as UTF-8, the result in UTF-8.
REALstring ReplaceLineEndingsKXT_text(REALstring Text, REALstring NewLine, bool yield) {
    rbText text(Text), newline(NewLine);
    const RawBytes out = kxt::replaceLineEndings(text.utf8(), newline.utf8(), hookFor(yield));
    return REALBuildUnicodeString(out.view(), kREALTextEncodingUTF8);
}

// Any other text: bytes as they are, NewLine converted into the text's encoding first.
REALstring ReplaceLineEndingsKXT_binary(REALstring Text, REALstring NewLine, bool yield,
                                        uint32_t encoding) {
    const HostString converted(REALConvertString(NewLine, encoding));
    rbData text(Text), newline(converted.get());
    const RawBytes out = kxt::replaceLineEndings(text.view(), newline.view(), hookFor(yield));
    return REALBuildUnicodeString(out.view(), encoding);
}

}  // namespace

REALstring ReplaceLineEndingsKXT(REALstring Text, REALstring NewLine, RBBoolean yield) {
    return HandlerBoundary<REALstring>(nullptr, [&] {
        const uint32_t encoding = REALGetStringEncoding(Text);
        return IsUTF16or32Encoding(encoding)
                   ? ReplaceLineEndingsKXT_text(Text, NewLine, yield)
                   : ReplaceLineEndingsKXT_binary(Text, NewLine, yield, encoding);
    });
}
