// CustomCategoryService: the user's own categories in a running library:
// the catalog of records (with the keyword builder behind it), the learner
// that refines a category from the user's corrections, and the sorter that
// files the screenshots already in the library into one category, scoring
// through the processing queue. The processing service owns the one
// instance of a process (the daemon's, or that of a command working on the
// store without one), so corrections debounce and learn in the same place
// the queue matches new screenshots.
//
// Thread rules: the thread that owns the context (the main thread); calls
// that build keywords block while the model expands them, except repairs
// given a background executor.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "intelligence/custom_category_catalog.h"
#include "intelligence/custom_category_keyword_builder.h"
#include "intelligence/custom_category_learner.h"
#include "intelligence/custom_category_sorter.h"
#include "platform/lexicon.h"
#include "platform/notification_center.h"

namespace klipora::app {

struct CustomCategoryServiceDeps {
  library::ModelContext& context;
  Clock& clock;
  Timers& timers;
  // The context's thread, on which a sorting started here walks.
  Executor& mainLoop;
  // Where repairs build keywords and centroids (the model and the embedder
  // may take seconds), their results stored back on mainLoop; null: built
  // where healArrivedCategories() is called, which then waits for them (a
  // command's own service).
  Executor* background = nullptr;
  UserDefaults& userDefaults;
  // Null: every word of a description counts.
  Lexicon* lexicon = nullptr;
  TextEmbedder& embedder;
  intelligence::ModelArbiter& model;
  intelligence::CustomSortScorer& scorer;
  NotificationCenter* notifications = nullptr;
};

// What one filing changed: the screenshots moved and the ids not found.
struct FilingReport {
  std::vector<UUID> moved;
  std::vector<std::string> unknown;
};

class CustomCategoryService {
 public:
  explicit CustomCategoryService(CustomCategoryServiceDeps deps);
  ~CustomCategoryService();
  CustomCategoryService(const CustomCategoryService&) = delete;
  CustomCategoryService& operator=(const CustomCategoryService&) = delete;

  intelligence::CustomCategoryCatalog& catalog() { return catalog_; }
  intelligence::CustomCategoryLearner& learner() { return learner_; }
  intelligence::CustomCategorySorter& sorter() { return sorter_; }

  // Files the screenshots `ids` (UUID texts) under `categoryID`, or takes
  // them out of their category when it is empty, saves, and hands the move
  // to the learner (debounced). Fails only when the save fails.
  Result<FilingReport> file(const std::optional<UUID>& categoryID,
                            const std::vector<std::string>& ids);

  // Sorts the library into the category on the main loop, a batch per
  // turn; a run under way for it ends. sorter().state() tells how it goes.
  void startSorting(const UUID& categoryID);

  // Repairs the categories that came from elsewhere (a settings file, an
  // exported library), known by their missing centroid: keywords get their
  // centroid, no keywords at all are rebuilt from the description. One that
  // cannot be saved is logged and left. Returns how many were repaired, or
  // with a background executor how many repairs were started (one already
  // under way for a category is not started again) and returns at once.
  int healArrivedCategories();
  // Repairs started on the background executor and not yet stored.
  size_t healsInFlight() const { return healing_.size(); }

 private:
  void finishHeal(const intelligence::CustomCategoryKeywordBuilder::Heal& heal);

  CustomCategoryServiceDeps deps_;
  class NoLexicon final : public Lexicon {
   public:
    bool isAvailable() override { return false; }
    std::optional<std::string> nounOrAdjectiveBase(std::string_view) override {
      return std::nullopt;
    }
  } noLexicon_;
  intelligence::CustomCategoryKeywordBuilder builder_;
  intelligence::CustomCategoryCatalog catalog_;
  intelligence::CustomCategoryLearner learner_;
  intelligence::CustomCategorySorter sorter_;
  std::set<UUID> healing_;
  // False once this service is gone: a repair finishing later stores nothing.
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace klipora::app
