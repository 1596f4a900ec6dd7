// MarkupDocumentSnapshot: the value form of a markup document, used to save it
// (see markup_snapshot_json.h for the JSON form) and to tell whether it has
// unsaved changes. Two snapshots are compared field by field.
//
// `layerOrder` is absent only in snapshots read from files that predate it;
// a document opened from such a snapshot stacks its layers in the legacy
// order. The rendered-file fingerprint is set only in manifests.
// Plain value, safe to copy between threads.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <vector>

#include "markup/layer_ref.h"
#include "markup/markup_layers.h"
#include "markup/markup_settings.h"
#include "platform/date.h"
#include "platform/uuid.h"

namespace klipora::markup {

struct MarkupDocumentSnapshot {
  // The version written by this build; a saved form without one is version 1.
  static constexpr int64_t kCurrentVersion = 5;

  int64_t version = kCurrentVersion;
  UUID sourceItemID;
  double sourceImageWidth = 0;
  double sourceImageHeight = 0;
  Date createdAt;
  std::vector<MarkupInkStroke> inkStrokes;
  std::vector<MarkupShape> shapes;
  std::vector<MarkupTextBox> textBoxes;
  std::vector<MarkupEffectRegion> effects;
  std::vector<MarkupSignatureStamp> signatures;
  std::vector<MarkupMagnifierRegion> magnifiers;
  std::vector<MarkupSpotlightRegion> spotlights;
  std::vector<MarkupStepBadge> stepBadges;
  std::vector<MarkupEmojiStamp> emojiStamps;
  std::vector<MarkupCutoutSticker> cutouts;
  std::vector<MarkupRulerLine> rulers;
  std::optional<MarkupCrop> crop;
  MarkupTransform transform;
  std::optional<MarkupPerspectiveTransform> perspective;
  std::optional<MarkupBackgroundFrame> background;
  std::optional<MarkupChromeFrame> chrome;
  std::optional<MarkupCanvasExtension> canvasExtension;
  std::vector<MarkupWatermarkPlacement> watermarks;
  std::optional<std::vector<LayerRef>> layerOrder;
  std::optional<MarkupColorAdjustments> colorAdjustments;
  std::optional<MarkupBackgroundRemoval> backgroundRemoval;
  std::set<LayerRef> lockedLayers;
  std::optional<int64_t> renderedFileSize;     // bytes
  std::optional<double> renderedFileModified;  // seconds since 1970

  bool operator==(const MarkupDocumentSnapshot&) const = default;
};

}  // namespace klipora::markup
