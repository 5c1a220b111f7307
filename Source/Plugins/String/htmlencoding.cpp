#include "htmlencoding.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "ByteView.h"
#include "MyMemory.h"
#include "REALplugin.h"
#include "rbData.h"
#include "rbException.h"
#include "rbText.h"
#include "rbUtil.h"
#include "simd.h"
#include "utf8.h"
#include "utf8input.h"

namespace kxt {

constexpr std::array<EntityRecord, kHTMLEntityCount + 1> HTMLEntityTable = {{
    {34, "quot"},     {38, "amp"},      {39, "apos"},      {60, "lt"},        {62, "gt"},
    {160, "nbsp"},    {161, "iexcl"},   {162, "cent"},     {163, "pound"},    {164, "curren"},
    {165, "yen"},     {166, "brvbar"},  {167, "sect"},     {168, "uml"},      {169, "copy"},
    {170, "ordf"},    {171, "laquo"},   {172, "not"},      {173, "shy"},      {174, "reg"},
    {175, "macr"},    {176, "deg"},     {177, "plusmn"},   {178, "sup2"},     {179, "sup3"},
    {180, "acute"},   {181, "micro"},   {182, "para"},     {183, "middot"},   {184, "cedil"},
    {185, "sup1"},    {186, "ordm"},    {187, "raquo"},    {188, "frac14"},   {189, "frac12"},
    {190, "frac34"},  {191, "iquest"},  {192, "Agrave"},   {193, "Aacute"},   {194, "Acirc"},
    {195, "Atilde"},  {196, "Auml"},    {197, "Aring"},    {198, "AElig"},    {199, "Ccedil"},
    {200, "Egrave"},  {201, "Eacute"},  {202, "Ecirc"},    {203, "Euml"},     {204, "Igrave"},
    {205, "Iacute"},  {206, "Icirc"},   {207, "Iuml"},     {208, "ETH"},      {209, "Ntilde"},
    {210, "Ograve"},  {211, "Oacute"},  {212, "Ocirc"},    {213, "Otilde"},   {214, "Ouml"},
    {215, "times"},   {216, "Oslash"},  {217, "Ugrave"},   {218, "Uacute"},   {219, "Ucirc"},
    {220, "Uuml"},    {221, "Yacute"},  {222, "THORN"},    {223, "szlig"},    {224, "agrave"},
    {225, "aacute"},  {226, "acirc"},   {227, "atilde"},   {228, "auml"},     {229, "aring"},
    {230, "aelig"},   {231, "ccedil"},  {232, "egrave"},   {233, "eacute"},   {234, "ecirc"},
    {235, "euml"},    {236, "igrave"},  {237, "iacute"},   {238, "icirc"},    {239, "iuml"},
    {240, "eth"},     {241, "ntilde"},  {242, "ograve"},   {243, "oacute"},   {244, "ocirc"},
    {245, "otilde"},  {246, "ouml"},    {247, "divide"},   {248, "oslash"},   {249, "ugrave"},
    {250, "uacute"},  {251, "ucirc"},   {252, "uuml"},     {253, "yacute"},   {254, "thorn"},
    {255, "yuml"},    {338, "OElig"},   {339, "oelig"},    {352, "Scaron"},   {353, "scaron"},
    {376, "Yuml"},    {402, "fnof"},    {710, "circ"},     {732, "tilde"},    {913, "Alpha"},
    {914, "Beta"},    {915, "Gamma"},   {916, "Delta"},    {917, "Epsilon"},  {918, "Zeta"},
    {919, "Eta"},     {920, "Theta"},   {921, "Iota"},     {922, "Kappa"},    {923, "Lambda"},
    {924, "Mu"},      {925, "Nu"},      {926, "Xi"},       {927, "Omicron"},  {928, "Pi"},
    {929, "Rho"},     {931, "Sigma"},   {932, "Tau"},      {933, "Upsilon"},  {934, "Phi"},
    {935, "Chi"},     {936, "Psi"},     {937, "Omega"},    {945, "alpha"},    {946, "beta"},
    {947, "gamma"},   {948, "delta"},   {949, "epsilon"},  {950, "zeta"},     {951, "eta"},
    {952, "theta"},   {953, "iota"},    {954, "kappa"},    {955, "lambda"},   {956, "mu"},
    {957, "nu"},      {958, "xi"},      {959, "omicron"},  {960, "pi"},       {961, "rho"},
    {962, "sigmaf"},  {963, "sigma"},   {964, "tau"},      {965, "upsilon"},  {966, "phi"},
    {967, "chi"},     {968, "psi"},     {969, "omega"},    {977, "thetasym"}, {978, "upsih"},
    {982, "piv"},     {8194, "ensp"},   {8195, "emsp"},    {8201, "thinsp"},  {8204, "zwnj"},
    {8205, "zwj"},    {8206, "lrm"},    {8207, "rlm"},     {8211, "ndash"},   {8212, "mdash"},
    {8216, "lsquo"},  {8217, "rsquo"},  {8218, "sbquo"},   {8220, "ldquo"},   {8221, "rdquo"},
    {8222, "bdquo"},  {8224, "dagger"}, {8225, "Dagger"},  {8226, "bull"},    {8230, "hellip"},
    {8240, "permil"}, {8242, "prime"},  {8243, "Prime"},   {8249, "lsaquo"},  {8250, "rsaquo"},
    {8254, "oline"},  {8260, "frasl"},  {8364, "euro"},    {8465, "image"},   {8472, "weierp"},
    {8476, "real"},   {8482, "trade"},  {8501, "alefsym"}, {8592, "larr"},    {8593, "uarr"},
    {8594, "rarr"},   {8595, "darr"},   {8596, "harr"},    {8629, "crarr"},   {8656, "lArr"},
    {8657, "uArr"},   {8658, "rArr"},   {8659, "dArr"},    {8660, "hArr"},    {8704, "forall"},
    {8706, "part"},   {8707, "exist"},  {8709, "empty"},   {8711, "nabla"},   {8712, "isin"},
    {8713, "notin"},  {8715, "ni"},     {8719, "prod"},    {8721, "sum"},     {8722, "minus"},
    {8727, "lowast"}, {8730, "radic"},  {8733, "prop"},    {8734, "infin"},   {8736, "ang"},
    {8743, "and"},    {8744, "or"},     {8745, "cap"},     {8746, "cup"},     {8747, "int"},
    {8756, "there4"}, {8764, "sim"},    {8773, "cong"},    {8776, "asymp"},   {8800, "ne"},
    {8801, "equiv"},  {8804, "le"},     {8805, "ge"},      {8834, "sub"},     {8835, "sup"},
    {8836, "nsub"},   {8838, "sube"},   {8839, "supe"},    {8853, "oplus"},   {8855, "otimes"},
    {8869, "perp"},   {8901, "sdot"},   {8968, "lceil"},   {8969, "rceil"},   {8970, "lfloor"},
    {8971, "rfloor"}, {9001, "lang"},   {9002, "rang"},    {9674, "loz"},     {9824, "spades"},
    {9827, "clubs"},  {9829, "hearts"}, {9830, "diams"},   {0, nullptr},
}};

}  // namespace kxt

namespace {

using kxt::HTMLEntityTable;
using kxt::kHTMLEntityCount;

constexpr bool isMarkup(uint32_t c) {
    return c == 34 || c == 38 || c == 39 || c == 60 || c == 62;
}

// Code point -> table index + 1 (0: no entity), so encoding is one lookup per character.
constexpr uint32_t kMaxEntityCode = [] {
    uint32_t m = 0;
    for (size_t i = 0; i < kHTMLEntityCount; ++i) m = std::max(m, HTMLEntityTable[i].code);
    return m;
}();

constexpr auto kEntityByCode = [] {
    std::array<uint8_t, kMaxEntityCode + 1> index{};
    for (size_t i = 0; i < kHTMLEntityCount; ++i) {
        if (index[HTMLEntityTable[i].code] == 0) index[HTMLEntityTable[i].code] = uint8_t(i + 1);
    }
    return index;
}();

// Table indices grouped by the first letter of the name, table order kept within a group: a
// reference can only match names that begin with its first character.
struct FirstLetterIndex {
    std::array<uint16_t, 129> start{};
    std::array<uint8_t, kHTMLEntityCount> entries{};

    constexpr FirstLetterIndex() {
        for (size_t i = 0; i < kHTMLEntityCount; ++i) {
            ++start[uint8_t(HTMLEntityTable[i].name[0]) + 1];
        }
        for (size_t b = 1; b < start.size(); ++b) start[b] += start[b - 1];
        std::array<uint16_t, 128> fill{};
        for (size_t i = 0; i < kHTMLEntityCount; ++i) {
            uint8_t first = uint8_t(HTMLEntityTable[i].name[0]);
            entries[start[first] + fill[first]++] = uint8_t(i);
        }
    }
};
constexpr FirstLetterIndex kByFirstLetter;

// The most encodeHTML writes for one code point: "&#-2147483648;" (a value beyond Unicode
// reads as a signed 32-bit number; from well-formed UTF-8 at most "&#1114111;").
constexpr size_t kMaxHTMLPerCodePoint = 14;

// What encodeHTML makes of code point c, written at w; gives the end of what was written.
char* writeHTML(char* w, uint32_t c, bool plain) {
    auto put = [&w](std::string_view s) {
        std::memcpy(w, s.data(), s.size());
        w += s.size();
    };
    if (c == 39 && !plain) {
        put("&#39;");  // the numeric form: "&apos;" is not HTML 4.01
    } else if (c <= kMaxEntityCode && kEntityByCode[c] != 0 && !(plain && c < 128)) {
        *w++ = '&';
        put(HTMLEntityTable[kEntityByCode[c] - 1].name);
        *w++ = ';';
    } else if (c > 127) {
        put("&#");
        w = std::to_chars(w, w + 11, int32_t(c)).ptr;
        *w++ = ';';
    } else if (c >= 32 || c == 9 || c == 10 || c == 13) {
        *w++ = char(c);
    }
    return w;
}

// The code point of a named reference (the n characters between "&" and ";"), or 0.
uint32_t namedReference(std::span<const uint32_t> ref) {
    const uint32_t first = ref[0];
    if (first >= 128) return 0;
    for (size_t k = kByFirstLetter.start[first]; k < kByFirstLetter.start[first + 1]; ++k) {
        const auto& entry = HTMLEntityTable[kByFirstLetter.entries[k]];
        if (kxt::stringcompare(entry.name, ref.data(), long(ref.size())) == 0) return entry.code;
    }
    return 0;
}

int hexDigitValue(uint32_t c) {
    if (c >= '0' && c <= '9') return int(c - '0');
    if (c >= 'A' && c <= 'F') return int(c - 'A' + 10);
    if (c >= 'a' && c <= 'f') return int(c - 'a' + 10);
    return -1;
}

// The code point of a numeric reference ("#..." between "&" and ";"), or 0 when invalid.
// Hexadecimal digits are read from the low 16 bits of each character, decimal ones from the
// low 8 bits; a "-" anywhere among the digits makes the reference invalid.
uint32_t numberOfReference(std::span<const uint32_t> ref) {
    bool negative = false;
    if (ref.size() >= 3 && ref[1] == 'x') {
        uint32_t value = 0;
        for (size_t j = 2; j < ref.size() && j < 10; ++j) {
            uint32_t c = ref[j] & 0xFFFF;
            if (c == '-') {
                negative = true;
            } else if (int d = hexDigitValue(c); d >= 0) {
                value = value * 16 + uint32_t(d);
            } else {
                break;
            }
        }
        return negative ? 0 : value;
    }
    int64_t value = 0;
    for (size_t j = 1; j < ref.size(); ++j) {
        int8_t c = int8_t(ref[j] & 0xFF);
        if (c == '-') {
            negative = true;
        } else if (c >= '0' && c <= '9') {
            value = value * 10 + (c - '0');
        } else {
            break;
        }
    }
    return negative || value < 1 ? 0 : uint32_t(value);
}

// A number that names no character (a surrogate, or beyond U+10FFFF) makes the reference
// invalid like 0: it stays in the text as written instead of spoiling the whole result.
uint32_t numericReference(std::span<const uint32_t> ref) {
    uint32_t c = numberOfReference(ref);
    return c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF) ? 0 : c;
}

}  // namespace

namespace kxt {

bool StringIsHTMLready(const uint32_t* text) {
    if (text == nullptr) return true;
    for (; *text != 0; ++text) {
        if (*text > 127 || isMarkup(*text)) return false;
    }
    return true;
}

bool isMarkupTestEncoding(uint32_t encoding) {
    return encoding == kREALTextEncodingMacRoman || encoding == kREALTextEncodingWindowsLatin1 ||
           encoding == kREALTextEncodingASCII || encoding == kREALTextEncodingUTF8;
}

bool bytesAreMarkupFreePlain(std::string_view bytes) {
    for (const uint8_t b : kxt::unsignedBytes(bytes)) {
        if (b == 0 || b >= 128 || isMarkup(b)) return false;
    }
    return true;
}

bool bytesAreMarkupFree(std::string_view bytes) {
    using S = simd::Native;
    using V = S::V;
    // 16 bytes a step: a zero byte, a byte of 128 or more (negative as a signed byte) or one of
    // the five markup characters ends the check.
    const V zero = S::zero(), quote = S::splat8('"'), amp = S::splat8('&'), apos = S::splat8('\''),
            lt = S::splat8('<'), gt = S::splat8('>');
    const char* p = bytes.data();
    size_t i = 0;
    for (; i + 16 <= bytes.size(); i += 16) {
        const V x = S::load(p + i);
        const V bad = S::or_(S::or_(S::or_(S::eq8(x, zero), S::lt8(x, zero)),
                                    S::or_(S::eq8(x, quote), S::eq8(x, amp))),
                             S::or_(S::eq8(x, apos), S::or_(S::eq8(x, lt), S::eq8(x, gt))));
        if (S::any(bad)) return false;
    }
    return bytesAreMarkupFreePlain(bytes.substr(i));
}

int stringcompare(const char* name, const uint32_t* text, long n) {
    for (long i = 0; i < n; ++i) {
        if (text[i] != uint32_t(static_cast<unsigned char>(*name))) return -1;
        if (*name != 0) ++name;
    }
    return 0;
}

std::string encodeHTML(std::span<const uint32_t> text, bool plain) {
    if (!text.empty() && (text[0] == 0xFEFF || text[0] == 0xFFFE)) text = text.subspan(1);
    std::string out;
    ReserveLarge(out, text.size() * 4 + 4096);
    for (uint32_t c : text) {
        char step[kMaxHTMLPerCodePoint];
        out.append(step, writeHTML(step, c, plain));
    }
    return out;
}

RawBytes encodeHTMLUTF8(std::string_view utf8, bool plain) {
    using S = simd::Native;
    const size_t n = utf8.size();
    // Six bytes at most per input byte ("&quot;"); a two-byte sequence gives at most ten.
    RawBytes out(6 * n + 16);
    char* w = out.data();
    const auto* p = reinterpret_cast<const uint8_t*>(utf8.data());
    // Bytes copied as they are: printable ASCII other than the markup characters.
    const S::V space = S::splat8(' '), quote = S::splat8('"'), amp = S::splat8('&'),
               apos = S::splat8('\''), lt = S::splat8('<'), gt = S::splat8('>');
    size_t i = 0;
    while (i < n) {
        if (i + 16 <= n) {
            const unsigned k = simd::copyBlockUntil(p + i, w, [&](S::V x) {
                // Below 32 as a signed byte also takes every byte of 128 or more.
                return S::or_(S::or_(S::lt8(x, space), S::or_(S::eq8(x, quote), S::eq8(x, amp))),
                              S::or_(S::eq8(x, apos), S::or_(S::eq8(x, lt), S::eq8(x, gt))));
            });
            w += k;
            i += k;
            if (k == 16) continue;
        }
        const utf8::CodePoint c = utf8::decodeValid(p + i);
        w = writeHTML(w, c.value, plain);
        i += c.length;
    }
    out.setSize(size_t(w - out.data()));
    return out;
}

namespace {

struct Reference {
    uint32_t code;  // 0: none
    size_t length;  // code points from the "&" through the ";" (one more at the end of a text)
};

// The reference at the "&" that starts `window`, which holds the ten code points from there,
// or fewer where the text ends. It runs to the first ";" or the end of the text within 8
// characters.
Reference referenceAt(std::span<const uint32_t> window) {
    const size_t m = window.size();
    if (m < 2 || window[1] == ';') return {0, 0};
    size_t n = 0;
    for (size_t k = 2; k <= 9; ++k) {
        if (k == m || window[k] == ';') {
            n = k - 1;
            break;
        }
    }
    if (n == 0) return {0, 0};
    const auto ref = window.subspan(1, n);
    uint32_t code = namedReference(ref);
    if (code == 0 && ref[0] == '#') code = numericReference(ref);
    return {code, n + 2};
}

constexpr size_t kReferenceWindow = 10;

}  // namespace

std::vector<uint32_t> decodeHTML(std::span<const uint32_t> text) {
    if (!text.empty() && (text[0] == 0xFEFF || text[0] == 0xFFFE)) text = text.subspan(1);
    const size_t count = text.size();
    std::vector<uint32_t> out;
    ReserveLarge(out, count);  // references only ever shrink
    size_t i = 0;
    while (i < count) {
        const uint32_t c = text[i];
        if (c == '&') {
            const Reference ref =
                referenceAt(text.subspan(i, std::min(kReferenceWindow, count - i)));
            if (ref.code != 0) {
                out.push_back(ref.code);
                i += ref.length;
                continue;
            }
        }
        out.push_back(c);
        ++i;
    }
    return out;
}

RawBytes decodeHTMLUTF8(std::string_view utf8) {
    const size_t n = utf8.size();
    // A reference's UTF-8 is never longer than its text, except "&w" ending a text (U+2118).
    RawBytes out(n + 8);
    char* w = out.data();
    const auto* p = reinterpret_cast<const uint8_t*>(utf8.data());
    size_t i = 0;
    while (i < n) {
        const void* amp = std::memchr(p + i, '&', n - i);
        const size_t next = amp ? size_t(static_cast<const uint8_t*>(amp) - p) : n;
        std::memcpy(w, p + i, next - i);
        w += next - i;
        i = next;
        if (i == n) break;
        // The window of code points from the "&", and where each starts.
        uint32_t window[kReferenceWindow];
        size_t offsets[kReferenceWindow + 1];
        size_t m = 0, at = i;
        for (; m < kReferenceWindow && at < n; ++m) {
            const utf8::CodePoint c = utf8::decodeValid(p + at);
            window[m] = c.value;
            offsets[m] = at;
            at += c.length;
        }
        offsets[m] = at;
        const Reference ref = referenceAt(std::span<const uint32_t>(window, m));
        if (ref.code != 0) {
            w = utf8::encode(w, ref.code);
            i = ref.length <= m ? offsets[ref.length] : n;
        } else {
            *w++ = '&';
            ++i;
        }
    }
    out.setSize(size_t(w - out.data()));
    return out;
}

}  // namespace kxt

namespace {

// StringIsHTMLready / StringIsXMLready on well-formed UTF-8 without byte order marks: the code
// points up to the first zero, looked at byte by byte (a byte of 128 or more is part of a code
// point above 127).
bool utf8IsReady(std::string_view utf8, bool nonASCIIAllowed) {
    for (const char b : utf8) {
        if (b == 0) break;
        if (isMarkup(uint8_t(b)) || (uint8_t(b) >= 128 && !nonASCIIAllowed)) return false;
    }
    return true;
}

}  // namespace

namespace kxt {

bool utf8IsHTMLready(std::string_view utf8) {
    return utf8IsReady(utf8, false);
}

bool utf8IsXMLready(std::string_view utf8) {
    return utf8IsReady(utf8, true);
}

}  // namespace kxt

REALstring EncodingToHTML(REALstring s, RBInteger options) {
    return HandlerBoundary<REALstring>(nullptr, [&]() -> REALstring {
        if (s == nullptr) return nullptr;
        const bool plain = (options & 1) != 0;
        if (rbData in(s); kxt::readsAsUTF8(s, in.view(), true, 4)) {
            if (in.size == 0) return nullptr;
            if (kxt::utf8IsHTMLready(in.view())) {
                REALLockString(s);
                return s;
            }
            return REALBuildUnicodeString(kxt::encodeHTMLUTF8(in.view(), plain).view(),
                                          kREALTextEncodingASCII);
        }
        rbText text(s);
        if (text.LengthUTF32() == 0) return nullptr;
        if (kxt::StringIsHTMLready(text.GetUTF32())) {
            REALLockString(s);
            return s;
        }
        std::string out = kxt::encodeHTML(text.utf32(), plain);
        if (out.empty()) return nullptr;
        return CString2RB(out.c_str(), kREALTextEncodingASCII);
    });
}

REALstring DecodingToHTML(REALstring s) {
    return HandlerBoundary<REALstring>(nullptr, [&]() -> REALstring {
        if (s == nullptr) return nullptr;
        // The UTF-32 result holds at most one code point per input byte.
        if (rbData in(s); kxt::readsAsUTF8(s, in.view(), true, 4)) {
            return REALBuildUnicodeString(kxt::decodeHTMLUTF8(in.view()).view(),
                                          kREALTextEncodingUTF8);
        }
        rbText text(s);
        std::vector<uint32_t> out = kxt::decodeHTML(text.utf32());
        return REALBuildUnicodeString(out.data(), int64_t(out.size() * sizeof(uint32_t)),
                                      kREALTextEncodingUTF32);
    });
}

RBBoolean StringIsHTMLready(REALstring s) {
    return HandlerBoundary<RBBoolean>(false, [&]() -> RBBoolean {
        if (s == nullptr) return true;
        if (!kxt::isMarkupTestEncoding(REALGetStringEncoding(s))) return false;
        rbData in(s);
        return kxt::bytesAreMarkupFree(in.view());
    });
}
