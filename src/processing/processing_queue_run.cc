// One processing run: phase 1 under budgets, the heuristic pick persisted
// early, the model's refinement and the enrichment persisted at the end.
#include <cmath>

#include "library/screenshot_item.h"
#include "platform/log.h"
#include "processing/processing_queue.h"
#include "processing/processing_queue_internal.h"

namespace klipora::processing {

using library::ProcessingState;
using library::ScreenshotItem;

std::shared_ptr<ScreenshotItem> findItem(library::ModelContext& context, const UUID& id) {
  auto item = context.fetchByKey<ScreenshotItem>(id.uuidString());
  if (!item) {
    log::error("Processing", "fetch of %s failed: %s", id.uuidString().c_str(),
               item.error().message().c_str());
    return nullptr;
  }
  if (*item) return *item;
  // A fresh import reaches the queue before its batched save.
  for (auto& pending : context.pendingInserts<ScreenshotItem>()) {
    if (pending->id == id) return pending;
  }
  return nullptr;
}

namespace {

// States only move forward within a run.
void advanceState(ScreenshotItem& item, ProcessingState state) {
  ProcessingState current = item.processingState();
  if (!library::isTerminal(current) && current < state) item.setProcessingState(state);
}

}  // namespace

void ProcessingQueue::processItemCoreWithTimeout(const UUID& id, bool priority,
                                                 std::function<void()> finished) {
  auto run = std::make_shared<Run>();
  run->id = id;
  run->priority = priority;
  run->finished = std::move(finished);
  {
    std::lock_guard lock(latestLock_);
    run->token = nextToken_++;
    latestRun_[id] = run->token;
  }
  run->timeout = deps_.timers.scheduleOnce(config_.itemTimeout, [this, run, alive = alive_] {
    if (!*alive || run->ended) return;
    run->timeout.reset();
    log::info("Processing", "item %s timed out after %.0fs — marking failed",
              run->id.uuidString().c_str(), config_.itemTimeout);
    markItemFailedIfNonTerminal(run->id, "Processing timed out after " +
                                             std::to_string(std::lround(config_.itemTimeout)) +
                                             "s. Retry from the inspector");
    endRun(run);
  });
  processItemCore(run);
}

void ProcessingQueue::endRun(const std::shared_ptr<Run>& run) {
  run->ended = true;
  if (run->timeout) {
    deps_.timers.cancel(*run->timeout);
    run->timeout.reset();
  }
  {
    std::lock_guard lock(latestLock_);
    if (auto it = latestRun_.find(run->id); it != latestRun_.end() && it->second == run->token) {
      latestRun_.erase(it);
    }
  }
  if (auto finished = std::move(run->finished)) {
    run->finished = nullptr;
    finished();
  }
}

void ProcessingQueue::processItemCore(std::shared_ptr<Run> run) {
  const std::string idText = run->id.uuidString();
  log::info("Processing", "processItemCore start id=%s", idText.c_str());
  if (isCancelled(run->id)) {
    log::info("Processing", "skipped-cancelled id=%s", idText.c_str());
    endRun(run);
    return;
  }
  auto item = findItem(deps_.context, run->id);
  if (!item) {
    log::info("Processing", "processItemCore id=%s — itemData nil, marking unfetchable",
              idText.c_str());
    markItemFailedIfNonTerminal(run->id, "Could not load item data for processing");
    endRun(run);
    return;
  }
  if (library::isTerminal(item->processingState())) {
    log::info("Processing", "skipped-terminal-state file=%s state=%s",
              item->originalFilename.c_str(), item->processingStateRaw.c_str());
    endRun(run);
    return;
  }
  if (item->isTrashed()) {
    log::info("Processing", "skipped-in-trash file=%s", item->originalFilename.c_str());
    endRun(run);
    return;
  }
  run->data = ItemData{
      .id = item->id,
      .libraryPath = item->libraryPath,
      .thumbnailPath = item->thumbnailPath,
      .originalFilename = item->originalFilename,
      .sourceAppBundleID = item->sourceAppBundleID,
      .sourceAppName = item->sourceAppName,
      .importSource = item->importSource,
      .checksum = item->checksum,
      .capturedOrImportedAt = item->capturedAt.value_or(item->importedAt),
      .fresh = run->priority,
  };
  run->hasCustomCategory = item->customCategoryID.has_value();
  startPhase1(std::move(run));
}

void ProcessingQueue::startPhase1(std::shared_ptr<Run> run) {
  const bool urgent = run->priority;
  auto finishOne = [this, run] {
    if (--run->phase1.outstanding == 0) phase1Done(run);
  };
  const UUID id = run->id;
  const uint64_t token = run->token;
  const std::string file = run->data.originalFilename;

  wait_.value<OCROutcome>(
      [this, data = run->data, urgent, alive = alive_](BoundedWait::Completion<OCROutcome> done) {
        ocrLimiter_.acquire(
            [this, data, done, alive] {
              if (!*alive) return;
              deps_.analyses.recognizeText(data, [this, done, alive](OCROutcome outcome) {
                deps_.mainThread.post([this, alive] {
                  if (*alive) ocrLimiter_.release();
                });
                done(std::move(outcome));
              });
            },
            urgent);
      },
      config_.ocrBudget,
      [this, run, finishOne, file, alive = alive_](std::optional<OCROutcome> outcome) {
        if (!*alive || run->ended) return;
        if (!outcome) {
          log::info("Processing",
                    "file=%s step=ocr OVER-BUDGET: classifying without text; OCR continues and "
                    "will backfill",
                    file.c_str());
          std::lock_guard lock(lateLock_);
          lateOCRPending_.insert(run->id);
          run->phase1.ocrLate = true;
        } else if (outcome->unreadable) {
          markItemFailedIfNonTerminal(run->id, "Image unreadable");
          endRun(run);
          return;
        } else {
          run->phase1.ocr = std::move(*outcome);
          if (run->phase1.ocr.result) {
            if (auto item = findItem(deps_.context, run->id);
                item && !supersededOrEnded(
                            run, " before saving its text; a new run will read the new pixels")) {
              item->ocrText = run->phase1.ocr.result->text;
              advanceState(*item, ProcessingState::ocrComplete);
              deps_.saver.scheduleSave();
              noteProgress(run->id);
            }
          }
        }
        finishOne();
      },
      [this, id, alive = alive_](OCROutcome late) {
        if (*alive) backfillText(id, std::move(late));
      });

  wait_.value<LabelsOutcome>(
      [this, data = run->data](BoundedWait::Completion<LabelsOutcome> done) {
        deps_.analyses.labelImage(data, std::move(done));
      },
      config_.labelsBudget,
      [this, run, finishOne, file, alive = alive_](std::optional<LabelsOutcome> outcome) {
        if (!*alive || run->ended) return;
        if (outcome) {
          run->phase1.labels = std::move(*outcome);
        } else {
          log::info("Processing",
                    "file=%s step=vision OVER-BUDGET: classifying without labels; will backfill",
                    file.c_str());
          run->phase1.labelsLate = true;
        }
        finishOne();
      },
      [this, id, token, alive = alive_](LabelsOutcome late) {
        if (*alive) backfillLabels(id, token, std::move(late));
      });

  wait_.value<std::optional<library::Bytes>>(
      [this, data = run->data](BoundedWait::Completion<std::optional<library::Bytes>> done) {
        deps_.analyses.makeFeaturePrint(data, std::move(done));
      },
      config_.featurePrintBudget,
      [this, run, finishOne, file,
       alive = alive_](std::optional<std::optional<library::Bytes>> print) {
        if (!*alive || run->ended) return;
        if (print) {
          run->phase1.featurePrint = std::move(*print);
        } else {
          log::info("Processing", "file=%s step=featureprint OVER-BUDGET: will backfill",
                    file.c_str());
        }
        finishOne();
      },
      [this, id, token, alive = alive_](std::optional<library::Bytes> late) {
        if (*alive) backfillFeaturePrint(id, token, std::move(late));
      });
}

bool ProcessingQueue::supersededOrEnded(const std::shared_ptr<Run>& run, const char* where) {
  if (run->ended) return true;
  if (isCancelled(run->id)) {
    log::info("Processing", "item-cancelled file=%s%s", run->data.originalFilename.c_str(), where);
    endRun(run);
    return true;
  }
  bool superseded;
  {
    std::lock_guard lock(latestLock_);
    auto it = latestRun_.find(run->id);
    superseded = it != latestRun_.end() && it->second != run->token;
  }
  if (!superseded) return false;
  log::info("Processing", "item-superseded file=%s%s", run->data.originalFilename.c_str(), where);
  endRun(run);
  return true;
}

void ProcessingQueue::phase1Done(std::shared_ptr<Run> run) {
  if (run->ended) return;
  log::info("Processing", "phase1-done file=%s text=%s labels=%zu featureprint=%s",
            run->data.originalFilename.c_str(),
            run->phase1.ocr.result ? "yes" : (run->phase1.ocrLate ? "late" : "no"),
            run->phase1.labels.labels.size(), run->phase1.featurePrint ? "yes" : "no");
  if (supersededOrEnded(run, " before early persist; a new run will process the new pixels")) {
    return;
  }
  refreshStaleReferenceSetsIfDue();
  run->references = referenceSets_;
  run->customCategories = deps_.customCategories.categories();
  const std::string text = run->phase1.ocr.result ? run->phase1.ocr.result->text : "";
  lookUpDocumentFrequencies(*run, text);

  deps_.workers.post([this, run, text, alive = alive_] {
    if (!*alive) return;
    const auto& p1 = run->phase1;
    run->enrichment = intelligence::enrichText(text, run->documentFrequency, run->documentCount);
    intelligence::ResolutionInput input{
        .ocrText = text,
        .classificationLabels = p1.labels.labels,
        .filename = run->data.originalFilename,
        .entities = run->enrichment.entities,
        .semanticScores = {},
        .visualVotes = {},
        .sourceAppBundleID = run->data.sourceAppBundleID,
        .sourceAppName = run->data.sourceAppName,
    };
    if (run->references) {
      if (run->references->semantic && !text.empty()) {
        input.semanticScores = run->references->semantic->scores(text);
      }
      if (p1.featurePrint) {
        input.visualVotes = intelligence::visualVotes(*p1.featurePrint, run->references->visual);
      }
    }
    run->resolution = resolver_.resolve(input);
    if (!run->customCategories.empty()) {
      run->customMatch = deps_.customCategories.match({.ocrText = text,
                                                       .classificationLabels = p1.labels.labels,
                                                       .featurePrint = p1.featurePrint});
    }
    deps_.mainThread.post([this, run, alive] {
      if (*alive) earlyPersist(run);
    });
  });
}

void ProcessingQueue::earlyPersist(std::shared_ptr<Run> run) {
  if (supersededOrEnded(run, " before early persist; a new run will process the new pixels")) {
    return;
  }
  auto item = findItem(deps_.context, run->id);
  if (!item || item->isTrashed()) {
    log::info("Processing", "early-persist file=%s SKIP item %s",
              run->data.originalFilename.c_str(), item ? "is in the trash" : "no longer exists");
    endRun(run);
    return;
  }
  const auto& r = run->resolution;
  item->generatedCategory = r.primaryCategory.value_or(library::ScreenshotCategory::uncategorized);
  item->generatedCategoryConfidence = r.confidence;
  std::vector<library::CategoryScore> candidates;
  for (const auto& c : r.candidates) {
    candidates.push_back({std::string(library::rawValue(c.category)), c.score});
  }
  item->setGeneratedCategoryCandidates(candidates);
  std::vector<std::string> labels;
  std::vector<float> confidences;
  for (const auto& l : run->phase1.labels.labels) {
    labels.push_back(l.label);
    confidences.push_back(l.confidence.value_or(0));
  }
  item->setClassificationLabels(labels);
  item->setClassificationConfidences(confidences);
  if (run->phase1.featurePrint) item->featurePrintData = run->phase1.featurePrint;
  item->categorizationExplanation = r.explanation;
  item->categorizationVersion = kCategorizationRulesVersion;
  if (run->customMatch && !item->customCategoryID) item->customCategoryID = run->customMatch->id;
  advanceState(*item, ProcessingState::classificationComplete);
  deps_.saver.scheduleSave();
  noteProgress(run->id);
  log::info("Processing",
            "early-persist file=%s category=%s confidence=%.2f (heuristic visible "
            "in UI; FM refinement pending)",
            run->data.originalFilename.c_str(),
            std::string(library::rawValue(item->generatedCategory)).c_str(), r.confidence);

  deps_.workers.post([this, run, alive = alive_] {
    if (!*alive) return;
    auto refinement = refine(*run);
    deps_.mainThread.post([this, run, refinement, alive] {
      if (*alive) finalPersist(run, refinement);
    });
  });
}

void ProcessingQueue::finalPersist(std::shared_ptr<Run> run,
                                   std::shared_ptr<Refinement> refinement) {
  if (supersededOrEnded(run, " before final persist; a new run will process the new pixels")) {
    return;
  }
  auto item = findItem(deps_.context, run->id);
  if (!item || item->isTrashed()) {
    log::info("Processing", "final-persist file=%s SKIP item %s",
              run->data.originalFilename.c_str(), item ? "is in the trash" : "no longer exists");
    endRun(run);
    return;
  }
  if (refinement->category && *refinement->category != item->generatedCategory) {
    log::info("Processing", "fm-override file=%s %s -> %s", run->data.originalFilename.c_str(),
              std::string(library::rawValue(item->generatedCategory)).c_str(),
              std::string(library::rawValue(*refinement->category)).c_str());
    item->generatedCategory = *refinement->category;
    item->categorizationExplanation =
        item->categorizationExplanation.value_or("") + " Model: " + refinement->explanation;
  }
  if (refinement->customCategory && !run->hasCustomCategory) {
    item->customCategoryID = refinement->customCategory;
  }
  const auto& e = run->enrichment;
  item->setGeneratedEntities(e.entities);
  item->setGeneratedKeywords(e.keywords);
  item->generatedSummary = e.summary;
  item->generatedTitle = intelligence::makeGeneratedTitle(
      refinement->modelTitle, item->effectiveCategory(), run->data.capturedOrImportedAt);
  item->needsReview =
      !item->userCategory && intelligence::shouldFlagForReview(item->generatedCategoryConfidence);
  advanceState(*item, ProcessingState::enrichmentComplete);

  const auto& ocr = run->phase1.ocr;
  const bool ocrFailed = !run->phase1.ocrLate && !ocr.result && ocr.error.has_value();
  if (ocrFailed) {
    item->setProcessingState(ProcessingState::partiallyFailed);
    item->processingError = "OCR failed";
  } else {
    item->setProcessingState(ProcessingState::complete);
    item->processingError.reset();
  }
  item->lastProcessedAt = deps_.clock.now();
  deps_.saver.scheduleSave();
  lastProgress_.erase(run->id);
  if (ocrFailed) {
    log::info("Processing", "file=%s text recognition failed: %s",
              run->data.originalFilename.c_str(), ocr.error->describeWithDetail().c_str());
    requestOCRRetrySoon();
  }
  if (onItemClassified) onItemClassified(run->id);
  if (onItemProcessed) onItemProcessed(run->id);
  log::info("Processing", "processItemCore done id=%s", run->id.uuidString().c_str());
  endRun(run);
}

void ProcessingQueue::markItemFailedIfNonTerminal(const UUID& id, const std::string& reason) {
  auto item = findItem(deps_.context, id);
  if (!item || library::isTerminal(item->processingState())) return;
  item->setProcessingState(ProcessingState::failed);
  item->processingError = reason;
  item->lastProcessedAt = deps_.clock.now();
  deps_.saver.scheduleSave();
  lastProgress_.erase(id);
  log::info("Processing", "failed id=%s: %s", id.uuidString().c_str(), reason.c_str());
}

}  // namespace klipora::processing
