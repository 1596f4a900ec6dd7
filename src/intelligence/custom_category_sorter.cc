#include "intelligence/custom_category_sorter.h"

#include "platform/log.h"

namespace klipora::intelligence {

namespace {

// Screenshots not filed anywhere, the ones a run may file.
constexpr char kOpen[] = "deleted = 0 AND deletedAt IS NULL AND customCategoryID IS NULL";

}  // namespace

struct CustomCategorySorter::Walk {
  uint64_t token = 0;
  CustomSortProgress report;
  // Filing removes items from the open set, so the walk goes by import
  // date, not by offset in a set that shrinks.
  std::optional<Date> after;
  std::optional<std::string> afterID;
};

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

CustomCategorySorter::Result CustomCategorySorter::finish(const Walk& walk, bool cancelled) {
  const UUID& id = walk.report.categoryID;
  Result result{id, walk.report.assigned, cancelled, clock_.now()};
  std::lock_guard lock(mutex_);
  auto it = runTokens_.find(id);
  if (it != runTokens_.end() && it->second == walk.token) runTokens_.erase(it);
  state_.isRunning = !runTokens_.empty();
  state_.lastResult = result;
  return result;
}

klipora::Result<std::shared_ptr<CustomCategorySorter::Walk>> CustomCategorySorter::begin(
    const UUID& categoryID) {
  auto walk = std::make_shared<Walk>();
  walk->report.categoryID = categoryID;
  {
    std::lock_guard lock(mutex_);
    walk->token = nextToken_++;
    runTokens_[categoryID] = walk->token;  // a run under way sees its token gone
    state_.categoryID = categoryID;
    state_.isRunning = true;
    state_.progress = 0;
    state_.latest = walk->report;
  }
  library::FetchDescriptor counting;
  counting.predicate = kOpen;
  auto total = context_.fetchCount<library::ScreenshotItem>(counting);
  if (!total) {
    finish(*walk, true);
    return Err(total.error());
  }
  scorer_.prepareToScore(categoryID);
  walk->report.total = *total;
  {
    std::lock_guard lock(mutex_);
    if (state_.categoryID == categoryID) state_.latest = walk->report;
  }
  log::info("Processing", "custom-sort START category=%s candidates=%lld",
            categoryID.uuidString().c_str(), static_cast<long long>(*total));
  return walk;
}

std::optional<klipora::Result<CustomCategorySorter::Result>> CustomCategorySorter::step(
    Walk& walk, const Progress& progress) {
  auto& report = walk.report;
  const std::string id = report.categoryID.uuidString();
  bool current;
  {
    std::lock_guard lock(mutex_);
    auto it = runTokens_.find(report.categoryID);
    current = it != runTokens_.end() && it->second == walk.token;
  }
  if (!current) {
    log::info("Processing", "custom-sort CANCELLED category=%s assigned=%lld", id.c_str(),
              static_cast<long long>(report.assigned));
    return finish(walk, true);
  }
  library::FetchDescriptor batch;
  batch.predicate = kOpen;
  if (walk.after) {
    batch.predicate += " AND (importedAt > ? OR (importedAt = ? AND id > ?))";
    batch.arguments = {library::SqlValue(walk.after->timeIntervalSince1970()),
                       library::SqlValue(walk.after->timeIntervalSince1970()),
                       library::SqlValue(*walk.afterID)};
  }
  batch.sortBy = "importedAt ASC, id ASC";
  batch.limit = batchSize_;
  auto items = context_.fetch<library::ScreenshotItem>(batch);
  if (!items) {
    finish(walk, true);
    return Err(items.error());
  }
  if (items->empty()) {
    log::info("Processing", "custom-sort DONE category=%s assigned=%lld", id.c_str(),
              static_cast<long long>(report.assigned));
    return finish(walk, false);
  }
  for (const auto& item : *items) {
    ++report.examined;
    if (scorer_.belongs(report.categoryID, *item)) {
      item->customCategoryID = report.categoryID;
      ++report.assigned;
    }
  }
  walk.after = items->back()->importedAt;
  walk.afterID = items->back()->id.uuidString();
  if (Status s = context_.save(); !s.ok()) {
    finish(walk, true);
    return Err(s);
  }
  report.total = std::max(report.total, report.examined);
  {
    std::lock_guard lock(mutex_);
    if (state_.categoryID == report.categoryID) {
      state_.progress = report.fraction();
      state_.latest = report;
    }
  }
  if (progress) progress(report);
  return std::nullopt;
}

klipora::Result<CustomCategorySorter::Result> CustomCategorySorter::sort(const UUID& categoryID,
                                                                         Progress progress) {
  ASSIGN_OR_RETURN(auto walk, begin(categoryID));
  for (;;) {
    if (auto end = step(*walk, progress)) return std::move(*end);
  }
}

void CustomCategorySorter::start(const UUID& categoryID, Executor& loop, Progress progress,
                                 std::function<void(klipora::Result<Result>)> done) {
  auto walk = begin(categoryID);
  if (!walk) {
    if (done) done(Err(walk.error()));
    return;
  }
  continueWalk(std::move(*walk), loop, std::move(progress), std::move(done));
}

void CustomCategorySorter::continueWalk(std::shared_ptr<Walk> walk, Executor& loop,
                                        Progress progress,
                                        std::function<void(klipora::Result<Result>)> done) {
  loop.post([this, alive = alive_, walk, &loop, progress, done] {
    if (!*alive) return;
    if (auto end = step(*walk, progress)) {
      if (done) done(std::move(*end));
      return;
    }
    continueWalk(walk, loop, progress, done);
  });
}

}  // namespace klipora::intelligence
