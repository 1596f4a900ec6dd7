// klipora markup remove-background / cutout: the subject of an image kept on a
// transparent background, or lifted from a selection as a sticker's PNG.
// These join the `markup` command, which registers before this file does
// (commands register in name order).
#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>

#include "cli/cli_session.h"
#include "cli/command_registry.h"
#include "cli/markup_asset_session.h"
#include "markup/render/markup_export_service.h"
#include "markup/render/markup_subject_segmentation.h"

namespace klipora::cli {
namespace {

struct SubjectOptions {
  std::string image, output, rect;
  bool json = false;
};

// "X,Y,W,H" in image pixels.
std::optional<markup::Rect> ParseRect(const std::string& text) {
  double x = 0, y = 0, w = 0, h = 0;
  char end = 0;
  if (std::sscanf(text.c_str(), "%lf,%lf,%lf,%lf%c", &x, &y, &w, &h, &end) != 4) {
    return std::nullopt;
  }
  if (!std::isfinite(x) || !std::isfinite(y) || !std::isfinite(w) || !std::isfinite(h)) {
    return std::nullopt;
  }
  return markup::Rect::make(x, y, w, h);
}

// The input decoded as the picture is seen; none after saying why not.
std::optional<markup::MarkupImage> ReadImage(CliSession& session, const std::string& file) {
  auto bytes = readInputFile(session, file);
  if (!bytes) return std::nullopt;
  markup::MarkupExportService decoder(session.platform().imageCodec);
  auto image = decoder.decode(*bytes);
  if (!image) {
    std::cerr << "klipora: " << file << " is not a readable image: " << image.error().message()
              << "\n";
    return std::nullopt;
  }
  return std::move(*image);
}

int WriteResult(CliSession& session, const SubjectOptions& options, const std::string& png) {
  std::string output = session.platform().absolutePath(options.output);
  Status written = session.platform().fileSystem.writeFileAtomically(output, png);
  if (!written.ok()) {
    std::cerr << "klipora: cannot write " << options.output << ": " << written.message() << "\n";
    return kExitFailure;
  }
  if (options.json) {
    printJson({{"output", output}});
  } else {
    std::cout << "Wrote " << output << "\n";
  }
  return kExitOk;
}

int RunRemoveBackground(CliSession& session, const SubjectOptions& options) {
  auto image = ReadImage(session, options.image);
  if (!image) return kExitFailure;
  auto removal =
      markup::MarkupBackgroundRemover::removeBackground(session.platform().imageCodec, *image);
  if (!removal) {
    std::cerr << "klipora: " << options.image << ": " << removal.error().errorDescription()
              << "\n";
    return kExitFailure;
  }
  return WriteResult(session, options, removal->maskedImageData->data);
}

int RunCutout(CliSession& session, const SubjectOptions& options) {
  auto selection = ParseRect(options.rect);
  if (!selection) {
    std::cerr << "klipora: --rect wants X,Y,W,H in image pixels, not \"" << options.rect
              << "\"\n";
    return kExitUsage;
  }
  auto image = ReadImage(session, options.image);
  if (!image) return kExitFailure;
  auto cutout =
      markup::MarkupCutoutExtractor::extract(session.platform().imageCodec, *image, *selection);
  if (!cutout) {
    std::cerr << "klipora: " << options.image << ": " << cutout.error().errorDescription() << "\n";
    return kExitFailure;
  }
  return WriteResult(session, options, cutout->data);
}

}  // namespace

KLIPORA_COMMAND(markup_image) {
  CLI::App* markup = app.get_subcommand("markup");

  auto* remove = markup->add_subcommand(
      "remove-background", "Keep an image's subject on a transparent background (PNG)");
  auto r = std::make_shared<SubjectOptions>();
  remove->add_option("image", r->image, "The image")->required();
  remove->add_option("-o,--output", r->output, "The PNG file to write")->required();
  remove->add_flag("--json", r->json, "Print the result as JSON");
  remove->callback([&session, r] { session.exitCode = RunRemoveBackground(session, *r); });

  auto* cutout = markup->add_subcommand(
      "cutout", "Lift the subject inside a selection as a sticker (PNG the selection's size)");
  auto c = std::make_shared<SubjectOptions>();
  cutout->add_option("image", c->image, "The image")->required();
  cutout->add_option("--rect", c->rect, "The selection: X,Y,W,H in image pixels")->required();
  cutout->add_option("-o,--output", c->output, "The PNG file to write")->required();
  cutout->add_flag("--json", c->json, "Print the result as JSON");
  cutout->callback([&session, c] { session.exitCode = RunCutout(session, *c); });
}

}  // namespace klipora::cli
