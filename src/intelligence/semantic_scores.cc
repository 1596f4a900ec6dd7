#include "intelligence/semantic_scores.h"

#include <algorithm>
#include <cmath>

namespace klipora::intelligence {

SemanticReferenceSet::SemanticReferenceSet(
    TextEmbedder& embedder, std::vector<std::pair<ScreenshotCategory, std::string>> examples)
    : embedder_(&embedder) {
  std::map<ScreenshotCategory, std::vector<double>> sums;
  for (const auto& [category, text] : examples) {
    std::vector<float> vector = embedder.embed(text);
    if (vector.empty()) continue;
    auto& sum = sums[category];
    // An embedder whose length changed midway (another server model) cannot
    // be averaged with what came before; the first length wins.
    if (sum.empty()) sum.assign(vector.size(), 0.0);
    if (sum.size() != vector.size()) continue;
    for (size_t i = 0; i < vector.size(); ++i) sum[i] += vector[i];
  }
  for (const auto& [category, sum] : sums) {
    double norm = 0;
    for (double v : sum) norm += v * v;
    if (norm == 0) continue;
    std::vector<float>& centroid = centroids_[category];
    centroid.reserve(sum.size());
    for (double v : sum) centroid.push_back(static_cast<float>(v / std::sqrt(norm)));
  }
}

std::map<ScreenshotCategory, double> SemanticReferenceSet::scores(std::string_view text) const {
  std::map<ScreenshotCategory, double> scores;
  if (centroids_.empty()) return scores;
  const std::vector<float> vector = embedder_->embed(text);
  if (vector.empty()) return scores;
  for (const auto& [category, centroid] : centroids_) {
    scores[category] = std::clamp(cosineSimilarity(vector, centroid), 0.0, 1.0);
  }
  return scores;
}

}  // namespace klipora::intelligence
