// OCRService: turns a screenshot into its text, line by line with positions,
// for search, classification, titles and redaction.
//
// A recognition decodes the image to grey (bounded: huge images are shrunk
// while decoding to at most maxDecodedPixels), splits it into tiles when it
// is larger than the recogniser handles in bounded memory, prepares each tile
// (ink normalised to dark on white, text brought to a readable size; see
// ocr_preparation.h) and reads it with a pooled engine at the accurate level
// (automatic page layout); the text that layout left out is then read a line
// at a time (ocr_layout.h). When the accurate level fails the fast level runs
// as a fallback ("ocr-fallback .fast lines=N"). A hang guard abandons an
// accurate recognition that runs longer than hangGuardSeconds: the recogniser
// checks it between words, and one stuck where it never checks is left
// running and its engine replaced (ocr_hang_guard.h). Identical recognitions running at the same
// time are done once (BlockingVision).
//
// Errors: unreadableImage when the image cannot be decoded; recognizerStill-
// Loading when no engine finished loading in time; recognizerUnavailable when
// an engine cannot be loaded (a missing language pack names the package to
// install) or both levels failed; accurateHangGuardTripped.
//
// Warm-up and keep-warm keep the engines loaded so that the first screenshot
// after a quiet spell does not pay for loading them.
//
// Thread rules: recognizeTextWithLayout (blocking form), warmUp and the
// keep-warm ticks run off the main thread, several at once; startKeepWarm,
// stopKeepWarm and systemDidWake are called on the main thread. Stop keep-warm
// and drain the queue given to it before destroying the service.
#pragma once

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/clock.h"
#include "platform/image_codec.h"
#include "platform/ocr_engine.h"
#include "platform/user_defaults.h"
#include "processing/ocr_engine_pool.h"
#include "processing/ocr_job_sharing.h"
#include "processing/ocr_preparation.h"
#include "processing/ocr_result.h"

namespace klipora::processing {

// User-defaults key listing the languages the recogniser reads, as
// Tesseract language codes ("eng", "deu", "chi_sim").
inline constexpr char kRecognitionLanguagesKey[] = "com.klipora.ocr.languages";
// The languages under that key; English when it lists none.
std::vector<std::string> recognitionLanguages(const UserDefaults& defaults);

struct OCRServiceConfig {
  std::vector<std::string> languages = {"eng"};
  int engineCount = 2;  // recognitions that may run at once
  double hangGuardSeconds = 600;
  // How long a recognition waits for an engine that is busy or loading.
  double engineWaitSeconds = 60;
  // A keep-warm tick slower than this marks the recogniser unhealthy.
  double keepWarmHealthLimitMs = 2000;
  int64_t maxDecodedPixels = 100'000'000;
  int maxTileSide = 4096;
  OCRPreparationOptions preparation;
  // After the accurate page layout, read the text it left out a line at a
  // time (see ocr_layout.h).
  bool recoverDroppedText = true;
};

struct OCROptions {
  bool fastOnly = false;        // the fast level only, no accurate attempt
  bool characterBoxes = false;  // fill OCRLine::characterBoxes
  // The shared-job name: requests of one name for one image share one run
  // (see BlockingVision); "auto-redact" for redaction.
  std::string job = {};
  // Content identity for job sharing (such as the item's checksum); computed
  // from the bytes when empty.
  std::string contentKey;
};

class OCRService {
 public:
  OCRService(OcrEngineFactory& engines, ImageCodec& codec, Clock& clock,
             OCRServiceConfig config = {});
  ~OCRService();
  OCRService(const OCRService&) = delete;
  OCRService& operator=(const OCRService&) = delete;

  // Blocking: recognises an encoded image (any format the codec reads).
  OCRResultOrError recognizeTextWithLayout(std::string_view encodedImage,
                                           const OCROptions& options = {});
  // Blocking: recognises pixels already in memory (1, 3 or 4 channels).
  OCRResultOrError recognizeTextWithLayout(const PixelImage& image, const OCROptions& options = {});
  // Runs the blocking form on `queue` and calls `done` there.
  void recognizeTextWithLayout(std::string encodedImage, OCROptions options, Executor& queue,
                               std::function<void(OCRResultOrError)> done);

  // Once per process: loads the engines and recognises the warm-up image with
  // each ("ocr-warmup done ms=N" or "ocr-warmup FAILED ms=N").
  void warmUp();
  // Every `everySeconds`, and when the system wakes, a tick recognises the
  // warm-up image on `queue` with an idle engine (loading one if none is
  // loaded; skipped while every engine is busy, or while a tick is in flight)
  // and judges health against keepWarmHealthLimitMs.
  void startKeepWarm(double everySeconds, Timers& timers, Executor& queue);
  void stopKeepWarm();
  void systemDidWake();
  bool keepWarmStarted() const { return keepWarmStarted_; }
  bool keepWarmHealthy() const { return keepWarmHealthy_; }

  // Warms other image models on the warm-up image (called by warmUp()).
  void setWarmImageModels(std::function<void(const PixelImage&)> warm);
  // Languages to load from now on; engines reload on next use.
  void setLanguages(std::vector<std::string> languages);

  // A small image with a line of text, generated without fonts.
  static PixelImage makeWarmUpImage();

  const BlockingVision& blockingVision() const { return blockingVision_; }

 private:
  struct Attempt;
  OCRResultOrError recognizePixels(PixelImage pixels, const OCROptions& options);
  Attempt recognizeAtLevel(const PixelImage& grey, OcrLevel level, bool characterBoxes);
  void requestKeepWarmTick();
  void runKeepWarmTick();

  ImageCodec& codec_;
  Clock& clock_;
  const OCRServiceConfig config_;
  OCREnginePool pool_;
  BlockingVision blockingVision_;
  std::atomic<bool> warmUpOnce_{false};
  std::function<void(const PixelImage&)> warmImageModels_;
  // Keep-warm state; touched only by the keep-warm loop.
  std::atomic<bool> keepWarmStarted_{false};
  std::atomic<bool> keepWarmInFlight_{false};
  std::atomic<bool> keepWarmHealthy_{true};
  Timers* keepWarmTimers_ = nullptr;
  Executor* keepWarmQueue_ = nullptr;
  std::optional<TimerId> keepWarmTimer_;
};

}  // namespace klipora::processing
