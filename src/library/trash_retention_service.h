// TrashRetentionService: removes items that have lain in the trash longer than
// the retention (AppSettings.trashRetentionDays, 30 when there is no settings
// row), with their files, and records their originals in
// DeletedOriginalsStore. The coordinator owns the single instance and starts
// it once the library is up: one sweep at once, then one every 24 hours.
//
// The cut-off is now minus whole days of 86,400 s (not calendar days); an
// item trashed exactly at the cut-off goes. A retention of zero or less turns
// the automatic removal off: nothing is removed until the setting is
// positive again (`klipora empty-trash` removes everything on request). A
// sweep while the library's files are out of reach is skipped and runs again
// at the next firing. An item whose files cannot be removed stays in the
// trash for the next sweep (see trash_operations.h).
//
// Thread rules: main thread, like the context and the timers it uses.
#pragma once

#include <functional>
#include <optional>

#include "library/markup_edit_cleaner.h"
#include "library/model_context.h"
#include "library/storage_service.h"
#include "platform/clock.h"

namespace klipora::library {

class TrashRetentionService {
 public:
  static constexpr int kDefaultRetentionDays = 30;
  static constexpr double kSweepInterval = 86'400;
  static constexpr double kSweepTolerance = 3'600;

  // `storage` answers the library's storage while it is ready (started and
  // its volume present), else null.
  TrashRetentionService(ModelContext& context, std::function<StorageService*()> storage,
                        MarkupEditCleaner& markupEdits, Clock& clock, Timers& timers);
  ~TrashRetentionService();
  TrashRetentionService(const TrashRetentionService&) = delete;
  TrashRetentionService& operator=(const TrashRetentionService&) = delete;

  struct SweepReport {
    bool skipped = false;  // storage not ready, or the retention is off
    int retentionDays = 0;
    int removed = 0;
    int kept = 0;  // due, but a file could not be removed
    Status saved;
  };

  // Runs one sweep at once, then every 24 hours (tolerance 1 hour). Calling
  // it again replaces the earlier timer.
  void start();
  void stop();
  SweepReport runSweep();

  // trashRetentionDays of the settings row, or 30 without a row.
  static int retentionDays(ModelContext& context);

 private:
  ModelContext& context_;
  std::function<StorageService*()> storage_;
  MarkupEditCleaner& markupEdits_;
  Clock& clock_;
  Timers& timers_;
  std::optional<TimerId> timer_;
};

}  // namespace klipora::library
