// klipora: the command-line face of the library, and (`klipora run`) its daemon.
#include <CLI/CLI.hpp>
#include <iostream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "platform/linux/log_sinks.h"

int main(int argc, char** argv) {
  using namespace klipora;
  auto stderrSink = std::make_shared<StderrLogSink>(log::Level::kWarning);
  log::addSink(stderrSink);

  cli::CliSession session;
  CLI::App app{"Klipora: a screenshot library for Linux desktops", "klipora"};
  app.require_subcommand(1);
  app.fallthrough();
  app.add_option("--home", session.homeOption, "Library support folder (default: $KLIPORA_HOME, else "
                                 "$XDG_DATA_HOME/Klipora)");
  cli::addRegisteredCommands(app, session);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    app.exit(e);
    return cli::kExitUsage;
  }
  return session.exitCode;
}
