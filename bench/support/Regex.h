// PCRE2 with its JIT compiler: what a Xojo user would write instead of a search or clean-up
// method (Xojo's RegEx is PCRE-based). An anchor for the benchmarks only.
#pragma once

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <string>
#include <string_view>

namespace bench {

class Regex {
  public:
    explicit Regex(std::string_view pattern);
    ~Regex();
    Regex(const Regex&) = delete;
    Regex& operator=(const Regex&) = delete;

    bool ok() const { return code_ != nullptr; }
    // The offset of the first match, or std::string_view::npos.
    size_t find(std::string_view subject) const;
    // Every match replaced by `replacement` into `out` (kept between calls, so only the first
    // call of a size maps memory); the size of the result, or 0 when PCRE2 fails.
    size_t replaceAll(std::string_view subject, std::string_view replacement,
                      std::string& out) const;

  private:
    pcre2_code* code_ = nullptr;
    pcre2_match_data* match_ = nullptr;
};

}  // namespace bench
