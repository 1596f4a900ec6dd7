#include "markup/layer_ref.h"

namespace klipora::markup {

// The first twelve selection cases mirror the layer kinds one for one.
static_assert(static_cast<int>(MarkupSelection::Kind::signatureStamp) ==
              static_cast<int>(LayerRef::Kind::signature));
static_assert(static_cast<int>(MarkupSelection::Kind::watermark) ==
              static_cast<int>(LayerRef::Kind::watermark));

MarkupSelection MarkupSelection::layer(const LayerRef& ref) {
  return {static_cast<Kind>(ref.kind), ref.id};
}

std::optional<LayerRef> MarkupSelection::layerRef() const {
  if (kind == Kind::crop) return std::nullopt;
  return LayerRef{static_cast<LayerRef::Kind>(kind), id};
}

}  // namespace klipora::markup
