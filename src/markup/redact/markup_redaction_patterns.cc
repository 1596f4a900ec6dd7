#include "markup/redact/markup_redaction_patterns.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <memory>

#include "platform/log.h"

namespace klipora::markup {
namespace {

using Kind = MarkupAutoRedactor::Kind;

struct MatchDataDeleter {
  void operator()(pcre2_match_data* data) const { pcre2_match_data_free(data); }
};

pcre2_match_data* ThreadMatchData() {
  thread_local std::unique_ptr<pcre2_match_data, MatchDataDeleter> data(
      pcre2_match_data_create(1, nullptr));
  return data.get();
}

}  // namespace

const std::vector<RedactionPatternSource>& redactionPatternSources() {
  static const std::vector<RedactionPatternSource> sources = {
      {Kind::email, R"(\b[A-Z0-9._%+-]{1,64}@[A-Z0-9.-]{1,253}\.[A-Z]{2,24}\b)"},
      {Kind::phone, R"((?:\+?\d{1,3}[\s.-]?)?(?:\(?\d{2,4}\)?[\s.-]?){2,4}\d{2,4})"},
      {Kind::creditCard, R"(\b(?:\d[ -]?){12,18}\d\b)"},
      {Kind::ipv4, R"(\b(?:(?:25[0-5]|2[0-4]\d|1?\d?\d)\.){3}(?:25[0-5]|2[0-4]\d|1?\d?\d)\b)"},
      {Kind::ipv6, R"(\b(?:[A-F0-9]{1,4}:){2,7}[A-F0-9]{1,4}\b)"},
      {Kind::awsAccessKey, R"(\b(?:AKIA|ASIA)[A-Z0-9]{16}\b)"},
      {Kind::jwt, R"(\beyJ[A-Za-z0-9_-]{10,}\.[A-Za-z0-9_-]{10,}\.[A-Za-z0-9_-]{10,}\b)"},
      {Kind::githubToken, R"(\b(?:ghp|gho|ghu|ghs|ghr|github_pat)_[A-Za-z0-9_]{20,}\b)"},
      {Kind::slackToken, R"(\bxox[abprs]-[A-Za-z0-9-]{10,}\b)"},
      {Kind::apiKey, R"(\b(?:cfut|cfat|cfk)_[A-Za-z0-9_-]{20,})"},
      {Kind::apiKey, R"(\bsk-(?:proj-|ant-|svcacct-)?[A-Za-z0-9_-]{20,})"},
      {Kind::apiKey, R"(\b(?:sk|pk|rk)_(?:live|test)_[A-Za-z0-9]{16,})"},
      {Kind::apiKey, R"(\bAIza[0-9A-Za-z_-]{35})"},
      {Kind::apiKey,
       R"(\b(?:glpat-|glptt-|npm_|hf_|shpat_|shpss_|dop_v1_|pypi-)[A-Za-z0-9_-]{20,})"},
      {Kind::apiKey, R"(\bSG\.[A-Za-z0-9_-]{16,}\.[A-Za-z0-9_-]{16,})"},
      {Kind::secret,
       R"(\b(?=[A-Z0-9_-]{0,255}\d)(?=[A-Z0-9_-]{0,255}[A-Z])[A-Z0-9_-]{32,256}\b)"},
  };
  return sources;
}

const std::vector<RedactionPattern>& redactionPatterns() {
  static const std::vector<RedactionPattern> patterns = [] {
    std::vector<RedactionPattern> compiled;
    for (const RedactionPatternSource& source : redactionPatternSources()) {
      RedactionPattern pattern(source.kind, source.expression);
      if (pattern.valid()) compiled.push_back(std::move(pattern));
    }
    return compiled;
  }();
  return patterns;
}

RedactionPattern::RedactionPattern(Kind kind, std::string_view expression) : kind_(kind) {
  int error = 0;
  PCRE2_SIZE offset = 0;
  code_ = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(expression.data()), expression.size(),
                        PCRE2_CASELESS | PCRE2_UTF | PCRE2_UCP | PCRE2_MATCH_INVALID_UTF, &error,
                        &offset, nullptr);
  if (code_ == nullptr) {
    PCRE2_UCHAR message[256];
    pcre2_get_error_message(error, message, sizeof message);
    log::error("Markup", "redaction pattern \"%.*s\" does not compile at %zu: %s",
               static_cast<int>(expression.size()), expression.data(),
               static_cast<size_t>(offset), reinterpret_cast<const char*>(message));
    return;
  }
  // Without JIT (an unsupported machine) the interpreter gives the same results.
  pcre2_jit_compile(code_, PCRE2_JIT_COMPLETE);
}

RedactionPattern::RedactionPattern(RedactionPattern&& other) noexcept
    : kind_(other.kind_), code_(other.code_) {
  other.code_ = nullptr;
}

RedactionPattern::~RedactionPattern() { pcre2_code_free(code_); }

void RedactionPattern::forEachMatch(
    std::string_view text, const std::function<void(size_t, size_t)>& onMatch) const {
  if (code_ == nullptr) return;
  pcre2_match_data* data = ThreadMatchData();
  if (data == nullptr) return;
  auto subject = reinterpret_cast<PCRE2_SPTR>(text.data());
  size_t start = 0;
  while (start <= text.size()) {
    int rc = pcre2_match(code_, subject, text.size(), start, 0, data, nullptr);
    if (rc < 0) return;  // no match, or a resource limit: nothing more is found
    const size_t* ovector = pcre2_get_ovector_pointer(data);
    if (ovector[1] > ovector[0]) onMatch(ovector[0], ovector[1]);
    start = ovector[1] > ovector[0] ? ovector[1] : ovector[0] + 1;
  }
}

}  // namespace klipora::markup
