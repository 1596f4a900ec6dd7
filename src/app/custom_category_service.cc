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

CustomCategoryService::~CustomCategoryService() { *alive_ = false; }

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
    if (healing_.count(category->id)) continue;
    auto heal = builder_.prepareHeal(category->id, deps_.context);
    if (!heal) {
      log::warning("Processing", "cannot repair the category \"%s\": %s", category->name.c_str(),
                   heal.error().message().c_str());
      continue;
    }
    if (!*heal) continue;
    ++healed;
    if (!deps_.background) {
      builder_.computeHeal(**heal);
      finishHeal(**heal);
      continue;
    }
    healing_.insert(category->id);
    deps_.background->post([this, alive = alive_, heal = std::move(**heal)]() mutable {
      builder_.computeHeal(heal);
      deps_.mainLoop.post([this, alive, heal = std::move(heal)] {
        if (!*alive) return;
        healing_.erase(heal.categoryID);
        finishHeal(heal);
      });
    });
  }
  return healed;
}

void CustomCategoryService::finishHeal(const intelligence::CustomCategoryKeywordBuilder::Heal& heal) {
  if (Status s = builder_.applyHeal(heal, deps_.context); !s.ok()) {
    log::warning("Processing", "cannot repair the category \"%s\": %s", heal.name.c_str(),
                 s.message().c_str());
    return;
  }
  if (deps_.notifications) deps_.notifications->post(notifications::kCustomCategoriesDidChange);
}

}  // namespace klipora::app
