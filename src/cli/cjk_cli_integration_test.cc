// Text in Chinese as a user meets it: languages listed and chosen with
// klipora ocr-languages, a chat screenshot imported with --wait and found by
// a word from the middle of a sentence; and a chosen language pack that
// disappears leaves the others reading, with a warning.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "cli/testing/run_klipora.h"
#include "platform/linux/testing/text_images.h"
#include "platform/testing/temp_dir.h"

namespace klipora {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr char kTessdata[] = "/usr/share/tesseract-ocr/5/tessdata";

class CjkCliTest : public ::testing::Test {
 protected:
  CjkCliTest() { fs::create_directories(runtime_); }
  testing::CommandResult klipora(const std::vector<std::string>& args,
                                 const std::string& environment = "") {
    return testing::runKlipora(home_, args, "XDG_RUNTIME_DIR=" + runtime_ + " " + environment);
  }
  std::string image(const std::string& name, const std::string& text, const std::string& font) {
    testing::TextImageOptions o;
    o.width = 900;
    o.height = 300;
    o.patches.push_back({.text = text, .font = font});
    std::string path = dir_.file(name);
    std::ofstream(path, std::ios::binary) << testing::makeTextImage(o);
    return path;
  }
  bool found(const std::string& query, const std::string& id) {
    auto r = klipora({"search", "--json", query});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    return r.out.find(id) != std::string::npos;
  }

  testing::TempDir dir_;
  std::string home_ = dir_.file("home");
  std::string runtime_ = dir_.file("runtime");
};

TEST_F(CjkCliTest, AChineseChatIsFoundByATwoCharacterWordFromTheMiddleOfASentence) {
  ASSERT_TRUE(fs::exists(std::string(kTessdata) + "/chi_sim.traineddata"))
      << "the setup script installs tesseract-ocr-chi-sim";
  auto r = klipora({"ocr-languages", "--json"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  json listed = json::parse(r.out);
  EXPECT_EQ(listed["reading"], json::array({"eng"}));
  EXPECT_NE(std::find(listed["installed"].begin(), listed["installed"].end(), "chi_sim"),
            listed["installed"].end());
  EXPECT_NE(r.out.find("\"tesseract-ocr-jpn\""), std::string::npos);

  r = klipora({"ocr-languages", "eng", "chi_sim"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out, "Reading: eng chi_sim\n");

  const std::string chat = image("chat.png",
                                 "张伟  10:42\n明天下午我们在会议室讨论预算\n"
                                 "李娜  10:43\n好的，我会准备季度报告",
                                 "WenQuanYi Micro Hei 20");
  r = klipora({"import", "--wait", "--json", chat});
  ASSERT_EQ(r.exitCode, 0) << r.out << r.err;
  json imported = json::parse(r.out);
  ASSERT_EQ(imported["processed"].size(), 1u) << r.out;
  const json& item = imported["processed"][0];
  EXPECT_EQ(item["state"], "complete");
  const std::string id = item["id"];

  EXPECT_TRUE(found("讨论", id));           // from the middle of a sentence
  EXPECT_TRUE(found("会议室", id));
  EXPECT_TRUE(found("季度 10", id));         // with a Latin-script term
  EXPECT_FALSE(found("季度 11", id));
  EXPECT_FALSE(found("报价", id));
}

TEST_F(CjkCliTest, AVanishedLanguagePackLeavesTheOthersReadingWithAWarning) {
  // A model folder of our own, from which a chosen language disappears.
  const std::string models = dir_.file("tessdata");
  fs::create_directories(models);
  for (const char* code : {"eng", "chi_sim"}) {
    fs::create_symlink(std::string(kTessdata) + "/" + code + ".traineddata",
                       models + "/" + code + ".traineddata");
  }
  const std::string env = "TESSDATA_PREFIX=" + testing::shellQuote(models);
  ASSERT_EQ(klipora({"ocr-languages", "eng+chi_sim"}, env).exitCode, 0);
  fs::remove(models + "/chi_sim.traineddata");

  auto r = klipora({"ocr-languages"}, env);
  EXPECT_NE(r.out.find("Reading:   eng chi_sim (not installed)"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("  chi_sim                 tesseract-ocr-chi-sim\n"), std::string::npos);

  const std::string note = image("note.png", "Meeting moved to Friday", "DejaVu Sans 16");
  r = klipora({"ocr", note}, env);
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out, "Meeting moved to Friday\n");
  EXPECT_NE(r.err.find("tesseract-ocr-chi-sim"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("reading with eng"), std::string::npos) << r.err;
}

}  // namespace
}  // namespace klipora
