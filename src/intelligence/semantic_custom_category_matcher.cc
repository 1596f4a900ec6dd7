#include "intelligence/semantic_custom_category_matcher.h"

#include <algorithm>
#include <set>

#include "intelligence/custom_category_keyword_builder.h"
#include "intelligence/text_words.h"
#include "library/records.h"
#include "library/screenshot_item.h"
#include "library/search_text.h"
#include "platform/log.h"

namespace klipora::intelligence {
namespace {

// Screenshots filed under a category that stand for it.
constexpr int64_t kExemplarsPerCategory = 12;

struct Category {
  CustomCategoryDescriptor descriptor;
  std::vector<float> centroid;
  std::vector<std::vector<float>> exemplars;
  std::vector<std::vector<float>> antiExemplars;
};

bool HasKeyword(const std::set<std::string, std::less<>>& words, const std::string& keyword) {
  return words.count(keyword) || words.count(keyword + "s") || words.count(keyword + "es") ||
         (keyword.ends_with("y") && words.count(keyword.substr(0, keyword.size() - 1) + "ies"));
}

double Best(const std::vector<float>& text, const std::vector<std::vector<float>>& set) {
  double best = 0;
  for (const auto& v : set) best = std::max(best, cosineSimilarity(text, v));
  return best;
}

}  // namespace

// Chosen on the examples of the matcher's test with the built-in embedder
// (cosine with a three-keyword centroid): screens about a category reach
// 0.27 (a long listing) to 0.74 (a short one); screens about something else
// stay at or under 0.12 against every category. Text is not enough on its
// own, though: "git commit -m 'fix car parser' && cargo test" reaches 0.32
// against "car, dealer, listing" with its one stray keyword, while every
// screen about cars held two keywords or more. Hence: two keywords file at
// once; one keyword (or image label) needs 0.40; no keyword needs 0.45.
// Near-copies score above 0.8, so 0.55 says "like that screenshot".
const CustomCategoryThresholds kCustomCategoryThresholds = {
    .semanticWithKeyword = 0.40,
    .semanticAlone = 0.45,
    .exemplar = 0.55,
    .antiExemplar = 0.55,
};

CustomMatchInput customMatchInputOf(const library::ScreenshotItem& item) {
  CustomMatchInput input{.ocrText = item.ocrText.value_or(""),
                         .classificationLabels = {},
                         .featurePrint = item.featurePrintData};
  for (const auto& label : item.classificationLabels()) {
    input.classificationLabels.push_back({label, std::nullopt});
  }
  return input;
}

std::string antiExemplarKey(const UUID& categoryID) {
  return "CustomCategoryLearner.antiExemplars." + categoryID.uuidString();
}

struct SemanticCustomCategoryMatcher::References {
  std::vector<Category> categories;
};

SemanticCustomCategoryMatcher::SemanticCustomCategoryMatcher(library::ModelContext& context,
                                                             TextEmbedder& embedder,
                                                             UserDefaults* defaults)
    : context_(context),
      embedder_(embedder),
      defaults_(defaults),
      references_(std::make_shared<References>()) {}

SemanticCustomCategoryMatcher::~SemanticCustomCategoryMatcher() = default;

void SemanticCustomCategoryMatcher::markStale() {
  std::lock_guard lock(mutex_);
  stale_ = true;
}

void SemanticCustomCategoryMatcher::reload() {
  {
    std::lock_guard lock(mutex_);
    if (!stale_) return;
  }
  auto refs = std::make_shared<References>();
  library::FetchDescriptor ordered;
  ordered.sortBy = "createdAt ASC";
  auto rows = context_.fetch<library::CustomCategory>(ordered);
  if (!rows) {
    log::warning("Processing", "custom categories unreadable: %s", rows.error().message().c_str());
    return;
  }
  const size_t dimensions = embedder_.embed("probe").size();
  for (const auto& row : *rows) {
    Category c;
    c.descriptor = {row->id, row->name, row->categoryDescription.value_or(""), row->keywords()};
    if (row->embeddingData) c.centroid = decodeCentroid(*row->embeddingData);
    // A centroid from another embedder (the server's, say) is not
    // comparable: the keywords give one in this embedder's space.
    if (c.centroid.size() != dimensions) {
      std::vector<double> sum;
      for (const auto& k : c.descriptor.keywords) {
        auto v = embedder_.embed(k);
        if (v.empty()) continue;
        if (sum.empty()) sum.assign(v.size(), 0);
        for (size_t i = 0; i < v.size() && i < sum.size(); ++i) sum[i] += v[i];
      }
      c.centroid.assign(sum.begin(), sum.end());
      if (c.centroid.empty()) c.centroid = embedder_.embed(c.descriptor.description);
    }
    library::FetchDescriptor members;
    members.predicate = "customCategoryID = ? AND ocrText IS NOT NULL AND ocrText != '' AND "
                        "deleted = 0 AND deletedAt IS NULL";
    members.arguments = {library::SqlValue(row->id.uuidString())};
    members.sortBy = "importedAt DESC";
    members.limit = kExemplarsPerCategory;
    if (auto items = context_.fetch<library::ScreenshotItem>(members)) {
      for (const auto& item : *items) {
        auto v = embedder_.embed(*item->ocrText);
        if (!v.empty()) c.exemplars.push_back(std::move(v));
      }
    }
    if (defaults_) {
      for (const auto& text : defaults_->stringListForKey(antiExemplarKey(row->id))) {
        auto v = embedder_.embed(text);
        if (!v.empty()) c.antiExemplars.push_back(std::move(v));
      }
    }
    refs->categories.push_back(std::move(c));
  }
  std::lock_guard lock(mutex_);
  references_ = std::move(refs);
  stale_ = false;
}

std::shared_ptr<const SemanticCustomCategoryMatcher::References>
SemanticCustomCategoryMatcher::references() {
  std::lock_guard lock(mutex_);
  return references_;
}

std::vector<CustomCategoryDescriptor> SemanticCustomCategoryMatcher::categories() {
  reload();
  auto refs = references();
  std::vector<CustomCategoryDescriptor> out;
  for (const auto& c : refs->categories) out.push_back(c.descriptor);
  return out;
}

std::vector<CustomCategoryScore> SemanticCustomCategoryMatcher::scores(
    const CustomMatchInput& input) {
  auto refs = references();
  std::vector<CustomCategoryScore> out;
  std::string text = input.ocrText;
  std::set<std::string, std::less<>> labels;
  for (const auto& l : input.classificationLabels) {
    text += "\n" + l.label;
    labels.insert(library::lowercased(l.label));
  }
  const std::string lower = library::lowercased(library::validUtf8(text));
  std::set<std::string, std::less<>> words;
  for (auto w : splitWords(lower)) words.emplace(w);
  const std::vector<float> vector = embedder_.embed(text);
  const auto& t = kCustomCategoryThresholds;
  for (const auto& c : refs->categories) {
    CustomCategoryScore s;
    s.id = c.descriptor.id;
    if (!vector.empty()) {
      s.semantic = cosineSimilarity(vector, c.centroid);
      s.bestExemplar = Best(vector, c.exemplars);
      s.bestAntiExemplar = Best(vector, c.antiExemplars);
    }
    for (const auto& k : c.descriptor.keywords) {
      if (HasKeyword(words, k)) ++s.keywordHit;
      if (HasKeyword(labels, k)) s.labelScore = 1;
    }
    const bool evidence = s.keywordHit >= 2 ||
                          ((s.keywordHit >= 1 || s.labelScore > 0) &&
                           s.semantic >= t.semanticWithKeyword) ||
                          s.semantic >= t.semanticAlone || s.bestExemplar >= t.exemplar;
    const bool vetoed =
        s.bestAntiExemplar >= t.antiExemplar && s.bestAntiExemplar > s.bestExemplar;
    s.matches = evidence && !vetoed;
    s.score = std::clamp(0.5 * std::max(s.semantic / t.semanticAlone, s.bestExemplar) +
                             0.15 * std::min(s.keywordHit, 3) + 0.05 * s.labelScore,
                         0.0, 1.0);
    out.push_back(s);
  }
  return out;
}

namespace {

CustomMatch Explained(const CustomCategoryScore& s) {
  char explanation[160];
  std::snprintf(explanation, sizeof explanation,
                "keywords %d, semantic %.2f, exemplar %.2f, anti-exemplar %.2f", s.keywordHit,
                s.semantic, s.bestExemplar, s.bestAntiExemplar);
  return CustomMatch{s.id, s.score, explanation};
}

}  // namespace

std::optional<CustomMatch> SemanticCustomCategoryMatcher::match(const CustomMatchInput& input) {
  std::optional<CustomCategoryScore> best;
  for (const auto& s : scores(input)) {
    if (s.matches && (!best || s.score > best->score)) best = s;
  }
  if (!best) return std::nullopt;
  return Explained(*best);
}

std::optional<CustomMatch> SemanticCustomCategoryMatcher::matchCategory(
    const UUID& categoryID, const CustomMatchInput& input) {
  for (const auto& s : scores(input)) {
    if (s.id == categoryID) return s.matches ? std::optional(Explained(s)) : std::nullopt;
  }
  return std::nullopt;
}

}  // namespace klipora::intelligence
