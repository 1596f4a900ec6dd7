// Forwarding wrappers of the platform's image codec and text recogniser that
// count each call and the time spent in it, so that a benchmark can say where
// an item's time goes (how often a screenshot is decoded, how busy the
// recognition engines were) without touching the engine.
//
// Thread rules: as the wrapped interfaces; the counters are safe from any
// thread.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "platform/image_codec.h"
#include "platform/ocr_engine.h"

namespace klipora::bench {

struct CallStats {
  int calls = 0;
  double seconds = 0;
};

class CallLedger {
 public:
  void add(const std::string& name, double seconds);
  std::map<std::string, CallStats> snapshot() const;
  void clear();

 private:
  mutable std::mutex mutex_;
  std::map<std::string, CallStats> stats_;
};

class CountingImageCodec final : public ImageCodec {
 public:
  CountingImageCodec(ImageCodec& target, CallLedger& ledger) : target_(target), ledger_(ledger) {}
  Result<ImageProperties> properties(std::string_view bytes) override;
  Result<std::string> makeJpegThumbnail(std::string_view bytes, int maxPixelSize,
                                        int quality) override;
  Result<ImageProperties> propertiesOfFile(const std::string& path) override;
  Result<std::string> makeJpegThumbnailOfFile(const std::string& path, int maxPixelSize,
                                              int quality) override;
  Result<PixelImage> decodePixels(std::string_view bytes,
                                  const PixelDecodeOptions& options) override;

 private:
  ImageCodec& target_;
  CallLedger& ledger_;
};

// Every engine it makes reports its recognitions as "recognize <level>".
class TimingOcrEngineFactory final : public OcrEngineFactory {
 public:
  TimingOcrEngineFactory(OcrEngineFactory& target, CallLedger& ledger)
      : target_(target), ledger_(ledger) {}
  Result<std::unique_ptr<OcrEngine>> makeEngine(const std::vector<std::string>& languages) override;

 private:
  OcrEngineFactory& target_;
  CallLedger& ledger_;
};

}  // namespace klipora::bench
