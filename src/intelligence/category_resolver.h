// CategoryResolver: turns what processing learned about one screenshot (its
// recognised text, image labels, file name, entities, similarity to items
// already categorised, and the front application at capture) into a built-in
// category, a confidence in 0...1, up to four ranked candidates with the
// evidence behind each, and a one-line explanation. A pure scoring engine: it
// reads no files and touches no records. It never fails; missing or malformed
// inputs contribute nothing. Each resolution writes "[CLASSIFY] builtin-…"
// lines to the classifier's trail.
//
// Thread rules: resolve() is re-entrant and may run on several threads at
// once; the tables and expressions it uses are built once, on first use.
#pragma once

#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "intelligence/category_evidence.h"

namespace klipora::intelligence {

struct ResolutionInput {
  std::string ocrText;
  std::vector<ClassificationLabel> classificationLabels;
  // The name the screenshot had when it was captured.
  std::string filename;
  std::vector<std::string> entities;
  // Per category, similarity (0...1) of this item's text to that category's items.
  std::map<ScreenshotCategory, double> semanticScores;
  // Per category, the vote of the nearest visual neighbours (0...1).
  std::map<ScreenshotCategory, double> visualVotes;
  // A bundle identifier or a Linux application id (desktop-file id, WM_CLASS).
  std::optional<std::string> sourceAppBundleID;
  std::optional<std::string> sourceAppName;
};

// How keywords are looked for in the text: the one-pass automaton, or the
// plain reference search (one find per keyword), kept to check and measure
// the automaton against. Both give the same results.
enum class KeywordSearch { automaton, reference };

class CategoryResolver {
 public:
  explicit CategoryResolver(KeywordSearch search = KeywordSearch::automaton) : search_(search) {}

  ResolutionResult resolve(const ResolutionInput& input) const;

 private:
  KeywordSearch search_;
};

// From candidates sorted by score: 0 without a positive top score; one
// candidate: min(1, top / 0.8); otherwise the established term weighted 0.6
// plus the margin over the runner-up weighted 0.4.
double computeConfidence(std::span<const CategoryCandidate> sorted);

}  // namespace klipora::intelligence
