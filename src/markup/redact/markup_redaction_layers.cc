#include "markup/redact/markup_redaction_layers.h"

#include <algorithm>

namespace klipora::markup {

MarkupEffectRegion redactionLayer(const MarkupAutoRedactor::Detection& detection,
                                  HumanRedactionStyle humanStyle) {
  using Kind = MarkupAutoRedactor::Kind;
  MarkupEffectRegion layer;
  layer.frame = detection.frame;
  layer.kind = MarkupEffectRegion::Kind::blackBar;
  layer.intensity = 1;
  bool human = detection.kind == Kind::face || detection.kind == Kind::person;
  if (human && humanStyle == HumanRedactionStyle::blur) {
    layer.kind = MarkupEffectRegion::Kind::gaussianBlur;
  }
  return layer;
}

namespace {

// A place already covered the same way (an earlier run over the same image)
// gets no second layer.
size_t AddEffects(MarkupDocument& document, std::vector<MarkupEffectRegion> added,
                  std::string actionName) {
  std::vector<MarkupEffectRegion> effects = document.content().effects;
  std::erase_if(added, [&](const MarkupEffectRegion& layer) {
    return std::any_of(effects.begin(), effects.end(), [&](const MarkupEffectRegion& e) {
      return e.kind == layer.kind && e.frame == layer.frame;
    });
  });
  if (added.empty()) return 0;
  effects.insert(effects.end(), added.begin(), added.end());
  document.mutateEffects(std::move(effects), std::move(actionName));
  return added.size();
}

}  // namespace

size_t applyRedactions(MarkupDocument& document,
                       const std::vector<MarkupAutoRedactor::Detection>& detections,
                       HumanRedactionStyle humanStyle, std::string actionName) {
  std::vector<MarkupEffectRegion> layers;
  for (const auto& detection : detections) layers.push_back(redactionLayer(detection, humanStyle));
  return AddEffects(document, std::move(layers), std::move(actionName));
}

MarkupAutoRedactor::Detections autoRedact(MarkupDocument& document,
                                          const MarkupAutoRedactor& redactor,
                                          std::string_view encodedImage,
                                          const MarkupAutoRedactor::DetectionOptions& options,
                                          HumanRedactionStyle humanStyle) {
  auto found = redactor.detect(encodedImage, options);
  if (found) applyRedactions(document, *found, humanStyle);
  return found;
}

size_t applyQRBlur(MarkupDocument& document,
                   const std::vector<MarkupQRDetector::Detection>& codes,
                   std::string actionName) {
  std::vector<MarkupEffectRegion> layers;
  for (const auto& code : codes) {
    layers.push_back({.kind = MarkupEffectRegion::Kind::gaussianBlur, .frame = code.frame,
                      .intensity = 1});
  }
  return AddEffects(document, std::move(layers), std::move(actionName));
}

}  // namespace klipora::markup
