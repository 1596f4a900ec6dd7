// Stand-ins until the analyses land.
#include "intelligence/feature_print.h"
#include "intelligence/generated_title.h"
#include "intelligence/semantic_scores.h"
#include "intelligence/text_enrichment.h"
namespace klipora::intelligence {
std::optional<library::Bytes> makeFeaturePrint(const PixelImage&) { return std::nullopt; }
int featurePrintDistance(const library::Bytes&, const library::Bytes&) { return 64; }
std::map<ScreenshotCategory, double> visualVotes(const library::Bytes&,
                                                 std::span<const VisualReference>) {
  return {};
}
SemanticReferenceSet::SemanticReferenceSet(TextEmbedder&,
                                           std::vector<std::pair<ScreenshotCategory, std::string>>) {}
std::map<ScreenshotCategory, double> SemanticReferenceSet::scores(std::string_view) const {
  return {};
}
std::vector<std::string> keywordCandidates(std::string_view) { return {}; }
TextEnrichment enrichText(std::string_view, const std::map<std::string, int64_t>&, int64_t) {
  return {};
}
std::string makeGeneratedTitle(const std::optional<std::string>& modelTitle,
                               library::ScreenshotCategory category, Date) {
  return modelTitle ? *modelTitle : library::displayName(category);
}
bool shouldFlagForReview(double confidence) { return confidence < 0.3; }
}  // namespace klipora::intelligence

#include "intelligence/hashed_ngram_embedder.h"
namespace klipora::intelligence {
namespace {
class StandInEmbedder final : public TextEmbedder {
 public:
  std::vector<float> embed(std::string_view) override { return {}; }
  std::string name() const override { return "none"; }
};
}  // namespace
std::unique_ptr<TextEmbedder> makeHashedNgramEmbedder() { return std::make_unique<StandInEmbedder>(); }
}  // namespace klipora::intelligence
