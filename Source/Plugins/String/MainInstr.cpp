#include "MainInstr.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "REALplugin.h"
#include "rbData.h"
#include "rbDebug.h"
#include "rbException.h"
#include "rbText.h"
#include "simd.h"

namespace kxt {

namespace {

using S = simd::Native;
using V = S::V;

const uint8_t* bytesOf(std::string_view s) {
    return reinterpret_cast<const uint8_t*>(s.data());
}

// A set given as runs of consecutive values: value v is in run r when (v - first) mod 256 is at
// most width, which the block scan tests for 16 bytes with one subtract, one unsigned min and one
// compare.
struct Run {
    uint8_t first;
    uint8_t width;
};
constexpr int kMaxVectorRuns = 8;

// Number of runs, or -1 when there are more than fit the vector scan.
int runsOf(const ByteSet& set, Run (&runs)[kMaxVectorRuns]) {
    int count = 0;
    for (int v = 0; v < 256;) {
        if (!set[size_t(v)]) {
            ++v;
            continue;
        }
        int first = v;
        while (v < 256 && set[size_t(v)]) ++v;
        if (count == kMaxVectorRuns) return -1;
        runs[count++] = {uint8_t(first), uint8_t(v - 1 - first)};
    }
    return count;
}

int64_t firstInRuns(const uint8_t* p, size_t n, const Run* runs, int runCount) {
    V first[kMaxVectorRuns], width[kMaxVectorRuns];
    for (int r = 0; r < runCount; ++r) {
        first[r] = S::splat8(runs[r].first);
        width[r] = S::splat8(runs[r].width);
    }
    size_t i = 0;
    for (; i + 16 <= n; i += 16) {
        const V x = S::load(p + i);
        V hit = S::zero();
        for (int r = 0; r < runCount; ++r) {
            const V offset = S::sub8(x, first[r]);
            hit = S::or_(hit, S::eq8(S::min8(offset, width[r]), offset));
        }
        if (const unsigned k = S::first(hit); k < 16) return int64_t(i + k) + 1;
    }
    for (; i < n; ++i) {
        for (int r = 0; r < runCount; ++r) {
            if (uint8_t(p[i] - runs[r].first) <= runs[r].width) return int64_t(i) + 1;
        }
    }
    return 0;
}

// Bytes equal to c, 16 at a time; the per-lane counters are summed before they can wrap.
int64_t countByte(const uint8_t* p, size_t n, uint8_t c) {
    const V needle = S::splat8(c);
    int64_t count = 0;
    size_t i = 0;
    while (i + 16 <= n) {
        V lanes = S::zero();
        size_t blockEnd = std::min(n - n % 16, i + 255 * 16);
        for (; i < blockEnd; i += 16) lanes = S::sub8(lanes, S::eq8(S::load(p + i), needle));
        count += S::sum8(lanes);
    }
    for (; i < n; ++i) count += p[i] == c;
    return count;
}

ByteSet setOfBytes(std::string_view bytes) {
    ByteSet set{};
    for (char c : bytes) set[uint8_t(c)] = true;
    return set;
}

// Adds to `set` the byte of every value from `low` to `high` that some range holds, each range
// walked once instead of every value tested against every range.
template <typename ByteOf>
void markRanges(ByteSet& set, std::span<const ByteRange> ranges, int64_t low, int64_t high,
                ByteOf byteOf) {
    for (const ByteRange& r : ranges) {
        for (int64_t v = std::max(r.first, low); v <= std::min(r.last, high); ++v) {
            set[byteOf(v)] = true;
        }
    }
}

char asciiLower(char c) {
    return c >= 'A' && c <= 'Z' ? char(c + ('a' - 'A')) : c;
}

}  // namespace

int64_t firstInSet(std::string_view target, const ByteSet& set) {
    const uint8_t* p = bytesOf(target);
    const size_t n = target.size();
    if (n == 0) return 0;
    // Finding the runs reads all 256 entries of the set: more than reading a short target.
    if (n < 64) {
        for (size_t i = 0; i < n; ++i) {
            if (set[p[i]]) return int64_t(i) + 1;
        }
        return 0;
    }
    Run runs[kMaxVectorRuns];
    const int runCount = runsOf(set, runs);
    if (runCount == 0) return 0;
    if (runCount == 1 && runs[0].width == 0) {
        const void* hit = memchr(p, runs[0].first, n);
        return hit ? static_cast<const uint8_t*>(hit) - p + 1 : 0;
    }
    if (runCount > 0) return firstInRuns(p, n, runs, runCount);
    for (size_t i = 0; i < n; ++i) {
        if (set[p[i]]) return int64_t(i) + 1;
    }
    return 0;
}

int64_t firstOfAny(std::string_view target, std::string_view set) {
    return firstInSet(target, setOfBytes(set));
}

int64_t firstInRanges(std::string_view target, std::span<const ByteRange> ranges) {
    ByteSet set{};
    markRanges(set, ranges, 0, 255, [](int64_t v) { return size_t(v); });
    return firstInSet(target, set);
}

int64_t firstInSignedRangesOrSet(std::string_view target, std::span<const ByteRange> ranges,
                                 std::string_view find) {
    ByteSet set = setOfBytes(find);
    // The ranges are of signed bytes: -128..-1 are the bytes 0x80..0xFF.
    markRanges(set, ranges, -128, 127, [](int64_t v) { return size_t(uint8_t(int8_t(v))); });
    return firstInSet(target, set);
}

int compareZeroPadded(std::string_view a, std::string_view b) {
    const size_t common = std::min(a.size(), b.size());
    if (common > 0) {
        int c = memcmp(a.data(), b.data(), common);
        if (c != 0) return c < 0 ? -1 : 1;
    }
    const bool aLonger = a.size() > common;
    std::string_view tail = aLonger ? a.substr(common) : b.substr(common);
    if (tail.find_first_not_of('\0') == std::string_view::npos) return 0;
    return aLonger ? 1 : -1;
}

int compareBytes(std::string_view a, std::string_view b) {
    if (a.empty()) return -1;
    if (b.empty()) return 1;
    return compareZeroPadded(a, b);
}

namespace {

// Counts matches of find (two bytes or more) 16 start positions a step: a position is a
// candidate when its byte equals the first of find and the byte find.size() - 1 further equals
// the last (and the next byte the second), and only candidates are compared in full. Matches do not
// overlap: a candidate inside the previous match is skipped. Returns where the caller goes on (with
// memmem) for the rest: the tail that no longer fills a step, or everything from the point where
// failed comparisons have cost more than a few passes over the text (periodic text), since memmem
// stays linear whatever the input.
size_t countFiltered(std::string_view s, std::string_view find, int64_t& count) {
    const size_t n = s.size(), m = find.size();
    const char* text = s.data();
    const V first = S::splat8(uint8_t(find[0])), last = S::splat8(uint8_t(find[m - 1]));
    // With three bytes or more the second is tested too: in text, first-and-last pairs of
    // short words are common, first, second and last far less.
    const V second = S::splat8(uint8_t(find[m >= 3 ? 1 : 0]));
    const size_t checked = m >= 3 ? 2 : 1;  // bytes the filter has compared at the start
    size_t next = 0;                        // the end of the last match: no match starts before it
    int64_t budget = int64_t(2 * n) + 65536;
    size_t i = 0;
    for (; i + m - 1 + 16 <= n; i += 16) {
        V hits = S::and_(S::eq8(S::load(text + i), first), S::eq8(S::load(text + i + m - 1), last));
        if (m >= 3) hits = S::and_(hits, S::eq8(S::load(text + i + 1), second));
        if (!S::any(hits)) continue;
        uint32_t candidates = S::bits(hits);
        while (candidates != 0) {
            const size_t p = i + simd::lowestBit(candidates);
            candidates &= candidates - 1;
            if (p < next) continue;
            if (m <= checked + 1 ||
                memcmp(text + p + checked, find.data() + checked, m - 1 - checked) == 0) {
                ++count;
                next = p + m;
            } else if ((budget -= int64_t(m)) < 0) {
                return std::max(p + 1, next);
            }
        }
    }
    return std::max(i, next);
}

}  // namespace

int64_t countOccurrences(std::string_view s, std::string_view find) {
    if (s.empty() || find.empty() || find.size() > s.size()) return 0;
    if (find.size() == 1) return countByte(bytesOf(s), s.size(), uint8_t(find[0]));
    int64_t count = 0;
    // The leftmost match at or after the current position is exactly where the left-to-right
    // scan would stop, so the filter below and memmem (linear) give the same count.
    const char* p = s.data() + countFiltered(s, find, count);
    const char* end = s.data() + s.size();
    while (size_t(end - p) >= find.size()) {
        const void* hit = memmem(p, size_t(end - p), find.data(), find.size());
        if (hit == nullptr) break;
        ++count;
        p = static_cast<const char*>(hit) + find.size();
    }
    return count;
}

bool hasPrefix(std::string_view text, std::string_view prefix) {
    return !prefix.empty() && text.starts_with(prefix);
}

bool hasSuffix(std::string_view text, std::string_view suffix) {
    return !suffix.empty() && text.ends_with(suffix);
}

bool isWordChar(uint8_t c) {
    // Taken as a signed byte, so only 33..127 can qualify; of those, the letters do.
    const uint8_t lower = c | 0x20;
    return c < 128 && lower >= 'a' && lower <= 'z';
}

namespace {

bool equalsNoCaseAt(const char* text, std::string_view lowerNeedle) {
    for (size_t k = 0; k < lowerNeedle.size(); ++k) {
        if (asciiLower(text[k]) != lowerNeedle[k]) return false;
    }
    return true;
}

// The first p >= from where text[p, p + m) is lowerNeedle (ASCII-lowercase, m > 0) with ASCII
// letters of either case; n when there is none. Candidates come 16 at a time from the first
// and last byte (a letter matched with its case bit set, anything else exactly), and each is
// confirmed byte by byte: what memmem on a lowered copy of the text finds, without the copy.
size_t findNoCase(const char* text, size_t n, size_t from, std::string_view lowerNeedle) {
    const size_t m = lowerNeedle.size();
    if (m > n) return n;
    auto caseBit = [](char c) { return uint8_t(c >= 'a' && c <= 'z' ? 0x20 : 0); };
    const char first = lowerNeedle[0], last = lowerNeedle[m - 1];
    const V firstV = S::splat8(uint8_t(first)), lastV = S::splat8(uint8_t(last));
    const V firstCase = S::splat8(caseBit(first)), lastCase = S::splat8(caseBit(last));
    size_t i = from;
    auto hitsAt = [&](size_t at) {
        return S::and_(S::eq8(S::or_(S::load(text + at), firstCase), firstV),
                       S::eq8(S::or_(S::load(text + at + m - 1), lastCase), lastV));
    };
    for (; i + m - 1 + 16 <= n; i += 16) {
        // Two blocks a step while neither has a candidate: most of a long text.
        while (i + m - 1 + 32 <= n && !S::any(S::or_(hitsAt(i), hitsAt(i + 16)))) i += 32;
        if (i + m - 1 + 16 > n) break;
        for (uint32_t c = S::bits(hitsAt(i)); c != 0; c &= c - 1) {
            const size_t p = i + simd::lowestBit(c);
            if (equalsNoCaseAt(text + p, lowerNeedle)) return p;
        }
    }
    for (; i + m <= n; ++i) {
        if (equalsNoCaseAt(text + i, lowerNeedle)) return i;
    }
    return n;
}

}  // namespace

bool containsWholeWord(std::string_view text, std::string_view word) {
    if (text.empty() || word.empty() || word.size() > text.size()) return false;
    // strcasestr sees both operands only up to their first zero byte; the step behind an
    // occurrence is the full length of word all the same.
    std::string needle(word.substr(0, std::min(word.find('\0'), word.size())));
    for (char& c : needle) c = asciiLower(c);

    // The first zero of the text is looked for a stretch at a time, just ahead of the search,
    // so that a long text comes from memory once and the search reads it again from the cache.
    // text[0, known) holds no zero; `final` once known is the first zero or the end.
    constexpr size_t kStretch = size_t(64) << 10;
    size_t known = 0;
    bool final = needle.empty();
    if (final) known = std::min(text.find('\0'), text.size());
    auto extend = [&] {
        const size_t end = std::min(text.size(), known + kStretch);
        const void* zero = memchr(text.data() + known, 0, end - known);
        known = zero != nullptr ? size_t(static_cast<const char*>(zero) - text.data()) : end;
        final = zero != nullptr || known == text.size();
    };
    if (!final) extend();

    size_t from = 0;
    while (from <= known) {
        size_t p = from;
        if (!needle.empty()) {
            p = findNoCase(text.data(), known, from, needle);
            if (p == known) {
                if (final) return false;
                // No occurrence ends before `known`: go on where one still could.
                if (known + 1 > needle.size()) from = std::max(from, known + 1 - needle.size());
                extend();
                continue;
            }
        }
        const size_t after = p + word.size();
        const bool startsWord = p == 0 || !isWordChar(uint8_t(text[p - 1]));
        const bool endsWord = after >= text.size() || !isWordChar(uint8_t(text[after]));
        if (gDebugging) {
            LogMessage("position found", int64_t(p));
            LogMessage("posBefore", int64_t(p) - 1);
            LogMessage("posAfter", int64_t(after));
        }
        if (startsWord && endsWord) return true;
        from = after;
        while (from > known && !final) extend();
    }
    return false;
}

}  // namespace kxt

namespace {

RBInteger inRanges(REALstring target, std::initializer_list<kxt::ByteRange> ranges) {
    return HandlerBoundary<RBInteger>(0, [&] {
        rbData t(target);
        return kxt::firstInRanges(t.view(), std::span(ranges.begin(), ranges.size()));
    });
}

RBInteger inSignedRangesOrSet(REALstring target, REALstring find,
                              std::initializer_list<kxt::ByteRange> ranges) {
    return HandlerBoundary<RBInteger>(0, [&] {
        rbData t(target), f(find);
        return kxt::firstInSignedRangesOrSet(t.view(), std::span(ranges.begin(), ranges.size()),
                                             f.view());
    });
}

// The empty string is nil to Xojo, and nil has no encoding.
uint32_t encodingOf(REALstring s, const rbData& bytes) {
    return bytes.size > 0 ? REALGetStringEncoding(s) : uint32_t(kREALTextEncodingUnknown);
}

}  // namespace

RBInteger InStrBytesKXT(REALstring target, REALstring find) {
    return HandlerBoundary<RBInteger>(0, [&] {
        rbData t(target), f(find);
        return kxt::firstOfAny(t.view(), f.view());
    });
}

RBInteger InStrByteRange1KXT(REALstring target, RBInteger start1, RBInteger end1) {
    return inRanges(target, {{start1, end1}});
}

RBInteger InStrByteRange2KXT(REALstring target, RBInteger start1, RBInteger end1, RBInteger start2,
                             RBInteger end2) {
    return inRanges(target, {{start1, end1}, {start2, end2}});
}

RBInteger InStrByteRange3KXT(REALstring target, RBInteger start1, RBInteger end1, RBInteger start2,
                             RBInteger end2, RBInteger start3, RBInteger end3) {
    return inRanges(target, {{start1, end1}, {start2, end2}, {start3, end3}});
}

RBInteger InStrByteRange1BKXT(REALstring target, REALstring find, RBInteger start1,
                              RBInteger end1) {
    return inSignedRangesOrSet(target, find, {{start1, end1}});
}

RBInteger InStrByteRange2BKXT(REALstring target, REALstring find, RBInteger start1, RBInteger end1,
                              RBInteger start2, RBInteger end2) {
    return inSignedRangesOrSet(target, find, {{start1, end1}, {start2, end2}});
}

RBInteger InStrByteRange3BKXT(REALstring target, REALstring find, RBInteger start1, RBInteger end1,
                              RBInteger start2, RBInteger end2, RBInteger start3, RBInteger end3) {
    return inSignedRangesOrSet(target, find, {{start1, end1}, {start2, end2}, {start3, end3}});
}

RBInteger StrCompBytesKXT(REALstring a, REALstring b) {
    return HandlerBoundary<RBInteger>(0, [&] {
        rbData x(a), y(b);
        return RBInteger(kxt::compareBytes(x.view(), y.view()));
    });
}

RBInteger StrCompCharsKXT(REALstring a, REALstring b) {
    return HandlerBoundary<RBInteger>(0, [&] {
        rbData x(a), y(b);
        if (encodingOf(a, x) == encodingOf(b, y)) {
            if (x.size == 0 || y.size == 0) return RBInteger(-1);
            return RBInteger(kxt::compareZeroPadded(x.view(), y.view()));
        }
        // Different encodings compare by their text; empty operands are not special here.
        rbText textA(a), textB(b);
        return RBInteger(kxt::compareZeroPadded(textA.utf8(), textB.utf8()));
    });
}

RBInteger CountOccurancesKXT(REALstring s, REALstring find) {
    return HandlerBoundary<RBInteger>(0, [&] {
        rbData text(s), pattern(find);
        int64_t count = kxt::countOccurrences(text.view(), pattern.view());
        if (gDebugging) LogMessage("ReplaceCount", count);
        return RBInteger(count);
    });
}

RBBoolean HasPrefixKXT(REALstring text, REALstring prefix) {
    return HandlerBoundary<RBBoolean>(false, [&] {
        if (text == nullptr || prefix == nullptr) return false;
        rbText t(text), p(prefix);
        return kxt::hasPrefix(t.utf8(), p.utf8());
    });
}

RBBoolean HasPostfixKXT(REALstring text, REALstring prefix) {
    return HandlerBoundary<RBBoolean>(false, [&] {
        if (text == nullptr || prefix == nullptr) return false;
        rbText t(text), p(prefix);
        return kxt::hasSuffix(t.utf8(), p.utf8());
    });
}

RBBoolean ContainsWholeWordKXT(REALstring text, REALstring word) {
    return HandlerBoundary<RBBoolean>(false, [&] {
        if (text == nullptr || word == nullptr) return false;
        rbText t(text), w(word);
        return kxt::containsWholeWord(t.utf8(), w.utf8());
    });
}
