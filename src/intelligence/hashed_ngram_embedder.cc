#include "intelligence/hashed_ngram_embedder.h"

#include <cmath>
#include <cstdint>
#include <string>

#include "intelligence/text_words.h"
#include "library/search_text.h"

namespace klipora::intelligence {
namespace {

// A whole word says more than any one of its trigrams.
constexpr float kWordWeight = 1.0f;
constexpr float kTrigramWeight = 0.5f;

uint64_t Fnv1a(std::string_view bytes, uint64_t seed) {
  uint64_t hash = 14695981039346656037ull ^ seed;
  for (unsigned char c : bytes) {
    hash ^= c;
    hash *= 1099511628211ull;
  }
  return hash;
}

void AddFeature(std::vector<float>& vector, std::string_view feature, uint64_t seed, float weight) {
  uint64_t hash = Fnv1a(feature, seed);
  float sign = (hash >> 63) ? -1.0f : 1.0f;
  vector[hash % vector.size()] += sign * weight;
}

// Character trigrams of " word ", counted in code points.
void AddTrigrams(std::vector<float>& vector, std::string_view word) {
  std::string padded = " " + std::string(word) + " ";
  std::vector<size_t> starts;
  for (size_t i = 0; i < padded.size(); ++i) {
    if ((static_cast<unsigned char>(padded[i]) & 0xC0) != 0x80) starts.push_back(i);
  }
  starts.push_back(padded.size());
  for (size_t i = 0; i + 3 < starts.size(); ++i) {
    std::string_view trigram(padded.data() + starts[i], starts[i + 3] - starts[i]);
    AddFeature(vector, trigram, 0x7472, kTrigramWeight);
  }
}

class HashedNgramEmbedder final : public TextEmbedder {
 public:
  std::vector<float> embed(std::string_view text) override {
    const std::string lower = library::lowercased(library::validUtf8(text));
    std::vector<float> vector(kHashedNgramDimensions, 0.0f);
    const auto words = splitWords(lower);
    for (std::string_view word : words) {
      AddFeature(vector, word, 0x776f, kWordWeight);
      AddTrigrams(vector, word);
    }
    double norm = 0;
    for (float v : vector) norm += double(v) * v;
    if (words.empty() || norm == 0) return {};
    const float scale = static_cast<float>(1.0 / std::sqrt(norm));
    for (float& v : vector) v *= scale;
    return vector;
  }

  std::string name() const override { return "hashed-ngram"; }
};

}  // namespace

std::unique_ptr<TextEmbedder> makeHashedNgramEmbedder() {
  return std::make_unique<HashedNgramEmbedder>();
}

}  // namespace klipora::intelligence
