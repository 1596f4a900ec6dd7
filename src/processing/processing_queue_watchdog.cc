// The watchdog, start-up recovery, the reference sets classification reads,
// and the language model's refinement.
#include <algorithm>

#include "library/screenshot_item.h"
#include "library/search_index.h"
#include "platform/log.h"
#include "processing/processing_queue.h"
#include "processing/processing_queue_internal.h"

namespace klipora::processing {

using library::FetchDescriptor;
using library::ScreenshotItem;
using library::SqlValue;

namespace {

constexpr const char* kNonTerminalPredicate =
    "processingStateRaw IN ('pending', 'thumbnailGenerated', 'ocrComplete', "
    "'classificationComplete', 'enrichmentComplete') AND deleted = 0 AND deletedAt IS NULL";

// Bounds on what the reference sets hold, so building them costs the same
// at 100 items as at 100,000.
constexpr int64_t kVisualReferences = 5000;
constexpr int64_t kSemanticExamplesPerCategory = 24;

}  // namespace

void ProcessingQueue::noteProgress(const UUID& id) {
  lastProgress_[id] = deps_.clock.monotonicSeconds();
}

std::vector<UUID> ProcessingQueue::sweepStuckItems(double staleAfter) {
  FetchDescriptor d;
  d.predicate = kNonTerminalPredicate;
  d.sortBy = "importedAt";
  d.limit = 1000;
  auto items = deps_.context.fetch<ScreenshotItem>(d);
  std::vector<UUID> stale;
  if (!items) return stale;
  const double nowMono = deps_.clock.monotonicSeconds();
  const double nowWall = deps_.clock.now().timeIntervalSince1970();
  for (const auto& item : *items) {
    if (auto it = lastProgress_.find(item->id); it != lastProgress_.end()) {
      if (nowMono - it->second < staleAfter) continue;
    } else {
      double changed = item->importedAt.timeIntervalSince1970();
      if (item->lastProcessedAt) {
        changed = std::max(changed, item->lastProcessedAt->timeIntervalSince1970());
      }
      if (nowWall - changed < staleAfter) continue;
    }
    stale.push_back(item->id);
  }
  return stale;
}

void ProcessingQueue::watchdogTick() {
  if (!running_) {
    log::info("Watchdog", "tick: not running, skipping");
    return;
  }
  auto stale = sweepStuckItems(config_.staleAfter);
  auto inFlight = inFlightIDs();
  std::set<UUID> busy(inFlight.begin(), inFlight.end());
  log::info("Watchdog", "tick: stale=%zu inFlight=%zu", stale.size(), busy.size());
  if (stale.empty()) return;
  std::vector<UUID> toQueue;
  for (const auto& id : stale) {
    if (!busy.count(id)) toQueue.push_back(id);
  }
  const size_t skipped = stale.size() - toQueue.size();
  if (toQueue.empty()) {
    log::info("Watchdog", "%zu stale item(s) found, all currently in-flight — skipping",
              stale.size());
    return;
  }
  if (skipped > 0) {
    log::info("Watchdog",
              "re-enqueueing %zu stuck item(s) (stale > %.0fs); skipped %zu "
              "already in-flight",
              toQueue.size(), config_.staleAfter, skipped);
  } else {
    log::info("Watchdog", "re-enqueueing %zu stuck item(s) (stale > %.0fs)", toQueue.size(),
              config_.staleAfter);
  }
  for (const auto& id : toQueue) {
    auto item = findItem(deps_.context, id);
    log::info("Watchdog", "  → enqueue id=%s state=%s", id.uuidString().c_str(),
              item ? item->processingStateRaw.c_str() : "?");
    enqueue(id);
  }
}

void ProcessingQueue::recoverTimeoutFailures() {
  if (deps_.userDefaults.boolForKey(kRecoveredTimeoutsKey)) return;
  FetchDescriptor d;
  d.predicate = "processingStateRaw = 'failed' AND processingError LIKE 'Processing timed out%'";
  auto items = deps_.context.fetch<ScreenshotItem>(d);
  if (!items) return;  // left unmarked: tried again at the next start
  std::vector<UUID> ids;
  for (const auto& item : *items) {
    item->setProcessingState(library::ProcessingState::pending);
    item->processingError.reset();
    ids.push_back(item->id);
  }
  if (!ids.empty()) deps_.saver.scheduleSave();
  log::info("Recovery", "re-queueing %zu item(s) failed by the old 120s OCR stall", ids.size());
  if (Status s = deps_.userDefaults.setBool(kRecoveredTimeoutsKey, true); !s.ok()) {
    log::warning("Recovery", "cannot record the recovery: %s", s.message().c_str());
  }
  requeueItems(ids);
}

void ProcessingQueue::refreshStaleReferenceSetsIfDue() {
  const double now = deps_.clock.monotonicSeconds();
  if (referenceSets_ &&
      (!referenceSetsStale_ || now - referenceSetsBuiltAt_ < config_.referenceRefreshInterval)) {
    return;
  }
  auto sets = std::make_shared<ReferenceSets>();
  FetchDescriptor visual;
  visual.predicate = "featurePrintData IS NOT NULL AND deleted = 0 AND deletedAt IS NULL";
  visual.sortBy = "importedAt DESC";
  visual.limit = kVisualReferences;
  if (auto items = deps_.context.fetch<ScreenshotItem>(visual)) {
    for (const auto& item : *items) {
      sets->visual.push_back({*item->featurePrintData, item->effectiveCategory()});
    }
  }
  std::vector<std::pair<library::ScreenshotCategory, std::string>> examples;
  for (auto category : library::kAllScreenshotCategories) {
    if (category == library::ScreenshotCategory::uncategorized) continue;
    FetchDescriptor d;
    d.predicate =
        "COALESCE(userCategory, generatedCategory) = ? AND ocrText IS NOT NULL AND "
        "ocrText != '' AND processingStateRaw = 'complete' AND deleted = 0";
    d.arguments = {SqlValue(std::string(library::rawValue(category)))};
    d.sortBy = "importedAt DESC";
    d.limit = kSemanticExamplesPerCategory;
    if (auto items = deps_.context.fetch<ScreenshotItem>(d)) {
      for (const auto& item : *items) examples.emplace_back(category, *item->ocrText);
    }
  }
  sets->semantic =
      std::make_unique<intelligence::SemanticReferenceSet>(deps_.embedder, std::move(examples));
  referenceSets_ = std::move(sets);
  referenceSetsStale_ = false;
  referenceSetsBuiltAt_ = now;
}

// Keywords are the words that make an item stand out from the library, so
// the enrichment needs to know how common each of its words already is. The
// full-text index answers that with one lookup per word; without an answer
// the keywords fall back to the item's own word counts.
void ProcessingQueue::lookUpDocumentFrequencies(Run& run, const std::string& text) {
  if (text.empty()) return;
  auto found = library::SearchIndex::documentFrequencies(deps_.context.database(),
                                                         intelligence::keywordCandidates(text));
  if (!found) {
    log::warning("Processing", "keyword frequencies unavailable for %s: %s",
                 run.data.originalFilename.c_str(), found.error().message().c_str());
    return;
  }
  run.documentFrequency = std::move(found->perTerm);
  run.documentCount = found->documentCount;
}

std::shared_ptr<ProcessingQueue::Refinement> ProcessingQueue::refine(const Run& run) {
  auto refinement = std::make_shared<Refinement>();
  auto& arbiter = deps_.arbiter;
  if (!arbiter.isAvailable()) return refinement;
  auto input = intelligence::makeArbitrationInput(
      run.resolution, run.phase1.ocr.result ? run.phase1.ocr.result->text : "",
      run.data.originalFilename, run.data.sourceAppName, run.phase1.labels.labels,
      run.data.libraryPath);
  std::optional<intelligence::BuiltinArbitration> builtin;
  if (run.customCategories.empty()) {
    builtin = arbiter.arbitrate(input);
  } else if (auto combined = arbiter.arbitrateAndMatchCustom(input, run.customCategories)) {
    builtin = combined->builtin;
    if (combined->custom) refinement->customCategory = combined->custom->id;
  }
  if (!builtin) return refinement;
  refinement->modelAnswered = true;
  refinement->category = builtin->category;
  refinement->explanation = builtin->explanation;
  if (!builtin->title.empty()) refinement->modelTitle = arbiter.cleanTitle(builtin->title);
  return refinement;
}

}  // namespace klipora::processing
