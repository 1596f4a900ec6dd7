#include "app/custom_category_service.h"

#include "library/records.h"
#include "library/screenshot_item.h"
#include "platform/log.h"

namespace klipora::app {

CustomCategoryService::CustomCategoryService(CustomCategoryServiceDeps deps)
    : deps_(deps),
      builder_(deps.lexicon ? *deps.lexicon : noLexicon_, deps.embedder, deps.model),
      catalog_(deps.context, deps.clock, builder_, deps.notifications),
      learner_(deps.context, deps.timers, deps.embedder, deps.userDefaults),
      sorter_(deps.context, deps.clock, deps.scorer) {
  // A relearned centroid changes what the queue matches against.
  learner_.onLearned = [notifications = deps.notifications](const UUID&) {
    if (notifications) notifications->post(notifications::kCustomCategoriesDidChange);
  };
}

Result<FilingReport> CustomCategoryService::file(const std::optional<UUID>& categoryID,
                                                 const std::vector<std::string>& ids) {
  FilingReport report;
  std::vector<intelligence::CustomCategoryLearner::Move> leaving, joining;
  for (const auto& text : ids) {
    auto id = UUID::Parse(text);
    auto item = id ? deps_.context.fetchByKey<library::ScreenshotItem>(id->uuidString())
                   : Result<std::shared_ptr<library::ScreenshotItem>>(nullptr);
    if (!item) return Err(item.error());
    if (!*item || (*item)->isTrashed()) {
      report.unknown.push_back(text);
      continue;
    }
    auto& screenshot = **item;
    const std::optional<UUID> before = screenshot.customCategoryID;
    if (before == categoryID) continue;
    const std::string ocr = screenshot.ocrText.value_or("");
    if (before) leaving.emplace_back(screenshot.id, *before, ocr);
    if (categoryID) joining.emplace_back(screenshot.id, *categoryID, ocr);
    screenshot.customCategoryID = categoryID;
    report.moved.push_back(screenshot.id);
  }
  RETURN_IF_ERROR(deps_.context.save());
  if (!report.moved.empty()) {
    learner_.retrain(leaving, joining);
    if (deps_.notifications) deps_.notifications->post(notifications::kUserCategoryDidChange);
  }
  return report;
}

void CustomCategoryService::startSorting(const UUID& categoryID) {
  sorter_.start(categoryID, deps_.mainLoop, {}, [](klipora::Result<intelligence::CustomCategorySorter::Result> r) {
    if (!r) log::warning("Processing", "custom-sort FAILED: %s", r.error().message().c_str());
  });
}

int CustomCategoryService::healArrivedCategories() {
  auto all = catalog_.list();
  if (!all) {
    log::warning("Processing", "custom categories unreadable: %s", all.error().message().c_str());
    return 0;
  }
  int healed = 0;
  for (const auto& category : *all) {
    // Every category built here has its centroid (even one whose rule gave
    // no keywords); one without came from elsewhere.
    if (category->embeddingData && !intelligence::decodeCentroid(*category->embeddingData).empty()) {
      continue;
    }
    if (Status s = builder_.healAfterSync(category->id, deps_.context); !s.ok()) {
      log::warning("Processing", "cannot repair the category \"%s\": %s", category->name.c_str(),
                   s.message().c_str());
      continue;
    }
    ++healed;
  }
  if (healed > 0 && deps_.notifications) {
    deps_.notifications->post(notifications::kCustomCategoriesDidChange);
  }
  return healed;
}

}  // namespace klipora::app
