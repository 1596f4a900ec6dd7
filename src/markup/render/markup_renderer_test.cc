// The renderer on real Cairo surfaces: each test draws and then reads pixels.
#include "markup/render/markup_renderer.h"

#include <gtest/gtest.h>

#include <cmath>

#include "markup/render/markup_arrow_geometry.h"
#include "markup/render/markup_layer_drawing.h"
#include "markup/render/markup_render_steps.h"
#include "platform/testing/fake_image_codec.h"

namespace klipora::markup {
namespace {

constexpr CodableColor kWhite{1, 1, 1, 1};
constexpr CodableColor kBlack{0, 0, 0, 1};
constexpr CodableColor kRed{1, 0, 0, 1};
constexpr CodableColor kBlue{0, 0, 1, 1};

MarkupImage Filled(int width, int height, CodableColor color) {
  auto image = MarkupImage::create(width, height);
  CairoContext cr(*image);
  setSourceColor(cr.get(), color);
  cairo_paint(cr.get());
  return std::move(*image);
}

bool Near(Rgba8 a, Rgba8 b, int tolerance = 2) {
  return std::abs(a.r - b.r) <= tolerance && std::abs(a.g - b.g) <= tolerance &&
         std::abs(a.b - b.b) <= tolerance && std::abs(a.a - b.a) <= tolerance;
}

class MarkupRendererTest : public ::testing::Test {
 protected:
  MarkupDocumentSnapshot Document(int width = 200, int height = 100) {
    MarkupDocumentSnapshot d;
    d.sourceImageWidth = width;
    d.sourceImageHeight = height;
    return d;
  }
  MarkupImage Render(const MarkupDocumentSnapshot& d, const MarkupImage& source) {
    auto out = renderer_.render(d, source);
    EXPECT_TRUE(out.has_value()) << (out ? "" : out.error().message());
    return out ? std::move(*out) : MarkupImage();
  }
  MarkupImage Render(const MarkupDocumentSnapshot& d) {
    return Render(d, Filled(static_cast<int>(d.sourceImageWidth),
                            static_cast<int>(d.sourceImageHeight), kWhite));
  }

  testing::FakeImageCodec codec_;
  EmojiStampRendering emoji_;
  MarkupRenderer renderer_{codec_, nullptr, &emoji_};
};

TEST_F(MarkupRendererTest, OnePointPenStrokeIsARoundDotOfItsWidth) {
  auto d = Document();
  d.inkStrokes.push_back({.kind = MarkupInkStroke::Kind::pen, .points = {{50, 50}}, .color = kRed,
                          .width = 20});
  auto out = Render(d);
  EXPECT_TRUE(Near(out.pixel(50, 50), {255, 0, 0, 255}));
  EXPECT_TRUE(Near(out.pixel(57, 50), {255, 0, 0, 255}));   // inside the radius of 10
  EXPECT_TRUE(Near(out.pixel(50, 43), {255, 0, 0, 255}));
  EXPECT_TRUE(Near(out.pixel(63, 50), {255, 255, 255, 255}));  // beyond it
  EXPECT_TRUE(Near(out.pixel(58, 58), {255, 255, 255, 255}));  // round, not square
  d.inkStrokes[0].points.clear();
  EXPECT_TRUE(Near(Render(d).pixel(50, 50), {255, 255, 255, 255}));  // no points, nothing
}

TEST_F(MarkupRendererTest, HighlighterMultipliesSoBlackStaysBlackAndMarkerIsTranslucent) {
  auto d = Document();
  auto source = Filled(200, 100, kWhite);
  {
    CairoContext cr(source);
    setSourceColor(cr.get(), kBlack);
    cairo_rectangle(cr.get(), 0, 0, 100, 100);
    cairo_fill(cr.get());
  }
  d.inkStrokes.push_back({.kind = MarkupInkStroke::Kind::highlighter,
                          .points = {{10, 30}, {190, 30}}, .color = {1, 1, 0, 1}, .width = 16});
  d.inkStrokes.push_back({.kind = MarkupInkStroke::Kind::marker, .points = {{150, 70}, {190, 70}},
                          .color = kBlue, .width = 10});
  auto out = Render(d, source);
  EXPECT_TRUE(Near(out.pixel(50, 30), {0, 0, 0, 255}));  // over black: still black
  // Over white paper: 30 % of yellow multiplied in leaves blue at 70 %.
  EXPECT_TRUE(Near(out.pixel(150, 30), {255, 255, 179, 255}, 3)) << int(out.pixel(150, 30).b);
  // A marker's alpha is 0.85 whatever the stored alpha.
  EXPECT_TRUE(Near(out.pixel(170, 70), {38, 38, 255, 255}, 3));
}

TEST_F(MarkupRendererTest, SpotlightsCutHolesAndAnOverlapIsDimAgain) {
  auto d = Document();
  MarkupSpotlightRegion a{.shape = MarkupSpotlightRegion::Shape::rectangle,
                          .frame = Rect::make(10, 10, 60, 60), .dimColor = kBlack,
                          .dimOpacity = 0.5, .feather = 0};
  MarkupSpotlightRegion b = a;
  b.id = UUID::Random();
  b.frame = Rect::make(50, 10, 60, 60);
  d.spotlights = {a, b};
  ASSERT_EQ(spotlightBuckets(d.spotlights).size(), 1u);
  auto out = Render(d);
  EXPECT_TRUE(Near(out.pixel(20, 40), {255, 255, 255, 255}));  // lit by a
  EXPECT_TRUE(Near(out.pixel(100, 40), {255, 255, 255, 255}));  // lit by b
  EXPECT_TRUE(Near(out.pixel(60, 40), {128, 128, 128, 255}));  // both: even-odd dims it
  EXPECT_TRUE(Near(out.pixel(150, 90), {128, 128, 128, 255}));  // outside: dimmed
  // A different opacity opens a bucket of its own.
  d.spotlights[1].dimOpacity = 0.7;
  EXPECT_EQ(spotlightBuckets(d.spotlights).size(), 2u);
}

TEST_F(MarkupRendererTest, SpotlightFeatherAboveHalfAPixelSoftensTheEdge) {
  auto d = Document();
  d.spotlights.push_back({.shape = MarkupSpotlightRegion::Shape::ellipse,
                          .frame = Rect::make(40, 20, 120, 60), .dimColor = kBlack,
                          .dimOpacity = 0.6, .feather = 0.5});
  auto hard = Render(d);
  d.spotlights[0].feather = 8;
  auto soft = Render(d);
  // Just inside the ellipse's left end: lit when hard, partly dim when soft.
  EXPECT_TRUE(Near(hard.pixel(44, 50), {255, 255, 255, 255}));
  EXPECT_LT(soft.pixel(44, 50).r, 230);
  EXPECT_GT(soft.pixel(44, 50).r, 110);
  EXPECT_TRUE(Near(soft.pixel(100, 50), {255, 255, 255, 255}, 3));  // the middle stays lit
  EXPECT_TRUE(Near(soft.pixel(2, 2), hard.pixel(2, 2), 3));          // far outside: equally dim
}

TEST_F(MarkupRendererTest, EffectsLieUnderShapesAndSpotlightsOverThemWhateverTheOrder) {
  auto d = Document();
  MarkupShape shape{.kind = MarkupShape::Kind::rectangle, .frame = Rect::make(20, 20, 40, 40),
                    .strokeColor = kRed, .fillColor = kRed, .strokeWidth = 2};
  MarkupEffectRegion bar{.kind = MarkupEffectRegion::Kind::blackBar,
                         .frame = Rect::make(0, 0, 100, 100)};
  MarkupSpotlightRegion spot{.frame = Rect::make(150, 0, 50, 50), .dimColor = kBlack,
                             .dimOpacity = 0.5};
  d.shapes = {shape};
  d.effects = {bar};
  d.spotlights = {spot};
  // The saved order puts the spotlight at the bottom and the effect on top.
  d.layerOrder = std::vector<LayerRef>{{LayerRef::Kind::spotlight, spot.id},
                                       {LayerRef::Kind::shape, shape.id},
                                       {LayerRef::Kind::effect, bar.id}};
  auto out = Render(d);
  EXPECT_TRUE(Near(out.pixel(40, 40), {128, 0, 0, 255}));  // red under the dimming
  EXPECT_TRUE(Near(out.pixel(80, 80), {0, 0, 0, 255}));    // the bar itself
  EXPECT_TRUE(Near(out.pixel(170, 20), {255, 255, 255, 255}));  // lit
}

TEST_F(MarkupRendererTest, BlurAndPixelateChangeOnlyTheirRegion) {
  auto d = Document();
  auto source = Filled(200, 100, kWhite);
  {
    // Black and white stripes, 2 px each.
    CairoContext cr(source);
    setSourceColor(cr.get(), kBlack);
    for (int x = 0; x < 200; x += 4) cairo_rectangle(cr.get(), x, 0, 2, 100);
    cairo_fill(cr.get());
  }
  d.effects.push_back({.kind = MarkupEffectRegion::Kind::gaussianBlur,
                       .frame = Rect::make(0, 0, 100, 100), .intensity = 0.2});
  d.effects.push_back({.kind = MarkupEffectRegion::Kind::pixelate,
                       .frame = Rect::make(120, 0, 80, 100), .intensity = 0});
  auto out = Render(d, source);
  // Blurred stripes average to mid grey; at the region's edge its own last
  // column repeats outward (white there), so nothing outside darkens it.
  EXPECT_NEAR(out.pixel(50, 50).r, 128, 12);
  EXPECT_GT(out.pixel(99, 50).r, 150);
  EXPECT_TRUE(Near(out.pixel(100, 50), {0, 0, 0, 255}));    // untouched beside it
  EXPECT_TRUE(Near(out.pixel(102, 50), {255, 255, 255, 255}));
  // Pixelate: 6-px blocks of one mean colour (4 black and 2 white of 6 columns or the other way).
  EXPECT_EQ(pixelateBlockSize(0), 6);
  EXPECT_EQ(out.pixel(120, 0), out.pixel(125, 5));
  EXPECT_NE(out.pixel(120, 0).r, 0);
  EXPECT_NE(out.pixel(120, 0).r, 255);
  EXPECT_NEAR(blurRadius(0.5), 17, 1e-9);
}

TEST_F(MarkupRendererTest, BackgroundFrameCastsAPositiveOffsetYShadowDownwards) {
  auto d = Document(100, 60);
  d.background = MarkupBackgroundFrame{
      .padding = 40.5, .paddingVertical = 30, .fill = MarkupBackgroundFrame::Solid{kWhite},
      .cornerRadius = 500, .shadow = MarkupBackgroundFrame::Shadow{kBlack, 10, 0, 12, 0.5}};
  auto out = Render(d, Filled(100, 60, kBlue));
  EXPECT_EQ(out.width(), 181);  // 100 + 81, rounded half away from zero
  EXPECT_EQ(out.height(), 120);
  EXPECT_TRUE(Near(out.pixel(90, 60), {0, 0, 255, 255}));
  // Below the image the shadow darkens the background; above it does not.
  EXPECT_LT(out.pixel(90, 95).r, 220);
  EXPECT_GT(out.pixel(90, 25).r, 250);
  // The corner radius is clamped to half the shorter side: the image's
  // corner is rounded off to background.
  EXPECT_GT(out.pixel(41, 31).r, 200);
}

TEST_F(MarkupRendererTest, GradientRunsAlongItsAngle) {
  auto d = Document(100, 100);
  d.background = MarkupBackgroundFrame{
      .padding = 10, .fill = MarkupBackgroundFrame::LinearGradient{kBlack, kWhite, 0}};
  auto out = Render(d);
  EXPECT_LT(out.pixel(1, 60).r, 20);
  EXPECT_GT(out.pixel(118, 60).r, 235);
  d.background->fill = MarkupBackgroundFrame::LinearGradient{kBlack, kWhite, 90};  // upwards
  out = Render(d);
  EXPECT_LT(out.pixel(60, 118).r, 20);
  EXPECT_GT(out.pixel(60, 1).r, 235);
}

TEST_F(MarkupRendererTest, CropTurnFlipAndExtensionMoveThePixels) {
  auto d = Document(200, 100);
  auto source = Filled(200, 100, kWhite);
  {
    CairoContext cr(source);
    setSourceColor(cr.get(), kRed);
    cairo_rectangle(cr.get(), 10, 10, 10, 10);  // near the top left
    cairo_fill(cr.get());
  }
  d.crop = MarkupCrop{Rect::make(5, 5, 100, 50)};
  d.transform.rotationQuarterTurns = 1;  // clockwise: the top left goes to the top right
  auto out = Render(d, source);
  ASSERT_EQ(out.width(), 50);
  ASSERT_EQ(out.height(), 100);
  EXPECT_TRUE(Near(out.pixel(50 - 1 - 10, 10), {255, 0, 0, 255}));
  d.transform.flipHorizontal = true;  // and mirrored back to the left
  out = Render(d, source);
  EXPECT_TRUE(Near(out.pixel(10, 10), {255, 0, 0, 255}));
  d.transform = {};
  d.canvasExtension = MarkupCanvasExtension{.top = 10, .left = 20,
                                            .fill = MarkupCanvasExtension::Solid{kBlue}};
  out = Render(d, source);
  EXPECT_EQ(out.width(), 120);
  EXPECT_EQ(out.height(), 60);
  EXPECT_TRUE(Near(out.pixel(5, 5), {0, 0, 255, 255}));
  EXPECT_TRUE(Near(out.pixel(20 + 10, 10 + 10), {255, 0, 0, 255}));
  d.canvasExtension->fill = MarkupCanvasExtension::EdgeMirror{};
  out = Render(d, source);
  EXPECT_TRUE(Near(out.pixel(20 - 1 - 5, 10 + 10), {255, 0, 0, 255}));  // reflected across the edge
  d.crop = MarkupCrop{Rect::make(300, 300, 10, 10)};  // nothing of the image left
  EXPECT_FALSE(renderer_.render(d, source).has_value());
}

TEST_F(MarkupRendererTest, ChromeAddsTitlebarAndSidebar) {
  auto d = Document(100, 80);
  d.chrome = MarkupChromeFrame{.variant = MarkupChromeFrame::Variant::dark, .title = "Title",
                               .showSidebar = true, .sidebarWidth = 40, .titlebarHeight = 28,
                               .cornerRadius = 10};
  auto out = Render(d, Filled(100, 80, kRed));
  EXPECT_EQ(out.width(), 140);
  EXPECT_EQ(out.height(), 108);
  EXPECT_EQ(out.pixel(0, 0).a, 0);  // the rounded corner is transparent
  EXPECT_LT(out.pixel(70, 3).r, 80);  // dark title bar
  EXPECT_TRUE(Near(out.pixel(90, 60), {255, 0, 0, 255}));
}

TEST_F(MarkupRendererTest, TextBadgeAndRulerDrawInsideTheirFrames) {
  auto d = Document(300, 200);
  d.textBoxes.push_back({.frame = Rect::make(10, 10, 150, 60), .text = "Hello world, wrapped",
                         .fontName = "Helvetica", .fontSize = 20, .textColor = kBlack,
                         .backgroundColor = CodableColor{1, 1, 0, 1}, .isBold = true,
                         .isUnderlined = true});
  d.stepBadges.push_back({.number = 7, .frame = Rect::make(200, 20, 40, 40), .fillColor = kBlue,
                          .textColor = kWhite});
  d.rulers.push_back({.from = {20, 150}, .to = {220, 150}, .color = kRed, .strokeWidth = 2});
  auto out = Render(d);
  int dark = 0;
  for (int y = 10; y < 70; ++y)
    for (int x = 10; x < 160; ++x) dark += out.pixel(x, y).r < 100;
  EXPECT_GT(dark, 100);  // text ink
  EXPECT_TRUE(Near(out.pixel(20, 66), {255, 255, 0, 255}));  // the background fills the frame
  EXPECT_TRUE(Near(out.pixel(165, 40), {255, 255, 255, 255}));
  EXPECT_TRUE(Near(out.pixel(203, 40), {0, 0, 255, 255}, 4));  // badge disc
  EXPECT_TRUE(Near(out.pixel(199, 40), {255, 255, 255, 255}));
  EXPECT_TRUE(Near(out.pixel(120, 150), {255, 0, 0, 255}));  // ruler line
  EXPECT_EQ(rulerLabel(d.rulers[0]), "200 px");
  d.rulers[0].unit = MarkupRulerLine::Unit::centimeters;
  d.rulers[0].dpi = 100;
  EXPECT_EQ(rulerLabel(d.rulers[0]), "5.1 cm");
}

TEST_F(MarkupRendererTest, EmojiGlyphsAreCachedByEmojiAndSide) {
  auto d = Document();
  d.emojiStamps.push_back({.emoji = "\xF0\x9F\x98\x80", .frame = Rect::make(10, 10, 48, 48)});
  d.emojiStamps.push_back({.emoji = "\xF0\x9F\x98\x80", .frame = Rect::make(100, 10, 48, 48)});
  auto out = Render(d);
  EXPECT_EQ(emoji_.rasterisations(), 1);
  EXPECT_EQ(emoji_.cachedGlyphs(), 1u);
  // The face is drawn in colour: yellow-ish at its middle.
  Rgba8 middle = out.pixel(34, 28);
  EXPECT_GT(middle.r, 180);
  EXPECT_LT(middle.b, 120);
  d.emojiStamps[1].frame.size = {30, 30};
  Render(d);
  EXPECT_EQ(emoji_.rasterisations(), 2);
}

class OneWatermark : public MarkupAssetSource {
 public:
  std::optional<MarkupSignature> signature(const UUID& id) override {
    if (id != signatureID) return std::nullopt;
    return MarkupSignature{.id = id, .strokes = {{{{0, 0}, {100, 50}}, 4}}};
  }
  std::shared_ptr<const PixelImage> watermarkImage(const UUID& id) override {
    if (id != stampID) return nullptr;
    return std::make_shared<PixelImage>(PixelImage::filled(20, 10, 4, 0));  // transparent black
  }
  UUID stampID = UUID::Random();
  UUID signatureID = UUID::Random();
};

TEST_F(MarkupRendererTest, MissingAssetsDrawNothing) {
  OneWatermark assets;
  MarkupRenderer renderer(codec_, &assets, &emoji_);
  auto d = Document(200, 100);
  d.watermarks.push_back({.stampID = UUID::Random(), .corner = MarkupWatermarkPlacement::Corner::center});
  d.signatures.push_back({.signatureID = UUID::Random(), .frame = Rect::make(0, 0, 200, 100),
                          .tintColor = kBlack});
  auto out = renderer.render(d, Filled(200, 100, kWhite));
  ASSERT_TRUE(out);
  for (int y = 0; y < 100; y += 5)
    for (int x = 0; x < 200; x += 5) ASSERT_TRUE(Near(out->pixel(x, y), {255, 255, 255, 255}));
  // A saved signature is scaled into the stamp's frame.
  d.signatures[0].signatureID = assets.signatureID;
  out = renderer.render(d, Filled(200, 100, kWhite));
  EXPECT_LT(out->pixel(100, 50).r, 60);
}

TEST(MarkupArrowGeometryTest, ResolvesStylesAndShortensShafts) {
  MarkupShape arrow{.kind = MarkupShape::Kind::arrow, .frame = Rect::make(10, 10, 100, 0),
                    .strokeColor = kRed, .strokeWidth = 4};
  auto legacy = MarkupArrowGeometry::resolve(arrow);
  EXPECT_TRUE(legacy.legacy);
  EXPECT_EQ(legacy.tip, (Point{110, 10}));
  EXPECT_EQ(legacy.tipDirection, (Point{1, 0}));
  arrow.frame = Rect::make(110, 10, -100, 0);  // drawn right to left
  EXPECT_EQ(MarkupArrowGeometry::resolve(arrow).tipDirection, (Point{-1, 0}));
  arrow.frame = Rect::make(10, 10, 100, 0);
  auto shaft = MarkupArrowGeometry::truncatedLegacyShaft(legacy, 20);
  EXPECT_EQ(shaft.back(), (Point{90, 10}));
  arrow.arrowStyle = MarkupShape::ArrowStyle::elbow;
  arrow.frame = Rect::make(0, 0, 100, 50);
  auto elbow = MarkupArrowGeometry::resolve(arrow);
  EXPECT_EQ(elbow.control, (Point{100, 0}));  // default bend
  EXPECT_EQ(elbow.tipDirection, (Point{0, 1}));
  // Truncating past a corner continues on the previous segment.
  EXPECT_EQ(MarkupArrowGeometry::truncatedLegacyShaft(elbow, 60).back(), (Point{90, 0}));
  arrow.arrowStyle = MarkupShape::ArrowStyle::curved;
  arrow.arrowControl = Point{50, -20};
  auto curved = MarkupArrowGeometry::resolve(arrow);
  Point middle = curved.shaft[curved.shaft.size() / 2];
  EXPECT_NEAR(middle.x, 50, 3);  // the curve passes through its handle
  EXPECT_NEAR(middle.y, -20, 3);
  auto samples = MarkupArrowGeometry::samplePoints(legacy, 10);
  EXPECT_EQ(samples.size(), 11u);
  EXPECT_EQ(MarkupArrowGeometry::interpolate({0, 0}, {10, 20}, 3),
            (std::vector<Point>{{0, 0}, {5, 10}, {10, 20}}));
  EXPECT_EQ(MarkupArrowGeometry::sketchLine({0, 0}, {200, 0}, 3, 42),
            MarkupArrowGeometry::sketchLine({0, 0}, {200, 0}, 3, 42));
  EXPECT_NE(MarkupArrowGeometry::sketchLine({0, 0}, {200, 0}, 3, 42),
            MarkupArrowGeometry::sketchLine({0, 0}, {200, 0}, 3, 43));
  EXPECT_EQ(dashLengths(MarkupShape::DashPattern::dotted, 0.5), (std::vector<double>{1, 2}));
  EXPECT_EQ(dashLengths(MarkupShape::DashPattern::dashed, 3), (std::vector<double>{12, 9}));
  EXPECT_TRUE(dashLengths(std::nullopt, 3).empty());
}

TEST_F(MarkupRendererTest, EveryArrowStyleDrawsItsHeadAtTheTip) {
  for (auto style : {MarkupShape::ArrowStyle::straight, MarkupShape::ArrowStyle::elbow,
                     MarkupShape::ArrowStyle::curved, MarkupShape::ArrowStyle::bold,
                     MarkupShape::ArrowStyle::doubleHeaded, MarkupShape::ArrowStyle::outlined,
                     MarkupShape::ArrowStyle::tapered, MarkupShape::ArrowStyle::sketch}) {
    auto d = Document();
    d.shapes.push_back({.kind = MarkupShape::Kind::arrow, .frame = Rect::make(20, 50, 160, 0),
                        .strokeColor = kRed, .strokeWidth = 4, .arrowStyle = style});
    auto out = Render(d);
    int ink = 0;  // red pixels just before the tip
    for (int y = 40; y <= 60; ++y)
      for (int x = 170; x <= 180; ++x) ink += out.pixel(x, y).g < 128;
    EXPECT_GT(ink, 10) << static_cast<int>(style);
    EXPECT_TRUE(Near(out.pixel(190, 50), {255, 255, 255, 255})) << static_cast<int>(style);
    EXPECT_TRUE(Near(out.pixel(100, 20), {255, 255, 255, 255})) << static_cast<int>(style);
  }
}

TEST_F(MarkupRendererTest, AnEmptySourceFailsTheRender) {
  auto result = renderer_.render(Document(), MarkupImage());
  ASSERT_FALSE(result);
  EXPECT_NE(result.error().message().find("renderFailed"), std::string::npos);
}

}  // namespace
}  // namespace klipora::markup
