// The patterns that find sensitive text: sixteen (kind, expression) entries in
// a fixed order, each compiled once on first use with PCRE2 as a
// case-insensitive expression (UTF, Unicode properties, JIT where the machine
// has it). An entry whose expression does not compile is logged and skipped.
//
// Thread rules: the table is built once (thread-safe static); matching may run
// on any number of threads at once.
#pragma once

#include <cstddef>
#include <functional>
#include <string_view>
#include <vector>

#include "markup/redact/markup_auto_redactor.h"

struct pcre2_real_code_8;

namespace klipora::markup {

class RedactionPattern {
 public:
  RedactionPattern(MarkupAutoRedactor::Kind kind, std::string_view expression);
  ~RedactionPattern();
  RedactionPattern(RedactionPattern&& other) noexcept;
  RedactionPattern(const RedactionPattern&) = delete;
  RedactionPattern& operator=(const RedactionPattern&) = delete;
  RedactionPattern& operator=(RedactionPattern&&) = delete;

  MarkupAutoRedactor::Kind kind() const { return kind_; }
  bool valid() const { return code_ != nullptr; }
  // Calls onMatch(begin, end) with the byte range of each non-overlapping
  // match, left to right. Text that is not valid UTF-8 is searched all the
  // same; an invalid sequence never matches.
  void forEachMatch(std::string_view text,
                    const std::function<void(size_t begin, size_t end)>& onMatch) const;

 private:
  MarkupAutoRedactor::Kind kind_;
  pcre2_real_code_8* code_ = nullptr;
};

// The table's expressions as written, in order (the tests compile each).
struct RedactionPatternSource {
  MarkupAutoRedactor::Kind kind;
  const char* expression;
};
const std::vector<RedactionPatternSource>& redactionPatternSources();

// The compiled table, without the entries that failed to compile.
const std::vector<RedactionPattern>& redactionPatterns();

}  // namespace klipora::markup
