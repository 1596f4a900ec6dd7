#include "markup/redact/markup_redaction_layers.h"

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

size_t AddEffects(MarkupDocument& document, std::vector<MarkupEffectRegion> added,
                  std::string actionName) {
  if (added.empty()) return 0;
  std::vector<MarkupEffectRegion> effects = document.content().effects;
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
