// Watching speed as a user meets it: `klipora run` watches a folder of its
// own, and this program writes screenshots into it the ways the screenshot
// tools of Linux write them, one at a time, and reads the store to see when
// each one's record exists and when its processing has ended. Then it drops
// 2,000 screenshots into the folder at once and times how long until every
// one is in the library, counting what was missed or imported twice, with
// the daemon's peak memory.
//
// Usage: build/bench/watch [PER_STYLE] [DROP] (default 50 2000). The command
// is build/klipora, above this program, or $KLIPORA_BIN. With
// KLIPORA_BENCH_KEEP set, the library is left in /tmp. Figures are printed,
// never asserted.
#include <fcntl.h>
#include <poll.h>
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
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "bench_stats.h"
#include "screenshot_corpus.h"

namespace {

namespace fs = std::filesystem;
using Stopwatch = std::chrono::steady_clock;
using klipora::bench::Median;
using klipora::bench::P95;

// How long one screenshot may take before it counts as missed.
constexpr double kGiveUp = 60;
// How often the store is read while waiting.
constexpr auto kPollEvery = std::chrono::milliseconds(5);
// How long a tool that closes late keeps its file open after the last write.
constexpr double kLateClose = 2.0;

double Since(Stopwatch::time_point t) {
  return std::chrono::duration<double>(Stopwatch::now() - t).count();
}

[[noreturn]] void Fail(const std::string& what) {
  std::fprintf(stderr, "watch: %s\n", what.c_str());
  std::exit(1);
}

void WriteAll(int fd, const std::string& bytes, size_t from, size_t to) {
  while (from < to) {
    ssize_t n = ::write(fd, bytes.data() + from, to - from);
    if (n <= 0) Fail("write failed");
    from += static_cast<size_t>(n);
  }
}

void WriteFile(const std::string& path, const std::string& bytes) {
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) Fail("cannot create " + path);
  WriteAll(fd, bytes, 0, bytes.size());
  ::close(fd);
}

// A window full of text, as a screenshot of an editor or a terminal.
std::string Screenshot(int width, int height, unsigned seed) {
  std::string png = klipora::bench::renderScreenshotPng(width, height, seed);
  if (png.empty()) Fail("cannot render an image");
  return png;
}

// The running daemon and the commands that talk to it.
class Klipora {
 public:
  Klipora(std::string binary, std::string root) : binary_(std::move(binary)), root_(root) {
    home_ = root + "/home";
    runtime_ = root + "/runtime";
    user_ = root + "/user";
    for (const auto& dir : {runtime_, user_}) fs::create_directories(dir);
    ::chmod(runtime_.c_str(), 0700);
  }
  ~Klipora() { stop(); }

  void start() {
    int out[2];
    if (::pipe(out) != 0) Fail("pipe");
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(out[1], STDOUT_FILENO);
      int err = ::open((root_ + "/daemon.log").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      ::dup2(err, STDERR_FILENO);
      environment();
      ::execl(binary_.c_str(), binary_.c_str(), "--home", home_.c_str(), "run", nullptr);
      ::_exit(127);
    }
    ::close(out[1]);
    std::string output;
    while (output.find("Press Ctrl-C") == std::string::npos) {
      pollfd p{out[0], POLLIN, 0};
      char buf[512];
      ssize_t n = ::poll(&p, 1, 60'000) > 0 ? ::read(out[0], buf, sizeof buf) : 0;
      if (n <= 0) Fail("the daemon did not start; see " + root_ + "/daemon.log");
      output.append(buf, static_cast<size_t>(n));
    }
    out_ = out[0];
  }
  void stop() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    pid_ = -1;
    ::close(out_);
  }
  int run(const std::vector<std::string>& args) {
    pid_t pid = ::fork();
    if (pid == 0) {
      int null = ::open("/dev/null", O_WRONLY);
      ::dup2(null, STDOUT_FILENO);
      environment();
      std::vector<std::string> all = {binary_, "--home", home_};
      all.insert(all.end(), args.begin(), args.end());
      std::vector<char*> argv;
      for (auto& a : all) argv.push_back(a.data());
      argv.push_back(nullptr);
      ::execv(binary_.c_str(), argv.data());
      ::_exit(127);
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  // The daemon's peak resident memory so far, in MiB.
  double peakMiB() const {
    std::ifstream in("/proc/" + std::to_string(pid_) + "/status");
    std::string key;
    while (in >> key) {
      if (key == "VmHWM:") {
        double kib = 0;
        in >> kib;
        return kib / 1024;
      }
      in.ignore(1 << 12, '\n');
    }
    return 0;
  }
  std::string storePath() const { return home_ + "/Klipora.store"; }

 private:
  void environment() {
    ::setenv("XDG_RUNTIME_DIR", runtime_.c_str(), 1);
    // A user of its own, so that its first start watches no real folder.
    ::setenv("HOME", user_.c_str(), 1);
    ::unsetenv("XDG_PICTURES_DIR");
    ::unsetenv("XDG_CONFIG_HOME");
  }

  std::string binary_, root_, home_, runtime_, user_;
  pid_t pid_ = -1;
  int out_ = -1;
};

// Reads the library's records, as another process sees them.
class Store {
 public:
  explicit Store(const std::string& path) {
    if (sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
      Fail("cannot open " + path);
    }
    sqlite3_busy_timeout(db_, 5000);
  }
  ~Store() { sqlite3_close(db_); }

  // File name → processing state, of every item.
  std::map<std::string, std::string> items() {
    std::map<std::string, std::string> out;
    sqlite3_stmt* stmt = nullptr;
    if (sqlite3_prepare_v2(db_, "SELECT originalFilename, processingStateRaw FROM ScreenshotItem",
                           -1, &stmt, nullptr) != SQLITE_OK) {
      return out;  // not created yet
    }
    while (sqlite3_step(stmt) == SQLITE_ROW) {
      auto text = [&](int i) {
        const auto* t = sqlite3_column_text(stmt, i);
        return t ? std::string(reinterpret_cast<const char*>(t)) : std::string();
      };
      out[text(0)] = text(1);
    }
    sqlite3_finalize(stmt);
    return out;
  }
  int count() {
    sqlite3_stmt* stmt = nullptr;
    int n = 0;
    if (sqlite3_prepare_v2(db_, "SELECT count(*) FROM ScreenshotItem", -1, &stmt, nullptr) ==
            SQLITE_OK &&
        sqlite3_step(stmt) == SQLITE_ROW) {
      n = sqlite3_column_int(stmt, 0);
    }
    sqlite3_finalize(stmt);
    return n;
  }
  std::string stateOf(const std::string& name) {
    sqlite3_stmt* stmt = nullptr;
    std::string state;
    if (sqlite3_prepare_v2(db_,
                           "SELECT processingStateRaw FROM ScreenshotItem "
                           "WHERE originalFilename = ?",
                           -1, &stmt, nullptr) == SQLITE_OK) {
      sqlite3_bind_text(stmt, 1, name.c_str(), -1, SQLITE_TRANSIENT);
      if (sqlite3_step(stmt) == SQLITE_ROW) {
        state = reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0));
      }
    }
    sqlite3_finalize(stmt);
    return state;
  }

 private:
  sqlite3* db_ = nullptr;
};

bool Terminal(const std::string& state) {
  return state == "complete" || state == "failed" || state == "partiallyFailed";
}

// The ways screenshot tools put a finished image under its final name.
struct Style {
  const char* name;
  const char* how;
};
const Style kStyles[] = {
    {"in place", "create, write, close"},
    {"late close", "create, write, close 2 s later"},
    {"link into place", "write name.png.XXXXXX, link to name, unlink temp"},
    {"dot-temp rename", "write .name.png, rename to name"},
    {"temp rename", "write name.png.part, rename to name"},
};

struct Timing {
  std::vector<double> imported, processed;
  int missed = 0;
};

// Writes one screenshot in `style`, then waits for its record and for the
// end of its processing.
void Take(int style, const std::string& folder, const std::string& name, const std::string& png,
          Store& store, Timing& timing) {
  const std::string path = folder + "/" + name;
  int lateFd = -1;
  switch (style) {
    case 0:
      WriteFile(path, png);
      break;
    case 1: {
      lateFd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
      if (lateFd < 0) Fail("cannot create " + path);
      WriteAll(lateFd, png, 0, png.size() / 2);
      WriteAll(lateFd, png, png.size() / 2, png.size());
      break;
    }
    case 2: {
      std::string temp = path + ".XXXXXX";
      int fd = ::mkstemp(temp.data());
      if (fd < 0) Fail("mkstemp");
      WriteAll(fd, png, 0, png.size());
      ::close(fd);
      if (::link(temp.c_str(), path.c_str()) != 0) Fail("link");
      ::unlink(temp.c_str());
      break;
    }
    case 3:
      WriteFile(folder + "/." + name, png);
      fs::rename(folder + "/." + name, path);
      break;
    case 4:
      WriteFile(path + ".part", png);
      fs::rename(path + ".part", path);
      break;
  }
  const auto complete = Stopwatch::now();
  bool imported = false;
  for (;;) {
    if (lateFd >= 0 && Since(complete) >= kLateClose) {
      ::close(lateFd);
      lateFd = -1;
    }
    const std::string state = store.stateOf(name);
    if (!state.empty() && !imported) {
      imported = true;
      timing.imported.push_back(Since(complete));
    }
    if (Terminal(state)) {
      timing.processed.push_back(Since(complete));
      break;
    }
    if (Since(complete) > kGiveUp) {
      ++timing.missed;
      break;
    }
    std::this_thread::sleep_for(kPollEvery);
  }
  if (lateFd >= 0) ::close(lateFd);
}

std::string Binary(const char* argv0) {
  if (const char* bin = std::getenv("KLIPORA_BIN")) return bin;
  std::error_code ec;
  auto self = fs::read_symlink("/proc/self/exe", ec);
  if (ec) self = argv0;
  return (self.parent_path().parent_path() / "klipora").string();
}

}  // namespace

int main(int argc, char** argv) {
  const int perStyle = argc > 1 ? std::atoi(argv[1]) : 50;
  const int drop = argc > 2 ? std::atoi(argv[2]) : 2000;
  const std::string binary = Binary(argv[0]);
  if (::access(binary.c_str(), X_OK) != 0) Fail("no command at " + binary + " (set KLIPORA_BIN)");

  char rootTemplate[] = "/tmp/klipora-watch-bench-XXXXXX";
  if (!::mkdtemp(rootTemplate)) Fail("cannot make a folder in /tmp");
  const std::string root = rootTemplate;
  const std::string inbox = root + "/Screenshots";
  fs::create_directories(inbox);

  Klipora klipora(binary, root);
  klipora.start();
  if (klipora.run({"folders", "add", inbox}) != 0) Fail("klipora folders add failed");
  Store store(klipora.storePath());

  std::printf("One screenshot at a time, %d per style: seconds from the file's completion\n",
              perStyle);
  std::printf("%-17s %-50s %21s %21s %s\n", "style", "how", "to record med / p95",
              "to processed med/p95", "missed");
  for (int s = 0; s < static_cast<int>(std::size(kStyles)); ++s) {
    Timing timing;
    for (int i = 0; i < perStyle; ++i) {
      const std::string name = "shot-" + std::to_string(s) + "-" + std::to_string(i) + ".png";
      Take(s, inbox, name, Screenshot(1920, 1080, 1000 * s + i), store, timing);
    }
    std::printf("%-17s %-50s %9.3f / %9.3f %9.3f / %9.3f %d\n", kStyles[s].name, kStyles[s].how,
                Median(timing.imported), P95(timing.imported), Median(timing.processed),
                P95(timing.processed), timing.missed);
    std::fflush(stdout);
  }

  // The drop: rendered first, then written into the folder as fast as a copy.
  const int before = store.count();
  const double peakBefore = klipora.peakMiB();
  std::vector<std::pair<std::string, std::string>> files;
  for (int i = 0; i < drop; ++i) {
    const std::string name = "drop-" + std::to_string(i) + ".png";
    files.emplace_back(name, Screenshot(1280, 720, 100000 + i));
  }
  const auto dropped = Stopwatch::now();
  for (const auto& [name, png] : files) WriteFile(inbox + "/" + name, png);
  const double written = Since(dropped);
  int seen = before;
  while (seen < before + drop && Since(dropped) < kGiveUp + drop * 0.1) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    seen = store.count();
  }
  const double allIn = Since(dropped);
  auto items = store.items();
  int imported = 0;
  for (const auto& [name, png] : files) imported += items.count(name) ? 1 : 0;
  const int extra = store.count() - before - imported;
  std::printf("\nDrop of %d screenshots into the watched folder (written in %.1f s):\n", drop,
              written);
  std::printf("  imported %d, missed %d, records beyond one per file %d\n", imported,
              drop - imported, extra);
  std::printf("  time until all imported: %.1f s (%.0f files/s)\n", allIn,
              allIn > 0 ? imported / allIn : 0.0);
  std::printf("  daemon peak memory: %.0f MiB before the drop, %.0f MiB after\n", peakBefore,
              klipora.peakMiB());

  klipora.stop();
  if (!std::getenv("KLIPORA_BENCH_KEEP")) {
    fs::remove_all(root);
  } else {
    std::fprintf(stderr, "kept %s\n", root.c_str());
  }
  return 0;
}
