// Start-up sweeps: items whose processing never finished, and the one-time
// repair of generated titles that were saved as the user's own.
#include "app/app_coordinator.h"
#include "library/screenshot_item.h"
#include "platform/log.h"

namespace klipora::app {

using library::FetchDescriptor;
using library::ScreenshotItem;
using library::SqlValue;

void AppCoordinator::recoverNonTerminalItems() {
  if (!context_) {
    log::info("Reconcile", "sweep skipped — no modelContext");
    return;
  }
  repairAutomaticUserTitles(*context_);
  if (!queue_) {
    log::info("Reconcile", "sweep skipped — no processingQueue");
    return;
  }
  FetchDescriptor d;
  d.predicate =
      "deletedAt IS NULL AND deleted = 0 AND processingStateRaw IN (?, ?, ?, ?, ?)";
  for (auto state : {library::ProcessingState::pending, library::ProcessingState::thumbnailGenerated,
                     library::ProcessingState::ocrComplete,
                     library::ProcessingState::classificationComplete,
                     library::ProcessingState::enrichmentComplete}) {
    d.arguments.push_back(SqlValue(std::string(library::rawValue(state))));
  }
  d.sortBy = "importedAt, id";
  auto items = context_->fetch<ScreenshotItem>(d);
  auto total = context_->fetchCount<ScreenshotItem>();
  if (!items || !total) {
    log::error("Reconcile", "sweep fetch failed");
    return;
  }
  log::info("Reconcile", "sweep diagnostic: total=%lld nonTerminal=%zu",
            static_cast<long long>(*total), items->size());
  for (size_t i = 0; i < items->size() && i < kStuckItemsListed; ++i) {
    const auto& item = (*items)[i];
    log::info("Reconcile", "  non-terminal item id=%s state=%s importedAt=%s file=%s",
              item->id.uuidString().c_str(), item->processingStateRaw.c_str(),
              formatISO8601(item->importedAt).c_str(), item->originalFilename.c_str());
  }
  if (items->size() > static_cast<size_t>(kStuckItemsListed)) {
    log::info("Reconcile", "  … and %zu more", items->size() - kStuckItemsListed);
  }
  if (items->empty()) return;
  log::info("Reconcile", "requeueing %zu item(s) stuck in non-terminal processing state",
            items->size());
  for (const auto& item : *items) {
    log::info("Reconcile", "  → enqueue id=%s state=%s", item->id.uuidString().c_str(),
              item->processingStateRaw.c_str());
    queue_->enqueue(item->id);
  }
}

void AppCoordinator::repairAutomaticUserTitles(library::ModelContext& context) {
  if (env_.userDefaults.boolForKey(kRepairedTitlesKey)) return;
  FetchDescriptor d;
  d.predicate = "userTitle IS NOT NULL AND userTitle != ''";
  auto items = context.fetch<ScreenshotItem>(d);
  if (!items) {
    // Left unmarked, so the next start tries again.
    log::error("Reconcile", "title repair fetch failed: %s", items.error().message().c_str());
    return;
  }
  int cleared = 0;
  for (const auto& item : *items) {
    std::string title = library::trimmed(*item->userTitle);
    bool generated =
        (item->generatedTitle && library::trimmed(*item->generatedTitle) == title) ||
        item->automaticTitle() == title;
    if (!generated) continue;
    item->userTitle.reset();
    ++cleared;
  }
  if (cleared > 0) {
    if (Status s = context.save(); !s.ok()) {
      log::error("Reconcile", "title repair save failed: %s", s.message().c_str());
      return;
    }
  }
  log::info("Reconcile", "cleared %d auto-generated title(s) saved as user titles", cleared);
  if (Status s = env_.userDefaults.setBool(kRepairedTitlesKey, true); !s.ok()) {
    log::warning("Reconcile", "cannot record the title repair: %s", s.message().c_str());
  }
}

}  // namespace klipora::app
