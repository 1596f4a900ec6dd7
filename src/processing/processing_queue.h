// ProcessingQueue: takes imported items by id and runs the analysis of each:
// text recognition, image labels and a feature print (phase 1, each bounded
// by its own budget), category resolution with the user's own categories,
// the language model's refinement when one is available, then keywords,
// entities, title and summary. It owns the item's processing state, which it
// writes in pipeline order (ocrComplete once the text is stored,
// classificationComplete at the early persist, enrichmentComplete, then
// complete or partiallyFailed), bounds a whole run by itemTimeout, and keeps
// going through hangs and crashes with a watchdog and start-up recovery.
//
// Two lanes: the bulk lane runs at most 2 items at once, the priority lane
// (a screenshot just taken, a user's retry) at most 1, and priority text
// recognitions go ahead of bulk ones for a free engine, so a fresh
// screenshot never waits behind a bulk import. An id is never in two runs at
// once; an id enqueued while it runs runs exactly once more afterwards. A
// newer run of an item (its image replaced) supersedes an older one, whose
// remaining writes are dropped.
//
// Phase-1 budgets: text 30 s (a 12,000 × 8,000 multi-monitor capture reads
// in about 11 s), labels 10 s, feature print 10 s; all well under the 120 s
// item limit, so classification goes on without a late input, which is
// stored later (backfill).
//
// partiallyFailed: text recognition failed for another reason than an
// unreadable image (not loaded, hung, engine unavailable); the item keeps its
// rule result from the file name and application, its error is "OCR failed",
// and a missing-text retry pass reads it again later.
//
// Thread rules: every public method is called on the main thread, as are the
// callbacks; the analyses run on the executors they are given.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "intelligence/category_resolver.h"
#include "intelligence/custom_category_matcher.h"
#include "intelligence/custom_category_sorter.h"
#include "intelligence/model_arbiter.h"
#include "library/model_context.h"
#include "platform/clock.h"
#include "platform/notification_center.h"
#include "platform/text_embedder.h"
#include "platform/user_defaults.h"
#include "processing/bounded_wait.h"
#include "processing/concurrency_limiter.h"
#include "processing/item_analyses.h"
#include "processing/processing_save_coalescer.h"

namespace klipora::processing {

// Version of the categorisation rules, written to categorizationVersion with
// every category the queue picks.
inline constexpr int kCategorizationRulesVersion = 1;

struct ProcessingQueueConfig {
  double itemTimeout = 120;
  double ocrBudget = 30;
  double labelsBudget = 10;
  double featurePrintBudget = 10;
  double watchdogInterval = 60;
  double staleAfter = 180;
  double retrySoonDelay = 30;
  // Reference sets for classification are rebuilt at most this often.
  double referenceRefreshInterval = 60;
};

struct ProcessingQueueDeps {
  library::ModelContext& context;
  ProcessingSaveCoalescer& saver;
  Clock& clock;
  Timers& timers;
  Executor& mainThread;
  // Classification, model refinement and enrichment.
  Executor& workers;
  UserDefaults& userDefaults;
  NotificationCenter* notifications = nullptr;
  ItemAnalyses& analyses;
  intelligence::ModelArbiter& arbiter;
  intelligence::CustomCategoryMatcher& customCategories;
  TextEmbedder& embedder;
};

// What `klipora status` shows of the queue.
struct ProcessingQueueStatus {
  bool running = false;
  int bulkWaiting = 0;
  int bulkRunning = 0;
  int priorityWaiting = 0;
  int priorityRunning = 0;
  int inFlight = 0;
  int lateOCRPending = 0;
  bool retryPassRunning = false;
};

class ProcessingQueue final : public intelligence::CustomSortScorer {
 public:
  static constexpr char kRecoveredTimeoutsKey[] = "ProcessingQueue.recoveredTimeoutFailures.v1";

  explicit ProcessingQueue(ProcessingQueueDeps deps, ProcessingQueueConfig config = {});
  ~ProcessingQueue() override;
  ProcessingQueue(const ProcessingQueue&) = delete;
  ProcessingQueue& operator=(const ProcessingQueue&) = delete;

  void start();
  // Stops taking work and the watchdog; runs under way finish.
  void stop();
  bool isRunning() const { return running_; }

  void enqueue(const UUID& id);          // bulk lane
  void enqueuePriority(const UUID& id);  // priority lane
  void requeueItems(const std::vector<UUID>& ids);
  // Drops the item's run (it left the library or went to the trash): nothing
  // more is written for it.
  void cancel(const UUID& id);
  // The item changed under its run (a new image, a retry that put it back to
  // pending): the run writes nothing more and stops at its next save, so a
  // run asked for now processes the item as it is. Asking again without this
  // keeps the run's work, and the run after it finds the item finished.
  void supersede(const UUID& id);

  // Non-terminal items whose last change is older than `staleAfter` seconds.
  std::vector<UUID> sweepStuckItems(double staleAfter);
  void recoverTimeoutFailures();
  void requestOCRRetrySoon();

  // Scoring for the sorter of a user category: the evidence new screenshots
  // are matched with (text, image labels, feature print, the category's
  // examples and the user's corrections), against that one category.
  void prepareToScore(const UUID& categoryID) override;
  bool belongs(const UUID& categoryID, const library::ScreenshotItem& item) override;

  std::vector<UUID> inFlightIDs() const;
  ProcessingQueueStatus status() const;

  std::function<void(const UUID&)> onItemProcessed;
  std::function<void(const UUID&)> onItemBackfilled;
  std::function<void(const UUID&)> onItemClassified;

 private:
  struct Run;
  struct Phase1;
  struct Refinement;
  enum class Lane { bulk, priority };

  // Lanes (processing_queue.cc).
  void enqueueIn(const UUID& id, Lane lane);
  bool tryAcquireInFlight(const UUID& id, Lane lane);
  void releaseInFlight(const UUID& id);
  bool isCancelled(const UUID& id) const;

  // One run (processing_queue_run.cc).
  void processItemCoreWithTimeout(const UUID& id, bool priority, std::function<void()> finished);
  void processItemCore(std::shared_ptr<Run> run);
  void startPhase1(std::shared_ptr<Run> run);
  void phase1Done(std::shared_ptr<Run> run);
  void earlyPersist(std::shared_ptr<Run> run);
  void finalPersist(std::shared_ptr<Run> run, std::shared_ptr<Refinement> refinement);
  void endRun(const std::shared_ptr<Run>& run);
  // Worker thread: the language model's view of the heuristic result.
  std::shared_ptr<Refinement> refine(const Run& run);
  void lookUpDocumentFrequencies(Run& run, const std::string& text);
  bool supersededOrEnded(const std::shared_ptr<Run>& run, const char* where);
  void markItemFailedIfNonTerminal(const UUID& id, const std::string& reason);

  // Late results and the missing-text pass (processing_queue_backfill.cc).
  void backfillText(const UUID& id, OCROutcome outcome);
  void backfillLabels(const UUID& id, uint64_t token, LabelsOutcome outcome);
  void backfillFeaturePrint(const UUID& id, uint64_t token, std::optional<library::Bytes> print);
  void rematchCustom(const UUID& id);
  void retryMissingOCRPass();
  void retryNextMissing(std::vector<UUID> ids, size_t index, int failures);
  void retryPassFinished();

  // Watchdog and reference sets (processing_queue_watchdog.cc).
  void watchdogTick();
  void refreshStaleReferenceSetsIfDue();
  void noteProgress(const UUID& id);

  ProcessingQueueDeps deps_;
  const ProcessingQueueConfig config_;
  BoundedWait wait_;
  intelligence::CategoryResolver resolver_;

  bool running_ = false;
  ConcurrencyLimiter concurrencyLimiter_{2};
  ConcurrencyLimiter priorityLimiter_{1};
  ConcurrencyLimiter ocrLimiter_{2};
  ConcurrencyLimiter rematchLimiter_{1};

  mutable std::mutex inFlightLock_;
  std::set<UUID> inFlightIDs_;
  std::map<UUID, Lane> rerunIDs_;
  mutable std::mutex cancelledLock_;
  std::set<UUID> cancelledItemIDs_;
  mutable std::mutex lateLock_;
  std::set<UUID> lateOCRPending_;
  mutable std::mutex retryLock_;
  struct RetryPassState {
    bool running = false;
    bool rerun = false;
  } retryPass_;
  bool soonRetryScheduled_ = false;
  mutable std::mutex latestLock_;
  std::map<UUID, uint64_t> latestRun_;
  uint64_t nextToken_ = 1;
  std::map<UUID, double> lastProgress_;  // main thread: monotonic time of the last write

  std::optional<TimerId> watchdogTask_;
  std::optional<TimerId> retrySoonTimer_;
  std::vector<NotificationCenter::ObserverId> observers_;
  int waitingBulk_ = 0;
  int waitingPriority_ = 0;

  // Reference sets, built on the main thread, read by workers.
  struct ReferenceSets;
  std::shared_ptr<const ReferenceSets> referenceSets_;
  bool referenceSetsStale_ = true;
  double referenceSetsBuiltAt_ = -1e9;
  // Liveness token for work that outlives the queue (late results).
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace klipora::processing
