// The arbiter and the matcher of a machine without a model and a library
// without user categories, and the input every arbiter is given.
#include "intelligence/custom_category_matcher.h"
#include "intelligence/model_arbiter.h"

namespace klipora::intelligence {
namespace {

class UnavailableModelArbiter final : public ModelArbiter {
 public:
  bool isAvailable() override { return false; }
  void warmUp(bool) override {}
  std::optional<BuiltinArbitration> arbitrate(const ArbitrationInput&) override {
    return std::nullopt;
  }
  std::optional<CombinedArbitration> arbitrateAndMatchCustom(
      const ArbitrationInput&, const std::vector<CustomCategoryDescriptor>&) override {
    return std::nullopt;
  }
  std::optional<std::string> cleanTitle(const std::string&) override { return std::nullopt; }
  std::vector<std::string> expandKeywords(const std::string&, const std::string&,
                                          const std::vector<std::string>&) override {
    return {};
  }
};

class NoCustomCategoryMatcher final : public CustomCategoryMatcher {
 public:
  std::vector<CustomCategoryDescriptor> categories() override { return {}; }
  void markStale() override {}
  std::optional<CustomMatch> match(const CustomMatchInput&) override { return std::nullopt; }
  std::optional<CustomMatch> matchCategory(const UUID&, const CustomMatchInput&) override {
    return std::nullopt;
  }
};

}  // namespace

ArbitrationInput makeArbitrationInput(const ResolutionResult& resolution, std::string ocrText,
                                      std::string filename,
                                      std::optional<std::string> sourceAppName,
                                      std::vector<ClassificationLabel> labels,
                                      std::string imageURL) {
  constexpr size_t kEvidenceShown = 5;
  ArbitrationInput input{
      .ocrText = std::move(ocrText),
      .candidates = {},
      .filename = std::move(filename),
      .sourceAppName = std::move(sourceAppName),
      .heuristicWinner = resolution.primaryCategory,
      .heuristicConfidence = resolution.confidence,
      .topEvidence = {},
      .classificationLabels = std::move(labels),
      .imageURL = std::move(imageURL),
  };
  for (const auto& c : resolution.candidates) {
    input.candidates.emplace_back(std::string(library::rawValue(c.category)), c.score);
  }
  if (!resolution.candidates.empty()) {
    for (const auto& e : resolution.candidates.front().evidence) {
      if (input.topEvidence.size() == kEvidenceShown) break;
      input.topEvidence.emplace_back(e.signal, e.weight);
    }
  }
  return input;
}

std::unique_ptr<ModelArbiter> makeUnavailableModelArbiter() {
  return std::make_unique<UnavailableModelArbiter>();
}

std::unique_ptr<CustomCategoryMatcher> makeNoCustomCategoryMatcher() {
  return std::make_unique<NoCustomCategoryMatcher>();
}

}  // namespace klipora::intelligence
