#include "Encodings.h"

#include <iconv.h>
#include <sys/mman.h>

#include <array>
#include <bit>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "XojoPluginABI.h"
#include "simd.h"

namespace xhost::encodings {

// The plugin's block operations, so that the host builds wherever the plugin does.
using S = kxt::simd::Native;

namespace {

#include "MacCodePages.inc"

enum class Kind {
    ASCII,
    UTF8,
    UTF16LE,
    UTF16BE,
    UTF32LE,
    UTF32BE,
    Latin1,
    Table,
    Iconv,
    HalfASCII
};

struct Entry {
    EncodingInfo info;
    Kind kind;
    const char* iconvName = nullptr;
    const char16_t* table = nullptr;
};

// UTF-16 and UTF-32 without an explicit byte order are in host order (little-endian) and carry
// no byte order mark. Mac Hebrew has no converter on this system: only its ASCII half is known.
const std::vector<Entry>& entries() {
    static const std::vector<Entry> table = {
        {{kREALTextEncodingUTF8, "UTF-8", "utf8 utf-8"}, Kind::UTF8},
        {{kREALTextEncodingUTF16, "UTF-16", "utf16 utf-16"}, Kind::UTF16LE},
        {{kREALTextEncodingUTF16BE, "UTF-16BE", "utf16be utf-16be"}, Kind::UTF16BE},
        {{kREALTextEncodingUTF16LE, "UTF-16LE", "utf16le utf-16le"}, Kind::UTF16LE},
        {{kREALTextEncodingUTF32, "UTF-32", "utf32 utf-32"}, Kind::UTF32LE},
        {{kREALTextEncodingUTF32BE, "UTF-32BE", "utf32be utf-32be"}, Kind::UTF32BE},
        {{kREALTextEncodingUTF32LE, "UTF-32LE", "utf32le utf-32le"}, Kind::UTF32LE},
        {{kREALTextEncodingASCII, "ASCII", "ascii"}, Kind::ASCII},
        {{kREALTextEncodingISOLatin1, "ISO Latin-1", "latin1 iso-8859-1 iso88591"}, Kind::Latin1},
        {{kREALTextEncodingWindowsLatin1, "Windows Latin-1", "cp1252 windows-1252"},
         Kind::Iconv,
         "CP1252"},
        {{kREALTextEncodingMacRoman, "Mac Roman", "macroman mac"}, Kind::Iconv, "MACINTOSH"},
        {{kREALTextEncodingDOSLatinUS, "DOS Latin US", "cp437"}, Kind::Iconv, "CP437"},
        {{kREALTextEncodingDOSLatin1, "DOS Latin 1", "cp850"}, Kind::Iconv, "CP850"},
        {{kREALTextEncodingDOSLatin2, "DOS Latin 2", "cp852"}, Kind::Iconv, "CP852"},
        {{kREALTextEncodingDOSPortuguese, "DOS Portuguese", "cp860"}, Kind::Iconv, "CP860"},
        {{kREALTextEncodingDOSHebrew, "DOS Hebrew", "cp862"}, Kind::Iconv, "CP862"},
        {{kREALTextEncodingDOSCanadianFrench, "DOS Canadian French", "cp863"},
         Kind::Iconv,
         "CP863"},
        {{kREALTextEncodingDOSArabic, "DOS Arabic", "cp864"}, Kind::Iconv, "CP864"},
        {{kREALTextEncodingDOSNordic, "DOS Nordic", "cp865"}, Kind::Iconv, "CP865"},
        {{kREALTextEncodingDOSRussian, "DOS Russian", "cp866"}, Kind::Iconv, "CP866"},
        {{kREALTextEncodingDOSThai, "DOS Thai", "cp874"}, Kind::Iconv, "CP874"},
        {{kREALTextEncodingDOSJapanese, "DOS Japanese", "cp932 shiftjis sjis"},
         Kind::Iconv,
         "CP932"},
        {{kREALTextEncodingDOSChineseSimplified, "DOS Simplified Chinese", "cp936 gbk"},
         Kind::Iconv,
         "GBK"},
        {{kREALTextEncodingDOSKorean, "DOS Korean", "cp949"}, Kind::Iconv, "CP949"},
        {{kREALTextEncodingDOSChineseTraditional, "DOS Traditional Chinese", "cp950 big5"},
         Kind::Iconv,
         "BIG5"},
        {{kREALTextEncodingWindowsLatin2, "Windows Latin 2", "cp1250 windows-1250"},
         Kind::Iconv,
         "CP1250"},
        {{kREALTextEncodingWindowsCyrillic, "Windows Cyrillic", "cp1251 windows-1251"},
         Kind::Iconv,
         "CP1251"},
        {{kREALTextEncodingWindowsGreek, "Windows Greek", "cp1253 windows-1253"},
         Kind::Iconv,
         "CP1253"},
        {{kREALTextEncodingWindowsLatin5, "Windows Latin 5", "cp1254 windows-1254"},
         Kind::Iconv,
         "CP1254"},
        {{kREALTextEncodingWindowsHebrew, "Windows Hebrew", "cp1255 windows-1255"},
         Kind::Iconv,
         "CP1255"},
        {{kREALTextEncodingWindowsArabic, "Windows Arabic", "cp1256 windows-1256"},
         Kind::Iconv,
         "CP1256"},
        {{kREALTextEncodingWindowsBalticRim, "Windows Baltic", "cp1257 windows-1257"},
         Kind::Iconv,
         "CP1257"},
        {{kREALTextEncodingWindowsVietnamese, "Windows Vietnamese", "cp1258 windows-1258"},
         Kind::Iconv,
         "CP1258"},
        {{kREALTextEncodingWindowsKoreanJohab, "Windows Korean Johab", "cp1361 johab"},
         Kind::Iconv,
         "JOHAB"},
        {{kREALTextEncodingMacJapanese, "Mac Japanese", "macjapanese"}, Kind::Iconv, "SHIFT_JIS"},
        {{kREALTextEncodingMacArabic, "Mac Arabic", "macarabic"}, Kind::Table, nullptr, kMacArabic},
        {{kREALTextEncodingMacHebrew, "Mac Hebrew", "machebrew"}, Kind::HalfASCII},
        {{kREALTextEncodingMacGreek, "Mac Greek", "macgreek"}, Kind::Table, nullptr, kMacGreek},
        {{kREALTextEncodingMacCyrillic, "Mac Cyrillic", "maccyrillic"},
         Kind::Iconv,
         "MAC-CYRILLIC"},
        {{kREALTextEncodingMacCentralEurRoman, "Mac Central European", "maccentraleurope"},
         Kind::Iconv,
         "MAC-CENTRALEUROPE"},
        {{kREALTextEncodingMacTurkish, "Mac Turkish", "macturkish"},
         Kind::Table,
         nullptr,
         kMacTurkish},
    };
    return table;
}

const Entry* find(uint32_t code) {
    for (const Entry& e : entries()) {
        if (e.info.code == code) return &e;
    }
    return nullptr;
}

bool isSurrogate(char32_t c) {
    return c >= 0xD800 && c <= 0xDFFF;
}

// The host's one UTF-8 decoding step: the strict sequence at p[i] (RFC 3629: no overlong
// forms, surrogates or values past U+10FFFF) into c; its length, or 0 when it is malformed or cut.
size_t utf8Sequence(const unsigned char* p, size_t n, size_t i, char32_t& c) {
    const unsigned char c0 = p[i];
    if (c0 < 0x80) {
        c = c0;
        return 1;
    }
    size_t extra;
    char32_t min;
    if (c0 >= 0xC2 && c0 <= 0xDF) {
        extra = 1, c = c0 & 0x1F, min = 0x80;
    } else if (c0 >= 0xE0 && c0 <= 0xEF) {
        extra = 2, c = c0 & 0x0F, min = 0x800;
    } else if (c0 >= 0xF0 && c0 <= 0xF4) {
        extra = 3, c = c0 & 0x07, min = 0x10000;
    } else {
        return 0;
    }
    if (i + extra >= n) return 0;
    for (size_t k = 1; k <= extra; ++k) {
        const unsigned char cc = p[i + k];
        if ((cc & 0xC0) != 0x80) return 0;
        c = c << 6 | (cc & 0x3F);
    }
    if (c < min || c > 0x10FFFF || isSurrogate(c)) return 0;
    return extra + 1;
}

// Decoders call sink(code point) for each character and return false on malformed input.
template <typename Sink>
bool eachUTF8(std::string_view b, Sink&& sink) {
    const auto* p = reinterpret_cast<const unsigned char*>(b.data());
    for (size_t i = 0, length; i < b.size(); i += length) {
        char32_t c;
        length = utf8Sequence(p, b.size(), i, c);
        if (length == 0) return false;
        sink(c);
    }
    return true;
}

template <typename Sink>
bool eachUTF16(std::string_view b, bool big, Sink&& sink) {
    if (b.size() % 2 != 0) return false;
    auto unit = [&](size_t i) -> char32_t {
        auto lo = static_cast<unsigned char>(b[i + (big ? 1 : 0)]);
        auto hi = static_cast<unsigned char>(b[i + (big ? 0 : 1)]);
        return static_cast<char32_t>(hi << 8 | lo);
    };
    for (size_t i = 0; i < b.size(); i += 2) {
        char32_t u = unit(i);
        if (u >= 0xD800 && u <= 0xDBFF) {
            if (i + 2 >= b.size()) return false;
            char32_t low = unit(i + 2);
            if (low < 0xDC00 || low > 0xDFFF) return false;
            sink(0x10000 + ((u - 0xD800) << 10) + (low - 0xDC00));
            i += 2;
        } else if (isSurrogate(u)) {
            return false;
        } else {
            sink(u);
        }
    }
    return true;
}

template <typename Sink>
bool eachUTF32(std::string_view b, bool big, Sink&& sink) {
    if (b.size() % 4 != 0) return false;
    for (size_t i = 0; i < b.size(); i += 4) {
        char32_t c = 0;
        for (size_t k = 0; k < 4; ++k) {
            auto byte = static_cast<unsigned char>(b[i + (big ? k : 3 - k)]);
            c = c << 8 | byte;
        }
        if (c > 0x10FFFF || isSurrogate(c)) return false;
        sink(c);
    }
    return true;
}

std::optional<std::u32string> decodeUTF32(std::string_view b, bool big) {
    std::u32string out;
    out.reserve(b.size() / 4);
    if (!eachUTF32(b, big, [&](char32_t c) { out.push_back(c); })) return std::nullopt;
    return out;
}

std::optional<std::u32string> decodeIconv(std::string_view bytes, const char* charset) {
    iconv_t cd = iconv_open("UTF-32LE", charset);
    if (cd == reinterpret_cast<iconv_t>(-1)) return std::nullopt;
    std::string out(bytes.size() * 4 + 16, '\0');
    char* in = const_cast<char*>(bytes.data());
    size_t inLeft = bytes.size();
    size_t used = 0;
    bool ok = true;
    while (ok) {
        char* dst = out.data() + used;
        size_t outLeft = out.size() - used;
        size_t r = iconv(cd, &in, &inLeft, &dst, &outLeft);
        used = out.size() - outLeft;
        if (r != static_cast<size_t>(-1)) {
            // Flush any shift state; a truncated multi-byte sequence is caught as EINVAL above.
            dst = out.data() + used;
            outLeft = out.size() - used;
            iconv(cd, nullptr, nullptr, &dst, &outLeft);
            used = out.size() - outLeft;
            break;
        }
        if (errno == E2BIG) {
            out.resize(out.size() * 2);
        } else {
            ok = false;
        }
    }
    iconv_close(cd);
    if (!ok) return std::nullopt;
    return decodeUTF32(std::string_view(out.data(), used), false);
}

// A single-byte code page read through iconv costs an iconv_open per string, which dominates
// short strings such as the runs of a styled text. Such a page is read through a table of its
// 256 bytes instead, once iconv itself has shown the table exact: every byte alone gives one
// code point or is refused outright (not taken as the start of a longer sequence), and every
// pair of accepted bytes gives the pair of their code points (no composition, no state).
constexpr char32_t kRefused = 0xFFFFFFFF;
using ByteTable = std::array<char32_t, 256>;

std::optional<ByteTable> exactByteTable(const char* charset) {
    iconv_t cd = iconv_open("UTF-32LE", charset);
    if (cd == reinterpret_cast<iconv_t>(-1)) return std::nullopt;
    ByteTable table;
    std::string accepted;
    bool singleBytes = true;
    for (unsigned b = 0; b < 256 && singleBytes; ++b) {
        char in = static_cast<char>(b);
        unsigned char out[16];
        char* src = &in;
        char* dst = reinterpret_cast<char*>(out);
        size_t inLeft = 1, outLeft = sizeof out;
        iconv(cd, nullptr, nullptr, nullptr, nullptr);
        if (iconv(cd, &src, &inLeft, &dst, &outLeft) == static_cast<size_t>(-1)) {
            table[b] = kRefused;
            singleBytes = errno == EILSEQ;
            continue;
        }
        iconv(cd, nullptr, nullptr, &dst, &outLeft);
        singleBytes = sizeof out - outLeft == 4;
        table[b] = char32_t(out[0]) | char32_t(out[1]) << 8 | char32_t(out[2]) << 16 |
                   char32_t(out[3]) << 24;
        accepted += static_cast<char>(b);
    }
    iconv_close(cd);
    if (!singleBytes) return std::nullopt;
    std::string pairs;
    std::u32string expected;
    for (char a : accepted) {
        for (char b : accepted) {
            pairs += {a, b};
            expected +=
                {table[static_cast<unsigned char>(a)], table[static_cast<unsigned char>(b)]};
        }
    }
    if (decodeIconv(pairs, charset) != expected) return std::nullopt;
    return table;
}

// The exact table of an iconv code page, or null; made on first use. Never freed: a host
// destroyed at exit may still convert.
const ByteTable* byteTableOf(const Entry& e) {
    static const size_t count = entries().size();
    static auto* const once = new std::once_flag[count];
    static auto* const tables = new std::optional<ByteTable>[count];
    const auto i = static_cast<size_t>(&e - entries().data());
    std::call_once(once[i], [&] { tables[i] = exactByteTable(e.iconvName); });
    return tables[i] ? &*tables[i] : nullptr;
}

std::string encodeIconv(std::u32string_view text, const char* charset) {
    std::string out;
    iconv_t cd = iconv_open(charset, "UTF-32LE");
    if (cd == reinterpret_cast<iconv_t>(-1)) return std::string(text.size(), '?');
    std::string in(text.size() * 4, '\0');
    for (size_t i = 0; i < text.size(); ++i) {
        char32_t c = text[i];
        for (size_t k = 0; k < 4; ++k) in[i * 4 + k] = static_cast<char>((c >> (8 * k)) & 0xFF);
    }
    out.resize(text.size() * 2 + 16);
    char* src = in.data();
    size_t inLeft = in.size();
    size_t used = 0;
    while (true) {
        char* dst = out.data() + used;
        size_t outLeft = out.size() - used;
        size_t r = iconv(cd, &src, &inLeft, &dst, &outLeft);
        used = out.size() - outLeft;
        if (r != static_cast<size_t>(-1)) {
            dst = out.data() + used;
            outLeft = out.size() - used;
            if (iconv(cd, nullptr, nullptr, &dst, &outLeft) == static_cast<size_t>(-1) &&
                errno == E2BIG) {
                out.resize(out.size() + 64);
                continue;
            }
            used = out.size() - outLeft;
            break;
        }
        if (errno == E2BIG) {
            out.resize(out.size() * 2 + 16);
        } else if (inLeft >= 4) {
            // Not representable in the target: substitute and go on with the next code point.
            if (used == out.size()) out.resize(out.size() * 2 + 16);
            out[used++] = '?';
            src += 4;
            inLeft -= 4;
        } else {
            break;
        }
    }
    iconv_close(cd);
    out.resize(used);
    return out;
}

void appendUTF8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out.push_back(static_cast<char>(c));
    } else if (c < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (c >> 6)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (c >> 12)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (c >> 18)));
        out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
}

void appendUnit16(std::string& out, char32_t u, bool big) {
    char hi = static_cast<char>((u >> 8) & 0xFF), lo = static_cast<char>(u & 0xFF);
    if (big) {
        out.push_back(hi);
        out.push_back(lo);
    } else {
        out.push_back(lo);
        out.push_back(hi);
    }
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        auto x = static_cast<unsigned char>(a[i]), y = static_cast<unsigned char>(b[i]);
        if (std::tolower(x) != std::tolower(y)) return false;
    }
    return true;
}

}  // namespace

const std::vector<EncodingInfo>& all() {
    static const std::vector<EncodingInfo> infos = [] {
        std::vector<EncodingInfo> v;
        for (const Entry& e : entries()) v.push_back(e.info);
        return v;
    }();
    return infos;
}

bool isKnown(uint32_t code) {
    return find(code) != nullptr;
}

std::string nameOf(uint32_t code) {
    if (code == kREALTextEncodingUnknown) return "none";
    if (const Entry* e = find(code)) return e->info.name;
    char buf[40];
    std::snprintf(buf, sizeof buf, "unknown (0x%X)", code);
    return buf;
}

std::optional<uint32_t> byName(std::string_view name) {
    if (equalsIgnoringCase(name, "none") || equalsIgnoringCase(name, "raw")) {
        return kREALTextEncodingUnknown;
    }
    for (const Entry& e : entries()) {
        if (equalsIgnoringCase(name, e.info.name)) return e.info.code;
        std::string_view aliases = e.info.aliases;
        while (!aliases.empty()) {
            size_t blank = aliases.find(' ');
            if (equalsIgnoringCase(name, aliases.substr(0, blank))) return e.info.code;
            if (blank == std::string_view::npos) break;
            aliases.remove_prefix(blank + 1);
        }
    }
    return std::nullopt;
}

namespace {

template <typename Sink>
bool forEachCodePoint(const Entry& e, std::string_view bytes, Sink&& sink) {
    switch (e.kind) {
        case Kind::UTF8:
            return eachUTF8(bytes, sink);
        case Kind::UTF16LE:
        case Kind::UTF16BE:
            return eachUTF16(bytes, e.kind == Kind::UTF16BE, sink);
        case Kind::UTF32LE:
        case Kind::UTF32BE:
            return eachUTF32(bytes, e.kind == Kind::UTF32BE, sink);
        case Kind::Iconv: {
            if (const ByteTable* table = byteTableOf(e)) {
                for (char ch : bytes) {
                    const char32_t c = (*table)[static_cast<unsigned char>(ch)];
                    if (c == kRefused) return false;
                    sink(c);
                }
                return true;
            }
            auto points = decodeIconv(bytes, e.iconvName);
            if (!points) return false;
            for (char32_t c : *points) sink(c);
            return true;
        }
        case Kind::ASCII:
        case Kind::HalfASCII:
        case Kind::Latin1:
        case Kind::Table:
            for (char ch : bytes) {
                auto c = static_cast<unsigned char>(ch);
                if (c < 0x80 || e.kind == Kind::Latin1) {
                    sink(static_cast<char32_t>(c));
                } else if (e.kind == Kind::Table) {
                    sink(static_cast<char32_t>(e.table[c - 0x80]));
                } else {
                    return false;
                }
            }
            return true;
    }
    return false;
}

// Appends code points in an encoding that needs no iconv; unrepresentable ones become "?".
struct Appender {
    const Entry& e;
    std::string& out;

    void operator()(char32_t c) {
        switch (e.kind) {
            case Kind::UTF8:
                appendUTF8(out, c > 0x10FFFF || isSurrogate(c) ? U'?' : c);
                return;
            case Kind::UTF16LE:
            case Kind::UTF16BE: {
                bool big = e.kind == Kind::UTF16BE;
                if (c > 0x10FFFF || isSurrogate(c)) c = U'?';
                if (c >= 0x10000) {
                    appendUnit16(out, 0xD800 + ((c - 0x10000) >> 10), big);
                    appendUnit16(out, 0xDC00 + ((c - 0x10000) & 0x3FF), big);
                } else {
                    appendUnit16(out, c, big);
                }
                return;
            }
            case Kind::UTF32LE:
            case Kind::UTF32BE: {
                bool big = e.kind == Kind::UTF32BE;
                if (c > 0x10FFFF || isSurrogate(c)) c = U'?';
                for (int k = 0; k < 4; ++k) {
                    int shift = big ? 8 * (3 - k) : 8 * k;
                    out.push_back(static_cast<char>((c >> shift) & 0xFF));
                }
                return;
            }
            default: {
                char b = '?';
                if (c < 0x80 || (c < 0x100 && e.kind == Kind::Latin1)) {
                    b = static_cast<char>(c);
                } else if (e.kind == Kind::Table) {
                    for (int k = 0; k < 128; ++k) {
                        if (e.table[k] == c) {
                            b = static_cast<char>(0x80 + k);
                            break;
                        }
                    }
                }
                out.push_back(b);
                return;
            }
        }
    }
};

}  // namespace

std::optional<std::u32string> fromUTF8(std::string_view b) {
    std::u32string out;
    out.reserve(b.size());
    if (!eachUTF8(b, [&](char32_t c) { out.push_back(c); })) return std::nullopt;
    return out;
}

std::string toUTF8(std::u32string_view text) {
    std::string out;
    out.reserve(text.size());
    for (char32_t c : text) appendUTF8(out, c > 0x10FFFF || isSurrogate(c) ? U'?' : c);
    return out;
}

std::optional<std::u32string> decode(std::string_view bytes, uint32_t encoding) {
    const Entry* e = find(encoding);
    if (e == nullptr) return std::nullopt;
    std::u32string out;
    out.reserve(bytes.size());
    if (!forEachCodePoint(*e, bytes, [&](char32_t c) { out.push_back(c); })) return std::nullopt;
    return out;
}

bool readByTable(uint32_t encoding) {
    const Entry* e = find(encoding);
    return e != nullptr && e->kind == Kind::Iconv && byteTableOf(*e) != nullptr;
}

std::optional<std::u32string> decodeWithIconv(std::string_view bytes, uint32_t encoding) {
    const Entry* e = find(encoding);
    if (e == nullptr || e->kind != Kind::Iconv) return std::nullopt;
    return decodeIconv(bytes, e->iconvName);
}

std::string encode(std::u32string_view text, uint32_t encoding) {
    const Entry* e = find(encoding);
    if (e == nullptr) return std::string(text.size(), '?');
    if (e->kind == Kind::Iconv) return encodeIconv(text, e->iconvName);
    std::string out;
    out.reserve(text.size());
    Appender append{*e, out};
    for (char32_t c : text) append(c);
    return out;
}

namespace {

// Direct conversions between the Unicode forms the plugin asks for most (UTF-8 text read as
// UTF-16 or UTF-32, and UTF-16 or UTF-32 results made UTF-8), without the code point string in
// between. They accept and refuse exactly what decode does, and give what encode gives.

constexpr size_t kHugePage = size_t(2) << 20;

// A string of exactly n bytes for the result (sized by a counting pass, so nothing beyond it is
// touched), on transparent huge pages when large (see allocateBlock).
std::string resultBuffer(size_t n) {
    std::string out;
    out.reserve(n);
    if (n >= 2 * kHugePage) {
        const uintptr_t p = reinterpret_cast<uintptr_t>(out.data());
        const uintptr_t begin = (p + kHugePage - 1) & ~(kHugePage - 1);
        const uintptr_t end = (p + n) & ~(kHugePage - 1);
        if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
    }
    out.resize(n);
    return out;
}

// Calls unit(code point) for each character of strict UTF-8; false on malformed input. ASCII is
// passed on sixteen bytes at a time through ascii16(bytes). The whole text is checked at once by
// the SIMD layer's block validator (it accepts exactly the sequences utf8Sequence does); each
// sequence is then read unchecked.
template <typename Unit, typename Ascii16>
bool walkUTF8(std::string_view b, Unit unit, Ascii16 ascii16) {
    const auto* p = reinterpret_cast<const unsigned char*>(b.data());
    const size_t n = b.size();
    if (!kxt::simd::wellFormedUTF8(p, n, kxt::simd::bestUTF8Kernel())) return false;
    size_t i = 0;
    while (i < n) {
        if (i + 16 <= n) {
            const S::V x = S::load(p + i);
            if (!S::any(x)) {
                ascii16(x);
                i += 16;
                continue;
            }
        }
        const char32_t c0 = p[i];
        if (c0 < 0x80) {
            unit(c0);
            i += 1;
        } else if (c0 < 0xE0) {
            unit((c0 & 0x1F) << 6 | (p[i + 1] & 0x3Fu));
            i += 2;
        } else if (c0 < 0xF0) {
            unit((c0 & 0x0F) << 12 | (p[i + 1] & 0x3Fu) << 6 | (p[i + 2] & 0x3Fu));
            i += 3;
        } else {
            unit((c0 & 0x07) << 18 | (p[i + 1] & 0x3Fu) << 12 | (p[i + 2] & 0x3Fu) << 6 |
                 (p[i + 3] & 0x3Fu));
            i += 4;
        }
    }
    return true;
}

// Units a UTF-8 text needs in UTF-16: one per lead byte, two for four-byte leads (malformed
// text is refused before anything is written).
size_t utf16UnitsOf(std::string_view b) {
    size_t units = 0;
    for (const char ch : b) {
        const auto c = static_cast<unsigned char>(ch);
        units += size_t((c & 0xC0) != 0x80) + size_t(c >= 0xF0);
    }
    return units;
}

std::optional<std::string> utf8ToUTF16LE(std::string_view b) {
    std::string out = resultBuffer(utf16UnitsOf(b) * 2);
    auto* w = reinterpret_cast<unsigned char*>(out.data());
    auto put = [&](char32_t u) {
        *w++ = static_cast<unsigned char>(u & 0xFF);
        *w++ = static_cast<unsigned char>(u >> 8);
    };
    const bool ok = walkUTF8(
        b,
        [&](char32_t c) {
            if (c >= 0x10000) {
                put(0xD800 + ((c - 0x10000) >> 10));
                put(0xDC00 + ((c - 0x10000) & 0x3FF));
            } else {
                put(c);
            }
        },
        [&](S::V x) {
            kxt::simd::widenBlock(x, reinterpret_cast<uint16_t*>(w));
            w += 32;
        });
    if (!ok) return std::nullopt;
    out.resize(size_t(w - reinterpret_cast<unsigned char*>(out.data())));
    return out;
}

std::optional<std::string> utf8ToUTF32LE(std::string_view b) {
    size_t points = 0;  // one per lead byte
    for (const char ch : b) points += (static_cast<unsigned char>(ch) & 0xC0) != 0x80;
    std::string out = resultBuffer(points * 4);
    auto* w = reinterpret_cast<unsigned char*>(out.data());
    auto put = [&](char32_t c) {
        w[0] = static_cast<unsigned char>(c & 0xFF);
        w[1] = static_cast<unsigned char>((c >> 8) & 0xFF);
        w[2] = static_cast<unsigned char>((c >> 16) & 0xFF);
        w[3] = 0;
        w += 4;
    };
    const bool ok = walkUTF8(b, put, [&](S::V x) {
        kxt::simd::widenBlock(x, reinterpret_cast<uint32_t*>(w));
        w += 64;
    });
    if (!ok) return std::nullopt;
    out.resize(size_t(w - reinterpret_cast<unsigned char*>(out.data())));
    return out;
}

// UTF-8 of code point c (valid: no surrogate, at most U+10FFFF) at w; returns the end.
unsigned char* putUTF8(unsigned char* w, char32_t c) {
    if (c < 0x80) {
        *w++ = static_cast<unsigned char>(c);
    } else if (c < 0x800) {
        *w++ = static_cast<unsigned char>(0xC0 | (c >> 6));
        *w++ = static_cast<unsigned char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        *w++ = static_cast<unsigned char>(0xE0 | (c >> 12));
        *w++ = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
        *w++ = static_cast<unsigned char>(0x80 | (c & 0x3F));
    } else {
        *w++ = static_cast<unsigned char>(0xF0 | (c >> 18));
        *w++ = static_cast<unsigned char>(0x80 | ((c >> 12) & 0x3F));
        *w++ = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
        *w++ = static_cast<unsigned char>(0x80 | (c & 0x3F));
    }
    return w;
}

std::optional<std::string> utf16LEToUTF8(std::string_view b) {
    if (b.size() % 2 != 0) return std::nullopt;
    const auto* p = reinterpret_cast<const unsigned char*>(b.data());
    const size_t units = b.size() / 2;
    // Bytes per unit: 1, 2 or 3, and 2 for each half of a surrogate pair (4 for the pair).
    size_t bytes = 0, i = 0;
    // Eight units a step: one byte each, one more from 0x80, one more again from 0x800 outside
    // the surrogates (two bits of a lane mask per unit).
    for (; i + 8 <= units; i += 8) {
        const S::V x = S::load(p + 2 * i);
        const S::V below80 = S::eq16(S::subSat16(x, S::splat16(0x7F)), S::zero());
        const S::V below800 = S::eq16(S::subSat16(x, S::splat16(0x7FF)), S::zero());
        const S::V surrogate = S::eq16(S::and_(x, S::splat16(0xF800)), S::splat16(0xD800));
        const uint32_t from80 = ~S::bits(below80) & 0xFFFF;
        const uint32_t three = ~S::bits(S::or_(below800, surrogate)) & 0xFFFF;
        bytes += 8 + size_t(std::popcount(from80) + std::popcount(three)) / 2;
    }
    for (; i < units; ++i) {
        const unsigned u = p[2 * i] | unsigned(p[2 * i + 1]) << 8;
        bytes += u < 0x80 ? 1 : u < 0x800 || (u >= 0xD800 && u <= 0xDFFF) ? 2 : 3;
    }
    std::string out = resultBuffer(bytes);
    auto* w = reinterpret_cast<unsigned char*>(out.data());
    i = 0;
    while (i < units) {
        // Eight ASCII units at a time.
        if (i + 8 <= units) {
            const S::V x = S::load(p + 2 * i);
            if (S::all(S::eq16(S::and_(x, S::splat16(0xFF80)), S::zero()))) {
                kxt::simd::narrowBlock(x, w);
                w += 8;
                i += 8;
                continue;
            }
        }
        const char32_t u = char32_t(p[2 * i] | p[2 * i + 1] << 8);
        if (u >= 0xD800 && u <= 0xDBFF) {
            if (i + 1 >= units) return std::nullopt;
            const char32_t low = char32_t(p[2 * i + 2] | p[2 * i + 3] << 8);
            if (low < 0xDC00 || low > 0xDFFF) return std::nullopt;
            w = putUTF8(w, 0x10000 + ((u - 0xD800) << 10) + (low - 0xDC00));
            i += 2;
        } else if (isSurrogate(u)) {
            return std::nullopt;
        } else {
            w = putUTF8(w, u);
            ++i;
        }
    }
    out.resize(size_t(w - reinterpret_cast<unsigned char*>(out.data())));
    return out;
}

std::optional<std::string> utf32LEToUTF8(std::string_view b) {
    if (b.size() % 4 != 0) return std::nullopt;
    const auto* p = reinterpret_cast<const unsigned char*>(b.data());
    size_t bytes = 0;  // invalid code points stop the conversion before they are written
    for (size_t i = 0; i < b.size(); i += 4) {
        const uint32_t c = uint32_t(p[i]) | uint32_t(p[i + 1]) << 8 | uint32_t(p[i + 2]) << 16 |
                           uint32_t(p[i + 3]) << 24;
        bytes += c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
    }
    std::string out = resultBuffer(bytes);
    auto* w = reinterpret_cast<unsigned char*>(out.data());
    for (size_t i = 0; i < b.size(); i += 4) {
        const char32_t c = char32_t(p[i]) | char32_t(p[i + 1]) << 8 | char32_t(p[i + 2]) << 16 |
                           char32_t(p[i + 3]) << 24;
        if (c > 0x10FFFF || isSurrogate(c)) return std::nullopt;
        w = putUTF8(w, c);
    }
    out.resize(size_t(w - reinterpret_cast<unsigned char*>(out.data())));
    return out;
}

bool isUTF16LE(uint32_t e) {
    return e == kREALTextEncodingUTF16 || e == kREALTextEncodingUTF16LE;
}
bool isUTF32LE(uint32_t e) {
    return e == kREALTextEncodingUTF32 || e == kREALTextEncodingUTF32LE;
}

}  // namespace

std::optional<std::string> convert(std::string_view bytes, uint32_t from, uint32_t to) {
    if (from == to || from == kREALTextEncodingUnknown) return std::string(bytes);
    if (from == kREALTextEncodingUTF8 && isUTF16LE(to)) return utf8ToUTF16LE(bytes);
    if (from == kREALTextEncodingUTF8 && isUTF32LE(to)) return utf8ToUTF32LE(bytes);
    if (isUTF16LE(from) && to == kREALTextEncodingUTF8) return utf16LEToUTF8(bytes);
    if (isUTF32LE(from) && to == kREALTextEncodingUTF8) return utf32LEToUTF8(bytes);
    const Entry* source = find(from);
    if (source == nullptr) return std::nullopt;
    if (to == kREALTextEncodingUnknown) {
        // Dropping the encoding keeps the bytes, once they are known to be valid.
        if (!forEachCodePoint(*source, bytes, [](char32_t) {})) return std::nullopt;
        return std::string(bytes);
    }
    const Entry* target = find(to);
    if (target == nullptr || target->kind == Kind::Iconv) {
        auto points = decode(bytes, from);
        if (!points) return std::nullopt;
        return encode(*points, to);
    }
    // Straight from one form into the other, without a code point buffer in between.
    std::string out;
    out.reserve(bytes.size() + bytes.size() / 2);
    Appender append{*target, out};
    if (!forEachCodePoint(*source, bytes, append)) return std::nullopt;
    return out;
}

int64_t characterCount(std::string_view bytes, uint32_t encoding) {
    const Entry* e = encoding == kREALTextEncodingUnknown ? nullptr : find(encoding);
    if (e == nullptr) return static_cast<int64_t>(bytes.size());
    switch (e->kind) {
        case Kind::UTF8: {
            int64_t n = 0;
            for (char c : bytes) n += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
            return n;
        }
        case Kind::UTF16LE:
        case Kind::UTF16BE: {
            bool big = e->kind == Kind::UTF16BE;
            int64_t n = 0;
            size_t units = bytes.size() / 2;
            for (size_t i = 0; i < units; ++i) {
                auto hi = static_cast<unsigned char>(bytes[2 * i + (big ? 0 : 1)]);
                bool lowSurrogate = hi >= 0xDC && hi <= 0xDF;
                bool afterHigh = false;
                if (i > 0) {
                    auto prev = static_cast<unsigned char>(bytes[2 * (i - 1) + (big ? 0 : 1)]);
                    afterHigh = prev >= 0xD8 && prev <= 0xDB;
                }
                n += !(lowSurrogate && afterHigh);
            }
            return n + static_cast<int64_t>(bytes.size() % 2);
        }
        case Kind::UTF32LE:
        case Kind::UTF32BE:
            return static_cast<int64_t>((bytes.size() + 3) / 4);
        case Kind::Iconv: {
            // One character per byte, refused bytes included.
            if (byteTableOf(*e) != nullptr) return static_cast<int64_t>(bytes.size());
            auto points = decodeIconv(bytes, e->iconvName);
            return points ? static_cast<int64_t>(points->size())
                          : static_cast<int64_t>(bytes.size());
        }
        default:
            return static_cast<int64_t>(bytes.size());
    }
}

}  // namespace xhost::encodings
