// Lexicon: which English words are nouns or adjectives, and their base
// forms ("listings" → "listing", "cheaper" → "cheap"), for picking the
// subject words out of a user's description of a category. The real one
// (WordNetLexicon, platform/linux) reads WordNet's index and exception
// files; a fake maps words by hand.
//
// Thread rules: safe from any thread; the real one loads its files on first
// use, under a lock.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace klipora {

class Lexicon {
 public:
  Lexicon() = default;
  Lexicon(const Lexicon&) = delete;
  Lexicon& operator=(const Lexicon&) = delete;
  virtual ~Lexicon() = default;

  // False when the lexicon has no data (its files are missing); callers then
  // treat every word as a content word.
  virtual bool isAvailable() = 0;
  // The base form under which `word` (lower-case) is a noun, else an
  // adjective; nothing when it is neither.
  virtual std::optional<std::string> nounOrAdjectiveBase(std::string_view word) = 0;
};

}  // namespace klipora
