#include "markup/layer_order.h"

#include <gtest/gtest.h>

#include "markup/markup_document_snapshot.h"

namespace klipora::markup {
namespace {

using K = LayerRef::Kind;

// One layer of every family, and two shapes, each pushed in an order that is
// not the legacy one.
MarkupDocumentSnapshot OneOfEach() {
  MarkupDocumentSnapshot s;
  s.watermarks.emplace_back();
  s.spotlights.emplace_back();
  s.stepBadges.emplace_back();
  s.cutouts.emplace_back();
  s.signatures.emplace_back();
  s.textBoxes.emplace_back();
  s.rulers.emplace_back();
  s.emojiStamps.emplace_back();
  s.shapes.resize(2);
  s.inkStrokes.emplace_back();
  s.magnifiers.emplace_back();
  s.effects.emplace_back();
  return s;
}

std::vector<K> Kinds(const std::vector<LayerRef>& order) {
  std::vector<K> kinds;
  for (const auto& ref : order) kinds.push_back(ref.kind);
  return kinds;
}

TEST(LayerOrderTest, LegacyOrderStacksFamiliesEffectsFirstSpotlightsLastWithoutWatermarks) {
  auto s = OneOfEach();
  auto order = legacyLayerOrder(s);
  EXPECT_EQ(Kinds(order), (std::vector<K>{K::effect, K::magnifier, K::inkStroke, K::shape, K::shape,
                                          K::emojiStamp, K::ruler, K::textBox, K::signature,
                                          K::cutout, K::stepBadge, K::spotlight}));
  EXPECT_EQ(order[3].id, s.shapes[0].id);  // array order within a family
  EXPECT_EQ(order[4].id, s.shapes[1].id);

  auto synced = syncedLayerOrder(order, s);
  EXPECT_EQ(synced.back(), (LayerRef{K::watermark, s.watermarks[0].id}));
  EXPECT_EQ(synced.size(), order.size() + 1);
}

TEST(LayerOrderTest, SyncKeepsOrderDropsStaleAndDuplicateRefsAndAppendsNewLayers) {
  MarkupDocumentSnapshot s;
  s.shapes.resize(2);
  s.textBoxes.resize(1);
  LayerRef shape0{K::shape, s.shapes[0].id};
  LayerRef shape1{K::shape, s.shapes[1].id};
  LayerRef text{K::textBox, s.textBoxes[0].id};
  LayerRef deleted{K::effect, UUID::Random()};
  LayerRef wrongKind{K::ruler, s.shapes[0].id};  // same id, other family: not a layer

  std::vector<LayerRef> current{text, deleted, shape1, text, wrongKind};
  auto synced = syncedLayerOrder(current, s);
  // Existing order kept with the first (lowest) duplicate winning; the
  // missing shape appended on top.
  EXPECT_EQ(synced, (std::vector<LayerRef>{text, shape1, shape0}));

  // A newly added layer lands on top of everything that is already ordered.
  s.effects.emplace_back();
  synced = syncedLayerOrder(synced, s);
  EXPECT_EQ(synced.back(), (LayerRef{K::effect, s.effects[0].id}));
  EXPECT_EQ(syncedLayerOrder(synced, s), synced);  // stable once in sync
}

TEST(LayerRefTest, EqualityHashingAndSelectionMapping) {
  UUID id = UUID::Random();
  std::unordered_set<LayerRef> refs{{K::shape, id}, {K::shape, id}, {K::textBox, id}};
  EXPECT_EQ(refs.size(), 2u);

  auto selection = MarkupSelection::layer({K::signature, id});
  EXPECT_EQ(selection.kind, MarkupSelection::Kind::signatureStamp);
  EXPECT_EQ(selection.layerRef(), (LayerRef{K::signature, id}));
  EXPECT_EQ(MarkupSelection::crop().layerRef(), std::nullopt);
}

}  // namespace
}  // namespace klipora::markup
