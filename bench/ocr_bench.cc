// Text recognition benchmark: renders realistic screenshots with known text,
// reads each with OCRService (warm engines) and with the `tesseract` command
// (same language, OMP_THREAD_LIMIT=1), and prints per image and in total the
// times, their ratio, word recall, word precision and character error rate;
// then `klipora ocr` run once per image (process start and engine loading
// included) and once for all images, against the command; then recognitions
// per minute with two engines at once, peak memory, and a 12000×8000
// several-monitor screenshot.
//
//   build/bench/ocr [--kinds=chat,code] [--small|--large] [--light|--dark]
//                   [--no-command] [--no-processes] [--no-throughput]
//                   [--no-wide] [--keep]
//                   [--no-normalize] [--no-invert] [--no-upscale] [--no-recovery]
//                   [--no-downscale] [--colour] [--down=PX] [--down-above=PX]
//                   [--target=PX]
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "child_runs.h"
#include "ocr_corpus.h"
#include "ocr_metrics.h"
#include "platform/linux/main_loop.h"
#include "platform/linux/tesseract_ocr_engine.h"
#include "platform/linux/vips_image_codec.h"
#include "processing/ocr_service.h"

namespace klipora::bench {
namespace {

using processing::OCRService;
using processing::OCRServiceConfig;

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

struct CommandRun {
  std::string text;
  double seconds = 0;
  long peakKiB = 0;
  bool ok = false;
};

std::string Name(const OcrCorpusImage& image);
void PrintScore(const char* label, const TextScore& s);

// A program found on PATH, or given by path, with its standard output taken
// and one OpenMP thread.
CommandRun RunProgram(const std::string& program, std::vector<std::string> args,
                      std::vector<std::string> env = {}) {
  env.push_back("OMP_THREAD_LIMIT=1");
  args.insert(args.begin(), program);
  ChildRun child = ChildRuns::run(args, env, true);
  CommandRun run;
  run.text = std::move(child.out);
  run.seconds = child.seconds;
  run.peakKiB = child.peakKiB;
  run.ok = child.status == 0;
  return run;
}

// `tesseract IMAGE stdout -l eng`.
CommandRun RunTesseractCommand(const std::string& image) {
  return RunProgram("tesseract", {image, "stdout", "-l", "eng"});
}

// build/klipora, beside this program's folder, or $KLIPORA_BIN.
std::string KliporaBinary() {
  if (const char* bin = std::getenv("KLIPORA_BIN")) return bin;
  std::error_code ec;
  auto self = std::filesystem::read_symlink("/proc/self/exe", ec);
  return ec ? "" : (self.parent_path().parent_path() / "klipora").string();
}

// `klipora ocr` as a user runs it: a process per image, process start and
// engine loading included, against the command's time for the same images;
// then one process reading them all.
void OnePerProcess(const std::string& folder, const std::vector<OcrCorpusImage>& corpus,
                   const std::vector<double>& commandSeconds) {
  const std::string klipora = KliporaBinary();
  if (klipora.empty() || access(klipora.c_str(), X_OK) != 0) {
    std::printf("\nOne image per process: no klipora command (set KLIPORA_BIN)\n");
    return;
  }
  const std::vector<std::string> env = {"KLIPORA_HOME=" + folder + "/home"};
  double ours = 0, theirs = 0;
  TextScore score;
  long peak = 0;
  std::vector<std::string> all;
  for (size_t i = 0; i < corpus.size(); ++i) {
    CommandRun run = RunProgram(klipora, {"ocr", corpus[i].path}, env);
    if (!run.ok) std::printf("  klipora ocr %s failed\n", Name(corpus[i]).c_str());
    ours += run.seconds;
    theirs += commandSeconds[i];
    score += scoreText(run.text, corpus[i].groundTruth);
    peak = std::max(peak, run.peakKiB);
    all.push_back(corpus[i].path);
  }
  std::printf("\nOne image per process (klipora ocr IMAGE, start included): %.3f s each, "
              "command %.3f s each, ratio %.2f, peak %.0f MiB\n",
              ours / corpus.size(), theirs / corpus.size(), ours / theirs, peak / 1024.0);
  PrintScore("klipora", score);
  all.insert(all.begin(), "ocr");
  CommandRun batch = RunProgram(klipora, all, env);
  std::printf("All %zu in one klipora ocr: %.3f s each, ratio %.2f to the command\n",
              corpus.size(), batch.seconds / corpus.size(), batch.seconds / theirs);
}

long PeakKiB() {
  struct rusage usage {};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

struct Flags {
  OcrCorpusOptions corpus;
  bool command = true, processes = true, throughput = true, wide = true, keep = false;
  processing::OCRPreparationOptions preparation;
  bool recovery = true;
};

Flags ParseFlags(int argc, char** argv) {
  Flags flags;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a.rfind("--kinds=", 0) == 0) {
      std::stringstream list(a.substr(8));
      for (std::string k; std::getline(list, k, ',');) flags.corpus.kinds.push_back(k);
    } else if (a == "--small") {
      flags.corpus.large = false;
    } else if (a == "--large") {
      flags.corpus.small = false;
    } else if (a == "--light") {
      flags.corpus.dark = false;
    } else if (a == "--dark") {
      flags.corpus.light = false;
    } else if (a == "--no-command") {
      flags.command = false;
    } else if (a == "--no-processes") {
      flags.processes = false;
    } else if (a == "--no-throughput") {
      flags.throughput = false;
    } else if (a == "--no-wide") {
      flags.wide = false;
    } else if (a == "--keep") {
      flags.keep = true;
    } else if (a == "--no-invert") {
      flags.preparation.invertDarkBackground = false;
    } else if (a == "--no-upscale") {
      flags.preparation.upscaleSmallText = false;
    } else if (a == "--no-recovery") {
      flags.recovery = false;
    } else if (a == "--no-normalize") {
      flags.preparation.normalizeInk = false;
    } else if (a == "--colour") {
      flags.preparation.greyscale = false;
    } else if (a == "--no-downscale") {
      flags.preparation.downscaleLargeText = false;
    } else if (a.rfind("--down=", 0) == 0) {
      flags.preparation.downscaleGlyphHeight = std::stoi(a.substr(7));
    } else if (a.rfind("--down-above=", 0) == 0) {
      flags.preparation.downscaleAboveGlyphHeight = std::stoi(a.substr(13));
    } else if (a.rfind("--target=", 0) == 0) {
      flags.preparation.targetGlyphHeight = std::stoi(a.substr(9));
    } else {
      std::fprintf(stderr, "ocr: unknown flag %s\n", a.c_str());
      std::exit(2);
    }
  }
  return flags;
}

std::string Name(const OcrCorpusImage& image) {
  return std::filesystem::path(image.path).stem().string();
}

void PrintScore(const char* label, const TextScore& s) {
  std::printf("  %-8s recall %.3f  precision %.3f  CER %.3f\n", label, s.recall(),
              s.precision(), s.cer());
}

// Recognises the several-monitor screenshot in a child process, so that the
// peak memory reported is that recognition's alone.
void WideDesktop(const std::string& folder, const Flags& flags) {
  std::printf("\nSeveral monitors, 12000x8000:\n");
  std::fflush(stdout);
  pid_t renderer = fork();
  if (renderer == 0) {
    OcrCorpusImage rendered = renderWideDesktop(folder, 12000, 8000);
    std::ofstream(folder + "/wide-desktop.txt") << rendered.groundTruth;
    _exit(0);
  }
  waitpid(renderer, nullptr, 0);
  OcrCorpusImage wide{folder + "/wide-desktop.png", "wide", false, 12000, 8000, ""};
  int pipeFd[2];
  if (pipe(pipeFd) != 0) return;
  pid_t child = fork();
  if (child == 0) {
    close(pipeFd[0]);
    VipsImageCodec codec;
    TesseractOcrEngineFactory factory;
    SystemClock clock;
    OCRServiceConfig config;
    config.preparation = flags.preparation;
    config.recoverDroppedText = flags.recovery;
    OCRService service(factory, codec, clock, config);
    service.warmUp();
    long before = PeakKiB();
    double start = Now();
    auto result = service.recognizeTextWithLayout(ReadFile(wide.path));
    double seconds = Now() - start;
    std::string text = result ? result->text : "";
    char header[128];
    int length = std::snprintf(header, sizeof header, "%.3f %ld %ld %d\n", seconds, before,
                               PeakKiB(), result ? 1 : 0);
    (void)!write(pipeFd[1], header, length);
    (void)!write(pipeFd[1], text.data(), text.size());
    _exit(0);
  }
  close(pipeFd[1]);
  std::string reply;
  char buffer[8192];
  ssize_t n;
  while ((n = read(pipeFd[0], buffer, sizeof buffer)) > 0) reply.append(buffer, n);
  close(pipeFd[0]);
  waitpid(child, nullptr, 0);
  double seconds = 0;
  long before = 0, after = 0;
  int ok = 0;
  std::sscanf(reply.c_str(), "%lf %ld %ld %d", &seconds, &before, &after, &ok);
  std::string text = reply.substr(reply.find('\n') + 1);
  std::string truth = ReadFile(folder + "/wide-desktop.txt");
  TextScore ours = scoreText(text, truth);
  std::printf("  ours     %s in %.2f s, peak memory %.0f MiB (%.0f MiB with engines loaded "
              "before), recall %.3f precision %.3f\n",
              ok ? "recognised" : "FAILED", seconds, after / 1024.0, before / 1024.0,
              ours.recall(), ours.precision());
  if (flags.command) {
    CommandRun cmd = RunTesseractCommand(wide.path);
    TextScore theirs = scoreText(cmd.text, truth);
    std::printf("  command  %s in %.2f s, peak memory %.0f MiB, recall %.3f precision %.3f\n",
                cmd.ok ? "recognised" : "FAILED", cmd.seconds, cmd.peakKiB / 1024.0,
                theirs.recall(), theirs.precision());
  }
}

int Run(int argc, char** argv) {
  Flags flags = ParseFlags(argc, argv);
  char pattern[] = "/tmp/klipora-ocr-bench-XXXXXX";
  std::string folder = mkdtemp(pattern);
  double start = Now();
  std::vector<OcrCorpusImage> corpus = renderOcrCorpus(folder, flags.corpus);
  std::printf("Rendered %zu screenshots in %.1f s into %s\n", corpus.size(), Now() - start,
              folder.c_str());
  for (const std::string& line : ocrCorpusFontFiles()) std::printf("  %s\n", line.c_str());

  VipsImageCodec codec;
  TesseractOcrEngineFactory factory;
  SystemClock clock;
  OCRServiceConfig config;
  config.preparation = flags.preparation;
  config.recoverDroppedText = flags.recovery;
  OCRService service(factory, codec, clock, config);
  start = Now();
  service.warmUp();
  std::printf("Warm-up (2 engines): %.2f s\n\n", Now() - start);

  std::printf("%-22s %7s %7s %6s | %-19s | %-19s\n", "image", "ours s", "cmd s", "ratio",
              "ours R / P / CER", "command R / P / CER");
  double oursTotal = 0, commandTotal = 0;
  TextScore oursAll, commandAll;
  std::map<std::string, std::pair<TextScore, TextScore>> byKind;
  long commandPeak = 0;
  std::vector<double> commandSeconds;
  for (const OcrCorpusImage& image : corpus) {
    double t0 = Now();
    auto result = service.recognizeTextWithLayout(ReadFile(image.path));
    double ours = Now() - t0;
    std::string text = result ? result->text : "";
    if (!result) std::printf("  %s: %s\n", Name(image).c_str(), result.error().describeWithDetail().c_str());
    TextScore o = scoreText(text, image.groundTruth);
    oursTotal += ours;
    oursAll += o;
    byKind[image.kind].first += o;
    CommandRun cmd;
    TextScore c;
    if (flags.command) {
      cmd = RunTesseractCommand(image.path);
      c = scoreText(cmd.text, image.groundTruth);
      commandTotal += cmd.seconds;
      commandSeconds.push_back(cmd.seconds);
      commandAll += c;
      byKind[image.kind].second += c;
      commandPeak = std::max(commandPeak, cmd.peakKiB);
    }
    std::printf("%-22s %7.3f %7.3f %6.2f | %.3f %.3f %.3f   | %.3f %.3f %.3f\n",
                Name(image).c_str(), ours, cmd.seconds, cmd.seconds > 0 ? ours / cmd.seconds : 0,
                o.recall(), o.precision(), o.cer(), c.recall(), c.precision(), c.cer());
    std::ofstream(folder + "/" + Name(image) + ".ours.txt") << text;
    std::ofstream(folder + "/" + Name(image) + ".truth.txt") << image.groundTruth;
    if (flags.command) std::ofstream(folder + "/" + Name(image) + ".cmd.txt") << cmd.text;
  }
  std::printf("\nTotal over %zu screenshots: ours %.2f s (%.3f s each), command %.2f s "
              "(%.3f s each), ratio %.2f\n",
              corpus.size(), oursTotal, oursTotal / corpus.size(), commandTotal,
              commandTotal / std::max<size_t>(1, corpus.size()),
              commandTotal > 0 ? oursTotal / commandTotal : 0);
  PrintScore("ours", oursAll);
  if (flags.command) PrintScore("command", commandAll);
  std::printf("\nBy kind of window (recall / precision / CER):\n");
  for (const auto& [kind, scores] : byKind) {
    std::printf("  %-9s ours %.3f / %.3f / %.3f   command %.3f / %.3f / %.3f\n", kind.c_str(),
                scores.first.recall(), scores.first.precision(), scores.first.cer(),
                scores.second.recall(), scores.second.precision(), scores.second.cer());
  }

  if (flags.command && flags.processes && !corpus.empty()) {
    OnePerProcess(folder, corpus, commandSeconds);
  }

  if (flags.throughput && !corpus.empty()) {
    std::atomic<size_t> next{0};
    auto worker = [&] {
      for (size_t i; (i = next++) < corpus.size();) {
        (void)service.recognizeTextWithLayout(ReadFile(corpus[i].path));
      }
    };
    double t0 = Now();
    std::thread a(worker), b(worker);
    a.join();
    b.join();
    double seconds = Now() - t0;
    std::printf("\nTwo engines at once: %zu recognitions in %.2f s = %.1f per minute\n",
                corpus.size(), seconds, corpus.size() * 60.0 / seconds);
  }
  std::printf("Peak memory: ours %.0f MiB (this process, 2 engines loaded)", PeakKiB() / 1024.0);
  if (flags.command) std::printf(", command %.0f MiB (largest run)", commandPeak / 1024.0);
  std::printf("\n");

  if (flags.wide) WideDesktop(folder, flags);
  if (!flags.keep) std::filesystem::remove_all(folder);
  return 0;
}

}  // namespace
}  // namespace klipora::bench

int main(int argc, char** argv) {
  klipora::bench::ChildRuns::start();
  return klipora::bench::Run(argc, argv);
}
