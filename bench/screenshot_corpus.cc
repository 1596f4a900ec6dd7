#include "screenshot_corpus.h"

#include <cairo.h>
#include <pango/pangocairo.h>
#include <vips/vips.h>

#include <cstdio>
#include <random>

namespace klipora::bench {
namespace {

const char* kWords[] = {"return", "const", "auto", "struct", "import", "error:", "invoice",
                        "total", "function", "settings", "message", "status", "width", "height",
                        "std::string", "vector", "0x7fff", "Failed", "connected", "12:45",
                        "Screenshot", "library", "thumbnail", "checksum", "if", "else", "for"};

std::string RandomLine(std::mt19937& rng) {
  std::string line(static_cast<size_t>(rng() % 8) * 2, ' ');
  int words = 3 + static_cast<int>(rng() % 9);
  for (int i = 0; i < words; ++i) {
    line += kWords[rng() % (sizeof kWords / sizeof *kWords)];
    line += ' ';
  }
  return line;
}

void RenderWindow(cairo_t* cr, int width, int height, std::mt19937& rng, bool dark) {
  double bg = dark ? 0.12 : 0.97, fg = dark ? 0.86 : 0.1;
  cairo_set_source_rgb(cr, bg, bg, bg);
  cairo_paint(cr);
  double scale = width / 1920.0;
  cairo_set_source_rgb(cr, 0.22, 0.24, 0.3);
  cairo_rectangle(cr, 0, 0, width, 36 * scale);  // title bar
  cairo_fill(cr);
  cairo_set_source_rgb(cr, dark ? 0.17 : 0.92, dark ? 0.18 : 0.93, dark ? 0.2 : 0.95);
  cairo_rectangle(cr, 0, 36 * scale, 280 * scale, height);  // sidebar
  cairo_fill(cr);
  PangoLayout* layout = pango_cairo_create_layout(cr);
  char font[64];
  std::snprintf(font, sizeof font, "DejaVu Sans Mono %d", static_cast<int>(13 * scale));
  PangoFontDescription* description = pango_font_description_from_string(font);
  pango_layout_set_font_description(layout, description);
  double lineHeight = 22 * scale;
  for (double y = 50 * scale; y < height - lineHeight; y += lineHeight) {
    std::string text = RandomLine(rng);
    cairo_set_source_rgb(cr, fg, fg * (0.6 + (rng() % 40) / 100.0), fg);
    cairo_move_to(cr, 300 * scale, y);
    pango_layout_set_text(layout, text.c_str(), -1);
    pango_cairo_show_layout(cr, layout);
    if (y < height * 0.6) {
      cairo_move_to(cr, 16 * scale, y);
      pango_layout_set_text(layout, kWords[rng() % 10], -1);
      pango_cairo_show_layout(cr, layout);
    }
  }
  pango_font_description_free(description);
  g_object_unref(layout);
}

cairo_status_t AppendBytes(void* out, const unsigned char* data, unsigned int length) {
  static_cast<std::string*>(out)->append(reinterpret_cast<const char*>(data), length);
  return CAIRO_STATUS_SUCCESS;
}

}  // namespace

std::string renderScreenshotPng(int width, int height, unsigned seed) {
  std::mt19937 rng(seed);
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
  cairo_t* cr = cairo_create(surface);
  RenderWindow(cr, width, height, rng, seed % 2 == 1);
  cairo_destroy(cr);
  std::string png;
  cairo_surface_write_to_png_stream(surface, AppendBytes, &png);
  cairo_surface_destroy(surface);
  return png;
}

std::vector<CorpusFile> renderScreenshotCorpus(const std::string& folder, int countPerKind) {
  if (VIPS_INIT("klipora-bench") != 0) return {};
  std::mt19937 rng(42);
  std::vector<CorpusFile> files;
  const int sizes[][2] = {{2880, 1800}, {1920, 1080}};
  for (const auto& size : sizes) {
    for (int n = 0; n < countPerKind; ++n) {
      cairo_surface_t* surface =
          cairo_image_surface_create(CAIRO_FORMAT_RGB24, size[0], size[1]);
      cairo_t* cr = cairo_create(surface);
      RenderWindow(cr, size[0], size[1], rng, n % 2 == 1);
      cairo_destroy(cr);
      std::string stem = folder + "/shot-" + std::to_string(size[0]) + "-" + std::to_string(n);
      std::string png = stem + ".png";
      cairo_surface_write_to_png(surface, png.c_str());
      cairo_surface_destroy(surface);
      files.push_back({png, size[0], size[1], "png"});
      VipsImage* image = vips_image_new_from_file(png.c_str(), nullptr);
      if (!image) continue;
      std::string jpg = stem + ".jpg", webp = stem + ".webp";
      if (vips_jpegsave(image, jpg.c_str(), "Q", 90, nullptr) == 0) {
        files.push_back({jpg, size[0], size[1], "jpg"});
      }
      if (vips_webpsave(image, webp.c_str(), "Q", 90, nullptr) == 0) {
        files.push_back({webp, size[0], size[1], "webp"});
      }
      g_object_unref(image);
      vips_error_clear();
    }
  }
  return files;
}

}  // namespace klipora::bench
