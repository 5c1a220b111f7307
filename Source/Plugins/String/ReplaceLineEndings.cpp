#include "ReplaceLineEndings.h"

#include <algorithm>
#include <new>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "MyMemory.h"
#include "REALplugin.h"
#include "rbData.h"
#include "rbException.h"
#include "rbText.h"
#include "rbUtil.h"

namespace kxt {

namespace {

constexpr char kCR = 13, kLF = 10;

// First CR or LF in [p, end), or end.
const char* findLineBreak(const char* p, const char* end) {
#if defined(__SSE2__)
    const __m128i cr = _mm_set1_epi8(kCR), lf = _mm_set1_epi8(kLF);
    while (end - p >= 16) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const int hits =
            _mm_movemask_epi8(_mm_or_si128(_mm_cmpeq_epi8(v, cr), _mm_cmpeq_epi8(v, lf)));
        if (hits) return p + __builtin_ctz(unsigned(hits));
        p += 16;
    }
#endif
    while (p < end && *p != kCR && *p != kLF) ++p;
    return p;
}

bool onYieldBoundary(const char* p) {
    return reinterpret_cast<uintptr_t>(p) % kYieldInterval == 0;
}

// Room for one break per 50 bytes plus 1000 spare ones, but never more than the largest possible
// output. Only a hint: when it cannot be had, the string grows as needed instead.
void reserveOutput(std::string& out, size_t length, size_t newlineLength) {
    size_t breaks = length / 50 + 1000, hint = 0, most = 0;
    if (__builtin_mul_overflow(breaks, newlineLength, &hint) ||
        __builtin_add_overflow(hint, length, &hint)) {
        hint = SIZE_MAX;
    }
    if (__builtin_mul_overflow(length, std::max<size_t>(newlineLength, 1), &most)) most = SIZE_MAX;
    try {
        ReserveLarge(out, std::min(hint, most));
    } catch (const std::exception&) {
        out.reserve(length);
    }
}

}  // namespace

std::string replaceLineEndings(std::string_view text, std::string_view newline, YieldHook yield) {
    std::string out;
    if (text.empty()) return out;
    reserveOutput(out, text.size(), newline.size());

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
        const char* q = findLineBreak(p, stop);
        out.append(p, q);
        if (yield && q != p && onYieldBoundary(q)) yield();
        if (q == stop) {
            p = q;
            continue;
        }
        out.append(newline);
        const char partner = *q == kCR ? kLF : kCR;
        p = q + 1;
        if (p < end && *p == partner) ++p;  // a two-byte step may pass a boundary unnoticed
        if (yield && onYieldBoundary(p)) yield();
    }
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
    const std::string out = kxt::replaceLineEndings(text.utf8(), newline.utf8(), hookFor(yield));
    return REALBuildUnicodeString(out, kREALTextEncodingUTF8);
}

// Any other text: bytes as they are, NewLine converted into the text's encoding first.
REALstring ReplaceLineEndingsKXT_binary(REALstring Text, REALstring NewLine, bool yield,
                                        uint32_t encoding) {
    REALstring converted = REALConvertString(NewLine, encoding);
    rbFreeLater releaseConverted(&converted);
    rbData text(Text), newline(converted);
    const std::string out = kxt::replaceLineEndings(text.view(), newline.view(), hookFor(yield));
    return REALBuildUnicodeString(out, encoding);
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
