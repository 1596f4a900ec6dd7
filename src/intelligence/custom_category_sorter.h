// CustomCategorySorter: files the screenshots already in the library into
// one user category on request ("Apply to Existing Screenshots"). It walks
// the library in batches, asks its scorer whether each screenshot belongs,
// files those that do (never one the user or processing filed elsewhere),
// and reports progress and the count filed so far. One run per category: a
// new run, or cancel(), ends the one under way through its run token, and
// that run reports itself cancelled.
//
// Thread rules: sort() blocks and runs on the thread that owns the context;
// start() walks on that thread's executor, one batch per turn, so the
// thread goes on serving meanwhile; isSorting(), cancel() and state() are
// safe from any thread.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

#include "library/model_context.h"
#include "library/screenshot_item.h"
#include "platform/clock.h"

namespace klipora::intelligence {

// Decides whether one screenshot belongs to one category: the processing
// queue, which matches by the evidence it matches new screenshots with.
// Called on the sorter's thread.
class CustomSortScorer {
 public:
  virtual ~CustomSortScorer() = default;
  // Once before a run: the category may be new or changed.
  virtual void prepareToScore(const UUID& categoryID) { (void)categoryID; }
  virtual bool belongs(const UUID& categoryID, const library::ScreenshotItem& item) = 0;
};

struct CustomSortProgress {
  UUID categoryID;
  int64_t examined = 0;
  int64_t total = 0;
  int64_t assigned = 0;
  double fraction() const { return total > 0 ? double(examined) / double(total) : 1.0; }
};

class CustomCategorySorter {
 public:
  struct Result {
    std::optional<UUID> categoryID;
    int64_t assigned = 0;
    bool cancelled = false;
    Date finishedAt;
  };
  struct State {
    std::optional<UUID> categoryID;
    bool isRunning = false;
    double progress = 0;
    CustomSortProgress latest;  // of the run of `categoryID`
    std::optional<Result> lastResult;
  };
  using Progress = std::function<void(const CustomSortProgress&)>;

  CustomCategorySorter(library::ModelContext& context, Clock& clock, CustomSortScorer& scorer,
                       int64_t batchSize = 200)
      : context_(context), clock_(clock), scorer_(scorer), batchSize_(batchSize) {}
  ~CustomCategorySorter() { *alive_ = false; }

  bool isSorting(const UUID& categoryID) const;
  void cancel(const UUID& categoryID);
  State state() const;

  // Runs to the end or until cancelled; `progress` is called after each
  // batch. An unreadable store or a failed save ends the run with its error.
  klipora::Result<Result> sort(const UUID& categoryID, Progress progress = {});
  // The same run, one batch per turn of `loop` (the context's thread);
  // `done` gets its end. Batches not run when the sorter goes are dropped.
  void start(const UUID& categoryID, Executor& loop, Progress progress = {},
             std::function<void(klipora::Result<Result>)> done = {});

 private:
  struct Walk;
  klipora::Result<std::shared_ptr<Walk>> begin(const UUID& categoryID);
  // One batch; the run's end once it has ended.
  std::optional<klipora::Result<Result>> step(Walk& walk, const Progress& progress);
  Result finish(const Walk& walk, bool cancelled);
  void continueWalk(std::shared_ptr<Walk> walk, Executor& loop, Progress progress,
                    std::function<void(klipora::Result<Result>)> done);

  library::ModelContext& context_;
  Clock& clock_;
  CustomSortScorer& scorer_;
  const int64_t batchSize_;
  mutable std::mutex mutex_;
  std::map<UUID, uint64_t> runTokens_;  // the current run of each category
  uint64_t nextToken_ = 1;
  State state_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace klipora::intelligence
