// Text enrichment: what the processing queue stores about an item's text
// besides its category.
//
// Entities are found by rules, in order of appearance, each once (compared
// ignoring ASCII case), at most kMaxEntities: web addresses, e-mail
// addresses, file paths, amounts of money (with a currency sign or code),
// dates (ISO, numeric with a four-digit year, or with a month name) and phone
// numbers (7 to 15 digits written as one: a leading "+", an area code in
// brackets, or digits in groups). Where two rules match overlapping text the
// earlier match wins, and at one place the rule listed first.
//
// Keywords are the text's most distinctive words: lower-cased words of at
// least three letters, without digits or stop words, ranked by tf-idf
// against the library's document frequencies.
//
// The summary is the text's first line of prose (enough words, mostly
// letters, with function words such as "the" or "is"; else the first line
// that has enough words and letters), joined with the lines that continue
// its sentence, cut after its first sentence, and capped at a word boundary.
//
// Pure functions; safe from any thread.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace klipora::intelligence {

inline constexpr size_t kMaxEntities = 20;
inline constexpr size_t kMaxKeywordCandidates = 64;
inline constexpr size_t kMaxKeywords = 8;
inline constexpr size_t kMaxSummaryLength = 200;

// The distinct candidate keywords, most frequent first (ties in order of
// appearance), at most kMaxKeywordCandidates: the words whose document
// frequencies enrichText() wants.
std::vector<std::string> keywordCandidates(std::string_view text);

struct TextEnrichment {
  std::vector<std::string> entities;
  std::vector<std::string> keywords;
  std::optional<std::string> summary;
};

// `documentFrequency` maps a candidate to the number of library items that
// contain it (missing: none), out of `documentCount` items. With
// documentCount 0 keywords rank by term frequency alone. In a library of at
// least ten items a word that more than half of them contain is never a
// keyword.
TextEnrichment enrichText(std::string_view text,
                          const std::map<std::string, int64_t>& documentFrequency,
                          int64_t documentCount);

// The parts of enrichText(), for text that is valid UTF-8.
std::vector<std::string> findEntities(std::string_view text);
std::optional<std::string> summarize(std::string_view text);

}  // namespace klipora::intelligence
