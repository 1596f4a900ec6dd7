#include "markup/markup_snapshot_json.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "markup/markup_document.h"
#include "platform/testing/manual_clock.h"
#include "platform/testing/memory_file_system.h"

namespace klipora::markup {
namespace {

using ::testing::HasSubstr;
using Json = nlohmann::json;

// Written by hand in the documented form: every family, every setting, each
// payload case, a date with an offset and fractional seconds.
constexpr char kHandWritten[] = R"({
  "version": 5,
  "sourceItemID": "E621E1F8-C36C-495A-93FC-0C247A3E6E5F",
  "sourceImageWidth": 1440, "sourceImageHeight": 900,
  "createdAt": "2026-03-01T10:20:30.250+01:00",
  "inkStrokes": [{"id": "11111111-1111-4111-8111-111111111111", "kind": "highlighter",
    "points": [[1, 2], [3.5, 4]], "color": {"red": 1, "green": 1, "blue": 0, "alpha": 0.5},
    "width": 12}],
  "shapes": [{"id": "22222222-2222-4222-8222-222222222222", "kind": "arrow",
    "frame": [[10, 20], [300, 40]], "strokeColor": {"red": 1, "green": 0.2, "blue": 0.1, "alpha": 1},
    "fillColor": {"red": 0, "green": 0, "blue": 1, "alpha": 0.25}, "strokeWidth": 3,
    "dashPattern": "dotted", "rotation": 0.5, "arrowStyle": "curved", "arrowControl": [150, -30]}],
  "textBoxes": [{"id": "33333333-3333-4333-8333-333333333333", "frame": [[5, 5], [200, 50]],
    "text": "Look here \u2192", "fontName": "DejaVu Sans", "fontSize": 24,
    "textColor": {"red": 0, "green": 0, "blue": 0, "alpha": 1}, "alignment": "justify",
    "rotation": 0, "isBold": true, "isItalic": false, "isUnderlined": true}],
  "effects": [{"id": "44444444-4444-4444-8444-444444444444", "kind": "pixelate",
    "frame": [[0, 0], [64, 64]], "intensity": 0.5}],
  "signatures": [{"id": "55555555-5555-4555-8555-555555555555",
    "signatureID": "56565656-5656-4656-8656-565656565656", "frame": [[900, 700], [200, 80]],
    "rotation": 0, "tintColor": {"red": 0, "green": 0, "blue": 0.5, "alpha": 1}}],
  "magnifiers": [{"id": "66666666-6666-4666-8666-666666666666", "shape": "circle",
    "frame": [[400, 300], [120, 120]], "sourceCenter": [100, 100], "zoom": 2, "borderWidth": 2,
    "borderColor": {"red": 1, "green": 1, "blue": 1, "alpha": 1}}],
  "spotlights": [{"id": "77777777-7777-4777-8777-777777777777", "shape": "ellipse",
    "frame": [[50, 50], [100, 60]], "dimColor": {"red": 0, "green": 0, "blue": 0, "alpha": 1},
    "dimOpacity": 0.6, "feather": 8}],
  "stepBadges": [{"id": "88888888-8888-4888-8888-888888888888", "number": 3,
    "frame": [[20, 20], [32, 32]], "fillColor": {"red": 1, "green": 0, "blue": 0, "alpha": 1},
    "textColor": {"red": 1, "green": 1, "blue": 1, "alpha": 1}, "style": "squircle"}],
  "emojiStamps": [{"id": "99999999-9999-4999-8999-999999999999", "emoji": "\ud83d\udc4d",
    "frame": [[600, 100], [64, 64]], "rotation": -0.25, "opacity": 0.9}],
  "cutouts": [{"id": "AAAAAAAA-AAAA-4AAA-8AAA-AAAAAAAAAAAA", "frame": [[0, 0], [10, 10]],
    "imageData": "iVBORw0KGgo=", "rotation": 0, "opacity": 1}],
  "rulers": [{"id": "BBBBBBBB-BBBB-4BBB-8BBB-BBBBBBBBBBBB", "from": [0, 0], "to": [144, 0],
    "unit": "centimeters", "dpi": 144, "color": {"red": 0, "green": 0, "blue": 0, "alpha": 1},
    "strokeWidth": 2, "fontSize": 12, "showTicks": false}],
  "crop": {"rect": [[10, 10], [1000, 800]]},
  "transform": {"rotationQuarterTurns": -1, "flipHorizontal": true, "flipVertical": false,
    "straightenDegrees": 1.5},
  "perspective": {"topLeft": [0, 0], "topRight": [100, 2], "bottomLeft": [1, 90],
    "bottomRight": [99, 91]},
  "background": {"padding": 48, "paddingVertical": 32,
    "fill": {"linearGradient": {"start": {"red": 1, "green": 0.5, "blue": 0.4, "alpha": 1},
      "end": {"red": 1, "green": 0.7, "blue": 0.5, "alpha": 1}, "angleDegrees": 45}},
    "cornerRadius": 12, "shadow": {"color": {"red": 0, "green": 0, "blue": 0, "alpha": 1},
      "radius": 24, "offsetX": 0, "offsetY": 12, "opacity": 0.35}},
  "chrome": {"variant": "dark", "title": "Terminal", "showSidebar": true, "sidebarWidth": 180,
    "titlebarHeight": 28, "cornerRadius": 10},
  "canvasExtension": {"top": 0, "right": 20, "bottom": 0, "left": 20,
    "fill": {"solid": {"_0": {"red": 1, "green": 1, "blue": 1, "alpha": 1}}}},
  "watermarks": [{"id": "CCCCCCCC-CCCC-4CCC-8CCC-CCCCCCCCCCCC",
    "stampID": "CDCDCDCD-CDCD-4CDC-8CDC-CDCDCDCDCDCD", "corner": "bottomRight", "insets": [16, 16],
    "opacity": 0.8, "scale": 0.5, "customFrame": [[1, 2], [3, 4]], "locked": true}],
  "layerOrder": [
    {"kind": "watermark", "id": "CCCCCCCC-CCCC-4CCC-8CCC-CCCCCCCCCCCC"},
    {"kind": "effect", "id": "44444444-4444-4444-8444-444444444444"},
    {"kind": "magnifier", "id": "66666666-6666-4666-8666-666666666666"},
    {"kind": "inkStroke", "id": "11111111-1111-4111-8111-111111111111"},
    {"kind": "shape", "id": "22222222-2222-4222-8222-222222222222"},
    {"kind": "emojiStamp", "id": "99999999-9999-4999-8999-999999999999"},
    {"kind": "ruler", "id": "BBBBBBBB-BBBB-4BBB-8BBB-BBBBBBBBBBBB"},
    {"kind": "textBox", "id": "33333333-3333-4333-8333-333333333333"},
    {"kind": "signature", "id": "55555555-5555-4555-8555-555555555555"},
    {"kind": "cutout", "id": "AAAAAAAA-AAAA-4AAA-8AAA-AAAAAAAAAAAA"},
    {"kind": "stepBadge", "id": "88888888-8888-4888-8888-888888888888"},
    {"kind": "spotlight", "id": "77777777-7777-4777-8777-777777777777"}],
  "colorAdjustments": {"preset": "sepia", "brightness": 0.1, "contrast": 1.2, "saturation": 0.8,
    "sharpness": 0.3, "inverted": false},
  "backgroundRemoval": {"enabled": true, "maskedImageData": "AAEC"},
  "lockedLayers": [{"kind": "shape", "id": "22222222-2222-4222-8222-222222222222"}]
})";

// The smallest valid form: the nine required keys, nothing else.
Json Minimal() {
  return Json::parse(R"({"sourceItemID": "E621E1F8-C36C-495A-93FC-0C247A3E6E5F",
    "sourceImageWidth": 10, "sourceImageHeight": 20, "createdAt": "2026-03-01T10:20:30Z",
    "inkStrokes": [], "shapes": [], "textBoxes": [], "effects": [], "signatures": [],
    "transform": {"rotationQuarterTurns": 0, "flipHorizontal": false, "flipVertical": false,
      "straightenDegrees": 0}})");
}

std::string DecodeError(const Json& j) {
  auto decoded = decodeSnapshot(j.dump());
  return decoded ? "decoded" : decoded.error().message();
}

TEST(MarkupSnapshotJsonTest, HandWrittenFileDecodesToWhatTheEncoderWritesBack) {
  auto decoded = decodeSnapshot(kHandWritten);
  ASSERT_TRUE(decoded) << decoded.error().message();
  const auto& s = *decoded;
  EXPECT_EQ(s.createdAt, *parseISO8601("2026-03-01T09:20:30.25Z"));
  EXPECT_EQ(s.shapes[0].frame, Rect::make(10, 20, 300, 40));
  EXPECT_EQ(s.shapes[0].arrowControl, (Point{150, -30}));
  EXPECT_EQ(s.textBoxes[0].text, "Look here \u2192");
  EXPECT_EQ(s.cutouts[0].imageData.data, std::string("\x89PNG\r\n\x1a\n"));
  EXPECT_EQ(s.backgroundRemoval->maskedImageData->data, std::string("\0\1\2", 3));
  EXPECT_EQ(std::get<MarkupCanvasExtension::Solid>(s.canvasExtension->fill).color.red, 1);
  EXPECT_EQ(std::get<MarkupBackgroundFrame::LinearGradient>(s.background->fill).angleDegrees, 45);
  EXPECT_FALSE(s.renderedFileSize || s.renderedFileModified);

  // Opened as a document, its snapshot is written back in exactly this form
  // (only the date comes back in UTC).
  testing::ManualClock clock;
  NoPointerInput pointer;
  MarkupDocument doc(s, clock, pointer);
  auto written = encodeSnapshot(doc.snapshot(s.createdAt));
  ASSERT_TRUE(written);
  Json expected = Json::parse(kHandWritten);
  expected["createdAt"] = "2026-03-01T09:20:30.250Z";
  EXPECT_EQ(Json::parse(*written), expected);
  EXPECT_EQ(decodeSnapshot(*written), decoded);

  // Pretty-printed, keys sorted.
  EXPECT_THAT(*written, HasSubstr("{\n  \"background\": {\n"));
  EXPECT_LT(written->find("\"version\""), written->npos);
  EXPECT_LT(written->find("\"transform\""), written->find("\"version\""));
}

TEST(MarkupSnapshotJsonTest, AbsentOptionalsTakeTheirDefaults) {
  Json j = Minimal();
  j["someFutureKey"] = {{"ignored", true}};
  j["crop"] = nullptr;  // null reads as absent
  auto s = decodeSnapshot(j.dump());
  ASSERT_TRUE(s) << s.error().message();
  EXPECT_EQ(s->version, 1);
  EXPECT_TRUE(s->magnifiers.empty() && s->rulers.empty() && s->watermarks.empty());
  EXPECT_FALSE(s->layerOrder || s->crop || s->background);
  EXPECT_TRUE(s->lockedLayers.empty());

  // Without layerOrder the document stacks its layers in the legacy order.
  j["spotlights"] = Json::parse(R"([{"id": "77777777-7777-4777-8777-777777777777",
    "shape": "rectangle", "frame": [[0, 0], [1, 1]], "dimOpacity": 0.5, "feather": 0,
    "dimColor": {"red": 0, "green": 0, "blue": 0, "alpha": 1}}])");
  j["effects"] = Json::parse(R"([{"id": "44444444-4444-4444-8444-444444444444",
    "kind": "blackBar", "frame": [[0, 0], [1, 1]], "intensity": 1}])");
  j["createdAt"] = "2026-03-01T10:20:30-0500";
  s = decodeSnapshot(j.dump());
  ASSERT_TRUE(s) << s.error().message();
  testing::ManualClock clock;
  NoPointerInput pointer;
  MarkupDocument doc(*s, clock, pointer);
  ASSERT_EQ(doc.layerOrder().size(), 2u);
  EXPECT_EQ(doc.layerOrder()[0].kind, LayerRef::Kind::effect);
  auto rewritten = encodeSnapshot(doc.baselineSnapshot());
  ASSERT_TRUE(rewritten);
  Json back = Json::parse(*rewritten);
  EXPECT_EQ(back["version"], 5);
  EXPECT_EQ(back["layerOrder"].size(), 2u);
  EXPECT_EQ(back["createdAt"], "2026-03-01T15:20:30Z");
  EXPECT_FALSE(back.contains("crop"));
}

TEST(MarkupSnapshotJsonTest, RefusesMalformedSnapshotsNamingTheProblem) {
  for (const char* key :
       {"sourceItemID", "sourceImageWidth", "sourceImageHeight", "createdAt", "inkStrokes",
        "shapes", "textBoxes", "effects", "signatures", "transform"}) {
    Json j = Minimal();
    j.erase(key);
    EXPECT_EQ(DecodeError(j), std::string("missing \"") + key + "\"");
  }
  // Spliced in as text, so that values JSON itself refuses can be tried.
  auto with = [](const char* key, const char* value) {
    Json j = Minimal();
    j.erase(key);
    std::string text = j.dump();
    text.insert(1, std::string("\"") + key + "\": " + value + ", ");
    auto decoded = decodeSnapshot(text);
    return decoded ? "decoded" : decoded.error().message();
  };
  EXPECT_EQ(with("sourceImageWidth", "\"wide\""), "sourceImageWidth: expected a number");
  EXPECT_EQ(with("sourceImageWidth", "-1"), "negative source image size");
  EXPECT_EQ(with("sourceImageHeight", "1e999"), "not valid JSON");
  EXPECT_EQ(with("version", "5.5"), "version: expected an integer");
  EXPECT_EQ(with("createdAt", "\"yesterday\""), "createdAt: expected an ISO 8601 date");
  EXPECT_EQ(with("shapes", "{}"), "shapes: expected an array");
  EXPECT_EQ(with("crop", R"({"rect": [[0, 0], [1, 2, 3]]})"),
            "crop.rect: expected a rectangle [[x, y], [width, height]]");
  EXPECT_EQ(with("crop", R"({"rect": [[0, 0], [-1, 2]]})"), "crop.rect: negative width or height");
  // A layer's frame may run left or up: an arrow keeps its direction.
  EXPECT_EQ(with("effects", R"([{"id": "33333333-3333-4333-8333-333333333333", "kind": "blackBar",
                               "frame": [[10, 10], [-5, -5]], "intensity": 1}])"), "decoded");
  EXPECT_EQ(with("crop", R"({"rect": [[0, 0], [1, NaN]]})"), "not valid JSON");
  EXPECT_EQ(
      with("layerOrder", R"([{"kind": "sticker", "id": "E621E1F8-C36C-495A-93FC-0C247A3E6E5F"}])"),
      "layerOrder[0].kind: unknown value \"sticker\"");
  EXPECT_EQ(with("canvasExtension", R"({"top": 0, "right": 0, "bottom": 0, "left": 0,
                                        "fill": {"edgeMirror": {}, "edgeRepeat": {}}})"),
            "canvasExtension.fill: expected an object with exactly one case");
  EXPECT_EQ(with("cutouts", R"([{"id": "AAAAAAAA-AAAA-4AAA-8AAA-AAAAAAAAAAAA",
      "frame": [[0, 0], [1, 1]], "imageData": "not base64!", "rotation": 0, "opacity": 1}])"),
            "cutouts[0].imageData: expected base64 data");
  EXPECT_EQ(with("effects", R"([
      {"id": "44444444-4444-4444-8444-444444444444", "kind": "blackBar", "frame": [[0, 0], [1, 1]], "intensity": 1},
      {"id": "44444444-4444-4444-8444-444444444444", "kind": "pixelate", "frame": [[0, 0], [1, 1]], "intensity": 1}])"),
            "effects[1]: duplicate layer id 44444444-4444-4444-8444-444444444444");
  EXPECT_EQ(with("transform", R"({"rotationQuarterTurns": 0, "flipHorizontal": 0,
                                  "flipVertical": false, "straightenDegrees": 0})"),
            "transform.flipHorizontal: expected true or false");
  EXPECT_EQ(DecodeError(Json::array()), "expected a JSON object");
  EXPECT_FALSE(decodeSnapshot("{\"version\": 5,"));
}

TEST(MarkupSnapshotJsonTest, OversizedFilesAreRefusedBeforeReading) {
  testing::MemoryFileSystem fs;
  fs.addFile("/big.json", std::string(50 << 20, ' '));
  auto read = readSnapshotFile(fs, "/big.json");
  ASSERT_FALSE(read);
  EXPECT_THAT(read.error().message(), HasSubstr("larger than"));
  EXPECT_FALSE(decodeSnapshot(std::string(kMaxSnapshotBytes + 1, ' ')));
  EXPECT_EQ(readSnapshotFile(fs, "/none.json").error().code(), Status::Code::kNotFound);

  // Numbers JSON cannot carry are refused on writing, and nothing is written.
  MarkupDocumentSnapshot s;
  s.shapes.emplace_back().strokeWidth = std::nan("");
  EXPECT_EQ(writeSnapshotFile(fs, "/out.json", s).code(), Status::Code::kInvalidArgument);
  EXPECT_FALSE(fs.exists("/out.json"));
}

}  // namespace
}  // namespace klipora::markup
