#include "intelligence/custom_category_sorter.h"

#include "platform/log.h"

namespace klipora::intelligence {

bool CustomCategorySorter::isSorting(const UUID& categoryID) const {
  std::lock_guard lock(mutex_);
  return runTokens_.count(categoryID) > 0;
}

void CustomCategorySorter::cancel(const UUID& categoryID) {
  std::lock_guard lock(mutex_);
  runTokens_.erase(categoryID);
}

CustomCategorySorter::State CustomCategorySorter::state() const {
  std::lock_guard lock(mutex_);
  return state_;
}

klipora::Result<CustomCategorySorter::Result> CustomCategorySorter::sort(
    const UUID& categoryID, std::function<void(const CustomSortProgress&)> progress) {
  uint64_t token;
  {
    std::lock_guard lock(mutex_);
    token = nextToken_++;
    runTokens_[categoryID] = token;  // a run under way sees its token gone
    state_.categoryID = categoryID;
    state_.isRunning = true;
    state_.progress = 0;
  }
  auto current = [&] {
    std::lock_guard lock(mutex_);
    auto it = runTokens_.find(categoryID);
    return it != runTokens_.end() && it->second == token;
  };
  auto finish = [&](Result result) {
    std::lock_guard lock(mutex_);
    auto it = runTokens_.find(categoryID);
    if (it != runTokens_.end() && it->second == token) runTokens_.erase(it);
    state_.isRunning = !runTokens_.empty();
    state_.lastResult = result;
    return result;
  };

  const std::string open = "deleted = 0 AND deletedAt IS NULL AND customCategoryID IS NULL";
  library::FetchDescriptor counting;
  counting.predicate = open;
  auto total = context_.fetchCount<library::ScreenshotItem>(counting);
  if (!total) {
    finish({categoryID, 0, true, clock_.now()});
    return Err(total.error());
  }
  scorer_.prepareToScore(categoryID);
  CustomSortProgress report{categoryID, 0, *total, 0};
  log::info("Processing", "custom-sort START category=%s candidates=%lld",
            categoryID.uuidString().c_str(), static_cast<long long>(*total));
  // Filing removes items from the open set, so the walk goes by import
  // date, not by offset in a set that shrinks.
  std::optional<Date> after;
  std::optional<std::string> afterID;
  for (;;) {
    if (!current()) {
      log::info("Processing", "custom-sort CANCELLED category=%s assigned=%lld",
                categoryID.uuidString().c_str(), static_cast<long long>(report.assigned));
      return finish({categoryID, report.assigned, true, clock_.now()});
    }
    library::FetchDescriptor batch;
    batch.predicate = open;
    if (after) {
      batch.predicate += " AND (importedAt > ? OR (importedAt = ? AND id > ?))";
      batch.arguments = {library::SqlValue(after->timeIntervalSince1970()),
                         library::SqlValue(after->timeIntervalSince1970()),
                         library::SqlValue(*afterID)};
    }
    batch.sortBy = "importedAt ASC, id ASC";
    batch.limit = batchSize_;
    auto items = context_.fetch<library::ScreenshotItem>(batch);
    if (!items) {
      finish({categoryID, report.assigned, true, clock_.now()});
      return Err(items.error());
    }
    if (items->empty()) break;
    for (const auto& item : *items) {
      ++report.examined;
      if (scorer_.belongs(categoryID, *item)) {
        item->customCategoryID = categoryID;
        ++report.assigned;
      }
    }
    after = items->back()->importedAt;
    afterID = items->back()->id.uuidString();
    if (Status s = context_.save(); !s.ok()) {
      finish({categoryID, report.assigned, true, clock_.now()});
      return Err(s);
    }
    report.total = std::max(report.total, report.examined);
    {
      std::lock_guard lock(mutex_);
      state_.progress = report.fraction();
    }
    if (progress) progress(report);
  }
  log::info("Processing", "custom-sort DONE category=%s assigned=%lld",
            categoryID.uuidString().c_str(), static_cast<long long>(report.assigned));
  return finish({categoryID, report.assigned, false, clock_.now()});
}

}  // namespace klipora::intelligence
