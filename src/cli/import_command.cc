// klipora import [--wait] PATH…: imports files by hand (source manualImport).
// While a daemon runs it does the import and queues the new items at once;
// without one the command imports into the store and the items wait for
// `klipora run`, unless --wait asks the command to process them itself.
#include <CLI/CLI.hpp>
#include <iostream>

#include "app/processing_service.h"
#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "cli/daemon_client.h"
#include "cli/import_folder.h"
#include "ingestion/import_pipeline.h"
#include "library/screenshot_item.h"
#include "library/orphan_files.h"
#include "library/screenshot_item_store.h"
#include "platform/log.h"

namespace klipora::cli {
namespace {

struct ImportOptions {
  std::vector<std::string> paths;
  std::string folder;  // --folder: a bulk import of the whole folder
  bool json = false;
  bool wait = false;
  double waitSeconds = 600;
};

// A path as one line of a message: control characters (a newline in a file
// name) are shown escaped, so every message stays on its own lines.
std::string DisplayPath(const std::string& path) {
  std::string out;
  for (unsigned char c : path) {
    if (c == '\n') {
      out += "\\n";
    } else if (c < 0x20 || c == 0x7f) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", c);
      out += escaped;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out;
}

// The outcome of each file, in the order they finished. A file already in
// the library is an outcome, not a failure; only failed files fail the command.
struct ImportReport {
  app::Json results = app::Json::array();  // importOutcomeJson entries
  bool anyFailed = false;

  void add(app::Json entry) {
    if (entry.value("outcome", "") == "failed") anyFailed = true;
    results.push_back(std::move(entry));
  }
  std::vector<std::string> ids() const {
    std::vector<std::string> out;
    for (const auto& r : results) {
      if (r["id"].is_string()) out.push_back(r["id"]);
    }
    return out;
  }
};

// Imported files on standard output ("ID  PATH"), files already in the
// library there too, failures on standard error with their cause on a second
// line.
void PrintOutcome(const app::Json& r) {
  const std::string path = DisplayPath(r.value("path", ""));
  const std::string outcome = r.value("outcome", "");
  if (outcome == "imported") {
    std::cout << r["id"].get<std::string>() << "  " << path << "\n";
    if (r.contains("note")) {
      std::cerr << path << ": " << r["note"].get<std::string>() << "\n  ("
                << r.value("cause", "") << ")\n";
    }
  } else if (outcome == "duplicate") {
    std::cout << path << ": already in the library\n";
  } else {
    std::cerr << path << ": " << r.value("error", "") << "\n";
    if (r["cause"].is_string()) std::cerr << "  (" << r["cause"].get<std::string>() << ")\n";
  }
}

// Prints the finished items; true when every one of them completed.
bool PrintProcessed(const app::Json& items, bool json) {
  bool allDone = true;
  for (const auto& item : items) {
    const std::string state = item.value("state", "");
    if (state != "complete") allDone = false;
    if (json) continue;
    if (!item.contains("state")) {
      std::cerr << item.value("id", "") << ": " << item.value("error", "") << "\n";
      continue;
    }
    char confidence[16];
    std::snprintf(confidence, sizeof confidence, "%.2f", item.value("confidence", 0.0));
    std::cout << item.value("id", "") << "  " << state << "  " << item.value("category", "") << "  "
              << confidence << "  " << item.value("title", "");
    if (item["error"].is_string()) std::cout << "  (" << item["error"].get<std::string>() << ")";
    std::cout << "\n";
  }
  return allDone;
}

// Imports on the store directly, a few files in flight at a time so memory
// stays bounded on big batches. Each outcome is printed once its record is
// saved (saves are gathered for a quarter of a second), so whatever a killed
// import printed is in the library.
ImportReport ImportDirectly(CliSession& session, const std::vector<std::string>& paths,
                            processing::ProcessingSaveCoalescer& saver, bool print) {
  constexpr double kPrintDelay = 0.25;
  auto& platform = session.platform();
  library::ScreenshotItemStore itemStore(&session.context());
  ingestion::ImportChecksumClaims claims(itemStore);
  ingestion::ImportPipeline pipeline(session.storage(), session.context(), saver, claims,
                                     platform.clock, platform.mainLoop, platform.background);
  ImportReport report;
  size_t printed = 0;
  std::optional<TimerId> printTimer;
  Status saveFailed;
  auto saveAndPrint = [&] {
    if (printTimer) platform.mainLoop.cancel(*printTimer);
    printTimer.reset();
    if (Status s = saver.flush(); !s.ok()) {
      saveFailed = s;
      return;
    }
    for (; printed < report.results.size(); ++printed) {
      app::noteMissingThumbnail(report.results[printed], session.context());
      if (print) PrintOutcome(report.results[printed]);
    }
  };
  size_t remaining = paths.size();
  constexpr size_t kInFlight = 4;
  size_t next = 0;
  std::function<void()> startNext = [&] {
    if (next >= paths.size()) return;
    size_t index = next++;
    pipeline.importScreenshot(
        paths[index], library::ImportSourceType::manualImport, std::nullopt, std::nullopt,
        [&, index](ingestion::ImportResult result) {
          report.add(app::importOutcomeJson(paths[index], result));
          if (--remaining == 0) {
            saveAndPrint();
            platform.mainLoop.stop();
            return;
          }
          if (!printTimer) printTimer = platform.mainLoop.scheduleOnce(kPrintDelay, saveAndPrint);
          startNext();
        });
  };
  platform.mainLoop.post([&] {
    for (size_t i = 0; i < kInFlight; ++i) startNext();
  });
  if (!paths.empty()) platform.mainLoop.run();
  if (!saveFailed.ok()) {
    std::cerr << "klipora: could not save the library: " << saveFailed.message() << "\n";
    report.anyFailed = true;
  }
  return report;
}

// Runs the engine's processing in this command until every id has finished.
app::Json ProcessDirectly(CliSession& session, const std::vector<std::string>& ids,
                          processing::ProcessingSaveCoalescer& saver, double waitSeconds) {
  auto& platform = session.platform();
  auto& context = session.context();
  auto env = session.environment();
  auto service =
      app::makeProcessingService(env, context, saver, static_cast<int>(ids.size()));
  service->start();
  for (const auto& id : ids) service->enqueue(*UUID::Parse(id));
  const double deadline = platform.clock.monotonicSeconds() + waitSeconds;
  app::Json results;
  std::function<void()> check = [&] {
    results = app::Json::array();
    bool finished = true;
    for (const auto& id : ids) {
      auto fetched = context.fetchByKey<library::ScreenshotItem>(id);
      auto item = fetched ? *fetched : nullptr;
      if (!item) {
        results.push_back({{"id", id}, {"error", "no item has this id"}});
        continue;
      }
      finished &= library::isTerminal(item->processingState());
      results.push_back(app::itemOutcomeJson(*item));
    }
    if (finished || platform.clock.monotonicSeconds() >= deadline) {
      platform.mainLoop.stop();
      return;
    }
    platform.mainLoop.scheduleOnce(0.1, check);
  };
  platform.mainLoop.post(check);
  platform.mainLoop.run();
  service->stop();
  return results;
}

int RunImport(CliSession& session, ImportOptions options) {
  for (auto& path : options.paths) path = session.platform().absolutePath(path);
  ImportReport report;
  app::Json processed;
  if (auto daemon = runningDaemon(session); daemon && !daemon->socket.empty()) {
    auto request = app::makeRequest("import");
    request["paths"] = options.paths;
    auto reply = runLibraryRequest(session, request);
    if (!reply) return session.exitCode;
    if (!reply->reply.contains("results")) {
      std::cerr << "klipora: " << replyError(reply->reply) << "\n";
      return kExitFailure;
    }
    for (const auto& r : reply->reply["results"]) {
      report.add(r);
      if (!options.json) PrintOutcome(r);
    }
    if (options.wait && !report.ids().empty()) {
      auto wait = app::makeRequest("wait");
      wait["ids"] = report.ids();
      wait["timeoutSeconds"] = options.waitSeconds;
      auto waited = runLibraryRequest(session, wait, options.waitSeconds + 30);
      if (!waited) return session.exitCode;
      processed = waited->reply.value("results", app::Json::array());
    }
  } else {
    if (!session.openLibrary()) return session.exitCode;
    // What an earlier killed import left behind goes before this one adds more.
    if (auto swept = library::sweepOrphanFiles(session.context(), session.storage(),
                                               session.platform().clock);
        !swept) {
      log::warning("Cleanup", "orphan sweep failed: %s", swept.error().message().c_str());
    }
    processing::ProcessingSaveCoalescer saver(session.context(), session.platform().mainLoop);
    report = ImportDirectly(session, options.paths, saver, !options.json);
    if (options.wait && !report.ids().empty()) {
      // Saved first, so that the items are read back like any others.
      if (Status saved = saver.flush(); saved.ok()) {
        processed = ProcessDirectly(session, report.ids(), saver, options.waitSeconds);
      }
    }
    if (Status saved = saver.flush(); !saved.ok()) {
      std::cerr << "klipora: could not save the library: " << saved.message() << "\n";
      return kExitFailure;
    }
  }
  bool allProcessed = true;
  if (options.wait) allProcessed = PrintProcessed(processed, options.json);
  if (options.json) {
    app::Json out = report.results;
    if (options.wait) out = {{"imported", report.results}, {"processed", processed}};
    printJson(out);
  }
  return report.anyFailed || !allProcessed ? kExitFailure : kExitOk;
}

int RunWait(CliSession& session, const ImportOptions& options) {
  auto daemon = runningDaemon(session);
  if (!daemon || daemon->socket.empty()) {
    std::cerr << "klipora: nothing processes items without the daemon; start `klipora run`\n";
    return kExitFailure;
  }
  auto request = app::makeRequest("wait");
  request["ids"] = options.paths;
  request["timeoutSeconds"] = options.waitSeconds;
  auto reply = runLibraryRequest(session, request, options.waitSeconds + 30);
  if (!reply) return session.exitCode;
  if (!reply->reply.contains("results")) {
    std::cerr << "klipora: " << replyError(reply->reply) << "\n";
    return kExitFailure;
  }
  const auto& results = reply->reply["results"];
  bool allDone = PrintProcessed(results, options.json);
  if (options.json) printJson(results);
  if (reply->reply.value("timedOut", false)) {
    std::cerr << "klipora: gave up waiting after " << options.waitSeconds << " s\n";
  }
  return allDone ? kExitOk : kExitFailure;
}

}  // namespace

KLIPORA_COMMAND(import) {
  auto* cmd = app.add_subcommand("import", "Import image files into the library");
  auto options = std::make_shared<ImportOptions>();
  cmd->add_option("paths", options->paths, "Image files to import");
  cmd->add_option("--folder", options->folder,
                  "Import every image in this folder and its subfolders (bulk import)");
  cmd->add_flag("--json", options->json, "Print the outcome of each file as JSON");
  cmd->add_flag("--wait", options->wait,
                "Wait until each new item is processed and print its state, category, "
                "confidence and title");
  cmd->add_option("--wait-seconds", options->waitSeconds,
                  "Give up waiting after this many seconds (default 600)");
  cmd->callback([&session, options] {
    if (options->folder.empty() == options->paths.empty()) {
      std::cerr << "klipora: import takes image files or --folder DIR\n";
      session.exitCode = kExitUsage;
      return;
    }
    session.exitCode = options->folder.empty()
                           ? RunImport(session, *options)
                           : RunFolderImport(session, options->folder, options->json);
  });
}

KLIPORA_COMMAND(wait) {
  auto* cmd = app.add_subcommand("wait", "Wait until items are processed (needs the daemon)");
  auto options = std::make_shared<ImportOptions>();
  cmd->add_option("ids", options->paths, "Item ids")->required();
  cmd->add_flag("--json", options->json, "Print the items as JSON");
  cmd->add_option("--wait-seconds", options->waitSeconds,
                  "Give up waiting after this many seconds (default 600)");
  cmd->callback([&session, options] { session.exitCode = RunWait(session, *options); });
}

}  // namespace klipora::cli
