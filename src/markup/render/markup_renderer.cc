#include "markup/render/markup_renderer.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>

#include "markup/layer_order.h"
#include "markup/render/markup_layer_drawing.h"
#include "markup/render/markup_render_steps.h"

namespace klipora::markup {
namespace {

// Share of the image's width a watermark of scale 1 spans.
constexpr double kWatermarkWidthShare = 0.2;

template <typename T>
std::unordered_map<UUID, const T*> ById(const std::vector<T>& layers) {
  std::unordered_map<UUID, const T*> map;
  map.reserve(layers.size());
  for (const T& layer : layers) map.emplace(layer.id, &layer);
  return map;
}

template <typename T>
const T* Find(const std::unordered_map<UUID, const T*>& map, const UUID& id) {
  auto it = map.find(id);
  return it == map.end() ? nullptr : it->second;
}

Status StepFailed(const char* step) {
  return Status::Internal(std::string("renderFailed: the ") + step + " step could not be drawn");
}

Rect WatermarkFrame(const MarkupWatermarkPlacement& placement, int imageWidth, int imageHeight,
                    int width, int height) {
  if (placement.customFrame) return *placement.customFrame;
  double scale = placement.scale > 0 && std::isfinite(placement.scale) ? placement.scale : 1;
  double w = width * kWatermarkWidthShare * scale;
  double h = w * imageHeight / imageWidth;
  double ix = placement.insets.x, iy = placement.insets.y;
  switch (placement.corner) {
    case MarkupWatermarkPlacement::Corner::topLeft:
      return Rect::make(ix, iy, w, h);
    case MarkupWatermarkPlacement::Corner::topRight:
      return Rect::make(width - ix - w, iy, w, h);
    case MarkupWatermarkPlacement::Corner::bottomLeft:
      return Rect::make(ix, height - iy - h, w, h);
    case MarkupWatermarkPlacement::Corner::bottomRight:
      return Rect::make(width - ix - w, height - iy - h, w, h);
    case MarkupWatermarkPlacement::Corner::center:
      break;
  }
  return Rect::make((width - w) / 2, (height - h) / 2, w, h);
}

}  // namespace

MarkupRenderer::MarkupRenderer(ImageCodec& codec, MarkupAssetSource* assets,
                               EmojiStampRendering* emoji)
    : codec_(codec), assets_(assets), emoji_(emoji ? *emoji : EmojiStampRendering::shared()) {}

Result<MarkupImage> MarkupRenderer::render(const MarkupDocument& document,
                                           const MarkupImage& sourceImage) const {
  return render(document.snapshot(Date()), sourceImage);
}

Result<MarkupImage> MarkupRenderer::render(const MarkupDocumentSnapshot& document,
                                           const MarkupImage& sourceImage) const {
  if (sourceImage.empty()) return Err(StepFailed("base image"));
  auto canvas = MarkupImage::create(sourceImage.width(), sourceImage.height());
  if (!canvas) return Err(StepFailed("canvas"));
  {
    CairoContext context(*canvas);
    cairo_set_operator(context.get(), CAIRO_OPERATOR_SOURCE);
    cairo_set_source_surface(context.get(), sourceImage.surface(), 0, 0);
    cairo_paint(context.get());
    if (!context.ok()) return Err(StepFailed("base image"));
  }
  if (!drawEffects(*canvas, document.effects)) return Err(StepFailed("effect"));
  if (!drawMagnifiers(*canvas, document.magnifiers)) return Err(StepFailed("magnifier"));
  {
    CairoContext context(*canvas);
    drawLayers(context.get(), document);
    if (!context.ok()) return Err(StepFailed("layer"));
  }
  if (!drawSpotlights(*canvas, document.spotlights)) return Err(StepFailed("spotlight"));
  if (!document.watermarks.empty() && assets_) {
    CairoContext context(*canvas);
    drawWatermarks(context.get(), document, canvas->width(), canvas->height());
    if (!context.ok()) return Err(StepFailed("watermark"));
  }
  MarkupImage image = std::move(*canvas);
  auto next = [&image](std::optional<MarkupImage> made) {
    if (!made) return false;
    image = std::move(*made);
    return true;
  };
  if (document.crop && !next(applyCrop(image, *document.crop))) return Err(StepFailed("crop"));
  if (!document.transform.isIdentity() && !next(applyTransform(image, document.transform))) {
    return Err(StepFailed("transform"));
  }
  if (document.canvasExtension &&
      !next(applyCanvasExtension(image, *document.canvasExtension))) {
    return Err(StepFailed("canvas extension"));
  }
  if (document.chrome && !next(applyChrome(image, *document.chrome))) {
    return Err(StepFailed("window chrome"));
  }
  if (document.background && !next(applyBackgroundFrame(*document.background, image))) {
    return Err(StepFailed("background frame"));
  }
  return image;
}

void MarkupRenderer::drawLayers(cairo_t* cr, const MarkupDocumentSnapshot& d) const {
  using K = LayerRef::Kind;
  auto ink = ById(d.inkStrokes);
  auto shapes = ById(d.shapes);
  auto texts = ById(d.textBoxes);
  auto signatures = ById(d.signatures);
  auto badges = ById(d.stepBadges);
  auto emoji = ById(d.emojiStamps);
  auto cutouts = ById(d.cutouts);
  auto rulers = ById(d.rulers);
  // Layers the saved order leaves out are drawn on top, as opening the
  // document would place them.
  auto order = syncedLayerOrder(d.layerOrder.value_or(legacyLayerOrder(d)), d);
  for (const LayerRef& ref : order) {
    switch (ref.kind) {
      case K::inkStroke:
        if (auto* layer = Find(ink, ref.id)) drawInkStroke(cr, *layer);
        break;
      case K::shape:
        if (auto* layer = Find(shapes, ref.id)) drawShape(cr, *layer);
        break;
      case K::textBox:
        if (auto* layer = Find(texts, ref.id)) drawTextBox(cr, *layer);
        break;
      case K::signature: {
        auto* layer = Find(signatures, ref.id);
        if (!layer || !assets_) break;
        if (auto signature = assets_->signature(layer->signatureID)) {
          drawSignatureStamp(cr, *layer, *signature);
        }
        break;
      }
      case K::stepBadge:
        if (auto* layer = Find(badges, ref.id)) drawStepBadge(cr, *layer);
        break;
      case K::emojiStamp:
        if (auto* layer = Find(emoji, ref.id)) emoji_.draw(cr, *layer);
        break;
      case K::cutout: {
        auto* layer = Find(cutouts, ref.id);
        if (!layer) break;
        auto pixels = codec_.decodePixels(layer->imageData.data,
                                          {PixelDecodeOptions::Format::rgba, 0});
        if (!pixels) break;
        if (auto image = MarkupImage::fromPixels(*pixels)) {
          drawImageInFrame(cr, image->surface(), layer->frame, layer->rotation, layer->opacity);
        }
        break;
      }
      case K::ruler:
        if (auto* layer = Find(rulers, ref.id)) drawRuler(cr, *layer);
        break;
      case K::effect:
      case K::magnifier:
      case K::spotlight:
      case K::watermark:
        break;
    }
  }
}

void MarkupRenderer::drawWatermarks(cairo_t* cr, const MarkupDocumentSnapshot& d, int width,
                                    int height) const {
  for (const auto& placement : d.watermarks) {
    auto pixels = assets_->watermarkImage(placement.stampID);
    if (!pixels || pixels->empty()) continue;
    auto image = MarkupImage::fromPixels(*pixels);
    if (!image) continue;
    Rect frame = WatermarkFrame(placement, image->width(), image->height(), width, height);
    drawImageInFrame(cr, image->surface(), frame, 0, placement.opacity);
  }
}

}  // namespace klipora::markup
