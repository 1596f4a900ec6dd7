// CustomCategoryLearner: refines user categories from the user's
// corrections. Taking a screenshot out of a category keeps its text as an
// anti-exemplar (look-alikes then score lower); moving screenshots between
// categories relearns both. Each correction adds to the category's pending
// job; jobs are debounced per category (a newer correction replaces the
// scheduled run) and run one category at a time. A run stores the
// anti-exemplars and recomputes the centroid from the keywords and the
// texts of the category's current members ("centroid recomputed, exemplars
// preserved"). A failed run is retried until kMaxAttempts.
//
// Thread rules: the thread that owns the context and fires the timers.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "library/model_context.h"
#include "platform/clock.h"
#include "platform/text_embedder.h"
#include "platform/user_defaults.h"

namespace klipora::intelligence {

class CustomCategoryLearner {
 public:
  static constexpr double kDebounceSeconds = 3;
  static constexpr int kMaxAttempts = 3;
  // Anti-exemplars kept per category, newest first, each cut to this size.
  static constexpr size_t kMaxAntiExemplars = 20;
  static constexpr size_t kMaxExemplarBytes = 2000;

  struct Job {
    std::vector<std::string> antiExemplarTexts;
    bool relearn = false;
    int attempts = 0;
  };
  // (screenshot id, category id, recognised text).
  using Move = std::tuple<UUID, UUID, std::string>;

  CustomCategoryLearner(library::ModelContext& context, Timers& timers, TextEmbedder& embedder,
                        UserDefaults& defaults)
      : context_(context), timers_(timers), embedder_(embedder), defaults_(defaults) {}
  ~CustomCategoryLearner();

  void addAntiExemplar(const std::string& ocrText, const UUID& categoryID);
  void relearn(const UUID& categoryID);
  // The user moved screenshots out of one category and into another.
  void retrain(const std::vector<Move>& leaving, const std::vector<Move>& joining);
  // Runs every pending job now, without waiting out the debounce (a command
  // that ends before any timer fires).
  void runPendingNow();

  bool hasPending(const UUID& categoryID) const { return pending_.count(categoryID) > 0; }

  // Called after a run stored what it learned for a category.
  std::function<void(const UUID&)> onLearned;

 private:
  void schedule(const UUID& categoryID);
  void run(const UUID& categoryID);
  Status apply(const UUID& categoryID, const Job& job);

  library::ModelContext& context_;
  Timers& timers_;
  TextEmbedder& embedder_;
  UserDefaults& defaults_;
  std::map<UUID, Job> pending_;
  std::map<UUID, TimerId> scheduled_;
  std::set<UUID> running_;
};

}  // namespace klipora::intelligence
