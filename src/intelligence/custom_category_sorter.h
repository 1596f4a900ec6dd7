// CustomCategorySorter: files the screenshots already in the library into
// one user category on request ("Apply to Existing Screenshots"). It walks
// the library in batches, asks its scorer whether each screenshot belongs,
// files those that do (never one the user or processing filed elsewhere),
// and reports progress and the count filed so far. One run per category: a
// new run, or cancel(), ends the one under way through its run token, and
// that run reports itself cancelled.
//
// Thread rules: sort() blocks and runs on the thread that owns the context;
// isSorting(), cancel() and state() are safe from any thread.
#pragma once

#include <functional>
#include <map>
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
    std::optional<Result> lastResult;
  };

  CustomCategorySorter(library::ModelContext& context, Clock& clock, CustomSortScorer& scorer,
                       int64_t batchSize = 200)
      : context_(context), clock_(clock), scorer_(scorer), batchSize_(batchSize) {}

  bool isSorting(const UUID& categoryID) const;
  void cancel(const UUID& categoryID);
  State state() const;

  // Runs to the end or until cancelled; `progress` is called after each
  // batch. An unreadable store or a failed save ends the run with its error.
  klipora::Result<Result> sort(const UUID& categoryID,
                               std::function<void(const CustomSortProgress&)> progress = {});

 private:
  library::ModelContext& context_;
  Clock& clock_;
  CustomSortScorer& scorer_;
  const int64_t batchSize_;
  mutable std::mutex mutex_;
  std::map<UUID, uint64_t> runTokens_;  // the current run of each category
  uint64_t nextToken_ = 1;
  State state_;
};

}  // namespace klipora::intelligence
