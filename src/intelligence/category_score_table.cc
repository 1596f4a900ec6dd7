#include "intelligence/category_score_table.h"

#include <string>

namespace klipora::intelligence {

CategoryScoreTable::CategoryScoreTable() {
  slots_.fill(-1);
  // Thirteen categories can score; reserving them keeps the table from
  // reallocating inside one resolution.
  entries_.reserve(slots_.size());
}

int CategoryScoreTable::slot(ScreenshotCategory category) const {
  auto index = static_cast<size_t>(category);
  return index < slots_.size() ? slots_[index] : -1;
}

double CategoryScoreTable::score(ScreenshotCategory category) const {
  int s = slot(category);
  return s < 0 ? 0.0 : entries_[static_cast<size_t>(s)].score;
}

void CategoryScoreTable::addEvidence(ScreenshotCategory category, EvidenceSource source,
                                     std::string_view signal, double weight) {
  auto index = static_cast<size_t>(category);
  if (index >= slots_.size()) return;
  if (slots_[index] < 0) {
    slots_[index] = static_cast<int8_t>(entries_.size());
    entries_.push_back(CategoryCandidate{category, 0.0, {}});
  }
  auto& entry = entries_[static_cast<size_t>(slots_[index])];
  entry.evidence.push_back(CategoryEvidence{source, std::string(signal), weight});
  entry.score += weight;
}

std::vector<CategoryCandidate> CategoryScoreTable::takeEntries() {
  slots_.fill(-1);
  std::vector<CategoryCandidate> out = std::move(entries_);
  entries_.clear();
  return out;
}

}  // namespace klipora::intelligence
