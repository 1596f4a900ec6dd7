// HttpLanguageModel: the LanguageModel of a local server with the
// OpenAI-compatible API: POST {base}/chat/completions with a response_format
// of type json_schema and the image as a base64 data URL, GET {base}/models
// for availability, POST {base}/embeddings. The endpoint is asked for on
// every call; with none set nothing is sent.
//
// Thread rules: safe from any thread; calls may overlap.
#pragma once

#include <functional>

#include "platform/language_model.h"

namespace klipora {

class HttpLanguageModel final : public LanguageModel {
 public:
  explicit HttpLanguageModel(std::function<ModelEndpoint()> endpoint)
      : endpoint_(std::move(endpoint)) {}

  ModelEndpoint endpoint() const override { return endpoint_(); }
  ModelAvailabilityReport availability() override;
  Result<std::string> respond(const ModelRequest& request, CancelSignal& cancel) override;
  Result<std::vector<std::vector<float>>> embed(const std::vector<std::string>& texts) override;

  // Seconds that availability() and embed() wait for the server.
  static constexpr double kAvailabilityTimeout = 3;
  static constexpr double kEmbeddingTimeout = 15;

 private:
  std::function<ModelEndpoint()> endpoint_;
};

// The chat-completions request body for `request` (exposed for tests and
// benchmarks).
std::string chatCompletionBody(const ModelRequest& request, const std::string& modelName);

}  // namespace klipora
