// klipora signature list|add --strokes FILE|rename ID NAME|delete ID: the
// drawn signatures that markup edits stamp by id, kept under the support
// folder (signatures.json). A strokes file is a JSON array of strokes,
// [{"points": [[x, y], …], "width": w}, …], in the pad's coordinates.
#include <CLI/CLI.hpp>
#include <iostream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "cli/markup_asset_session.h"

namespace klipora::cli {
namespace {

struct SignatureOptions {
  std::string strokes, name, id;
  bool json = false;
};

// Reads [{"points": [[x, y], …], "width": w}, …]; none (after saying why) otherwise.
std::optional<std::vector<markup::SignatureStroke>> ReadStrokes(CliSession& session,
                                                                const std::string& file) {
  auto text = readInputFile(session, file);
  if (!text) return std::nullopt;
  auto j = nlohmann::json::parse(*text, nullptr, /*allow_exceptions=*/false);
  auto bad = [&file](const std::string& why) {
    std::cerr << "klipora: " << file << ": " << why << "\n";
    return std::nullopt;
  };
  if (!j.is_array()) return bad("expected an array of strokes");
  std::vector<markup::SignatureStroke> strokes;
  for (const auto& s : j) {
    if (!s.is_object() || !s.contains("points") || !s["points"].is_array()) {
      return bad("each stroke needs \"points\": [[x, y], …]");
    }
    markup::SignatureStroke stroke;
    if (s.contains("width")) {
      if (!s["width"].is_number() || s["width"].get<double>() <= 0) {
        return bad("a stroke's \"width\" must be a positive number");
      }
      stroke.width = s["width"].get<double>();
    }
    for (const auto& p : s["points"]) {
      if (!p.is_array() || p.size() != 2 || !p[0].is_number() || !p[1].is_number()) {
        return bad("a point must be [x, y]");
      }
      stroke.points.push_back({p[0].get<double>(), p[1].get<double>()});
    }
    strokes.push_back(std::move(stroke));
  }
  return strokes;
}

int RunList(CliSession& session, bool json) {
  MarkupAssetSession stores(session);
  const auto& signatures = stores.signatures.signatures();
  if (json) {
    nlohmann::ordered_json out = nlohmann::ordered_json::array();
    for (const auto& s : signatures) {
      out.push_back({{"id", s.id.uuidString()}, {"name", s.name}, {"strokes", s.strokes.size()},
                     {"aspectRatio", s.aspectRatio}, {"createdAt", formatISO8601(s.createdAt)}});
    }
    printJson(out);
    return kExitOk;
  }
  if (signatures.empty()) std::cout << "No signatures.\n";
  for (const auto& s : signatures) {
    std::cout << s.id.uuidString() << "  " << (s.name.empty() ? "(unnamed)" : s.name) << "\n";
  }
  return kExitOk;
}

int RunAdd(CliSession& session, const SignatureOptions& options) {
  auto strokes = ReadStrokes(session, options.strokes);
  if (!strokes) return kExitFailure;
  MarkupAssetSession stores(session);
  auto signature = stores.signatures.add(std::move(*strokes), options.name);
  if (!signature) {
    std::cerr << "klipora: " << options.strokes << ": the strokes have no points\n";
    return kExitFailure;
  }
  if (options.json) {
    printJson({{"id", signature->id.uuidString()}, {"name", signature->name}});
  } else {
    std::cout << signature->id.uuidString() << "  " << signature->name << "\n";
  }
  return kExitOk;
}

int RunChange(CliSession& session, const SignatureOptions& options, bool rename) {
  auto id = UUID::Parse(options.id);
  if (!id) {
    std::cerr << "klipora: \"" << options.id << "\" is not a signature id\n";
    return kExitUsage;
  }
  MarkupAssetSession stores(session);
  bool done = rename ? stores.signatures.rename(*id, options.name) : stores.signatures.remove(*id);
  if (!done) {
    std::cerr << "klipora: no signature has the id " << id->uuidString() << "\n";
    return kExitFailure;
  }
  return kExitOk;
}

}  // namespace

KLIPORA_COMMAND(signature) {
  auto* cmd = app.add_subcommand("signature", "Drawn signatures for markup edits");
  cmd->require_subcommand(1);
  auto o = std::make_shared<SignatureOptions>();
  auto* list = cmd->add_subcommand("list", "List the saved signatures");
  list->add_flag("--json", o->json, "Print the list as JSON");
  list->callback([&session, o] { session.exitCode = RunList(session, o->json); });
  auto* add = cmd->add_subcommand("add", "Save drawn strokes as a signature");
  add->add_option("--strokes", o->strokes, "A JSON file of strokes")->required();
  add->add_option("--name", o->name, "Its name");
  add->add_flag("--json", o->json, "Print the new signature as JSON");
  add->callback([&session, o] { session.exitCode = RunAdd(session, *o); });
  auto* rename = cmd->add_subcommand("rename", "Rename a signature");
  rename->add_option("id", o->id, "The signature's id")->required();
  rename->add_option("name", o->name, "The new name")->required();
  rename->callback([&session, o] { session.exitCode = RunChange(session, *o, true); });
  auto* remove = cmd->add_subcommand("delete", "Delete a signature");
  remove->add_option("id", o->id, "The signature's id")->required();
  remove->callback([&session, o] { session.exitCode = RunChange(session, *o, false); });
}

}  // namespace klipora::cli
