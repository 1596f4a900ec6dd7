// Requests about watching: the global pause of new screenshots, kept in the
// user defaults so that the daemon and a command without one agree.
#include "app/control_requests.h"

#include <algorithm>

#include "library/records.h"
#include "library/settings_store.h"

namespace klipora::app {

Json ControlRequestHandler::pause(const std::string& command, const Json& request) {
  ingestion::WatcherPauseSchedule ownPause(target_.userDefaults, target_.clock, nullptr);
  if (!target_.coordinator) ownPause.load();
  auto& schedule = target_.coordinator ? target_.coordinator->pauseSchedule() : ownPause;
  Status written;
  if (command == "resume") {
    written = schedule.setPaused(std::nullopt);
  } else {
    const Json& until = request.contains("until") ? request["until"] : Json();
    if (until == "indefinitely") {
      written = schedule.setPaused(ingestion::WatcherPauseSchedule::kFarFuture);
    } else if (until == "tomorrow") {
      written = schedule.pauseUntilTomorrow();
    } else if (until.is_number() && until.get<double>() > 0) {
      written = schedule.setPaused(target_.clock.now().addingTimeInterval(until.get<double>()));
    } else {
      return errorReply("pause needs \"until\": \"indefinitely\", \"tomorrow\" or seconds");
    }
  }
  if (!written.ok()) return errorReply("cannot save the pause: " + written.message());
  auto description = schedule.statusDescription();
  return {{"ok", true}, {"pause", description ? Json(*description) : Json(nullptr)}};
}

}  // namespace klipora::app

namespace klipora::app {
namespace {

Json OutcomeJson(const AppCoordinator::ReconciliationOutcome& o, int threshold) {
  using Kind = AppCoordinator::ReconciliationOutcome::Kind;
  const char* kind = o.kind == Kind::skipped      ? "skipped"
                     : o.kind == Kind::aborted    ? "aborted"
                     : o.kind == Kind::nothingNew ? "nothingNew"
                     : o.kind == Kind::imported   ? "imported"
                                                  : "pending";
  Json failures = Json::array();
  for (const auto& [path, error] : o.failures) {
    failures.push_back({{"path", path}, {"error", error}});
  }
  Json reply = {{"ok", o.kind != Kind::aborted && o.failed == 0},
                {"outcome", kind},
                {"found", o.found},
                {"imported", o.imported},
                {"duplicates", o.duplicates},
                {"failed", o.failed},
                {"failures", std::move(failures)},
                {"threshold", threshold}};
  if (!o.message.empty()) reply[o.kind == Kind::aborted ? "error" : "message"] = o.message;
  return reply;
}

}  // namespace

void ControlRequestHandler::scan(const Json& request, Reply reply) {
  auto* coordinator = target_.coordinator;
  if (!coordinator) return reply(errorReply("scan needs a running library"));
  std::vector<std::string> paths;
  if (request.contains("folders")) {
    if (!request["folders"].is_array()) return reply(errorReply("\"folders\" is a list of paths"));
    for (const auto& p : request["folders"]) {
      if (!p.is_string()) return reply(errorReply("\"folders\" is a list of paths"));
      paths.push_back(p.get<std::string>());
    }
  }
  auto rows = target_.context.fetch<library::WatchedFolder>();
  if (!rows) return reply(errorReply("cannot read the watched folders: " + rows.error().message()));
  std::vector<library::WatchedFolder> chosen;
  for (const std::string& path : paths) {
    auto it = std::find_if(rows->begin(), rows->end(), [&](const auto& r) { return r->path == path; });
    if (it == rows->end()) {
      return reply(errorReply(path + " is not a watched folder (`klipora folders add` watches "
                                     "it; `klipora import --folder` imports it once)"));
    }
    chosen.push_back(**it);
  }
  if (chosen.empty()) {
    for (const auto& row : *rows) {
      if (row->isEnabled && !row->pausedAt && !row->shadowedByFolderID) chosen.push_back(*row);
    }
  }
  auto settings = library::fetchOrCreateSettings(target_.context);
  const int threshold = settings ? (*settings)->bulkImportThreshold : 100;
  auto done = [reply, threshold, coordinator](const AppCoordinator::ReconciliationOutcome& o) {
    if (auto* saver = coordinator->saveCoalescer()) {
      if (Status s = saver->flush(); !s.ok()) {
        return reply(errorReply("could not save the library: " + s.message()));
      }
    }
    reply(OutcomeJson(o, threshold));
  };
  if (request.value("force", false)) {
    coordinator->scanFoldersForUnimportedFiles(chosen, std::move(done));
  } else {
    coordinator->runReconciliationIfDue(std::move(done), /*requested=*/true, paths);
  }
}

void ControlRequestHandler::pending(const Json& request, Reply reply) {
  auto* coordinator = target_.coordinator;
  const std::string action = request.value("action", "show");
  const auto* result = coordinator ? &coordinator->pendingReconciliation() : nullptr;
  if (action == "show" || !result || !*result) {
    Json folders = Json::array();
    if (result && *result) {
      for (const auto& f : (*result)->folders) {
        folders.push_back({{"path", f.folder.path}, {"count", f.candidates.size()}});
      }
    }
    if (action != "show" && action != "accept" && action != "dismiss") {
      return reply(errorReply("pending needs \"action\": show, accept or dismiss"));
    }
    return reply({{"ok", true},
                  {"outcome", "nothingNew"},
                  {"pending", result && *result ? (*result)->totalCount() : 0},
                  {"folders", std::move(folders)}});
  }
  if (action == "dismiss") {
    const int count = (*result)->totalCount();
    coordinator->dismissPendingReconciliation();
    return reply({{"ok", true}, {"outcome", "dismissed"}, {"pending", count}});
  }
  if (action != "accept") return reply(errorReply("pending needs \"action\": show, accept or dismiss"));
  auto settings = library::fetchOrCreateSettings(target_.context);
  const int threshold = settings ? (*settings)->bulkImportThreshold : 100;
  coordinator->acceptPendingReconciliation(
      [reply, threshold, coordinator](const AppCoordinator::ReconciliationOutcome& o) {
        if (auto* saver = coordinator->saveCoalescer()) (void)saver->flush();
        reply(OutcomeJson(o, threshold));
      });
}

}  // namespace klipora::app
