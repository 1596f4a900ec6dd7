// klipora tag list|add|remove|rename|delete|toggle: the tag catalogue and the
// tags of items. Works on the store directly; a running daemon sees the
// changes at its next read.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <iostream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "intelligence/tag_catalog_service.h"
#include "library/record_json.h"

namespace klipora::cli {
namespace {

using intelligence::TagCatalogService;

bool AskOnTerminal(const std::string& question) {
  if (!::isatty(STDIN_FILENO)) return false;
  std::cout << question << " [y/N] " << std::flush;
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

std::optional<std::vector<UUID>> ParseIDs(const std::vector<std::string>& ids) {
  std::vector<UUID> out;
  for (const auto& id : ids) {
    auto uuid = UUID::Parse(id);
    if (!uuid) {
      std::cerr << "klipora: \"" << id << "\" is not an item id\n";
      return std::nullopt;
    }
    out.push_back(*uuid);
  }
  return out;
}

// Opens the library and reconciles the catalogue (once per run).
TagCatalogService* OpenCatalog(CliSession& session) {
  static std::unique_ptr<TagCatalogService> service;
  if (!session.openLibrary()) return nullptr;
  if (!service) service = std::make_unique<TagCatalogService>(session.platform().clock);
  if (Status s = service->ensureCatalogSynced(session.context()); !s.ok()) {
    std::cerr << "klipora: cannot read the tag catalogue: " << s.message() << "\n";
    session.exitCode = kExitFailure;
    return nullptr;
  }
  return service.get();
}

int Report(const Status& s, const std::string& done) {
  if (!s.ok()) {
    std::cerr << "klipora: " << s.message() << "\n";
    return kExitFailure;
  }
  std::cout << done << "\n";
  return kExitOk;
}

int RunList(CliSession& session, bool json) {
  auto* service = OpenCatalog(session);
  if (!service) return session.exitCode;
  auto tags = service->suggestions(session.context());
  if (!tags) return Report(tags.error(), "");
  if (json) {
    auto out = library::Json::array();
    for (const auto& t : *tags) {
      out.push_back({{"id", t.id.uuidString()}, {"name", t.name},
                     {"normalizedName", t.normalizedName}, {"colorHex", t.colorHex},
                     {"count", t.count.value_or(0)}});
    }
    printJson(out);
    return kExitOk;
  }
  for (const auto& t : *tags) {
    std::cout << t.colorHex << "  " << t.count.value_or(0) << "  " << t.name << "\n";
  }
  if (tags->empty()) std::cout << "No tags yet.\n";
  return kExitOk;
}

int RunChange(CliSession& session, const std::string& verb, const std::string& name,
              const std::vector<std::string>& ids, const std::string& color) {
  auto uuids = ParseIDs(ids);
  if (!uuids) return kExitUsage;
  auto* service = OpenCatalog(session);
  if (!service) return session.exitCode;
  auto& context = session.context();
  std::optional<std::string> colorHex;
  if (!color.empty()) colorHex = color;
  if (verb == "add" && uuids->empty()) {
    auto tag = service->create(context, name, colorHex);
    if (!tag) return Report(tag.error(), "");
    return Report(Status::Ok(), "Created tag \"" + (*tag)->name + "\" (" + (*tag)->colorHex + ").");
  }
  if (verb == "add") {
    if (auto tag = service->ensureExists(context, name, colorHex); !tag) {
      return Report(tag.error(), "");
    }
    return Report(service->assign(context, name, *uuids),
                  "Tagged " + std::to_string(uuids->size()) + " item(s).");
  }
  if (verb == "remove") {
    return Report(service->remove(context, name, *uuids),
                  "Untagged " + std::to_string(uuids->size()) + " item(s).");
  }
  auto applied = service->toggle(context, name, colorHex, *uuids);
  if (!applied) return Report(applied.error(), "");
  return Report(Status::Ok(), *applied ? "Tag applied." : "Tag removed.");
}

int RunRename(CliSession& session, const std::string& from, const std::string& to,
              const std::string& color, bool yes) {
  auto* service = OpenCatalog(session);
  if (!service) return session.exitCode;
  std::optional<std::string> colorHex;
  if (!color.empty()) colorHex = color;
  auto confirm = [yes](const intelligence::TagMergeQuestion& q) {
    return yes || AskOnTerminal(q.title + ": " + q.message);
  };
  auto outcome = service->rename(session.context(), from, to, colorHex, confirm);
  if (!outcome) return Report(outcome.error(), "");
  switch (*outcome) {
    case intelligence::TagRenameOutcome::renamed:
      return Report(Status::Ok(), "Renamed.");
    case intelligence::TagRenameOutcome::merged:
      return Report(Status::Ok(), "Merged into the existing tag.");
    case intelligence::TagRenameOutcome::cancelled:
      std::cerr << "klipora: a tag with that name exists; nothing changed (confirm on a "
                   "terminal, or pass --yes to merge)\n";
      return kExitFailure;
  }
  return kExitFailure;
}

int RunDelete(CliSession& session, const std::string& name, bool yes) {
  auto* service = OpenCatalog(session);
  if (!service) return session.exitCode;
  auto usage = service->usageCount(session.context(), name);
  if (!usage) return Report(usage.error(), "");
  if (!yes && !AskOnTerminal(TagCatalogService::deleteConfirmation(*usage))) {
    std::cerr << "klipora: nothing deleted (confirm on a terminal, or pass --yes)\n";
    return kExitUsage;
  }
  return Report(service->deleteTag(session.context(), name), "Deleted.");
}

}  // namespace

KLIPORA_COMMAND(tag) {
  auto* tag = app.add_subcommand("tag", "The tag catalogue and the tags of items");
  tag->require_subcommand(1);
  auto* list = tag->add_subcommand("list", "List tags, most used first");
  auto listJson = std::make_shared<bool>(false);
  list->add_flag("--json", *listJson, "Print the tags as JSON");
  list->callback([&session, listJson] { session.exitCode = RunList(session, *listJson); });

  struct Verb {
    const char* verb;
    const char* help;
  };
  for (Verb v : {Verb{"add", "Create a tag, or put it on items"},
                    Verb{"remove", "Take a tag off items"},
                    Verb{"toggle", "Put a tag on items, or take it off when all carry it"}}) {
    auto* cmd = tag->add_subcommand(v.verb, v.help);
    auto name = std::make_shared<std::string>();
    auto ids = std::make_shared<std::vector<std::string>>();
    auto color = std::make_shared<std::string>();
    cmd->add_option("name", *name, "The tag")->required();
    auto* idOption = cmd->add_option("ids", *ids, "Item ids");
    if (std::string(v.verb) != "add") idOption->required();
    if (std::string(v.verb) != "remove") {
      cmd->add_option("--color", *color, "Colour of a new tag, like #3B82F6");
    }
    std::string verb = v.verb;
    cmd->callback([&session, verb, name, ids, color] {
      session.exitCode = RunChange(session, verb, *name, *ids, *color);
    });
  }

  auto* rename = tag->add_subcommand("rename", "Rename a tag on the catalogue and every item");
  auto from = std::make_shared<std::string>();
  auto to = std::make_shared<std::string>();
  auto color = std::make_shared<std::string>();
  auto yes = std::make_shared<bool>(false);
  rename->add_option("old", *from, "Current name")->required();
  rename->add_option("new", *to, "New name")->required();
  rename->add_option("--color", *color, "New colour, like #3B82F6");
  rename->add_flag("--yes,-y", *yes, "Merge without asking when the new name exists");
  rename->callback([&session, from, to, color, yes] {
    session.exitCode = RunRename(session, *from, *to, *color, *yes);
  });

  auto* del = tag->add_subcommand("delete", "Delete a tag from the catalogue and every item");
  auto delName = std::make_shared<std::string>();
  auto delYes = std::make_shared<bool>(false);
  del->add_option("name", *delName, "The tag")->required();
  del->add_flag("--yes,-y", *delYes, "Do not ask for confirmation");
  del->callback([&session, delName, delYes] {
    session.exitCode = RunDelete(session, *delName, *delYes);
  });
}

}  // namespace klipora::cli
