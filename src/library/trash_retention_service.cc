#include "library/trash_retention_service.h"

#include "library/app_settings.h"
#include "library/screenshot_item.h"
#include "library/trash_operations.h"
#include "platform/log.h"

namespace klipora::library {

TrashRetentionService::TrashRetentionService(ModelContext& context,
                                             std::function<StorageService*()> storage,
                                             MarkupEditCleaner& markupEdits, Clock& clock,
                                             Timers& timers)
    : context_(context),
      storage_(std::move(storage)),
      markupEdits_(markupEdits),
      clock_(clock),
      timers_(timers) {}

TrashRetentionService::~TrashRetentionService() { stop(); }

void TrashRetentionService::start() {
  (void)runSweep();
  stop();
  timer_ = timers_.scheduleRepeating(kSweepInterval, kSweepTolerance, [this] { (void)runSweep(); });
}

void TrashRetentionService::stop() {
  if (timer_) timers_.cancel(*timer_);
  timer_.reset();
}

int TrashRetentionService::retentionDays(ModelContext& context) {
  // The row with the smallest id is the one every process reads.
  FetchDescriptor d;
  d.sortBy = "id";
  d.limit = 1;
  auto rows = context.fetch<AppSettings>(d);
  if (!rows || rows->empty()) return kDefaultRetentionDays;
  return rows->front()->trashRetentionDays;
}

TrashRetentionService::SweepReport TrashRetentionService::runSweep() {
  SweepReport report;
  StorageService* storage = storage_ ? storage_() : nullptr;
  if (!storage) {
    log::info("TrashRetention", "Skipping sweep: storageService not ready.");
    report.skipped = true;
    return report;
  }
  int days = retentionDays(context_);
  report.retentionDays = days;
  if (days <= 0) {
    log::info("TrashRetention", "Retention is %d day(s); automatic removal is off.", days);
    report.skipped = true;
    return report;
  }
  Date now = clock_.now();
  Date cutoff = now.addingTimeInterval(static_cast<double>(days) * -86'400.0);
  FetchDescriptor d;
  d.predicate = "deletedAt IS NOT NULL AND deletedAt <= ?";
  d.arguments = {SqlValue(cutoff.timeIntervalSince1970())};
  d.sortBy = "deletedAt, id";
  auto items = context_.fetch<ScreenshotItem>(d);
  if (!items) {
    log::error("TrashRetention", "sweep fetch failed: %s", items.error().message().c_str());
    report.saved = items.error();
    return report;
  }
  DeletedOriginalsStore originals(context_);
  for (const auto& item : *items) {
    Status s = removeItemForGood(context_, *storage, markupEdits_, originals, item, now);
    if (!s.ok()) {
      log::warning("TrashRetention", "keeping %s in the trash for the next sweep: %s",
                   item->id.uuidString().c_str(), s.message().c_str());
      ++report.kept;
      continue;
    }
    ++report.removed;
  }
  if (context_.hasChanges()) {
    report.saved = context_.save();
    if (!report.saved.ok()) {
      log::error("TrashRetention", "save failed: %s", report.saved.message().c_str());
      report.removed = 0;
    }
  }
  log::info("TrashRetention", "Permanently removed %d item(s) older than %d day(s).",
            report.removed, days);
  return report;
}

}  // namespace klipora::library
