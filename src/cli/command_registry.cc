#include "cli/command_registry.h"

#include <map>
#include <string>

namespace klipora::cli {
namespace {

std::map<std::string, CommandRegistration>& Registry() {
  static std::map<std::string, CommandRegistration> registry;
  return registry;
}

}  // namespace

bool registerCommand(const char* name, CommandRegistration registration) {
  Registry()[name] = std::move(registration);
  return true;
}

void addRegisteredCommands(CLI::App& app, CliSession& session) {
  for (auto& [name, registration] : Registry()) registration(app, session);
}

}  // namespace klipora::cli
