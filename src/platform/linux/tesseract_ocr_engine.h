// TesseractOcrEngine: OcrEngine on Tesseract 5's C++ API with the LSTM
// recogniser only. "accurate" runs automatic page segmentation on the image,
// "fast" sparse-text segmentation. Each engine recognises on one thread: the
// OpenMP threads Tesseract would start are turned off on the calling thread,
// since on two cores its own threading is slower than one image per core.
//
// TesseractOcrEngineFactory loads language models from `tessdataDir`
// ($TESSDATA_PREFIX when set, else Debian's /usr/share/tesseract-ocr/5/tessdata).
// A missing model is reported with the Debian package that provides it.
//
// Thread rules: as OcrEngine; the factory is safe from any thread.
#pragma once

#include <string>

#include "platform/ocr_engine.h"

namespace klipora {

class TesseractOcrEngineFactory final : public OcrEngineFactory {
 public:
  // An empty `tessdataDir` picks the default described above.
  explicit TesseractOcrEngineFactory(std::string tessdataDir = "");

  Result<std::unique_ptr<OcrEngine>> makeEngine(
      const std::vector<std::string>& languages) override;
  // Debian's language packages, and any other model in the tessdata folder.
  std::vector<OcrLanguage> languages() override;

  const std::string& tessdataDir() const { return tessdataDir_; }
  // "tesseract-ocr-chi-sim" for "chi_sim".
  static std::string debianPackageFor(const std::string& language);

 private:
  std::string tessdataDir_;
};

}  // namespace klipora
