// TextEmbedder: turns a text into a fixed-length vector whose cosine
// similarity to another text's vector says how alike their meanings are. The
// model server's embeddings endpoint is one implementation; a built-in hashed
// character n-gram embedding is the fallback when no server answers.
//
// Thread rules: embed() may be called from several threads at once.
#pragma once

#include <cmath>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace klipora {

class TextEmbedder {
 public:
  TextEmbedder() = default;
  TextEmbedder(const TextEmbedder&) = delete;
  TextEmbedder& operator=(const TextEmbedder&) = delete;
  virtual ~TextEmbedder() = default;

  // A unit-length vector; every vector of one embedder has the same length.
  // Empty when the text has nothing to embed or the embedder cannot answer.
  virtual std::vector<float> embed(std::string_view text) = 0;
  // Names the embedder in log lines ("hashed-ngram", "server:<model>").
  virtual std::string name() const = 0;
};

// Cosine similarity in -1...1; 0 when either vector is empty or the lengths
// differ.
inline double cosineSimilarity(std::span<const float> a, std::span<const float> b) {
  if (a.empty() || a.size() != b.size()) return 0;
  double dot = 0, na = 0, nb = 0;
  for (size_t i = 0; i < a.size(); ++i) {
    dot += double(a[i]) * b[i];
    na += double(a[i]) * a[i];
    nb += double(b[i]) * b[i];
  }
  if (na == 0 || nb == 0) return 0;
  return dot / (std::sqrt(na) * std::sqrt(nb));
}

}  // namespace klipora
