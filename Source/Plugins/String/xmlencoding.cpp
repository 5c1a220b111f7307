#include "xmlencoding.h"

#include <string>

#include "MyMemory.h"
#include "REALplugin.h"
#include "rbData.h"
#include "rbException.h"
#include "rbText.h"
#include "rbUtil.h"

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
