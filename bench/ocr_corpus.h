// Screenshots with known text for the text-recognition benchmark, rendered at
// run time with Cairo and Pango (nothing is committed): code editor, chat,
// error dialog, receipt, settings panel and article windows, in light and
// dark themes, at 1920×1080 (1×) and 2880×1800 (2×), in several fonts. Each
// image keeps its ground truth: every text drawn, one line per drawn line, in
// reading order.
#pragma once

#include <string>
#include <vector>

namespace klipora::bench {

struct OcrCorpusImage {
  std::string path;
  std::string kind;  // "code", "chat", "dialog", "receipt", "settings", "article"
  bool dark = false;
  int width = 0;
  int height = 0;
  std::string groundTruth;
};

struct OcrCorpusOptions {
  std::vector<std::string> kinds;  // empty: all
  bool light = true;
  bool dark = true;
  bool small = true;  // 1920×1080
  bool large = true;  // 2880×1800
};

const std::vector<std::string>& ocrCorpusKinds();

// Renders the corpus into `folder` as PNG files.
std::vector<OcrCorpusImage> renderOcrCorpus(const std::string& folder,
                                            const OcrCorpusOptions& options);

// A screenshot of several monitors side by side (`width`×`height`), tiled
// with 1920×1080 code and article windows, for the bounded-memory check.
OcrCorpusImage renderWideDesktop(const std::string& folder, int width, int height);

// The font file each family the corpus asks for is drawn with here, as
// "Liberation Mono → /usr/share/fonts/.../NimbusMonoPS-Regular.otf". Families
// that are not installed fall back to whatever fontconfig finds, and the
// figures move with that choice (an .otf and a .pfb of one face render
// differently), so runs on two machines compare only when these lines match.
std::vector<std::string> ocrCorpusFontFiles();

}  // namespace klipora::bench
