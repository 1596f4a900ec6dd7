#include "markup/markup_document.h"

#include <gtest/gtest.h>

#include "markup/markup_tool_defaults.h"
#include "platform/testing/manual_clock.h"

namespace klipora::markup {
namespace {

using K = LayerRef::Kind;

class FakePointer final : public PointerInput {
 public:
  bool down = false;
  bool isButtonDown() const override { return down; }
};

class MarkupDocumentTest : public ::testing::Test {
 protected:
  MarkupDocumentTest()
      : doc_(std::make_unique<MarkupDocument>(UUID::Random(), Size{800, 600}, clock_.now(), clock_,
                                              pointer_)) {}

  MarkupShape Shape(double x) {
    MarkupShape s;
    s.frame = Rect::make(x, 10, 50, 40);
    return s;
  }
  const std::vector<MarkupShape>& shapes() { return doc_->content().shapes; }
  MarkupUndoManager& undo() { return doc_->undoManager(); }

  // One mouse drag of the first shape through `steps` updates of 1 px.
  void Drag(int steps) {
    doc_->beginContinuousEdit();
    pointer_.down = true;
    for (int i = 0; i < steps; ++i) {
      auto moved = shapes();
      moved[0].frame = moved[0].frame.offsetBy(1, 0);
      doc_->mutateShapes(moved, "Move");
    }
    pointer_.down = false;
    doc_->endContinuousEdit();
  }

  testing::ManualClock clock_;
  FakePointer pointer_;
  std::unique_ptr<MarkupDocument> doc_;
};

TEST_F(MarkupDocumentTest, MutatorRegistersSymmetricUndoAndKeepsOrderInSync) {
  doc_->mutateShapes({Shape(0), Shape(100)}, "Add Shapes");
  ASSERT_EQ(doc_->layerOrder().size(), 2u);
  LayerRef first{K::shape, shapes()[0].id};

  doc_->mutateShapes({shapes()[1]}, "Delete");
  EXPECT_EQ(doc_->layerOrder(), (std::vector<LayerRef>{{K::shape, shapes()[0].id}}));
  EXPECT_EQ(undo().undoActionName(), "Delete");

  ASSERT_TRUE(undo().undo());
  EXPECT_EQ(shapes().size(), 2u);
  EXPECT_EQ(doc_->layerOrder().back(), first);  // a restored layer returns on top
  EXPECT_EQ(undo().redoActionName(), "Delete");

  ASSERT_TRUE(undo().redo());
  EXPECT_EQ(shapes().size(), 1u);
  EXPECT_EQ(undo().undoCount(), 2u);
  EXPECT_EQ(undo().undoActionName(), "Delete");

  // A new change after an undo forgets the redo.
  undo().undo();
  doc_->mutateCrop(MarkupCrop{Rect::make(0, 0, 10, 10)}, "Crop");
  EXPECT_FALSE(undo().canRedo());
}

TEST_F(MarkupDocumentTest, DragOfTwoHundredUpdatesIsOneUndoStepBackToTheStart) {
  doc_->mutateShapes({Shape(10)}, "Add Shape");
  Drag(200);
  EXPECT_EQ(shapes()[0].frame.minX(), 210);
  EXPECT_EQ(undo().undoCount(), 2u);

  undo().undo();
  EXPECT_EQ(shapes()[0].frame.minX(), 10);
  undo().redo();
  EXPECT_EQ(shapes()[0].frame.minX(), 210);

  // The next drag is a step of its own.
  Drag(5);
  EXPECT_EQ(undo().undoCount(), 3u);
  undo().undo();
  EXPECT_EQ(shapes()[0].frame.minX(), 210);
}

TEST_F(MarkupDocumentTest, GestureRegistersFirstChangeOfEachCollection) {
  doc_->beginContinuousEdit();
  pointer_.down = true;
  doc_->mutateShapes({Shape(1)}, "Move");
  doc_->mutateTextBoxes({MarkupTextBox{}}, "Move");
  doc_->mutateShapes({Shape(2)}, "Move");
  doc_->mutateTextBoxes({}, "Move");
  EXPECT_EQ(undo().undoCount(), 2u);
  EXPECT_FALSE(doc_->shouldRegisterUndo("shapes"));
  EXPECT_TRUE(doc_->shouldRegisterUndo("rulers"));
}

TEST_F(MarkupDocumentTest, UndoingDuringOpenGestureRegistersRedoAndLeavesTheSetAlone) {
  doc_->mutateTextBoxes({MarkupTextBox{}}, "Add Text");
  doc_->mutateShapes({Shape(0)}, "Add Shape");
  doc_->beginContinuousEdit();
  pointer_.down = true;
  doc_->mutateShapes({Shape(5)}, "Move");  // first shapes change: registered
  ASSERT_EQ(undo().undoCount(), 3u);

  undo().undo();  // the gesture's step, while the gesture is still open
  EXPECT_EQ(shapes()[0].frame.minX(), 0);
  EXPECT_TRUE(undo().canRedo());
  undo().undo();  // "Add Shape": its redo is registered although shapes is in the set
  EXPECT_EQ(undo().redoCount(), 2u);

  // textBoxes was not put into the set by the undo machinery, so its first
  // change in this gesture still opens a step.
  doc_->mutateTextBoxes({}, "Delete");
  EXPECT_EQ(undo().undoCount(), 2u);
  EXPECT_EQ(undo().undoActionName(), "Delete");
}

TEST_F(MarkupDocumentTest, ReleasedPointerWithoutTimerClosesGestureOnNextChange) {
  doc_->mutateShapes({Shape(0)}, "Add Shape");
  doc_->beginContinuousEdit();
  pointer_.down = true;
  doc_->mutateShapes({Shape(1)}, "Move");
  doc_->mutateShapes({Shape(2)}, "Move");
  pointer_.down = false;  // mouse up, and nobody called endContinuousEdit
  doc_->mutateShapes({Shape(3)}, "Move");
  EXPECT_FALSE(doc_->isInContinuousEdit());
  EXPECT_EQ(undo().undoCount(), 3u);
  undo().undo();
  EXPECT_EQ(shapes()[0].frame.minX(), 2);
}

TEST_F(MarkupDocumentTest, NotedEditsEndAfterQuietTimeOnTheClock) {
  doc_->mutateShapes({Shape(0)}, "Add Shape");
  for (int i = 1; i <= 10; ++i) {  // arrow-key nudges, 0.5 s apart
    doc_->noteContinuousEdit();
    doc_->mutateShapes({Shape(i)}, "Nudge");
    clock_.advance(0.5);
  }
  EXPECT_TRUE(doc_->isInContinuousEdit());  // the pointer is up, but a timer is pending
  EXPECT_EQ(undo().undoCount(), 2u);
  clock_.advance(0.11);
  EXPECT_FALSE(doc_->isInContinuousEdit());
  doc_->mutateShapes({Shape(20)}, "Nudge");
  EXPECT_EQ(undo().undoCount(), 3u);

  // A document closed with a timer pending is skipped when it would fire.
  doc_->noteContinuousEdit();
  doc_.reset();
  clock_.advance(1);
  EXPECT_EQ(clock_.pendingTimers(), 0u);
}

TEST_F(MarkupDocumentTest, OrderCommandsLocksAndBeautifyAreSingleUndoSteps) {
  doc_->mutateShapes({Shape(0), Shape(1), Shape(2)}, "Add");
  auto order = doc_->layerOrder();
  LayerRef a = order[0], b = order[1], c = order[2];

  doc_->moveLayerUp(a, "Move Up");
  EXPECT_EQ(doc_->layerOrder(), (std::vector<LayerRef>{b, a, c}));
  doc_->bringLayerToFront(b, "Front");
  EXPECT_EQ(doc_->layerOrder(), (std::vector<LayerRef>{a, c, b}));
  doc_->sendLayerToBack(b, "Back");
  doc_->moveLayerDown(c, "Down");
  EXPECT_EQ(doc_->layerOrder(), (std::vector<LayerRef>{b, c, a}));
  size_t steps = undo().undoCount();
  doc_->moveLayerUp(a, "Move Up");   // already on top
  doc_->sendLayerToBack(b, "Back");  // already at the bottom
  EXPECT_EQ(undo().undoCount(), steps);
  undo().undo();
  undo().undo();
  EXPECT_EQ(doc_->layerOrder(), (std::vector<LayerRef>{a, c, b}));

  doc_->toggleLocked(a, "Lock");
  EXPECT_TRUE(doc_->isLocked(a));
  doc_->toggleLocked({K::ruler, UUID::Random()}, "Lock");  // no such layer
  EXPECT_EQ(doc_->lockedLayers().size(), 1u);
  undo().undo();
  EXPECT_FALSE(doc_->isLocked(a));
  undo().redo();
  EXPECT_TRUE(doc_->isLocked(a));

  steps = undo().undoCount();
  auto look = MarkupBeautifyPresets::output(MarkupBeautifyPresets::Look::sunset);
  doc_->applyBeautify(look, "Beautify");
  EXPECT_EQ(doc_->content().chrome, look.chrome);
  EXPECT_EQ(doc_->content().background, look.background);
  EXPECT_EQ(undo().undoCount(), steps + 1);
  undo().undo();
  EXPECT_FALSE(doc_->content().chrome || doc_->content().background);
  undo().redo();
  EXPECT_EQ(doc_->content().background, look.background);
}

TEST_F(MarkupDocumentTest, DirtyComparesWithTheOpenedState) {
  EXPECT_FALSE(doc_->isDirty());
  doc_->mutateTransform(MarkupTransform{1, false, false, 0}, "Rotate");
  EXPECT_TRUE(doc_->hasUnsavedChanges());
  undo().undo();
  EXPECT_FALSE(doc_->isDirty());
  doc_->setSelection(MarkupSelection::crop());  // the selection is not saved
  EXPECT_FALSE(doc_->isDirty());

  // An old snapshot (version 1, no layer order) is not dirty on opening.
  MarkupDocumentSnapshot old;
  old.version = 1;
  old.shapes = {Shape(0)};
  old.watermarks.emplace_back();
  old.effects.emplace_back();
  MarkupDocument opened(old, clock_, pointer_);
  EXPECT_FALSE(opened.isDirty());
  EXPECT_EQ(opened.layerOrder().front().kind, K::effect);
  EXPECT_EQ(opened.layerOrder().back().kind, K::watermark);
}

TEST(MarkupDefaultsTest, BrushTextStyleAndNeutralAdjustments) {
  MarkupBrush brush;
  EXPECT_EQ(brush.strokeColor, (CodableColor{1.0, 59 / 255.0, 48 / 255.0, 1}));
  EXPECT_EQ(brush.strokeWidth, 3.0);
  EXPECT_FALSE(brush.fillColor || brush.dashPattern);
  MarkupTextStyleDefaults text;
  EXPECT_EQ(text.fontName, "DejaVu Sans");
  EXPECT_EQ(text.fontSize, 24);

  MarkupColorAdjustments adjust;
  EXPECT_TRUE(adjust.isIdentity());
  adjust.contrast = 1.00005;
  adjust.sharpness = -1;  // only a positive sharpness sharpens
  EXPECT_TRUE(adjust.isIdentity());
  adjust.brightness = -0.001;
  EXPECT_FALSE(adjust.isIdentity());
  EXPECT_FALSE((MarkupColorAdjustments{MarkupColorAdjustments::Preset::noir}).isIdentity());
}

}  // namespace
}  // namespace klipora::markup
