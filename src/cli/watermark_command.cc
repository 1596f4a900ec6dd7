// klipora watermark list|add IMAGE --name N|rename ID NAME|delete ID: the
// watermark images that markup edits place by id, kept under the support
// folder (Watermarks.json and Watermarks/<id>.png).
#include <CLI/CLI.hpp>
#include <iostream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "cli/markup_asset_session.h"

namespace klipora::cli {
namespace {

struct WatermarkOptions {
  std::string image, name, id;
  bool json = false;
};

std::optional<UUID> ParseId(const std::string& text) {
  auto id = UUID::Parse(text);
  if (!id) std::cerr << "klipora: \"" << text << "\" is not a watermark id\n";
  return id;
}

int RunList(CliSession& session, bool json) {
  MarkupAssetSession stores(session);
  const auto& stamps = stores.watermarks.stamps();
  if (json) {
    nlohmann::ordered_json out = nlohmann::ordered_json::array();
    for (const auto& s : stamps) {
      out.push_back({{"id", s.id.uuidString()}, {"name", s.name}, {"aspectRatio", s.aspectRatio},
                     {"createdAt", formatISO8601(s.createdAt)},
                     {"image", stores.watermarks.imagePath(s.id)}});
    }
    printJson(out);
    return kExitOk;
  }
  if (stamps.empty()) std::cout << "No watermarks. Add one with `klipora watermark add IMAGE`.\n";
  for (const auto& s : stamps) std::cout << s.id.uuidString() << "  " << s.name << "\n";
  return kExitOk;
}

int RunAdd(CliSession& session, const WatermarkOptions& options) {
  auto bytes = readInputFile(session, options.image);
  if (!bytes) return kExitFailure;
  auto pixels = session.platform().imageCodec.decodePixels(
      *bytes, {PixelDecodeOptions::Format::rgba, 0});
  if (!pixels) {
    std::cerr << "klipora: " << options.image << " is not a readable image: "
              << pixels.error().message() << "\n";
    return kExitFailure;
  }
  MarkupAssetSession stores(session);
  auto stamp = stores.watermarks.add(*pixels, options.name);
  if (!stamp) {
    std::cerr << "klipora: cannot save the watermark under " << stores.watermarks.imagesDir()
              << " (see the log line above)\n";
    return kExitFailure;
  }
  if (options.json) {
    printJson({{"id", stamp->id.uuidString()}, {"name", stamp->name}});
  } else {
    std::cout << stamp->id.uuidString() << "  " << stamp->name << "\n";
  }
  return kExitOk;
}

int RunChange(CliSession& session, const WatermarkOptions& options, bool rename) {
  auto id = ParseId(options.id);
  if (!id) return kExitUsage;
  MarkupAssetSession stores(session);
  bool done = rename ? stores.watermarks.rename(*id, options.name) : stores.watermarks.remove(*id);
  if (!done) {
    std::cerr << "klipora: no watermark has the id " << id->uuidString() << "\n";
    return kExitFailure;
  }
  return kExitOk;
}

}  // namespace

KLIPORA_COMMAND(watermark) {
  auto* cmd = app.add_subcommand("watermark", "Watermark images for markup edits");
  cmd->require_subcommand(1);
  auto o = std::make_shared<WatermarkOptions>();
  auto* list = cmd->add_subcommand("list", "List the saved watermarks");
  list->add_flag("--json", o->json, "Print the list as JSON");
  list->callback([&session, o] { session.exitCode = RunList(session, o->json); });
  auto* add = cmd->add_subcommand("add", "Save an image as a watermark");
  add->add_option("image", o->image, "The image file")->required();
  add->add_option("--name", o->name, "Its name (\"Watermark\" when empty)");
  add->add_flag("--json", o->json, "Print the new watermark as JSON");
  add->callback([&session, o] { session.exitCode = RunAdd(session, *o); });
  auto* rename = cmd->add_subcommand("rename", "Rename a watermark");
  rename->add_option("id", o->id, "The watermark's id")->required();
  rename->add_option("name", o->name, "The new name")->required();
  rename->callback([&session, o] { session.exitCode = RunChange(session, *o, true); });
  auto* remove = cmd->add_subcommand("delete", "Delete a watermark and its image");
  remove->add_option("id", o->id, "The watermark's id")->required();
  remove->callback([&session, o] { session.exitCode = RunChange(session, *o, false); });
}

}  // namespace klipora::cli
