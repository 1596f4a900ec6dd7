#include "library/search_token_parser.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <memory>

#include "library/screenshot_item.h"
#include "library/search_text.h"

namespace klipora::library {
namespace {

constexpr EnumCase<ParsedSearchQuery::DateToken> kDateTokens[] = {
    {ParsedSearchQuery::DateToken::today, "today"},
    {ParsedSearchQuery::DateToken::yesterday, "yesterday"},
    {ParsedSearchQuery::DateToken::week, "week"},
    {ParsedSearchQuery::DateToken::month, "month"},
};

// Compiled once; pcre2_code is read-only after compilation and may be shared
// between threads, each match using its own match data.
const pcre2_code* TokenCode() {
  static pcre2_code* code = [] {
    int error = 0;
    PCRE2_SIZE offset = 0;
    return pcre2_compile(reinterpret_cast<PCRE2_SPTR>(SearchTokenParser::tokenPattern.data()),
                         SearchTokenParser::tokenPattern.size(),
                         PCRE2_UTF | PCRE2_UCP | PCRE2_CASELESS, &error, &offset, nullptr);
  }();
  return code;
}

struct MatchDataDeleter {
  void operator()(pcre2_match_data* data) const { pcre2_match_data_free(data); }
};

void ApplyToken(ParsedSearchQuery& q, const std::string& key, std::string value) {
  if (key == "tag") {
    q.tags.push_back(std::move(value));
  } else if (key == "cat") {
    q.categories.push_back(std::move(value));
  } else if (key == "fav") {
    q.favorite = value == "true" || value == "yes" || value == "1";
  } else if (key == "date") {
    q.date = fromRaw<ParsedSearchQuery::DateToken>(value);
  }
}

std::string CollapseDoubleBlanks(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    out.push_back(text[i]);
    if (text[i] == ' ' && i + 1 < text.size() && text[i + 1] == ' ') ++i;
  }
  return out;
}

}  // namespace

std::span<const EnumCase<ParsedSearchQuery::DateToken>>
EnumTraits<ParsedSearchQuery::DateToken>::cases() {
  return kDateTokens;
}

ParsedSearchQuery SearchTokenParser::parse(std::string_view input) {
  ParsedSearchQuery q;
  const std::string text = validUtf8(input);
  const pcre2_code* code = TokenCode();
  std::string remaining;
  size_t copied = 0;
  if (code) {
    std::unique_ptr<pcre2_match_data, MatchDataDeleter> data(
        pcre2_match_data_create_from_pattern(code, nullptr));
    auto subject = reinterpret_cast<PCRE2_SPTR>(text.data());
    size_t start = 0;
    while (start <= text.size() &&
           pcre2_match(code, subject, text.size(), start, 0, data.get(), nullptr) > 0) {
      PCRE2_SIZE* v = pcre2_get_ovector_pointer(data.get());
      ApplyToken(q, lowercased(std::string_view(text).substr(v[2], v[3] - v[2])),
                 lowercased(std::string_view(text).substr(v[4], v[5] - v[4])));
      remaining.append(text, copied, v[0] - copied);
      copied = v[1];
      start = v[1];  // a match is never empty, so this always moves on
    }
  }
  remaining.append(text, copied, std::string::npos);
  q.freeText = CollapseDoubleBlanks(trimmed(remaining));
  return q;
}

}  // namespace klipora::library
