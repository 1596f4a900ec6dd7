// MapLexicon: a Lexicon whose words and base forms the test lists
// ({"listings", "listing"}, {"car", "car"}); every other word is neither a
// noun nor an adjective. Empty, it reports itself unavailable.
#pragma once

#include <map>
#include <string>

#include "platform/lexicon.h"

namespace klipora::testing {

class MapLexicon final : public Lexicon {
 public:
  explicit MapLexicon(std::map<std::string, std::string, std::less<>> words = {})
      : words_(std::move(words)) {}
  bool isAvailable() override { return !words_.empty(); }
  std::optional<std::string> nounOrAdjectiveBase(std::string_view word) override {
    auto it = words_.find(word);
    if (it == words_.end()) return std::nullopt;
    return it->second;
  }

 private:
  std::map<std::string, std::string, std::less<>> words_;
};

}  // namespace klipora::testing
