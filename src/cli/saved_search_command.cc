// klipora saved-search list|add|run|rename|delete: saved searches.
#include <CLI/CLI.hpp>
#include <iostream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "cli/search_command.h"
#include "library/record_json.h"
#include "library/search_saved.h"

namespace klipora::cli {
namespace {

using library::SavedSearches;

int Fail(const Status& s) {
  std::cerr << "klipora: " << s.message() << "\n";
  return kExitFailure;
}

int RunList(CliSession& session, bool json) {
  if (!session.openLibrary()) return session.exitCode;
  auto all = SavedSearches::list(session.context());
  if (!all) return Fail(all.error());
  if (json) {
    auto out = library::Json::array();
    for (const auto& s : *all) out.push_back(library::recordToJson(*s));
    printJson(out);
    return kExitOk;
  }
  for (const auto& s : *all) {
    std::cout << s->id.uuidString() << "  " << s->name << "  \"" << s->query << "\"  in "
              << s->sidebarSelectionID << ", " << s->dateFilterPresetRaw << ", " << s->sortModeRaw
              << "\n";
  }
  if (all->empty()) std::cout << "No saved searches yet.\n";
  return kExitOk;
}

struct AddOptions {
  std::string name, query, in = "all", sort = "newestFirst", date = "all", from, to, icon;
};

int RunAdd(CliSession& session, const AddOptions& o) {
  library::SavedSearchDefinition d;
  d.name = o.name;
  d.query = o.query;
  auto selection = parseSelectionOption(o.in);
  auto sort = parseSortOption(o.sort);
  auto preset = parseDateOption(o.date);
  if (!selection || !sort || !preset) return kExitUsage;
  d.sidebarSelectionID = selection->id();
  d.sortMode = *sort;
  d.datePreset = *preset;
  if (!o.from.empty() || !o.to.empty()) {
    d.datePreset = library::DateFilterPreset::custom;
    if (!o.from.empty() && !(d.dateFilterStart = parseDayOption(o.from))) return kExitUsage;
    if (!o.to.empty() && !(d.dateFilterEnd = parseDayOption(o.to))) return kExitUsage;
  }
  if (!o.icon.empty()) d.iconName = o.icon;
  if (!session.openLibrary()) return session.exitCode;
  auto created = SavedSearches::create(session.context(), d, session.platform().clock.now());
  if (!created) return Fail(created.error());
  std::cout << (*created)->id.uuidString() << "  saved \"" << (*created)->name << "\"\n";
  return kExitOk;
}

int RunOne(CliSession& session, const std::string& verb, const std::string& which,
           const std::string& newName, bool json, int64_t limit) {
  if (!session.openLibrary()) return session.exitCode;
  auto& context = session.context();
  auto search = SavedSearches::find(context, which);
  if (!search) return Fail(search.error());
  if (verb == "run") {
    auto result = SavedSearches::run(context, **search, session.platform().clock.now(), limit, 0,
                                     session.settings().showArchivedInSearch);
    if (!result) return Fail(result.error());
    printSearchResult(*result, json);
    return kExitOk;
  }
  Status s = verb == "rename" ? SavedSearches::rename(context, *search, newName)
                              : SavedSearches::remove(context, *search);
  if (!s.ok()) return Fail(s);
  std::cout << (verb == "rename" ? "Renamed." : "Deleted.") << "\n";
  return kExitOk;
}

}  // namespace

KLIPORA_COMMAND(saved_search) {
  auto* group = app.add_subcommand("saved-search", "Saved searches");
  group->require_subcommand(1);
  auto* list = group->add_subcommand("list", "List saved searches");
  auto listJson = std::make_shared<bool>(false);
  list->add_flag("--json", *listJson, "Print them as JSON");
  list->callback([&session, listJson] { session.exitCode = RunList(session, *listJson); });

  auto* add = group->add_subcommand("add", "Save a search");
  auto o = std::make_shared<AddOptions>();
  add->add_option("name", o->name, "Name shown in the sidebar")->required();
  add->add_option("query", o->query, "The search text, e.g. \"invoice tag:work\"")->required();
  add->add_option("--in", o->in, "The view it searches (default all)");
  add->add_option("--sort", o->sort, "Its order (default newestFirst)");
  add->add_option("--date", o->date, "Its date filter (default all)");
  add->add_option("--from", o->from, "Start of a custom date range (YYYY-MM-DD)");
  add->add_option("--to", o->to, "End of a custom date range, exclusive (YYYY-MM-DD)");
  add->add_option("--icon", o->icon, "Symbol name shown beside it");
  add->callback([&session, o] { session.exitCode = RunAdd(session, *o); });

  struct Verb {
    const char* verb;
    const char* help;
  };
  for (Verb v : {Verb{"run", "Run a saved search"}, Verb{"rename", "Rename a saved search"},
                    Verb{"delete", "Delete a saved search"}}) {
    auto* cmd = group->add_subcommand(v.verb, v.help);
    auto which = std::make_shared<std::string>();
    auto newName = std::make_shared<std::string>();
    auto json = std::make_shared<bool>(false);
    auto limit = std::make_shared<int64_t>(200);
    cmd->add_option("search", *which, "Its name or id")->required();
    std::string verb = v.verb;
    if (verb == "rename") cmd->add_option("new", *newName, "New name")->required();
    if (verb == "run") {
      cmd->add_flag("--json", *json, "Print the parsed query and the items as JSON");
      cmd->add_option("--limit", *limit, "Items to show (default 200)");
    }
    cmd->callback([&session, verb, which, newName, json, limit] {
      session.exitCode = RunOne(session, verb, *which, *newName, *json, *limit);
    });
  }
}

}  // namespace klipora::cli
