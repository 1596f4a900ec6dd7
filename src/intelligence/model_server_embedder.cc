#include "intelligence/model_server_embedder.h"

#include <cmath>

#include "platform/log.h"

namespace klipora::intelligence {

ModelServerEmbedder::ModelServerEmbedder(LanguageModel& model, Clock& clock,
                                         std::function<bool()> available,
                                         std::unique_ptr<TextEmbedder> fallback)
    : model_(model), clock_(clock), available_(std::move(available)),
      fallback_(std::move(fallback)) {}

std::vector<float> ModelServerEmbedder::embed(std::string_view text) {
  bool tryServer;
  {
    std::lock_guard lock(mutex_);
    tryServer = clock_.monotonicSeconds() - failedAt_ >= kRetryAfterSeconds;
  }
  if (tryServer && !text.empty() && available_()) {
    auto vectors = model_.embed({std::string(text)});
    if (vectors && vectors->size() == 1 && !(*vectors)[0].empty()) {
      std::vector<float> v = std::move((*vectors)[0]);
      double norm = 0;
      for (float x : v) norm += double(x) * x;
      if (norm > 0 && std::isfinite(norm)) {
        const float scale = static_cast<float>(1 / std::sqrt(norm));
        for (float& x : v) x *= scale;
        std::lock_guard lock(mutex_);
        lastFromServer_ = true;
        return v;
      }
    }
    log::classify("embed FALLBACK err=\"" +
                  (vectors ? std::string("an empty or zero vector") : vectors.error().message()) +
                  "\" — using the built-in embedder for a while");
    std::lock_guard lock(mutex_);
    failedAt_ = clock_.monotonicSeconds();
  }
  {
    std::lock_guard lock(mutex_);
    lastFromServer_ = false;
  }
  return fallback_->embed(text);
}

std::string ModelServerEmbedder::name() const {
  std::lock_guard lock(mutex_);
  if (!lastFromServer_) return fallback_->name();
  std::string model = model_.endpoint().modelName;
  return "server:" + (model.empty() ? std::string("default") : model);
}

}  // namespace klipora::intelligence
