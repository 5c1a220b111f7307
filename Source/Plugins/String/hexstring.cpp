#include "hexstring.h"

#include <array>
#include <cstring>

#include "MyMemory.h"
#include "encoderboundary.h"
#include "rbData.h"
#include "rbUtil.h"

namespace kxt {

namespace {

constexpr const char* kHexDigits = "0123456789ABCDEF";

// The two digits of every byte.
constexpr auto kDigitPairs = [] {
    std::array<std::array<char, 2>, 256> pairs{};
    for (size_t b = 0; b < 256; ++b) pairs[b] = {kHexDigits[b >> 4], kHexDigits[b & 15]};
    return pairs;
}();

// a * b + c, or -1 once anything passes kMaxHostLength.
int64_t cappedMulAdd(int64_t a, int64_t b, int64_t c) {
    int64_t product = 0;
    if (__builtin_mul_overflow(a, b, &product) || product > kMaxHostLength) return -1;
    return product + c > kMaxHostLength ? -1 : product + c;
}

}  // namespace

std::string hexstring(std::string_view input, const HexLayout& layout) {
    const int64_t hexlen = layout.hexlen;
    const int64_t linelen = layout.linelen;
    if (input.empty() || hexlen < 1 || linelen < 1) return {};
    const std::string_view filler = layout.filler.empty() ? std::string_view("0") : layout.filler;

    // Characters per line of hex, and of the whole line. The filler is appended after the hex
    // text linelen x hexlen times, so the last line always ends inside it; for the same reason
    // the result never reaches the cap of (padded length / perLine) x lineSize, and the padded
    // text need not be built.
    const int64_t perLine = cappedMulAdd(linelen, hexlen, 0);
    if (perLine < 0) return {};
    const int64_t lineSize =
        cappedMulAdd(linelen - 1, int64_t(layout.spacer.size()),
                     perLine + int64_t(layout.lineend.size() + layout.linestart.size()));
    const int64_t hexLength = int64_t(input.size()) * 2;
    const int64_t lines = hexLength / perLine + (hexLength % perLine != 0 ? 1 : 0);
    if (lineSize < 0 || cappedMulAdd(lines, lineSize, 0) < 0) return {};

    // Every line has exactly lineSize characters: the result is written in place.
    std::string out = NewLargeString(size_t(lines * lineSize));
    char* w = out.data();
    auto put = [&](std::string_view s) {
        // Separators are mostly one or two characters: no library call for those.
        if (s.size() <= 2) {
            for (char c : s) *w++ = c;
            return;
        }
        memcpy(w, s.data(), s.size());
        w += s.size();
    };
    // Past the digits, the filler repeats from its start; positions only grow, so its place is
    // carried along instead of divided out.
    size_t fillAt = 0;
    auto hexAt = [&](int64_t p) -> char {
        if (p < hexLength) {
            unsigned char b = static_cast<unsigned char>(input[size_t(p / 2)]);
            return kHexDigits[p % 2 == 0 ? b >> 4 : b & 15];
        }
        const char c = filler[fillAt];
        fillAt = fillAt + 1 == filler.size() ? 0 : fillAt + 1;
        return c;
    };
    int64_t position = 0;
    // Whole lines of whole bytes (an even group length): each byte's two digits from a table,
    // no test of where a group or the digits end.
    if (hexlen % 2 == 0) {
        const auto* bytes = reinterpret_cast<const uint8_t*>(input.data());
        const int64_t groupBytes = hexlen / 2;
        for (; position + perLine <= hexLength; position += perLine) {
            put(layout.linestart);
            const uint8_t* b = bytes + position / 2;
            for (int64_t group = 0; group < linelen; ++group) {
                if (group != 0) put(layout.spacer);
                for (int64_t k = 0; k < groupBytes; ++k, w += 2)
                    memcpy(w, kDigitPairs[*b++].data(), 2);
            }
            put(layout.lineend);
        }
    }
    while (position < hexLength) {
        put(layout.linestart);
        for (int64_t group = 0; group < linelen; ++group) {
            if (group != 0) put(layout.spacer);
            if (position + hexlen <= hexLength) {
                // A whole group of digits: no filler to consider. Whole bytes go two digits
                // at a time; a group may start or end in the middle of one.
                const int64_t groupEnd = position + hexlen;
                if (position & 1) {
                    *w++ =
                        kHexDigits[static_cast<unsigned char>(input[size_t(position++ >> 1)]) & 15];
                }
                for (; position + 2 <= groupEnd; position += 2, w += 2) {
                    const auto b = static_cast<unsigned char>(input[size_t(position >> 1)]);
                    w[0] = kHexDigits[b >> 4];
                    w[1] = kHexDigits[b & 15];
                }
                if (position < groupEnd) {
                    *w++ =
                        kHexDigits[static_cast<unsigned char>(input[size_t(position++ >> 1)]) >> 4];
                }
            } else {
                for (int64_t k = 0; k < hexlen; ++k) *w++ = hexAt(position++);
            }
        }
        put(layout.lineend);
    }
    return out;
}

}  // namespace kxt

REALstring Hexstring(REALstring input, RBInteger hexlen, RBInteger linelen, REALstring linestart,
                     REALstring lineend, REALstring spacer, REALstring filler) {
    return NilOnAllocationFailure<REALstring>(nullptr, [&]() -> REALstring {
        if (input == nullptr) return nullptr;
        rbData in(input), start(linestart), end(lineend), space(spacer), fill(filler);
        kxt::HexLayout layout{hexlen, linelen, start.view(), end.view(), space.view(), fill.view()};
        return REALBuildUnicodeString(kxt::hexstring(in.view(), layout), kREALTextEncodingASCII);
    });
}
