// Bringing whole folders in, as a user does from the command line: a bulk
// import of a folder tree, and a sweep of a watched folder.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "cli/testing/run_klipora.h"
#include "platform/linux/testing/test_images.h"
#include "platform/testing/temp_dir.h"

namespace klipora {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::runKlipora;

class FolderImportCliTest : public ::testing::Test {
 protected:
  std::string write(const std::string& name, const std::string& data) {
    const std::string path = folder_ + "/" + name;
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << data;
    return path;
  }
  static std::string image(int width) {
    return testing::makeTestImage(testing::imageOptions(width, 40));
  }

  testing::TempDir dir_;
  std::string home_ = dir_.file("home");
  std::string folder_ = dir_.file("Pictures");
};

TEST_F(FolderImportCliTest, AFolderTreeIsImportedWithAnOutcomeForEveryFile) {
  write("a.png", image(100));
  write("2024/b.jpg", testing::makeTestImage(testing::imageOptions(120, 40, ".jpg")));
  write("2024/May/c.png", image(140));
  write("copy-of-a.png", image(100));
  write("notes.txt", "text");
  const std::string broken = write("broken.png", "\x89PNG not really");
  ASSERT_EQ(::mkfifo((folder_ + "/pipe.png").c_str(), 0600), 0);

  auto r = runKlipora(home_, {"import", "--folder", folder_, "--json"});
  EXPECT_EQ(r.exitCode, 1) << r.err;  // one file failed
  json out = json::parse(r.out, nullptr, false);
  ASSERT_TRUE(out.is_object()) << r.out << r.err;
  EXPECT_EQ(out["imported"], 3);
  EXPECT_EQ(out["duplicate"], 1);
  EXPECT_EQ(out["skipped"], 2);  // the text file and the pipe
  EXPECT_EQ(out["failed"], 1);
  for (const auto& f : out["files"]) {
    if (f["path"] == broken) {
      EXPECT_EQ(f["outcome"], "failed");
    }
    if (f["outcome"] != "imported") {
      EXPECT_TRUE(f["reason"].is_string()) << f.dump();
    }
  }
  EXPECT_NE(r.err.find("Importing 5/5: imported 3, duplicate 1, failed 1"), std::string::npos)
      << r.err;
  json items = json::parse(runKlipora(home_, {"list", "--json"}).out, nullptr, false);
  ASSERT_EQ(items.size(), 3u);
  EXPECT_EQ(items[0]["importSource"], "folderImport");
  EXPECT_TRUE(fs::exists(folder_ + "/2024/May/c.png"));  // originals stay

  // Again: everything is in the library already.
  r = runKlipora(home_, {"import", "--folder", folder_});
  EXPECT_NE(r.out.find("Imported 0, already in the library 4, skipped 2, failed 1"),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.err.find(folder_ + "/notes.txt: skipped: "), std::string::npos) << r.err;
  EXPECT_EQ(runKlipora(home_, {"import"}).exitCode, 2);
}

TEST_F(FolderImportCliTest, AScanOfAWatchedFolderImportsWhatArrivedSinceItsCutOff) {
  fs::create_directories(folder_);
  ASSERT_EQ(runKlipora(home_, {"folders", "add", folder_}).exitCode, 0);
  write("new.png", image(100));
  auto r = runKlipora(home_, {"scan"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out, "Imported 1, already in the library 0, failed 0.\n");
  EXPECT_EQ(runKlipora(home_, {"scan"}).out, "No new screenshots.\n");
  EXPECT_EQ(runKlipora(home_, {"pending"}).out, "Nothing is pending.\n");

  // A paused folder is left alone until it is resumed; what came meanwhile
  // is found then.
  r = runKlipora(home_, {"folders", "pause", folder_});
  EXPECT_NE(r.out.find(folder_ + "  paused"), std::string::npos) << r.out << r.err;
  write("while-paused.png", image(120));
  EXPECT_EQ(runKlipora(home_, {"scan"}).out, "No new screenshots.\n");
  EXPECT_NE(runKlipora(home_, {"folders"}).out.find("(paused, every image)"), std::string::npos);
  r = runKlipora(home_, {"folders", "resume", folder_});
  EXPECT_NE(r.out.find(folder_ + "  resumed"), std::string::npos) << r.out << r.err;
  EXPECT_EQ(runKlipora(home_, {"scan"}).out, "Imported 1, already in the library 0, failed 0.\n");
  r = runKlipora(home_, {"scan", dir_.file("elsewhere")});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.err.find("is not a watched folder"), std::string::npos) << r.err;
}

}  // namespace
}  // namespace klipora
