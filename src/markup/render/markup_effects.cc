// Effect regions, magnifiers and spotlights: the steps that read the canvas.
#include <algorithm>
#include <cmath>

#include "markup/render/markup_layer_drawing.h"
#include "markup/render/markup_render_steps.h"
#include "markup/render/pixel_blur.h"

namespace klipora::markup {
namespace {

struct PixelRect {
  int x = 0, y = 0, width = 0, height = 0;
  bool empty() const { return width <= 0 || height <= 0; }
};

// The whole pixels a frame touches, inside the canvas.
PixelRect PixelsOf(const Rect& frame, int canvasWidth, int canvasHeight) {
  Rect r = standardized(frame);
  int x0 = std::clamp(static_cast<int>(std::floor(r.minX())), 0, canvasWidth);
  int y0 = std::clamp(static_cast<int>(std::floor(r.minY())), 0, canvasHeight);
  int x1 = std::clamp(static_cast<int>(std::ceil(r.maxX())), 0, canvasWidth);
  int y1 = std::clamp(static_cast<int>(std::ceil(r.maxY())), 0, canvasHeight);
  return {x0, y0, x1 - x0, y1 - y0};
}

void Pixelate(MarkupImage& canvas, const PixelRect& r, int block) {
  uint8_t* data = canvas.data();
  const int stride = canvas.stride();
  for (int by = r.y; by < r.y + r.height; by += block) {
    int bh = std::min(block, r.y + r.height - by);
    for (int bx = r.x; bx < r.x + r.width; bx += block) {
      int bw = std::min(block, r.x + r.width - bx);
      uint64_t sum[4] = {0, 0, 0, 0};
      for (int y = by; y < by + bh; ++y) {
        const uint8_t* p = data + static_cast<size_t>(y) * stride + bx * 4;
        for (int x = 0; x < bw; ++x, p += 4) {
          sum[0] += p[0], sum[1] += p[1], sum[2] += p[2], sum[3] += p[3];
        }
      }
      uint64_t n = static_cast<uint64_t>(bw) * bh;
      uint8_t mean[4];
      for (int c = 0; c < 4; ++c) mean[c] = static_cast<uint8_t>((sum[c] + n / 2) / n);
      for (int y = by; y < by + bh; ++y) {
        uint8_t* p = data + static_cast<size_t>(y) * stride + bx * 4;
        for (int x = 0; x < bw; ++x, p += 4) std::copy(mean, mean + 4, p);
      }
    }
  }
}

void AddSpotlightShape(cairo_t* cr, const MarkupSpotlightRegion& spotlight) {
  Rect r = standardized(spotlight.frame);
  if (spotlight.shape == MarkupSpotlightRegion::Shape::rectangle) {
    cairo_rectangle(cr, r.minX(), r.minY(), r.size.width, r.size.height);
    return;
  }
  addEllipse(cr, r);
}

void AddBucketPath(cairo_t* cr, const SpotlightBucket& bucket, int width, int height) {
  cairo_rectangle(cr, 0, 0, width, height);
  for (const auto& spotlight : bucket.paths) AddSpotlightShape(cr, spotlight);
  cairo_set_fill_rule(cr, CAIRO_FILL_RULE_EVEN_ODD);
}

CodableColor WithAlpha(CodableColor color, double alpha) {
  color.alpha = std::clamp(alpha, 0.0, 1.0);
  return color;
}

}  // namespace

double blurRadius(double intensity) { return 2 + 30 * std::clamp(intensity, 0.0, 1.0); }

int pixelateBlockSize(double intensity) {
  return static_cast<int>(std::lround(6 + 34 * std::clamp(intensity, 0.0, 1.0)));
}

bool drawEffects(MarkupImage& canvas, const std::vector<MarkupEffectRegion>& effects) {
  if (effects.empty()) return true;
  cairo_surface_flush(canvas.surface());
  for (const auto& effect : effects) {
    PixelRect r = PixelsOf(effect.frame, canvas.width(), canvas.height());
    if (r.empty()) continue;
    uint8_t* origin = canvas.data() + static_cast<size_t>(r.y) * canvas.stride() + r.x * 4;
    switch (effect.kind) {
      case MarkupEffectRegion::Kind::gaussianBlur:
        if (!GaussianBlurPixels(origin, canvas.stride(), r.width, r.height, 4,
                                blurRadius(effect.intensity))) {
          return false;
        }
        break;
      case MarkupEffectRegion::Kind::pixelate:
        Pixelate(canvas, r, pixelateBlockSize(effect.intensity));
        break;
      case MarkupEffectRegion::Kind::blackBar:
        for (int y = r.y; y < r.y + r.height; ++y) {
          auto* row = reinterpret_cast<uint32_t*>(canvas.data() + static_cast<size_t>(y) * canvas.stride());
          std::fill(row + r.x, row + r.x + r.width, 0xFF000000u);
        }
        break;
    }
  }
  cairo_surface_mark_dirty(canvas.surface());
  return true;
}

bool drawMagnifiers(MarkupImage& canvas, const std::vector<MarkupMagnifierRegion>& magnifiers) {
  if (magnifiers.empty()) return true;
  auto source = canvas.clone();
  if (!source) return false;
  CairoContext context(canvas);
  cairo_t* cr = context.get();
  for (const auto& m : magnifiers) {
    Rect frame = standardized(m.frame);
    if (frame.size.width < 1 || frame.size.height < 1) continue;
    double zoom = m.zoom > 0.01 && std::isfinite(m.zoom) ? m.zoom : 1;
    auto addShape = [&](double inset) {
      Rect r = Rect::make(frame.minX() + inset, frame.minY() + inset,
                          frame.size.width - 2 * inset, frame.size.height - 2 * inset);
      if (r.size.width <= 0 || r.size.height <= 0) return;
      if (m.shape == MarkupMagnifierRegion::Shape::rectangle) {
        addRoundedRect(cr, r, std::min(10.0, std::min(r.size.width, r.size.height) * 0.08));
        return;
      }
      addEllipse(cr, r);
    };
    cairo_save(cr);
    addShape(0);
    cairo_clip(cr);
    cairo_translate(cr, frame.center().x, frame.center().y);
    cairo_scale(cr, zoom, zoom);
    cairo_translate(cr, -m.sourceCenter.x, -m.sourceCenter.y);
    cairo_set_source_surface(cr, source->surface(), 0, 0);
    cairo_pattern_set_extend(cairo_get_source(cr), CAIRO_EXTEND_PAD);
    cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_GOOD);
    cairo_paint(cr);
    cairo_restore(cr);
    if (m.borderWidth > 0) {
      cairo_save(cr);
      addShape(m.borderWidth / 2);
      setSourceColor(cr, m.borderColor);
      cairo_set_line_width(cr, m.borderWidth);
      cairo_stroke(cr);
      cairo_restore(cr);
    }
  }
  return context.ok();
}

std::vector<SpotlightBucket> spotlightBuckets(const std::vector<MarkupSpotlightRegion>& spotlights) {
  std::vector<SpotlightBucket> buckets;
  for (const auto& s : spotlights) {
    auto it = std::find_if(buckets.begin(), buckets.end(), [&s](const SpotlightBucket& b) {
      return b.color == s.dimColor && std::abs(b.opacity - s.dimOpacity) < 0.001 &&
             std::abs(b.feather - s.feather) < 0.001;
    });
    if (it == buckets.end()) {
      buckets.push_back({s.dimColor, s.dimOpacity, s.feather, {}});
      it = buckets.end() - 1;
    }
    it->paths.push_back(s);
  }
  return buckets;
}

bool drawSpotlights(MarkupImage& canvas, const std::vector<MarkupSpotlightRegion>& spotlights) {
  if (spotlights.empty()) return true;
  const int width = canvas.width(), height = canvas.height();
  CairoContext context(canvas);
  cairo_t* cr = context.get();
  for (const auto& bucket : spotlightBuckets(spotlights)) {
    if (bucket.feather <= 0.5) {
      cairo_save(cr);
      AddBucketPath(cr, bucket, width, height);
      setSourceColor(cr, WithAlpha(bucket.color, bucket.opacity));
      cairo_fill(cr);
      cairo_restore(cr);
      continue;
    }
    // Feathered: the dim shape is drawn as a coverage mask, blurred, then
    // laid over the canvas in the dim colour.
    SoftMask mask(0, 0, width, height, bucket.feather);
    if (!mask.ok()) return false;
    AddBucketPath(mask.context(), bucket, width, height);
    cairo_set_source_rgba(mask.context(), 0, 0, 0, std::clamp(bucket.opacity, 0.0, 1.0));
    cairo_fill(mask.context());
    mask.blur();
    cairo_save(cr);
    cairo_rectangle(cr, 0, 0, width, height);
    cairo_clip(cr);
    setSourceColor(cr, WithAlpha(bucket.color, 1));
    mask.fill(cr);
    cairo_restore(cr);
  }
  return context.ok();
}

}  // namespace klipora::markup
