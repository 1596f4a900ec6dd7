// ModelServerEmbedder: the TextEmbedder of the model server's embeddings
// endpoint, normalised to unit length, with the built-in embedder as its
// fallback: while the model is unavailable, and for a while after the
// server failed an embeddings request (a server started without embeddings
// answers every one with an error), texts go to the fallback. Vectors of
// the two differ in length, so a caller that keeps vectors compares only
// those of one length (cosineSimilarity gives 0 otherwise).
//
// Thread rules: embed() from any thread, concurrently.
#pragma once

#include <functional>
#include <memory>
#include <mutex>

#include "platform/clock.h"
#include "platform/language_model.h"
#include "platform/text_embedder.h"

namespace klipora::intelligence {

class ModelServerEmbedder final : public TextEmbedder {
 public:
  // How long the server is left alone after a failed request.
  static constexpr double kRetryAfterSeconds = 300;

  ModelServerEmbedder(LanguageModel& model, Clock& clock, std::function<bool()> available,
                      std::unique_ptr<TextEmbedder> fallback);

  std::vector<float> embed(std::string_view text) override;
  std::string name() const override;

 private:
  LanguageModel& model_;
  Clock& clock_;
  std::function<bool()> available_;
  std::unique_ptr<TextEmbedder> fallback_;
  mutable std::mutex mutex_;
  double failedAt_ = -1e300;
  bool lastFromServer_ = false;
};

}  // namespace klipora::intelligence
