// SemanticReferenceSet: how alike a text is to the texts already filed in
// each category. Built from example texts (a few recent items per
// category): each category keeps the normalised mean of its examples'
// embeddings, and a text scores its cosine similarity to each mean.
//
// Thread rules: immutable after construction; scores() may run on several
// threads at once (the embedder allows it). The embedder must outlive the set.
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
  // Examples whose text embeds as nothing are left out.
  SemanticReferenceSet(TextEmbedder& embedder,
                       std::vector<std::pair<ScreenshotCategory, std::string>> examples);

  // Per category with examples, the similarity in 0...1 (negative cosines
  // read as 0). Empty when the text embeds as nothing.
  std::map<ScreenshotCategory, double> scores(std::string_view text) const;

 private:
  TextEmbedder* embedder_;
  std::map<ScreenshotCategory, std::vector<float>> centroids_;
};

}  // namespace klipora::intelligence
