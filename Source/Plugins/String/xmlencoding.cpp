#include "xmlencoding.h"

#include <cstring>
#include <string>

#include "MyMemory.h"
#include "REALplugin.h"
#include "rbData.h"
#include "rbException.h"
#include "rbText.h"
#include "rbUtil.h"
#include "simd.h"
#include "utf8input.h"

namespace kxt {

constexpr std::array<EntityRecord, 6> XMLEntityTable = {{
    {34, "quot"},
    {38, "amp"},
    {39, "apos"},
    {60, "lt"},
    {62, "gt"},
    {0, nullptr},
}};

namespace {

bool keptControl(uint32_t c) {
    return c >= 32 || c == 9 || c == 10 || c == 13;
}

// The entity of a markup character, or none.
const EntityRecord* xmlEntity(uint32_t c) {
    if (c > '>') return nullptr;
    for (size_t k = 0; XMLEntityTable[k].code != 0; ++k) {
        if (c == XMLEntityTable[k].code) return &XMLEntityTable[k];
    }
    return nullptr;
}

}  // namespace

std::vector<uint32_t> encodeXML(std::span<const uint32_t> text, RBInteger options) {
    if (!text.empty() && (text[0] == 0xFEFF || text[0] == 0xFFFE)) text = text.subspan(1);
    const bool namedApostrophe = (options & 1) != 0;
    // Sized exactly first: on large texts a growing array of code points would copy itself.
    size_t size = 0;
    for (uint32_t c : text) {
        if (c == 39 && !namedApostrophe) {
            size += 5;
        } else if (const EntityRecord* entity = xmlEntity(c)) {
            size += std::char_traits<char>::length(entity->name) + 2;
        } else if (keptControl(c)) {
            size += 1;
        }
    }
    std::vector<uint32_t> out;
    ReserveLarge(out, size);
    auto append = [&out](std::string_view ascii) {
        for (char a : ascii) out.push_back(uint32_t(a));
    };
    for (uint32_t c : text) {
        if (c == 39 && !namedApostrophe) {
            append("&#39;");
        } else if (const EntityRecord* entity = xmlEntity(c)) {
            out.push_back('&');
            append(entity->name);
            out.push_back(';');
        } else if (keptControl(c)) {
            out.push_back(c);
        }
    }
    return out;
}

RawBytes encodeXMLUTF8(std::string_view utf8, RBInteger options) {
    using S = simd::Native;
    const size_t n = utf8.size();
    const bool namedApostrophe = (options & 1) != 0;
    RawBytes out(6 * n + 16);  // "&quot;" and "&apos;" are the longest
    char* w = out.data();
    const char* p = utf8.data();
    // Bytes copied as they are: all but controls and the markup characters.
    const S::V space = S::splat8(' '), quote = S::splat8('"'), amp = S::splat8('&'),
               apos = S::splat8('\''), lt = S::splat8('<'), gt = S::splat8('>');
    auto put = [&w](std::string_view s) {
        std::memcpy(w, s.data(), s.size());
        w += s.size();
    };
    size_t i = 0;
    while (i < n) {
        if (i + 16 <= n) {
            const unsigned k = simd::copyBlockUntil(p + i, w, [&](S::V x) {
                // Controls: below 32 as unsigned bytes, so not negative as signed ones.
                const S::V control = S::andNot(S::lt8(x, S::zero()), S::lt8(x, space));
                return S::or_(S::or_(control, S::or_(S::eq8(x, quote), S::eq8(x, amp))),
                              S::or_(S::eq8(x, apos), S::or_(S::eq8(x, lt), S::eq8(x, gt))));
            });
            w += k;
            i += k;
            if (k == 16) continue;
        }
        const uint8_t c = uint8_t(p[i++]);
        if (c == 39 && !namedApostrophe) {
            put("&#39;");
        } else if (const EntityRecord* entity = xmlEntity(c)) {
            *w++ = '&';
            put(entity->name);
            *w++ = ';';
        } else if (keptControl(c)) {
            *w++ = char(c);
        }
    }
    out.setSize(size_t(w - out.data()));
    return out;
}

bool StringIsXMLready(const uint32_t* text) {
    if (text == nullptr) return true;
    for (; *text != 0; ++text) {
        if (xmlEntity(*text) != nullptr) return false;
    }
    return true;
}

}  // namespace kxt

REALstring EncodingToXML(REALstring s, RBInteger options) {
    return HandlerBoundary<REALstring>(nullptr, [&]() -> REALstring {
        if (s == nullptr) return nullptr;
        // The UTF-32 result holds at most six code points per input byte.
        if (rbData in(s); kxt::readsAsUTF8(s, in.view(), true, 24)) {
            if (in.size == 0) return nullptr;
            if (kxt::utf8IsXMLready(in.view())) {
                REALLockString(s);
                return s;
            }
            return REALBuildUnicodeString(kxt::encodeXMLUTF8(in.view(), options).view(),
                                          kREALTextEncodingUTF8);
        }
        rbText text(s);
        if (text.LengthUTF32() == 0) return nullptr;
        if (kxt::StringIsXMLready(text.GetUTF32())) {
            REALLockString(s);
            return s;
        }
        std::vector<uint32_t> out = kxt::encodeXML(text.utf32(), options);
        return REALBuildUnicodeString(out.data(), int64_t(out.size() * sizeof(uint32_t)),
                                      kREALTextEncodingUTF32);
    });
}

// The same byte test as the HTML one, by design: a UTF-8 "é" is not XML-ready here although
// the encoder would return it unchanged.
RBBoolean StringIsXMLready(REALstring s) {
    return HandlerBoundary<RBBoolean>(false, [&]() -> RBBoolean {
        if (s == nullptr) return true;
        if (!kxt::isMarkupTestEncoding(REALGetStringEncoding(s))) return false;
        rbData in(s);
        return kxt::bytesAreMarkupFree(in.view());
    });
}
