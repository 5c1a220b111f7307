// Encoders and decoders, end to end through the host and as plain functions, on 1 KiB, 1 MiB
// and 64 MiB: URL, HTML, XML, quoted-printable, hexadecimal forms, MySQL escapes, ISO-8859-1
// and Windows-1252 (against glibc iconv), e-mail subjects, yEnc, byte-order marks and the host
// conversions. Run: build/bench/encoders_bench (configure with -DKXT_BENCH=ON).
#include <curl/curl.h>
#include <glib.h>
#include <gmime/gmime.h>
#include <iconv.h>
#include <libxml/HTMLparser.h>
#include <libxml/entities.h>
#include <sodium.h>

#include "Bench.h"
#include "Hexencoding.h"
#include "ISOencoding.h"
#include "Regex.h"
#include "URLencoding.h"
#include "hexstring.h"
#include "htmlencoding.h"
#include "quotedprintable.h"
#include "stringdetect.h"
#include "xmlencoding.h"

using namespace bench;
using xhost::Value;

namespace {

// ---- URL, hexadecimal, MySQL, yEnc: linear byte transforms ------------------------------------

void urlAndHex() {
    for (Corpus c : {Corpus::Prose, Corpus::Multilingual, Corpus::Binary}) {
        add("anchor", "curl_easy_escape", corpusName(c), "", kSizes, [c](auto& st, size_t n) {
            Bytes in = corpus(c, n);
            loop(st, n, [&] {
                char* out = curl_easy_escape(nullptr, in->data(), int(in->size()));
                const size_t size = out ? strlen(out) : 0;
                curl_free(out);
                return size;
            });
        });
        add("host", "EncodingToURLKXT(s)", corpusName(c), "curl_easy_escape", kSizes,
            [c](auto& st, size_t n) {
                Bytes in = corpus(c, n);
                hostLoop(st, "EncodingToURLKXT", {raw(*in)}, n);
            });
        add("plain", "kxt::encodeURL", corpusName(c), "curl_easy_escape", kSizes,
            [c](auto& st, size_t n) {
                Bytes in = corpus(c, n);
                loop(st, n, [&] { return kxt::encodeURL(*in, 0).size(); });
            });
    }
    add("host", "EncodingToURLKXT(s,options)", "prose", "curl_easy_escape", kSizes,
        [](auto& st, size_t n) {
            Bytes in = corpus(Corpus::Prose, n);
            hostLoop(st, "EncodingToURLKXT", {raw(*in), integer(1)}, n);
        });
    for (Corpus c : {Corpus::Prose, Corpus::Multilingual}) {
        add("anchor", "curl_easy_unescape", std::string("url-") + corpusName(c), "", kSizes,
            [c](auto& st, size_t n) {
                Bytes in = urlEncoded(c, n);
                loop(st, in->size(), [&] {
                    int size = 0;
                    char* out = curl_easy_unescape(nullptr, in->data(), int(in->size()), &size);
                    curl_free(out);
                    return size;
                });
            });
        add("host", "DecodingFromURLKXT(s)", std::string("url-") + corpusName(c),
            "curl_easy_unescape", kSizes, [c](auto& st, size_t n) {
                Bytes in = urlEncoded(c, n);
                hostLoop(st, "DecodingFromURLKXT", {raw(*in)}, in->size());
            });
        add("plain", "kxt::decodeURL", std::string("url-") + corpusName(c), "curl_easy_unescape",
            kSizes, [c](auto& st, size_t n) {
                Bytes in = urlEncoded(c, n);
                loop(st, in->size(), [&] { return kxt::decodeURL(*in, 0).size(); });
            });
    }
    add("host", "DecodingFromURLKXT(s,options)", "url-prose", "curl_easy_unescape", kSizes,
        [](auto& st, size_t n) {
            Bytes in = urlEncoded(Corpus::Prose, n);
            hostLoop(st, "DecodingFromURLKXT", {raw(*in), integer(1)}, in->size());
        });

    // libsodium's hex forms (constant time, as a cryptographic library writes them).
    add("anchor", "sodium_bin2hex", "binary", "", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::Binary, n);
        std::string out(2 * n + 1, '\0');
        loop(st, n, [&] {
            return sodium_bin2hex(out.data(), out.size(),
                                  reinterpret_cast<const unsigned char*>(in->data()), n);
        });
    });
    add("anchor", "sodium_hex2bin", "hex", "", kSizes, [](auto& st, size_t n) {
        Bytes in = hexEncoded(n);
        std::string out(in->size() / 2 + 1, '\0');
        loop(st, in->size(), [&] {
            size_t size = 0;
            sodium_hex2bin(reinterpret_cast<unsigned char*>(out.data()), out.size(), in->data(),
                           in->size(), nullptr, &size, nullptr);
            return size;
        });
    });
    add("host", "EncodingToHexKXT", "binary", "sodium_bin2hex", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::Binary, n);
        hostLoop(st, "EncodingToHexKXT", {raw(*in)}, n);
    });
    add("plain", "kxt::encodeHex", "binary", "sodium_bin2hex", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::Binary, n);
        loop(st, n, [&] { return kxt::encodeHex(*in).size(); });
    });
    add("host", "DecodingFromHexKXT", "hex", "sodium_hex2bin", kSizes, [](auto& st, size_t n) {
        Bytes in = hexEncoded(n);
        hostLoop(st, "DecodingFromHexKXT", {text(*in)}, in->size());
    });
    add("plain", "kxt::decodeHex", "hex", "sodium_hex2bin", kSizes, [](auto& st, size_t n) {
        Bytes in = hexEncoded(n);
        loop(st, in->size(), [&] { return kxt::decodeHex(*in).size(); });
    });
    add("host", "HexstringKXT", "binary", "sodium_bin2hex", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::Binary, n);
        hostLoop(st, "HexstringKXT",
                 {raw(*in), integer(2), integer(16), text(""), text("\n"), text(" "), text("")}, n);
    });
    add("plain", "kxt::hexstring", "binary", "sodium_bin2hex", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::Binary, n);
        const kxt::HexLayout layout{2, 16, "", "\n", " ", ""};
        loop(st, n, [&] { return kxt::hexstring(*in, layout).size(); });
    });
    add("host", "DecodingFromMySQLKXT", "mysql-prose", "memcpy", kSizes, [](auto& st, size_t n) {
        Bytes in = mysqlEscaped(n);
        hostLoop(st, "DecodingFromMySQLKXT", {raw(*in)}, in->size());
    });
    add("plain", "kxt::decodeMySQL", "mysql-prose", "memcpy", kSizes, [](auto& st, size_t n) {
        Bytes in = mysqlEscaped(n);
        loop(st, in->size(), [&] { return kxt::decodeMySQL(*in).size(); });
    });

    add("host", "_yDecodeStringKXT", "yenc", "memcpy", kSizes, [](auto& st, size_t n) {
        Bytes in = yEncoded(n);
        hostLoop(st, "_yDecodeStringKXT", {raw(*in)}, in->size());
    });
    add("host", "_yDecodeMemoryKXT", "yenc", "memcpy", kSizes, [](auto& st, size_t n) {
        Bytes in = yEncoded(n);
        host();
        hostLoop(st, "_yDecodeMemoryKXT", {Value::memoryBlock(*in)}, in->size());
    });
    add("plain", "kxt::yDecode", "yenc", "memcpy", kSizes, [](auto& st, size_t n) {
        Bytes in = yEncoded(n);
        loop(st, in->size(), [&] { return kxt::yDecode(std::string_view(*in)).size(); });
    });
}

// ---- Markup -------------------------------------------------------------------------------------

void markup() {
    for (Corpus c : {Corpus::Multilingual, Corpus::HTML}) {
        // GLib escapes the five markup characters (and controls); libxml2 writes HTML entities
        // for non-ASCII text too, as EncodingToHTMLKXT does.
        add("anchor", "g_markup_escape_text", corpusName(c), "", kSizes, [c](auto& st, size_t n) {
            Bytes in = corpus(c, n);
            loop(st, n, [&] {
                gchar* out = g_markup_escape_text(in->data(), gssize(in->size()));
                const size_t size = strlen(out);
                g_free(out);
                return size;
            });
        });
        add("anchor", "htmlEncodeEntities", corpusName(c), "", kSizes, [c](auto& st, size_t n) {
            Bytes in = corpus(c, n);
            std::string out(8 * n + 64, '\0');  // the longest entity per character fits
            loop(st, n, [&] {
                int outSize = int(out.size()), inSize = int(in->size());
                htmlEncodeEntities(reinterpret_cast<unsigned char*>(out.data()), &outSize,
                                   reinterpret_cast<const unsigned char*>(in->data()), &inSize, 0);
                return outSize;
            });
        });
        add("anchor", "xmlEncodeSpecialChars", corpusName(c), "", kSizes, [c](auto& st, size_t n) {
            Bytes in = corpus(c, n);
            loop(st, n, [&] {
                xmlChar* out =
                    xmlEncodeSpecialChars(nullptr, reinterpret_cast<const xmlChar*>(in->c_str()));
                const size_t size = out ? strlen(reinterpret_cast<char*>(out)) : 0;
                xmlFree(out);
                return size;
            });
        });
        add("host", "EncodingToHTMLKXT", corpusName(c), "htmlEncodeEntities|g_markup_escape_text",
            kSizes, [c](auto& st, size_t n) {
                Bytes in = corpus(c, n);
                hostLoop(st, "EncodingToHTMLKXT", {text(*in)}, n);
            });
        // The plain rows are the UTF-8 forms, which the methods use on UTF-8 text.
        add("plain", "kxt::encodeHTMLUTF8", corpusName(c),
            "htmlEncodeEntities|g_markup_escape_text", kSizes, [c](auto& st, size_t n) {
                Bytes in = corpus(c, n);
                loop(st, n, [&] { return kxt::encodeHTMLUTF8(*in, false).size(); });
            });
        add("host", "EncodingToXMLKXT", corpusName(c), "xmlEncodeSpecialChars|g_markup_escape_text",
            kSizes, [c](auto& st, size_t n) {
                Bytes in = corpus(c, n);
                hostLoop(st, "EncodingToXMLKXT", {text(*in)}, n);
            });
        add("plain", "kxt::encodeXMLUTF8", corpusName(c),
            "xmlEncodeSpecialChars|g_markup_escape_text", kSizes, [c](auto& st, size_t n) {
                Bytes in = corpus(c, n);
                loop(st, n, [&] { return kxt::encodeXMLUTF8(*in, 0).size(); });
            });
    }
    // No C library in Debian decodes references alone: libxml2's HTML parser decodes every
    // reference while it reads the page, and builds a tree besides.
    add("anchor", "htmlReadMemory", "html", "", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::HTML, n);
        loop(st, n, [&] {
            htmlDocPtr doc =
                htmlReadMemory(in->data(), int(in->size()), nullptr, "UTF-8",
                               HTML_PARSE_NOERROR | HTML_PARSE_NOWARNING | HTML_PARSE_NONET);
            const bool read = doc != nullptr;
            xmlFreeDoc(doc);
            return read;
        });
    });
    add("host", "DecodingFromHTMLKXT", "html", "htmlReadMemory", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::HTML, n);
        hostLoop(st, "DecodingFromHTMLKXT", {text(*in)}, n);
    });
    add("host", "DecodingFromXMLKXT", "html", "htmlReadMemory", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::HTML, n);
        hostLoop(st, "DecodingFromXMLKXT", {text(*in)}, n);
    });
    add("plain", "kxt::decodeHTMLUTF8", "html", "htmlReadMemory", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::HTML, n);
        loop(st, n, [&] { return kxt::decodeHTMLUTF8(*in).size(); });
    });
    // ASCII text without markup characters, so the whole input is read (any byte above 127
    // ends the check at once).
    const std::string input = "prose-markup-free";
    add("anchor", "pcre2-markup-class", input, "", kSizes, [](auto& st, size_t n) {
        Bytes in = plainLine(Corpus::Prose, n);
        const Regex markup("[\\x00<>&\"'\\x80-\\xff]");
        loop(st, n, [&] { return markup.find(*in); });
    });
    add("host", "StringIsHTMLreadyKXT", input, "pcre2-markup-class", kSizes,
        [](auto& st, size_t n) {
            Bytes in = plainLine(Corpus::Prose, n);
            hostLoop(st, "StringIsHTMLreadyKXT", {text(*in)}, n, false);
        });
    add("host", "StringIsXMLreadyKXT", input, "pcre2-markup-class", kSizes, [](auto& st, size_t n) {
        Bytes in = plainLine(Corpus::Prose, n);
        hostLoop(st, "StringIsXMLreadyKXT", {text(*in)}, n, false);
    });
    add("plain", "kxt::bytesAreMarkupFree", input, "pcre2-markup-class", kSizes,
        [](auto& st, size_t n) {
            Bytes in = plainLine(Corpus::Prose, n);
            loop(st, n, [&] { return kxt::bytesAreMarkupFree(*in); });
        });
}

// ---- Quoted-printable, e-mail subjects, byte-order marks, host conversions ---------------------

// GMime, as a mail program in C would encode and decode.
void gmimeOnce() {
    static const bool ready = [] {
        g_mime_init();
        return true;
    }();
    (void)ready;
}

void mail() {
    for (Corpus c : {Corpus::Multilingual, Corpus::Binary}) {
        add("anchor", "g_mime_encoding_quoted_encode_close", corpusName(c), "", kSizes,
            [c](auto& st, size_t n) {
                gmimeOnce();
                Bytes in = corpus(c, n);
                std::string out(GMIME_QP_ENCODE_LEN(n), '\0');
                loop(st, n, [&] {
                    int state = 0;
                    guint32 save = 0;
                    return g_mime_encoding_quoted_encode_close(
                        reinterpret_cast<const unsigned char*>(in->data()), in->size(),
                        reinterpret_cast<unsigned char*>(out.data()), &state, &save);
                });
            });
        add("host", "EncodingToQuotedPrintableKXT", corpusName(c),
            "g_mime_encoding_quoted_encode_close", kSizes, [c](auto& st, size_t n) {
                Bytes in = corpus(c, n);
                hostLoop(st, "EncodingToQuotedPrintableKXT", {raw(*in)}, n);
            });
        add("plain", "kxt::encodeQuotedPrintable", corpusName(c),
            "g_mime_encoding_quoted_encode_close", kSizes, [c](auto& st, size_t n) {
                Bytes in = corpus(c, n);
                loop(st, n, [&] { return kxt::encodeQuotedPrintable(*in, 72).size(); });
            });
    }
    add("anchor", "g_mime_encoding_quoted_decode_step", "qp-multilingual", "", kSizes,
        [](auto& st, size_t n) {
            gmimeOnce();
            Bytes in = quotedPrintable(Corpus::Multilingual, n);
            std::string out(in->size() + 16, '\0');
            loop(st, in->size(), [&] {
                int state = 0;
                guint32 save = 0;
                return g_mime_encoding_quoted_decode_step(
                    reinterpret_cast<const unsigned char*>(in->data()), in->size(),
                    reinterpret_cast<unsigned char*>(out.data()), &state, &save);
            });
        });
    add("host", "DecodingFromQuotedPrintableKXT", "qp-multilingual",
        "g_mime_encoding_quoted_decode_step", kSizes, [](auto& st, size_t n) {
            Bytes in = quotedPrintable(Corpus::Multilingual, n);
            hostLoop(st, "DecodingFromQuotedPrintableKXT", {raw(*in)}, in->size());
        });
    add("plain", "kxt::decodeQuotedPrintable", "qp-multilingual",
        "g_mime_encoding_quoted_decode_step", kSizes, [](auto& st, size_t n) {
            Bytes in = quotedPrintable(Corpus::Multilingual, n);
            loop(st, in->size(), [&] { return kxt::decodeQuotedPrintable(*in).size(); });
        });

    for (Corpus c : {Corpus::Prose, Corpus::Multilingual}) {
        add("anchor", "g_mime_utils_header_encode_text", corpusName(c), "", kSizes,
            [c](auto& st, size_t n) {
                gmimeOnce();
                Bytes in = corpus(c, n);
                loop(st, n, [&] {
                    char* out = g_mime_utils_header_encode_text(nullptr, in->c_str(), "utf-8");
                    const size_t size = out ? strlen(out) : 0;
                    g_free(out);
                    return size;
                });
            });
        // ASCII prose comes back unchanged after one scan; other text is encoded.
        add("host", "EncodeEmailSubjectKXT", corpusName(c), "g_mime_utils_header_encode_text",
            kSizes, [c](auto& st, size_t n) {
                Bytes in = corpus(c, n);
                hostLoop(st, "EncodeEmailSubjectKXT", {text(*in)}, n);
            });
    }
    add("plain", "kxt::encodeEmailSubject", "multilingual", "g_mime_utils_header_encode_text",
        kSizes, [](auto& st, size_t n) {
            Bytes in = corpus(Corpus::Multilingual, n);
            loop(st, n, [&] { return kxt::encodeEmailSubject(*in).size(); });
        });

    // Constant work whatever the input's size (only its first bytes are read): calls per
    // second, beside the call that only reads the marker table.
    addOne("host", "DetectUnicodeMarkersKXT", "multilingual", "1MiB", "", [](auto& st) {
        std::string in = "\xEF\xBB\xBF" + *corpus(Corpus::Multilingual, MiB);
        in.resize(MiB);
        hostLoop(st, "DetectUnicodeMarkersKXT", {raw(in)}, 0, false);
    });
    addOne("host", "GetUnicodeMarkersKXT", "kind", "1-7", "", [](auto& st) {
        int64_t kind = 0;
        for ([[maybe_unused]] auto _ : st) {
            auto r = host().call("GetUnicodeMarkersKXT", {integer(1 + kind++ % 7)});
            benchmark::DoNotOptimize(r);
        }
        account(st, 0);
    });
    addOne("plain", "kxt::unicodeMarkerBytes", "kind", "1-7", "", [](auto& st) {
        int64_t kind = 0;
        loop(st, 0, [&] { return kxt::unicodeMarkerBytes(1 + kind++ % 7).bytes.size(); });
    });

    // Pure host conversions: the plugin only forwards the string (anchors: iconv, below).
    add("host", "UnicodeStringKXT", "multilingual", "iconv-utf8-to-utf16", kSizes,
        [](auto& st, size_t n) {
            Bytes in = corpus(Corpus::Multilingual, n);
            hostLoop(st, "UnicodeStringKXT", {text(*in)}, n);
        });
    add("host", "NativeStringKXT", "multilingual-utf16", "iconv-utf16-to-utf8", kSizes,
        [](auto& st, size_t n) {
            Units in = utf16(Corpus::Multilingual, n);
            hostLoop(st, "NativeStringKXT", {utf16Text(*in)}, in->size() * 2);
        });
}

// ---- ISO-8859-1 and Windows-1252 against iconv --------------------------------------------------

// One iconv conversion into out (capacity bytes); returns the bytes written, 0 on failure.
size_t iconvOnce(iconv_t cd, std::string_view in, char* out, size_t capacity) {
    char* src = const_cast<char*>(in.data());
    size_t srcLeft = in.size();
    char* dst = out;
    size_t dstLeft = capacity;
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    if (iconv(cd, &src, &srcLeft, &dst, &dstLeft) == size_t(-1)) return 0;
    benchmark::DoNotOptimize(out);
    return capacity - dstLeft;
}

// iconv at its best: the output buffer is made and mapped once, outside the timing.
void iconvAnchor(const std::string& name, const std::string& input, const char* to,
                 const char* from, std::function<std::string(size_t)> source, size_t growth) {
    add("anchor", name, input, "", kSizes, [=](auto& st, size_t n) {
        const std::string in = source(n);
        iconv_t cd = iconv_open(to, from);
        if (cd == iconv_t(-1)) {
            st.SkipWithError("iconv_open failed");
            return;
        }
        const size_t capacity = in.size() * growth + 16;
        std::string out(capacity, '\0');
        if (iconvOnce(cd, in, out.data(), capacity) == 0) {
            st.SkipWithError("iconv cannot convert the input");
        } else {
            loop(st, in.size(), [&] { return iconvOnce(cd, in, out.data(), capacity); });
        }
        iconv_close(cd);
    });
}

std::string utf16Bytes(std::u16string_view s) {
    return std::string(reinterpret_cast<const char*>(s.data()), s.size() * 2);
}

void codePages() {
    struct Page {
        const char* method;  // encoder; the decoder is named after it
        const char* decoder;
        const char* iconvName;   // as glibc knows it
        const char* anchorName;  // short
        Corpus text;
        Bytes (*bytes)(size_t);
        const kxt::CodePage* page;
    };
    const Page pages[] = {
        {"EncodingToISO8859KXT", "DecodingFromISO8859KXT", "ISO-8859-1", "latin1", Corpus::Western,
         latin1Bytes, &kxt::ISO8859},
        {"EncodingToCP1252KXT", "DecodingFromCP1252KXT", "WINDOWS-1252", "cp1252",
         Corpus::Western1252, cp1252Bytes, &kxt::CP1252},
    };
    for (const Page& p : pages) {
        const Corpus c = p.text;
        const std::string a = p.anchorName;
        const std::string bytesInput = std::string(corpusName(c)) + "-" + a;
        // Text to bytes: end to end from a UTF-8 host string; plain from UTF-16.
        add("host", p.method, corpusName(c), "iconv-utf8-to-" + a, kSizes, [=](auto& st, size_t n) {
            Bytes in = corpus(c, n);
            hostLoop(st, p.method, {text(*in)}, n);
        });
        add("plain", "kxt::encodeCodePage(" + a + ")", corpusName(c) + std::string("-utf16"),
            "iconv-utf16-to-" + a, kSizes, [=](auto& st, size_t n) {
                Units in = utf16(c, n);
                loop(st, in->size() * 2,
                     [&] { return kxt::encodeCodePage(asUnits(*in), *p.page).size(); });
            });
        iconvAnchor(
            "iconv-utf8-to-" + a, corpusName(c), p.iconvName, "UTF-8",
            [c](size_t n) { return *corpus(c, n); }, 1);
        iconvAnchor(
            "iconv-utf16-to-" + a, corpusName(c) + std::string("-utf16"), p.iconvName, "UTF-16LE",
            [c](size_t n) { return utf16Bytes(*utf16(c, n)); }, 1);
        // Bytes to text: end to end to a host string (UTF-16, which the host keeps as UTF-8);
        // plain to UTF-16.
        add("host", p.decoder, bytesInput, "iconv-" + a + "-to-utf8", kSizes,
            [=](auto& st, size_t n) {
                Bytes in = p.bytes(n);
                hostLoop(st, p.decoder, {raw(*in)}, n);
            });
        // The UTF-8 decoder the method uses on hosts that keep text as UTF-8, then the UTF-16 one.
        add("plain", "kxt::decodeCodePageUTF8(" + a + ")", bytesInput, "iconv-" + a + "-to-utf8",
            kSizes, [=](auto& st, size_t n) {
                Bytes in = p.bytes(n);
                std::string out(3 * n, '\0');  // at most three bytes of UTF-8 a byte
                loop(st, n, [&] { return kxt::decodeCodePageUTF8(*in, *p.page, out.data()); });
            });
        add("plain", "kxt::decodeCodePage(" + a + ")", bytesInput, "iconv-" + a + "-to-utf16",
            kSizes, [=](auto& st, size_t n) {
                Bytes in = p.bytes(n);
                loop(st, n, [&] { return kxt::decodeCodePage(*in, *p.page).size(); });
            });
        iconvAnchor(
            "iconv-" + a + "-to-utf8", bytesInput, "UTF-8", p.iconvName,
            [b = p.bytes](size_t n) { return *b(n); }, 3);
        iconvAnchor(
            "iconv-" + a + "-to-utf16", bytesInput, "UTF-16LE", p.iconvName,
            [b = p.bytes](size_t n) { return *b(n); }, 2);
    }
    // The anchors of UnicodeStringKXT and NativeStringKXT, whose work is the host's conversion.
    iconvAnchor(
        "iconv-utf8-to-utf16", "multilingual", "UTF-16LE", "UTF-8",
        [](size_t n) { return *corpus(Corpus::Multilingual, n); }, 2);
    iconvAnchor(
        "iconv-utf16-to-utf8", "multilingual-utf16", "UTF-8", "UTF-16LE",
        [](size_t n) {
            Units u = utf16(Corpus::Multilingual, n);
            return std::string(reinterpret_cast<const char*>(u->data()), u->size() * 2);
        },
        2);
}

const int registered = [] {
    addMemcpyAnchor();
    urlAndHex();
    markup();
    mail();
    codePages();
    return 0;
}();

}  // namespace

BENCHMARK_MAIN();
