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

size_t applyRedactions(MarkupDocument& document,
                       const std::vector<MarkupAutoRedactor::Detection>& detections,
                       HumanRedactionStyle humanStyle, std::string actionName) {
  if (detections.empty()) return 0;
  std::vector<MarkupEffectRegion> effects = document.content().effects;
  for (const auto& detection : detections) {
    effects.push_back(redactionLayer(detection, humanStyle));
  }
  document.mutateEffects(std::move(effects), std::move(actionName));
  return detections.size();
}

}  // namespace klipora::markup
