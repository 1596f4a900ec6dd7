// The markup commands end to end, as a new user meets them: a snapshot
// written by hand rendered over a screenshot, an edit committed in place and
// reopened, a new item made from an edit, and the asset stores.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "cli/testing/run_klipora.h"
#include "platform/linux/vips_image_codec.h"
#include "platform/testing/temp_dir.h"

namespace klipora {
namespace {

using nlohmann::json;
using testing::runKlipora;

const std::string kSample = std::string(KLIPORA_TEST_DATA) + "/markup/gallery/sample.json";

class MarkupCliTest : public ::testing::Test {
 protected:
  // 1200×800: white paper with black stripes two pixels wide, so a blur shows.
  std::string WriteStriped(const std::string& name) {
    PixelImage image = PixelImage::filled(1200, 800, 4, 255);
    for (int y = 0; y < image.height; ++y) {
      for (int x = 0; x < image.width; x += 4) {
        for (int dx = 0; dx < 2; ++dx) std::fill_n(image.row(y) + (x + dx) * 4, 3, 0);
      }
    }
    return Write(name, *codec_.encodePng(image));
  }
  std::string Write(const std::string& name, const std::string& bytes) {
    std::string path = dir_.file(name);
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }
  PixelImage Read(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), {});
    auto pixels = codec_.decodePixels(bytes, {PixelDecodeOptions::Format::rgba, 0});
    EXPECT_TRUE(pixels) << path;
    return pixels ? *pixels : PixelImage{};
  }
  static const uint8_t* At(const PixelImage& image, int x, int y) {
    return image.row(y) + x * 4;
  }
  json Run(const std::vector<std::string>& args) {
    auto r = runKlipora(home_, args);
    EXPECT_EQ(r.exitCode, 0) << r.err;
    return json::parse(r.out, nullptr, false);
  }

  VipsImageCodec codec_;
  testing::TempDir dir_;
  std::string home_ = dir_.file("home");
};

TEST_F(MarkupCliTest, RenderDrawsEachLayerWhereTheSnapshotPutsIt) {
  std::string in = WriteStriped("shot.png");
  std::string out = dir_.file("out.png");
  json reply = Run({"markup", "render", "--snapshot", kSample, "--image", in, "-o", out, "--json"});
  EXPECT_EQ(reply["width"], 1300);  // the frame's padding of 50 on each side
  EXPECT_EQ(reply["height"], 900);
  PixelImage image = Read(out);
  ASSERT_EQ(image.width, 1300);
  const int o = 50;  // the picture's offset inside the frame
  const uint8_t* frame = At(image, 10, 10);
  EXPECT_EQ(frame[0], 255);  // solid white frame
  const uint8_t* arrow = At(image, o + 425, o + 475);  // middle of the red arrow
  EXPECT_GT(arrow[0], 200);
  EXPECT_LT(arrow[1], 60);
  const uint8_t* blurred = At(image, o + 900, o + 180);  // stripes blurred to grey
  EXPECT_GT(blurred[0], 80);
  EXPECT_LT(blurred[0], 180);
  EXPECT_EQ(At(image, o + 600, o + 180)[0], 0);  // outside the region the stripes stay sharp
  EXPECT_EQ(At(image, o + 602, o + 180)[0], 255);
  const uint8_t* badge = At(image, o + 125, o + 140);  // the blue step badge
  EXPECT_LT(badge[0], 40);
  EXPECT_GT(badge[2], 220);
  int dark = 0, white = 0;  // the text box: white text on black
  for (int x = o + 610; x < o + 1090; ++x) {
    const uint8_t* p = At(image, x, o + 640);
    dark += p[0] < 40, white += p[0] > 215;
  }
  EXPECT_GT(dark, 200);
  EXPECT_GT(white, 10);
  // The shadow falls below the picture, not above it.
  EXPECT_LT(At(image, 650, o + 800 + 12)[0], 235);
  EXPECT_GT(At(image, 650, o - 12)[0], 250);

  auto broken = runKlipora(home_, {"markup", "render", "--snapshot", kSample, "--image",
                                   Write("broken.png", "not a png"), "-o", out});
  EXPECT_EQ(broken.exitCode, 1);
  EXPECT_NE(broken.err.find("broken.png is not a readable image"), std::string::npos);
}

TEST_F(MarkupCliTest, AnEditCommittedInPlaceReopensAndKeepsTheOriginal) {
  std::string in = WriteStriped("Screenshot From 2024-05-01 10-20-30.png");
  ASSERT_EQ(runKlipora(home_, {"import", in}).exitCode, 0);
  json items = Run({"list", "--json"});
  ASSERT_EQ(items.size(), 1u);
  std::string id = items[0]["id"];
  json committed = Run({"markup", "commit", id, "--snapshot", kSample, "--overwrite", "--json"});
  EXPECT_EQ(committed["newItemID"], id);
  json shown = Run({"markup", "show", id, "--json"});
  ASSERT_TRUE(shown["hasEdits"]);
  json snapshot = shown["snapshot"];
  EXPECT_TRUE(snapshot.contains("renderedFileSize"));  // the fingerprint of the rendered file
  snapshot.erase("renderedFileSize");
  snapshot.erase("renderedFileModified");
  // Both read back alike: the same snapshot.
  std::string reopened = Write("reopened.json", snapshot.dump());
  EXPECT_EQ(runKlipora(home_, {"markup", "check", reopened}).out,
            runKlipora(home_, {"markup", "check", kSample}).out);
  std::string original = shown["original"];
  EXPECT_EQ(original, home_ + "/Library/Edits/.originals/" + id + ".png");
  EXPECT_EQ(Read(original).width, 1200);  // the untouched original
  json item = Run({"show", id, "--json"});
  EXPECT_EQ(item["width"], 1300);
  EXPECT_EQ(Read(item["libraryPath"]).width, 1300);
  EXPECT_EQ(item["processingStateRaw"], "thumbnailGenerated");  // read again by the daemon

  // The same edit as a new item would be a second item with the same pixels.
  auto twice = runKlipora(home_, {"markup", "commit", id, "--snapshot", kSample, "--new-item"});
  EXPECT_EQ(twice.exitCode, 1);
  EXPECT_NE(twice.err.find("already holds this edited image"), std::string::npos);
  // Another edit saved as a new item: the source stays as it is.
  std::string badges = std::string(KLIPORA_TEST_DATA) + "/markup/gallery/badges.json";
  json sibling = Run({"markup", "commit", id, "--snapshot", badges, "--new-item", "--json"});
  EXPECT_NE(sibling["newItemID"], id);
  EXPECT_EQ(Run({"list", "--json"}).size(), 2u);
  json made = Run({"show", sibling["newItemID"], "--json"});
  EXPECT_EQ(made["editedFromID"], id);

  auto unknown = runKlipora(home_, {"markup", "commit", "10000000-0000-4000-8000-0000000000AA",
                                    "--snapshot", kSample, "--overwrite"});
  EXPECT_EQ(unknown.exitCode, 1);
  EXPECT_NE(unknown.err.find("no item has the id"), std::string::npos);
  EXPECT_EQ(runKlipora(home_, {"markup", "commit", id, "--snapshot", kSample}).exitCode, 2);
}

TEST_F(MarkupCliTest, WatermarksAndSignaturesAreKeptInTheSupportFolder) {
  json added = Run({"watermark", "add", WriteStriped("logo.png"), "--name", "  ", "--json"});
  EXPECT_EQ(added["name"], "Watermark");
  std::string id = added["id"];
  EXPECT_TRUE(std::filesystem::exists(home_ + "/Watermarks/" + id + ".png"));
  ASSERT_EQ(runKlipora(home_, {"watermark", "rename", id, "Logo"}).exitCode, 0);
  json list = Run({"watermark", "list", "--json"});
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0]["name"], "Logo");
  ASSERT_EQ(runKlipora(home_, {"watermark", "delete", id}).exitCode, 0);
  EXPECT_TRUE(Run({"watermark", "list", "--json"}).empty());
  EXPECT_FALSE(std::filesystem::exists(home_ + "/Watermarks/" + id + ".png"));

  std::string strokes = Write("strokes.json", R"([{"points": [[0, 0], [40, 10]], "width": 2}])");
  json signature = Run({"signature", "add", "--strokes", strokes, "--name", "Me", "--json"});
  json signatures = Run({"signature", "list", "--json"});
  ASSERT_EQ(signatures.size(), 1u);
  EXPECT_EQ(signatures[0]["aspectRatio"], 4);
  auto bad = runKlipora(home_, {"signature", "add", "--strokes", Write("bad.json", "{}")});
  EXPECT_EQ(bad.exitCode, 1);
  EXPECT_NE(bad.err.find("expected an array of strokes"), std::string::npos);
  ASSERT_EQ(runKlipora(home_, {"signature", "delete", signature["id"]}).exitCode, 0);
  EXPECT_EQ(runKlipora(home_, {"signature", "delete", signature["id"]}).exitCode, 1);
}

TEST_F(MarkupCliTest, TheSubjectIsKeptOrLiftedAsATransparentPng) {
  // A red disc on a white page.
  PixelImage page = PixelImage::filled(240, 160, 4, 255);
  for (int y = 0; y < page.height; ++y) {
    for (int x = 0; x < page.width; ++x) {
      double dx = (x - 120) / 48.0, dy = (y - 80) / 32.0;
      if (dx * dx + dy * dy <= 1) std::copy_n("\xd9\x1a\x1a", 3, page.row(y) + x * 4);
    }
  }
  std::string in = Write("disc.png", *codec_.encodePng(page));

  std::string kept = dir_.file("kept.png");
  json removed = Run({"markup", "remove-background", in, "-o", kept, "--json"});
  EXPECT_EQ(removed["output"], kept);
  PixelImage masked = Read(kept);
  ASSERT_EQ(masked.width, 240);
  EXPECT_EQ(At(masked, 120, 80)[3], 255);  // the disc stays
  EXPECT_EQ(At(masked, 5, 5)[3], 0);       // the page goes

  std::string sticker = dir_.file("sticker.png");
  Run({"markup", "cutout", in, "--rect", "60,30,120,100", "-o", sticker, "--json"});
  PixelImage lifted = Read(sticker);
  ASSERT_EQ(lifted.width, 120);
  EXPECT_EQ(At(lifted, 60, 50)[3], 255);
  EXPECT_EQ(At(lifted, 2, 2)[3], 0);

  std::string blank = Write("blank.png", *codec_.encodePng(PixelImage::filled(100, 100, 4, 255)));
  auto none = runKlipora(home_, {"markup", "remove-background", blank, "-o", dir_.file("n.png")});
  EXPECT_EQ(none.exitCode, 1);
  EXPECT_NE(none.err.find("No subject found to keep."), std::string::npos) << none.err;
  EXPECT_FALSE(std::filesystem::exists(dir_.file("n.png")));
  auto small = runKlipora(home_, {"markup", "cutout", in, "--rect", "0,0,10,40", "-o", sticker});
  EXPECT_EQ(small.exitCode, 1);
  EXPECT_NE(small.err.find("Selection too small"), std::string::npos) << small.err;
  auto outside = runKlipora(home_, {"markup", "cutout", in, "--rect", "230,0,40,40", "-o", sticker});
  EXPECT_NE(outside.err.find("Unable to crop selection"), std::string::npos) << outside.err;
  EXPECT_EQ(runKlipora(home_, {"markup", "cutout", in, "--rect", "1,2,3", "-o", sticker}).exitCode, 2);
}

}  // namespace
}  // namespace klipora
