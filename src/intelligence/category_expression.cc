#include "intelligence/category_expression.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <memory>

#include "platform/log.h"

namespace klipora::intelligence {
namespace {

struct MatchDataDeleter {
  void operator()(pcre2_match_data* data) const { pcre2_match_data_free(data); }
};

// Enough pairs for every expression of the rules (whole match + 4 groups).
constexpr uint32_t kMatchPairs = 8;

pcre2_match_data* ThreadMatchData() {
  thread_local std::unique_ptr<pcre2_match_data, MatchDataDeleter> data(
      pcre2_match_data_create(kMatchPairs, nullptr));
  return data.get();
}

}  // namespace

CategoryExpression::CategoryExpression(std::string_view pattern, Anchoring anchoring) {
  int error = 0;
  PCRE2_SIZE offset = 0;
  code_ = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(),
                        PCRE2_UTF | PCRE2_UCP | PCRE2_MATCH_INVALID_UTF |
                            (anchoring == Anchoring::anchored ? PCRE2_ANCHORED : 0u),
                        &error, &offset,
                        nullptr);
  if (code_ == nullptr) {
    PCRE2_UCHAR message[256];
    pcre2_get_error_message(error, message, sizeof message);
    log::error("Classify", "expression \"%.*s\" does not compile at %zu: %s",
               static_cast<int>(pattern.size()), pattern.data(), static_cast<size_t>(offset),
               reinterpret_cast<const char*>(message));
    return;
  }
  // Without JIT (an unsupported machine) the interpreter gives the same results.
  pcre2_jit_compile(code_, PCRE2_JIT_COMPLETE);
}

CategoryExpression::~CategoryExpression() { pcre2_code_free(code_); }

void CategoryExpression::visit(std::string_view text, size_t offset, Visitor visitor,
                               void* context) const {
  if (code_ == nullptr) return;
  pcre2_match_data* data = ThreadMatchData();
  if (data == nullptr) return;
  auto subject = reinterpret_cast<PCRE2_SPTR>(text.data());
  size_t start = offset;
  while (start <= text.size()) {
    int rc = pcre2_match(code_, subject, text.size(), start, 0, data, nullptr);
    if (rc < 0) return;  // no match, or a resource limit: nothing more is found
    const size_t* ovector = pcre2_get_ovector_pointer(data);
    int pairs = rc == 0 ? static_cast<int>(kMatchPairs) : rc;
    if (!visitor(context, ovector, pairs)) return;
    // None of the rules' expressions matches the empty string, but step past
    // one anyway rather than loop.
    start = ovector[1] > ovector[0] ? ovector[1] : ovector[0] + 1;
  }
}

size_t CategoryExpression::count(std::string_view text, size_t limit, size_t offset) const {
  size_t n = 0;
  if (limit == 0) return 0;
  auto counter = [&n, limit](const size_t*, int) { return ++n < limit; };
  visit(
      text, offset,
      [](void* context, const size_t* ovector, int pairs) {
        return (*static_cast<decltype(counter)*>(context))(ovector, pairs);
      },
      &counter);
  return n;
}

bool CategoryExpression::matchAt(std::string_view text, size_t offset, size_t* end) const {
  if (code_ == nullptr || offset > text.size()) return false;
  pcre2_match_data* data = ThreadMatchData();
  if (data == nullptr) return false;
  int rc = pcre2_match(code_, reinterpret_cast<PCRE2_SPTR>(text.data()), text.size(), offset, 0,
                       data, nullptr);
  if (rc < 0) return false;
  if (end != nullptr) *end = pcre2_get_ovector_pointer(data)[1];
  return true;
}

}  // namespace klipora::intelligence
