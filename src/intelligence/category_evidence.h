// The values that category resolution consumes and produces: image labels in,
// evidence, candidates and the resolution result out. Plain value types, safe
// to copy between threads.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "library/screenshot_category.h"

namespace klipora::intelligence {

using library::ScreenshotCategory;

// Where a piece of evidence came from. The case name is also the word printed
// for it in explanations and in the classifier's trail.
enum class EvidenceSource {
  ocrText,
  classifierLabel,
  filename,
  entity,
  semanticSimilarity,
  visualSimilarity,
  sourceApp,
  negativeEvidence,
};

std::string_view evidenceSourceName(EvidenceSource source);

struct CategoryEvidence {
  EvidenceSource source = EvidenceSource::ocrText;
  // What matched: the keyword, the label, the application id, or a rule name
  // with its measure in parentheses ("long_text(612)").
  std::string signal;
  // Added to the category's score; negative for the lowering rules.
  double weight = 0;

  bool operator==(const CategoryEvidence&) const = default;
};

struct CategoryCandidate {
  ScreenshotCategory category = ScreenshotCategory::uncategorized;
  // Always the sum of the evidence weights.
  double score = 0;
  // Largest weight first; equal weights keep the order they were found in.
  std::vector<CategoryEvidence> evidence;
};

// One image-classification label. `confidence` is absent when the labeler
// gave none (a stored item with fewer confidences than labels).
struct ClassificationLabel {
  std::string label;
  std::optional<float> confidence;
};

struct ResolutionResult {
  // Absent when no candidate has a positive score.
  std::optional<ScreenshotCategory> primaryCategory;
  double confidence = 0;  // always within 0...1
  // Highest score first, at most four.
  std::vector<CategoryCandidate> candidates;
  // "Receipts (74% confidence): ocrText \"receipt\" 0.15, …"
  std::string explanation;
};

}  // namespace klipora::intelligence
