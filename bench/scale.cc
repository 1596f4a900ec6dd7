// What a command costs as the library grows: builds libraries of each size
// through the store (screenshot-like text, tags, dates over the last two
// years; no images), then runs the `klipora` command on each, process start
// included, and prints the medians of its wall time, its CPU time (what the
// command itself spent, which a busy machine does not inflate) and its peak
// memory side by side, with the ratios of the largest library to the
// smallest. Then the same figures for `klipora import` of 10, 100 and 1,000
// generated screenshots into a fresh library.
//
// Usage: build/bench/scale [SIZE...] [--imports N...] (default sizes 100
// 20000 100000, default imports 10 100 1000; --imports 0 skips them). The
// command is build/klipora, above this program, or $KLIPORA_BIN. With
// KLIPORA_BENCH_KEEP set, the libraries are left in /tmp. Figures are
// printed, never asserted.
#include <unistd.h>
#include <vips/vips.h>

#include <algorithm>
#include <chrono>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <type_traits>
#include <vector>

#include "library/model_container.h"
#include "library/search_index.h"
#include "child_runs.h"
#include "library_corpus.h"

using namespace klipora;
using namespace klipora::library;

namespace {

constexpr int kBatch = 1000;
constexpr int kRuns = 7;

double Seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void Fail(const std::string& what) {
  std::fprintf(stderr, "scale: %s\n", what.c_str());
  std::exit(1);
}

// A library of `items` items in a new support folder; returns the folder.
std::string BuildLibrary(int items) {
  char folder[] = "/tmp/klipora-scale-bench-XXXXXX";
  if (!mkdtemp(folder)) Fail("cannot make a folder in /tmp");
  auto db = Database::open(std::string(folder) + "/Klipora.store");
  if (!db || !migrateToCurrentSchema(**db).ok()) Fail("cannot create the store");
  ModelContext context(std::move(*db));
  bench::LibraryCorpus corpus;
  // The corpus counts back from a fixed day; moved to today, date: tokens
  // find the items of the last week and month.
  const double shift = std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count() - bench::kCorpusNow.timeIntervalSince1970();
  for (int filled = 0; filled < items; filled += kBatch) {
    for (int i = filled; i < std::min(items, filled + kBatch); ++i) {
      auto item = corpus.item(i);
      item->importedAt = item->importedAt.addingTimeInterval(shift);
      if (item->capturedAt) item->capturedAt = item->capturedAt->addingTimeInterval(shift);
      if (item->deletedAt) item->deletedAt = item->deletedAt->addingTimeInterval(shift);
      context.insert(item);
    }
    if (Status s = context.save(); !s.ok()) Fail("save failed: " + s.message());
  }
  if (!SearchIndex::catchUp(context.database())) Fail("the search index did not catch up");
  return folder;
}

using Run = bench::ChildRun;

Run RunCommand(const std::string& binary, const std::string& home,
               const std::vector<std::string>& args) {
  std::vector<std::string> argv = {binary};
  argv.insert(argv.end(), args.begin(), args.end());
  return bench::ChildRuns::run(argv, {"KLIPORA_HOME=" + home}, false);
}

// The median of each figure on its own.
Run Median(const std::string& binary, const std::string& home,
           const std::vector<std::string>& args) {
  (void)RunCommand(binary, home, args);  // warm the page cache
  std::vector<Run> runs;
  for (int i = 0; i < kRuns; ++i) runs.push_back(RunCommand(binary, home, args));
  auto middle = [&](auto field) {
    std::vector<std::remove_cvref_t<decltype(runs[0].*field)>> values;
    for (const Run& r : runs) values.push_back(r.*field);
    std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
    return values[values.size() / 2];
  };
  Run out;
  out.seconds = middle(&Run::seconds);
  out.cpuSeconds = middle(&Run::cpuSeconds);
  out.peakKiB = middle(&Run::peakKiB);
  for (const Run& r : runs) out.status = std::max(out.status, r.status);
  return out;
}

std::string Binary(const char* argv0) {
  if (const char* bin = std::getenv("KLIPORA_BIN")) return bin;
  std::error_code ec;
  auto self = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (ec) self = argv0;
  return (self.parent_path().parent_path() / "klipora").string();
}


// `count` distinct screenshot-sized PNGs (a window with bars of "text" at
// places that differ per file) in a new folder; returns their paths.
std::vector<std::string> MakeScreenshots(const std::string& folder, int count) {
  std::vector<std::string> paths;
  for (int i = 0; i < count; ++i) {
    VipsImage* canvas = nullptr;
    if (vips_black(&canvas, 1440, 900, "bands", 3, nullptr) != 0) Fail("vips_black failed");
    double white[] = {245, 245, 245}, ink[] = {30, 30, 30};
    vips_draw_rect(canvas, white, 3, 0, 0, 1440, 900, "fill", TRUE, nullptr);
    for (int line = 0; line < 40; ++line) {
      int width = 200 + (i * 37 + line * 101) % 1000;
      vips_draw_rect(canvas, ink, 3, 40 + (i + line) % 13, 30 + line * 21, width, 9, "fill", TRUE,
                     nullptr);
    }
    std::string path = folder + "/Screenshot " + std::to_string(i) + ".png";
    if (vips_pngsave(canvas, path.c_str(), "compression", 1, nullptr) != 0) Fail("cannot write " + path);
    g_object_unref(canvas);
    paths.push_back(path);
  }
  return paths;
}

std::string FirstItemID(const std::string& home, int atRow) {
  auto db = Database::open(home + "/Klipora.store", false);
  if (!db) Fail("cannot open the store of " + home);
  auto rows = (*db)->query("SELECT id FROM ScreenshotItem WHERE deleted = 0 AND rowid >= ? "
                           "ORDER BY rowid LIMIT 1",
                           {SqlValue(int64_t{atRow})});
  if (!rows || rows->empty()) Fail("no item in " + home);
  return std::get<std::string>(rows->at(0).at(0));
}

void PrintRow(const std::string& label, const std::vector<Run>& runs) {
  std::printf("%-22s", label.c_str());
  for (const Run& run : runs) {
    std::printf(" %7.1f %6.1f %6.1f%s", run.seconds * 1000, run.cpuSeconds * 1000,
                static_cast<double>(run.peakKiB) / 1024, run.status == 0 ? " " : "!");
  }
  std::printf("  %5.2f %5.2f %5.2f\n", runs.back().seconds / runs.front().seconds,
              runs.back().cpuSeconds / std::max(1e-3, runs.front().cpuSeconds),
              static_cast<double>(runs.back().peakKiB) / static_cast<double>(runs.front().peakKiB));
}

void PrintHeader(const std::string& label, const std::vector<int>& counts, const char* unit) {
  std::printf("%-22s", label.c_str());
  for (int n : counts) std::printf(" %14d %-7s", n, unit);
  std::printf("  ratio last/first\n%-22s", "");
  for (size_t i = 0; i < counts.size(); ++i) std::printf(" %7s %6s %6s ", "wall ms", "cpu ms", "MiB");
  std::printf("  %5s %5s %5s\n", "wall", "cpu", "MiB");
}

}  // namespace

int main(int argc, char** argv) {
  bench::ChildRuns::start();
  if (VIPS_INIT(argv[0]) != 0) Fail("libvips did not start");
  std::vector<int> sizes, imports;
  for (int i = 1; i < argc; ++i) {
    if (std::string(argv[i]) == "--imports") {
      while (i + 1 < argc && std::isdigit(static_cast<unsigned char>(argv[i + 1][0]))) {
        if (int n = std::atoi(argv[++i]); n > 0) imports.push_back(n);
      }
      if (imports.empty()) imports.push_back(0);
      continue;
    }
    sizes.push_back(std::atoi(argv[i]));
  }
  if (sizes.empty()) sizes = {100, 20000, 100000};
  if (imports.empty()) imports = {10, 100, 1000};
  if (imports == std::vector<int>{0}) imports.clear();
  const std::string binary = Binary(argv[0]);
  if (access(binary.c_str(), X_OK) != 0) Fail("no command at " + binary + " (set KLIPORA_BIN)");

  // A rare word (rank 30,000 of the vocabulary: a few dozen items at 100,000)
  // and a common one; tag: and date: tokens; the first page of every item
  // and of the trash, as the window's grid asks for them. {id} stands for an
  // item in the middle of the library.
  bench::LibraryCorpus corpus;
  const std::vector<std::pair<std::string, std::vector<std::string>>> commands = {
      {"info", {"info"}},
      {"status", {"status"}},
      {"list (first page)", {"list"}},
      {"show", {"show", "{id}"}},
      {"tag add", {"tag", "add", "Work", "{id}"}},
      {"grid, first page", {"search", "--limit", "50"}},
      {"trash, first page", {"search", "--in", "trash", "--limit", "50"}},
      {"search rare word", {"search", corpus.words[30000], "--limit", "50"}},
      {"search common word", {"search", "invoice", "--limit", "50"}},
      {"search tag:", {"search", "tag:Work", "--limit", "50"}},
      {"search date:week", {"search", "date:week", "--limit", "50"}},
      {"search date:month", {"search", "date:month", "--limit", "50"}},
  };

  std::vector<std::string> homes;
  std::vector<std::vector<Run>> table(commands.size());
  for (int size : sizes) {
    double start = Seconds();
    homes.push_back(BuildLibrary(size));
    std::fprintf(stderr, "built %d items in %.1f s\n", size, Seconds() - start);
    // The first command prepares the library folder; it is not measured.
    (void)RunCommand(binary, homes.back(), {"info"});
    const std::string id = FirstItemID(homes.back(), size / 2);
    for (size_t c = 0; c < commands.size(); ++c) {
      std::vector<std::string> args = commands[c].second;
      for (auto& a : args) {
        if (a == "{id}") a = id;
      }
      table[c].push_back(Median(binary, homes.back(), args));
    }
  }

  PrintHeader("median of " + std::to_string(kRuns), sizes, "items");
  for (size_t c = 0; c < commands.size(); ++c) PrintRow(commands[c].first, table[c]);
  std::printf("(! marks a command that exited with an error)\n");

  // Import: one run each (it changes the library), into a fresh library.
  if (!imports.empty()) {
    std::vector<Run> runs;
    std::string header;
    for (int count : imports) {
      char folder[] = "/tmp/klipora-scale-import-XXXXXX";
      if (!mkdtemp(folder)) Fail("cannot make a folder in /tmp");
      homes.push_back(folder);
      std::filesystem::create_directories(std::string(folder) + "/files");
      std::vector<std::string> args = {"import"};
      for (auto& path : MakeScreenshots(std::string(folder) + "/files", count)) args.push_back(path);
      runs.push_back(RunCommand(binary, std::string(folder) + "/home", args));
      std::fprintf(stderr, "imported %d files in %.1f s\n", count, runs.back().seconds);
    }
    std::printf("\n");
    PrintHeader("one run each", imports, "files");
    PrintRow("import", runs);
  }

  if (!std::getenv("KLIPORA_BENCH_KEEP")) {
    for (const auto& home : homes) std::filesystem::remove_all(home);
  } else {
    for (const auto& home : homes) std::fprintf(stderr, "kept %s\n", home.c_str());
  }
  vips_shutdown();
  return 0;
}
