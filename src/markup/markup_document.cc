#include "markup/markup_document.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "markup/layer_order.h"

namespace klipora::markup {
namespace {

template <typename Layers>
bool Contains(const Layers& layers, const UUID& id) {
  return std::any_of(layers.begin(), layers.end(),
                     [&id](const auto& layer) { return layer.id == id; });
}

}  // namespace

MarkupDocument::MarkupDocument(const UUID& sourceItemID, Size sourceImageSize, Date createdAt,
                               Timers& timers, const PointerInput& pointer)
    : sourceItemID_(sourceItemID),
      sourceImageSize_(sourceImageSize),
      timers_(timers),
      pointer_(pointer),
      self_(std::make_shared<MarkupDocument*>(this)),
      owner_(std::this_thread::get_id()) {
  baseline_ = snapshot(createdAt);
}

MarkupDocument::MarkupDocument(const MarkupDocumentSnapshot& s, Timers& timers,
                               const PointerInput& pointer)
    : sourceItemID_(s.sourceItemID),
      sourceImageSize_{s.sourceImageWidth, s.sourceImageHeight},
      timers_(timers),
      pointer_(pointer),
      self_(std::make_shared<MarkupDocument*>(this)),
      owner_(std::this_thread::get_id()) {
  Content& c = content_;
  c.inkStrokes = s.inkStrokes;
  c.shapes = s.shapes;
  c.textBoxes = s.textBoxes;
  c.effects = s.effects;
  c.signatures = s.signatures;
  c.magnifiers = s.magnifiers;
  c.spotlights = s.spotlights;
  c.stepBadges = s.stepBadges;
  c.emojiStamps = s.emojiStamps;
  c.cutouts = s.cutouts;
  c.rulers = s.rulers;
  c.crop = s.crop;
  c.transform = s.transform;
  c.perspective = s.perspective;
  c.background = s.background;
  c.chrome = s.chrome;
  c.canvasExtension = s.canvasExtension;
  c.watermarks = s.watermarks;
  c.layerOrder = s.layerOrder ? *s.layerOrder : legacyLayerOrder(c);
  c.lockedLayers = s.lockedLayers;
  c.colorAdjustments = s.colorAdjustments;
  c.backgroundRemoval = s.backgroundRemoval;
  // The order names exactly the existing layers from the start (watermarks on
  // top of a legacy order), so the renderer never meets a dangling ref.
  syncLayerOrder();
  baseline_ = snapshot(s.createdAt);
}

MarkupDocument::~MarkupDocument() {
  if (endOfEditTimer_) timers_.cancel(*endOfEditTimer_);
}

void MarkupDocument::assertMainThread() const {
  assert(std::this_thread::get_id() == owner_ && "MarkupDocument is main-thread only");
}

void MarkupDocument::changed() {
  if (onChange_) onChange_();
}

bool MarkupDocument::layerExists(const LayerRef& ref) const {
  bool found = false;
  forEachLayerInLegacyOrder(content_, true, [&](const LayerRef& r) { found = found || r == ref; });
  return found;
}

void MarkupDocument::setSelection(std::optional<MarkupSelection> selection) {
  assertMainThread();
  selection_ = std::move(selection);
  changed();
}

template <typename T>
void MarkupDocument::mutate(T Content::*field, void (MarkupDocument::*mutator)(T, std::string),
                            const char* collection, T value, std::string actionName) {
  assertMainThread();
  if (shouldRegisterUndo(collection)) {
    T old = std::exchange(content_.*field, std::move(value));
    syncLayerOrder();
    undo_.registerUndo(actionName, [this, mutator, old = std::move(old), actionName]() mutable {
      (this->*mutator)(std::move(old), actionName);
    });
  } else {
    content_.*field = std::move(value);
    syncLayerOrder();
  }
  changed();
}

#define KLIPORA_MUTATOR(Name, field, Type)                                   \
  void MarkupDocument::Name(Type value, std::string actionName) {            \
    mutate(&Content::field, &MarkupDocument::Name, #field, std::move(value), \
           std::move(actionName));                                           \
  }

KLIPORA_MUTATOR(mutateInkStrokes, inkStrokes, std::vector<MarkupInkStroke>)
KLIPORA_MUTATOR(mutateShapes, shapes, std::vector<MarkupShape>)
KLIPORA_MUTATOR(mutateTextBoxes, textBoxes, std::vector<MarkupTextBox>)
KLIPORA_MUTATOR(mutateEffects, effects, std::vector<MarkupEffectRegion>)
KLIPORA_MUTATOR(mutateSignatures, signatures, std::vector<MarkupSignatureStamp>)
KLIPORA_MUTATOR(mutateMagnifiers, magnifiers, std::vector<MarkupMagnifierRegion>)
KLIPORA_MUTATOR(mutateSpotlights, spotlights, std::vector<MarkupSpotlightRegion>)
KLIPORA_MUTATOR(mutateStepBadges, stepBadges, std::vector<MarkupStepBadge>)
KLIPORA_MUTATOR(mutateEmojiStamps, emojiStamps, std::vector<MarkupEmojiStamp>)
KLIPORA_MUTATOR(mutateCutouts, cutouts, std::vector<MarkupCutoutSticker>)
KLIPORA_MUTATOR(mutateRulers, rulers, std::vector<MarkupRulerLine>)
KLIPORA_MUTATOR(mutateWatermarks, watermarks, std::vector<MarkupWatermarkPlacement>)
KLIPORA_MUTATOR(mutateCrop, crop, std::optional<MarkupCrop>)
KLIPORA_MUTATOR(mutateTransform, transform, MarkupTransform)
KLIPORA_MUTATOR(mutatePerspective, perspective, std::optional<MarkupPerspectiveTransform>)
KLIPORA_MUTATOR(mutateBackground, background, std::optional<MarkupBackgroundFrame>)
KLIPORA_MUTATOR(mutateChrome, chrome, std::optional<MarkupChromeFrame>)
KLIPORA_MUTATOR(mutateCanvasExtension, canvasExtension, std::optional<MarkupCanvasExtension>)
KLIPORA_MUTATOR(mutateColorAdjustments, colorAdjustments, std::optional<MarkupColorAdjustments>)
KLIPORA_MUTATOR(mutateBackgroundRemoval, backgroundRemoval, std::optional<MarkupBackgroundRemoval>)
KLIPORA_MUTATOR(mutateLayerOrder, layerOrder, std::vector<LayerRef>)

#undef KLIPORA_MUTATOR

void MarkupDocument::syncLayerOrder() {
  content_.layerOrder = syncedLayerOrder(content_.layerOrder, content_);
}

void MarkupDocument::reorder(const LayerRef& ref, std::string actionName,
                             const std::function<bool(std::vector<LayerRef>&, size_t)>& move) {
  std::vector<LayerRef> order = content_.layerOrder;
  auto it = std::find(order.begin(), order.end(), ref);
  if (it == order.end()) return;
  if (!move(order, static_cast<size_t>(it - order.begin()))) return;
  mutateLayerOrder(std::move(order), std::move(actionName));
}

void MarkupDocument::moveLayerUp(const LayerRef& ref, std::string actionName) {
  reorder(ref, std::move(actionName), [](std::vector<LayerRef>& order, size_t i) {
    if (i + 1 >= order.size()) return false;
    std::swap(order[i], order[i + 1]);
    return true;
  });
}

void MarkupDocument::moveLayerDown(const LayerRef& ref, std::string actionName) {
  reorder(ref, std::move(actionName), [](std::vector<LayerRef>& order, size_t i) {
    if (i == 0) return false;
    std::swap(order[i], order[i - 1]);
    return true;
  });
}

void MarkupDocument::bringLayerToFront(const LayerRef& ref, std::string actionName) {
  reorder(ref, std::move(actionName), [](std::vector<LayerRef>& order, size_t i) {
    if (i + 1 >= order.size()) return false;
    std::rotate(order.begin() + i, order.begin() + i + 1, order.end());
    return true;
  });
}

void MarkupDocument::sendLayerToBack(const LayerRef& ref, std::string actionName) {
  reorder(ref, std::move(actionName), [](std::vector<LayerRef>& order, size_t i) {
    if (i == 0) return false;
    std::rotate(order.begin(), order.begin() + i, order.begin() + i + 1);
    return true;
  });
}

void MarkupDocument::toggleLocked(const LayerRef& ref, std::string actionName) {
  assertMainThread();
  if (content_.lockedLayers.erase(ref) == 0) {
    if (!layerExists(ref)) return;
    content_.lockedLayers.insert(ref);
  }
  undo_.registerUndo(actionName, [this, ref, actionName] { toggleLocked(ref, actionName); });
  changed();
}

void MarkupDocument::applyBeautify(const MarkupBeautifyPresets::Output& output,
                                   std::string actionName) {
  revertBeautify(output.chrome, output.background, std::move(actionName));
}

// Both halves of a beautify step go through here, so undo and redo each set
// the two frames together and register the inverse as one step.
void MarkupDocument::revertBeautify(std::optional<MarkupChromeFrame> chrome,
                                    std::optional<MarkupBackgroundFrame> background,
                                    std::string actionName) {
  assertMainThread();
  auto oldChrome = std::exchange(content_.chrome, std::move(chrome));
  auto oldBackground = std::exchange(content_.background, std::move(background));
  undo_.registerUndo(actionName, [this, oldChrome = std::move(oldChrome),
                                  oldBackground = std::move(oldBackground), actionName]() mutable {
    revertBeautify(std::move(oldChrome), std::move(oldBackground), actionName);
  });
  changed();
}

void MarkupDocument::beginContinuousEdit() {
  assertMainThread();
  if (endOfEditTimer_) {
    timers_.cancel(*endOfEditTimer_);
    endOfEditTimer_.reset();
  }
  if (!continuousEditNames_) continuousEditNames_.emplace();
}

void MarkupDocument::noteContinuousEdit() {
  beginContinuousEdit();
  std::weak_ptr<MarkupDocument*> weak = self_;
  endOfEditTimer_ = timers_.scheduleOnce(kEndOfEditDelaySeconds, [weak] {
    if (auto self = weak.lock()) (*self)->endContinuousEdit();
  });
}

void MarkupDocument::endContinuousEdit() {
  assertMainThread();
  if (endOfEditTimer_) {
    timers_.cancel(*endOfEditTimer_);
    endOfEditTimer_.reset();
  }
  continuousEditNames_.reset();
}

bool MarkupDocument::shouldRegisterUndo(const std::string& collection) {
  if (!continuousEditNames_) return true;
  if (undo_.isUndoing() || undo_.isRedoing()) return true;
  // The pointer was released and no quiet timer runs: the gesture is over.
  if (!endOfEditTimer_ && !pointer_.isButtonDown()) {
    endContinuousEdit();
    return true;
  }
  return continuousEditNames_->insert(collection).second;
}

MarkupDocumentSnapshot MarkupDocument::snapshot(Date createdAt) const {
  MarkupDocumentSnapshot s;
  const Content& c = content_;
  s.version = MarkupDocumentSnapshot::kCurrentVersion;
  s.sourceItemID = sourceItemID_;
  s.sourceImageWidth = sourceImageSize_.width;
  s.sourceImageHeight = sourceImageSize_.height;
  s.createdAt = createdAt;
  s.inkStrokes = c.inkStrokes;
  s.shapes = c.shapes;
  s.textBoxes = c.textBoxes;
  s.effects = c.effects;
  s.signatures = c.signatures;
  s.magnifiers = c.magnifiers;
  s.spotlights = c.spotlights;
  s.stepBadges = c.stepBadges;
  s.emojiStamps = c.emojiStamps;
  s.cutouts = c.cutouts;
  s.rulers = c.rulers;
  s.crop = c.crop;
  s.transform = c.transform;
  s.perspective = c.perspective;
  s.background = c.background;
  s.chrome = c.chrome;
  s.canvasExtension = c.canvasExtension;
  s.watermarks = c.watermarks;
  s.layerOrder = c.layerOrder;
  s.colorAdjustments = c.colorAdjustments;
  s.backgroundRemoval = c.backgroundRemoval;
  s.lockedLayers = c.lockedLayers;
  return s;
}

bool MarkupDocument::isDirty() const { return snapshot(baseline_.createdAt) != baseline_; }

}  // namespace klipora::markup
