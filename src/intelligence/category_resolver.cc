#include "intelligence/category_resolver.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "intelligence/category_keywords.h"
#include "intelligence/category_rules.h"
#include "platform/log.h"

namespace klipora::intelligence {
namespace {

using C = ScreenshotCategory;

constexpr size_t kMaxCandidates = 4;
constexpr double kEstablishedScore = 0.8;  // the score at which a category is fully established
constexpr double kEstablishedShare = 0.6;
constexpr double kMarginShare = 0.4;
constexpr size_t kExplainedEvidence = 3;  // strongest positive entries named in the explanation

// Log fields are single words: control characters and blanks become '_'.
void AppendField(std::string& out, std::string_view value) {
  if (value.empty()) {
    out += "none";
    return;
  }
  for (char c : value) out += (static_cast<unsigned char>(c) <= ' ') ? '_' : c;
}

// As printf's "%.<precision>f" would print it.
void AppendNumber(std::string& out, int precision, double value) {
  char buffer[64];
  auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value,
                                    std::chars_format::fixed, precision);
  if (error == std::errc()) out.append(buffer, end);
}

void LogStart(const ResolutionInput& input, size_t characters) {
  std::string line = "builtin-start file=";
  AppendField(line, input.filename);
  line += " ocrLen=" + std::to_string(characters);
  line += " labels=" + std::to_string(input.classificationLabels.size());
  line += " app=";
  AppendField(line, input.sourceAppBundleID.value_or(""));
  log::classify(line);
}

// "code:0.650,errors:0.200", or "none".
template <typename Pairs>
std::string ScoreList(const Pairs& pairs) {
  std::string out;
  for (const auto& [category, score] : pairs) {
    if (!out.empty()) out += ',';
    out += library::rawValue(category);
    out += ':';
    AppendNumber(out, 3, score);
  }
  return out.empty() ? "none" : out;
}

std::string BuildExplanation(const std::optional<C>& primary, double confidence,
                             const std::vector<CategoryCandidate>& candidates) {
  std::string out = library::displayName(primary.value_or(C::uncategorized));
  out += " (";
  AppendNumber(out, 0, confidence * 100);
  out += "% confidence)";
  if (!primary) return out;
  size_t listed = 0;
  for (const CategoryEvidence& evidence : candidates.front().evidence) {
    if (listed == kExplainedEvidence || !(evidence.weight > 0)) break;
    out += listed++ == 0 ? ": " : ", ";
    out += evidenceSourceName(evidence.source);
    out += " \"";
    out += evidence.signal;
    out += "\" ";
    AppendNumber(out, 2, evidence.weight);
  }
  return out;
}

}  // namespace

double computeConfidence(std::span<const CategoryCandidate> sorted) {
  if (sorted.empty()) return 0;
  double top = sorted[0].score;
  if (!(top > 0) || !std::isfinite(top)) return 0;
  double established = std::min(1.0, top / kEstablishedScore);
  double confidence = established;
  if (sorted.size() > 1) {
    double margin = std::min(1.0, (top - sorted[1].score) / top);
    confidence = kEstablishedShare * established + kMarginShare * margin;
  }
  return std::isfinite(confidence) ? std::clamp(confidence, 0.0, 1.0) : 0;
}

ResolutionResult CategoryResolver::resolve(const ResolutionInput& input) const {
  const TextVocabulary& vocabulary = TextVocabulary::instance();
  TextFacts facts;
  facts.text = input.ocrText;
  facts.shape = measureText(facts.text);
  facts.hits = search_ == KeywordSearch::automaton
                   ? findKeywords(vocabulary.automaton(), facts.text)
                   : findKeywordsByReference(vocabulary.words(), facts.text);
  facts.playbackSplit = hasPlaybackSplit(facts.text, facts.shape);
  LogStart(input, facts.shape.characters);

  CategoryScoreTable table;
  accumulateOCR(table, facts);
  accumulateLabels(table, input.classificationLabels);
  accumulateFilename(table, input.filename);
  accumulateEntities(table, input.entities);
  accumulateAppContext(table, input.sourceAppBundleID, input.sourceAppName, facts.text);

  HardScores hard{};
  std::vector<std::pair<C, double>> seed;
  seed.reserve(table.entries().size());
  for (const CategoryCandidate& entry : table.entries()) {
    hard[static_cast<size_t>(entry.category)] = entry.score;
    seed.emplace_back(entry.category, entry.score);
  }
  log::classify("builtin-semantic seed=" + ScoreList(seed));
  accumulateSemanticScores(table, hard, input.semanticScores);
  log::classify("builtin-visual votes=" + ScoreList(input.visualVotes));
  accumulateVisualVotes(table, hard, input.visualVotes);
  applyNegativeEvidence(table, facts);
  accumulateLongText(table, facts);

  ResolutionResult result;
  result.candidates = table.takeEntries();
  auto byWeight = [](const CategoryEvidence& a, const CategoryEvidence& b) {
    return a.weight > b.weight;
  };
  for (CategoryCandidate& candidate : result.candidates) {
    std::stable_sort(candidate.evidence.begin(), candidate.evidence.end(), byWeight);
  }
  std::stable_sort(result.candidates.begin(), result.candidates.end(),
                   [](const CategoryCandidate& a, const CategoryCandidate& b) {
                     return a.score > b.score;
                   });
  if (result.candidates.size() > kMaxCandidates) result.candidates.resize(kMaxCandidates);

  result.confidence = computeConfidence(result.candidates);
  if (!result.candidates.empty() && result.candidates.front().score > 0) {
    result.primaryCategory = result.candidates.front().category;
  }
  result.explanation = BuildExplanation(result.primaryCategory, result.confidence,
                                        result.candidates);

  std::string line = "builtin-resolve primary=";
  line += result.primaryCategory ? library::rawValue(*result.primaryCategory) : "none";
  line += " conf=";
  AppendNumber(line, 3, result.confidence);
  std::vector<std::pair<C, double>> scores;
  for (const auto& candidate : result.candidates) scores.emplace_back(candidate.category, candidate.score);
  line += " scores=" + ScoreList(scores);
  log::classify(line);
  return result;
}

}  // namespace klipora::intelligence
