// Realistic screenshots for benchmarks, rendered at run time with Cairo and
// Pango: a window with a title bar, a sidebar and many lines of text, the way
// code editors, terminals and documents look. Nothing here is committed.
#pragma once

#include <string>
#include <vector>

namespace klipora::bench {

struct CorpusFile {
  std::string path;
  int width;
  int height;
  std::string format;  // "png", "jpg", "webp"
};

// Renders `count` distinct screenshots per size and format into `folder`.
std::vector<CorpusFile> renderScreenshotCorpus(const std::string& folder, int countPerKind);

// One such screenshot as PNG bytes; each seed gives different text.
std::string renderScreenshotPng(int width, int height, unsigned seed);

}  // namespace klipora::bench
