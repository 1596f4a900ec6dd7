#include "intelligence/text_enrichment.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>
#include <unordered_set>

#include "intelligence/text_words.h"
#include "library/search_text.h"

namespace klipora::intelligence {
namespace {

constexpr size_t kMinKeywordLength = 3;
constexpr size_t kMaxKeywordLength = 32;
constexpr int64_t kCommonWordLibrarySize = 10;

// English function words, and the pieces of web addresses.
bool IsStopWord(std::string_view word) {
  static const std::unordered_set<std::string_view> words = {
      "about",   "above",  "after",     "again",      "against", "all",    "also",    "and",
      "any",     "are",    "aren",      "because",    "been",    "before", "being",   "below",
      "between", "both",   "but",       "can",        "cannot",  "could",  "did",     "didn",
      "does",    "doesn",  "doing",     "don",        "down",    "during", "each",    "even",
      "every",   "few",    "for",       "from",       "further", "get",    "got",     "had",
      "has",     "have",   "having",    "her",        "here",    "hers",   "herself", "him",
      "himself", "his",    "how",       "into",       "isn",     "its",    "itself",  "just",
      "let",     "like",   "may",       "more",       "most",    "much",   "must",    "myself",
      "nor",     "not",    "now",       "off",        "once",    "one",    "only",    "other",
      "our",     "ours",   "ourselves", "out",        "over",    "own",    "same",    "she",
      "should",  "since",  "some",      "still",      "such",    "than",   "that",    "the",
      "their",   "theirs", "them",      "themselves", "then",    "there",  "these",   "they",
      "this",    "those",  "through",   "too",        "under",   "until",  "upon",    "very",
      "via",     "was",    "wasn",      "way",        "well",    "were",   "weren",   "what",
      "when",    "where",  "which",     "while",      "who",     "whom",   "why",     "will",
      "with",    "within", "without",   "won",        "would",   "yes",    "yet",     "you",
      "your",    "yours",  "yourself",  "yourselves", "com",     "org",    "net",     "www",
      "http",    "https",  "html"};
  return words.contains(word);
}

bool IsCandidate(std::string_view word) {
  size_t length = characterCount(word);
  if (length < kMinKeywordLength || length > kMaxKeywordLength) return false;
  if (std::any_of(word.begin(), word.end(), [](char c) { return c >= '0' && c <= '9'; })) {
    return false;
  }
  return !IsStopWord(word);
}

struct Candidate {
  std::string word;
  int count = 0;
  size_t first = 0;
};

// Candidates with their counts, most frequent first, ties in order of
// appearance, at most kMaxKeywordCandidates.
std::vector<Candidate> CountCandidates(std::string_view text) {
  const std::string lower = library::lowercased(library::validUtf8(text));
  std::unordered_map<std::string_view, size_t> index;
  std::vector<Candidate> candidates;
  for (std::string_view word : splitWords(lower)) {
    if (!IsCandidate(word)) continue;
    auto [at, inserted] = index.emplace(word, candidates.size());
    if (inserted) candidates.push_back({std::string(word), 0, candidates.size()});
    ++candidates[at->second].count;
  }
  std::stable_sort(candidates.begin(), candidates.end(),
                   [](const Candidate& a, const Candidate& b) { return a.count > b.count; });
  if (candidates.size() > kMaxKeywordCandidates) candidates.resize(kMaxKeywordCandidates);
  return candidates;
}

std::vector<std::string> RankKeywords(std::vector<Candidate> candidates,
                                      const std::map<std::string, int64_t>& documentFrequency,
                                      int64_t documentCount) {
  struct Scored {
    double score;
    size_t first;
    std::string* word;
  };
  std::vector<Scored> scored;
  for (Candidate& c : candidates) {
    double idf = 1;
    if (documentCount > 0) {
      auto found = documentFrequency.find(c.word);
      int64_t df = found == documentFrequency.end() ? 0 : found->second;
      df = std::clamp<int64_t>(df, 0, documentCount);
      if (documentCount >= kCommonWordLibrarySize && df * 2 > documentCount) continue;
      idf = std::log(double(documentCount + 1) / double(df + 1)) + 1;
    }
    scored.push_back({(1 + std::log(double(c.count))) * idf, c.first, &c.word});
  }
  std::sort(scored.begin(), scored.end(), [](const Scored& a, const Scored& b) {
    return a.score != b.score ? a.score > b.score : a.first < b.first;
  });
  std::vector<std::string> keywords;
  for (size_t i = 0; i < scored.size() && i < kMaxKeywords; ++i) {
    keywords.push_back(std::move(*scored[i].word));
  }
  return keywords;
}

}  // namespace

std::vector<std::string> keywordCandidates(std::string_view text) {
  std::vector<std::string> words;
  for (Candidate& c : CountCandidates(text)) words.push_back(std::move(c.word));
  return words;
}

TextEnrichment enrichText(std::string_view text,
                          const std::map<std::string, int64_t>& documentFrequency,
                          int64_t documentCount) {
  const std::string valid = library::validUtf8(text);
  TextEnrichment enrichment;
  enrichment.entities = findEntities(valid);
  enrichment.keywords = RankKeywords(CountCandidates(valid), documentFrequency, documentCount);
  enrichment.summary = summarize(valid);
  return enrichment;
}

}  // namespace klipora::intelligence
