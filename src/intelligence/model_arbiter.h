// ModelArbiter: what the processing queue asks of a language model after the
// rules have picked a category: check the rule result (and, when the user has
// categories of their own, match one of them) and write a short title.
// FoundationModelClassifier is the real arbiter; the unavailable arbiter
// answers nothing, so the rule result stands. No call ever fails towards its
// caller: an absent answer means "keep what the rules said".
//
// Thread rules: every call may block (the real arbiter bounds each request in
// time itself) and is made from a worker thread, never the main thread; calls
// may overlap.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "intelligence/category_evidence.h"
#include "platform/uuid.h"

namespace klipora::intelligence {

struct ArbitrationInput {
  std::string ocrText;
  // (category raw value, score), best first.
  std::vector<std::pair<std::string, double>> candidates;
  std::string filename;
  std::optional<std::string> sourceAppName;
  std::optional<ScreenshotCategory> heuristicWinner;
  double heuristicConfidence = 0;
  // (signal, weight) of the winner's strongest evidence.
  std::vector<std::pair<std::string, double>> topEvidence;
  std::vector<ClassificationLabel> classificationLabels;
  // The library copy of the screenshot, attached when it can be read.
  std::string imageURL;
};

// A user category as the model sees it, in the user's order.
struct CustomCategoryDescriptor {
  UUID id;
  std::string name;
  std::string description;
  std::vector<std::string> keywords;
};

struct BuiltinArbitration {
  // Absent when the model named no known category.
  std::optional<ScreenshotCategory> category;
  std::string explanation;
  std::string title;
};

struct CustomArbitration {
  UUID id;
  std::string explanation;
};

struct CombinedArbitration {
  BuiltinArbitration builtin;
  std::optional<CustomArbitration> custom;
};

class ModelArbiter {
 public:
  ModelArbiter() = default;
  ModelArbiter(const ModelArbiter&) = delete;
  ModelArbiter& operator=(const ModelArbiter&) = delete;
  virtual ~ModelArbiter() = default;

  // Whether a model can answer now (cheap; may be cached for a short while).
  virtual bool isAvailable() = 0;
  // Prepares a session in the background so the first request is fast.
  virtual void warmUp(bool includeCustomCategorySchema) = 0;
  // Built-in arbitration only; for a user without categories of their own.
  virtual std::optional<BuiltinArbitration> arbitrate(const ArbitrationInput& input) = 0;
  virtual std::optional<CombinedArbitration> arbitrateAndMatchCustom(
      const ArbitrationInput& input, const std::vector<CustomCategoryDescriptor>& categories) = 0;
  // Tidies a generated title; absent when nothing usable is left.
  virtual std::optional<std::string> cleanTitle(const std::string& text) = 0;
  // More subject terms for a user category, lower-case single words not in
  // `base`; empty when the model cannot answer.
  virtual std::vector<std::string> expandKeywords(const std::string& categoryName,
                                                  const std::string& description,
                                                  const std::vector<std::string>& base) = 0;
  // For a service shutting down: the requests under way end at once and
  // later ones are not sent, all giving nothing. Any thread.
  virtual void cancelRequests() {}
};

// The arbitration input for a resolution: the candidates in order and the
// winner's five strongest pieces of evidence.
ArbitrationInput makeArbitrationInput(const ResolutionResult& resolution, std::string ocrText,
                                      std::string filename,
                                      std::optional<std::string> sourceAppName,
                                      std::vector<ClassificationLabel> labels,
                                      std::string imageURL);

// The arbiter of a machine without a model: never available, never answers.
std::unique_ptr<ModelArbiter> makeUnavailableModelArbiter();

}  // namespace klipora::intelligence
