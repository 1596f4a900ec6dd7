// klipora redact IMAGE | --item ID: finds what should be hidden in a
// screenshot (personal data and secrets in its text, optionally every line of
// text, faces, people and QR codes) and prints where it is; --apply writes the
// image with all of it covered, --commit covers it in a library item as an
// edit (its original kept, the edit reopening with every layer).
#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "cli/daemon_client.h"
#include "cli/markup_asset_session.h"
#include "library/screenshot_item.h"
#include "markup/markup_non_destructive_store.h"
#include "markup/markup_snapshot_json.h"
#include "markup/redact/markup_auto_redactor.h"
#include "markup/redact/markup_image_detectors.h"
#include "markup/redact/markup_redaction_layers.h"
#include "markup/render/markup_export_service.h"
#include "processing/ocr_service.h"

namespace klipora::cli {
namespace {

using markup::MarkupAutoRedactor;

struct RedactOptions {
  std::string image;
  std::string item;  // an item's id, instead of an image file
  bool pii = false;
  bool allText = false;
  bool faces = false;
  bool people = false;
  bool qr = false;
  bool json = false;
  bool apply = false;
  bool commit = false;  // with --item
  std::string output;  // the rendered PNG, with --apply
  markup::HumanRedactionStyle humanStyle = markup::HumanRedactionStyle::blur;
};

// What is redacted: the image's bytes, its name in messages and, for a
// library item, its id and the edits an earlier commit left on it (their
// layers are kept; the image is then the item's original).
struct RedactSource {
  std::string bytes;
  std::string name;
  std::optional<UUID> itemID;
  std::optional<markup::MarkupDocumentSnapshot> edits;
};

// The item's image and edits; none after saying why not (exit code set).
std::optional<RedactSource> SourceFromItem(CliSession& session, const std::string& id) {
  auto uuid = UUID::Parse(id);
  if (!uuid) {
    std::cerr << "klipora: \"" << id << "\" is not an item id\n";
    session.exitCode = kExitUsage;
    return std::nullopt;
  }
  session.exitCode = kExitFailure;
  if (!session.openLibrary()) return std::nullopt;
  auto item = session.context().fetchByKey<library::ScreenshotItem>(uuid->uuidString());
  if (!item) {
    std::cerr << "klipora: cannot read the library: " << item.error().message() << "\n";
    return std::nullopt;
  }
  if (!*item || (*item)->isTrashed()) {
    std::cerr << "klipora: no item with id " << uuid->uuidString() << "\n";
    return std::nullopt;
  }
  RedactSource source;
  source.itemID = *uuid;
  source.name = (*item)->libraryPath;
  markup::MarkupNonDestructiveStore store(session.platform().fileSystem);
  if (auto reload = store.validatedReload(session.libraryRoot().root, *uuid,
                                          (*item)->libraryPath)) {
    source.name = reload->rawURL;
    source.edits = std::move(reload->snapshot);
  }
  auto bytes = session.platform().fileSystem.readFile(source.name);
  if (!bytes) {
    std::cerr << "klipora: cannot read " << source.name << ": " << bytes.error().message()
              << "\n";
    return std::nullopt;
  }
  source.bytes = std::move(*bytes);
  session.exitCode = kExitOk;
  return source;
}

// Grey pixels, enough for every detector.
std::optional<PixelImage> Decode(CliSession& session, const std::string& path,
                                 const std::string& bytes) {
  auto pixels = session.platform().imageCodec.decodePixels(bytes, {});
  if (!pixels) {
    std::cerr << "klipora: " << path << ": cannot decode the image: " << pixels.error().message()
              << "\n";
    return std::nullopt;
  }
  return std::move(*pixels);
}

nlohmann::ordered_json FrameJson(const markup::Rect& f) {
  return {{f.minX(), f.minY()}, {f.size.width, f.size.height}};
}

nlohmann::ordered_json DetectionJson(const MarkupAutoRedactor::Detection& d) {
  return {{"kind", MarkupAutoRedactor::kindName(d.kind)},
          {"frame", FrameJson(d.frame)},
          {"snippet", d.snippet}};
}

// A QR code as a detection of its own kind, its payload as the snippet.
nlohmann::ordered_json CodeJson(const markup::MarkupQRDetector::Detection& code) {
  return {{"kind", "qrCode"}, {"frame", FrameJson(code.frame)}, {"snippet", code.payload}};
}

struct RedactedDocument {
  markup::MarkupDocumentSnapshot snapshot;
  size_t added = 0;  // layers added (none where the item's edits cover a place already)
};

// The source's document with every detection covered by a redaction layer
// (one undo step, as the editor does) and every QR code blurred: the item's
// earlier edits when it has them, else an empty document over the image.
RedactedDocument Redacted(
    CliSession& session, const RedactSource& source, const markup::MarkupImage& image,
    const RedactOptions& options, const std::vector<MarkupAutoRedactor::Detection>& found,
    const std::vector<markup::MarkupQRDetector::Detection>& codes) {
  markup::NoPointerInput pointer;
  Timers& timers = session.platform().mainLoop;
  std::unique_ptr<markup::MarkupDocument> document =
      source.edits
          ? std::make_unique<markup::MarkupDocument>(*source.edits, timers, pointer)
          : std::make_unique<markup::MarkupDocument>(
                source.itemID.value_or(UUID::Random()),
                markup::Size{static_cast<double>(image.width()),
                             static_cast<double>(image.height())},
                session.platform().clock.now(), timers, pointer);
  size_t added = markup::applyRedactions(*document, found, options.humanStyle);
  added += markup::applyQRBlur(*document, codes);
  return {document->snapshot(session.platform().clock.now()), added};
}

// Renders the redacted image and writes it to options.output as PNG.
int WriteRedacted(CliSession& session, const RedactOptions& options,
                  markup::MarkupExportService& exporter, const markup::MarkupImage& image,
                  const markup::MarkupDocumentSnapshot& snapshot) {
  auto png = exporter.renderPng(snapshot, image);
  if (!png) {
    std::cerr << "klipora: cannot render the redacted image: " << png.error().message() << "\n";
    return kExitFailure;
  }
  if (Status s = session.platform().fileSystem.writeFileAtomically(
          session.platform().absolutePath(options.output), *png);
      !s.ok()) {
    std::cerr << "klipora: cannot write " << options.output << ": " << s.message() << "\n";
    return kExitFailure;
  }
  return kExitOk;
}

// Commits the redacted document to the item in place, through the daemon
// when one runs; `reply` receives its answer.
int CommitRedacted(CliSession& session, const RedactSource& source,
                   const markup::MarkupDocumentSnapshot& snapshot, app::Json* reply) {
  auto text = markup::encodeSnapshot(snapshot);
  if (!text) {
    std::cerr << "klipora: cannot send the edit: " << text.error().message() << "\n";
    return kExitFailure;
  }
  auto request = app::makeRequest("markup-commit");
  request["id"] = source.itemID->uuidString();
  request["destination"] = "overwriteOriginal";
  request["snapshot"] = app::Json::parse(*text);
  auto result = runLibraryRequest(session, request, 120);
  if (!result) return session.exitCode;
  if (!result->reply.value("ok", false)) {
    std::cerr << "klipora: item " << source.itemID->uuidString()
              << " was left unchanged: " << replyError(result->reply) << "\n";
    return kExitFailure;
  }
  *reply = result->reply;
  return kExitOk;
}

// --apply and --commit: the redacted document, written out or committed.
int Cover(CliSession& session, const RedactOptions& options, const RedactSource& source,
          const std::vector<MarkupAutoRedactor::Detection>& found,
          const std::vector<markup::MarkupQRDetector::Detection>& codes, app::Json* committed) {
  MarkupAssetSession stores(session);
  markup::MarkupExportService exporter(session.platform().imageCodec, &stores.assets);
  auto image = exporter.decode(source.bytes);
  if (!image) {
    std::cerr << "klipora: " << source.name << ": cannot decode the image: "
              << image.error().message() << "\n";
    return kExitFailure;
  }
  RedactedDocument redacted = Redacted(session, source, *image, options, found, codes);
  if (options.apply) {
    int code = WriteRedacted(session, options, exporter, *image, redacted.snapshot);
    if (code != kExitOk) return code;
  }
  // Nothing new to cover leaves the item as it is.
  if (options.commit && redacted.added > 0) {
    return CommitRedacted(session, source, redacted.snapshot, committed);
  }
  return kExitOk;
}

int RunRedact(CliSession& session, const RedactOptions& options) {
  std::optional<RedactSource> source;
  if (!options.item.empty()) {
    source = SourceFromItem(session, options.item);
    if (!source) return session.exitCode;
  } else {
    auto bytes = readInputFile(session, options.image);
    if (!bytes) return kExitFailure;
    source = RedactSource{std::move(*bytes), options.image, std::nullopt, std::nullopt};
  }
  const std::string& name = source->name;
  const std::string* bytes = &source->bytes;
  UserDefaults defaults(session.platform().fileSystem, session.paths().defaultsPath);
  if (Status s = defaults.load(); !s.ok()) std::cerr << "klipora: " << s.message() << "\n";
  processing::OCRServiceConfig config;
  config.languages = processing::recognitionLanguages(defaults);
  config.engineCount = 1;
  processing::OCRService ocr(session.platform().ocrEngines, session.platform().imageCodec,
                             session.platform().clock, config);
  MarkupAutoRedactor redactor(ocr, session.platform().imageCodec,
                              &session.platform().imageDetector);

  MarkupAutoRedactor::DetectionOptions detection;
  // Personal data and secrets unless something else was asked for.
  detection.includePII =
      options.pii || !(options.allText || options.faces || options.people || options.qr);
  detection.includeAllText = options.allText;
  detection.includeFaces = options.faces;
  detection.includePeople = options.people;
  if (!options.json) std::cerr << "Scanning " << name << "…\n";
  auto found = redactor.detect(*bytes, detection);
  if (!found) {
    std::cerr << "klipora: " << name << ": " << found.error().errorDescription() << "\n";
    if (!found.error().message.empty() &&
        found.error().kind != MarkupAutoRedactor::DetectError::Case::visionFailed) {
      std::cerr << "  (" << found.error().message << ")\n";
    }
    return kExitFailure;
  }
  std::vector<markup::MarkupQRDetector::Detection> codes;
  if (options.qr) {
    auto pixels = Decode(session, name, *bytes);
    if (!pixels) return kExitFailure;
    auto qr = markup::MarkupQRDetector(session.platform().imageDetector).detect(*pixels);
    if (!qr) {
      std::cerr << "klipora: " << name << ": " << qr.error().errorDescription() << "\n"
                << "  (" << qr.error().detail << ")\n";
      return kExitFailure;
    }
    codes = std::move(*qr);
  }
  app::Json committed;
  if (options.apply || options.commit) {
    if (int code = Cover(session, options, *source, *found, codes, &committed); code != kExitOk) {
      return code;
    }
  }
  const size_t count = found->size() + codes.size();
  if (options.json) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const auto& d : *found) list.push_back(DetectionJson(d));
    for (const auto& code : codes) list.push_back(CodeJson(code));
    nlohmann::ordered_json out = {{"detections", std::move(list)}};
    if (options.apply) out["output"] = session.platform().absolutePath(options.output);
    if (options.commit) {
      out["itemID"] = source->itemID->uuidString();
      out["committed"] = committed.is_object();
      if (committed.is_object()) {
        out["url"] = committed.value("url", "");
        out["queued"] = committed.value("queued", false);  // read again by a running daemon
      }
    }
    printJson(out);
    return kExitOk;
  }
  if (options.apply || options.commit) {
    if (options.apply) {
      std::cout << "Covered " << count << (count == 1 ? " place" : " places") << " in "
                << options.output << "\n";
    }
    if (options.commit && !committed.is_object()) {
      std::cout << "Nothing new to redact: item " << source->itemID->uuidString()
                << " is unchanged.\n";
    } else if (options.commit) {
      std::cout << "Item " << source->itemID->uuidString() << " now shows " << count
                << (count == 1 ? " place" : " places")
                << " covered; its original is kept and the edit reopens with every layer.\n";
      if (!committed.value("queued", false)) {
        std::cout << "Its text and category are read again when `klipora run` starts.\n";
      }
    }
    return kExitOk;
  }
  for (const auto& d : *found) {
    const markup::Rect& f = d.frame;
    std::cout << MarkupAutoRedactor::kindName(d.kind) << "\t" << f.minX() << "," << f.minY()
              << " " << f.size.width << "x" << f.size.height;
    if (!d.snippet.empty()) std::cout << "\t" << d.snippet;
    std::cout << "\n";
  }
  for (const auto& code : codes) {
    const markup::Rect& f = code.frame;
    std::cout << "qrCode\t" << f.minX() << "," << f.minY() << " " << f.size.width << "x"
              << f.size.height << "\t" << code.payload << "\n";
  }
  std::cout << count << (count == 1 ? " detection" : " detections") << "\n";
  return kExitOk;
}

int RunStraighten(CliSession& session, const std::string& image, bool json) {
  auto bytes = readInputFile(session, image);
  if (!bytes) return kExitFailure;
  auto pixels = Decode(session, image, *bytes);
  if (!pixels) return kExitFailure;
  auto degrees = markup::MarkupSmartStraightenDetector(session.platform().imageDetector)
                     .detect(*pixels);
  if (!degrees) {
    std::cerr << "klipora: " << image << ": " << degrees.error().errorDescription() << "\n"
              << "  (" << degrees.error().detail << ")\n";
    return kExitFailure;
  }
  if (json) {
    printJson({{"straightenDegrees", *degrees}});
  } else {
    std::cout << *degrees << "\n";
  }
  return kExitOk;
}

}  // namespace

KLIPORA_COMMAND(redact) {
  auto options = std::make_shared<RedactOptions>();
  auto* cmd = app.add_subcommand(
      "redact", "Find personal data, secrets, text, faces or people to hide in an image");
  cmd->add_option("IMAGE", options->image, "Image file");
  cmd->add_option("--item", options->item, "A library item's id, instead of an image file");
  cmd->add_flag("--pii", options->pii,
                "Personal data and secrets: e-mail addresses, phone, card numbers, IP "
                "addresses, keys and tokens (the default)");
  cmd->add_flag("--all-text", options->allText, "Every line of text");
  cmd->add_flag("--faces", options->faces, "Faces");
  cmd->add_flag("--people", options->people, "People");
  cmd->add_flag("--qr", options->qr, "QR codes (their text as the snippet)");
  cmd->add_flag("--json", options->json,
                "Print {\"detections\": [{\"kind\", \"frame\": [[x, y], [w, h]], \"snippet\"}]}");
  cmd->add_flag("--apply", options->apply,
                "Write the image with every detection covered (text by black bars) to -o");
  cmd->add_option("-o,--output", options->output, "The redacted PNG, with --apply");
  cmd->add_flag("--commit", options->commit,
                "With --item: cover every detection in the item itself, as an edit (its "
                "original is kept)");
  cmd->add_option("--human-style", options->humanStyle,
                  "How --apply covers faces and people: blur (default) or solid")
      ->transform(CLI::CheckedTransformer(
          std::map<std::string, markup::HumanRedactionStyle>{
              {"blur", markup::HumanRedactionStyle::blur},
              {"solid", markup::HumanRedactionStyle::solid}}));
  cmd->callback([&session, options] {
    const char* misuse = nullptr;
    if (options->image.empty() == options->item.empty()) {
      misuse = "klipora: redact needs an IMAGE or --item ID (one of them)\n";
    } else if (options->apply && options->output.empty()) {
      misuse = "klipora: --apply needs -o OUT.png\n";
    } else if (options->commit && options->item.empty()) {
      misuse = "klipora: --commit needs --item ID\n";
    }
    if (misuse != nullptr) {
      std::cerr << misuse;
      session.exitCode = kExitUsage;
      return;
    }
    session.exitCode = RunRedact(session, *options);
  });

  auto image = std::make_shared<std::string>();
  auto json = std::make_shared<bool>(false);
  auto* straighten = app.add_subcommand(
      "straighten", "Propose the degrees that level an image's tilted content (0 when upright)");
  straighten->add_option("IMAGE", *image, "Image file")->required();
  straighten->add_flag("--json", *json, "Print {\"straightenDegrees\": degrees}");
  straighten->callback(
      [&session, image, json] { session.exitCode = RunStraighten(session, *image, *json); });
}

}  // namespace klipora::cli
