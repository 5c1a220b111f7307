#include "Regex.h"

namespace bench {

Regex::Regex(std::string_view pattern) {
    int error = 0;
    PCRE2_SIZE offset = 0;
    code_ = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(), 0, &error,
                          &offset, nullptr);
    if (code_ == nullptr) return;
    pcre2_jit_compile(code_, PCRE2_JIT_COMPLETE);  // falls back to the interpreter if refused
    match_ = pcre2_match_data_create_from_pattern(code_, nullptr);
}

Regex::~Regex() {
    pcre2_match_data_free(match_);
    pcre2_code_free(code_);
}

size_t Regex::find(std::string_view subject) const {
    const int rc = pcre2_match(code_, reinterpret_cast<PCRE2_SPTR>(subject.data()), subject.size(),
                               0, 0, match_, nullptr);
    return rc > 0 ? pcre2_get_ovector_pointer(match_)[0] : std::string_view::npos;
}

size_t Regex::replaceAll(std::string_view subject, std::string_view replacement,
                         std::string& out) const {
    if (out.size() < subject.size() + 1) out.resize(subject.size() + 1);
    PCRE2_SIZE size = out.size();
    const int rc =
        pcre2_substitute(code_, reinterpret_cast<PCRE2_SPTR>(subject.data()), subject.size(), 0,
                         PCRE2_SUBSTITUTE_GLOBAL | PCRE2_SUBSTITUTE_OVERFLOW_LENGTH, match_,
                         nullptr, reinterpret_cast<PCRE2_SPTR>(replacement.data()),
                         replacement.size(), reinterpret_cast<PCRE2_UCHAR*>(out.data()), &size);
    if (rc == PCRE2_ERROR_NOMEMORY) {
        out.resize(size);
        return replaceAll(subject, replacement, out);
    }
    return rc >= 0 ? size : 0;
}

}  // namespace bench
