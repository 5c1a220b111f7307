#include "Corpus.h"

#include <algorithm>
#include <functional>
#include <map>
#include <random>

#include "Hexencoding.h"
#include "MainStringCompose.h"
#include "URLencoding.h"
#include "quotedprintable.h"
#include "utf_reference.h"

namespace bench {

namespace {

// ---- The cache ----------------------------------------------------------------------------------

// Entries beyond this many bytes make the cache start over; callers keep theirs alive.
constexpr size_t kCacheLimit = size_t(768) << 20;

struct Entry {
    std::shared_ptr<const void> value;
    size_t bytes;
};
std::map<std::string, Entry>& cache() {
    static std::map<std::string, Entry> entries;
    return entries;
}
size_t gCachedBytes = 0;

template <typename T>
size_t byteSize(const T& v) {
    return v.size() * sizeof(typename T::value_type);
}

template <typename T>
std::shared_ptr<const T> cached(const std::string& key, const std::function<T()>& make) {
    auto& entries = cache();
    if (auto it = entries.find(key); it != entries.end()) {
        return std::static_pointer_cast<const T>(it->second.value);
    }
    auto value = std::make_shared<const T>(make());
    const size_t bytes = byteSize(*value);
    if (gCachedBytes + bytes > kCacheLimit) {
        entries.clear();
        gCachedBytes = 0;
    }
    entries[key] = Entry{value, bytes};
    gCachedBytes += bytes;
    return value;
}

std::string key(const char* what, Corpus c, size_t size) {
    return std::string(what) + "/" + corpusName(c) + "/" + std::to_string(size);
}

// ---- Generators ---------------------------------------------------------------------------------

using Rng = std::mt19937_64;

template <size_t N>
const char* pick(Rng& rng, const char* const (&list)[N]) {
    return list[rng() % N];
}

// header, then pieces while they fit, blanks up to the size, then the trailer.
std::string fill(size_t size, std::string_view header, std::string_view trailer,
                 const std::function<std::string()>& piece) {
    std::string s;
    s.reserve(size);
    if (header.size() + trailer.size() > size) {
        s.assign(header.substr(0, size));
        return s;
    }
    s.assign(header);
    const size_t room = size - trailer.size();
    for (;;) {
        std::string p = piece();
        if (s.size() + p.size() > room) break;
        s += p;
    }
    s.append(room - s.size(), ' ');
    s.append(trailer);
    return s;
}

const char* const kWords[] = {
    "the",        "of",         "and",        "to",          "in",          "a",
    "is",         "that",       "for",        "it",          "as",          "was",
    "with",       "be",         "by",         "on",          "not",         "he",
    "this",       "are",        "or",         "his",         "from",        "at",
    "which",      "but",        "have",       "an",          "had",         "they",
    "you",        "were",       "their",      "one",         "all",         "we",
    "can",        "her",        "has",        "there",       "been",        "if",
    "more",       "when",       "will",       "would",       "who",         "so",
    "no",         "river",      "morning",    "question",    "library",     "measure",
    "garden",     "window",     "quietly",    "remember",    "important",   "although",
    "between",    "several",    "country",    "children",    "thousand",    "building",
    "language",   "together",   "evening",    "mountain",    "carefully",   "necessary",
    "yesterday",  "different",  "government", "understand",  "information", "development",
    "experience", "particular", "everything", "performance",
};

std::string sentence(Rng& rng) {
    std::string s;
    const size_t words = 5 + rng() % 16;
    for (size_t i = 0; i < words; ++i) {
        std::string w = pick(rng, kWords);
        if (i == 0) w[0] = char(w[0] - 'a' + 'A');
        s += w;
        const auto r = unsigned(rng() % 40);
        if (i + 1 == words) {
            s += r < 30 ? ". " : r < 36 ? "? " : "! ";
        } else if (r == 0) {
            s += ", " + std::to_string(rng() % 2000) + " ";
        } else if (r < 3) {
            s += ", ";
        } else if (r == 3) {
            s += " (" + std::string(pick(rng, kWords)) + ") ";
        } else if (r == 4) {
            s += " \"" + std::string(pick(rng, kWords)) + "\" ";
        } else if (r == 5) {
            s += "'s ";
        } else {
            s += ' ';
        }
    }
    return s;
}

std::string prosePiece(Rng& rng) {
    std::string p;
    const size_t sentences = 3 + rng() % 6;
    for (size_t i = 0; i < sentences; ++i) p += sentence(rng);
    p.back() = '.';
    const auto r = unsigned(rng() % 10);
    p += r < 5 ? "\r\n" : r < 9 ? "\n" : "\r";
    return p;
}

const char* const kMultilingual[] = {
    "Le cœur déçu mais l'âme plutôt naïve, Louÿs rêva de crapaüter en canoë au delà des îles. ",
    "Falsches Üben von Xylophonmusik quält jeden größeren Zwerg. ",
    ("El pingüino Wenceslao hizo kilómetros bajo exhaustiva lluvia y frío, añoraba a su querido "
     "cachorro. "),
    "Příliš žluťoučký kůň úpěl ďábelské ódy. ",
    "Tiếng Việt có dấu: Một hai ba, chúng ta cùng đi. ",
    "Ξεσκεπάζω την ψυχοφθόρα βδελυγμία. Ἀρχὴ σοφίας φόβος Κυρίου. ",
    "Съешь же ещё этих мягких французских булок, да выпей чаю. ",
    "Жълтата дюля беше щастлива, че пухът, който цъфна, замръзна като гьон. ",
    "我能吞下玻璃而不伤身体。中文的标点符号，例如逗号和句号。",
    "いろはにほへと ちりぬるを わかよたれそ つねならむ。日本語の文章です。",
    "다람쥐 헌 쳇바퀴에 타고파. 한국어 텍스트입니다. ",
    "Great job 👍🎉 see you soon 🙂🚀 ",
    "Family: 👨‍👩‍👧‍👦, flags 🇫🇷🇯🇵, hearts ❤️💙. ",
    "The quick brown fox jumps over the lazy dog. ",
    "Ångström, Dvořák, Łódź, Æsir, Øresund, ß and ﬁ ligature. ",
};

std::string multilingualPiece(Rng& rng) {
    std::string p;
    const size_t n = 2 + rng() % 5;
    for (size_t i = 0; i < n; ++i) p += pick(rng, kMultilingual);
    p += rng() % 4 == 0 ? "\r\n" : "\n";
    return p;
}

const char* const kWestern[] = {
    "Voilà l'été à Paris: café crème, pâté et crêpes au marché. ",
    "Größere Flüsse fließen über Brücken; Mädchen spielen Fußball. ",
    "El niño español comió piñas y jamón el año pasado. ",
    "São Paulo é uma cidade grande; a nação está em ação. ",
    "Øl på færgen til Ålborg, siger Søren. ",
    "Þú ert góður vinur, sagði hún. ",
    "The museum reopened on Monday after a long renovation. ",
    "Prix: 12,50 ¥ ou 9 £ ± 1 ; température 21 °C. ",
};
const char* const kWestern1252[] = {
    "Der Preis beträgt 20 € – „günstig“, sagt er… ",
    "She said “don’t worry” — and left. ",
    "Œuvre complète, ‰ and ™ signs, Šibenik and Žilina. ",
};

std::string westernPiece(Rng& rng, bool cp1252) {
    std::string p;
    const size_t n = 2 + rng() % 5;
    for (size_t i = 0; i < n; ++i) {
        p += cp1252 && rng() % 4 == 0 ? pick(rng, kWestern1252) : pick(rng, kWestern);
    }
    p += "\r\n";
    return p;
}

std::string htmlPiece(Rng& rng) {
    static int section = 0;
    switch (rng() % 8) {
        case 0: {
            const int n = ++section;
            return "<h2 id=\"s" + std::to_string(n) + "\">Section " + std::to_string(n) + "</h2>\n";
        }
        case 1:
            return "<p class=\"note\">" + sentence(rng) +
                   "&amp; more &lt;tags&gt; &quot;quoted&quot; caf&eacute; &#233;t&#xE9; "
                   "&copy; 2024</p>\n";
        case 2:
            return "<ul>\n  <li><a href=\"https://example.org/a?b=1&amp;c=2\" "
                   "title=\"a > b\">" +
                   std::string(pick(rng, kWords)) +
                   "</a></li>\n  <li><b>bold</b> and <i>italic</i></li>\n</ul>\n";
        case 3:
            return "<p>" + std::string(pick(rng, kMultilingual)) + "</p>\n";
        case 4:
            return "<!-- generated block -->\n<div class='box'><img src=\"pic.png\" alt=\"\"/>"
                   "</div>\n";
        case 5:
            return "<table><tr><td>" + std::to_string(rng() % 1000) +
                   "</td><td>2&nbsp;&euro;</td><td>&hellip;</td></tr></table>\n";
        default:
            return "<p>" + sentence(rng) + sentence(rng) + "</p>\n";
    }
}

std::string rtfPiece(Rng& rng) {
    switch (rng() % 14) {
        case 0:
            return "{\\b " + std::string(pick(rng, kWords)) + "} ";
        case 1:
            return "{\\i " + std::string(pick(rng, kWords)) + "} ";
        case 2:
            return "caf\\'e9 na\\u239?ve ";
        case 3:
            return "\\u20013?\\u25991? ";
        case 4:
            return "\\par\r\n";
        case 5:
            return "\\pard\\qc Heading\\par\r\n\\pard\\ql ";
        case 6:
            return "{\\f1\\fs28\\cf2 " + sentence(rng) + "}";
        case 7:
            return "{\\*\\bkmkstart b1}{\\*\\bkmkend b1}";
        case 8:
            return "\\{braces\\} and \\\\ backslash ";
        case 9:
            return "\\tab ";
        case 10:
            return "{\\ul\\cf3 underlined} ";
        default:
            return sentence(rng);
    }
}

const char* const kSQL[] = {
    "SELECT id, name FROM users WHERE active = TRUE AND deleted = false;\n",
    "UPDATE settings SET enabled = true, note = 'it''s false' WHERE id = 42;\n",
    "INSERT INTO log (msg, ok, retry) VALUES ('done \"true\"', TRUE, FALSE);\n",
    "-- toggles are stored as integers\nDELETE FROM queue WHERE done=TRUE OR failed = True;\n",
    "SELECT COUNT(*) FROM orders WHERE shipped IS NOT true GROUP BY region;\n",
};

std::string make(Corpus c, size_t size) {
    Rng rng(1000 + uint64_t(c));
    switch (c) {
        case Corpus::Prose:
            return fill(size, "", "", [&] { return prosePiece(rng); });
        case Corpus::Multilingual:
            return fill(size, "", "", [&] { return multilingualPiece(rng); });
        case Corpus::Western:
            return fill(size, "", "", [&] { return westernPiece(rng, false); });
        case Corpus::Western1252:
            return fill(size, "", "", [&] { return westernPiece(rng, true); });
        case Corpus::HTML:
            return fill(size,
                        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                        "<title>Quarterly report</title>\n<style>p { margin: 0 }</style>\n"
                        "</head>\n<body>\n",
                        "</body>\n</html>\n", [&] { return htmlPiece(rng); });
        case Corpus::RTF:
            return fill(size,
                        "{\\rtf1\\ansi\\ansicpg1252\\deff0{\\fonttbl{\\f0\\fswiss Arial;}"
                        "{\\f1\\froman Times New Roman;}{\\f2\\fmodern Courier New;}}"
                        "{\\colortbl;\\red0\\green0\\blue0;\\red255\\green0\\blue0;"
                        "\\red0\\green0\\blue255;}\\uc1\\pard\\f0\\fs24 ",
                        "\\par\r\n}", [&] { return rtfPiece(rng); });
        case Corpus::Binary: {
            std::string s(size, '\0');
            for (char& b : s) b = char(rng());
            return s;
        }
        case Corpus::SQL:
            return fill(size, "", "", [&] { return std::string(pick(rng, kSQL)); });
    }
    return {};
}

// The longest prefix of at most `size` bytes that does not cut a unit of the format.
std::string cutTo(std::string s, size_t size, const std::function<bool(std::string_view)>& ok) {
    if (s.size() > size) s.resize(size);
    while (!s.empty() && !ok(s)) s.pop_back();
    return s;
}

bool noCutEscape(std::string_view s, char escape) {
    const size_t p = s.rfind(escape);
    return p == std::string_view::npos || p + 3 <= s.size();
}

}  // namespace

const char* corpusName(Corpus c) {
    switch (c) {
        case Corpus::Prose:
            return "prose";
        case Corpus::Multilingual:
            return "multilingual";
        case Corpus::Western:
            return "western";
        case Corpus::Western1252:
            return "western-1252";
        case Corpus::HTML:
            return "html";
        case Corpus::RTF:
            return "rtf";
        case Corpus::Binary:
            return "binary";
        case Corpus::SQL:
            return "sql";
    }
    return "?";
}

Bytes corpus(Corpus c, size_t size) {
    return cached<std::string>(key("corpus", c, size), [&] { return make(c, size); });
}

Bytes urlEncoded(Corpus c, size_t size) {
    return cached<std::string>(key("url", c, size), [&] {
        // Encoded text is at least as long as its source, so the source of `size` suffices.
        return cutTo(kxt::encodeURL(*corpus(c, size), 0).str(), size,
                     [](std::string_view s) { return noCutEscape(s, '%'); });
    });
}

Bytes hexEncoded(size_t size) {
    return cached<std::string>(key("hex", Corpus::Binary, size), [&] {
        return kxt::encodeHex(*corpus(Corpus::Binary, size / 2)).str();
    });
}

Bytes yEncoded(size_t size) {
    return cached<std::string>(key("yenc", Corpus::Binary, size), [&] {
        Bytes raw = corpus(Corpus::Binary, size);
        std::string out;
        out.reserve(size + 2);
        for (size_t i = 0; out.size() < size; ++i) {
            const uint8_t c = uint8_t(uint8_t((*raw)[i % raw->size()]) + 42);
            if (c == 0 || c == '\n' || c == '\r' || c == '=') {
                out += '=';
                out += char(c + 64);
            } else {
                out += char(c);
            }
        }
        return cutTo(std::move(out), size, [](std::string_view s) { return s.back() != '='; });
    });
}

Bytes quotedPrintable(Corpus c, size_t size) {
    return cached<std::string>(key("qp", c, size), [&] {
        return cutTo(kxt::encodeQuotedPrintable(*corpus(c, size), 72).str(), size,
                     [](std::string_view s) { return noCutEscape(s, '='); });
    });
}

Bytes mysqlEscaped(size_t size) {
    return cached<std::string>(key("mysql", Corpus::Prose, size), [&] {
        Bytes text = corpus(Corpus::Prose, size);
        std::string out;
        out.reserve(size + size / 8);
        for (char ch : *text) {
            switch (ch) {
                case '\'':
                case '"':
                case '\\':
                    out += '\\';
                    out += ch;
                    break;
                case '\n':
                    out += "\\n";
                    break;
                case '\r':
                    out += "\\r";
                    break;
                default:
                    out += ch;
            }
        }
        return cutTo(std::move(out), size, [](std::string_view s) {
            size_t slashes = 0;
            for (size_t i = s.size(); i > 0 && s[i - 1] == '\\'; --i) ++slashes;
            return slashes % 2 == 0;
        });
    });
}

Bytes plainLine(Corpus c, size_t size) {
    return cached<std::string>(key("plain", c, size), [&] {
        std::string s = *corpus(c, size);
        for (char& ch : s) {
            if (uint8_t(ch) < 32 || std::string_view("<>&\"'").find(ch) != std::string_view::npos) {
                ch = ' ';
            }
        }
        return s;
    });
}

namespace {

// Single-byte text of exactly `size` bytes from a corpus that needs a little more in UTF-8.
std::string singleByte(Corpus c, size_t size, uint8_t (*byteOf)(uint32_t)) {
    std::string out;
    for (size_t source = size + size / 8 + 64;; source += source / 8) {
        out.clear();
        for (uint32_t cp : toUTF32(*corpus(c, source))) out += char(byteOf(cp));
        if (out.size() >= size) break;
    }
    out.resize(size);
    return out;
}

uint8_t latin1Of(uint32_t cp) {
    return uint8_t(cp);
}

uint8_t cp1252Of(uint32_t cp) {
    static const std::pair<uint32_t, uint8_t> kExtras[] = {
        {0x20AC, 0x80}, {0x2026, 0x85}, {0x2030, 0x89}, {0x0160, 0x8A}, {0x0152, 0x8C},
        {0x017D, 0x8E}, {0x2018, 0x91}, {0x2019, 0x92}, {0x201C, 0x93}, {0x201D, 0x94},
        {0x2013, 0x96}, {0x2014, 0x97}, {0x2122, 0x99}, {0x201E, 0x84}, {0x0161, 0x9A},
        {0x0153, 0x9C}, {0x017E, 0x9E},
    };
    if (cp < 0x80 || (cp >= 0xA0 && cp < 0x100)) return uint8_t(cp);
    for (auto [from, to] : kExtras) {
        if (from == cp) return to;
    }
    return '?';
}

}  // namespace

Bytes latin1Bytes(size_t size) {
    return cached<std::string>(key("latin1", Corpus::Western, size),
                               [&] { return singleByte(Corpus::Western, size, latin1Of); });
}

Bytes cp1252Bytes(size_t size) {
    return cached<std::string>(key("cp1252", Corpus::Western1252, size),
                               [&] { return singleByte(Corpus::Western1252, size, cp1252Of); });
}

Units utf16(Corpus c, size_t size) {
    return cached<std::u16string>(key("utf16", c, size), [&] { return toUTF16(*corpus(c, size)); });
}

Units decomposedUTF16(Corpus c, size_t size) {
    return cached<std::u16string>(key("nfd16", c, size), [&] {
        Units text = utf16(c, size);
        auto d = kxt::decomposeUTF16(std::span<const uint16_t>(
            reinterpret_cast<const uint16_t*>(text->data()), text->size()));
        return std::u16string(d.begin(), d.end());
    });
}

Bytes decomposedUTF8(Corpus c, size_t size) {
    return cached<std::string>(key("nfd8", c, size),
                               [&] { return toUTF8(*decomposedUTF16(c, size)); });
}

Points utf32(Corpus c, size_t size) {
    return cached<std::vector<uint32_t>>(key("utf32", c, size),
                                         [&] { return toUTF32(*corpus(c, size)); });
}

std::vector<uint32_t> toUTF32(std::string_view s) {
    std::vector<uint32_t> out;
    out.reserve(s.size());
    for (size_t i = 0; i < s.size();) {
        const uint8_t b = uint8_t(s[i]);
        uint32_t cp;
        size_t n;
        if (b < 0x80) {
            cp = b, n = 1;
        } else if (b < 0xE0) {
            cp = b & 0x1F, n = 2;
        } else if (b < 0xF0) {
            cp = b & 0x0F, n = 3;
        } else {
            cp = b & 0x07, n = 4;
        }
        for (size_t k = 1; k < n && i + k < s.size(); ++k)
            cp = (cp << 6) | (uint8_t(s[i + k]) & 0x3F);
        out.push_back(cp);
        i += n;
    }
    return out;
}

std::u16string toUTF16(std::string_view s) {
    const std::vector<uint16_t> units = ref::utf16Of(toUTF32(s));
    return std::u16string(units.begin(), units.end());
}

std::string toUTF8(std::u16string_view s) {
    return ref::utf8Of(ref::codePointsOf(s));
}

std::pair<std::vector<uint32_t>, std::vector<uint32_t>> distanceOperands(size_t count) {
    std::vector<uint32_t> a = toUTF32(*corpus(Corpus::Multilingual, count * 4));
    a.resize(std::min(a.size(), count));
    Rng rng(42);
    std::vector<uint32_t> b = a;
    for (size_t k = 0; k < count / 10 && b.size() > 2; ++k) {
        const size_t pos = rng() % (b.size() - 1);
        switch (k % 4) {
            case 0:
                std::swap(b[pos], b[pos + 1]);
                break;
            case 1:
                b.insert(b.begin() + long(pos), a[rng() % a.size()]);
                break;
            case 2:
                b.erase(b.begin() + long(pos));
                break;
            default:
                b[pos] = a[rng() % a.size()];
        }
    }
    return {a, b};
}

}  // namespace bench
