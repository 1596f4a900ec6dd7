// Category resolutions per second on recognised texts of each kind (2 kB and
// 20 kB), with the one-pass keyword automaton and with the plain reference
// search (a lower-cased copy and one find per keyword) as the baseline. The
// table printed at the end gives both rates and their ratio from this run
// (medians when run with --benchmark_repetitions=N).
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "intelligence/category_resolver.h"

namespace {

using klipora::intelligence::CategoryResolver;
using klipora::intelligence::KeywordSearch;
using klipora::intelligence::ResolutionInput;

struct Kind {
  const char* name;
  const char* sample;
};

const Kind kKinds[] = {
    {"code",
     "12  func loadItems(from store: ItemStore) async throws -> [Item] {\n"
     "13      let request = store.fetchRequest(limit: 50)\n"
     "14      guard let items = try await store.run(request) else { return [] }\n"
     "15      // keep the newest first\n"
     "16      return items.sorted { $0.createdAt > $1.createdAt }\n"
     "17  }\n"
     "18  private static let max_batch_size = 200\n"
     "19  import Foundation\n"},
    {"chat",
     "Maya  10:41\nare you coming to the standup today?\nDelivered\n"
     "Sam is typing...\nyes, running 5 min late, start without me\nRead 10:43\n"
     "Maya  10:44\nok! I'll share the notes after. Sent\nSam online\n"
     "New message from Priya: can you review my PR before lunch?\n"},
    {"receipt",
     "RECEIPT\nCorner Coffee Co.\nOrder #48213   05/01/2024 08:14\n"
     "Flat white          $4.50\nAlmond croissant    $3.75\nSubtotal            $8.25\n"
     "Tax (8.875%)        $0.73\nTotal:              $8.98\nVisa card ending 4421\n"
     "Thank you for your purchase!\n"},
    {"article",
     "The quiet return of the night train\nBy Helena Ortiz · Published May 1, 2024 · 8 min read\n"
     "Across the continent, sleeper services that were written off a decade ago are filling "
     "up again. Operators point to travellers who would rather lose a night than spend a day "
     "in airports, and to governments that now count the cost of short flights. Read more "
     "about the routes that came back, the ones that did not, and what it takes to run a "
     "train through five countries in one night. Subscribe to our newsletter for more.\n"},
    {"error",
     "Traceback (most recent call last):\n  File \"/srv/app/main.py\", line 42, in <module>\n"
     "    run(config)\n  File \"/srv/app/runner.py\", line 17, in run\n"
     "    raise RuntimeError(\"worker crashed\")\nRuntimeError: worker crashed\n"
     "FATAL: process exited with exit code 1\nSegfault in libworker.so (undefined symbol)\n"},
    {"settings",
     "Settings\nAppearance\n  Dark style              [toggle]\n  Accent colour           Blue\n"
     "Notifications\n  Enable notifications    [on]\n  Disable sounds          [off]\n"
     "Privacy\n  Location services       Configuration...\nPreferences are saved automatically.\n"},
};

std::string Repeat(const char* sample, size_t size) {
  std::string text;
  while (text.size() < size) text += sample;
  // Cut at a line end so no UTF-8 sequence is split.
  size_t cut = text.rfind('\n', size);
  text.resize(cut == std::string::npos || cut < size / 2 ? size : cut + 1);
  return text;
}

void BM_Resolve(benchmark::State& state, KeywordSearch search, const char* sample, size_t size) {
  CategoryResolver resolver(search);
  ResolutionInput input;
  input.ocrText = Repeat(sample, size);
  input.filename = "Screenshot From 2024-05-01 10-20-30.png";
  input.sourceAppBundleID = "org.gnome.Nautilus";
  input.sourceAppName = "Files";
  for (auto _ : state) benchmark::DoNotOptimize(resolver.resolve(input));
  state.SetItemsProcessed(state.iterations());
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * input.ocrText.size()));
}

// Keeps each run's rate so that the summary can pair automaton and baseline.
class SummaryReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      auto it = run.counters.find("items_per_second");
      if (it != run.counters.end()) rates[run.benchmark_name()] = it->second;
    }
  }
  std::map<std::string, double> rates;
};

}  // namespace

int main(int argc, char** argv) {
  for (const Kind& kind : kKinds) {
    for (size_t size : {size_t{2048}, size_t{20480}}) {
      std::string suffix = std::string(kind.name) + "/" + std::to_string(size / 1024) + "kB";
      benchmark::RegisterBenchmark(("automaton/" + suffix).c_str(), BM_Resolve,
                                   KeywordSearch::automaton, kind.sample, size);
      benchmark::RegisterBenchmark(("baseline/" + suffix).c_str(), BM_Resolve,
                                   KeywordSearch::reference, kind.sample, size);
    }
  }
  benchmark::Initialize(&argc, argv);
  SummaryReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);

  // With --benchmark_repetitions the medians are compared, else the single runs.
  bool medians = false;
  for (const auto& entry : reporter.rates) medians = medians || entry.first.ends_with("_median");
  std::printf("\n%-18s %16s %16s %8s\n", "text", "resolutions/s", "baseline/s", "ratio");
  for (const auto& [name, rate] : reporter.rates) {
    if (name.rfind("automaton/", 0) != 0) continue;
    bool median = name.ends_with("_median");
    if (median != medians || (!median && name.find('_') != std::string::npos)) continue;
    std::string text = name.substr(10);
    auto baseline = reporter.rates.find("baseline/" + text);
    if (baseline == reporter.rates.end()) continue;
    std::printf("%-18s %16.0f %16.0f %7.1fx\n", text.c_str(), rate, baseline->second,
                rate / baseline->second);
  }
  benchmark::Shutdown();
  return 0;
}
