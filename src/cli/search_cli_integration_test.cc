// Search, tags, saved searches, marks and duplicate merging through the real
// klipora command, on a fresh home with imported images. Text that processing
// would recognise is written into the store with the sqlite3 shell, as
// another process would.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>

#include "cli/testing/run_klipora.h"
#include "platform/linux/testing/test_images.h"
#include "platform/testing/temp_dir.h"

namespace klipora {
namespace {

using nlohmann::json;
using testing::runKlipora;
using testing::shellQuote;

class SearchCliTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::vector<std::string> args = {"import"};
    for (int i = 0; i < 3; ++i) {
      std::string path = dir_.file("shot" + std::to_string(i) + ".png");
      std::ofstream(path, std::ios::binary)
          << testing::makeTestImage(testing::imageOptions(100 + i, 80));
      args.push_back(path);
    }
    ASSERT_EQ(runKlipora(home_, args).exitCode, 0);
    json items = run({"list", "--json"});
    for (const auto& item : items) {
      ids_[item["originalFilename"].get<std::string>()] = item["id"];
    }
    sql("UPDATE ScreenshotItem SET ocrText = 'Invoice 42 total' WHERE originalFilename = 'shot0.png';"
        "UPDATE ScreenshotItem SET ocrText = 'hello world' WHERE originalFilename = 'shot1.png';"
        "UPDATE ScreenshotItem SET ocrText = 'another invoice' WHERE originalFilename = 'shot2.png';");
  }
  void sql(const std::string& statements) {
    std::string command = "sqlite3 " + shellQuote(home_ + "/Klipora.store") + " " +
                          shellQuote(statements);
    ASSERT_EQ(std::system(command.c_str()), 0) << statements;
  }
  json run(const std::vector<std::string>& args) {
    auto r = runKlipora(home_, args);
    EXPECT_EQ(r.exitCode, 0) << r.err;
    bool isJson = !r.out.empty() && (r.out[0] == '{' || r.out[0] == '[');
    return isJson ? json::parse(r.out) : json();
  }
  std::vector<std::string> found(const std::string& query) {
    std::vector<std::string> names;
    json result = run({"search", "--json", query});
    for (const auto& item : result["items"]) {
      names.push_back(item["originalFilename"]);
    }
    return names;
  }
  std::string tagsOf(const std::string& id) {
    return run({"show", "--json", id})["userTagsRaw"];
  }

  testing::TempDir dir_;
  std::string home_ = dir_.file("home");
  std::map<std::string, std::string> ids_;
  using Names = std::vector<std::string>;
};

TEST_F(SearchCliTest, SearchWithTokensAndTagRenameMerge) {
  std::string a = ids_["shot0.png"], b = ids_["shot1.png"];
  run({"tag", "add", "Work", a, b});
  EXPECT_EQ(found("invoice tag:Work"), Names{"shot0.png"});
  json parsed = run({"search", "--json", "date:quarter hello"})["query"];
  EXPECT_EQ(parsed["freeText"], "hello");
  EXPECT_TRUE(parsed["date"].is_null());
  EXPECT_TRUE(parsed["favorite"].is_null());
  EXPECT_EQ(runKlipora(home_, {"search", "--sort", "sideways", "x"}).exitCode, 2);

  run({"tag", "rename", "Work", "work stuff"});
  run({"tag", "add", "Personal", a});
  // Without a terminal to ask on, a colliding rename changes nothing.
  auto refused = runKlipora(home_, {"tag", "rename", "work  Stuff ", "personal"});
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_EQ(tagsOf(b), "work stuff");
  run({"tag", "rename", "work  Stuff ", "personal", "--yes"});
  EXPECT_EQ(tagsOf(a), "Personal");
  EXPECT_EQ(tagsOf(b), "Personal");
  json tags = run({"tag", "list", "--json"});
  ASSERT_EQ(tags.size(), 1u);
  EXPECT_EQ(tags[0]["count"], 2);
  EXPECT_EQ(runKlipora(home_, {"tag", "add", "bad\tname"}).exitCode, 1);
}

TEST_F(SearchCliTest, MarksSavedSearchesAndDedupe) {
  std::string a = ids_["shot0.png"], c = ids_["shot2.png"];
  run({"favorite", c});
  EXPECT_EQ(found("fav:yes"), Names{"shot2.png"});
  run({"archive", c});
  EXPECT_EQ(found("invoice"), Names{"shot0.png"});
  EXPECT_EQ(runKlipora(home_, {"unarchive", c, "00000000-0000-0000-0000-00000000000F"}).exitCode, 1);
  EXPECT_EQ(found("invoice").size(), 1u);  // nothing changed
  run({"unarchive", c});
  run({"trash", c});
  EXPECT_EQ(found("invoice"), Names{"shot0.png"});
  run({"restore", c});
  EXPECT_EQ(found("another").size(), 1u);  // searchable again at once

  run({"saved-search", "add", "Bills", "invoice", "--sort", "oldestFirst"});
  EXPECT_EQ(run({"saved-search", "run", "bills", "--json"})["items"].size(), 2u);
  EXPECT_EQ(runKlipora(home_, {"saved-search", "add", "BILLS", "x"}).exitCode, 1);
  run({"saved-search", "rename", "Bills", "Invoices"});
  run({"saved-search", "delete", "Invoices"});
  EXPECT_TRUE(run({"saved-search", "list", "--json"}).empty());

  // A copy of the first item under a smaller id, as a second device would add it.
  const std::string dup = "00000000-0000-0000-0000-000000000001";
  sql("CREATE TEMP TABLE t AS SELECT * FROM ScreenshotItem WHERE id = '" + a + "';"
      "UPDATE t SET id = '" + dup + "', userTagsRaw = 'Copied';"
      "INSERT INTO ScreenshotItem SELECT * FROM t;");
  run({"tag", "add", "Mine", a});
  json report = run({"dedupe", "--json"});
  EXPECT_EQ(report, json({{"screenshots", 1}, {"categories", 0}, {"savedSearches", 0}}));
  EXPECT_EQ(runKlipora(home_, {"show", a}).exitCode, 1);
  EXPECT_EQ(tagsOf(dup), "Copied\x1fMine");
  json list = run({"list", "--json"});
  EXPECT_EQ(list.size(), 3u);
  std::ifstream copy(run({"show", "--json", dup})["libraryPath"].get<std::string>());
  EXPECT_TRUE(copy.good());  // the survivor's file stays
}

}  // namespace
}  // namespace klipora
