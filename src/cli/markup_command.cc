// klipora markup show ID / klipora markup check FILE: the saved markup edits
// of an item, and a checker for snapshot files written by hand or by tools.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <iostream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "library/screenshot_item.h"
#include "markup/markup_document.h"
#include "markup/markup_non_destructive_store.h"
#include "markup/markup_sidecar_store.h"
#include "markup/markup_snapshot_json.h"

namespace klipora::cli {
namespace {

using markup::MarkupDocument;
using markup::MarkupDocumentSnapshot;

// The snapshot in its written form, as a JSON value to embed in --json output.
nlohmann::ordered_json SnapshotJson(const std::string& text) {
  return nlohmann::ordered_json::parse(text, nullptr, /*allow_exceptions=*/false);
}

int RunShow(CliSession& session, const std::string& id, bool json) {
  if (!session.openLibrary()) return session.exitCode;
  auto uuid = UUID::Parse(id);
  if (!uuid) {
    std::cerr << "klipora: \"" << id << "\" is not an item id\n";
    return kExitUsage;
  }
  auto item = session.context().fetchByKey<library::ScreenshotItem>(uuid->uuidString());
  if (!item) {
    std::cerr << "klipora: cannot read the library: " << item.error().message() << "\n";
    return kExitFailure;
  }
  if (!*item) {
    std::cerr << "klipora: no item with id " << uuid->uuidString() << "\n";
    return kExitFailure;
  }
  FileSystem& fs = session.platform().fileSystem;
  const std::string& root = session.libraryRoot().root;
  markup::MarkupNonDestructiveStore store(fs);
  // The same check the editor makes on opening: a stale stash is cleared here too.
  auto reload = store.validatedReload(root, *uuid, (*item)->libraryPath);
  std::string sidecar = markup::MarkupSidecarStore::sidecarPath(root, *uuid);
  bool hasSidecar = fs.exists(sidecar);

  std::string text;
  if (reload) {
    auto encoded = markup::encodeSnapshot(reload->snapshot);
    if (!encoded) {
      std::cerr << "klipora: cannot print the edits: " << encoded.error().message() << "\n";
      return kExitFailure;
    }
    text = std::move(*encoded);
  }
  if (json) {
    nlohmann::ordered_json out;
    out["itemID"] = uuid->uuidString();
    out["hasEdits"] = reload.has_value();
    if (reload) {
      out["original"] = reload->rawURL;
      out["snapshot"] = SnapshotJson(text);
    }
    if (hasSidecar) out["sidecar"] = sidecar;
    printJson(out);
    return kExitOk;
  }
  if (!reload) {
    std::cout << "Item " << uuid->uuidString() << " has no markup edits to reopen.\n";
  } else {
    std::cout << "Original: " << reload->rawURL << "\n" << text;
  }
  if (hasSidecar) std::cout << "It was made from edits saved in " << sidecar << "\n";
  return kExitOk;
}

// Refs of the saved order that the opened document dropped (stale or repeated).
size_t DroppedRefs(const MarkupDocumentSnapshot& saved, const MarkupDocument& document) {
  if (!saved.layerOrder) return 0;
  size_t kept = document.layerOrder().size();
  size_t added = 0;
  for (const auto& ref : document.layerOrder()) {
    if (std::find(saved.layerOrder->begin(), saved.layerOrder->end(), ref) ==
        saved.layerOrder->end()) {
      ++added;
    }
  }
  return saved.layerOrder->size() - (kept - added);
}

int RunCheck(CliSession& session, const std::string& file) {
  std::error_code error;
  std::string path = std::filesystem::absolute(file, error).lexically_normal().string();
  if (error) path = file;
  auto snapshot = markup::readSnapshotFile(session.platform().fileSystem, path);
  if (!snapshot) {
    if (snapshot.error().code() == Status::Code::kCorruption) {
      // The message leads with the file's path.
      std::cerr << "klipora: not a valid markup snapshot: " << snapshot.error().message() << "\n";
    } else {
      std::cerr << "klipora: cannot read " << file << ": " << snapshot.error().message() << "\n";
    }
    return kExitFailure;
  }
  markup::NoPointerInput pointer;
  MarkupDocument document(*snapshot, session.platform().mainLoop, pointer);
  auto text = markup::encodeSnapshot(document.baselineSnapshot());
  if (!text) {
    std::cerr << "klipora: cannot write " << file << " back: " << text.error().message() << "\n";
    return kExitFailure;
  }
  if (size_t dropped = DroppedRefs(*snapshot, document)) {
    std::cerr << "klipora: note: layerOrder has " << dropped
              << " ref(s) to missing or repeated layers; opening drops them\n";
  }
  if (!snapshot->layerOrder) {
    std::cerr << "klipora: note: no layerOrder; the layers take the legacy order\n";
  }
  std::cout << *text;
  return kExitOk;
}

}  // namespace

KLIPORA_COMMAND(markup) {
  auto* markup = app.add_subcommand("markup", "Saved markup edits");
  markup->require_subcommand(1);

  auto* show = markup->add_subcommand(
      "show", "Print the markup snapshot that would reopen for an item, if any");
  auto id = std::make_shared<std::string>();
  auto json = std::make_shared<bool>(false);
  show->add_option("id", *id, "The item's id")->required();
  show->add_flag("--json", *json, "Print the result as JSON");
  show->callback([&session, id, json] { session.exitCode = RunShow(session, *id, *json); });

  auto* check = markup->add_subcommand(
      "check", "Check a markup snapshot file and print it in its canonical written form");
  auto file = std::make_shared<std::string>();
  check->add_option("file", *file, "The snapshot file (JSON)")->required();
  check->callback([&session, file] { session.exitCode = RunCheck(session, *file); });
}

}  // namespace klipora::cli
