// FoundationModelClassifier: the ModelArbiter that asks a language model to
// check the rules' category, to match the user's own categories in the same
// request and to write a short title; it also expands the keywords of a
// user category. The model is an arbiter, not the first judge: it gets the
// rules' winner with its evidence and candidates and is told to override
// only on clear contradiction. Every request races a time limit on the
// clock (20 s); when the limit wins the request is cancelled and the late
// answer is dropped. An unavailable model, a time-out, an error, an answer
// that is not the schema's JSON, and a category outside the known list all
// give nothing, so the rules' result stands. Each event is written to the
// classifier's trail ("[CLASSIFY] fm-… key=value").
//
// Thread rules: every call but warmUp() blocks and runs on a worker thread;
// calls may overlap. warmUp() posts its work to the background executor.
#pragma once

#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "intelligence/foundation_model_answers.h"
#include "intelligence/model_arbiter.h"
#include "platform/clock.h"
#include "platform/file_system.h"
#include "platform/image_codec.h"
#include "platform/language_model.h"

namespace klipora::intelligence {

struct FoundationModelClassifierConfig {
  double timeoutSeconds = 20;        // both arbitration requests
  double expandTimeoutSeconds = 30;  // keyword expansion
  // How long an availability answer is trusted.
  double availabilityCacheSeconds = 10;
  // The attached screenshot is sent as a JPEG whose longest side is at most
  // this many pixels.
  int attachmentPixelSize = 1024;
};

class FoundationModelClassifier final : public ModelArbiter {
 public:
  FoundationModelClassifier(LanguageModel& model, Clock& clock, FileSystem& fileSystem,
                            ImageCodec& imageCodec, Executor& background,
                            FoundationModelClassifierConfig config = {});

  bool isAvailable() override;
  // Availability, cached for config.availabilityCacheSeconds while the
  // endpoint stays the same.
  ModelAvailabilityReport availability();
  void warmUp(bool includeCustomCategorySchema) override;
  std::optional<BuiltinArbitration> arbitrate(const ArbitrationInput& input) override;
  std::optional<CombinedArbitration> arbitrateAndMatchCustom(
      const ArbitrationInput& input, const std::vector<CustomCategoryDescriptor>& categories) override;
  std::optional<std::string> cleanTitle(const std::string& text) override;
  std::vector<std::string> expandKeywords(const std::string& categoryName,
                                          const std::string& description,
                                          const std::vector<std::string>& base) override;
  void cancelRequests() override;

 private:
  struct Answer;
  Answer ask(ModelRequest request, double timeoutSeconds);
  std::optional<ModelImage> attachment(const std::string& path);

  LanguageModel& model_;
  Clock& clock_;
  FileSystem& fileSystem_;
  ImageCodec& imageCodec_;
  Executor& background_;
  const FoundationModelClassifierConfig config_;
  std::mutex mutex_;
  std::optional<ModelAvailabilityReport> availability_;
  std::string availabilityKey_;  // the endpoint it was asked of
  double availabilityCheckedAt_ = 0;
  // Set once the server refused a request with an image: later requests
  // go without one.
  bool imagesRefused_ = false;
  // The requests under way, and whether cancelRequests() ended them all.
  std::set<CancelSignal*> inFlight_;
  bool cancelled_ = false;
};

}  // namespace klipora::intelligence
