// CategoryScoreTable: the working scores of one resolution. Every rule adds
// evidence through addEvidence(), so a category's score is always the sum of
// its evidence weights; categories remember the order in which they first got
// evidence, which decides ties later. One table per call; not thread-safe.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include "intelligence/category_evidence.h"

namespace klipora::intelligence {

class CategoryScoreTable {
 public:
  CategoryScoreTable();

  void addEvidence(ScreenshotCategory category, EvidenceSource source, std::string_view signal,
                   double weight);

  bool contains(ScreenshotCategory category) const { return slot(category) >= 0; }
  // 0 for a category without evidence.
  double score(ScreenshotCategory category) const;
  bool empty() const { return entries_.empty(); }
  // Entries in the order their categories first got evidence.
  const std::vector<CategoryCandidate>& entries() const { return entries_; }
  // Hands the entries over (insertion order) and leaves the table empty.
  std::vector<CategoryCandidate> takeEntries();

 private:
  int slot(ScreenshotCategory category) const;

  std::array<int8_t, library::kAllScreenshotCategories.size()> slots_;
  std::vector<CategoryCandidate> entries_;
};

}  // namespace klipora::intelligence
