// The HTML and XML converters on any text. The input's first byte picks what is checked; the
// rest is read as UTF-32 code points (four bytes each, any value) or as bytes widened to code
// points, so both entity-shaped text and arbitrary code points come up.
//  - decoding any text is safe, never lengthens the text, and leaves text without "&" alone;
//  - the HTML encoder equals a plain table scan, in both modes;
//  - HTML-decoding the HTML encoding gives the text back, except for the three code points whose
//    names an earlier name shadows (the decoder matches names by prefix) and what the encoder
//    drops (controls, a leading byte order mark);
//  - the same for the XML encoding with either apostrophe, for every code point;
//  - the UTF-8 forms of the encoders, the decoder and the readiness tests equal the code-point
//    forms on text they take (scalar values, no byte order marks);
//  - tag removal and the SQL boolean rewrite on the bytes equal their byte-at-a-time references;
//  - URL encoding in blocks equals the byte loop in every mode;
//  - beside them, StrKXT's short print of the first eight bytes read as a double equals the
//    99-digit print, also with no spare digits (where the fallback is often needed).
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "URLencoding.h"
#include "htmlencoding.h"
#include "htmltags.h"
#include "markup_reference.h"
#include "numberformat.h"
#include "sqlboolean.h"
#include "utf_reference.h"
#include "xmlencoding.h"

namespace {

using Text = std::vector<uint32_t>;

[[noreturn]] void fail(const char* what, const Text& in) {
    fprintf(stderr, "markup_fuzz: %s; input code points:", what);
    for (uint32_t c : in) fprintf(stderr, " %X", c);
    fprintf(stderr, "\n");
    abort();
}

Text widen(std::string_view s) {
    return Text(s.begin(), s.end());
}

bool isDroppedControl(uint32_t c) {
    return c < 32 && c != 9 && c != 10 && c != 13;
}

bool isByteOrderMark(uint32_t c) {
    return c == 0xFEFF || c == 0xFFFE;
}

// What the encoders keep of a text: no leading byte order mark, no dropped controls.
Text kept(const Text& in) {
    Text out;
    for (size_t i = 0; i < in.size(); ++i) {
        if (i == 0 && isByteOrderMark(in[0])) continue;
        if (!isDroppedControl(in[i])) out.push_back(in[i]);
    }
    return out;
}

Text referenceEncodeXML(const Text& in, bool namedApostrophe) {
    Text out;
    auto append = [&](const char* s) {
        while (*s) out.push_back(uint8_t(*s++));
    };
    for (size_t i = 0; i < in.size(); ++i) {
        const uint32_t c = in[i];
        if (i == 0 && isByteOrderMark(c)) continue;
        switch (c) {
            case 34:
                append("&quot;");
                break;
            case 38:
                append("&amp;");
                break;
            case 39:
                append(namedApostrophe ? "&apos;" : "&#39;");
                break;
            case 60:
                append("&lt;");
                break;
            case 62:
                append("&gt;");
                break;
            default:
                if (!isDroppedControl(c)) out.push_back(c);
        }
    }
    return out;
}

// Code points whose name an earlier table name shadows: sigma, or and sup.
bool isShadowed(uint32_t c) {
    return c == 0x03C3 || c == 0x2228 || c == 0x2283;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const uint8_t mode = data[0];
    Text in;
    if (mode & 1) {
        for (size_t i = 1; i + 4 <= size; i += 4) {
            uint32_t c;
            memcpy(&c, data + i, 4);
            // Mostly real code points, now and then any 32-bit value.
            in.push_back((mode & 2) ? c : c % 0x110000);
        }
    } else {
        const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
        in = widen(bytes);
        const std::string_view replacement = (mode & 2) ? "" : (mode & 4) ? " " : "<\">";
        if (kxt::removeHTMLTags(bytes, replacement) !=
            kxt::removeHTMLTagsPlain(bytes, replacement)) {
            fail("tag removal differs from the byte loop", in);
        }
        if (kxt::sqlReplaceBoolean(bytes).view() != kxt::sqlReplaceBooleanPlain(bytes)) {
            fail("the SQL boolean rewrite differs from the byte loop", in);
        }
        for (int mode = 0; mode < 4; ++mode) {
            if (kxt::encodeURL(bytes, mode).view() != kxt::encodeURLPlain(bytes, mode).view()) {
                fail("URL encoding differs from the byte loop", in);
            }
        }
        if (size >= 9) {
            double d;
            memcpy(&d, data + 1, sizeof d);
            const std::string expected = kxt::formatPlainNumberPlain(d);
            if (kxt::formatPlainNumber(d) != expected || kxt::formatPlainNumber(d, 0) != expected) {
                fail("the short number print differs from the 99-digit print", in);
            }
        }
    }

    // Decoding: safe on anything, never longer, the identity on text without "&".
    const Text decoded = kxt::decodeHTML(in);
    const size_t bom = !in.empty() && isByteOrderMark(in[0]) ? 1 : 0;
    if (decoded.size() > in.size() - bom) fail("decoding lengthened the text", in);
    bool hasAmpersand = false;
    for (uint32_t c : in) hasAmpersand |= c == '&';
    if (!hasAmpersand && decoded != Text(in.begin() + long(bom), in.end())) {
        fail("decoding changed text without references", in);
    }

    // HTML encoding against the table scan, both modes, then the round trip.
    for (bool plain : {false, true}) {
        if (kxt::encodeHTML(in, plain) != ref::encodeHTML(in, plain)) {
            fail(plain ? "plain HTML encoding differs from the table scan"
                       : "HTML encoding differs from the table scan",
                 in);
        }
    }
    Text roundTrip;
    for (uint32_t c : in) {
        // Decimal references of at most seven digits fit the decoder's eight characters; a
        // reference to a surrogate names no character and stays as written.
        if (c <= 0x10FFFF && !(c >= 0xD800 && c <= 0xDFFF) && !isShadowed(c)) {
            roundTrip.push_back(c);
        }
    }
    const std::string html = kxt::encodeHTML(roundTrip, false);
    if (kxt::decodeHTML(widen(html)) != kept(roundTrip)) {
        fail("HTML decoding does not undo HTML encoding", roundTrip);
    }

    // XML encoding: the plain reading, and decoding undoes it for every code point.
    for (int options : {0, 1}) {
        const Text xml = kxt::encodeXML(in, options);
        if (xml != referenceEncodeXML(in, options & 1)) {
            fail("XML encoding differs from the plain reading", in);
        }
        // The decoder drops a leading byte order mark too, also one the encoder let through.
        Text expected = kept(in);
        if (!expected.empty() && isByteOrderMark(expected[0])) expected.erase(expected.begin());
        if (kxt::decodeHTML(xml) != expected) fail("decoding does not undo XML encoding", in);
    }

    // The UTF-8 forms, on text that is theirs to take.
    bool scalar = true;
    for (uint32_t c : in) {
        scalar &= c <= 0x10FFFF && !(c >= 0xD800 && c <= 0xDFFF) && !isByteOrderMark(c);
    }
    if (scalar) {
        const std::string bytes = ref::utf8Of(in);
        for (bool plain : {false, true}) {
            if (kxt::encodeHTMLUTF8(bytes, plain).view() != kxt::encodeHTML(in, plain)) {
                fail("UTF-8 HTML encoding differs", in);
            }
        }
        if (kxt::decodeHTMLUTF8(bytes).view() != ref::utf8Of(kxt::decodeHTML(in))) {
            fail("UTF-8 decoding differs", in);
        }
        for (int options : {0, 1}) {
            if (kxt::encodeXMLUTF8(bytes, options).view() !=
                ref::utf8Of(kxt::encodeXML(in, options))) {
                fail("UTF-8 XML encoding differs", in);
            }
        }
        Text wide = in;
        wide.push_back(0);
        if (kxt::utf8IsHTMLready(bytes) != kxt::StringIsHTMLready(wide.data()) ||
            kxt::utf8IsXMLready(bytes) != kxt::StringIsXMLready(wide.data())) {
            fail("UTF-8 readiness differs", in);
        }
    }

    // The readiness tests agree with their definitions.
    Text terminated = in;
    terminated.push_back(0);
    bool html_ready = true, xml_ready = true;
    for (uint32_t c : in) {
        if (c == 0) break;
        const bool markup = c == 34 || c == 38 || c == 39 || c == 60 || c == 62;
        if (markup || c > 127) html_ready = false;
        if (markup) xml_ready = false;
    }
    if (kxt::StringIsHTMLready(terminated.data()) != html_ready) fail("HTML readiness", in);
    if (kxt::StringIsXMLready(terminated.data()) != xml_ready) fail("XML readiness", in);
    return 0;
}
