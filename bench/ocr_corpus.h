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

}  // namespace klipora::bench
