// SemanticCustomCategoryMatcher: files screenshots into the user's own
// categories by evidence. Each category is described by its keywords, its
// centroid (the mean embedding of the keywords), the texts of screenshots
// filed under it (exemplars) and the texts of screenshots the user took out
// of it (anti-exemplars, kept by the learner). A screenshot's text and image
// labels are embedded once and compared with each category:
//   semantic      cosine of the text with the centroid
//   keywordHit    distinct keywords found among the words (plurals count)
//   labelScore    1 when an image label is a keyword
//   bestExemplar  highest cosine with an exemplar; bestAntiExemplar likewise
// and filed when (kCustomCategoryThresholds, chosen on the examples of
// custom_categories_test.cc): two keywords are found, or one keyword (or
// label) with a clear likeness, or a strong likeness to the centroid or to
// an exemplar; never when an anti-exemplar is closer than every exemplar
// and close in itself. The best filed category wins.
//
// Thread rules: categories(), markStale() and reload() run on the thread
// that owns the context; match() and score() on any thread, concurrently.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "intelligence/custom_category_matcher.h"
#include "library/model_context.h"
#include "platform/text_embedder.h"
#include "platform/user_defaults.h"

namespace klipora::intelligence {

struct CustomCategoryThresholds {
  double semanticWithKeyword;  // one keyword and at least this much likeness
  double semanticAlone;        // no keyword needed above this
  double exemplar;             // like a screenshot filed there already
  double antiExemplar;         // vetoes when closer than any exemplar
};
extern const CustomCategoryThresholds kCustomCategoryThresholds;

struct CustomCategoryScore {
  UUID id;
  double score = 0;  // 0...1, for ranking
  double semantic = 0;
  double labelScore = 0;
  int keywordHit = 0;
  double bestExemplar = 0;
  double bestAntiExemplar = 0;
  bool matches = false;
};

// The user-defaults key under which the learner keeps a category's
// anti-exemplar texts.
std::string antiExemplarKey(const UUID& categoryID);

class SemanticCustomCategoryMatcher final : public CustomCategoryMatcher {
 public:
  // `defaults` holds the learner's anti-exemplars (null: none).
  SemanticCustomCategoryMatcher(library::ModelContext& context, TextEmbedder& embedder,
                                UserDefaults* defaults);
  ~SemanticCustomCategoryMatcher() override;

  std::vector<CustomCategoryDescriptor> categories() override;
  void markStale() override;
  std::optional<CustomMatch> match(const CustomMatchInput& input) override;
  std::optional<CustomMatch> matchCategory(const UUID& categoryID,
                                           const CustomMatchInput& input) override;

  // Reads the categories and their references again if they are stale.
  void reload();
  // Every category's score for the input, in the user's order.
  std::vector<CustomCategoryScore> scores(const CustomMatchInput& input);

 private:
  struct References;
  std::shared_ptr<const References> references();

  library::ModelContext& context_;
  TextEmbedder& embedder_;
  UserDefaults* defaults_;
  std::mutex mutex_;
  std::shared_ptr<const References> references_;
  bool stale_ = true;
};

}  // namespace klipora::intelligence
