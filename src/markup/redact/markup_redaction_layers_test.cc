#include "markup/redact/markup_redaction_layers.h"

#include <gtest/gtest.h>

#include "platform/testing/manual_clock.h"

namespace klipora::markup {
namespace {

using Kind = MarkupAutoRedactor::Kind;
using Effect = MarkupEffectRegion::Kind;

class MarkupRedactionLayersTest : public ::testing::Test {
 protected:
  testing::ManualClock clock_;
  NoPointerInput pointer_;
  MarkupDocument document_{UUID::Random(), Size{800, 600}, clock_.now(), clock_, pointer_};
  std::vector<MarkupAutoRedactor::Detection> found_ = {
      {Kind::email, Rect::make(10, 10, 100, 20), "a@b.io"},
      {Kind::apiKey, Rect::make(10, 40, 300, 20), "sk-..."},
      {Kind::face, Rect::make(400, 100, 80, 80), ""},
      {Kind::person, Rect::make(500, 100, 80, 300), ""},
  };
};

TEST_F(MarkupRedactionLayersTest, EveryDetectionIsOneLayerAndAllOfThemOneUndoStep) {
  MarkupEffectRegion kept{.kind = Effect::pixelate, .frame = Rect::make(0, 0, 5, 5)};
  document_.mutateEffects({kept}, "Pixelate");
  EXPECT_EQ(applyRedactions(document_, found_, HumanRedactionStyle::blur), 4u);
  const auto& effects = document_.content().effects;
  ASSERT_EQ(effects.size(), 5u);
  EXPECT_EQ(effects[1].frame, found_[0].frame);
  EXPECT_EQ(effects[1].kind, Effect::blackBar);
  EXPECT_EQ(effects[2].kind, Effect::blackBar);  // a secret: nothing of it survives
  EXPECT_EQ(effects[3].kind, Effect::gaussianBlur);
  EXPECT_EQ(effects[3].intensity, 1);
  EXPECT_EQ(effects[4].kind, Effect::gaussianBlur);
  EXPECT_EQ(document_.layerOrder().size(), 5u);
  EXPECT_EQ(document_.undoManager().undoActionName(), "Auto-Redact");

  // A second run over the same image adds nothing and no undo step.
  EXPECT_EQ(applyRedactions(document_, found_, HumanRedactionStyle::blur), 0u);
  EXPECT_EQ(document_.content().effects.size(), 5u);
  EXPECT_EQ(document_.undoManager().undoActionName(), "Auto-Redact");

  ASSERT_TRUE(document_.undoManager().undo());
  EXPECT_EQ(document_.content().effects, std::vector<MarkupEffectRegion>{kept});
}

TEST_F(MarkupRedactionLayersTest, SolidStyleCoversPeopleWithBarsAndNothingFoundChangesNothing) {
  applyRedactions(document_, found_, HumanRedactionStyle::solid);
  for (const auto& effect : document_.content().effects) EXPECT_EQ(effect.kind, Effect::blackBar);

  MarkupDocument untouched(UUID::Random(), Size{10, 10}, clock_.now(), clock_, pointer_);
  EXPECT_EQ(applyRedactions(untouched, {}, HumanRedactionStyle::blur), 0u);
  EXPECT_FALSE(untouched.undoManager().canUndo());
  EXPECT_FALSE(untouched.isDirty());
}

}  // namespace
}  // namespace klipora::markup
