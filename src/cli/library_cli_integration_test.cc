// The klipora command as a new user meets it: a fresh home, real images.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "cli/testing/run_klipora.h"
#include "platform/linux/testing/test_images.h"
#include "platform/linux/vips_image_codec.h"
#include "platform/testing/temp_dir.h"

namespace klipora {
namespace {

using nlohmann::json;
using testing::runKlipora;

class LibraryCliTest : public ::testing::Test {
 protected:
  std::string write(const std::string& name, const std::string& bytes) {
    std::string path = dir_.file(name);
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }
  json run(const std::vector<std::string>& args) {
    auto r = runKlipora(home_, args);
    EXPECT_EQ(r.exitCode, 0) << r.err;
    return json::parse(r.out);
  }

  testing::TempDir dir_;
  std::string home_ = dir_.file("home");
};

TEST_F(LibraryCliTest, NewUserImportsScreenshots) {
  std::string png = write("Screenshot From 2024-05-01 10-20-30.png",
                          testing::makeTestImage(testing::imageOptions(1920, 1080)));
  auto turned = testing::imageOptions(400, 300, ".jpg");
  turned.orientation = 6;
  std::string jpeg = write("photo.jpg", testing::makeTestImage(turned));
  std::string upper = write("shot.PNG", testing::makeTestImage(testing::imageOptions(200, 100)));
  std::string pdf = write("notes.pdf", "%PDF-1.4\n");

  auto imported = runKlipora(home_, {"import", png, jpeg, upper, pdf});
  EXPECT_EQ(imported.exitCode, 1);  // one file failed
  EXPECT_NE(imported.err.find("notes.pdf: Unsupported file type: pdf"), std::string::npos);

  json items = run({"list", "--json"});
  ASSERT_EQ(items.size(), 3u);
  VipsImageCodec codec;
  for (const auto& item : items) {
    EXPECT_EQ(item["processingStateRaw"], "thumbnailGenerated");  // waits for the daemon
    EXPECT_EQ(item["importSource"], "manualImport");
    std::string copy = item["libraryPath"];
    EXPECT_EQ(copy.rfind(home_ + "/Library/Originals/", 0), 0u);
    std::string name = std::filesystem::path(copy).stem();
    EXPECT_EQ(name, item["importedFilename"].get<std::string>().substr(0, 36));
    EXPECT_TRUE(std::all_of(name.begin(), name.end(), [](char c) { return !std::islower(c); }));
    std::ifstream thumbFile(item["thumbnailPath"].get<std::string>(), std::ios::binary);
    std::string thumb((std::istreambuf_iterator<char>(thumbFile)), {});
    auto p = codec.properties(thumb);
    ASSERT_TRUE(p) << item["thumbnailPath"];
    EXPECT_LE(std::max(p->width, p->height), 300);
    if (item["originalFilename"] == "photo.jpg") {
      EXPECT_LT(p->width, p->height);  // upright
      EXPECT_EQ(item["width"], 300);
      EXPECT_EQ(item["height"], 400);
    }
  }

  auto again = runKlipora(home_, {"import", upper});
  EXPECT_EQ(again.exitCode, 1);
  EXPECT_NE(again.err.find("This screenshot has already been imported."), std::string::npos);

  std::string id = items[0]["id"];
  json shown = run({"show", id, "--json"});
  EXPECT_EQ(shown.size(), 44u);
  EXPECT_TRUE(shown.contains("editedFromID") && shown["editedFromID"].is_null());
  EXPECT_EQ(shown["id"], id);

  json info = run({"info", "--json"});
  EXPECT_EQ(info["itemCount"], 3);
  EXPECT_EQ(info["libraryRoot"], home_ + "/Library");
}

TEST_F(LibraryCliTest, SettingsShowAndChange) {
  json settings = run({"settings", "--json"});
  EXPECT_EQ(settings["trashRetentionDays"], 30);
  EXPECT_EQ(settings["translationProvider"], "apple");
  EXPECT_EQ(runKlipora(home_, {"settings", "set", "trashRetentionDays", "14"}).exitCode, 0);
  EXPECT_EQ(run({"settings", "--json"})["trashRetentionDays"], 14);
  auto bad = runKlipora(home_, {"settings", "set", "defaultSortMode", "sideways"});
  EXPECT_EQ(bad.exitCode, 2);
  EXPECT_NE(bad.err.find("not a valid value for defaultSortMode"), std::string::npos);
}

TEST_F(LibraryCliTest, StoreThatIsNotADatabaseStopsWithTheFatalMessage) {
  std::filesystem::create_directories(home_);
  std::string store = home_ + "/Klipora.store";
  std::ofstream(store) << std::string(4096, 'z');
  auto r = runKlipora(home_, {"list"});
  EXPECT_EQ(r.exitCode, 3);
  EXPECT_NE(r.err.find("Could not open Klipora library. Your data is safe at " + store),
            std::string::npos);
  EXPECT_EQ(std::filesystem::file_size(store), 4096u);
  int copies = 0;
  for (const auto& e : std::filesystem::directory_iterator(home_)) {
    copies += e.path().filename().string().rfind("Klipora-diagnostic-", 0) == 0;
  }
  EXPECT_EQ(copies, 1);
}

TEST_F(LibraryCliTest, UnusableChosenLibraryFolderFallsBackToTheDefault) {
  std::string file = write("not-a-folder", "x");
  ASSERT_EQ(runKlipora(home_, {"settings", "set", "libraryFolder", file}).exitCode, 0);
  json info = run({"info", "--json"});
  EXPECT_EQ(info["libraryRoot"], home_ + "/Library");
  EXPECT_EQ(info["configuredLibraryFolder"], file);
}

}  // namespace
}  // namespace klipora
