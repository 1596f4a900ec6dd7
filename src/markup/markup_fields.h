// The field lists of the markup records, written once and walked by both the
// encoder and the decoder of the saved form: visitFields(record, visitor)
// calls visitor(name, field) for each field in declaration order. The names
// are the saved keys. Works on const and non-const records alike.
#pragma once

#include <concepts>
#include <type_traits>

#include "markup/layer_ref.h"
#include "markup/markup_layers.h"
#include "markup/markup_settings.h"

namespace klipora::markup {

template <typename S, typename T>
concept RecordOf = std::same_as<std::remove_const_t<S>, T>;

template <RecordOf<CodableColor> S, typename V>
void visitFields(S& s, V& v) {
  v("red", s.red), v("green", s.green), v("blue", s.blue), v("alpha", s.alpha);
}

template <RecordOf<LayerRef> S, typename V>
void visitFields(S& s, V& v) {
  v("kind", s.kind), v("id", s.id);
}

template <RecordOf<MarkupShape> S, typename V>
void visitFields(S& s, V& v) {
  v("id", s.id), v("kind", s.kind), v("frame", s.frame), v("strokeColor", s.strokeColor);
  v("fillColor", s.fillColor), v("strokeWidth", s.strokeWidth), v("dashPattern", s.dashPattern);
  v("rotation", s.rotation), v("arrowStyle", s.arrowStyle), v("arrowControl", s.arrowControl);
}

template <RecordOf<MarkupTextBox> S, typename V>
void visitFields(S& s, V& v) {
  v("id", s.id), v("frame", s.frame), v("text", s.text), v("fontName", s.fontName);
  v("fontSize", s.fontSize), v("textColor", s.textColor), v("backgroundColor", s.backgroundColor);
  v("alignment", s.alignment), v("rotation", s.rotation), v("isBold", s.isBold);
  v("isItalic", s.isItalic), v("isUnderlined", s.isUnderlined);
}

template <RecordOf<MarkupInkStroke> S, typename V>
void visitFields(S& s, V& v) {
  v("id", s.id), v("kind", s.kind), v("points", s.points), v("color", s.color);
  v("width", s.width);
}

template <RecordOf<MarkupStepBadge> S, typename V>
void visitFields(S& s, V& v) {
  v("id", s.id), v("number", s.number), v("frame", s.frame), v("fillColor", s.fillColor);
  v("textColor", s.textColor), v("style", s.style);
}

template <RecordOf<MarkupMagnifierRegion> S, typename V>
void visitFields(S& s, V& v) {
  v("id", s.id), v("shape", s.shape), v("frame", s.frame), v("sourceCenter", s.sourceCenter);
  v("zoom", s.zoom), v("borderWidth", s.borderWidth), v("borderColor", s.borderColor);
}

template <RecordOf<MarkupSpotlightRegion> S, typename V>
void visitFields(S& s, V& v) {
  v("id", s.id), v("shape", s.shape), v("frame", s.frame), v("dimColor", s.dimColor);
  v("dimOpacity", s.dimOpacity), v("feather", s.feather);
}

template <RecordOf<MarkupEffectRegion> S, typename V>
void visitFields(S& s, V& v) {
  v("id", s.id), v("kind", s.kind), v("frame", s.frame), v("intensity", s.intensity);
}

template <RecordOf<MarkupEmojiStamp> S, typename V>
void visitFields(S& s, V& v) {
  v("id", s.id), v("emoji", s.emoji), v("frame", s.frame), v("rotation", s.rotation);
  v("opacity", s.opacity);
}

template <RecordOf<MarkupRulerLine> S, typename V>
void visitFields(S& s, V& v) {
  v("id", s.id), v("from", s.from), v("to", s.to), v("unit", s.unit), v("dpi", s.dpi);
  v("color", s.color), v("strokeWidth", s.strokeWidth), v("fontSize", s.fontSize);
  v("showTicks", s.showTicks);
}

template <RecordOf<MarkupSignatureStamp> S, typename V>
void visitFields(S& s, V& v) {
  v("id", s.id), v("signatureID", s.signatureID), v("frame", s.frame);
  v("rotation", s.rotation), v("tintColor", s.tintColor);
}

template <RecordOf<MarkupCutoutSticker> S, typename V>
void visitFields(S& s, V& v) {
  v("id", s.id), v("frame", s.frame), v("imageData", s.imageData), v("rotation", s.rotation);
  v("opacity", s.opacity);
}

template <RecordOf<MarkupWatermarkPlacement> S, typename V>
void visitFields(S& s, V& v) {
  v("id", s.id), v("stampID", s.stampID), v("corner", s.corner), v("insets", s.insets);
  v("opacity", s.opacity), v("scale", s.scale), v("customFrame", s.customFrame);
  v("locked", s.locked);
}

template <RecordOf<MarkupCrop> S, typename V>
void visitFields(S& s, V& v) {
  v("rect", s.rect);
}

template <RecordOf<MarkupTransform> S, typename V>
void visitFields(S& s, V& v) {
  v("rotationQuarterTurns", s.rotationQuarterTurns), v("flipHorizontal", s.flipHorizontal);
  v("flipVertical", s.flipVertical), v("straightenDegrees", s.straightenDegrees);
}

template <RecordOf<MarkupPerspectiveTransform> S, typename V>
void visitFields(S& s, V& v) {
  v("topLeft", s.topLeft), v("topRight", s.topRight), v("bottomLeft", s.bottomLeft);
  v("bottomRight", s.bottomRight);
}

template <RecordOf<MarkupBackgroundFrame::LinearGradient> S, typename V>
void visitFields(S& s, V& v) {
  v("start", s.start), v("end", s.end), v("angleDegrees", s.angleDegrees);
}

template <RecordOf<MarkupBackgroundFrame::Shadow> S, typename V>
void visitFields(S& s, V& v) {
  v("color", s.color), v("radius", s.radius), v("offsetX", s.offsetX);
  v("offsetY", s.offsetY), v("opacity", s.opacity);
}

template <RecordOf<MarkupBackgroundFrame> S, typename V>
void visitFields(S& s, V& v) {
  v("padding", s.padding), v("paddingVertical", s.paddingVertical), v("fill", s.fill);
  v("cornerRadius", s.cornerRadius), v("shadow", s.shadow);
}

template <RecordOf<MarkupChromeFrame> S, typename V>
void visitFields(S& s, V& v) {
  v("variant", s.variant), v("title", s.title), v("showSidebar", s.showSidebar);
  v("sidebarWidth", s.sidebarWidth), v("titlebarHeight", s.titlebarHeight);
  v("cornerRadius", s.cornerRadius);
}

template <RecordOf<MarkupCanvasExtension> S, typename V>
void visitFields(S& s, V& v) {
  v("top", s.top), v("right", s.right), v("bottom", s.bottom), v("left", s.left);
  v("fill", s.fill);
}

template <RecordOf<MarkupColorAdjustments> S, typename V>
void visitFields(S& s, V& v) {
  v("preset", s.preset), v("brightness", s.brightness), v("contrast", s.contrast);
  v("saturation", s.saturation), v("sharpness", s.sharpness), v("inverted", s.inverted);
}

template <RecordOf<MarkupBackgroundRemoval> S, typename V>
void visitFields(S& s, V& v) {
  v("enabled", s.enabled), v("maskedImageData", s.maskedImageData);
}

}  // namespace klipora::markup
