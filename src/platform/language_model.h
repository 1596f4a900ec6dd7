// LanguageModel: a language model that answers in JSON shaped by a schema,
// reached through a local server that speaks the OpenAI-compatible chat API
// (llama.cpp's server, Ollama, LocalAI). The endpoint and the model name are
// user defaults; with no endpoint set the model is unavailable and nothing
// is sent anywhere. The real client (HttpLanguageModel, platform/linux)
// reads the endpoint afresh on every call, so a change takes effect at once.
//
// Thread rules: every call may block on the network and is made from a
// worker thread; calls may overlap. A CancelSignal may be fired from any
// thread while a call that was given it is under way.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/status.h"
#include "platform/user_defaults.h"

namespace klipora {

// User-defaults keys: the base URL of the API ("http://127.0.0.1:8080/v1")
// and the model to ask (empty: the first model the server lists).
inline constexpr char kModelEndpointKey[] = "com.klipora.model.endpoint";
inline constexpr char kModelNameKey[] = "com.klipora.model.name";

struct ModelEndpoint {
  std::string baseURL;  // empty: not configured
  std::string modelName;
};

// The endpoint the user defaults hold now.
ModelEndpoint readModelEndpoint(const UserDefaults& defaults);

enum class ModelAvailability {
  available,
  notConfigured,      // no endpoint set
  serverUnreachable,  // nothing answers at the endpoint
  modelNotReady,      // the server answers but lists no usable model (yet)
  unknownReason,      // the server answered something we cannot read
};

// "available", "unavailable(notConfigured)", "unavailable(serverUnreachable)",
// "unavailable(modelNotReady)", "unavailable(unknownReason)".
std::string availabilityText(ModelAvailability availability);

struct ModelAvailabilityReport {
  ModelAvailability availability = ModelAvailability::notConfigured;
  std::string modelName;  // the model that will answer, when available
  std::string detail;     // why not, in words, for `klipora model status`
};

struct ModelImage {
  std::string bytes;
  std::string mimeType;  // "image/jpeg", "image/png"
};

struct ModelRequest {
  std::string instructions;  // the system message
  std::string prompt;        // the user message
  // The answer must be one JSON object of this schema (a JSON text).
  std::string schemaName;
  std::string schemaJSON;
  std::optional<ModelImage> image;
  double temperature = 0;
  int maxTokens = 300;
};

// Fired once from any thread; a call that holds it stops and returns
// Cancelled. A handler set after the signal fired runs at once.
class CancelSignal {
 public:
  void cancel() {
    std::lock_guard lock(mutex_);
    if (cancelled_) return;
    cancelled_ = true;
    if (handler_) handler_();
  }
  bool isCancelled() const {
    std::lock_guard lock(mutex_);
    return cancelled_;
  }
  // The handler runs under the signal's lock, so after clearHandler()
  // returns it is no longer running; it must be quick and must not call
  // back into the signal.
  void setHandler(std::function<void()> handler) {
    std::lock_guard lock(mutex_);
    handler_ = std::move(handler);
    if (cancelled_ && handler_) handler_();
  }
  void clearHandler() {
    std::lock_guard lock(mutex_);
    handler_ = nullptr;
  }

 private:
  mutable std::mutex mutex_;
  bool cancelled_ = false;
  std::function<void()> handler_;
};

class LanguageModel {
 public:
  LanguageModel() = default;
  LanguageModel(const LanguageModel&) = delete;
  LanguageModel& operator=(const LanguageModel&) = delete;
  virtual ~LanguageModel() = default;

  // The endpoint the next call goes to.
  virtual ModelEndpoint endpoint() const = 0;
  // Asks the server which models it has; never fails (an unreachable server
  // is an availability, not an error). Bounded to a few seconds.
  virtual ModelAvailabilityReport availability() = 0;
  // The answer's text (the JSON object the schema asked for). Unavailable
  // when the server cannot be reached, FailedPrecondition when it refuses
  // the request (an error status: no such model, no image input), Corruption
  // when its reply cannot be read, Cancelled once `cancel` fires. Waits as
  // long as the server takes: the caller bounds it through `cancel`, and a
  // call returns promptly once it fires.
  virtual Result<std::string> respond(const ModelRequest& request, CancelSignal& cancel) = 0;
  // One vector per text, in order, from the server's embeddings endpoint.
  // Bounded to a few seconds.
  virtual Result<std::vector<std::vector<float>>> embed(const std::vector<std::string>& texts) = 0;
};

// Makes the model that reads its endpoint from `endpoint` on every call.
using LanguageModelFactory =
    std::function<std::unique_ptr<LanguageModel>(std::function<ModelEndpoint()> endpoint)>;

}  // namespace klipora
