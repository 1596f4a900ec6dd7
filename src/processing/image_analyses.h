// ImageAnalyses: the real phase-1 analyses of a processing run. Text is read
// by the recognition service on the recognition threads, labels come from the
// classification service on its own serial thread, and the feature print is
// made from a small grey decode on the worker threads. Each analysis reads
// the library copy itself; a file that cannot be read or decoded is reported
// as unreadable.
//
// Thread rules: calls come from the main thread; the work runs on the given
// executors, which must outlive every call in flight.
#pragma once

#include "intelligence/classification_service.h"
#include "platform/file_system.h"
#include "platform/image_codec.h"
#include "processing/item_analyses.h"
#include "processing/ocr_service.h"

namespace klipora::processing {

struct ImageAnalysesThreads {
  Executor& recognition;  // at least as many threads as recognition engines
  Executor& labels;       // one thread: a labeler need not be re-entrant
  Executor& workers;
  // Recognition for items of the priority lane (ItemData::fresh); null: they
  // share `recognition`.
  Executor* freshRecognition = nullptr;
};

class ImageAnalyses final : public ItemAnalyses {
 public:
  // Pixels decoded for a feature print: enough for a 9 × 8 hash, cheap to get.
  static constexpr int64_t kFeaturePrintPixels = 256 * 256;

  ImageAnalyses(FileSystem& fs, ImageCodec& codec, OCRService& ocr,
                intelligence::ClassificationService& labeler, ImageAnalysesThreads threads)
      : fs_(fs), codec_(codec), ocr_(ocr), labeler_(labeler), threads_(threads) {}

  void recognizeText(const ItemData& item, std::function<void(OCROutcome)> done) override;
  void labelImage(const ItemData& item, std::function<void(LabelsOutcome)> done) override;
  void makeFeaturePrint(const ItemData& item,
                        std::function<void(std::optional<library::Bytes>)> done) override;

 private:
  FileSystem& fs_;
  ImageCodec& codec_;
  OCRService& ocr_;
  intelligence::ClassificationService& labeler_;
  ImageAnalysesThreads threads_;
};

}  // namespace klipora::processing
