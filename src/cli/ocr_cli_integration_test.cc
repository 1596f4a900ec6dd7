// klipora ocr and ocr-languages as a user meets them.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "cli/testing/run_klipora.h"
#include "platform/linux/testing/text_images.h"
#include "platform/testing/temp_dir.h"

namespace klipora {
namespace {

using nlohmann::json;
using testing::runKlipora;

class OcrCliTest : public ::testing::Test {
 protected:
  std::string write(const std::string& name, const std::string& bytes) {
    std::string path = dir_.file(name);
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }
  std::string terminal() {
    testing::TextImageOptions o;
    o.page = 24;
    o.patches = {testing::TextPatch{"$ uname -s\nLinux\n$ echo done", 20, 20,
                                    "DejaVu Sans Mono 12", 220}};
    return write("terminal.png", testing::makeTextImage(o));
  }

  testing::TempDir dir_;
  std::string home_ = dir_.file("home");
};

TEST_F(OcrCliTest, PrintsTheTextOfATerminalLineByLine) {
  auto r = runKlipora(home_, {"ocr", terminal()});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out, "$ uname -s\nLinux\n$ echo done\n");

  r = runKlipora(home_, {"ocr", "--json", dir_.file("terminal.png")});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  json out = json::parse(r.out);
  EXPECT_EQ(out["text"], "$ uname -s\nLinux\n$ echo done");
  ASSERT_EQ(out["lines"].size(), 3u);
  const json& box = out["lines"][1]["boundingBox"];  // [[x, y], [w, h]], 0..1
  ASSERT_EQ(box.size(), 2u);
  EXPECT_GT(box[0][1].get<double>(), 0);
  EXPECT_LT(box[1][0].get<double>(), 1);
  EXPECT_GT(out["lines"][1]["confidence"].get<double>(), 0.5);
}

TEST_F(OcrCliTest, UnreadableImagesSaySoAndFailTheCommand) {
  std::string broken = write("broken.png", "\x89PNG\r\n\x1a\n not really");
  auto r = runKlipora(home_, {"ocr", broken, terminal()});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.err.find("Could not load image for OCR."), std::string::npos) << r.err;
  EXPECT_NE(r.out.find("==> " + dir_.file("terminal.png") + " <=="), std::string::npos);
  EXPECT_NE(r.out.find("Linux"), std::string::npos);

  r = runKlipora(home_, {"ocr", "--json", broken, dir_.file("missing.png")});
  EXPECT_EQ(r.exitCode, 1);
  json out = json::parse(r.out);
  ASSERT_EQ(out.size(), 2u);
  EXPECT_EQ(out[0]["error"], "Could not load image for OCR.");
  EXPECT_TRUE(out[1].contains("error"));
}

TEST_F(OcrCliTest, LanguagesAreASettingAndAMissingOneNamesItsPackage) {
  auto r = runKlipora(home_, {"ocr-languages"});
  EXPECT_EQ(r.out.substr(0, r.out.find('\n') + 1), "Reading:   eng\n");
  r = runKlipora(home_, {"ocr-languages", "eng+klingon"});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.err.find("tesseract-ocr-klingon"), std::string::npos) << r.err;
  EXPECT_EQ(json::parse(runKlipora(home_, {"ocr-languages", "--json"}).out)["reading"],
            json::array({"eng"}));

  r = runKlipora(home_, {"ocr", "--languages", "klingon", terminal()});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.err.find("Text recognition isn't responding"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("tesseract-ocr-klingon"), std::string::npos) << r.err;
}

}  // namespace
}  // namespace klipora
