// The z-order rules of a markup document, as functions over anything that has
// the layer arrays under their document names (`effects`, `shapes`, …,
// `watermarks`): the document's content and the snapshot both do.
//
// The legacy order stacks whole families, bottom to top: effects, magnifiers,
// ink strokes, shapes, emoji stamps, rulers, text boxes, signature stamps,
// cutouts, step badges, spotlights, each family in array order. Watermarks
// are not part of it; synchronisation puts them above everything.
// Pure functions; safe from any thread.
#pragma once

#include <unordered_set>
#include <vector>

#include "markup/layer_ref.h"

namespace klipora::markup {

// Calls `f(ref)` for every layer, family by family in the legacy order, then
// (when `withWatermarks`) every watermark placement.
template <typename Layers, typename F>
void forEachLayerInLegacyOrder(const Layers& l, bool withWatermarks, F&& f) {
  using K = LayerRef::Kind;
  auto family = [&f](K kind, const auto& layers) {
    for (const auto& layer : layers) f(LayerRef{kind, layer.id});
  };
  family(K::effect, l.effects);
  family(K::magnifier, l.magnifiers);
  family(K::inkStroke, l.inkStrokes);
  family(K::shape, l.shapes);
  family(K::emojiStamp, l.emojiStamps);
  family(K::ruler, l.rulers);
  family(K::textBox, l.textBoxes);
  family(K::signature, l.signatures);
  family(K::cutout, l.cutouts);
  family(K::stepBadge, l.stepBadges);
  family(K::spotlight, l.spotlights);
  if (withWatermarks) family(K::watermark, l.watermarks);
}

// The order a document gets when its saved form has no `layerOrder`.
template <typename Layers>
std::vector<LayerRef> legacyLayerOrder(const Layers& l) {
  std::vector<LayerRef> order;
  forEachLayerInLegacyOrder(l, false, [&order](const LayerRef& ref) { order.push_back(ref); });
  return order;
}

// `current` rebuilt to name exactly the layers that exist: refs to missing
// layers and repeated refs are dropped (the lowest position wins), then every
// layer not yet named is appended family by family in the legacy order, with
// watermark placements last.
template <typename Layers>
std::vector<LayerRef> syncedLayerOrder(const std::vector<LayerRef>& current, const Layers& l) {
  std::unordered_set<LayerRef> existing;
  existing.reserve(current.size() + 16);
  forEachLayerInLegacyOrder(l, true, [&existing](const LayerRef& ref) { existing.insert(ref); });
  std::unordered_set<LayerRef> kept;
  kept.reserve(existing.size());
  std::vector<LayerRef> order;
  order.reserve(existing.size());
  for (const LayerRef& ref : current) {
    if (existing.count(ref) && kept.insert(ref).second) order.push_back(ref);
  }
  forEachLayerInLegacyOrder(l, true, [&kept, &order](const LayerRef& ref) {
    if (kept.insert(ref).second) order.push_back(ref);
  });
  return order;
}

}  // namespace klipora::markup
