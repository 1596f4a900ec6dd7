// The word tables of category resolution: the keyword tables searched in the
// recognised text (with their categories and weights), the context words of
// the negative-evidence rules, the image-label table and the file-name table.
// Also TextVocabulary, the one automaton that finds every word of every text
// table in a single pass. Everything here is constant and built once; safe to
// read from any thread.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "intelligence/category_evidence.h"
#include "intelligence/category_keyword_matcher.h"

namespace klipora::intelligence {

// Every list of words looked for in the lower-cased recognised text.
enum class TextWordList : uint8_t {
  // The scored keyword tables.
  codeKeywords,
  errorKeywords,
  receiptKeywords,
  paymentKeywords,
  chatKeywords,
  travelKeywords,
  mediaPhrases,
  mediaCounters,
  shoppingKeywords,
  socialKeywords,
  designKeywords,
  settingsKeywords,
  articleKeywords,
  // Words that only qualify or gate other rules.
  currencySigns,
  shippingWords,
  shippingCodeWords,
  paymentContextWords,
  failureWords,
  deliveryStateWords,
  paymentReceivedPhrase,
  letHint,
  count,
};

std::span<const std::string_view> wordsOf(TextWordList list);

struct KeywordTable {
  TextWordList list;
  ScreenshotCategory category;
  double weight;  // added once for each of its words found
};
// The scored tables in the order their evidence is added.
std::span<const KeywordTable> keywordTables();

struct CategoryKey {
  std::string_view key;
  ScreenshotCategory category;
};
// Image label -> category (exact label, ASCII case ignored).
std::span<const CategoryKey> labelTable();
// Substring of the lower-cased file name -> category.
std::span<const CategoryKey> filenameTable();

class TextVocabulary {
 public:
  static const TextVocabulary& instance();

  const KeywordAutomaton& automaton() const { return automaton_; }
  // Distinct words of all lists; a word's index here is its automaton index.
  std::span<const std::string_view> words() const { return words_; }
  // Automaton index of each word of `list`, in list order.
  std::span<const uint16_t> indices(TextWordList list) const {
    return indices_[static_cast<size_t>(list)];
  }
  bool anyFound(const KeywordHits& hits, TextWordList list) const;
  bool found(const KeywordHits& hits, TextWordList list, size_t position) const {
    return hits.contains(indices(list)[position]);
  }

 private:
  TextVocabulary();
  std::vector<std::string_view> words_;
  std::vector<std::vector<uint16_t>> indices_;
  KeywordAutomaton automaton_;
};

// The file-name table's keys in one automaton (indices follow filenameTable()).
const KeywordAutomaton& filenameAutomaton();

}  // namespace klipora::intelligence
