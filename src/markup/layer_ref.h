// LayerRef names one layer of a document by family and id; it is the element
// of the z-order (`layerOrder`) and of the set of locked layers. Two refs are
// equal when kind and id are equal; refs are hashable and ordered (kind
// first), so they can live in either kind of set.
//
// MarkupSelection is what the editor has selected: one layer, the crop
// rectangle, or (as an empty optional in the document) nothing. It is never
// saved. Plain values, safe to copy between threads.
#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <optional>

#include "platform/uuid.h"

namespace klipora::markup {

struct LayerRef {
  enum class Kind {
    inkStroke,
    shape,
    textBox,
    effect,
    signature,
    magnifier,
    spotlight,
    stepBadge,
    emojiStamp,
    cutout,
    ruler,
    watermark,
  };

  Kind kind = Kind::shape;
  UUID id;

  auto operator<=>(const LayerRef&) const = default;
};

struct MarkupSelection {
  enum class Kind {
    inkStroke,
    shape,
    textBox,
    effect,
    signatureStamp,
    magnifier,
    spotlight,
    stepBadge,
    emojiStamp,
    cutout,
    ruler,
    watermark,
    crop,  // the crop rectangle itself; `id` is unused
  };

  Kind kind = Kind::crop;
  UUID id;

  static MarkupSelection crop() { return {Kind::crop, UUID()}; }
  static MarkupSelection layer(const LayerRef& ref);
  // The selected layer; none when the crop rectangle is selected.
  std::optional<LayerRef> layerRef() const;
  bool operator==(const MarkupSelection&) const = default;
};

}  // namespace klipora::markup

template <>
struct std::hash<klipora::markup::LayerRef> {
  size_t operator()(const klipora::markup::LayerRef& ref) const noexcept {
    return std::hash<klipora::UUID>()(ref.id) * 31 + static_cast<size_t>(ref.kind);
  }
};
