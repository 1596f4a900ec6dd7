// MarkupDocument: everything the user adds to or changes on one screenshot in
// the markup editor: eleven layer families, watermark placements, the
// whole-image settings, the z-order (`layerOrder`, bottom to top), the locked
// layers and the selection. It is the single owner of layer data; views and
// tools hold only LayerRefs.
//
// Every change goes through a mutator that takes the whole new value of one
// collection and an undo action name; each registers its own undo step
// (whose undo calls the same mutator with the old value), except that inside
// a continuous edit (a drag, a slider scrub) only the first change of each
// collection registers, so a gesture is one step. After any change the
// z-order is rebuilt to name exactly the layers that exist.
//
// Thread rules: main thread only (mutators assert it). The end-of-edit timer
// runs on the main thread and holds the document weakly.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "markup/layer_ref.h"
#include "markup/markup_beautify_presets.h"
#include "markup/markup_document_snapshot.h"
#include "markup/markup_undo_manager.h"
#include "markup/pointer_input.h"
#include "platform/clock.h"

namespace klipora::markup {

class MarkupDocument {
 public:
  // The state besides identity, under the names the saved form uses.
  struct Content {
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
    std::vector<LayerRef> layerOrder;
    std::set<LayerRef> lockedLayers;
    std::optional<MarkupColorAdjustments> colorAdjustments;
    std::optional<MarkupBackgroundRemoval> backgroundRemoval;
  };

  // Quiet time after the last noted step that ends a continuous edit.
  static constexpr double kEndOfEditDelaySeconds = 0.6;

  // An empty document: no layers, no settings, identity transform.
  MarkupDocument(const UUID& sourceItemID, Size sourceImageSize, Date createdAt, Timers& timers,
                 const PointerInput& pointer);
  // Opens a saved snapshot; without a `layerOrder` the layers stack in the
  // legacy order. The baseline is this document's own snapshot as opened.
  MarkupDocument(const MarkupDocumentSnapshot& snapshot, Timers& timers,
                 const PointerInput& pointer);
  ~MarkupDocument();
  MarkupDocument(const MarkupDocument&) = delete;
  MarkupDocument& operator=(const MarkupDocument&) = delete;

  const UUID& sourceItemID() const { return sourceItemID_; }
  Size sourceImageSize() const { return sourceImageSize_; }
  // The layers and settings; change them only through the mutators.
  const Content& content() const { return content_; }
  const std::vector<LayerRef>& layerOrder() const { return content_.layerOrder; }
  const std::set<LayerRef>& lockedLayers() const { return content_.lockedLayers; }
  bool isLocked(const LayerRef& ref) const { return content_.lockedLayers.count(ref) > 0; }
  bool layerExists(const LayerRef& ref) const;

  const std::optional<MarkupSelection>& selection() const { return selection_; }
  void setSelection(std::optional<MarkupSelection> selection);

  MarkupUndoManager& undoManager() { return undo_; }
  // Called after every change (the editor's views observe through it).
  void setChangeHandler(std::function<void()> handler) { onChange_ = std::move(handler); }

  // The mutators, one per collection.
  void mutateInkStrokes(std::vector<MarkupInkStroke> value, std::string actionName);
  void mutateShapes(std::vector<MarkupShape> value, std::string actionName);
  void mutateTextBoxes(std::vector<MarkupTextBox> value, std::string actionName);
  void mutateEffects(std::vector<MarkupEffectRegion> value, std::string actionName);
  void mutateSignatures(std::vector<MarkupSignatureStamp> value, std::string actionName);
  void mutateMagnifiers(std::vector<MarkupMagnifierRegion> value, std::string actionName);
  void mutateSpotlights(std::vector<MarkupSpotlightRegion> value, std::string actionName);
  void mutateStepBadges(std::vector<MarkupStepBadge> value, std::string actionName);
  void mutateEmojiStamps(std::vector<MarkupEmojiStamp> value, std::string actionName);
  void mutateCutouts(std::vector<MarkupCutoutSticker> value, std::string actionName);
  void mutateRulers(std::vector<MarkupRulerLine> value, std::string actionName);
  void mutateWatermarks(std::vector<MarkupWatermarkPlacement> value, std::string actionName);
  void mutateCrop(std::optional<MarkupCrop> value, std::string actionName);
  void mutateTransform(MarkupTransform value, std::string actionName);
  void mutatePerspective(std::optional<MarkupPerspectiveTransform> value, std::string actionName);
  void mutateBackground(std::optional<MarkupBackgroundFrame> value, std::string actionName);
  void mutateChrome(std::optional<MarkupChromeFrame> value, std::string actionName);
  void mutateCanvasExtension(std::optional<MarkupCanvasExtension> value, std::string actionName);
  void mutateColorAdjustments(std::optional<MarkupColorAdjustments> value, std::string actionName);
  void mutateBackgroundRemoval(std::optional<MarkupBackgroundRemoval> value,
                               std::string actionName);
  void mutateLayerOrder(std::vector<LayerRef> value, std::string actionName);

  // Rebuilds `layerOrder` to name exactly the existing layers (see layer_order.h).
  void syncLayerOrder();

  // Z-order commands; each is one undoable step through mutateLayerOrder. A
  // ref that is not in the order, or already at that end, changes nothing.
  void moveLayerUp(const LayerRef& ref, std::string actionName);
  void moveLayerDown(const LayerRef& ref, std::string actionName);
  void bringLayerToFront(const LayerRef& ref, std::string actionName);
  void sendLayerToBack(const LayerRef& ref, std::string actionName);
  // Locks or unlocks a layer, undoably. Locking a layer that does not exist
  // changes nothing.
  void toggleLocked(const LayerRef& ref, std::string actionName);

  // Sets chrome and background together, as one undo step.
  void applyBeautify(const MarkupBeautifyPresets::Output& output, std::string actionName);
  void revertBeautify(std::optional<MarkupChromeFrame> chrome,
                      std::optional<MarkupBackgroundFrame> background, std::string actionName);

  // Continuous edits. begin: at the start of a drag; note: on each step of a
  // change without a pointer release (scroll wheel, arrow keys), which ends
  // the edit after kEndOfEditDelaySeconds of quiet; end: when it is over.
  void beginContinuousEdit();
  void noteContinuousEdit();
  void endContinuousEdit();
  bool isInContinuousEdit() const { return continuousEditNames_.has_value(); }
  // Whether a change of `collection` (its field name) opens a new undo step.
  bool shouldRegisterUndo(const std::string& collection);

  // The current state as a snapshot (version 5, no fingerprint).
  MarkupDocumentSnapshot snapshot(Date createdAt) const;
  const MarkupDocumentSnapshot& baselineSnapshot() const { return baseline_; }
  // True when the current state differs from the baseline in any field.
  bool isDirty() const;
  bool hasUnsavedChanges() const { return isDirty(); }

 private:
  template <typename T>
  void mutate(T Content::*field, void (MarkupDocument::*mutator)(T, std::string),
              const char* collection, T value, std::string actionName);
  void reorder(const LayerRef& ref, std::string actionName,
               const std::function<bool(std::vector<LayerRef>&, size_t)>& move);
  void changed();
  void assertMainThread() const;

  UUID sourceItemID_;
  Size sourceImageSize_;
  Content content_;
  std::optional<MarkupSelection> selection_;
  MarkupDocumentSnapshot baseline_;
  MarkupUndoManager undo_;
  Timers& timers_;
  const PointerInput& pointer_;
  std::optional<std::set<std::string>> continuousEditNames_;
  std::optional<TimerId> endOfEditTimer_;
  // The end-of-edit timer holds this weakly, so a closed document is skipped.
  std::shared_ptr<MarkupDocument*> self_;
  std::function<void()> onChange_;
  std::thread::id owner_;
};

}  // namespace klipora::markup
