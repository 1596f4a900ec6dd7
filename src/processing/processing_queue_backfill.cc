// Late results stored after their run went on without them, the custom
// category re-match that follows, the scoring of existing screenshots for a
// user category, and the missing-text retry pass.
#include "library/screenshot_item.h"
#include "platform/log.h"
#include "processing/processing_queue.h"
#include "processing/processing_queue_internal.h"

namespace klipora::processing {

using library::ScreenshotItem;

void ProcessingQueue::backfillText(const UUID& id, OCROutcome outcome) {
  {
    std::lock_guard lock(lateLock_);
    lateOCRPending_.erase(id);
  }
  auto item = findItem(deps_.context, id);
  const std::string file = item ? item->originalFilename : id.uuidString();
  if (!outcome.result) {
    if (outcome.unreadable) {
      log::info("Processing", "ocr-backfill file=%s SKIP image unreadable", file.c_str());
    } else {
      log::info("Processing", "ocr-late-failure file=%s %s", file.c_str(),
                outcome.error ? outcome.error->describeWithDetail().c_str() : "");
    }
    return;
  }
  if (!item) {
    log::info("Processing", "ocr-backfill file=%s SKIP item no longer exists", file.c_str());
    return;
  }
  if (item->isTrashed()) {
    log::info("Processing", "ocr-backfill file=%s SKIP item is in the trash", file.c_str());
    return;
  }
  if (item->ocrText && !item->ocrText->empty()) {
    log::info("Processing", "ocr-backfill file=%s SKIP item already has text", file.c_str());
    return;
  }
  item->ocrText = outcome.result->text;
  if (item->processingState() == library::ProcessingState::partiallyFailed &&
      item->processingError == "OCR failed") {
    item->setProcessingState(library::ProcessingState::complete);
    item->processingError.reset();
  }
  deps_.saver.scheduleSave();
  log::info("Processing", "ocr-backfill file=%s chars=%zu", file.c_str(),
            outcome.result->text.size());
  rematchCustom(id);
}

void ProcessingQueue::backfillLabels(const UUID& id, uint64_t token, LabelsOutcome outcome) {
  auto item = findItem(deps_.context, id);
  if (!item || item->isTrashed() || outcome.labels.empty()) return;
  {
    std::lock_guard lock(latestLock_);
    auto it = latestRun_.find(id);
    if (it != latestRun_.end() && it->second != token) {
      log::info("Processing", "vision-backfill file=%s SKIP superseded by a newer run",
                item->originalFilename.c_str());
      return;
    }
  }
  std::vector<std::string> labels;
  std::vector<float> confidences;
  for (const auto& l : outcome.labels) {
    labels.push_back(l.label);
    confidences.push_back(l.confidence.value_or(0));
  }
  item->setClassificationLabels(labels);
  item->setClassificationConfidences(confidences);
  deps_.saver.scheduleSave();
  log::info("Processing", "vision-backfill file=%s labels=%zu", item->originalFilename.c_str(),
            labels.size());
  rematchCustom(id);
}

void ProcessingQueue::backfillFeaturePrint(const UUID& id, uint64_t token,
                                           std::optional<library::Bytes> print) {
  if (!print) return;
  auto item = findItem(deps_.context, id);
  if (!item || item->isTrashed()) return;
  {
    std::lock_guard lock(latestLock_);
    auto it = latestRun_.find(id);
    if (it != latestRun_.end() && it->second != token) return;
  }
  item->featurePrintData = std::move(print);
  deps_.saver.scheduleSave();
  log::info("Processing", "featureprint-backfill file=%s", item->originalFilename.c_str());
}

void ProcessingQueue::rematchCustom(const UUID& id) {
  auto categories = deps_.customCategories.categories();
  if (categories.empty()) {
    if (onItemBackfilled) onItemBackfilled(id);
    return;
  }
  rematchLimiter_.acquire([this, id, alive = alive_] {
    auto item = findItem(deps_.context, id);
    if (!item || item->customCategoryID) {
      rematchLimiter_.release();
      if (item && onItemBackfilled) onItemBackfilled(id);
      return;
    }
    auto input = intelligence::customMatchInputOf(*item);
    deps_.workers.post([this, id, input, alive] {
      auto match = deps_.customCategories.match(input);
      deps_.mainThread.post([this, id, match, alive] {
        if (!*alive) return;
        rematchLimiter_.release();
        auto item = findItem(deps_.context, id);
        if (!item) return;
        if (match && !item->customCategoryID) {
          item->customCategoryID = match->id;
          deps_.saver.scheduleSave();
        }
        log::info("Processing", "custom-rematch file=%s matched=%s", item->originalFilename.c_str(),
                  match ? "yes" : "no");
        if (onItemBackfilled) onItemBackfilled(id);
      });
    });
  });
}

void ProcessingQueue::prepareToScore(const UUID&) {
  // Loads the categories and their references again when they changed.
  (void)deps_.customCategories.categories();
}

bool ProcessingQueue::belongs(const UUID& categoryID, const ScreenshotItem& item) {
  auto input = intelligence::customMatchInputOf(item);
  if (input.ocrText.empty() && input.classificationLabels.empty()) return false;
  return deps_.customCategories.matchCategory(categoryID, input).has_value();
}

void ProcessingQueue::requestOCRRetrySoon() {
  if (soonRetryScheduled_ || !running_) return;
  soonRetryScheduled_ = true;
  retrySoonTimer_ = deps_.timers.scheduleOnce(config_.retrySoonDelay, [this] {
    retrySoonTimer_.reset();
    soonRetryScheduled_ = false;
    retryMissingOCRPass();
  });
}

void ProcessingQueue::retryMissingOCRPass() {
  {
    std::lock_guard lock(retryLock_);
    if (retryPass_.running) {
      retryPass_.rerun = true;
      return;
    }
    retryPass_.running = true;
  }
  library::FetchDescriptor d;
  d.predicate =
      "processingStateRaw = ? AND processingError = ? AND deleted = 0 AND "
      "deletedAt IS NULL";
  d.arguments = {library::SqlValue(std::string("partiallyFailed")),
                 library::SqlValue(std::string("OCR failed"))};
  d.sortBy = "importedAt";
  d.limit = 200;
  auto items = deps_.context.fetch<ScreenshotItem>(d);
  std::vector<UUID> ids;
  if (items) {
    for (const auto& item : *items) ids.push_back(item->id);
  }
  log::info("Processing", "ocr-retry %zu item(s) are waiting for their text", ids.size());
  retryNextMissing(std::move(ids), 0, 0);
}

void ProcessingQueue::retryNextMissing(std::vector<UUID> ids, size_t index, int failures) {
  if (index >= ids.size() || !running_) {
    retryPassFinished();
    return;
  }
  auto item = findItem(deps_.context, ids[index]);
  if (!item || item->isTrashed()) {
    retryNextMissing(std::move(ids), index + 1, failures);
    return;
  }
  ItemData data;
  data.id = item->id;
  data.libraryPath = item->libraryPath;
  data.originalFilename = item->originalFilename;
  data.checksum = item->checksum;
  ocrLimiter_.acquire(
      [this, data, ids = std::move(ids), index, failures, alive = alive_]() mutable {
        deps_.analyses.recognizeText(data, [this, data, ids = std::move(ids), index, failures,
                                            alive](OCROutcome outcome) mutable {
          deps_.mainThread.post([this, data, ids = std::move(ids), index, failures, alive,
                                 outcome = std::move(outcome)]() mutable {
            if (!*alive) return;
            ocrLimiter_.release();
            if (outcome.result) {
              backfillText(data.id, std::move(outcome));
              retryNextMissing(std::move(ids), index + 1, 0);
              return;
            }
            if (!outcome.unreadable && ++failures >= 3) {
              log::info("Processing",
                        "ocr-retry file=%s FAILED; recognizer still failing, pass "
                        "stopped",
                        data.originalFilename.c_str());
              retryPassFinished();
              return;
            }
            retryNextMissing(std::move(ids), index + 1, failures);
          });
        });
      });
}

void ProcessingQueue::retryPassFinished() {
  bool again;
  {
    std::lock_guard lock(retryLock_);
    again = retryPass_.rerun;
    retryPass_ = {};
  }
  if (again) retryMissingOCRPass();
}

}  // namespace klipora::processing
