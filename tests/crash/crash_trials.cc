// klipora_crash_trials: kills klipora with SIGKILL at random moments and
// checks what the next run finds. Each trial starts from a fresh library.
//
// An import trial kills `klipora import` of a generated folder of screenshots
// somewhere between its start and its end, then runs the same import again to
// its end. A daemon trial starts `klipora run`, asks it to import (fewer
// files, so that it also gets to process them) and kills the daemon anywhere
// in the import or the processing; then it starts the daemon again, imports
// the same files and waits until every item is processed, and stops the
// daemon with SIGTERM. After each trial (see crash_library_check.h):
//   - what the killed run printed as imported is in the store;
//   - every source file is in exactly one item; every record has its copy;
//     PRAGMA integrity_check is ok;
//   - no file in Originals/ or Thumbnails/ that no record names (the next
//     start's sweep removed it; files are aged first, as if that start came a
//     while later);
//   - the runs after the kill end by themselves, exit 0 and print no
//     sanitizer report; after a daemon trial no item is left unprocessed.
// Prints one block per bad trial and the totals; exits 1 when any is non-zero.
//
//   klipora_crash_trials --klipora build-crash/klipora [--trials 200] [--files 300]
//                        [--daemon-trials 40] [--daemon-files 40] [--work DIR] [--seed N]
#include <cstdlib>
#include <cstdio>
#include <optional>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "crash_library_check.h"
#include "crash_processes.h"
#include "platform/linux/testing/test_images.h"
#include "platform/sha256.h"

namespace klipora::crash {
namespace {

namespace fs = std::filesystem;

struct Options {
  std::string klipora;
  std::string work = "/tmp/klipora-crash";
  int trials = 200, files = 300;
  int daemonTrials = 40, daemonFiles = 40;
  unsigned seed = 0;
};

bool ParseOptions(int argc, char** argv, Options& o) {
  for (int i = 1; i + 1 < argc; i += 2) {
    std::string key = argv[i], value = argv[i + 1];
    int number = std::atoi(value.c_str());
    if (key == "--klipora") o.klipora = value;
    else if (key == "--trials") o.trials = number;
    else if (key == "--files") o.files = number;
    else if (key == "--daemon-trials") o.daemonTrials = number;
    else if (key == "--daemon-files") o.daemonFiles = number;
    else if (key == "--work") o.work = value;
    else if (key == "--seed") o.seed = static_cast<unsigned>(number);
    else return false;
  }
  return !o.klipora.empty() && o.trials >= 0 && o.files > 0 && o.daemonTrials >= 0 &&
         o.daemonFiles > 0;
}

// Screenshots of distinct sizes, so that each has its own checksum.
Expected MakeScreenshots(const std::string& folder, int count) {
  Expected expected;
  fs::create_directories(folder);
  for (int i = 0; i < count; ++i) {
    char name[64];
    std::snprintf(name, sizeof name, "Screenshot_2024-05-01_10-%02d-%02d.png", i / 60, i % 60);
    std::string path = folder + "/" + name;
    std::string png = testing::makeTestImage(testing::imageOptions(160 + i % 97, 100 + i / 97));
    std::ofstream(path, std::ios::binary) << png;
    expected.checksumOf[path] = sha256Hex(png);
  }
  return expected;
}

class Trials {
 public:
  explicit Trials(const Options& o) : o_(o), home_(o.work + "/home") {}

  std::vector<std::string> command(const std::string& verb,
                                   const Expected* files = nullptr) const {
    std::vector<std::string> argv = {o_.klipora, "--home", home_, verb};
    if (files) {
      for (const auto& [path, checksum] : files->checksumOf) argv.push_back(path);
    }
    return argv;
  }
  Child start(const std::vector<std::string>& argv, const std::string& name) const {
    return spawn(argv, o_.work + "/" + name + ".out", o_.work + "/" + name + ".err");
  }

  // Starts `klipora run` and waits until it listens; absent when it does not.
  std::optional<Child> startDaemon(const std::string& name, std::string& why) const {
    Child daemon = start(command("run"), name);
    const double begun = monotonicNow();
    // The lock names this daemon once it listens; a killed daemon's lock
    // still names the one before it.
    const std::string listening = "\"pid\":" + std::to_string(daemon.pid) + ",\"socket\":\"/";
    while (secondsSince(begun) < 120) {
      if (readAll(home_ + "/daemon.lock").find(listening) != std::string::npos) return daemon;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    Run run = stop(daemon, 5);
    why = "the daemon did not start (" + describe(run) + "):\n" + run.err.substr(0, 4000);
    return std::nullopt;
  }

  // Waits until every item is processed; false after `timeout` seconds.
  bool waitUntilProcessed(double timeout) const {
    const double begun = monotonicNow();
    while (unfinishedItems(home_) != 0) {
      if (secondsSince(begun) > timeout) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return true;
  }

  void ageLibrary() const {
    age(home_ + "/Library/Originals", 7200);
    age(home_ + "/Library/Thumbnails", 7200);
  }

  // One run after the kill: it must end by itself, cleanly.
  void expectClean(const Run& run, const std::string& what, std::vector<std::string>& problems,
                   Totals& totals) const {
    if (!exitedCleanly(run)) {
      ++totals.crashed;
      problems.push_back(what + " " + (run.timedOut ? "hung" : "failed") + " (" + describe(run) +
                         "):\n" + run.err.substr(0, 4000));
    }
    if (sanitizerReport(run.err)) {
      ++totals.sanitizer;
      problems.push_back("sanitizer report from " + what + ":\n" + run.err.substr(0, 8000));
    }
  }

  std::vector<std::string> importTrial(const Expected& files, double killAfter,
                                       Totals& totals) const {
    fs::remove_all(home_);
    Run killed = finish(start(command("import", &files), "import"), killAfter, 900);
    std::vector<std::string> problems;
    if (!killed.killed && sanitizerReport(killed.err)) {
      ++totals.sanitizer;
      problems.push_back("sanitizer report before the kill:\n" + killed.err);
    }
    Expected expected = files;
    expected.printed = printedIds(killed.out);
    ageLibrary();
    expectClean(finish(start(command("import", &files), "import"), -1, 900), "the next import",
                problems, totals);
    for (auto& p : checkLibrary(home_, expected, false, totals)) problems.push_back(p);
    return problems;
  }

  std::vector<std::string> daemonTrial(const Expected& files, double killAfter,
                                       Totals& totals) const {
    fs::remove_all(home_);
    std::vector<std::string> problems;
    std::string why;
    auto daemon = startDaemon("daemon", why);
    if (!daemon) {
      ++totals.crashed;
      return {why};
    }
    Child client = start(command("import", &files), "client");
    Run killed = finish(*daemon, killAfter, killAfter + 1);
    if (!killed.killed && sanitizerReport(killed.err)) {
      ++totals.sanitizer;
      problems.push_back("sanitizer report from the daemon before the kill:\n" + killed.err);
    }
    // The client of a daemon that died must say so and end, not wait for it.
    Run orphanedClient = finish(client, -1, 60);
    if (orphanedClient.timedOut) {
      ++totals.crashed;
      problems.push_back("the import waited for ever for its killed daemon");
    }
    Expected expected = files;
    expected.printed = printedIds(orphanedClient.out);
    ageLibrary();
    auto again = startDaemon("daemon", why);
    if (!again) {
      ++totals.crashed;
      problems.push_back("after the kill, " + why);
      return problems;
    }
    expectClean(finish(start(command("import", &files), "client"), -1, 900),
                "the import after the restart", problems, totals);
    bool processed = waitUntilProcessed(600);
    expectClean(stop(*again, 10), "the restarted daemon", problems, totals);
    const int unfinishedBefore = totals.unfinished;
    for (auto& p : checkLibrary(home_, expected, true, totals)) problems.push_back(p);
    if (!processed && totals.unfinished == unfinishedBefore) {
      ++totals.unfinished;
      problems.push_back("processing did not end within 600 s");
    }
    return problems;
  }

  // How long one whole run of the trial takes, so that kills fall within it.
  double importDuration(const Expected& files, std::string& why) const {
    fs::remove_all(home_);
    const double begun = monotonicNow();
    Run full = finish(start(command("import", &files), "import"), -1, 900);
    if (!exitedCleanly(full)) why = "the import without a kill failed:\n" + full.err;
    return secondsSince(begun);
  }
  double daemonDuration(const Expected& files, std::string& why) const {
    fs::remove_all(home_);
    auto daemon = startDaemon("daemon", why);
    if (!daemon) return 0;
    const double begun = monotonicNow();
    Run client = finish(start(command("import", &files), "client"), -1, 900);
    bool processed = waitUntilProcessed(600);
    double duration = secondsSince(begun);
    Run stopped = stop(*daemon, 10);
    if (!exitedCleanly(client) || !processed || !exitedCleanly(stopped)) {
      why = "the daemon run without a kill failed (import " + describe(client) + ", daemon " +
            describe(stopped) + (processed ? "" : ", processing did not end") + "):\n" +
            client.err + stopped.err;
    }
    return duration;
  }

 private:
  const Options& o_;
  std::string home_;
};

void Report(int trial, const char* kind, double killAfter,
            const std::vector<std::string>& problems) {
  if (problems.empty()) return;
  std::cout << "trial " << trial << " (" << kind << " killed after " << killAfter << " s):\n";
  for (const auto& p : problems) std::cout << "  " << p << "\n";
}

}  // namespace
}  // namespace klipora::crash

int main(int argc, char** argv) {
  using namespace klipora::crash;
  Options o;
  if (!ParseOptions(argc, argv, o)) {
    std::cerr << "usage: klipora_crash_trials --klipora PATH [--trials N] [--files N] "
                 "[--daemon-trials N] [--daemon-files N] [--work DIR] [--seed N]\n";
    return 2;
  }
  if (o.seed == 0) o.seed = std::random_device{}();
  std::mt19937 rng(o.seed);
  std::filesystem::remove_all(o.work);
  // The daemon watches the user's screenshot folders: give it a home of its
  // own, so that it never takes this machine's.
  const std::string userHome = o.work + "/user";
  std::filesystem::create_directories(userHome);
  ::setenv("HOME", userHome.c_str(), 1);
  for (const char* name : {"XDG_PICTURES_DIR", "XDG_CONFIG_HOME", "XDG_DATA_HOME",
                           "XDG_RUNTIME_DIR", "KLIPORA_HOME", "DBUS_SESSION_BUS_ADDRESS"}) {
    ::unsetenv(name);
  }

  Expected files = MakeScreenshots(o.work + "/shots", o.files);
  Expected daemonFiles = MakeScreenshots(o.work + "/daemon-shots", o.daemonFiles);
  Trials trials(o);
  std::string why;
  double importDuration = o.trials ? trials.importDuration(files, why) : 0;
  double daemonDuration = why.empty() && o.daemonTrials ? trials.daemonDuration(daemonFiles, why)
                                                        : 0;
  if (!why.empty()) {
    std::cerr << why << "\n";
    return 1;
  }
  std::cout << "seed " << o.seed << "; an import of " << o.files << " files takes "
            << importDuration << " s, a daemon's import and processing of " << o.daemonFiles
            << " files " << daemonDuration << " s\n";

  Totals totals;
  for (int t = 0; t < o.trials; ++t) {
    double killAfter = std::uniform_real_distribution<double>(0, importDuration * 1.1)(rng);
    Report(t + 1, "import", killAfter, trials.importTrial(files, killAfter, totals));
    ++totals.trials;
  }
  for (int t = 0; t < o.daemonTrials; ++t) {
    double killAfter = std::uniform_real_distribution<double>(0, daemonDuration * 1.1)(rng);
    Report(o.trials + t + 1, "daemon", killAfter,
           trials.daemonTrial(daemonFiles, killAfter, totals));
    ++totals.trials;
  }
  std::cout << totals.line() << "\n";
  return totals.problems() == 0 ? 0 : 1;
}
