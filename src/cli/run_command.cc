// klipora run: the daemon that owns watching and processing of one library.
#include <asio/signal_set.hpp>
#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "library/screenshot_item.h"
#include "platform/linux/log_sinks.h"

namespace klipora::cli {
namespace {

int RunDaemon(CliSession& session) {
  if (!session.openLibrary()) return session.exitCode;
  auto count = session.context().fetchCount<library::ScreenshotItem>();
  log::info("Boot", "library at %s holds %lld item(s); store %s",
            session.libraryRoot().root.c_str(), static_cast<long long>(count.value_or(0)),
            session.container().storePath().c_str());
  std::cout << "Klipora is running on " << session.libraryRoot().root << " ("
            << count.value_or(0) << " items). Press Ctrl-C to stop.\n"
            << std::flush;
  auto& loop = session.platform().mainLoop;
  asio::signal_set signals(loop.context(), SIGINT, SIGTERM);
  signals.async_wait([&](const asio::error_code&, int signal) {
    log::info("Boot", "received signal %d; stopping", signal);
    loop.stop();
  });
  loop.run();
  std::cout << "Klipora stopped.\n";
  return kExitOk;
}

}  // namespace

KLIPORA_COMMAND(run) {
  auto* cmd = app.add_subcommand("run", "Run the library daemon until Ctrl-C");
  cmd->callback([&session] { session.exitCode = RunDaemon(session); });
}

}  // namespace klipora::cli
