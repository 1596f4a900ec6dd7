// klipora service enable|disable|status: Klipora started at log-in for the
// current user, by a systemd user unit and an XDG autostart entry (see
// app/user_service.h).
#include <CLI/CLI.hpp>
#include <iostream>

#include "app/user_service.h"
#include "cli/cli_session.h"
#include "cli/command_registry.h"

namespace klipora::cli {
namespace {

app::UserServicePaths Paths(CliSession& session) {
  auto& getenv = session.platform().getenv;
  return app::userServicePaths(getenv("XDG_CONFIG_HOME"), getenv("HOME"));
}

// The library the unit drives: named with --home when it is not the default
// one, since a unit does not see this shell's $KLIPORA_HOME.
app::ServiceCommand Command(CliSession& session, const std::string& binary) {
  app::ServiceCommand command{binary.empty() ? session.platform().executablePath : binary, ""};
  const char* env = session.platform().getenv("KLIPORA_HOME");
  if (!session.homeOption.empty() || (env && *env)) {
    command.homeOption = session.platform().absolutePath(session.paths().supportFolder);
  }
  return command;
}

ServiceManager* Manager(CliSession& session) {
  auto* manager = session.platform().serviceManager;
  if (!manager) std::cerr << "klipora: no service manager is available on this system\n";
  return manager;
}

std::string Describe(const app::UserServiceStatus& status) {
  if (status.inUse == "systemd") {
    return status.unit.managerRunning ? "the systemd user service"
                                      : "the systemd user service (at the next log-in)";
  }
  if (status.inUse == "autostart") {
    return status.unit.enabled ? "the desktop's autostart entry (no systemd user instance runs "
                                 "now; where one starts at log-in, it runs the unit instead)"
                               : "the desktop's autostart entry";
  }
  return "nothing: Klipora does not start at log-in";
}

int RunStatus(CliSession& session, bool json) {
  auto* manager = Manager(session);
  if (!manager) return kExitFailure;
  auto paths = Paths(session);
  auto status = app::UserService(session.platform().fileSystem, *manager, paths).status();
  if (json) {
    printJson({{"inUse", status.inUse},
               {"unit",
                {{"path", paths.unitPath},
                 {"installed", status.unitInstalled},
                 {"enabled", status.unit.enabled},
                 {"managerRunning", status.unit.managerRunning},
                 {"activeState", status.unit.activeState}}},
               {"autostart", {{"path", paths.autostartPath}, {"installed", status.autostartInstalled}}}});
    return kExitOk;
  }
  std::cout << "Unit: " << paths.unitPath << " ("
            << (status.unitInstalled ? (status.unit.enabled ? "enabled" : "not enabled")
                                     : "not installed")
            << ")\n";
  if (status.unit.managerRunning) {
    std::cout << "  systemd user instance: running; the unit is "
              << (status.unit.activeState.empty() ? "unknown" : status.unit.activeState) << "\n";
  } else {
    std::cout << "  systemd user instance: not running in this session\n";
  }
  std::cout << "Autostart entry: " << paths.autostartPath << " ("
            << (status.autostartInstalled ? "installed" : "not installed") << ")\n";
  std::cout << "In use: " << Describe(status) << "\n";
  return kExitOk;
}

int RunEnable(CliSession& session) {
  auto* manager = Manager(session);
  if (!manager) return kExitFailure;
  auto paths = Paths(session);
  app::UserService service(session.platform().fileSystem, *manager, paths);
  Status enabled = service.enable(Command(session, ""));
  if (!enabled.ok()) {
    std::cerr << "klipora: " << enabled.message() << "\n";
    if (!session.platform().fileSystem.exists(paths.autostartPath)) return kExitFailure;
    std::cerr << "klipora: the autostart entry " << paths.autostartPath
              << " still starts Klipora at log-in\n";
  }
  std::cout << "Wrote " << paths.unitPath << " and " << paths.autostartPath << ".\n"
            << "Klipora starts at the next log-in; in use: " << Describe(service.status())
            << ".\n";
  return enabled.ok() ? kExitOk : kExitFailure;
}

int RunDisable(CliSession& session) {
  auto* manager = Manager(session);
  if (!manager) return kExitFailure;
  app::UserService service(session.platform().fileSystem, *manager, Paths(session));
  if (Status s = service.disable(); !s.ok()) {
    std::cerr << "klipora: " << s.message() << "\n";
    return kExitFailure;
  }
  std::cout << "Klipora no longer starts at log-in (unit and autostart entry removed).\n";
  return kExitOk;
}

}  // namespace

KLIPORA_COMMAND(service) {
  auto* cmd = app.add_subcommand("service", "Start Klipora at log-in: enable, disable, status");
  cmd->require_subcommand(1);
  cmd->add_subcommand("enable", "Install the systemd user unit and the autostart entry")
      ->callback([&session] { session.exitCode = RunEnable(session); });
  cmd->add_subcommand("disable", "Stop the service and remove the unit and the autostart entry")
      ->callback([&session] { session.exitCode = RunDisable(session); });
  auto* status = cmd->add_subcommand("status", "Show the unit, the autostart entry, which is used");
  auto json = std::make_shared<bool>(false);
  status->add_flag("--json", *json, "Print the state as JSON");
  status->callback([&session, json] { session.exitCode = RunStatus(session, *json); });

  // For packaging: the files as a package installs them, from this binary's
  // own text so that they cannot drift.
  for (const char* kind : {"print-unit", "print-autostart"}) {
    auto* print = cmd->add_subcommand(kind, "")->group("");
    auto binary = std::make_shared<std::string>("/usr/bin/klipora");
    print->add_option("--binary", *binary, "Path of the installed binary");
    std::string which = kind;
    print->callback([binary, which] {
      app::ServiceCommand command{*binary, ""};
      std::cout << (which == "print-unit" ? app::serviceUnitText(command)
                                          : app::autostartEntryText(command));
    });
  }
}

}  // namespace klipora::cli
