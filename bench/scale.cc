// What a command costs as the library grows: builds libraries of each size
// through the store (screenshot-like text, tags, dates over two years; no
// images), then runs the `klipora` command on each, process start included,
// and prints the median wall time of every command side by side, with the
// ratio of the largest library to the smallest.
//
// Usage: build/bench/scale [SIZE...] (default 100 100000). The command is
// build/klipora, above this program, or $KLIPORA_BIN. With
// KLIPORA_BENCH_KEEP set, the libraries are left in /tmp. Figures are
// printed, never asserted.
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "library/model_container.h"
#include "library/search_index.h"
#include "library_corpus.h"

extern char** environ;

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
  for (int filled = 0; filled < items; filled += kBatch) {
    for (int i = filled; i < std::min(items, filled + kBatch); ++i) context.insert(corpus.item(i));
    if (Status s = context.save(); !s.ok()) Fail("save failed: " + s.message());
  }
  if (!SearchIndex::catchUp(context.database())) Fail("the search index did not catch up");
  return folder;
}

struct Run {
  double seconds = 0;
  long peakKiB = 0;
  int status = 0;
};

Run RunCommand(const std::string& binary, const std::string& home,
               const std::vector<std::string>& args) {
  std::vector<std::string> env;
  for (char** e = environ; *e; ++e) {
    if (std::string(*e).rfind("KLIPORA_HOME=", 0) != 0) env.emplace_back(*e);
  }
  env.push_back("KLIPORA_HOME=" + home);
  std::vector<char*> envp, argv;
  for (auto& e : env) envp.push_back(e.data());
  envp.push_back(nullptr);
  std::vector<std::string> all = {binary};
  all.insert(all.end(), args.begin(), args.end());
  for (auto& a : all) argv.push_back(a.data());
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  Run run;
  double start = Seconds();
  pid_t pid = 0;
  if (posix_spawn(&pid, binary.c_str(), &actions, nullptr, argv.data(), envp.data()) != 0) {
    Fail("cannot start " + binary);
  }
  int status = 0;
  rusage usage{};
  wait4(pid, &status, 0, &usage);
  run.seconds = Seconds() - start;
  run.peakKiB = usage.ru_maxrss;
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  posix_spawn_file_actions_destroy(&actions);
  return run;
}

Run Median(const std::string& binary, const std::string& home,
           const std::vector<std::string>& args) {
  (void)RunCommand(binary, home, args);  // warm the page cache
  std::vector<Run> runs;
  for (int i = 0; i < kRuns; ++i) runs.push_back(RunCommand(binary, home, args));
  std::sort(runs.begin(), runs.end(), [](const Run& a, const Run& b) { return a.seconds < b.seconds; });
  return runs[runs.size() / 2];
}

std::string Binary(const char* argv0) {
  if (const char* bin = std::getenv("KLIPORA_BIN")) return bin;
  std::error_code ec;
  auto self = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (ec) self = argv0;
  return (self.parent_path().parent_path() / "klipora").string();
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<int> sizes;
  for (int i = 1; i < argc; ++i) sizes.push_back(std::atoi(argv[i]));
  if (sizes.empty()) sizes = {100, 100000};
  const std::string binary = Binary(argv[0]);
  if (access(binary.c_str(), X_OK) != 0) Fail("no command at " + binary + " (set KLIPORA_BIN)");

  // A rare word (rank 30,000 of the vocabulary: a few dozen items at 100,000)
  // and a common one; tag: and date: tokens; the first page of every item.
  bench::LibraryCorpus corpus;
  const std::vector<std::pair<std::string, std::vector<std::string>>> commands = {
      {"info", {"info"}},
      {"list", {"list"}},
      {"search (first page)", {"search", "--limit", "50"}},
      {"search rare word", {"search", corpus.words[30000]}},
      {"search common word", {"search", "invoice"}},
      {"search tag:", {"search", "tag:Work", "--limit", "50"}},
      {"search date:", {"search", "date:2025", "--limit", "50"}},
  };

  std::vector<std::string> homes;
  std::vector<std::vector<Run>> table(commands.size());
  for (int size : sizes) {
    double start = Seconds();
    homes.push_back(BuildLibrary(size));
    std::fprintf(stderr, "built %d items in %.1f s\n", size, Seconds() - start);
    // The first command prepares the library folder; it is not measured.
    (void)RunCommand(binary, homes.back(), {"info"});
    for (size_t c = 0; c < commands.size(); ++c) {
      table[c].push_back(Median(binary, homes.back(), commands[c].second));
    }
  }

  std::printf("%-22s", "median ms (peak MiB)");
  for (int size : sizes) std::printf(" %18d", size);
  std::printf("   ratio last/first\n");
  for (size_t c = 0; c < commands.size(); ++c) {
    std::printf("%-22s", commands[c].first.c_str());
    for (const Run& run : table[c]) {
      std::printf("  %9.1f (%5.1f)%s", run.seconds * 1000, static_cast<double>(run.peakKiB) / 1024,
                  run.status == 0 ? " " : "!");
    }
    std::printf("   %5.2f\n", table[c].back().seconds / table[c].front().seconds);
  }
  std::printf("(! marks a command that exited with an error)\n");

  if (!std::getenv("KLIPORA_BENCH_KEEP")) {
    for (const auto& home : homes) std::filesystem::remove_all(home);
  } else {
    for (const auto& home : homes) std::fprintf(stderr, "kept %s\n", home.c_str());
  }
  return 0;
}
