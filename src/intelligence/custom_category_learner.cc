#include "intelligence/custom_category_learner.h"

#include <cmath>

#include "intelligence/custom_category_keyword_builder.h"
#include "intelligence/semantic_custom_category_matcher.h"
#include "library/records.h"
#include "library/screenshot_item.h"
#include "platform/log.h"

namespace klipora::intelligence {

CustomCategoryLearner::~CustomCategoryLearner() {
  for (const auto& [id, timer] : scheduled_) timers_.cancel(timer);
}

void CustomCategoryLearner::addAntiExemplar(const std::string& ocrText, const UUID& categoryID) {
  if (!ocrText.empty()) pending_[categoryID].antiExemplarTexts.push_back(ocrText);
  pending_[categoryID].relearn = true;
  schedule(categoryID);
}

void CustomCategoryLearner::relearn(const UUID& categoryID) {
  pending_[categoryID].relearn = true;
  schedule(categoryID);
}

void CustomCategoryLearner::retrain(const std::vector<Move>& leaving,
                                    const std::vector<Move>& joining) {
  for (const auto& [item, category, text] : leaving) addAntiExemplar(text, category);
  for (const auto& [item, category, text] : joining) relearn(category);
}

void CustomCategoryLearner::schedule(const UUID& categoryID) {
  if (auto it = scheduled_.find(categoryID); it != scheduled_.end()) {
    timers_.cancel(it->second);
  }
  scheduled_[categoryID] = timers_.scheduleOnce(kDebounceSeconds, [this, categoryID] {
    scheduled_.erase(categoryID);
    run(categoryID);
  });
}

void CustomCategoryLearner::runPendingNow() {
  // Every job runs here and now, its retries included.
  for (int round = 0; round <= kMaxAttempts && !pending_.empty(); ++round) {
    for (const auto& [id, timer] : scheduled_) timers_.cancel(timer);
    scheduled_.clear();
    std::vector<UUID> ids;
    for (const auto& [id, job] : pending_) ids.push_back(id);
    for (const UUID& id : ids) run(id);
  }
  for (const auto& [id, timer] : scheduled_) timers_.cancel(timer);
  scheduled_.clear();
}

void CustomCategoryLearner::run(const UUID& categoryID) {
  auto it = pending_.find(categoryID);
  if (it == pending_.end()) return;
  // One category at a time: a second one waits for its next turn.
  if (!running_.empty() && !running_.count(categoryID)) {
    schedule(categoryID);
    return;
  }
  Job job = std::move(it->second);
  pending_.erase(it);
  running_.insert(categoryID);
  Status done = apply(categoryID, job);
  running_.erase(categoryID);
  if (done.ok()) {
    if (onLearned) onLearned(categoryID);
    return;
  }
  ++job.attempts;
  if (job.attempts >= kMaxAttempts) {
    log::warning("Processing", "learn GAVE UP cat=%s after %d attempts: %s",
                 categoryID.uuidString().c_str(), job.attempts, done.message().c_str());
    return;
  }
  log::info("Processing", "learn RETRY cat=%s attempt=%d: %s", categoryID.uuidString().c_str(),
            job.attempts, done.message().c_str());
  // Corrections that came meanwhile join the retried job.
  Job& merged = pending_[categoryID];
  merged.antiExemplarTexts.insert(merged.antiExemplarTexts.begin(), job.antiExemplarTexts.begin(),
                                  job.antiExemplarTexts.end());
  merged.relearn = merged.relearn || job.relearn;
  merged.attempts = std::max(merged.attempts, job.attempts);
  schedule(categoryID);
}

Status CustomCategoryLearner::apply(const UUID& categoryID, const Job& job) {
  ASSIGN_OR_RETURN(auto category,
                   context_.fetchByKey<library::CustomCategory>(categoryID.uuidString()));
  if (!category) return Status::Ok();  // deleted meanwhile: nothing to learn
  if (!job.antiExemplarTexts.empty()) {
    std::vector<std::string> kept;
    for (auto text = job.antiExemplarTexts.rbegin(); text != job.antiExemplarTexts.rend();
         ++text) {
      kept.push_back(text->substr(0, kMaxExemplarBytes));
    }
    for (auto& old : defaults_.stringListForKey(antiExemplarKey(categoryID))) {
      if (kept.size() >= kMaxAntiExemplars) break;
      kept.push_back(std::move(old));
    }
    RETURN_IF_ERROR(defaults_.setStringList(antiExemplarKey(categoryID), kept));
  }
  if (!job.relearn) return Status::Ok();
  std::vector<double> sum;
  size_t count = 0;
  auto add = [&](const std::string& text) {
    auto v = embedder_.embed(text);
    if (v.empty() || (!sum.empty() && v.size() != sum.size())) return;
    if (sum.empty()) sum.assign(v.size(), 0);
    for (size_t i = 0; i < v.size(); ++i) sum[i] += v[i];
    ++count;
  };
  for (const auto& keyword : category->keywords()) add(keyword);
  library::FetchDescriptor members;
  members.predicate = "customCategoryID = ? AND ocrText IS NOT NULL AND ocrText != '' AND "
                      "deleted = 0 AND deletedAt IS NULL";
  members.arguments = {library::SqlValue(categoryID.uuidString())};
  members.sortBy = "importedAt DESC";
  members.limit = 50;
  ASSIGN_OR_RETURN(auto items, context_.fetch<library::ScreenshotItem>(members));
  for (const auto& item : items) add(*item->ocrText);
  if (count > 0) {
    double norm = 0;
    for (double v : sum) norm += v * v;
    std::vector<float> centroid(sum.size());
    for (size_t i = 0; i < sum.size(); ++i) {
      centroid[i] = static_cast<float>(sum[i] / std::sqrt(norm));
    }
    category->embeddingData = encodeCentroid(centroid);
    RETURN_IF_ERROR(context_.save());
  }
  log::classify("learn OK cat=\"" + category->name + "\" members=" +
                std::to_string(items.size()) + " antiExemplars=" +
                std::to_string(defaults_.stringListForKey(antiExemplarKey(categoryID)).size()) +
                " (centroid recomputed, exemplars preserved)");
  return Status::Ok();
}

}  // namespace klipora::intelligence
