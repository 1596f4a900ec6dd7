// BenchLibrary: a library in a scratch folder, run the way `klipora run`
// runs one: a store on disk, the coordinator with this build's services
// (the processing service with warm recognition engines, no language model,
// no custom categories) and imports through the coordinator, the bulk lane
// for files imported by hand, the priority lane for screenshots just taken.
//
// It watches the engine only through what the engine already offers: the
// queue's onItemProcessed, the log lines of each run (its start and its
// early persist, which is when classificationComplete is set), the save
// coalescer's count, a commit hook on the store's connection, a second
// connection that polls the store for the states other processes see, and
// counting wrappers of the image codec and the recogniser it is given.
//
// Thread rules: main thread, except that run() blocks in the main loop and
// the actions it is given run there.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "app/app_coordinator.h"
#include "engine_probes.h"
#include "library/markup_edit_cleaner.h"
#include "library/model_container.h"
#include "platform/linux/linux_platform.h"
#include "platform/log.h"

namespace klipora::bench {

// Seconds on Now()'s clock; -1 until it happened.
struct ItemTimes {
  double importRequested = -1;
  double imported = -1;          // the import's completion
  double runStarted = -1;        // the queue began its run
  double classified = -1;        // classificationComplete set (early persist)
  double processed = -1;         // onItemProcessed
  double storedClassified = -1;  // another connection reads classificationComplete or later
  double storedFinished = -1;    // another connection reads a final state
  bool fresh = false;
};

struct MemorySample {
  int processed = 0;
  long rssKiB = 0;
};

class BenchLibrary {
 public:
  BenchLibrary(LinuxPlatform& platform, std::string folder);
  ~BenchLibrary();
  BenchLibrary(const BenchLibrary&) = delete;
  BenchLibrary& operator=(const BenchLibrary&) = delete;

  // Opens the store, starts the coordinator and waits (at most 120 s) for
  // the recognition engines' warm-up.
  Status open();
  double warmUpSeconds() const { return warmUpSeconds_; }

  // Runs the main loop: `begin` first, then until every import has finished
  // and the queue holds nothing, or `limitSeconds` passed (false then).
  bool run(const std::function<void()>& begin, double limitSeconds);
  // On the loop: imports `path` through the coordinator, as a screenshot just
  // taken (`fresh`) or a file imported by hand.
  void import(const std::string& path, bool fresh);
  // On the loop: files imported by hand in one request, saved together once
  // all are in, as the daemon answers `klipora import`.
  void importBatch(const std::vector<std::string>& paths);
  // On the loop: after `delay` seconds.
  void after(double delay, std::function<void()> action);

  // Flushes, stops the coordinator and the store poller.
  Status close();

  const std::map<std::string, ItemTimes>& items() const { return items_; }  // by file name
  std::map<std::string, int> finalStates();
  int importFailures() const { return importFailures_; }
  int coalescerSaves();
  int storeCommits() const { return commits_; }
  const std::vector<MemorySample>& memory() const { return memory_; }
  // Codec and recogniser calls since the warm-up.
  const CallLedger& calls() const { return ledger_; }
  int sampleEvery = 50;

 private:
  class RunLog;
  void observeQueue();
  void pollStore(std::unique_ptr<library::ModelContext> reader);
  bool idle();

  LinuxPlatform& platform_;
  std::string folder_;
  std::shared_ptr<library::ModelContainer> container_;
  std::unique_ptr<UserDefaults> defaults_;
  library::NoMarkupEdits markupEdits_;
  CallLedger ledger_;
  std::unique_ptr<CountingImageCodec> codec_;
  std::unique_ptr<TimingOcrEngineFactory> engines_;
  std::unique_ptr<app::ProcessingPlatform> processing_;
  std::unique_ptr<app::AppCoordinator> coordinator_;
  std::shared_ptr<RunLog> runLog_;
  double warmUpSeconds_ = 0;

  std::map<std::string, ItemTimes> items_;
  std::map<std::string, std::string> fileByID_;
  int importsPending_ = 0;
  int batchPending_ = 0;
  int importFailures_ = 0;
  int processedCount_ = 0;
  int commits_ = 0;
  int savesAtClose_ = 0;
  std::vector<MemorySample> memory_;

  std::thread poller_;
  std::atomic<bool> polling_{false};
  std::mutex storedLock_;
  std::map<std::string, std::pair<double, double>> stored_;  // file → classified, finished
};

}  // namespace klipora::bench
