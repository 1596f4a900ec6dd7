// The klipora command as a new user meets it: a fresh home, real images.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "cli/testing/run_klipora.h"
#include "library/model_container.h"
#include "library/model_context.h"
#include "library/screenshot_item.h"
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
  EXPECT_EQ(again.exitCode, 0);  // already there is not a failure
  EXPECT_EQ(again.out, upper + ": already in the library\n");

  std::string id = items[0]["id"];
  json shown = run({"show", id, "--json"});
  EXPECT_EQ(shown.size(), 44u);
  EXPECT_TRUE(shown.contains("editedFromID") && shown["editedFromID"].is_null());
  EXPECT_EQ(shown["id"], id);

  json info = run({"info", "--json"});
  EXPECT_EQ(info["itemCount"], 3);
  EXPECT_EQ(info["libraryRoot"], home_ + "/Library");
}

TEST_F(LibraryCliTest, PipeAndFolderAmongScreenshotsAreNamedWithTheirCause) {
  std::string fifo = dir_.file("fifo.png");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0644), 0);
  std::string folder = dir_.file("x.png");
  std::filesystem::create_directories(folder);
  std::vector<std::string> shots;
  for (int i = 0; i < 3; ++i) {
    shots.push_back(write(std::string(1, static_cast<char>('a' + i)) + ".png",
                          testing::makeTestImage(testing::imageOptions(300 + i, 200))));
  }
  std::vector<std::string> args = {"import", fifo, folder};
  args.insert(args.end(), shots.begin(), shots.end());

  auto first = runKlipora(home_, args);  // would hang for ever on the pipe if it opened it
  EXPECT_EQ(first.exitCode, 1);
  EXPECT_NE(
      first.err.find(fifo + ": Could not read the file.\n  (it is a named pipe, not a file)\n"),
      std::string::npos)
      << first.err;
  EXPECT_NE(
      first.err.find(
          folder +
          ": Could not read the file.\n  (it is a folder; klipora import --folder imports the "
          "screenshots in it)\n"),
      std::string::npos)
      << first.err;
  for (const auto& shot : shots) {
    EXPECT_NE(first.out.find("  " + shot + "\n"), std::string::npos) << first.out;
  }

  auto second = runKlipora(home_, args);
  EXPECT_EQ(second.exitCode, 1);  // the pipe and the folder still fail
  auto third = runKlipora(home_, {"import", shots[0], shots[1], shots[2]});
  EXPECT_EQ(third.exitCode, 0);
  for (const auto& shot : shots) {
    EXPECT_NE(third.out.find(shot + ": already in the library\n"), std::string::npos);
  }
  int originals = 0;
  for ([[maybe_unused]] const auto& e :
       std::filesystem::directory_iterator(home_ + "/Library/Originals")) {
    ++originals;
  }
  EXPECT_EQ(originals, 3);  // the copies of duplicates are gone again
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
  EXPECT_EQ(runKlipora(home_, {"list"}).exitCode, 3);  // a retry keeps the first copy
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

// Items written straight into the store: item i imported i hours after the
// first, every tenth in the trash.
void SeedStore(const std::string& home, int count) {
  std::filesystem::create_directories(home);
  auto db = library::Database::open(home + "/Klipora.store");
  ASSERT_TRUE(db && library::migrateToCurrentSchema(**db).ok());
  library::ModelContext context(std::move(*db));
  for (int i = 0; i < count; ++i) {
    auto item = std::make_shared<library::ScreenshotItem>();
    item->importedAt = Date::fromSecondsSince1970(1.7e9 + 3600.0 * i);
    item->originalFilename = "shot " + std::to_string(i) + ".png";
    item->deleted = i % 10 == 9;
    context.insert(item);
  }
  ASSERT_TRUE(context.save().ok());
}

std::vector<std::string> Names(const std::string& listed) {
  std::vector<std::string> names;
  std::istringstream lines(listed);
  for (std::string line; std::getline(lines, line);)
    names.push_back(line.substr(line.rfind("  ") + 2));
  return names;
}

TEST_F(LibraryCliTest, ListShowsAPageAndSaysHowToSeeMore) {
  SeedStore(home_, 130);  // 117 outside the trash
  auto first = runKlipora(home_, {"list"});
  ASSERT_EQ(first.exitCode, 0) << first.err;
  auto names = Names(first.out);
  ASSERT_EQ(names.size(), 50u);
  EXPECT_EQ(names.front(), "shot 128.png");  // newest first, 129 is in the trash
  EXPECT_EQ(names.back(), "shot 74.png");
  EXPECT_NE(first.err.find("more with --offset 50, or every item with --all"), std::string::npos)
      << first.err;

  auto last = runKlipora(home_, {"list", "--offset", "100", "--limit", "50"});
  EXPECT_EQ(Names(last.out).size(), 17u);
  EXPECT_EQ(Names(last.out).back(), "shot 0.png");
  EXPECT_EQ(last.err, "");  // nothing more to see
  auto exact = runKlipora(home_, {"list", "--limit", "117"});
  EXPECT_EQ(Names(exact.out).size(), 117u);
  EXPECT_EQ(exact.err, "");

  // Every item, in the same order, and the trash only when asked.
  auto all = runKlipora(home_, {"list", "--all"});
  names = Names(all.out);
  ASSERT_EQ(names.size(), 117u);
  EXPECT_EQ(std::vector(names.begin() + 50, names.begin() + 100),
            Names(runKlipora(home_, {"list", "--offset", "50"}).out));
  EXPECT_EQ(all.err, "");
  json everything = run({"list", "--all", "--json", "--include-trash"});
  ASSERT_EQ(everything.size(), 130u);
  EXPECT_EQ(everything[0]["originalFilename"], "shot 129.png");
  EXPECT_EQ(everything[0]["deleted"], true);
  EXPECT_EQ(everything[129]["originalFilename"], "shot 0.png");
  EXPECT_EQ(everything[5], run({"show", everything[5]["id"], "--json"}));
  EXPECT_EQ(run({"list", "--json", "--limit", "3"}).size(), 3u);

  EXPECT_EQ(runKlipora(home_, {"list", "--limit", "0"}).exitCode, 2);
  EXPECT_EQ(runKlipora(home_, {"list", "--all", "--limit", "5"}).exitCode, 2);
}

TEST_F(LibraryCliTest, ListOfAnEmptyLibrary) {
  EXPECT_EQ(runKlipora(home_, {"list"}).out, "");
  EXPECT_EQ(runKlipora(home_, {"list", "--all", "--json"}).out, "[]\n");
}

}  // namespace
}  // namespace klipora
