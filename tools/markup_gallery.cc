// markup_gallery SNAPSHOT_DIR OUT_DIR: renders every snapshot of the gallery
// (tests/data/markup/gallery, one per layer kind and whole-image setting) over
// a made-up application screenshot and writes OUT_DIR/<name>.png, to be
// looked at. `make gallery` runs it into build/gallery.
#include <cairo.h>
#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>

#include "markup/markup_snapshot_json.h"
#include "markup/render/markup_export_service.h"
#include "markup/render/markup_layer_drawing.h"
#include "platform/linux/posix_file_system.h"
#include "platform/linux/vips_image_codec.h"

namespace klipora::markup {
namespace {

void Text(cairo_t* cr, const char* text, double x, double y, double size, CodableColor color,
          bool bold = false, const char* family = "Sans") {
  PangoLayout* layout = pango_cairo_create_layout(cr);
  PangoFontDescription* font = pango_font_description_new();
  pango_font_description_set_family(font, family);
  pango_font_description_set_absolute_size(font, size * PANGO_SCALE);
  if (bold) pango_font_description_set_weight(font, PANGO_WEIGHT_BOLD);
  pango_layout_set_font_description(layout, font);
  pango_font_description_free(font);
  pango_layout_set_text(layout, text, -1);
  setSourceColor(cr, color);
  cairo_move_to(cr, x, y);
  pango_cairo_show_layout(cr, layout);
  g_object_unref(layout);
}

// A settings-style window: sidebar, headings, body text, a code block,
// buttons and coloured cards, so every layer has something to sit on.
MarkupImage Screenshot(int width, int height) {
  auto image = *MarkupImage::create(width, height);
  CairoContext context(image);
  cairo_t* cr = context.get();
  const CodableColor ink{0.13, 0.14, 0.16, 1}, soft{0.45, 0.47, 0.52, 1};
  setSourceColor(cr, {0.97, 0.97, 0.98, 1});
  cairo_paint(cr);
  setSourceColor(cr, {0.92, 0.93, 0.95, 1});
  cairo_rectangle(cr, 0, 0, 230, height);
  cairo_fill(cr);
  const char* items[] = {"General", "Appearance", "Accounts", "Privacy", "Network", "Storage",
                         "Keyboard", "Displays", "About"};
  for (int i = 0; i < 9; ++i) {
    if (i == 3) {
      setSourceColor(cr, {0.12, 0.45, 0.95, 1});
      addRoundedRect(cr, Rect::make(12, 70 + i * 44 - 8, 206, 38), 8);
      cairo_fill(cr);
    }
    Text(cr, items[i], 32, 70 + i * 44, 18, i == 3 ? CodableColor{1, 1, 1, 1} : ink);
  }
  Text(cr, "Privacy & Security", 270, 40, 34, ink, true);
  const char* lines[] = {
      "Applications that asked for access to your files are listed below. Revoke access",
      "at any time; an application asks again the next time it needs the folder.",
      "Account: jane.doe@example.com   Phone: +1 415 555 0142   Card: 4111 1111 1111 1111"};
  for (int i = 0; i < 3; ++i) Text(cr, lines[i], 270, 100 + i * 30, 18, i == 2 ? ink : soft);
  setSourceColor(cr, {0.11, 0.12, 0.15, 1});
  addRoundedRect(cr, Rect::make(270, 210, width - 310, 190), 10);
  cairo_fill(cr);
  const char* code[] = {"$ klipora status --json", "{ \"daemon\": \"running\", \"queued\": 0,",
                        "  \"token\": \"sk-live-9f8e7d6c5b4a3210\" }", "$ _"};
  for (int i = 0; i < 4; ++i) {
    Text(cr, code[i], 292, 228 + i * 36, 20, {0.55, 0.9, 0.6, 1}, false, "Monospace");
  }
  const CodableColor cards[] = {{0.95, 0.42, 0.38, 1}, {0.98, 0.76, 0.3, 1}, {0.36, 0.78, 0.5, 1},
                                {0.42, 0.55, 0.98, 1}};
  for (int i = 0; i < 4; ++i) {
    double x = 270 + i * ((width - 310) / 4.0);
    setSourceColor(cr, cards[i]);
    addRoundedRect(cr, Rect::make(x, 430, (width - 310) / 4.0 - 16, 150), 12);
    cairo_fill(cr);
    char title[32];
    std::snprintf(title, sizeof title, "Card %d", i + 1);
    Text(cr, title, x + 16, 446, 22, {1, 1, 1, 1}, true);
    Text(cr, "42 items", x + 16, 480, 16, {1, 1, 1, 0.85});
  }
  for (int i = 0; i < 5; ++i) Text(cr, "Last synced a moment ago from this computer.", 270, 610 + i * 32, 18, soft);
  setSourceColor(cr, {0.12, 0.45, 0.95, 1});
  addRoundedRect(cr, Rect::make(width - 200, height - 70, 160, 44), 10);
  cairo_fill(cr);
  Text(cr, "Done", width - 145, height - 60, 20, {1, 1, 1, 1}, true);
  return image;
}

// The gallery's own saved assets, under the ids its snapshots name.
class GalleryAssets final : public MarkupAssetSource {
 public:
  std::optional<MarkupSignature> signature(const UUID& id) override {
    if (id != *UUID::Parse("51600000-0000-4000-8000-000000000001")) return std::nullopt;
    MarkupSignature s{id, "Jane", {}, 3, Date()};
    SignatureStroke loop{{}, 3};
    for (int i = 0; i <= 120; ++i) {
      double t = i / 120.0 * 4 * M_PI;
      loop.points.push_back({t * 14 + 18 * std::sin(t), 40 - 30 * std::sin(t * 0.5) * std::cos(t)});
    }
    s.strokes = {loop, {{{10, 70}, {90, 62}, {180, 66}}, 2}};
    return s;
  }
  std::shared_ptr<const PixelImage> watermarkImage(const UUID& id) override {
    if (id != *UUID::Parse("3A700000-0000-4000-8000-000000000002")) return nullptr;
    auto image = *MarkupImage::create(360, 90);
    {
      CairoContext context(image);
      addRoundedRect(context.get(), Rect::make(0, 0, 360, 90), 45);
      setSourceColor(context.get(), {0, 0, 0, 0.55});
      cairo_fill(context.get());
      Text(context.get(), "\xC2\xA9 Klipora", 70, 18, 44, {1, 1, 1, 1}, true);
    }
    return std::make_shared<PixelImage>(image.toPixels());
  }
};

}  // namespace
}  // namespace klipora::markup

int main(int argc, char** argv) {
  using namespace klipora;
  namespace fs = std::filesystem;
  if (argc != 3) {
    std::fprintf(stderr, "usage: markup_gallery SNAPSHOT_DIR OUT_DIR\n");
    return 2;
  }
  PosixFileSystem files;
  VipsImageCodec codec;
  markup::GalleryAssets assets;
  markup::MarkupExportService exporter(codec, &assets);
  fs::create_directories(argv[2]);
  std::vector<fs::path> snapshots;
  for (const auto& entry : fs::directory_iterator(argv[1])) {
    if (entry.path().extension() == ".json") snapshots.push_back(entry.path());
  }
  std::sort(snapshots.begin(), snapshots.end());
  int failures = 0;
  for (const auto& path : snapshots) {
    auto snapshot = markup::readSnapshotFile(files, path.string());
    if (!snapshot) {
      std::fprintf(stderr, "%s: %s\n", path.c_str(), snapshot.error().message().c_str());
      ++failures;
      continue;
    }
    auto base = markup::Screenshot(static_cast<int>(snapshot->sourceImageWidth),
                                   static_cast<int>(snapshot->sourceImageHeight));
    auto png = exporter.renderPng(*snapshot, base);
    std::string out = (fs::path(argv[2]) / path.stem()).string() + ".png";
    Status written = png ? files.writeFileAtomically(out, *png) : Status(png.error());
    if (!written.ok()) {
      std::fprintf(stderr, "%s: %s\n", path.c_str(), written.message().c_str());
      ++failures;
      continue;
    }
    std::printf("%s\n", out.c_str());
  }
  return failures == 0 ? 0 : 1;
}
