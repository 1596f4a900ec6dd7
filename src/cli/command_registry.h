// How the klipora command is put together: each *_command.cc registers a
// function that adds its subcommands to the CLI11 app. Every subcommand takes
// --home DIR (same as $KLIPORA_HOME) and sets CliSession::exitCode.
//
// Exit codes: 0 success, 1 the operation failed for some input, 2 usage
// error, 3 the library store could not be opened.
#pragma once

#include <functional>
#include <vector>

namespace CLI {
class App;
}

namespace klipora::cli {

class CliSession;

inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;
inline constexpr int kExitStoreUnavailable = 3;

using CommandRegistration = std::function<void(CLI::App& app, CliSession& session)>;

// Registered functions run in name order, so --help lists commands stably.
bool registerCommand(const char* name, CommandRegistration registration);
void addRegisteredCommands(CLI::App& app, CliSession& session);

}  // namespace klipora::cli

// Use once per command file: KLIPORA_COMMAND(import) { … app.add_subcommand(…) … }
#define KLIPORA_COMMAND(name)                                                              \
  static void klipora_command_##name(CLI::App& app, ::klipora::cli::CliSession& session);  \
  [[maybe_unused]] static const bool klipora_command_registered_##name =                  \
      ::klipora::cli::registerCommand(#name, klipora_command_##name);                      \
  static void klipora_command_##name(CLI::App& app, ::klipora::cli::CliSession& session)
