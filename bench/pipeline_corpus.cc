#include "pipeline_corpus.h"

#include <cairo.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <random>

#include "ocr_corpus.h"
#include "ocr_corpus_painter.h"

namespace klipora::bench {
namespace {

// A desktop notification: what makes each copy of a screen unique.
void DrawToast(Painter& p, bool dark, int serial) {
  std::mt19937 rng(static_cast<unsigned>(serial * 104729 + 17));
  const Theme theme = MakeTheme(dark);
  const Font title{"DejaVu Sans", 13, true};
  const Font body{"DejaVu Sans", 12};
  const double w = 360, h = 92;
  const double x = p.width() - w - 24, y = 44;
  p.rect(x, y, w, h, theme.sidebar, 10);
  p.circle(x + 26, y + 28, 12, theme.accent);
  char heading[128];
  std::snprintf(heading, sizeof heading, "%s  #%04d", Pick(PersonNames(), rng).c_str(), serial);
  p.text(x + 48, y + 14, heading, title, theme.text);
  p.textRight(x + w - 14, y + 14, ClockTime(rng), body, theme.secondary);
  std::string sentence = Pick(Sentences(), rng);
  if (sentence.size() > 44) sentence = sentence.substr(0, 41) + "...";
  p.text(x + 48, y + 40, sentence, body, theme.secondary);
  p.text(x + 48, y + 62, Pick(FileNames(), rng), body, theme.secondary);
}

std::string ShotPath(const std::string& folder, int index) {
  char name[32];
  std::snprintf(name, sizeof name, "/shot-%04d.png", index);
  return folder + name;
}

}  // namespace

std::vector<PipelineScreenshot> renderPipelineCorpus(const std::string& folder, int count) {
  const std::string baseFolder = folder + "/screens";
  std::filesystem::create_directories(baseFolder);
  std::vector<OcrCorpusImage> screens = renderOcrCorpus(baseFolder, {});
  std::vector<PipelineScreenshot> shots;
  if (screens.empty()) return shots;
  const int stride = static_cast<int>(screens.size());
  // Half of the screens' copies are painted in a child process: the work is
  // all CPU, and the machines have two cores.
  auto paint = [&](size_t first) {
    for (size_t s = first; s < screens.size(); s += 2) {
      const OcrCorpusImage& screen = screens[s];
      cairo_surface_t* base = cairo_image_surface_create_from_png(screen.path.c_str());
      if (cairo_surface_status(base) == CAIRO_STATUS_SUCCESS) {
        const double scale = screen.width > 1920 ? 2.0 : 1.0;
        for (int i = static_cast<int>(s); i < count; i += stride) {
          Painter painter(screen.width, screen.height, scale);
          painter.blit(base, 0, 0);
          DrawToast(painter, screen.dark, i);
          painter.savePng(ShotPath(folder, i));
        }
      }
      cairo_surface_destroy(base);
    }
  };
  pid_t child = fork();
  if (child == 0) {
    paint(1);
    _exit(0);
  }
  paint(0);
  if (child > 0) {
    waitpid(child, nullptr, 0);
  } else {
    paint(1);
  }
  std::filesystem::remove_all(baseFolder);
  for (int i = 0; i < count; ++i) {
    const OcrCorpusImage& screen = screens[i % stride];
    const std::string path = ShotPath(folder, i);
    if (std::filesystem::exists(path)) {
      shots.push_back({path, screen.kind, screen.width, screen.height});
    }
  }
  return shots;
}

}  // namespace klipora::bench
