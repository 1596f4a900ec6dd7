// klipora_crash_trials: kills `klipora import` with SIGKILL at random moments
// and checks what the next run finds. Each trial imports a generated folder of
// screenshots into a fresh library, kills the command somewhere between its
// start and its end, then runs the same import again to its end and checks:
//   - the killed run's printed ids are all in the store (printed = saved);
//   - every source file is in exactly one item (none lost, none duplicated);
//   - every record's copy exists, PRAGMA integrity_check is ok;
//   - no file in Originals/ or Thumbnails/ that no record names (the next
//     start's sweep removed it; the files are aged first, as if that start
//     came a while later);
//   - the second run exits 0, by itself, without a sanitizer report.
// Prints one line per bad trial and the totals; exits 1 when any is non-zero.
//
//   klipora_crash_trials --klipora build-crash/klipora [--trials 200] [--files 300]
//                        [--work DIR] [--seed N]
#include <fcntl.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/testing/test_images.h"
#include "platform/sha256.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

struct Options {
  std::string klipora;
  std::string work = "/tmp/klipora-crash";
  int trials = 200;
  int files = 300;
  unsigned seed = 0;
};

struct Run {
  int status = 0;  // as waitpid gives it
  bool killed = false;
  bool timedOut = false;
  std::string out, err;
};

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

// Starts `klipora --home HOME import FILES…`; returns its pid.
pid_t Spawn(const Options& o, const std::string& home, const std::vector<std::string>& files,
            const std::string& outPath, const std::string& errPath) {
  pid_t pid = ::fork();
  if (pid != 0) return pid;
  FILE* out = std::freopen(outPath.c_str(), "w", stdout);
  FILE* err = std::freopen(errPath.c_str(), "w", stderr);
  if (!out || !err) ::_exit(127);
  std::vector<const char*> argv = {o.klipora.c_str(), "--home", home.c_str(), "import"};
  for (const auto& f : files) argv.push_back(f.c_str());
  argv.push_back(nullptr);
  ::execv(o.klipora.c_str(), const_cast<char* const*>(argv.data()));
  ::_exit(127);
}

// Waits for `pid`, killing it with SIGKILL after `killAfter` seconds (never
// when negative) and giving up after `timeout` seconds.
Run Finish(pid_t pid, double killAfter, double timeout, const std::string& outPath,
           const std::string& errPath) {
  Run run;
  const auto start = Clock::now();
  while (true) {
    int status = 0;
    if (::waitpid(pid, &status, WNOHANG) == pid) {
      run.status = status;
      break;
    }
    double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    if ((killAfter >= 0 && elapsed >= killAfter) || elapsed >= timeout) {
      run.timedOut = !(killAfter >= 0 && elapsed >= killAfter);
      run.killed = true;
      ::kill(pid, SIGKILL);
      ::waitpid(pid, &status, 0);
      run.status = status;
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  run.out = ReadAll(outPath);
  run.err = ReadAll(errPath);
  return run;
}

bool SanitizerReport(const std::string& err) {
  return err.find("ERROR: AddressSanitizer") != std::string::npos ||
         err.find("runtime error:") != std::string::npos ||
         err.find("ERROR: LeakSanitizer") != std::string::npos;
}

// Makes every file under `folder` look `seconds` older.
void Age(const std::string& folder, int seconds) {
  std::error_code ignored;
  for (const auto& e : fs::directory_iterator(folder, ignored)) {
    struct stat st;
    if (::stat(e.path().c_str(), &st) != 0) continue;
    struct timespec times[2] = {{st.st_atime - seconds, 0}, {st.st_mtime - seconds, 0}};
    ::utimensat(AT_FDCWD, e.path().c_str(), times, 0);
  }
}

struct Row {
  std::string id, checksum, libraryPath, thumbnailPath;
};

struct StoreView {
  bool opened = false;
  std::string integrity;
  std::vector<Row> rows;
};

StoreView ReadStore(const std::string& storePath) {
  StoreView view;
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(storePath.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
    sqlite3_close(db);
    return view;
  }
  view.opened = true;
  auto text = [](sqlite3_stmt* s, int c) {
    const unsigned char* t = sqlite3_column_text(s, c);
    return t ? std::string(reinterpret_cast<const char*>(t)) : std::string();
  };
  sqlite3_stmt* s = nullptr;
  if (sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &s, nullptr) == SQLITE_OK &&
      sqlite3_step(s) == SQLITE_ROW) {
    view.integrity = text(s, 0);
  }
  sqlite3_finalize(s);
  if (sqlite3_prepare_v2(db,
                         "SELECT id, checksum, libraryPath, thumbnailPath FROM ScreenshotItem", -1,
                         &s, nullptr) == SQLITE_OK) {
    while (sqlite3_step(s) == SQLITE_ROW) {
      view.rows.push_back({text(s, 0), text(s, 1), text(s, 2), text(s, 3)});
    }
  }
  sqlite3_finalize(s);
  sqlite3_close(db);
  return view;
}

struct Totals {
  int trials = 0, lost = 0, duplicated = 0, orphaned = 0, crashed = 0, sanitizer = 0,
      unsavedPrinted = 0, corrupt = 0;
};

bool ParseOptions(int argc, char** argv, Options& o) {
  for (int i = 1; i + 1 < argc; i += 2) {
    std::string key = argv[i], value = argv[i + 1];
    if (key == "--klipora") o.klipora = value;
    else if (key == "--trials") o.trials = std::atoi(value.c_str());
    else if (key == "--files") o.files = std::atoi(value.c_str());
    else if (key == "--work") o.work = value;
    else if (key == "--seed") o.seed = static_cast<unsigned>(std::atoi(value.c_str()));
    else return false;
  }
  return !o.klipora.empty() && o.trials > 0 && o.files > 0;
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  if (!ParseOptions(argc, argv, o)) {
    std::cerr << "usage: klipora_crash_trials --klipora PATH [--trials N] [--files N] "
                 "[--work DIR] [--seed N]\n";
    return 2;
  }
  if (o.seed == 0) o.seed = std::random_device{}();
  std::mt19937 rng(o.seed);
  fs::remove_all(o.work);
  fs::create_directories(o.work + "/shots");

  // Screenshots of distinct sizes, so that each has its own checksum.
  std::vector<std::string> files;
  std::map<std::string, std::string> checksumOf;  // path -> checksum
  for (int i = 0; i < o.files; ++i) {
    char name[64];
    std::snprintf(name, sizeof name, "Screenshot_2024-05-01_10-%02d-%02d.png", i / 60, i % 60);
    std::string path = o.work + "/shots/" + name;
    std::string png = klipora::testing::makeTestImage(
        klipora::testing::imageOptions(160 + i % 97, 100 + i / 97));
    std::ofstream(path, std::ios::binary) << png;
    files.push_back(path);
    checksumOf[path] = klipora::sha256Hex(png);
  }
  const std::string home = o.work + "/home";
  const std::string outPath = o.work + "/out.txt", errPath = o.work + "/err.txt";

  // How long one whole import takes: kills fall anywhere within it.
  auto start = Clock::now();
  Run full = Finish(Spawn(o, home, files, outPath, errPath), -1, 900, outPath, errPath);
  double duration = std::chrono::duration<double>(Clock::now() - start).count();
  if (!WIFEXITED(full.status) || WEXITSTATUS(full.status) != 0) {
    std::cerr << "the import without a kill failed:\n" << full.err;
    return 1;
  }
  std::cout << "seed " << o.seed << ", " << o.files << " files, a whole import takes "
            << duration << " s\n";

  Totals totals;
  for (int t = 0; t < o.trials; ++t) {
    fs::remove_all(home);
    double killAfter = std::uniform_real_distribution<double>(0, duration * 1.1)(rng);
    Run killed = Finish(Spawn(o, home, files, outPath, errPath), killAfter, 900, outPath, errPath);
    std::vector<std::string> problems;
    if (!killed.killed && SanitizerReport(killed.err)) {
      ++totals.sanitizer;
      problems.push_back("sanitizer report before the kill:\n" + killed.err);
    }
    // What the killed run printed as imported must be in the store.
    std::set<std::string> printed;
    std::istringstream lines(killed.out);
    for (std::string line; std::getline(lines, line);) {
      if (line.size() > 38 && line.substr(36, 2) == "  ") printed.insert(line.substr(0, 36));
    }
    Age(home + "/Library/Originals", 7200);
    Age(home + "/Library/Thumbnails", 7200);

    Run again = Finish(Spawn(o, home, files, outPath, errPath), -1, 900, outPath, errPath);
    if (again.timedOut || !WIFEXITED(again.status) || WEXITSTATUS(again.status) != 0) {
      ++totals.crashed;
      std::ostringstream why;
      why << "the next run " << (again.timedOut ? "hung" : "failed") << " (status "
          << (WIFSIGNALED(again.status) ? "signal " + std::to_string(WTERMSIG(again.status))
                                        : "exit " + std::to_string(WEXITSTATUS(again.status)))
          << "):\n"
          << again.err.substr(0, 4000);
      problems.push_back(why.str());
    }
    if (SanitizerReport(again.err)) {
      ++totals.sanitizer;
      problems.push_back("sanitizer report on the next run:\n" + again.err.substr(0, 8000));
    }

    StoreView store = ReadStore(home + "/Klipora.store");
    if (!store.opened || store.integrity != "ok") {
      ++totals.corrupt;
      problems.push_back("integrity_check: " + store.integrity);
    }
    std::map<std::string, int> perChecksum;
    std::set<std::string> ids, named;
    for (const auto& row : store.rows) {
      ++perChecksum[row.checksum];
      ids.insert(row.id);
      named.insert(fs::path(row.libraryPath).filename());
      if (!row.thumbnailPath.empty()) named.insert(fs::path(row.thumbnailPath).filename());
      if (!fs::exists(row.libraryPath)) {
        ++totals.lost;
        problems.push_back("record " + row.id + " without its file " + row.libraryPath);
      }
    }
    for (const auto& [path, checksum] : checksumOf) {
      int n = perChecksum[checksum];
      if (n == 0) {
        ++totals.lost;
        problems.push_back("lost " + path);
      } else if (n > 1) {
        totals.duplicated += n - 1;
        problems.push_back("duplicated " + path);
      }
    }
    for (const auto& id : printed) {
      if (!ids.count(id)) {
        ++totals.unsavedPrinted;
        problems.push_back("printed but not saved: " + id);
      }
    }
    for (const char* folder : {"/Library/Originals", "/Library/Thumbnails"}) {
      std::error_code ignored;
      for (const auto& e : fs::directory_iterator(home + folder, ignored)) {
        if (!named.count(e.path().filename())) {
          ++totals.orphaned;
          problems.push_back("orphan " + e.path().string());
        }
      }
    }
    ++totals.trials;
    if (!problems.empty()) {
      std::cout << "trial " << t + 1 << " (killed after " << killAfter << " s, "
                << printed.size() << " printed):\n";
      for (const auto& p : problems) std::cout << "  " << p << "\n";
    }
  }
  std::cout << "trials " << totals.trials << ", lost " << totals.lost << ", duplicated "
            << totals.duplicated << ", orphaned " << totals.orphaned << ", crashed "
            << totals.crashed << ", sanitizer reports " << totals.sanitizer
            << ", printed but unsaved " << totals.unsavedPrinted << ", corrupt stores "
            << totals.corrupt << "\n";
  bool clean = totals.lost + totals.duplicated + totals.orphaned + totals.crashed +
                   totals.sanitizer + totals.unsavedPrinted + totals.corrupt ==
               0;
  return clean ? 0 : 1;
}
