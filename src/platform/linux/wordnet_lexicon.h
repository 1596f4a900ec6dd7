// WordNetLexicon: the Lexicon of WordNet's database files
// (/usr/share/wordnet from Debian's wordnet-base): index.noun and index.adj
// list the base forms, noun.exc and adj.exc the irregular inflections
// ("children child"), and the regular endings are undone by WordNet's own
// suffix rules. The files are read once, on first use (about 150,000 words).
//
// Thread rules: safe from any thread.
#pragma once

#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "platform/lexicon.h"

namespace klipora {

class WordNetLexicon final : public Lexicon {
 public:
  explicit WordNetLexicon(std::string folder = "/usr/share/wordnet") : folder_(std::move(folder)) {}

  bool isAvailable() override;
  std::optional<std::string> nounOrAdjectiveBase(std::string_view word) override;

 private:
  struct PartOfSpeech {
    std::unordered_set<std::string> lemmas;
    std::unordered_map<std::string, std::string> exceptions;
  };
  void loadLocked();
  static std::optional<std::string> baseForm(const PartOfSpeech& pos, std::string_view word,
                                             bool noun);

  const std::string folder_;
  std::mutex mutex_;
  bool loaded_ = false;
  PartOfSpeech nouns_;
  PartOfSpeech adjectives_;
};

}  // namespace klipora
