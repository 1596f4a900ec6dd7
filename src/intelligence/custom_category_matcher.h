// CustomCategoryMatcher: files a screenshot into one of the user's own
// categories by evidence alone (keywords, example items, feature prints),
// before and without the language model. The processing queue asks it for
// the categories to show the model and for a heuristic match; the matcher of
// a library without user categories has none and matches nothing.
//
// Thread rules: categories() and markStale() are called on the main thread
// (they may read the store); match() on worker threads, possibly at once.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "intelligence/model_arbiter.h"
#include "library/screenshot_item.h"
#include "library/sql_value.h"

namespace klipora::intelligence {

struct CustomMatchInput {
  std::string ocrText;
  std::vector<ClassificationLabel> classificationLabels;
  std::optional<library::Bytes> featurePrint;
};

struct CustomMatch {
  UUID id;
  double score = 0;  // 0...1
  std::string explanation;
};

class CustomCategoryMatcher {
 public:
  CustomCategoryMatcher() = default;
  CustomCategoryMatcher(const CustomCategoryMatcher&) = delete;
  CustomCategoryMatcher& operator=(const CustomCategoryMatcher&) = delete;
  virtual ~CustomCategoryMatcher() = default;

  // The user's categories that take screenshots automatically, in order.
  virtual std::vector<CustomCategoryDescriptor> categories() = 0;
  // The reference sets (keywords, examples) are rebuilt before the next match.
  virtual void markStale() = 0;
  virtual std::optional<CustomMatch> match(const CustomMatchInput& input) = 0;
  // Whether the input belongs to that one category, whatever the others
  // score (sorting the library into a category); nothing for a category it
  // does not know. Uses the reference sets categories() loaded last.
  virtual std::optional<CustomMatch> matchCategory(const UUID& categoryID,
                                                   const CustomMatchInput& input) = 0;
};

// What the matchers compare of a screenshot already in the library: its
// text, image labels and feature print.
CustomMatchInput customMatchInputOf(const library::ScreenshotItem& item);

// The matcher of a library without user categories.
std::unique_ptr<CustomCategoryMatcher> makeNoCustomCategoryMatcher();

}  // namespace klipora::intelligence
