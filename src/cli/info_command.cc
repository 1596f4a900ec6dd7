// klipora info: where the library is, how much it holds, how much room is left.
#include <CLI/CLI.hpp>
#include <iostream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "library/disk_space_monitor.h"
#include "library/screenshot_item.h"

namespace klipora::cli {
namespace {

int RunInfo(CliSession& session, bool json) {
  if (!session.openLibrary()) return session.exitCode;
  auto count = session.context().fetchCount<library::ScreenshotItem>();
  if (!count) {
    std::cerr << "klipora: cannot read the library: " << count.error().message() << "\n";
    return kExitFailure;
  }
  const auto& root = session.libraryRoot();
  auto capacity = session.platform().fileSystem.volumeCapacity(root.root);
  int64_t freeBytes = capacity ? capacity->freeBytes : 0;
  int64_t totalBytes = capacity ? capacity->totalBytes : 0;
  auto severity = library::DiskSpaceMonitor::severityFor(freeBytes, totalBytes);
  if (json) {
    nlohmann::ordered_json out = {
        {"storePath", session.container().storePath()},
        {"libraryRoot", root.root},
        {"configuredLibraryFolder", root.fallbackNotice
                                        ? nlohmann::ordered_json(root.fallbackNotice->configuredPath)
                                        : nlohmann::ordered_json(nullptr)},
        {"itemCount", *count},
        {"freeBytes", freeBytes},
        {"totalBytes", totalBytes},
        {"diskSeverity", library::DiskSpaceMonitor::severityName(severity)},
    };
    printJson(out);
    return kExitOk;
  }
  std::cout << "Store:        " << session.container().storePath() << "\n"
            << "Library:      " << root.root << "\n";
  if (root.fallbackNotice) {
    std::cout << "              (the chosen folder " << root.fallbackNotice->configuredPath
              << " is unavailable: " << library::reasonName(root.fallbackNotice->reason) << ")\n";
  }
  std::cout << "Items:        " << *count << "\n"
            << "Free space:   " << library::formatByteCount(freeBytes) << " of "
            << library::formatByteCount(totalBytes) << " ("
            << library::DiskSpaceMonitor::severityName(severity) << ")\n";
  return kExitOk;
}

}  // namespace

KLIPORA_COMMAND(info) {
  auto* cmd = app.add_subcommand("info", "Show where the library is and what it holds");
  auto json = std::make_shared<bool>(false);
  cmd->add_flag("--json", *json, "Print as JSON");
  cmd->callback([&session, json] { session.exitCode = RunInfo(session, *json); });
}

}  // namespace klipora::cli
