// klipora favorite|unfavorite|archive|unarchive ID…: the user's marks on items.
#include <CLI/CLI.hpp>
#include <iostream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "library/screenshot_item.h"

namespace klipora::cli {
namespace {

int RunMark(CliSession& session, const std::string& verb, const std::vector<std::string>& ids) {
  auto fetched = fetchItems(session, ids);
  if (!fetched) return session.exitCode;
  auto& items = *fetched;
  auto& context = session.context();
  const bool on = verb == "favorite" || verb == "archive";
  const bool favorite = verb == "favorite" || verb == "unfavorite";
  for (auto& item : items) (favorite ? item->favorite : item->archived) = on;
  if (Status s = context.save(); !s.ok()) {
    context.rollback();
    std::cerr << "klipora: nothing changed: " << s.message() << "\n";
    return kExitFailure;
  }
  const char* done = favorite ? (on ? "marked as favourite" : "no longer a favourite")
                              : (on ? "archived" : "taken out of the archive");
  for (const auto& item : items) std::cout << item->id.uuidString() << "  " << done << "\n";
  return kExitOk;
}

}  // namespace

KLIPORA_COMMAND(favorite) {
  struct Verb {
    const char* verb;
    const char* help;
  };
  for (Verb v : {Verb{"favorite", "Mark items as favourites"},
                    Verb{"unfavorite", "Take the favourite mark off items"},
                    Verb{"archive", "Archive items (hidden from the main views)"},
                    Verb{"unarchive", "Take items out of the archive"}}) {
    auto* cmd = app.add_subcommand(v.verb, v.help);
    auto ids = std::make_shared<std::vector<std::string>>();
    cmd->add_option("ids", *ids, "Item ids")->required();
    std::string verb = v.verb;
    cmd->callback([&session, verb, ids] { session.exitCode = RunMark(session, verb, *ids); });
  }
}

}  // namespace klipora::cli
