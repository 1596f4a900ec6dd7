// klipora list / klipora show ID: the items of the library.
#include <CLI/CLI.hpp>
#include <iostream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "library/record_json.h"
#include "library/screenshot_item.h"

namespace klipora::cli {
namespace {

using library::ScreenshotItem;

int RunList(CliSession& session, bool json, bool includeTrash) {
  if (!session.openLibrary()) return session.exitCode;
  library::FetchDescriptor d;
  if (!includeTrash) d.predicate = "deleted = 0 AND deletedAt IS NULL";
  d.sortBy = "importedAt DESC, id";
  auto items = session.context().fetch<ScreenshotItem>(d);
  if (!items) {
    std::cerr << "klipora: cannot read the library: " << items.error().message() << "\n";
    return kExitFailure;
  }
  if (json) {
    auto out = library::Json::array();
    for (const auto& item : *items) out.push_back(library::recordToJson(*item));
    printJson(out);
    return kExitOk;
  }
  for (const auto& item : *items) {
    std::cout << item->id.uuidString() << "  " << formatISO8601(item->importedAt) << "  "
              << item->processingStateRaw << "  " << item->originalFilename << "\n";
  }
  return kExitOk;
}

int RunShow(CliSession& session, const std::string& id, bool json) {
  if (!session.openLibrary()) return session.exitCode;
  auto uuid = UUID::Parse(id);
  if (!uuid) {
    std::cerr << "klipora: \"" << id << "\" is not an item id\n";
    return kExitUsage;
  }
  auto item = session.context().fetchByKey<ScreenshotItem>(uuid->uuidString());
  if (!item) {
    std::cerr << "klipora: cannot read the library: " << item.error().message() << "\n";
    return kExitFailure;
  }
  if (!*item) {
    std::cerr << "klipora: no item with id " << uuid->uuidString() << "\n";
    return kExitFailure;
  }
  auto record = library::recordToJson(**item);
  if (json) {
    printJson(record);
    return kExitOk;
  }
  for (const auto& [key, value] : record.items()) {
    std::cout << key << ": " << (value.is_string() ? value.get<std::string>() : value.dump())
              << "\n";
  }
  return kExitOk;
}

}  // namespace

KLIPORA_COMMAND(list) {
  auto* list = app.add_subcommand("list", "List the items of the library, newest first");
  auto json = std::make_shared<bool>(false);
  auto trash = std::make_shared<bool>(false);
  list->add_flag("--json", *json, "Print the records as JSON");
  list->add_flag("--include-trash", *trash, "Include items in the trash");
  list->callback([&session, json, trash] { session.exitCode = RunList(session, *json, *trash); });

  auto* show = app.add_subcommand("show", "Show every field of one item");
  auto id = std::make_shared<std::string>();
  auto showJson = std::make_shared<bool>(false);
  show->add_option("id", *id, "The item's id")->required();
  show->add_flag("--json", *showJson, "Print the record as JSON");
  show->callback([&session, id, showJson] { session.exitCode = RunShow(session, *id, *showJson); });
}

}  // namespace klipora::cli
