// CategoryExpression: one regular expression of the category rules, compiled
// once with PCRE2 (UTF and Unicode properties, JIT where the machine has it).
// Text that is not valid UTF-8 is searched all the same: an invalid sequence
// never matches and acts as a barrier that no match crosses.
//
// An anchored expression matches only where it is tried (matchAt). The rules
// use that where a cheap byte scan finds every place a match can start: a
// few anchored attempts cost far less than running the expression over the
// whole text, and find the same matches.
//
// Thread rules: immutable after construction; searches may run on any number
// of threads at once (each thread keeps its own match data).
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>

struct pcre2_real_code_8;

namespace klipora::intelligence {

class CategoryExpression {
 public:
  enum class Anchoring { scan, anchored };

  // An expression that does not compile is logged and never matches; the
  // patterns are constants, and their tests compile every one.
  explicit CategoryExpression(std::string_view pattern, Anchoring anchoring = Anchoring::scan);
  ~CategoryExpression();
  CategoryExpression(const CategoryExpression&) = delete;
  CategoryExpression& operator=(const CategoryExpression&) = delete;

  bool valid() const { return code_ != nullptr; }

  // Non-overlapping matches from `offset` on, left to right, at most `limit`.
  size_t count(std::string_view text, size_t limit = std::numeric_limits<size_t>::max(),
               size_t offset = 0) const;
  bool search(std::string_view text) const { return count(text, 1) > 0; }

  // The first match at or after `offset` (at `offset` exactly when anchored);
  // stores its end in *end. Characters before `offset` still count for \b
  // and look-behind.
  bool matchAt(std::string_view text, size_t offset, size_t* end = nullptr) const;

  // Calls onMatch(ovector, pairs) for each match until it returns false.
  // ovector[2*i], ovector[2*i+1] bound group i (PCRE2_UNSET when unset).
  template <typename OnMatch>
  void forEachMatch(std::string_view text, OnMatch&& onMatch) const {
    visit(
        text, 0,
        [](void* context, const size_t* ovector, int pairs) {
          return (*static_cast<std::remove_reference_t<OnMatch>*>(context))(ovector, pairs);
        },
        &onMatch);
  }

 private:
  using Visitor = bool (*)(void* context, const size_t* ovector, int pairs);
  void visit(std::string_view text, size_t offset, Visitor visitor, void* context) const;

  pcre2_real_code_8* code_ = nullptr;
};

}  // namespace klipora::intelligence
