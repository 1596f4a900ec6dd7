// SearchTokenParser: splits what the user typed into the search field into
// filter tokens (tag:, cat:, fav:, date:) and the free text that remains.
//
// Token keys are matched without regard to case ("Tag:Work" is a token like
// "tag:Work"), since a capital at the start of the field is common; values are
// lower-cased after matching. A second fav: or date: replaces the first. Input
// that is not valid UTF-8 has each bad byte replaced by U+FFFD first. The
// parser never fails. Pure; safe from any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "library/enum_table.h"

namespace klipora::library {

struct ParsedSearchQuery {
  enum class DateToken { today, yesterday, week, month };

  // What remains once every token is removed, trimmed, with each pair of
  // blanks replaced by one.
  std::string freeText;
  std::vector<std::string> tags;        // tag: values, lower-cased, in order met
  std::vector<std::string> categories;  // cat: values, lower-cased, in order met
  std::optional<bool> favorite;         // fav: true for "true", "yes", "1"
  std::optional<DateToken> date;

  bool hasFilters() const {
    return !tags.empty() || !categories.empty() || favorite.has_value() || date.has_value();
  }
  bool isEmpty() const { return freeText.empty() && !hasFilters(); }
  bool operator==(const ParsedSearchQuery&) const = default;
};

template <>
struct EnumTraits<ParsedSearchQuery::DateToken> {
  static std::span<const EnumCase<ParsedSearchQuery::DateToken>> cases();
};

struct SearchTokenParser {
  static constexpr std::string_view tokenPattern = R"(\b(tag|cat|fav|date):\s*(\S+))";
  static ParsedSearchQuery parse(std::string_view text);
};

}  // namespace klipora::library
