// EmojiStampRendering: emoji drawn as stamps. Each emoji is rasterised once
// per pixel side (a square bitmap, the glyph centred and filling it) with the
// colour emoji font through Pango, and kept in a glyph cache keyed by the
// emoji and the side; repeated stamps reuse the bitmap. The cache holds at
// most kMaxGlyphs bitmaps and starts over when full.
//
// Thread rules: safe from any thread; glyph() serialises on one lock.
#pragma once

#include <cairo.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "markup/markup_layers.h"
#include "markup/render/markup_image.h"

namespace klipora::markup {

class EmojiStampRendering {
 public:
  static constexpr size_t kMaxGlyphs = 256;
  // Sides are clamped to this, beyond which a bitmap glyph gains nothing.
  static constexpr int kMaxSide = 1024;

  struct GlyphKey {
    std::string emoji;
    int pixelSide = 0;
    auto operator<=>(const GlyphKey&) const = default;
  };

  // The process's shared cache.
  static EmojiStampRendering& shared();

  // The glyph bitmap; none for an empty emoji or a side below 1.
  std::shared_ptr<const MarkupImage> glyph(const std::string& emoji, int pixelSide);
  // Draws `stamp` into its frame at its rotation and opacity.
  void draw(cairo_t* cr, const MarkupEmojiStamp& stamp);

  size_t cachedGlyphs() const;
  int rasterisations() const;

 private:
  mutable std::mutex mutex_;
  std::map<GlyphKey, std::shared_ptr<const MarkupImage>> glyphs_;
  int rasterisations_ = 0;
};

}  // namespace klipora::markup
