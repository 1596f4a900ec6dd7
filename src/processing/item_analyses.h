// ItemAnalyses: the three image analyses that start an item's processing run,
// text recognition, image labels and the feature print, seen as asynchronous
// calls so that the processing queue can bound each in time and go on
// without it. ImageAnalyses (image_analyses.h) is the real set; tests give
// the queue fakes that answer when the test says.
//
// Thread rules: the calls are made on the main thread and return at once;
// each calls its `done` exactly once, from any thread.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "intelligence/category_evidence.h"
#include "library/enums.h"
#include "library/sql_value.h"
#include "platform/date.h"
#include "platform/uuid.h"
#include "processing/ocr_result.h"

namespace klipora::processing {

// The plain copy of what a run needs, fetched on the main thread at its start.
struct ItemData {
  UUID id;
  std::string libraryPath;  // absolute path of the library copy
  // Its thumbnail, when made: a small JPEG, far cheaper to decode than the
  // copy for what needs only a rough look.
  std::optional<std::string> thumbnailPath;
  std::string originalFilename;
  std::optional<std::string> sourceAppBundleID;
  std::optional<std::string> sourceAppName;
  library::ImportSourceType importSource = library::ImportSourceType::manualImport;
  std::string checksum;
  Date capturedOrImportedAt;
  // Run in the priority lane: a screenshot just taken, or a retry.
  bool fresh = false;
};

struct OCROutcome {
  std::optional<OCRResult> result;
  // The image could not be loaded at all.
  bool unreadable = false;
  // Why there is no result, when there is none.
  std::optional<OCRError> error;
};

struct LabelsOutcome {
  std::vector<intelligence::ClassificationLabel> labels;
  bool unreadable = false;
};

class ItemAnalyses {
 public:
  ItemAnalyses() = default;
  ItemAnalyses(const ItemAnalyses&) = delete;
  ItemAnalyses& operator=(const ItemAnalyses&) = delete;
  virtual ~ItemAnalyses() = default;

  virtual void recognizeText(const ItemData& item, std::function<void(OCROutcome)> done) = 0;
  virtual void labelImage(const ItemData& item, std::function<void(LabelsOutcome)> done) = 0;
  virtual void makeFeaturePrint(const ItemData& item,
                                std::function<void(std::optional<library::Bytes>)> done) = 0;
};

}  // namespace klipora::processing
