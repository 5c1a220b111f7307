// Composition and decomposition straight on UTF-8 against the UTF-16 way, which is the
// reference: for the well-formed part of any bytes, the UTF-8 forms must give exactly the UTF-8
// of what the UTF-16 forms give for its UTF-16 form (code points less U+FEFF and U+FFFE), and
// stay within the room they ask for. Accent removal on UTF-8 likewise, with and without case.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "MainStringCompose.h"
#include "RemoveAccents.h"
#include "rbstring.h"
#include "utf_reference.h"

namespace {

void check(std::string_view text, size_t room, size_t (*convert)(std::string_view, char*),
           const std::string& expected) {
    // The room exactly, with guard bytes behind it that must stay untouched.
    std::string out(room + 16, '\x5A');
    const size_t written = convert(text, out.data());
    if (written > room || std::string_view(out).substr(0, written) != expected) abort();
    if (out.find_first_not_of('\x5A', room) != std::string::npos) abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    InitTable();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view bytes(reinterpret_cast<const char*>(data), size);
    bytes = bytes.substr(0, kxt::wellFormedPrefixLength(bytes));
    bool complete = false;
    const std::vector<uint16_t> units =
        ref::utf16Of(ref::decodeUTF8(std::string(bytes), &complete));
    if (!complete) abort();  // the plain decoder and the plugin disagree on well-formedness
    check(bytes, kxt::composedUTF8Room(bytes.size()), kxt::composeUTF8,
          ref::utf8Of(ref::codePointsOf(kxt::composeUTF16(units))));
    check(bytes, kxt::decomposedUTF8Room(bytes.size()), kxt::decomposeUTF8,
          ref::utf8Of(ref::codePointsOf(kxt::decomposeUTF16(units))));
    for (bool ignoreCase : {false, true}) {
        if (kxt::removeAccentsUTF8(bytes, ignoreCase).view() !=
            ref::utf8Of(ref::codePointsOf(kxt::removeAccentsUTF16(units, ignoreCase)))) {
            abort();
        }
    }
    return 0;
}
