// Warm-up and keep-warm of OCRService.
#include <array>
#include <cmath>

#include "platform/log.h"
#include "processing/ocr_service.h"

namespace klipora::processing {
namespace {

constexpr char kArea[] = "Processing";
constexpr char kWarmUpText[] = "OCR READY 123";

// 5×7 glyphs of the warm-up text, one string per row, '#' for ink.
const std::array<const char*, 7>* Glyph(char c) {
  static const std::array<const char*, 7> O = {".###.", "#...#", "#...#", "#...#",
                                               "#...#", "#...#", ".###."};
  static const std::array<const char*, 7> C = {".###.", "#...#", "#....", "#....",
                                               "#....", "#...#", ".###."};
  static const std::array<const char*, 7> R = {"####.", "#...#", "#...#", "####.",
                                               "#.#..", "#..#.", "#...#"};
  static const std::array<const char*, 7> E = {"#####", "#....", "#....", "####.",
                                               "#....", "#....", "#####"};
  static const std::array<const char*, 7> A = {".###.", "#...#", "#...#", "#####",
                                               "#...#", "#...#", "#...#"};
  static const std::array<const char*, 7> D = {"####.", "#...#", "#...#", "#...#",
                                               "#...#", "#...#", "####."};
  static const std::array<const char*, 7> Y = {"#...#", "#...#", ".#.#.", "..#..",
                                               "..#..", "..#..", "..#.."};
  static const std::array<const char*, 7> One = {"..#..", ".##..", "..#..", "..#..",
                                                 "..#..", "..#..", ".###."};
  static const std::array<const char*, 7> Two = {".###.", "#...#", "....#", "...#.",
                                                 "..#..", ".#...", "#####"};
  static const std::array<const char*, 7> Three = {".###.", "#...#", "....#", "..##.",
                                                   "....#", "#...#", ".###."};
  switch (c) {
    case 'O':
      return &O;
    case 'C':
      return &C;
    case 'R':
      return &R;
    case 'E':
      return &E;
    case 'A':
      return &A;
    case 'D':
      return &D;
    case 'Y':
      return &Y;
    case '1':
      return &One;
    case '2':
      return &Two;
    case '3':
      return &Three;
    default:
      return nullptr;
  }
}

}  // namespace

PixelImage OCRService::makeWarmUpImage() {
  const int cell = 4, margin = 16, advance = 6 * cell;
  const int length = static_cast<int>(sizeof(kWarmUpText) - 1);
  PixelImage image =
      PixelImage::filled(2 * margin + length * advance, 2 * margin + 7 * cell, 1, 255);
  for (int i = 0; i < length; ++i) {
    const auto* glyph = Glyph(kWarmUpText[i]);
    if (glyph == nullptr) continue;
    for (int gy = 0; gy < 7; ++gy) {
      for (int gx = 0; gx < 5; ++gx) {
        if ((*glyph)[gy][gx] != '#') continue;
        for (int y = 0; y < cell; ++y) {
          uint8_t* row = image.row(margin + gy * cell + y);
          for (int x = 0; x < cell; ++x) row[margin + i * advance + gx * cell + x] = 0;
        }
      }
    }
  }
  return image;
}

void OCRService::warmUp() {
  if (warmUpOnce_.exchange(true)) return;
  const double start = clock_.monotonicSeconds();
  auto elapsedMs = [&] {
    return static_cast<int>(std::lround((clock_.monotonicSeconds() - start) * 1000));
  };
  const PixelImage image = makeWarmUpImage();
  OcrRequest request;
  request.image = &image;
  Status status = pool_.preload(config_.engineCount);
  // Every loaded engine reads the image once, so first-use costs are paid now.
  std::vector<OCREnginePool::Lease> leases;
  while (status.ok()) {
    OCREnginePool::Lease lease = pool_.tryAcquireIdle();
    if (!lease) break;
    auto lines = lease.engine().recognize(request);
    if (!lines) {
      lease.discard();
      status = lines.error();
    }
    leases.push_back(std::move(lease));
  }
  leases.clear();
  if (warmImageModels_) warmImageModels_(image);
  if (status.ok() && pool_.loadedCount() > 0) {
    log::info(kArea, "ocr-warmup done ms=%d", elapsedMs());
  } else {
    log::warning(kArea, "ocr-warmup FAILED ms=%d", elapsedMs());
    if (!status.ok()) log::warning(kArea, "  → %s", status.message().c_str());
  }
}

void OCRService::startKeepWarm(double everySeconds, Timers& timers, Executor& queue) {
  if (keepWarmStarted_.exchange(true)) return;
  keepWarmTimers_ = &timers;
  keepWarmQueue_ = &queue;
  keepWarmTimer_ =
      timers.scheduleRepeating(everySeconds, everySeconds * 0.1, [this] { requestKeepWarmTick(); });
}

void OCRService::stopKeepWarm() {
  if (!keepWarmStarted_.exchange(false)) return;
  if (keepWarmTimer_) keepWarmTimers_->cancel(*keepWarmTimer_);
  keepWarmTimer_.reset();
}

void OCRService::systemDidWake() {
  if (keepWarmStarted_) requestKeepWarmTick();
}

void OCRService::requestKeepWarmTick() {
  if (keepWarmInFlight_.exchange(true)) return;
  keepWarmQueue_->post([this] {
    runKeepWarmTick();
    keepWarmInFlight_ = false;
  });
}

void OCRService::runKeepWarmTick() {
  const double start = clock_.monotonicSeconds();
  OCREnginePool::Lease lease = pool_.tryAcquireIdle();
  if (!lease) {
    // Busy engines are as warm as can be; only an empty pool needs loading.
    if (pool_.loadedCount() > 0) return;
    auto acquired = pool_.acquire(config_.engineWaitSeconds);
    if (acquired) lease = std::move(*acquired);
  }
  bool ok = false;
  if (lease) {
    const PixelImage image = makeWarmUpImage();
    OcrRequest request;
    request.image = &image;
    auto lines = lease.engine().recognize(request);
    ok = lines.has_value();
    if (!ok) lease.discard();
  }
  const int ms = static_cast<int>(std::lround((clock_.monotonicSeconds() - start) * 1000));
  keepWarmHealthy_ = ok && ms <= config_.keepWarmHealthLimitMs;
  if (ok) {
    log::info(kArea, "ocr-keepwarm reloaded ms=%d", ms);
    if (!keepWarmHealthy_) {
      log::warning(kArea, "  → slower than %.0f ms: recognizer marked unhealthy",
                   config_.keepWarmHealthLimitMs);
    }
  } else {
    log::warning(kArea, "ocr-keepwarm FAILED ms=%d", ms);
  }
}

}  // namespace klipora::processing
