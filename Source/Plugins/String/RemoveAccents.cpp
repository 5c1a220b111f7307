#include "RemoveAccents.h"

#include <atomic>
#include <cstring>

#include "MyMemory.h"
#include "UnicodeTables.h"
#include "rbData.h"
#include "rbException.h"
#include "rbText.h"
#include "rbUtil.h"
#include "simd.h"
#include "utf8.h"
#include "utf8input.h"

uint16_t AccentTable[65536];

namespace {
std::atomic<bool> gTableBuilt{false};
}

void InitTable() {
    for (size_t i = 0; i < 65536; ++i) AccentTable[i] = uint16_t(i);
    for (const auto& range : kxt::AccentOverrideRanges) {
        for (size_t unit = range.first; unit <= range.last; ++unit) {
            AccentTable[unit] = kxt::AccentOverrideValues[range.valueIndex + (unit - range.first)];
        }
    }
    gTableBuilt.store(true, std::memory_order_release);
}

bool AccentTableBuilt() {
    return gTableBuilt.load(std::memory_order_acquire);
}

namespace {

constexpr uint16_t kFirstSpecial = 0xBC;  // below: neither a mark nor spelled out

const char* spelledOut(uint16_t unit) {
    switch (unit) {
        case 0x00BC:
            return "1/4";
        case 0x00BD:
            return "1/2";
        case 0x00BE:
            return "3/4";
        case 0x00C6:
            return "AE";
        case 0x00E6:
            return "ae";
        case 0x2150:
            return "1/7";
        case 0x2151:
            return "1/9";
        case 0x2152:
            return "1/10";
        case 0x2153:
            return "1/3";
        case 0x2154:
            return "2/3";
        case 0x2155:
            return "1/5";
        case 0x2156:
            return "2/5";
        case 0x2157:
            return "3/5";
        case 0x2158:
            return "4/5";
        case 0x2159:
            return "1/6";
        case 0x215A:
            return "5/6";
        case 0x215B:
            return "1/8";
        case 0x215C:
            return "3/8";
        case 0x215D:
            return "5/8";
        case 0x215E:
            return "7/8";
        case 0x2189:
            return "0/3";
        default:
            return nullptr;
    }
}

bool isCombiningMark(uint16_t unit) {
    return unit >= 0x0300 && unit < 0x0370;
}

}  // namespace

namespace kxt {

void AddText(std::vector<uint16_t>& output, const char* text) {
    for (; *text != 0; ++text) output.push_back(uint8_t(*text));
}

std::vector<uint16_t> removeAccentsUTF16(std::span<const uint16_t> text, bool ignoreCase) {
    std::vector<uint16_t> out;
    ReserveLarge(out, text.size() + 1000);
    for (const uint16_t c : text) {
        if (c < kFirstSpecial) {
            out.push_back(AccentTable[c]);
        } else if (isCombiningMark(c)) {
            continue;
        } else if (const char* spelled = spelledOut(c)) {
            AddText(out, spelled);
        } else {
            out.push_back(AccentTable[c]);
        }
    }
    if (ignoreCase) {
        // Only ASCII letters: the flag means "compare as upper-case ASCII", not case folding.
        for (uint16_t& u : out) {
            if (u >= 'a' && u <= 'z') u -= 32;
        }
    }
    return out;
}

RawBytes removeAccentsUTF8(std::string_view utf8, bool ignoreCase) {
    using S = simd::Native;
    const size_t n = utf8.size();
    // At most three bytes per input byte (a spelled-out fraction: four from three).
    RawBytes out(3 * n + 16);
    char* w = out.data();
    const auto* p = reinterpret_cast<const uint8_t*>(utf8.data());
    const S::V beforeA = S::splat8('a' - 1), afterZ = S::splat8('z' + 1), caseBit = S::splat8(32);
    auto ascii = [ignoreCase](uint32_t c) {
        return char(ignoreCase && c >= 'a' && c <= 'z' ? c - 32 : c);
    };
    size_t i = 0;
    while (i < n) {
        if (i + 16 <= n) {
            // ASCII maps to itself: runs are copied, upper-cased on the way when asked.
            S::V x = S::load(p + i);
            const unsigned k = S::first(S::lt8(x, S::zero()));
            if (ignoreCase) {
                const S::V lower = S::and_(S::gt8(x, beforeA), S::lt8(x, afterZ));
                x = S::sub8(x, S::and_(lower, caseBit));
            }
            S::store(w, x);
            w += k;
            i += k;
            if (k == 16) continue;
        }
        const utf8::CodePoint c = utf8::decodeValid(p + i);
        i += c.length;
        if (c.value < 0x80) {
            *w++ = ascii(c.value);
        } else if (c.value >= 0x10000) {
            // Both surrogate units map to themselves.
            std::memcpy(w, p + i - 4, 4);
            w += 4;
        } else if (c.value == 0xFEFF || c.value == 0xFFFE || isCombiningMark(uint16_t(c.value))) {
            continue;  // the marks are not in the UTF-16 form
        } else if (const char* spelled = spelledOut(uint16_t(c.value))) {
            for (; *spelled != 0; ++spelled) *w++ = ascii(uint8_t(*spelled));
        } else {
            const uint16_t mapped = AccentTable[c.value];
            if (mapped < 0x80) {
                *w++ = ascii(mapped);
            } else {
                w = utf8::encode(w, mapped);
            }
        }
    }
    out.setSize(size_t(w - out.data()));
    return out;
}

}  // namespace kxt

REALstring RemoveAccentsKXT(REALstring text, RBBoolean IgnoreCase) {
    return HandlerBoundary<REALstring>(nullptr, [&]() -> REALstring {
        if (text == nullptr) return nullptr;
        // The UTF-16 result holds at most two units per input byte.
        if (rbData in(text); AccentTableBuilt() && kxt::readsAsUTF8(text, in.view(), false, 4)) {
            return REALBuildUnicodeString(kxt::removeAccentsUTF8(in.view(), IgnoreCase).view(),
                                          kREALTextEncodingUTF8);
        }
        rbText t(text);
        // The unit count is read as a signed 32-bit number, as it always was.
        const int32_t count = int32_t(t.LengthUTF16());
        if (count < 1) return nullptr;
        const auto out = kxt::removeAccentsUTF16({t.GetUTF16(), size_t(count)}, IgnoreCase);
        return REALBuildUnicodeString(out.data(), int64_t(out.size() * sizeof(uint16_t)),
                                      kREALTextEncodingUTF16);
    });
}
