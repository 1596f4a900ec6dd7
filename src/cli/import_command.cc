// klipora import PATH…: imports files by hand (source manualImport).
#include <CLI/CLI.hpp>
#include <iostream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "ingestion/import_pipeline.h"
#include "library/screenshot_item_store.h"

namespace klipora::cli {
namespace {

struct ImportOutcome {
  std::string path;
  ingestion::ImportResult result;
};

int RunImport(CliSession& session, const std::vector<std::string>& paths, bool json) {
  if (!session.openLibrary()) return session.exitCode;
  auto& platform = session.platform();
  library::ScreenshotItemStore itemStore(&session.context());
  ingestion::ImportChecksumClaims claims(itemStore);
  processing::ProcessingSaveCoalescer saver(session.context(), platform.mainLoop);
  ingestion::ImportPipeline pipeline(session.storage(), session.context(), saver, claims,
                                     platform.clock, platform.mainLoop, platform.background);

  std::vector<ImportOutcome> outcomes(paths.size());
  size_t remaining = paths.size();
  // At most a few files are in flight, so memory stays bounded on big batches.
  constexpr size_t kInFlight = 4;
  size_t next = 0;
  std::function<void()> startNext = [&] {
    if (next >= paths.size()) return;
    size_t index = next++;
    outcomes[index].path = paths[index];
    pipeline.importScreenshot(paths[index], library::ImportSourceType::manualImport, std::nullopt,
                              std::nullopt, [&, index](ingestion::ImportResult result) {
                                outcomes[index].result = std::move(result);
                                if (--remaining == 0) {
                                  platform.mainLoop.stop();
                                } else {
                                  startNext();
                                }
                              });
  };
  platform.mainLoop.post([&] {
    for (size_t i = 0; i < kInFlight; ++i) startNext();
  });
  if (!paths.empty()) platform.mainLoop.run();

  Status saved = saver.flush();
  bool anyFailed = !saved.ok();
  nlohmann::ordered_json report = nlohmann::ordered_json::array();
  for (const auto& outcome : outcomes) {
    const auto& r = outcome.result;
    if (r) {
      if (json) {
        report.push_back({{"path", outcome.path}, {"id", r->uuidString()}, {"error", nullptr}});
      } else {
        std::cout << r->uuidString() << "  " << outcome.path << "\n";
      }
    } else {
      anyFailed = true;
      if (json) {
        report.push_back(
            {{"path", outcome.path}, {"id", nullptr}, {"error", r.error().errorDescription()}});
      } else {
        std::cout << outcome.path << ": " << r.error().errorDescription() << "\n";
      }
    }
  }
  if (json) printJson(report);
  if (!saved.ok()) std::cerr << "klipora: could not save the library: " << saved.message() << "\n";
  return anyFailed ? kExitFailure : kExitOk;
}

}  // namespace

KLIPORA_COMMAND(import) {
  auto* cmd = app.add_subcommand("import", "Import image files into the library");
  auto paths = std::make_shared<std::vector<std::string>>();
  auto json = std::make_shared<bool>(false);
  cmd->add_option("paths", *paths, "Image files to import")->required();
  cmd->add_flag("--json", *json, "Print the outcome of each file as JSON");
  cmd->callback([&session, paths, json] { session.exitCode = RunImport(session, *paths, *json); });
}

}  // namespace klipora::cli
