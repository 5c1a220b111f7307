#include "sqlboolean.h"

#include <cstring>

#include "MyMemory.h"
#include "rbException.h"
#include "rbText.h"
#include "rbUtil.h"
#include "simd.h"

namespace kxt {

namespace {

bool isSeparator(char c) {
    return static_cast<signed char>(c) < 33 || c == '(' || c == ')' || c == ',' || c == ';';
}

// `word` in capitals; the text matches it with bit 0x20 cleared.
bool matchesWord(std::string_view sql, size_t p, std::string_view word) {
    for (size_t k = 0; k < word.size(); ++k) {
        if ((sql[p + k] & ~0x20) != word[k]) return false;
    }
    return isSeparator(sql[p + word.size()]);
}

}  // namespace

std::string sqlReplaceBooleanPlain(std::string_view sql) {
    std::string out;
    ReserveLarge(out, sql.size() + 10);
    bool inSingle = false, inDouble = false;
    int64_t tokenPos = 0;
    for (size_t p = 0; p < sql.size(); ++p) {
        const char c = sql[p];
        if (c == '\'' && !inDouble) inSingle = !inSingle;
        if (c == '"' && !inSingle) inDouble = !inDouble;
        if (isSeparator(c)) {
            tokenPos = 0;
            out += c;
            continue;
        }
        if (++tokenPos != 1 || inSingle || inDouble) {
            out += c;
            continue;
        }
        // Only with a byte after the separator that ends the word: a word among the last five
        // bytes stays as written.
        if (p + 5 < sql.size() && matchesWord(sql, p, "FALSE")) {
            out += '0';
            p += 4;
        } else if (p + 5 < sql.size() && matchesWord(sql, p, "TRUE")) {
            out += '1';
            p += 3;
        } else {
            out += c;
        }
        inSingle = inDouble = false;
        tokenPos = 1;
    }
    return out;
}

// The byte rule above, read as what it is: the text with some words replaced. A byte starts a
// token when it is the first or follows a separator (whatever the quotes), so the only bytes
// that matter are quotes and token starts with t or f; 16-byte blocks find them by masks, and
// everything between is copied at once.
RawBytes sqlReplaceBoolean(std::string_view sql) {
    using S = simd::Native;
    using V = S::V;
    const size_t n = sql.size();
    RawBytes out(n);
    char* w = out.data();
    const char* p = sql.data();
    bool inSingle = false, inDouble = false;
    size_t copied = 0;  // the input before this is written
    auto event = [&](size_t j) {
        const char c = p[j];
        if (c == '\'') {
            if (!inDouble) inSingle = !inSingle;
            return;
        }
        if (c == '"') {
            if (!inSingle) inDouble = !inDouble;
            return;
        }
        if (inSingle || inDouble) return;
        char digit;
        size_t length;
        if (j + 5 < n && matchesWord(sql, j, "FALSE")) {
            digit = '0';
            length = 5;
        } else if (j + 5 < n && matchesWord(sql, j, "TRUE")) {
            digit = '1';
            length = 4;
        } else {
            return;
        }
        std::memcpy(w, p + copied, j - copied);
        w += j - copied;
        *w++ = digit;
        copied = j + length;  // letters: no quote or token start among them
    };
    auto startsWord = [](char c) { return (c | 0x20) == 't' || (c | 0x20) == 'f'; };
    auto byteAt = [&](size_t i) {
        const char c = p[i];
        const bool start = i == 0 || isSeparator(p[i - 1]);
        if (c == '\'' || c == '"' || (start && startsWord(c))) event(i);
    };
    const V single = S::splat8('\''), dbl = S::splat8('"'), below33 = S::splat8(33),
            open = S::splat8('('), close = S::splat8(')'), comma = S::splat8(','),
            semicolon = S::splat8(';'), caseBit = S::splat8(0x20), t = S::splat8('t'),
            f = S::splat8('f');
    // The first byte has no byte before it for the block load.
    size_t i = 0;
    if (n > 0) byteAt(i++);
    for (; i + 16 <= n; i += 16) {
        const V x = S::load(p + i), before = S::load(p + i - 1);
        // Separators: below 33 as signed bytes (so 128 and more too) and ( ) , ;
        const V separated =
            S::or_(S::or_(S::lt8(before, below33), S::eq8(before, open)),
                   S::or_(S::eq8(before, close),
                          S::or_(S::eq8(before, comma), S::eq8(before, semicolon))));
        const V lower = S::or_(x, caseBit);
        const V starts = S::and_(separated, S::or_(S::eq8(lower, t), S::eq8(lower, f)));
        for (uint32_t mask = S::bits(S::or_(starts, S::or_(S::eq8(x, single), S::eq8(x, dbl))));
             mask != 0; mask &= mask - 1) {
            event(i + simd::lowestBit(mask));
        }
    }
    for (; i < n; ++i) byteAt(i);
    std::memcpy(w, p + copied, n - copied);
    w += n - copied;
    out.setSize(size_t(w - out.data()));
    return out;
}

}  // namespace kxt

REALstring SQLReplaceBooleanKXT(REALstring SQL) {
    return HandlerBoundary<REALstring>(nullptr, [&]() -> REALstring {
        if (!SQL) return nullptr;
        rbText text(SQL);
        // Read as a C string: the result ends at its first zero byte.
        const RawBytes out = kxt::sqlReplaceBoolean(text.utf8());
        const std::string_view bytes = out.view();
        return REALBuildUnicodeString(bytes.substr(0, bytes.find('\0')), kREALTextEncodingUTF8);
    });
}
