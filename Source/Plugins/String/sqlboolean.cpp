#include "sqlboolean.h"

#include "MyMemory.h"
#include "rbException.h"
#include "rbText.h"
#include "rbUtil.h"

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

std::string sqlReplaceBoolean(std::string_view sql) {
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

}  // namespace kxt

REALstring SQLReplaceBooleanKXT(REALstring SQL) {
    return HandlerBoundary<REALstring>(nullptr, [&]() -> REALstring {
        if (!SQL) return nullptr;
        rbText text(SQL);
        // Built as a C string: the result ends at its first zero byte.
        return CString2RB(kxt::sqlReplaceBoolean(text.utf8()).c_str(), kREALTextEncodingUTF8);
    });
}
