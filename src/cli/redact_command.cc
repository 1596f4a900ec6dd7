// klipora redact IMAGE: finds what should be hidden in a screenshot (personal
// data and secrets in its text, optionally every line of text, faces and
// people) and prints where it is.
#include <CLI/CLI.hpp>
#include <cairo.h>

#include <iostream>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "markup/redact/markup_auto_redactor.h"
#include "markup/redact/markup_image_detectors.h"
#include "markup/redact/markup_redaction_layers.h"
#include "markup/render/markup_renderer.h"
#include "processing/ocr_service.h"

namespace klipora::cli {
namespace {

using markup::MarkupAutoRedactor;

struct RedactOptions {
  std::string image;
  bool pii = false;
  bool allText = false;
  bool faces = false;
  bool people = false;
  bool qr = false;
  bool json = false;
  bool apply = false;
  std::string output;  // the rendered PNG, with --apply
  markup::HumanRedactionStyle humanStyle = markup::HumanRedactionStyle::blur;
};

std::optional<std::string> Read(CliSession& session, const std::string& path) {
  auto bytes = session.platform().fileSystem.readFile(path);
  if (!bytes) {
    std::cerr << "klipora: cannot read " << path << ": " << bytes.error().message() << "\n";
    return std::nullopt;
  }
  return std::move(*bytes);
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

// Cairo writes the PNG; its stream callback appends to a string.
cairo_status_t AppendPng(void* closure, const unsigned char* data, unsigned int length) {
  static_cast<std::string*>(closure)->append(reinterpret_cast<const char*>(data), length);
  return CAIRO_STATUS_SUCCESS;
}

// Covers the detections with redaction layers of a document over the image
// (one undo step, as the editor does), blurs the QR codes, and writes the
// rendered PNG to options.output.
int ApplyRedactions(CliSession& session, const RedactOptions& options, const std::string& bytes,
                    const std::vector<MarkupAutoRedactor::Detection>& found,
                    const std::vector<markup::MarkupQRDetector::Detection>& codes) {
  PixelDecodeOptions rgba;
  rgba.format = PixelDecodeOptions::Format::rgba;
  auto pixels = session.platform().imageCodec.decodePixels(bytes, rgba);
  if (!pixels) {
    std::cerr << "klipora: " << options.image << ": cannot decode the image: "
              << pixels.error().message() << "\n";
    return kExitFailure;
  }
  auto source = markup::MarkupImage::fromPixels(*pixels);
  if (!source) {
    std::cerr << "klipora: " << options.image << ": the image is too large to draw on\n";
    return kExitFailure;
  }
  markup::NoPointerInput pointer;
  markup::MarkupDocument document(
      UUID::Random(),
      markup::Size{static_cast<double>(pixels->width), static_cast<double>(pixels->height)},
      session.platform().clock.now(), session.platform().mainLoop, pointer);
  markup::applyRedactions(document, found, options.humanStyle);
  markup::applyQRBlur(document, codes);
  markup::MarkupRenderer renderer(session.platform().imageCodec);
  auto rendered = renderer.render(document, *source);
  if (!rendered) {
    std::cerr << "klipora: cannot render the redacted image: " << rendered.error().message()
              << "\n";
    return kExitFailure;
  }
  std::string png;
  if (cairo_surface_write_to_png_stream(rendered->surface(), AppendPng, &png) !=
      CAIRO_STATUS_SUCCESS) {
    std::cerr << "klipora: cannot encode the redacted image as PNG\n";
    return kExitFailure;
  }
  if (Status s = session.platform().fileSystem.writeFileAtomically(options.output, png);
      !s.ok()) {
    std::cerr << "klipora: cannot write " << options.output << ": " << s.message() << "\n";
    return kExitFailure;
  }
  return kExitOk;
}

int RunRedact(CliSession& session, const RedactOptions& options) {
  auto bytes = Read(session, options.image);
  if (!bytes) return kExitFailure;
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
  if (!options.json) std::cerr << "Scanning " << options.image << "…\n";
  auto found = redactor.detect(*bytes, detection);
  if (!found) {
    std::cerr << "klipora: " << options.image << ": " << found.error().errorDescription() << "\n";
    if (!found.error().message.empty() &&
        found.error().kind != MarkupAutoRedactor::DetectError::Case::visionFailed) {
      std::cerr << "  (" << found.error().message << ")\n";
    }
    return kExitFailure;
  }
  std::vector<markup::MarkupQRDetector::Detection> codes;
  if (options.qr) {
    auto pixels = Decode(session, options.image, *bytes);
    if (!pixels) return kExitFailure;
    auto qr = markup::MarkupQRDetector(session.platform().imageDetector).detect(*pixels);
    if (!qr) {
      std::cerr << "klipora: " << options.image << ": " << qr.error().errorDescription() << "\n"
                << "  (" << qr.error().detail << ")\n";
      return kExitFailure;
    }
    codes = std::move(*qr);
  }
  if (options.apply) {
    int code = ApplyRedactions(session, options, *bytes, *found, codes);
    if (code != kExitOk) return code;
    if (!options.json) {
      size_t count = found->size() + codes.size();
      std::cout << "Covered " << count << (count == 1 ? " place" : " places") << " in "
                << options.output << "\n";
      return kExitOk;
    }
  }
  if (options.json) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const auto& d : *found) list.push_back(DetectionJson(d));
    for (const auto& code : codes) list.push_back(CodeJson(code));
    printJson({{"detections", std::move(list)}});
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
  size_t count = found->size() + codes.size();
  std::cout << count << (count == 1 ? " detection" : " detections") << "\n";
  return kExitOk;
}

int RunStraighten(CliSession& session, const std::string& image, bool json) {
  auto bytes = Read(session, image);
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
  cmd->add_option("IMAGE", options->image, "Image file")->required();
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
  cmd->add_option("--human-style", options->humanStyle,
                  "How --apply covers faces and people: blur (default) or solid")
      ->transform(CLI::CheckedTransformer(
          std::map<std::string, markup::HumanRedactionStyle>{
              {"blur", markup::HumanRedactionStyle::blur},
              {"solid", markup::HumanRedactionStyle::solid}}));
  cmd->callback([&session, options] {
    if (options->apply && options->output.empty()) {
      std::cerr << "klipora: --apply needs -o OUT.png\n";
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
