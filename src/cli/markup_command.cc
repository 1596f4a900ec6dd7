// klipora markup show ID / check FILE / render / commit: the saved markup
// edits of an item, a checker for snapshot files written by hand or by tools,
// a snapshot rendered over any image, and an edit committed to an item.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <iostream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "cli/daemon_client.h"
#include "cli/markup_asset_session.h"
#include "library/screenshot_item.h"
#include "markup/markup_document.h"
#include "markup/markup_non_destructive_store.h"
#include "markup/markup_sidecar_store.h"
#include "markup/markup_snapshot_json.h"
#include "markup/render/markup_export_service.h"

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

Result<MarkupDocumentSnapshot> ReadSnapshot(CliSession& session, const std::string& file) {
  auto snapshot =
      markup::readSnapshotFile(session.platform().fileSystem, session.platform().absolutePath(file));
  if (!snapshot) {
    std::cerr << "klipora: cannot read the snapshot " << file << ": "
              << snapshot.error().message() << "\n";
  }
  return snapshot;
}

struct RenderOptions {
  std::string snapshot, image, output;
  bool json = false;
};

int RunRender(CliSession& session, const RenderOptions& options) {
  auto snapshot = ReadSnapshot(session, options.snapshot);
  if (!snapshot) return kExitFailure;
  auto bytes = readInputFile(session, options.image);
  if (!bytes) return kExitFailure;
  FileSystem& fs = session.platform().fileSystem;
  MarkupAssetSession stores(session);
  markup::MarkupExportService exporter(session.platform().imageCodec, &stores.assets);
  auto source = exporter.decode(*bytes);
  if (!source) {
    std::cerr << "klipora: " << options.image << " is not a readable image: "
              << source.error().message() << "\n";
    return kExitFailure;
  }
  auto rendered = exporter.render(*snapshot, *source);
  if (!rendered) {
    std::cerr << "klipora: " << rendered.error().message() << "\n";
    return kExitFailure;
  }
  auto png = exporter.encodePng(*rendered);
  std::string output = session.platform().absolutePath(options.output);
  Status written = png ? fs.writeFileAtomically(output, *png) : Status(png.error());
  if (!written.ok()) {
    std::cerr << "klipora: cannot write " << options.output << ": " << written.message() << "\n";
    return kExitFailure;
  }
  if (options.json) {
    printJson({{"output", output}, {"width", rendered->width()}, {"height", rendered->height()}});
  } else {
    std::cout << "Wrote " << output << " (" << rendered->width() << "x" << rendered->height()
              << ")\n";
  }
  return kExitOk;
}

struct CommitOptions {
  std::string id, snapshot;
  bool overwrite = false, newItem = false, json = false;
};

int RunCommit(CliSession& session, const CommitOptions& options) {
  if (options.overwrite == options.newItem) {
    std::cerr << "klipora: markup commit needs exactly one of --overwrite and --new-item\n";
    return kExitUsage;
  }
  if (!UUID::Parse(options.id)) {
    std::cerr << "klipora: \"" << options.id << "\" is not an item id\n";
    return kExitUsage;
  }
  auto snapshot = ReadSnapshot(session, options.snapshot);
  if (!snapshot) return kExitFailure;
  auto text = markup::encodeSnapshot(*snapshot);
  if (!text) {
    std::cerr << "klipora: cannot send the snapshot: " << text.error().message() << "\n";
    return kExitFailure;
  }
  auto request = app::makeRequest("markup-commit");
  request["id"] = options.id;
  request["destination"] = options.overwrite ? "overwriteOriginal" : "newSibling";
  request["snapshot"] = app::Json::parse(*text);
  auto result = runLibraryRequest(session, request, 120);
  if (!result) return session.exitCode;
  const auto& reply = result->reply;
  if (!reply.value("ok", false)) {
    std::cerr << "klipora: " << replyError(reply) << "\n";
    return kExitFailure;
  }
  if (options.json) {
    printJson(reply);
    return kExitOk;
  }
  if (options.overwrite) {
    std::cout << "Item " << reply.value("newItemID", "") << " now shows the edit; its original "
              << "is kept and the edit reopens with every layer.\n";
  } else {
    std::cout << "New item " << reply.value("newItemID", "") << " holds the edit ("
              << reply.value("url", "") << ").\n";
  }
  if (!reply.value("queued", false)) {
    std::cout << "Its text and category are read again when `klipora run` starts.\n";
  }
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

  auto* render = markup->add_subcommand("render", "Render a snapshot over an image into a PNG");
  auto r = std::make_shared<RenderOptions>();
  render->add_option("--snapshot", r->snapshot, "The snapshot file (JSON)")->required();
  render->add_option("--image", r->image, "The image to draw on")->required();
  render->add_option("-o,--output", r->output, "The PNG file to write")->required();
  render->add_flag("--json", r->json, "Print the result as JSON");
  render->callback([&session, r] { session.exitCode = RunRender(session, *r); });

  auto* commit = markup->add_subcommand(
      "commit", "Commit an edit to an item: in place (original kept) or as a new item");
  auto c = std::make_shared<CommitOptions>();
  commit->add_option("id", c->id, "The item's id")->required();
  commit->add_option("--snapshot", c->snapshot, "The snapshot file (JSON)")->required();
  commit->add_flag("--overwrite", c->overwrite, "Replace the item's image, keeping its original");
  commit->add_flag("--new-item", c->newItem, "Save the result as a new item made from this one");
  commit->add_flag("--json", c->json, "Print the result as JSON");
  commit->callback([&session, c] { session.exitCode = RunCommit(session, *c); });
}

}  // namespace klipora::cli
