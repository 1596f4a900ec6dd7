// Reconciliation: the pass that imports what the watcher missed in the
// watched folders, its gate, the result held for the user when it is large,
// and the cut-off (`lastReconciledAt`) that moves forward only once every
// file of a folder is settled.
#include <algorithm>
#include <memory>

#include "app/app_coordinator.h"
#include "library/records.h"
#include "library/settings_store.h"
#include "platform/log.h"

namespace klipora::app {
namespace {

constexpr char kArea[] = "Reconcile";
using Outcome = AppCoordinator::ReconciliationOutcome;

const char* TrueFalse(bool value) { return value ? "true" : "false"; }
std::string DateText(const std::optional<Date>& date) {
  return date ? formatISO8601(*date) : "nil";
}
Outcome Make(Outcome::Kind kind, std::string message = {}, int found = 0) {
  Outcome outcome;
  outcome.kind = kind;
  outcome.message = std::move(message);
  outcome.found = found;
  return outcome;
}
bool IsActive(const library::WatchedFolder& folder) {
  return folder.isEnabled && !folder.pausedAt && !folder.shadowedByFolderID;
}

}  // namespace

void AppCoordinator::runReconciliationIfDue(ReconciliationDone done, bool requested,
                                            std::vector<std::string> onlyFolders) {
  auto skip = [&](std::string why) {
    log::info(kArea, "skip: %s", why.c_str());
    if (done) done(Make(Outcome::Kind::skipped, std::move(why)));
  };
  if (isReconciling_) return skip("a pass is already in flight");
  if (pause_.isPaused()) {
    return skip("global pause active (" + pause_.statusDescription().value_or("") + ")");
  }
  if (!requested && (!applied_ || !applied_->automaticImportEnabled)) {
    return skip("automatic import is off");
  }
  const double now = env_.clock.monotonicSeconds();
  if (!requested && lastReconciliationAt_ && now - *lastReconciliationAt_ < kReconciliationDebounce) {
    char text[96];
    std::snprintf(text, sizeof text, "last pass was %.1fs ago (debounce 30s)",
                  now - *lastReconciliationAt_);
    return skip(text);
  }
  log::info(kArea, "runReconciliationIfDue → starting pass");
  isReconciling_ = true;
  performReconciliation(std::move(done), onlyFolders);
}

void AppCoordinator::endReconciliation(const Outcome& outcome, const ReconciliationDone& done) {
  isReconciling_ = false;
  lastReconciliationAt_ = env_.clock.monotonicSeconds();
  if (done) done(outcome);
}

void AppCoordinator::performReconciliation(ReconciliationDone done,
                                           const std::vector<std::string>& only) {
  auto abort = [&](std::string why) {
    endReconciliation(Make(Outcome::Kind::aborted, std::move(why)), done);
  };
  if (!context_) {
    log::info(kArea, "abort: ScreenshotItemStore has no modelContext yet");
    return abort("the library is not open");
  }
  if (!storageIfReady() || !pipeline_) {
    log::info(kArea, "abort: storageService=%s importPipeline=%s",
              storageIfReady() ? "present" : "nil", pipeline_ ? "present" : "nil");
    return abort("the library folder is not available");
  }
  auto rows = context_->fetch<library::WatchedFolder>();
  if (!rows) return abort("cannot read the watched folders: " + rows.error().message());
  log::info(kArea, "fetched %zu WatchedFolder rows", rows->size());
  std::vector<library::WatchedFolder> active;
  for (const auto& row : *rows) {
    log::info(kArea, "  - %s enabled=%s paused=%s default=%s recursive=%s lastReconciledAt=%s at %s",
              row->displayName.c_str(), TrueFalse(row->isEnabled),
              TrueFalse(row->pausedAt.has_value()), TrueFalse(row->isDefault),
              TrueFalse(row->includeSubfolders), DateText(row->lastReconciledAt).c_str(),
              row->path.c_str());
    const bool asked = only.empty() || std::find(only.begin(), only.end(), row->path) != only.end();
    if (IsActive(*row) && asked) active.push_back(*row);
  }
  if (active.empty()) {
    log::info(kArea, "no active (enabled+unpaused) folders — returning");
    return endReconciliation({}, done);
  }

  // A folder never swept holds the user's past: it is stamped, not scanned.
  bool stampedFirst = false;
  for (const auto& folder : active) {
    if (folder.lastReconciledAt) continue;
    (void)stampReconciled(folder.id);
    stampedFirst = true;
  }
  if (stampedFirst) {
    log::info(kArea, "first-launch stamping done; returning without scanning (next launch will "
                     "catch new files)");
    return endReconciliation({}, done);
  }

  ingestion::WatchedFolderReconciler reconciler(env_.fileSystem);
  auto result = reconciler.reconcile(active, root_, *context_, /*force=*/false);
  const int total = result.totalCount();
  log::info(kArea, "scan result: total=%d across %zu folder(s)", total, result.folders.size());
  if (total == 0) return endReconciliation({}, done);
  const int threshold = applied_ ? applied_->bulkImportThreshold : 100;
  if (total > threshold) {
    log::info(kArea, "%d > threshold %d — surfacing banner", total, threshold);
    pendingReconciliation_ = std::move(result);
    return endReconciliation(Make(Outcome::Kind::pending, {}, total), done);
  }
  log::info(kArea, "auto-importing %d (≤ threshold %d)", total, threshold);
  pendingReconciliation_.reset();  // replaced by this pass
  autoImport(std::move(result), std::move(done));
}

void AppCoordinator::acceptPendingReconciliation(ReconciliationDone done) {
  if (!pendingReconciliation_) {
    if (done) done(Make(Outcome::Kind::nothingNew, "nothing is pending"));
    return;
  }
  if (isReconciling_) {
    if (done) done(Make(Outcome::Kind::skipped, "a pass is in flight"));
    return;
  }
  auto result = std::move(*pendingReconciliation_);
  pendingReconciliation_.reset();
  isReconciling_ = true;
  autoImport(std::move(result), std::move(done));
}

void AppCoordinator::dismissPendingReconciliation() {
  if (!pendingReconciliation_) return;
  log::info(kArea, "pending result of %d file(s) dismissed", pendingReconciliation_->totalCount());
  pendingReconciliation_.reset();
}

void AppCoordinator::scanFoldersForUnimportedFiles(
    const std::vector<library::WatchedFolder>& folders, ReconciliationDone done) {
  if (isReconciling_) {
    if (done) done(Make(Outcome::Kind::skipped, "a pass is in flight"));
    return;
  }
  if (!context_ || !storageIfReady() || !pipeline_) {
    if (done) {
      done(Make(Outcome::Kind::aborted, "the library folder is not available"));
    }
    return;
  }
  isReconciling_ = true;
  ingestion::WatchedFolderReconciler reconciler(env_.fileSystem);
  auto result = reconciler.reconcile(folders, root_, *context_, /*force=*/true);
  log::info(kArea, "scan result: total=%d across %zu folder(s)", result.totalCount(),
            result.folders.size());
  if (result.totalCount() == 0) return endReconciliation({}, done);
  autoImport(std::move(result), std::move(done));
}

void AppCoordinator::autoImport(ingestion::ReconciliationResult result, ReconciliationDone done) {
  struct FolderState {
    library::WatchedFolder folder;
    bool complete = true;
    int remaining = 0, failed = 0;
  };
  struct Pass {
    Outcome outcome = Make(Outcome::Kind::imported);
    std::vector<FolderState> folders;
    int remaining = 0;
    Date startedAt;
    ReconciliationDone done;
  };
  auto pass = std::make_shared<Pass>();
  pass->done = std::move(done);
  pass->startedAt = env_.clock.now();
  for (auto& folder : result.folders) {
    pass->folders.push_back({folder.folder, folder.complete,
                             static_cast<int>(folder.candidates.size()), 0});
    pass->remaining += static_cast<int>(folder.candidates.size());
    pass->outcome.found += static_cast<int>(folder.candidates.size());
  }
  auto folderDone = [this, pass](FolderState& state) {
    const std::string& name = state.folder.displayName;
    if (state.failed > 0 || !state.complete) {
      log::info(kArea, "not stamping “%s”: %d file(s) failed, will retry next pass", name.c_str(),
                state.failed);
    } else {
      // The time the pass began: a file written while it ran is newer.
      (void)stampReconciled(state.folder.id, pass->startedAt);
    }
  };
  auto finish = [this, pass] {
    auto& o = pass->outcome;
    log::info(kArea, "auto-import done: imported=%d skipped=%d", o.imported,
              o.failed + o.duplicates);
    if (o.imported > 0) log::info(kArea, "Imported %d", o.imported);
    endReconciliation(o, pass->done);
  };
  if (pass->remaining == 0) return finish();
  for (size_t f = 0; f < result.folders.size(); ++f) {
    const auto& folder = result.folders[f];
    log::info(kArea, "auto-importing %zu files from “%s”", folder.candidates.size(),
              folder.folder.displayName.c_str());
    for (const std::string& path : folder.candidates) {
      importFile(path, library::ImportSourceType::backfill, std::nullopt, std::nullopt,
                 [pass, f, path, folderDone, finish](ingestion::ImportResult imported) {
                   FolderState& state = pass->folders[f];
                   auto& o = pass->outcome;
                   if (imported) {
                     ++o.imported;
                   } else if (imported.error().kind ==
                              ingestion::ImportError::Case::duplicateScreenshot) {
                     // Already in the library: settled, not a failure.
                     ++o.duplicates;
                   } else {
                     const std::string why = imported.error().errorDescription();
                     log::info(kArea, "  skip %s: %s", lastPathComponent(path).c_str(),
                               why.c_str());
                     ++o.failed, ++state.failed;
                     o.failures.push_back({path, why});
                   }
                   if (--state.remaining == 0) folderDone(state);
                   if (--pass->remaining == 0) finish();
                 });
    }
  }
}

Status AppCoordinator::stampReconciled(const UUID& folderID, std::optional<Date> at) {
  if (!context_) return Status::Unavailable("the library is not open");
  auto fetched = context_->fetchByKey<library::WatchedFolder>(folderID.uuidString());
  if (!fetched) return fetched.error();
  auto row = *fetched;
  if (!row) return Status::NotFound("no watched folder " + folderID.uuidString());
  const Date stamp = at.value_or(env_.clock.now());
  // A cut-off only moves forward.
  if (row->lastReconciledAt && stamp.timeIntervalSince(*row->lastReconciledAt) <= 0) {
    return Status::Ok();
  }
  log::info(kArea, "stampReconciled “%s”: %s → %s", row->displayName.c_str(),
            DateText(row->lastReconciledAt).c_str(), formatISO8601(stamp).c_str());
  row->lastReconciledAt = stamp;
  Status saved = context_->save();
  if (!saved.ok()) {
    log::error(kArea, "cannot save the cut-off of “%s”: %s", row->displayName.c_str(),
               saved.message().c_str());
    context_->rollback();
  }
  return saved;
}

void AppCoordinator::stampAllFoldersReconciledNow() {
  if (!context_) return;
  auto rows = context_->fetch<library::WatchedFolder>();
  if (!rows) return;
  const Date now = env_.clock.now();
  log::info("Watcher", "stampAllFoldersReconciledNow: advancing %zu folder(s) to %s",
            rows->size(), formatISO8601(now).c_str());
  for (const auto& row : *rows) {
    log::info("Watcher", "  - “%s” %s → %s", row->displayName.c_str(),
              DateText(row->lastReconciledAt).c_str(), formatISO8601(now).c_str());
    row->lastReconciledAt = now;
  }
  if (Status saved = context_->save(); !saved.ok()) {
    log::error("Watcher", "cannot save the folders' cut-off: %s", saved.message().c_str());
    context_->rollback();
  }
}

void AppCoordinator::startReconciliation() {
  if (!context_) return;
  // Once start-up is over; a pass asked for meanwhile goes first.
  env_.mainLoop.post([this, alive = std::weak_ptr<int>(lifetime_)] {
    if (!alive.expired() && started_) runReconciliationIfDue();
  });
  if (safetyRescan_) return;
  safetyRescan_ = env_.timers.scheduleRepeating(kSafetyRescanInterval, 30, [this] {
    if (!servicesPaused_) runReconciliationIfDue();
  });
  if (!env_.sessionWatch) return;
  // The user coming back is this system's "application became active": what
  // arrived meanwhile without file events is looked for then.
  Status watching = env_.sessionWatch->start([this](SessionReturn what) {
    log::info(kArea, "%s: looking for what the watcher missed", sessionReturnName(what));
    if (!servicesPaused_) runReconciliationIfDue();
  });
  if (!watching.ok()) {
    log::info(kArea,
              "no word when the user comes back (%s); sweeping at start, every %.0f min and on "
              "`klipora scan`",
              watching.message().c_str(), kSafetyRescanInterval / 60);
  }
}

}  // namespace klipora::app
