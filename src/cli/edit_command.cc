// klipora edit ID… [--title TEXT] [--note TEXT] [--category NAME]: the
// user's own title, note and category of items. An empty text takes the
// user's title or note away; --category auto takes the user's category away,
// so that the one classification chose shows again.
#include <CLI/CLI.hpp>
#include <iostream>
#include <optional>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "library/screenshot_item.h"

namespace klipora::cli {
namespace {

struct Edit {
  std::vector<std::string> ids;
  std::optional<std::string> title;
  std::optional<std::string> note;
  std::optional<std::string> category;
};

std::string CategoryNames() {
  std::string names;
  for (auto c : library::kAllScreenshotCategories) {
    names += std::string(names.empty() ? "" : ", ") + std::string(library::rawValue(c));
  }
  return names;
}

std::optional<std::string> Text(const std::optional<std::string>& given) {
  if (!given || given->empty()) return std::nullopt;
  return given;
}

int RunEdit(CliSession& session, const Edit& edit) {
  if (!edit.title && !edit.note && !edit.category) {
    std::cerr << "klipora: say what to change: --title, --note or --category\n";
    return kExitUsage;
  }
  std::optional<library::ScreenshotCategory> category;
  if (edit.category && *edit.category != "auto") {
    category = library::fromRaw<library::ScreenshotCategory>(*edit.category);
    if (!category) {
      std::cerr << "klipora: \"" << *edit.category << "\" is not a category (" << CategoryNames()
                << ", or auto)\n";
      return kExitUsage;
    }
  }
  auto fetched = fetchItems(session, edit.ids);
  if (!fetched) return session.exitCode;
  auto& items = *fetched;
  auto& context = session.context();
  for (auto& item : items) {
    if (edit.title) item->userTitle = Text(edit.title);
    if (edit.note) item->userNote = Text(edit.note);
    if (edit.category) item->userCategory = category;
  }
  if (Status s = context.save(); !s.ok()) {
    context.rollback();
    std::cerr << "klipora: nothing changed: " << s.message() << "\n";
    return kExitFailure;
  }
  for (const auto& item : items) {
    std::cout << item->id.uuidString() << "  " << item->displayTitle() << "  ("
              << library::rawValue(item->effectiveCategory()) << ")\n";
  }
  return kExitOk;
}

}  // namespace

KLIPORA_COMMAND(edit) {
  auto* cmd = app.add_subcommand("edit", "Give items your own title, note or category");
  auto edit = std::make_shared<Edit>();
  cmd->add_option("ids", edit->ids, "Item ids")->required();
  cmd->add_option("--title", edit->title, "Your title (\"\" shows the automatic one again)");
  cmd->add_option("--note", edit->note, "A note (\"\" removes it)");
  cmd->add_option("--category", edit->category,
                  "A built-in category (" + CategoryNames() + "), or auto for the one chosen "
                  "by classification");
  cmd->callback([&session, edit] { session.exitCode = RunEdit(session, *edit); });
}

}  // namespace klipora::cli
