// The whole engine at work: screenshots imported into a library on disk and
// processed by the daemon's own composition (coordinator, processing service,
// two warm recognition engines, no language model), set against two
// `tesseract` commands at a time and against the recognition service alone
// on the same images. Then the wait of a screenshot just taken while a bulk
// import runs, and the queue's own cost with analyses that cost nothing.
// Prints figures beside their goals; asserts nothing.
//
//   build/bench/pipeline [--items=N] [--bulk=N] [--fresh=N] [--spacing=S]
//                        [--queue-items=N] [--no-command] [--no-ocr]
//                        [--no-fresh] [--no-queue] [--keep] [--log=FILE]
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "engine_probes.h"
#include "pipeline_corpus.h"
#include "pipeline_library.h"
#include "pipeline_tools.h"
#include "platform/linux/linux_platform.h"
#include "platform/linux/log_sinks.h"
#include "platform/linux/malloc_tuning.h"
#include "processing/ocr_service.h"
#include "queue_overhead.h"

namespace klipora::bench {
namespace {

struct Flags {
  int items = 200;
  int bulk = 100;
  int fresh = 10;
  double spacing = 4;  // seconds between two fresh screenshots
  int queueItems = 10000;
  bool command = true, ocr = true, freshLane = true, queue = true, keep = false;
  std::string logPath;  // every log line, with its time, for a closer look
};

Flags ParseFlags(int argc, char** argv) {
  Flags flags;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    // "--items 20" reads like "--items=20".
    static const char* const kTakesValue[] = {"--items",   "--bulk",        "--fresh",
                                              "--spacing", "--queue-items", "--log"};
    if (std::find(std::begin(kTakesValue), std::end(kTakesValue), a) != std::end(kTakesValue) &&
        i + 1 < argc) {
      a += "=" + std::string(argv[++i]);
    }
    auto value = [&](const char* name) -> const char* {
      size_t n = std::strlen(name);
      return a.compare(0, n, name) == 0 && a.size() > n && a[n] == '=' ? a.c_str() + n + 1
                                                                       : nullptr;
    };
    if (const char* v = value("--items")) {
      flags.items = std::max(1, std::atoi(v));
    } else if (const char* v = value("--bulk")) {
      flags.bulk = std::max(0, std::atoi(v));
    } else if (const char* v = value("--fresh")) {
      flags.fresh = std::max(0, std::atoi(v));
    } else if (const char* v = value("--spacing")) {
      flags.spacing = std::atof(v);
    } else if (const char* v = value("--queue-items")) {
      flags.queueItems = std::max(1, std::atoi(v));
    } else if (const char* v = value("--log")) {
      flags.logPath = v;
    } else if (a == "--no-command") {
      flags.command = false;
    } else if (a == "--no-ocr") {
      flags.ocr = false;
    } else if (a == "--no-fresh") {
      flags.freshLane = false;
    } else if (a == "--no-queue") {
      flags.queue = false;
    } else if (a == "--keep") {
      flags.keep = true;
    } else {
      std::fprintf(stderr, "pipeline: unknown flag %s\n", a.c_str());
      std::exit(2);
    }
  }
  return flags;
}

// The machine is shared: the load at each step says how far to trust it.
void PrintLoad() {
  auto [one, five] = LoadAverage();
  std::printf("  (load average %.2f, %.2f over 5 min)\n", one, five);
}

double PerMinute(int count, double seconds) { return seconds > 0 ? count * 60.0 / seconds : 0; }
double Ratio(double a, double b) { return b > 0 ? a / b : 0; }

// Medians of the intervals of `items` that have both ends (field pointers
// into ItemTimes).
double MedianOf(const std::map<std::string, ItemTimes>& items, double ItemTimes::*from,
                double ItemTimes::*to, bool freshOnly = false, int* counted = nullptr) {
  std::vector<double> spans;
  for (const auto& [file, t] : items) {
    if (freshOnly && !t.fresh) continue;
    if (t.*from >= 0 && t.*to >= 0) spans.push_back(t.*to - t.*from);
  }
  if (counted) *counted = static_cast<int>(spans.size());
  return Median(spans);
}

void PrintStates(BenchLibrary& library) {
  std::printf("  final states:");
  for (const auto& [state, count] : library.finalStates()) {
    std::printf(" %s %d", state.c_str(), count);
  }
  if (library.importFailures() > 0) std::printf("; %d import(s) failed", library.importFailures());
  std::printf("\n");
}

// Codec and recogniser calls per item, and how busy the two engines were.
void PrintCalls(const CallLedger& ledger, int items, double wallSeconds) {
  double recognising = 0;
  std::printf("  calls per item (time per item):");
  for (const auto& [name, stats] : ledger.snapshot()) {
    std::printf(" %s %.2f (%.3f s);", name.c_str(), Ratio(stats.calls, items),
                Ratio(stats.seconds, items));
    if (name.rfind("recognize", 0) == 0) recognising += stats.seconds;
  }
  std::printf("\n  the 2 recognition engines were busy %.0f%% of the wall time\n",
              100 * Ratio(recognising, 2 * wallSeconds));
}

struct PipelineFigures {
  double perMinute = 0;
  double cpuPerItem = 0;  // less sensitive than the wall time to the machine's other work
};

// Every screenshot imported by hand at once (as `klipora import` hands a
// batch to the daemon) and processed to the end.
PipelineFigures WholePipeline(LinuxPlatform& platform, const std::string& folder,
                              const std::vector<PipelineScreenshot>& shots) {
  PipelineFigures figures;
  std::printf(
      "\n1. Whole pipeline: %zu screenshots imported into a library on disk and "
      "processed by the daemon's services\n",
      shots.size());
  PrintLoad();
  bool peakReset = ResetPeakMemory();
  const long rssBefore = StatusKiB("VmRSS");
  BenchLibrary library(platform, folder);
  library.sampleEvery = std::clamp(static_cast<int>(shots.size()) / 4, 1, 50);
  if (Status s = library.open(); !s.ok()) {
    std::printf("  cannot start the library: %s\n", s.message().c_str());
    return figures;
  }
  std::printf(
      "  warm-up of the 2 recognition engines: %.2f s; RSS %.0f MiB before the "
      "library, %.0f MiB once warm\n",
      library.warmUpSeconds(), rssBefore / 1024.0, StatusKiB("VmRSS") / 1024.0);
  const int commitsBefore = library.storeCommits();
  const double cpuBefore = CpuNow().self;
  bool finished = library.run(
      [&] {
        std::vector<std::string> paths;
        for (const auto& shot : shots) paths.push_back(shot.path);
        library.importBatch(paths);
      },
      3600);
  const double cpu = CpuNow().self - cpuBefore;
  Status closed = library.close();
  const auto& items = library.items();
  double first = 1e300, last = 0;
  int processed = 0;
  for (const auto& [file, t] : items) {
    first = std::min(first, t.importRequested);
    if (t.processed >= 0) ++processed, last = std::max(last, t.processed);
  }
  const double seconds = last - first;
  figures.perMinute = PerMinute(processed, seconds);
  figures.cpuPerItem = Ratio(cpu, processed);
  if (!finished) std::printf("  (gave up waiting: the queue had not drained after an hour)\n");
  if (!closed.ok()) std::printf("  last save failed: %s\n", closed.message().c_str());
  std::printf("  %d items processed in %.1f s = %.1f items per minute; CPU %.2f s per item\n",
              processed, seconds, figures.perMinute, figures.cpuPerItem);
  PrintStates(library);
  PrintCalls(library.calls(), processed, seconds);
  std::printf(
      "  median import -> classificationComplete %.2f s, -> complete %.2f s "
      "(includes the wait in the bulk lane)\n",
      MedianOf(items, &ItemTimes::importRequested, &ItemTimes::classified),
      MedianOf(items, &ItemTimes::importRequested, &ItemTimes::processed));
  std::printf(
      "  median of one run (queue start -> classificationComplete %.2f s, -> complete "
      "%.2f s); import itself %.3f s\n",
      MedianOf(items, &ItemTimes::runStarted, &ItemTimes::classified),
      MedianOf(items, &ItemTimes::runStarted, &ItemTimes::processed),
      MedianOf(items, &ItemTimes::importRequested, &ItemTimes::imported));
  std::printf(
      "  as saved, seen from a second connection: import -> classificationComplete "
      "%.2f s, -> final state %.2f s\n",
      MedianOf(items, &ItemTimes::importRequested, &ItemTimes::storedClassified),
      MedianOf(items, &ItemTimes::importRequested, &ItemTimes::storedFinished));
  std::printf(
      "  store saves: %d by the save coalescer; %d commits on the daemon's connection "
      "(%.2f per item)\n",
      library.coalescerSaves(), library.storeCommits() - commitsBefore,
      Ratio(library.storeCommits() - commitsBefore, static_cast<double>(shots.size())));
  std::printf("  memory: peak (VmHWM) %.0f MiB%s; RSS after each %d items processed:",
              StatusKiB("VmHWM") / 1024.0, peakReset ? " since the library opened" : "",
              library.sampleEvery);
  for (const auto& m : library.memory()) std::printf(" %d:%.0f", m.processed, m.rssKiB / 1024.0);
  std::printf(" MiB\n");
  return figures;
}

void TesseractCommands(const std::vector<PipelineScreenshot>& shots, const PipelineFigures& ours) {
  std::printf(
      "\n2. `tesseract IMAGE stdout`, two at a time, OMP_THREAD_LIMIT=1, same %zu "
      "images\n",
      shots.size());
  PrintLoad();
  std::vector<std::string> paths;
  for (const auto& shot : shots) paths.push_back(shot.path);
  const double cpuBefore = CpuNow().children;
  CommandBatch batch = RunTesseractCommands(paths, 2);
  const double cpuPerImage = Ratio(CpuNow().children - cpuBefore, batch.succeeded);
  const double rate = PerMinute(batch.succeeded, batch.seconds);
  std::printf("  %d read (%d failed) in %.1f s = %.1f images per minute; CPU %.2f s per image\n",
              batch.succeeded, batch.failed, batch.seconds, rate, cpuPerImage);
  std::printf("  throughput ratio whole pipeline vs two tesseract commands: %.2f (goal >= 1.3)\n",
              Ratio(ours.perMinute, rate));
  std::printf("  the same ratio from CPU time per item: %.2f\n",
              Ratio(cpuPerImage, ours.cpuPerItem));
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

// Returns each image's recognition time, by file name.
std::map<std::string, double> RecognitionAlone(LinuxPlatform& platform,
                                               const std::vector<PipelineScreenshot>& shots,
                                               const PipelineFigures& ours) {
  std::printf("\n3. Text recognition service alone (2 engines, warm), same %zu images\n",
              shots.size());
  PrintLoad();
  CallLedger ledger;
  CountingImageCodec codec(platform.imageCodec, ledger);
  TimingOcrEngineFactory engines(platform.ocrEngines, ledger);
  processing::OCRService service(engines, codec, platform.clock);
  service.warmUp();
  ledger.clear();
  std::atomic<size_t> next{0};
  std::atomic<int> failed{0};
  std::vector<double> each(shots.size());
  auto worker = [&] {
    for (size_t i; (i = next++) < shots.size();) {
      const double begin = Now();
      if (!service.recognizeTextWithLayout(ReadFile(shots[i].path))) ++failed;
      each[i] = Now() - begin;
    }
  };
  const double start = Now();
  const double cpuBefore = CpuNow().self;
  std::thread a(worker), b(worker);
  a.join();
  b.join();
  const double seconds = Now() - start;
  const double cpuPerImage = Ratio(CpuNow().self - cpuBefore, shots.size());
  const double rate = PerMinute(static_cast<int>(shots.size()), seconds);
  std::printf("  %zu recognitions (%d failed) in %.1f s = %.1f per minute; CPU %.2f s per image\n",
              shots.size(), failed.load(), seconds, rate, cpuPerImage);
  PrintCalls(ledger, static_cast<int>(shots.size()), seconds);
  std::printf("  throughput ratio whole pipeline vs recognition alone: %.2f (goal >= 0.9)\n",
              Ratio(ours.perMinute, rate));
  std::printf("  the same ratio from CPU time per item: %.2f\n",
              Ratio(cpuPerImage, ours.cpuPerItem));
  std::map<std::string, double> byFile;
  for (size_t i = 0; i < shots.size(); ++i) {
    byFile[std::filesystem::path(shots[i].path).filename().string()] = each[i];
  }
  return byFile;
}

// `alone`: each image's recognition time in the service alone, when known.
void FreshScreenshots(LinuxPlatform& platform, const std::string& folder,
                      const std::vector<PipelineScreenshot>& bulk,
                      const std::vector<PipelineScreenshot>& fresh, double spacing,
                      const std::map<std::string, double>& alone) {
  std::printf(
      "\n4. Fresh screenshots: %zu taken %.1f s apart (priority lane) while %zu "
      "files import in bulk\n",
      fresh.size(), spacing, bulk.size());
  PrintLoad();
  BenchLibrary library(platform, folder);
  if (Status s = library.open(); !s.ok()) {
    std::printf("  cannot start the library: %s\n", s.message().c_str());
    return;
  }
  library.run(
      [&] {
        std::vector<std::string> paths;
        for (const auto& shot : bulk) paths.push_back(shot.path);
        library.importBatch(paths);
        for (size_t k = 0; k < fresh.size(); ++k) {
          const std::string path = fresh[k].path;
          library.after(2 + k * spacing, [&library, path] { library.import(path, true); });
        }
      },
      3600);
  (void)library.close();
  const auto& items = library.items();
  double bulkDone = 0;
  for (const auto& [file, t] : items) {
    if (!t.fresh) bulkDone = std::max(bulkDone, t.processed);
  }
  std::printf(
      "  each: import -> classificationComplete = import + wait in the lane + run, "
      "in s (its recognition alone took)\n");
  int duringBulk = 0;
  for (const auto& [file, t] : items) {
    if (!t.fresh) continue;
    if (t.importRequested < bulkDone) ++duringBulk;
    auto span = [](double from, double to) { return from >= 0 && to >= 0 ? to - from : -1; };
    auto known = alone.find(file);
    std::printf("    %s  %.2f = %.2f + %.2f + %.2f  (%.2f)\n", file.c_str(),
                span(t.importRequested, t.classified), span(t.importRequested, t.imported),
                span(t.imported, t.runStarted), span(t.runStarted, t.classified),
                known == alone.end() ? -1 : known->second);
  }
  std::printf("  %d of %zu arrived while the bulk lane was still busy\n", duringBulk, fresh.size());
  int counted = 0;
  const double median =
      MedianOf(items, &ItemTimes::importRequested, &ItemTimes::classified, true, &counted);
  std::printf(
      "  median import -> classificationComplete of %d fresh screenshots: %.2f s "
      "(goal < 1.5 s)\n",
      counted, median);
  std::printf(
      "  median import -> complete %.2f s; as saved, seen from a second connection: "
      "classificationComplete %.2f s\n",
      MedianOf(items, &ItemTimes::importRequested, &ItemTimes::processed, true),
      MedianOf(items, &ItemTimes::importRequested, &ItemTimes::storedClassified, true));
  PrintStates(library);
}

void QueueCost(LinuxPlatform& platform, const std::string& folder, int count) {
  std::printf("\n5. Queue overhead: %d items, analyses that cost nothing\n", count);
  PrintLoad();
  auto result = MeasureQueueOverhead(platform, folder, count, 600);
  if (!result) {
    std::printf("  cannot run: %s\n", result.error().message().c_str());
    return;
  }
  std::printf("  %d of %d items processed in %.2f s (%.2f ms each), %d store saves%s\n",
              result->processed, result->items, result->seconds,
              Ratio(result->seconds * 1000, result->processed), result->saves,
              result->finished ? "" : " (gave up after 600 s)");
  std::printf("  wall time for %d items: %.2f s (goal < 10 s for 10000)\n", result->items,
              result->seconds);
}

int Run(int argc, char** argv) {
  Flags flags = ParseFlags(argc, argv);
  char pattern[] = "/tmp/klipora-pipeline-bench-XXXXXX";
  if (!mkdtemp(pattern)) {
    std::perror("pipeline: mkdtemp");
    return 1;
  }
  const std::string folder = pattern;
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const double start = Now();
  std::vector<PipelineScreenshot> shots = renderPipelineCorpus(folder + "/shots", flags.items);
  std::printf("Rendered %zu distinct screenshots in %.1f s into %s\n", shots.size(), Now() - start,
              folder.c_str());
  if (shots.empty()) return 1;

  LinuxPlatform platform;
  auto warnings = std::make_shared<StderrLogSink>(log::Level::kWarning);
  log::addSink(warnings);
  std::shared_ptr<log::LogSink> lines;
  if (!flags.logPath.empty()) {
    if (FILE* file = std::fopen(flags.logPath.c_str(), "w")) {
      lines = std::make_shared<TimedLineSink>(file, start);
      log::addSink(lines);
    }
  }

  PipelineFigures pipeline = WholePipeline(platform, folder + "/library", shots);
  if (flags.command) TesseractCommands(shots, pipeline);
  std::map<std::string, double> alone;
  if (flags.ocr) alone = RecognitionAlone(platform, shots, pipeline);
  if (flags.freshLane && shots.size() >= 2) {
    const size_t fresh = std::min<size_t>(flags.fresh, std::max<size_t>(1, shots.size() / 5));
    const size_t bulk = std::min<size_t>(flags.bulk, shots.size() - fresh);
    std::vector<PipelineScreenshot> bulkShots(shots.begin(), shots.begin() + bulk);
    std::vector<PipelineScreenshot> freshShots(shots.end() - fresh, shots.end());
    FreshScreenshots(platform, folder + "/fresh", bulkShots, freshShots, flags.spacing, alone);
  }
  if (flags.queue) QueueCost(platform, folder + "/queue", flags.queueItems);
  std::printf("\nWhole run: %.0f s\n", Now() - start);

  log::removeSink(warnings);
  if (lines) log::removeSink(lines);
  if (!flags.keep) std::filesystem::remove_all(folder);
  return 0;
}

}  // namespace
}  // namespace klipora::bench

int main(int argc, char** argv) {
  klipora::limitMallocArenas();  // as the daemon does
  return klipora::bench::Run(argc, argv);
}
