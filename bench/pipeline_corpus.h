// Many distinct screenshots for the pipeline benchmark: the text-recognition
// corpus (ocr_corpus.h) rendered once, then each of its screens copied as
// often as needed with a notification toast of its own (sender, time and a
// sentence) drawn over the top right corner, so that no two files share
// their bytes and the library imports every one as a new item.
#pragma once

#include <string>
#include <vector>

namespace klipora::bench {

struct PipelineScreenshot {
  std::string path;
  std::string kind;  // as in OcrCorpusImage
  int width = 0;
  int height = 0;
};

// Renders `count` PNG files into `folder`, named shot-0000.png and on,
// cycling through the corpus's kinds, sizes and themes. Returns fewer when
// a file cannot be written.
std::vector<PipelineScreenshot> renderPipelineCorpus(const std::string& folder, int count);

}  // namespace klipora::bench
