// Stand-in until semantic scores land: same interface.
#pragma once
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>
#include "library/screenshot_category.h"
#include "platform/text_embedder.h"
namespace klipora::intelligence {
using library::ScreenshotCategory;
class SemanticReferenceSet {
 public:
  SemanticReferenceSet(TextEmbedder& embedder,
                       std::vector<std::pair<ScreenshotCategory, std::string>> examples);
  std::map<ScreenshotCategory, double> scores(std::string_view text) const;
};
}  // namespace klipora::intelligence
