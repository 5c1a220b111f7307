// Encoders and decoders, end to end through the host and as plain functions, on 1 KiB, 1 MiB
// and 64 MiB: URL, HTML, XML, quoted-printable, hexadecimal forms, MySQL escapes, ISO-8859-1
// and Windows-1252 (against glibc iconv), e-mail subjects, yEnc, byte-order marks and the host
// conversions. Run: build/bench/encoders_bench (configure with -DKXT_BENCH=ON).
#include <iconv.h>

#include "Bench.h"
#include "Hexencoding.h"
#include "ISOencoding.h"
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
        add("host", "EncodingToURLKXT(s)", corpusName(c), "memcpy", kSizes,
            [c](auto& st, size_t n) {
                Bytes in = corpus(c, n);
                hostLoop(st, "EncodingToURLKXT", {raw(*in)}, n);
            });
        add("plain", "kxt::encodeURL", corpusName(c), "memcpy", kSizes, [c](auto& st, size_t n) {
            Bytes in = corpus(c, n);
            loop(st, n, [&] { return kxt::encodeURL(*in, 0).size(); });
        });
    }
    add("host", "EncodingToURLKXT(s,options)", "prose", "memcpy", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::Prose, n);
        hostLoop(st, "EncodingToURLKXT", {raw(*in), integer(1)}, n);
    });
    for (Corpus c : {Corpus::Prose, Corpus::Multilingual}) {
        add("host", "DecodingFromURLKXT(s)", std::string("url-") + corpusName(c), "memcpy", kSizes,
            [c](auto& st, size_t n) {
                Bytes in = urlEncoded(c, n);
                hostLoop(st, "DecodingFromURLKXT", {raw(*in)}, in->size());
            });
        add("plain", "kxt::decodeURL", std::string("url-") + corpusName(c), "memcpy", kSizes,
            [c](auto& st, size_t n) {
                Bytes in = urlEncoded(c, n);
                loop(st, in->size(), [&] { return kxt::decodeURL(*in, 0).size(); });
            });
    }
    add("host", "DecodingFromURLKXT(s,options)", "url-prose", "memcpy", kSizes,
        [](auto& st, size_t n) {
            Bytes in = urlEncoded(Corpus::Prose, n);
            hostLoop(st, "DecodingFromURLKXT", {raw(*in), integer(1)}, in->size());
        });

    add("host", "EncodingToHexKXT", "binary", "memcpy", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::Binary, n);
        hostLoop(st, "EncodingToHexKXT", {raw(*in)}, n);
    });
    add("plain", "kxt::encodeHex", "binary", "memcpy", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::Binary, n);
        loop(st, n, [&] { return kxt::encodeHex(*in).size(); });
    });
    add("host", "DecodingFromHexKXT", "hex", "memcpy", kSizes, [](auto& st, size_t n) {
        Bytes in = hexEncoded(n);
        hostLoop(st, "DecodingFromHexKXT", {text(*in)}, in->size());
    });
    add("plain", "kxt::decodeHex", "hex", "memcpy", kSizes, [](auto& st, size_t n) {
        Bytes in = hexEncoded(n);
        loop(st, in->size(), [&] { return kxt::decodeHex(*in).size(); });
    });
    add("host", "HexstringKXT", "binary", "memcpy", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::Binary, n);
        hostLoop(st, "HexstringKXT",
                 {raw(*in), integer(2), integer(16), text(""), text("\n"), text(" "), text("")}, n);
    });
    add("plain", "kxt::hexstring", "binary", "memcpy", kSizes, [](auto& st, size_t n) {
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
        add("host", "EncodingToHTMLKXT", corpusName(c), "", kSizes, [c](auto& st, size_t n) {
            Bytes in = corpus(c, n);
            hostLoop(st, "EncodingToHTMLKXT", {text(*in)}, n);
        });
        add("plain", "kxt::encodeHTML", corpusName(c), "", kSizes, [c](auto& st, size_t n) {
            Points in = utf32(c, n);
            loop(st, n, [&] { return kxt::encodeHTML(*in, false).size(); });
        });
        add("host", "EncodingToXMLKXT", corpusName(c), "", kSizes, [c](auto& st, size_t n) {
            Bytes in = corpus(c, n);
            hostLoop(st, "EncodingToXMLKXT", {text(*in)}, n);
        });
        add("plain", "kxt::encodeXML", corpusName(c), "", kSizes, [c](auto& st, size_t n) {
            Points in = utf32(c, n);
            loop(st, n, [&] { return kxt::encodeXML(*in, 0).size(); });
        });
    }
    add("host", "DecodingFromHTMLKXT", "html", "", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::HTML, n);
        hostLoop(st, "DecodingFromHTMLKXT", {text(*in)}, n);
    });
    add("host", "DecodingFromXMLKXT", "html", "", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::HTML, n);
        hostLoop(st, "DecodingFromXMLKXT", {text(*in)}, n);
    });
    add("plain", "kxt::decodeHTML", "html", "", kSizes, [](auto& st, size_t n) {
        Points in = utf32(Corpus::HTML, n);
        loop(st, n, [&] { return kxt::decodeHTML(*in).size(); });
    });
    for (Corpus c : {Corpus::Prose, Corpus::Multilingual}) {
        // Text without markup characters, so the whole input is read.
        const std::string input = std::string(corpusName(c)) + "-markup-free";
        add("host", "StringIsHTMLreadyKXT", input, "memcpy", kSizes, [c](auto& st, size_t n) {
            Bytes in = plainLine(c, n);
            hostLoop(st, "StringIsHTMLreadyKXT", {text(*in)}, n, false);
        });
        add("host", "StringIsXMLreadyKXT", input, "memcpy", kSizes, [c](auto& st, size_t n) {
            Bytes in = plainLine(c, n);
            hostLoop(st, "StringIsXMLreadyKXT", {text(*in)}, n, false);
        });
        add("plain", "kxt::bytesAreMarkupFree", input, "memcpy", kSizes, [c](auto& st, size_t n) {
            Bytes in = plainLine(c, n);
            loop(st, n, [&] { return kxt::bytesAreMarkupFree(*in); });
        });
    }
}

// ---- Quoted-printable, e-mail subjects, byte-order marks, host conversions ---------------------

void mail() {
    for (Corpus c : {Corpus::Multilingual, Corpus::Binary}) {
        add("host", "EncodingToQuotedPrintableKXT", corpusName(c), "memcpy", kSizes,
            [c](auto& st, size_t n) {
                Bytes in = corpus(c, n);
                hostLoop(st, "EncodingToQuotedPrintableKXT", {raw(*in)}, n);
            });
        add("plain", "kxt::encodeQuotedPrintable", corpusName(c), "memcpy", kSizes,
            [c](auto& st, size_t n) {
                Bytes in = corpus(c, n);
                loop(st, n, [&] { return kxt::encodeQuotedPrintable(*in, 72).size(); });
            });
    }
    add("host", "DecodingFromQuotedPrintableKXT", "qp-multilingual", "memcpy", kSizes,
        [](auto& st, size_t n) {
            Bytes in = quotedPrintable(Corpus::Multilingual, n);
            hostLoop(st, "DecodingFromQuotedPrintableKXT", {raw(*in)}, in->size());
        });
    add("plain", "kxt::decodeQuotedPrintable", "qp-multilingual", "memcpy", kSizes,
        [](auto& st, size_t n) {
            Bytes in = quotedPrintable(Corpus::Multilingual, n);
            loop(st, in->size(), [&] { return kxt::decodeQuotedPrintable(*in).size(); });
        });

    for (Corpus c : {Corpus::Prose, Corpus::Multilingual}) {
        // ASCII prose comes back unchanged after one scan; other text is encoded.
        add("host", "EncodeEmailSubjectKXT", corpusName(c), "memcpy", kSizes,
            [c](auto& st, size_t n) {
                Bytes in = corpus(c, n);
                hostLoop(st, "EncodeEmailSubjectKXT", {text(*in)}, n);
            });
    }
    add("plain", "kxt::encodeEmailSubject", "multilingual", "memcpy", kSizes,
        [](auto& st, size_t n) {
            Bytes in = corpus(Corpus::Multilingual, n);
            loop(st, n, [&] { return kxt::encodeEmailSubject(*in).size(); });
        });

    // Constant work whatever the size: the curve shows that nothing reads the whole input.
    add("host", "DetectUnicodeMarkersKXT", "multilingual", "", kSizes, [](auto& st, size_t n) {
        std::string in = "\xEF\xBB\xBF" + *corpus(Corpus::Multilingual, n);
        in.resize(n);
        hostLoop(st, "DetectUnicodeMarkersKXT", {raw(in)}, n, false);
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

    // Pure host conversions: the plugin only forwards the string.
    add("host", "UnicodeStringKXT", "multilingual", "memcpy", kSizes, [](auto& st, size_t n) {
        Bytes in = corpus(Corpus::Multilingual, n);
        hostLoop(st, "UnicodeStringKXT", {text(*in)}, n);
    });
    add("host", "NativeStringKXT", "multilingual-utf16", "memcpy", kSizes, [](auto& st, size_t n) {
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
