#include "processing/image_analyses.h"

#include "intelligence/feature_print.h"
#include "platform/log.h"

namespace klipora::processing {

void ImageAnalyses::recognizeText(const ItemData& item, std::function<void(OCROutcome)> done) {
  Executor& thread =
      item.fresh && threads_.freshRecognition ? *threads_.freshRecognition : threads_.recognition;
  thread.post([this, path = item.libraryPath, key = item.checksum, done = std::move(done)] {
    OCROutcome outcome;
    auto bytes = fs_.readFile(path);
    if (!bytes) {
      outcome.unreadable = true;
      outcome.error = OCRError::unreadableImage(bytes.error().message());
      done(std::move(outcome));
      return;
    }
    auto result = ocr_.recognizeTextWithLayout(*bytes, OCROptions{.contentKey = key});
    if (result) {
      outcome.result = std::move(*result);
    } else {
      outcome.unreadable = result.error().kind == OCRError::Case::unreadableImage;
      outcome.error = result.error();
    }
    done(std::move(outcome));
  });
}

void ImageAnalyses::labelImage(const ItemData& item, std::function<void(LabelsOutcome)> done) {
  threads_.labels.post([this, path = item.libraryPath, done = std::move(done)] {
    LabelsOutcome outcome;
    auto labels = labeler_.classify(path);
    if (labels) {
      outcome.labels = std::move(*labels);
    } else {
      outcome.unreadable = true;
    }
    done(std::move(outcome));
  });
}

void ImageAnalyses::makeFeaturePrint(const ItemData& item,
                                     std::function<void(std::optional<library::Bytes>)> done) {
  // The print looks at a 256×256 grey version of the image: the thumbnail
  // holds more than that, and decodes in a fraction of the copy's time.
  threads_.workers.post(
      [this, path = item.libraryPath, thumbnail = item.thumbnailPath, done = std::move(done)] {
        auto bytes = thumbnail ? fs_.readFile(*thumbnail) : fs_.readFile(path);
        if (!bytes && thumbnail) bytes = fs_.readFile(path);
        if (!bytes) {
          done(std::nullopt);
          return;
        }
        auto pixels = codec_.decodePixels(
            *bytes, {.format = PixelDecodeOptions::Format::grey, .maxPixels = kFeaturePrintPixels});
        if (!pixels) {
          done(std::nullopt);
          return;
        }
        done(intelligence::makeFeaturePrint(*pixels));
      });
}

}  // namespace klipora::processing
