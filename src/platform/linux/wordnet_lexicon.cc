#include "platform/linux/wordnet_lexicon.h"

#include <array>
#include <fstream>
#include <utility>

namespace klipora {
namespace {

// Each line of an index file starts with the lemma; the licence at the top
// is indented by two blanks.
void readIndex(const std::string& path, std::unordered_set<std::string>* lemmas) {
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == ' ') continue;
    size_t space = line.find(' ');
    std::string lemma = line.substr(0, space);
    if (lemma.find('_') == std::string::npos) lemmas->insert(std::move(lemma));
  }
}

// "inflected base [base…]": the first base is taken.
void readExceptions(const std::string& path, std::unordered_map<std::string, std::string>* out) {
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    size_t space = line.find(' ');
    if (space == std::string::npos) continue;
    size_t end = line.find(' ', space + 1);
    out->emplace(line.substr(0, space), line.substr(space + 1, end - space - 1));
  }
}

// WordNet's detachment rules: (ending, replacement).
constexpr std::array<std::pair<std::string_view, std::string_view>, 8> kNounRules = {{
    {"s", ""}, {"ses", "s"}, {"xes", "x"}, {"zes", "z"},
    {"ches", "ch"}, {"shes", "sh"}, {"men", "man"}, {"ies", "y"},
}};
constexpr std::array<std::pair<std::string_view, std::string_view>, 4> kAdjectiveRules = {{
    {"er", ""}, {"est", ""}, {"er", "e"}, {"est", "e"},
}};

}  // namespace

void WordNetLexicon::loadLocked() {
  if (loaded_) return;
  loaded_ = true;
  readIndex(folder_ + "/index.noun", &nouns_.lemmas);
  readIndex(folder_ + "/index.adj", &adjectives_.lemmas);
  readExceptions(folder_ + "/noun.exc", &nouns_.exceptions);
  readExceptions(folder_ + "/adj.exc", &adjectives_.exceptions);
}

bool WordNetLexicon::isAvailable() {
  std::lock_guard lock(mutex_);
  loadLocked();
  return !nouns_.lemmas.empty();
}

std::optional<std::string> WordNetLexicon::baseForm(const PartOfSpeech& pos,
                                                    std::string_view word, bool noun) {
  std::string w(word);
  if (auto it = pos.exceptions.find(w); it != pos.exceptions.end()) return it->second;
  if (pos.lemmas.count(w)) return w;
  auto tryRules = [&](const auto& rules) -> std::optional<std::string> {
    for (const auto& [ending, replacement] : rules) {
      if (w.size() <= ending.size() || !w.ends_with(ending)) continue;
      std::string candidate = w.substr(0, w.size() - ending.size()) + std::string(replacement);
      if (pos.lemmas.count(candidate)) return candidate;
    }
    return std::nullopt;
  };
  // "ss" is not a plural ending ("glass", "business").
  if (noun) return w.ends_with("ss") ? std::nullopt : tryRules(kNounRules);
  return tryRules(kAdjectiveRules);
}

std::optional<std::string> WordNetLexicon::nounOrAdjectiveBase(std::string_view word) {
  std::lock_guard lock(mutex_);
  loadLocked();
  if (auto base = baseForm(nouns_, word, true)) return base;
  return baseForm(adjectives_, word, false);
}

}  // namespace klipora
