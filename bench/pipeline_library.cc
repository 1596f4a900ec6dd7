#include "pipeline_library.h"

#include <sqlite3.h>

#include <chrono>

#include "app/processing_service.h"
#include "library/enum_table.h"
#include "library/screenshot_item.h"
#include "pipeline_tools.h"

namespace klipora::bench {

using library::ProcessingState;

// Picks out of the log the moments the queue reports for each run, and the
// recognition engines' warm-up.
class BenchLibrary::RunLog final : public log::LogSink {
 public:
  void write(log::Level, log::Channel channel, std::string_view line) override {
    if (channel != log::Channel::kMain) return;
    const double now = Now();
    std::lock_guard lock(mutex);
    if (auto file = valueAfter(line, "early-persist file=");
        file && line.find(" category=") != std::string_view::npos) {
      classified.emplace(*file, now);
    } else if (auto id = valueAfter(line, "processItemCore start id=")) {
      started.emplace(*id, now);
    } else if (line.find("ocr-warmup done") != std::string_view::npos) {
      warmedAt = now;
    } else if (line.find("ocr-warmup FAILED") != std::string_view::npos) {
      warmUpFailed = true;
    }
  }

  std::mutex mutex;
  std::map<std::string, double> classified;  // by file name
  std::map<std::string, double> started;     // by item id
  double warmedAt = -1;
  bool warmUpFailed = false;

 private:
  static std::optional<std::string> valueAfter(std::string_view line, std::string_view key) {
    size_t at = line.find(key);
    if (at == std::string_view::npos) return std::nullopt;
    std::string_view rest = line.substr(at + key.size());
    return std::string(rest.substr(0, rest.find(' ')));
  }
};

namespace {

int CountCommit(void* counter) {
  ++*static_cast<int*>(counter);
  return 0;  // let the commit go ahead
}

}  // namespace

BenchLibrary::BenchLibrary(LinuxPlatform& platform, std::string folder)
    : platform_(platform), folder_(std::move(folder)) {}

BenchLibrary::~BenchLibrary() { (void)close(); }

Status BenchLibrary::open() {
  auto& fs = platform_.fileSystem;
  const std::string support = folder_ + "/support";
  RETURN_IF_ERROR(fs.createDirectories(support));
  ASSIGN_OR_RETURN(container_, library::KliporaModelContainer::make(fs, platform_.clock,
                                                                    support + "/Klipora.store"));
  defaults_ = std::make_unique<UserDefaults>(fs, support + "/defaults.json");
  codec_ = std::make_unique<CountingImageCodec>(platform_.imageCodec, ledger_);
  engines_ = std::make_unique<TimingOcrEngineFactory>(platform_.ocrEngines, ledger_);
  processing_ = std::make_unique<app::ProcessingPlatform>(app::ProcessingPlatform{
      .ocrEngines = *engines_,
      .recognition = platform_.recognition,
      .labels = platform_.labels,
      .freshRecognition = &platform_.freshRecognition,
  });
  app::AppEnvironment env{
      .fileSystem = fs,
      .imageCodec = *codec_,
      .clock = platform_.clock,
      .timers = platform_.mainLoop,
      .mainLoop = platform_.mainLoop,
      .background = platform_.background,
      .userDefaults = *defaults_,
      .markupEdits = markupEdits_,
      .mountWatch = nullptr,
      .supportFolder = support,
      .defaultLibraryRoot = folder_ + "/Library",
      .processing = processing_.get(),
  };
  sqlite3_commit_hook(container_->mainContext().database().handle(), CountCommit, &commits_);
  runLog_ = std::make_shared<RunLog>();
  log::addSink(runLog_);
  coordinator_ = std::make_unique<app::AppCoordinator>(env, &container_->mainContext(),
                                                       app::defaultServiceFactories());
  const double start = Now();
  coordinator_->start();
  if (!app::queueOf(coordinator_->processingQueue())) {
    return Status::Unavailable("the coordinator started without its processing queue");
  }
  observeQueue();
  ASSIGN_OR_RETURN(auto reader, container_->newContext());
  polling_ = true;
  poller_ = std::thread([this, r = std::move(reader)]() mutable { pollStore(std::move(r)); });

  // The daemon takes work with warm engines; so does the benchmark.
  bool warm = false, failed = false;
  while (!warm && !failed && Now() - start < 120) {
    platform_.mainLoop.scheduleOnce(0.02, [this] { platform_.mainLoop.stop(); });
    platform_.mainLoop.run();
    std::lock_guard lock(runLog_->mutex);
    warm = runLog_->warmedAt >= 0;
    failed = runLog_->warmUpFailed;
    if (warm) warmUpSeconds_ = runLog_->warmedAt - start;
  }
  if (!warm) return Status::Unavailable("the recognition engines did not warm up");
  ledger_.clear();
  return Status::Ok();
}

void BenchLibrary::observeQueue() {
  processing::ProcessingQueue* queue = app::queueOf(coordinator_->processingQueue());
  queue->onItemProcessed = [this](const UUID& id) {
    auto file = fileByID_.find(id.uuidString());
    if (file != fileByID_.end()) items_[file->second].processed = Now();
    if (++processedCount_ % sampleEvery == 0) {
      memory_.push_back({processedCount_, StatusKiB("VmRSS")});
    }
  };
}

// Another process's view: the states as saved, read on a connection of its
// own every 50 ms.
void BenchLibrary::pollStore(std::unique_ptr<library::ModelContext> reader) {
  while (polling_) {
    auto rows =
        reader->database().query("SELECT originalFilename, processingStateRaw FROM ScreenshotItem");
    const double now = Now();
    if (rows) {
      std::lock_guard lock(storedLock_);
      for (const auto& row : *rows) {
        const auto* file = std::get_if<std::string>(&row[0]);
        const auto* raw = std::get_if<std::string>(&row[1]);
        if (!file || !raw) continue;
        auto state = library::fromRaw<ProcessingState>(*raw).value_or(ProcessingState::pending);
        auto& [classified, finished] = stored_.try_emplace(*file, -1.0, -1.0).first->second;
        if (classified < 0 && state >= ProcessingState::classificationComplete) classified = now;
        if (finished < 0 && library::isTerminal(state)) finished = now;
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
}

void BenchLibrary::importBatch(const std::vector<std::string>& paths) {
  batchPending_ += static_cast<int>(paths.size());
  for (const auto& path : paths) import(path, false);
}

void BenchLibrary::import(const std::string& path, bool fresh) {
  const std::string file = lastPathComponent(path);
  ItemTimes& times = items_[file];
  times.fresh = fresh;
  times.importRequested = Now();
  ++importsPending_;
  coordinator_->importFile(
      path,
      fresh ? library::ImportSourceType::automaticWatch : library::ImportSourceType::manualImport,
      std::nullopt, std::nullopt, [this, file, fresh](ingestion::ImportResult result) {
        --importsPending_;
        if (!fresh && batchPending_ > 0 && --batchPending_ == 0) {
          if (Status s = coordinator_->saveCoalescer()->flush(); !s.ok()) {
            log::warning("Bench", "saving the imported batch failed: %s", s.message().c_str());
          }
        }
        items_[file].imported = Now();
        if (result) {
          fileByID_[result->uuidString()] = file;
        } else {
          ++importFailures_;
          log::warning("Bench", "import of %s failed: %s", file.c_str(),
                       result.error().errorDescription().c_str());
        }
      });
}

void BenchLibrary::after(double delay, std::function<void()> action) {
  ++importsPending_;  // a scheduled import counts as one under way
  platform_.mainLoop.scheduleOnce(delay, [this, action = std::move(action)] {
    --importsPending_;
    action();
  });
}

bool BenchLibrary::idle() {
  if (importsPending_ > 0) return false;
  processing::ProcessingQueueStatus s = coordinator_->processingQueue()->status();
  return s.inFlight == 0 && s.bulkWaiting == 0 && s.priorityWaiting == 0 && s.bulkRunning == 0 &&
         s.priorityRunning == 0;
}

bool BenchLibrary::run(const std::function<void()>& begin, double limitSeconds) {
  auto& loop = platform_.mainLoop;
  const double deadline = Now() + limitSeconds;
  bool finished = false;
  std::function<void()> check = [&] {
    if (idle() || Now() > deadline) {
      finished = idle();
      loop.stop();
      return;
    }
    loop.scheduleOnce(0.05, check);
  };
  loop.post([&] {
    begin();
    loop.scheduleOnce(0.05, check);
  });
  loop.run();

  // Merge what the log and the poller saw into the items' times.
  std::map<std::string, double> startedByFile;
  {
    std::lock_guard lock(runLog_->mutex);
    for (const auto& [id, at] : runLog_->started) {
      if (auto file = fileByID_.find(id); file != fileByID_.end()) startedByFile[file->second] = at;
    }
    for (auto& [file, times] : items_) {
      if (auto it = runLog_->classified.find(file); it != runLog_->classified.end()) {
        times.classified = it->second;
      }
      if (auto it = startedByFile.find(file); it != startedByFile.end()) {
        times.runStarted = it->second;
      }
    }
  }
  return finished;
}

std::map<std::string, int> BenchLibrary::finalStates() {
  std::map<std::string, int> states;
  auto rows = container_->mainContext().database().query(
      "SELECT processingStateRaw, count(*) FROM ScreenshotItem GROUP BY processingStateRaw");
  if (!rows) return states;
  for (const auto& row : *rows) {
    const auto* raw = std::get_if<std::string>(&row[0]);
    const auto* count = std::get_if<int64_t>(&row[1]);
    if (raw && count) states[*raw] = static_cast<int>(*count);
  }
  return states;
}

int BenchLibrary::coalescerSaves() {
  auto* saver = coordinator_ ? coordinator_->saveCoalescer() : nullptr;
  return saver ? saver->savesPerformed() : savesAtClose_;
}

Status BenchLibrary::close() {
  Status saved;
  if (coordinator_) {
    auto& loop = platform_.mainLoop;
    bool done = false;
    coordinator_->shutDown([&](Status s) {
      saved = s;
      done = true;
      loop.stop();
    });
    if (!done) loop.run();
    coordinator_->stop();
    savesAtClose_ = coalescerSaves();
    // The processing service waits for its work on the pools as it goes.
    coordinator_.reset();
  }
  if (runLog_) log::removeSink(runLog_);
  if (container_) {
    sqlite3_commit_hook(container_->mainContext().database().handle(), nullptr, nullptr);
  }
  // The poller's last look happens after the final save.
  std::this_thread::sleep_for(std::chrono::milliseconds(120));
  if (polling_) {
    polling_ = false;
    poller_.join();
  }
  {
    std::lock_guard lock(storedLock_);
    for (auto& [file, times] : items_) {
      if (auto it = stored_.find(file); it != stored_.end()) {
        times.storedClassified = it->second.first;
        times.storedFinished = it->second.second;
      }
    }
  }
  return saved;
}

}  // namespace klipora::bench
