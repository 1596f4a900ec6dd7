// FakeOcrEngineFactory: engines that read what the test says. Every request
// of every engine goes to `respond`; without one, an image whose pixels are
// all alike holds no text and any other reads as one line "text" covering
// the region (at OcrLevel::lines, one such line per box). Engines check the
// request's shouldStop after responding, as the real one does between words.
// Records each load and each request.
//
// Thread rules: engines may run on several threads at once (a pool hands them
// out); the records are kept under a lock. Set `respond`, `installed` and
// `duringLoad` before the first use.
#pragma once

#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "platform/ocr_engine.h"

namespace klipora::testing {

class FakeOcrEngineFactory final : public OcrEngineFactory {
 public:
  using Responder = std::function<Result<std::vector<OcrObservation>>(const OcrRequest&)>;

  struct Recorded {
    OcrLevel level;
    int width, height;  // of the image
    std::vector<OcrBox> lines;
    bool characterBoxes;
    bool darkOnLight;
  };

  Result<std::unique_ptr<OcrEngine>> makeEngine(
      const std::vector<std::string>& languages) override;
  // `installed`, and `known` besides, with "tesseract-ocr-" package names.
  std::vector<OcrLanguage> languages() override;

  Responder respond;
  // Languages a load finds; others fail as a missing language pack does.
  std::set<std::string> installed = {"eng"};
  std::set<std::string> known = {"chi_sim", "deu", "eng", "jpn"};
  // Runs inside every load (a test may block here to keep a load going).
  std::function<void()> duringLoad;

  std::vector<Recorded> requests() const;
  std::vector<std::vector<std::string>> loads() const;

  // The default reading of `request`.
  static std::vector<OcrObservation> defaultLines(const OcrRequest& request);

 private:
  class Engine;
  void record(const OcrRequest& request);

  mutable std::mutex mutex_;
  std::vector<Recorded> requests_;
  std::vector<std::vector<std::string>> loads_;
};

}  // namespace klipora::testing
