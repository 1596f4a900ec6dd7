#include "engine_probes.h"

#include "pipeline_tools.h"

namespace klipora::bench {
namespace {

class TimingOcrEngine final : public OcrEngine {
 public:
  TimingOcrEngine(std::unique_ptr<OcrEngine> target, CallLedger& ledger)
      : target_(std::move(target)), ledger_(ledger) {}
  Result<std::vector<OcrObservation>> recognize(const OcrRequest& request) override {
    const double start = Now();
    auto result = target_->recognize(request);
    const char* level = request.level == OcrLevel::accurate ? "recognize accurate"
                        : request.level == OcrLevel::fast   ? "recognize fast"
                                                            : "recognize lines";
    ledger_.add(level, Now() - start);
    return result;
  }

 private:
  std::unique_ptr<OcrEngine> target_;
  CallLedger& ledger_;
};

}  // namespace

void CallLedger::add(const std::string& name, double seconds) {
  std::lock_guard lock(mutex_);
  CallStats& s = stats_[name];
  ++s.calls;
  s.seconds += seconds;
}

std::map<std::string, CallStats> CallLedger::snapshot() const {
  std::lock_guard lock(mutex_);
  return stats_;
}

void CallLedger::clear() {
  std::lock_guard lock(mutex_);
  stats_.clear();
}

Result<ImageProperties> CountingImageCodec::properties(std::string_view bytes) {
  const double start = Now();
  auto result = target_.properties(bytes);
  ledger_.add("image properties", Now() - start);
  return result;
}

Result<std::string> CountingImageCodec::makeJpegThumbnail(std::string_view bytes, int maxPixelSize,
                                                          int quality) {
  const double start = Now();
  auto result = target_.makeJpegThumbnail(bytes, maxPixelSize, quality);
  ledger_.add("thumbnail", Now() - start);
  return result;
}

Result<ImageProperties> CountingImageCodec::propertiesOfFile(const std::string& path) {
  const double start = Now();
  auto result = target_.propertiesOfFile(path);
  ledger_.add("image properties", Now() - start);
  return result;
}

Result<std::string> CountingImageCodec::makeJpegThumbnailOfFile(const std::string& path,
                                                                int maxPixelSize, int quality) {
  const double start = Now();
  auto result = target_.makeJpegThumbnailOfFile(path, maxPixelSize, quality);
  ledger_.add("thumbnail", Now() - start);
  return result;
}

Result<PixelImage> CountingImageCodec::decodePixels(std::string_view bytes,
                                                    const PixelDecodeOptions& options) {
  const double start = Now();
  auto result = target_.decodePixels(bytes, options);
  std::string name =
      options.format == PixelDecodeOptions::Format::grey ? "decode grey" : "decode rgba";
  if (options.maxPixels > 0) name += " <=" + std::to_string(options.maxPixels) + "px";
  ledger_.add(name, Now() - start);
  return result;
}

Result<std::unique_ptr<OcrEngine>> TimingOcrEngineFactory::makeEngine(
    const std::vector<std::string>& languages) {
  const double start = Now();
  auto engine = target_.makeEngine(languages);
  ledger_.add("load engine", Now() - start);
  if (!engine) return engine;
  return std::unique_ptr<OcrEngine>(std::make_unique<TimingOcrEngine>(std::move(*engine), ledger_));
}

}  // namespace klipora::bench
