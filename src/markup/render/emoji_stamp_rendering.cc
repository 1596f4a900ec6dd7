#include "markup/render/emoji_stamp_rendering.h"

#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>

#include "markup/render/markup_layer_drawing.h"

namespace klipora::markup {
namespace {

std::optional<MarkupImage> Rasterise(const std::string& emoji, int side) {
  auto image = MarkupImage::create(side, side);
  if (!image) return std::nullopt;
  CairoContext context(*image);
  cairo_t* cr = context.get();
  PangoLayout* layout = pango_cairo_create_layout(cr);
  PangoFontDescription* font = pango_font_description_from_string("Noto Color Emoji");
  pango_font_description_set_absolute_size(font, side * 0.8 * PANGO_SCALE);
  pango_layout_set_font_description(layout, font);
  pango_font_description_free(font);
  pango_layout_set_text(layout, emoji.c_str(), static_cast<int>(emoji.size()));
  PangoRectangle ink, logical;
  pango_layout_get_pixel_extents(layout, &ink, &logical);
  if (ink.width > 0 && ink.height > 0) {
    // Scale the ink box to fill the square with a small margin.
    double scale = side * 0.94 / std::max(ink.width, ink.height);
    cairo_translate(cr, side / 2.0, side / 2.0);
    cairo_scale(cr, scale, scale);
    cairo_translate(cr, -(ink.x + ink.width / 2.0), -(ink.y + ink.height / 2.0));
    cairo_set_source_rgb(cr, 0, 0, 0);
    pango_cairo_show_layout(cr, layout);
  }
  g_object_unref(layout);
  if (!context.ok()) return std::nullopt;
  return image;
}

}  // namespace

EmojiStampRendering& EmojiStampRendering::shared() {
  static EmojiStampRendering* rendering = new EmojiStampRendering();
  return *rendering;
}

std::shared_ptr<const MarkupImage> EmojiStampRendering::glyph(const std::string& emoji,
                                                              int pixelSide) {
  if (emoji.empty() || pixelSide < 1) return nullptr;
  pixelSide = std::min(pixelSide, kMaxSide);
  std::lock_guard lock(mutex_);
  GlyphKey key{emoji, pixelSide};
  if (auto it = glyphs_.find(key); it != glyphs_.end()) return it->second;
  auto image = Rasterise(emoji, pixelSide);
  if (!image) return nullptr;
  ++rasterisations_;
  if (glyphs_.size() >= kMaxGlyphs) glyphs_.clear();
  auto shared = std::make_shared<const MarkupImage>(std::move(*image));
  glyphs_.emplace(std::move(key), shared);
  return shared;
}

void EmojiStampRendering::draw(cairo_t* cr, const MarkupEmojiStamp& stamp) {
  Rect frame = standardized(stamp.frame);
  int side = static_cast<int>(std::lround(std::min(frame.size.width, frame.size.height)));
  auto image = glyph(stamp.emoji, side);
  if (!image) return;
  drawImageInFrame(cr, image->surface(), frame, stamp.rotation, stamp.opacity);
}

size_t EmojiStampRendering::cachedGlyphs() const {
  std::lock_guard lock(mutex_);
  return glyphs_.size();
}

int EmojiStampRendering::rasterisations() const {
  std::lock_guard lock(mutex_);
  return rasterisations_;
}

}  // namespace klipora::markup
