#include "app/control_requests.h"

#include "library/screenshot_item.h"
#include "library/trash_operations.h"
#include "library/trash_retention_service.h"
#include "platform/log.h"

namespace klipora::app {

using library::ScreenshotItem;

namespace {

Json OutcomesJson(const std::vector<library::TrashOutcome>& outcomes) {
  Json list = Json::array();
  bool allDone = true;
  for (const auto& o : outcomes) {
    Json entry = {{"id", o.id.uuidString()}, {"outcome", library::outcomeName(o.kind)}};
    if (!o.error.empty()) entry["error"] = o.error;
    if (o.kind == library::TrashOutcome::Kind::failed ||
        o.kind == library::TrashOutcome::Kind::notFound) {
      allDone = false;
    }
    list.push_back(std::move(entry));
  }
  return {{"ok", allDone}, {"outcomes", std::move(list)}};
}

}  // namespace

Json makeRequest(const std::string& command) { return Json{{"command", command}}; }

Json importOutcomeJson(const std::string& path, const ingestion::ImportResult& result) {
  Json entry = {{"path", path}};
  if (result) {
    entry["outcome"] = "imported";
    entry["id"] = result->uuidString();
    entry["error"] = nullptr;
    return entry;
  }
  const auto& error = result.error();
  const bool duplicate = error.kind == ingestion::ImportError::Case::duplicateScreenshot;
  entry["outcome"] = duplicate ? "duplicate" : "failed";
  entry["id"] = error.importedItemID ? Json(error.importedItemID->uuidString()) : Json(nullptr);
  entry["error"] = error.errorDescription();
  entry["cause"] = error.cause.empty() ? Json(nullptr) : Json(error.cause);
  return entry;
}

void noteMissingThumbnail(Json& entry, library::ModelContext& context) {
  if (entry.value("outcome", "") != "imported") return;
  auto item = context.fetchByKey<ScreenshotItem>(entry["id"].get<std::string>());
  if (!item || !*item || (*item)->thumbnailPath) return;
  entry["note"] = "imported, but no thumbnail could be made";
  entry["cause"] = "the image is damaged, incomplete or too large to show; its text may not be read";
}

Json ControlRequestHandler::errorReply(const std::string& message) {
  return Json{{"ok", false}, {"error", message}};
}

Result<std::vector<UUID>> ControlRequestHandler::idsOf(const std::string& command,
                                                       const Json& request) {
  if (!request.contains("ids") || !request["ids"].is_array() || request["ids"].empty()) {
    return tl::unexpected(Status::InvalidArgument(command + " needs a non-empty \"ids\" list"));
  }
  std::vector<UUID> ids;
  for (const auto& id : request["ids"]) {
    auto uuid = id.is_string() ? UUID::Parse(id.get<std::string>()) : std::nullopt;
    if (!uuid) {
      const std::string text = id.is_string() ? id.get<std::string>() : id.dump();
      return tl::unexpected(Status::InvalidArgument("\"" + text + "\" is not an item id"));
    }
    ids.push_back(*uuid);
  }
  return ids;
}

ControlRequestHandler::ControlRequestHandler(RequestTarget target) : target_(std::move(target)) {}

library::StorageService* ControlRequestHandler::storage() {
  return target_.coordinator ? target_.coordinator->storageIfReady() : target_.storage;
}

void ControlRequestHandler::handleLine(const std::string& line,
                                       std::function<void(std::string)> reply) {
  auto request = Json::parse(line, nullptr, /*allow_exceptions=*/false);
  auto send = [reply = std::move(reply)](const Json& json) {
    reply(json.dump(-1, ' ', false, Json::error_handler_t::replace));
  };
  if (!request.is_object() || !request.contains("command") || !request["command"].is_string()) {
    send(errorReply("a request is a JSON object with a \"command\" string"));
    return;
  }
  handle(request, send);
}

void ControlRequestHandler::handle(const Json& request, Reply reply) {
  const std::string command = request.value("command", "");
  if (command == "status") return reply(status());
  if (command == "reload") return reply(reload());
  if (command == "trash" || command == "restore" || command == "delete" ||
      command == "empty-trash") {
    return reply(trashRequest(command, request));
  }
  if (command == "sweep-trash") return reply(sweepTrash());
  if (command == "import") return import(request, std::move(reply));
  if (command == "retry") return reply(retry(request));
  if (command == "reprocess") return reply(reprocess(request));
  if (command == "wait") return wait(request, std::move(reply));
  if (command == "pause" || command == "resume") return reply(pause(command, request));
  if (command == "model") return reply(model(request));
  if (command == "scan") return scan(request, std::move(reply));
  if (command == "pending") return pending(request, std::move(reply));
  if (command == "markup-commit") return reply(markupCommit(request));
  if (command == "file-category") return reply(fileCategory(request));
  if (command == "apply-category" || command == "category-sorting") {
    return reply(sortCategory(command, request));
  }
  reply(errorReply("unknown command: " + command));
}

Json ControlRequestHandler::status() {
  auto& context = target_.context;
  Json states = Json::object();
  // Counted from indexes alone (the live items by state, the trash by
  // date), never from the items themselves. likely(): the plain deletedAt
  // index would otherwise look the better choice.
  auto byState = context.database().query(
      "SELECT processingStateRaw, count(*) FROM ScreenshotItem WHERE deleted = 0 AND "
      "likely(deletedAt IS NULL) GROUP BY processingStateRaw");
  auto inTrash = context.database().query(
      "SELECT count(*) FROM ScreenshotItem WHERE (deleted <> 0 OR deletedAt IS NOT NULL)");
  if (!byState || !inTrash) return errorReply("cannot read the library");
  const int64_t trashed = std::get<int64_t>(inTrash->at(0).at(0));
  int64_t live = 0;
  for (const auto& row : *byState) live += std::get<int64_t>(row[1]);
  for (auto state :
       {library::ProcessingState::pending, library::ProcessingState::thumbnailGenerated,
        library::ProcessingState::ocrComplete, library::ProcessingState::classificationComplete,
        library::ProcessingState::enrichmentComplete, library::ProcessingState::complete,
        library::ProcessingState::failed, library::ProcessingState::partiallyFailed}) {
    states[std::string(library::rawValue(state))] = int64_t{0};
  }
  // Rows whose state this build does not know count as pending (they are
  // processed again), so the states always add up to the live total.
  for (const auto& row : *byState) {
    auto* raw = std::get_if<std::string>(&row[0]);
    const std::string state = raw && states.contains(*raw) ? *raw : "pending";
    states[state] = states[state].get<int64_t>() + std::get<int64_t>(row[1]);
  }

  Json daemon = {{"running", target_.daemonPid.has_value()}};
  if (target_.daemonPid) daemon["pid"] = *target_.daemonPid;
  Json library = {{"root", target_.libraryRoot}, {"store", target_.storePath}};
  if (target_.fallbackNotice) {
    library["fallback"] = {{"configuredPath", target_.fallbackNotice->configuredPath},
                           {"reason", library::reasonName(target_.fallbackNotice->reason)}};
  } else {
    library["fallback"] = nullptr;
  }
  if (auto* c = target_.coordinator) {
    daemon["paused"] = c->servicesPaused();
    daemon["processingQueue"] = c->processingQueue() != nullptr;
    daemon["watching"] = c->watcher() != nullptr && c->watcher()->isWatching();
    if (auto* watcher = c->watcher()) {
      daemon["folders"] = {{"watched", watcher->watchedFolders()},
                           {"awaited", watcher->awaitedFolders()}};
    }
    if (auto* queue = c->processingQueue()) {
      auto q = queue->status();
      daemon["queue"] = {
          {"running", q.running},
          {"bulk", {{"waiting", q.bulkWaiting}, {"running", q.bulkRunning}}},
          {"priority", {{"waiting", q.priorityWaiting}, {"running", q.priorityRunning}}},
          {"inFlight", q.inFlight},
          {"lateOCRPending", q.lateOCRPending},
          {"retryPassRunning", q.retryPassRunning}};
    }
  }
  ingestion::WatcherPauseSchedule ownPause(target_.userDefaults, target_.clock, nullptr);
  if (!target_.coordinator) ownPause.load();
  auto& pause = target_.coordinator ? target_.coordinator->pauseSchedule() : ownPause;
  return {{"ok", true},
          {"daemon", std::move(daemon)},
          {"pause", pause.statusDescription() ? Json(*pause.statusDescription()) : Json(nullptr)},
          {"library", std::move(library)},
          {"items",
           {{"total", live + trashed},
            {"live", live},
            {"trashed", trashed},
            {"states", std::move(states)}}}};
}

Json ControlRequestHandler::reload() {
  Status defaults = target_.userDefaults.load();
  if (target_.coordinator) {
    target_.coordinator->pauseSchedule().load();
    target_.coordinator->handleExternalStoreChanges();
  }
  if (!defaults.ok()) return errorReply(defaults.message());
  return {{"ok", true}};
}

Json ControlRequestHandler::trashRequest(const std::string& command, const Json& request) {
  std::vector<UUID> ids;
  if (command != "empty-trash") {
    auto parsed = idsOf(command, request);
    if (!parsed) return errorReply(parsed.error().message());
    ids = std::move(*parsed);
  }
  library::LibraryTrash trash(target_.context, storage(), target_.markupEdits, target_.clock);
  std::vector<library::TrashOutcome> outcomes;
  if (command == "trash") {
    outcomes = trash.moveToTrash(ids);
  } else if (command == "restore") {
    outcomes = trash.restore(ids);
  } else {
    auto removed = command == "delete" ? trash.deletePermanently(ids) : trash.emptyTrash();
    if (!removed) return errorReply(removed.error().message());
    outcomes = std::move(*removed);
  }
  // An item that left the library or went to the trash leaves the queue.
  auto* queue = target_.coordinator ? target_.coordinator->processingQueue() : nullptr;
  if (queue && command != "restore") {
    for (const auto& o : outcomes) {
      if (o.kind == library::TrashOutcome::Kind::done) queue->remove(o.id);
    }
  }
  return OutcomesJson(outcomes);
}

Json ControlRequestHandler::sweepTrash() {
  library::TrashRetentionService::SweepReport report;
  if (target_.coordinator && target_.coordinator->trashRetention()) {
    report = target_.coordinator->trashRetention()->runSweep();
  } else {
    library::StorageService* ready = storage();
    library::TrashRetentionService once(
        target_.context, [ready] { return ready; }, target_.markupEdits, target_.clock,
        target_.timers);
    report = once.runSweep();
  }
  if (!report.saved.ok()) return errorReply(report.saved.message());
  if (report.skipped && report.retentionDays == 0 && !storage()) {
    return errorReply("the library folder is not available");
  }
  return {{"ok", report.kept == 0},
          {"retentionDays", report.retentionDays},
          {"skipped", report.skipped},
          {"removed", report.removed},
          {"kept", report.kept}};
}

void ControlRequestHandler::import(const Json& request, Reply reply) {
  auto* coordinator = target_.coordinator;
  if (!coordinator) return reply(errorReply("import through the control channel needs the daemon"));
  if (!request.contains("paths") || !request["paths"].is_array() || request["paths"].empty()) {
    return reply(errorReply("import needs a non-empty \"paths\" list"));
  }
  std::vector<std::string> paths;
  for (const auto& p : request["paths"]) {
    if (!p.is_string() || p.get<std::string>().empty()) {
      return reply(errorReply("every path must be a non-empty string"));
    }
    paths.push_back(p.get<std::string>());
  }
  struct Batch {
    Json results = Json::array();
    size_t remaining = 0;
    bool allOk = true;
    Reply reply;
  };
  auto batch = std::make_shared<Batch>();
  batch->remaining = paths.size();
  batch->reply = std::move(reply);
  for (const auto& path : paths) batch->results.push_back({{"path", path}});
  // A folder's files come from `klipora import --folder`, a batch at a time.
  const auto source = request.value("source", "") == "folderImport"
                          ? library::ImportSourceType::folderImport
                          : library::ImportSourceType::manualImport;
  for (size_t i = 0; i < paths.size(); ++i) {
    coordinator->importFile(paths[i], source, std::nullopt,
                            std::nullopt, [batch, i, coordinator](ingestion::ImportResult result) {
                              auto& entry = batch->results[i];
                              entry = importOutcomeJson(entry["path"], result);
                              entry["duplicate"] = entry["outcome"] == "duplicate";
                              if (entry["outcome"] == "failed") batch->allOk = false;
                              if (--batch->remaining == 0) {
                                // "Imported" means saved: a crash after the
                                // reply loses nothing it names.
                                if (auto* saver = coordinator->saveCoalescer()) {
                                  if (Status s = saver->flush(); !s.ok()) {
                                    batch->allOk = false;
                                    log::error("Library", "import save failed: %s",
                                               s.message().c_str());
                                  }
                                }
                                for (auto& entry : batch->results) {
                                  if (auto* context = coordinator->modelContext()) {
                                    noteMissingThumbnail(entry, *context);
                                  }
                                }
                                batch->reply({{"ok", batch->allOk}, {"results", batch->results}});
                              }
                            });
  }
}

}  // namespace klipora::app
