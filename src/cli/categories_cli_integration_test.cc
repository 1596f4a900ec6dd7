// klipora categories as a new user meets them, without any model server:
// keywords from the rule through WordNet, sorting existing screenshots with
// progress, new screenshots filed by processing, and the record's life.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>
#include <nlohmann/json.hpp>

#include "cli/testing/daemon_process.h"
#include "cli/testing/run_klipora.h"
#include "platform/linux/testing/text_images.h"
#include "platform/testing/temp_dir.h"

namespace klipora {
namespace {

using nlohmann::json;
namespace fs = std::filesystem;

class CategoriesCliTest : public ::testing::Test {
 protected:
  CategoriesCliTest() { fs::create_directories(runtime_); }
  testing::CommandResult klipora(const std::vector<std::string>& args) {
    return testing::runKlipora(home_, args, "XDG_RUNTIME_DIR=" + runtime_);
  }
  std::string screenshot(const std::string& name, const std::string& text) {
    testing::TextImageOptions o;
    o.width = 900;
    o.height = 260;
    o.patches.push_back({.text = text, .font = "DejaVu Sans 14"});
    std::string path = dir_.file(name);
    std::ofstream(path, std::ios::binary) << testing::makeTextImage(o);
    return path;
  }
  json categories() {
    auto r = klipora({"categories", "list", "--json"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    return json::parse(r.out);
  }

  testing::TempDir dir_;
  std::string home_ = dir_.file("home");
  std::string runtime_ = dir_.file("runtime");
};

TEST_F(CategoriesCliTest, AddApplyAndFileNewScreenshots) {
  auto r = klipora({"import", "--wait", screenshot("dealer.png",
                                                   "Main Street Car Dealer\nUsed cars for sale\n"
                                                   "2019 Honda Civic  42,000 miles  $17,900"),
                    screenshot("code.png", "fn main() {\n    println!(\"hello\");\n}\n"
                                           "error[E0308]: mismatched types")});
  ASSERT_EQ(r.exitCode, 0) << r.out << r.err;

  // Existing screenshots only on request.
  r = klipora({"settings", "set", "customCategoryAutoAssignEnabled", "false"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  r = klipora({"categories", "add", "Cars", "--description",
               "photos of my car and car dealer listings", "--json"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  json cars = json::parse(r.out);
  EXPECT_EQ(cars["name"], "Cars");
  EXPECT_EQ(cars["keywords"], (json{"car", "dealer", "listing"}));
  EXPECT_EQ(cars["centroid"], true);
  EXPECT_EQ(cars["items"], 0);
  EXPECT_TRUE(cars["filed"].is_null());

  r = klipora({"categories", "apply", "Cars"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.err.find("Sorting into \"Cars\": 100% (2 of 2), 1 filed"), std::string::npos)
      << r.err;
  EXPECT_EQ(r.out, "Filed 1 screenshot into \"Cars\".\n");
  EXPECT_EQ(categories()[0]["items"], 1);

  // A new screenshot is filed while it is processed, setting or not.
  r = klipora({"import", "--wait",
               screenshot("listing.png", "Dealer listing: blue car, one owner\nCall the dealer")});
  ASSERT_EQ(r.exitCode, 0) << r.out << r.err;
  EXPECT_EQ(categories()[0]["items"], 2);

  // Corrections: out of the category, and into it.
  r = klipora({"list", "--json"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  std::map<std::string, std::string> ids;
  for (const auto& item : json::parse(r.out)) ids[item["originalFilename"]] = item["id"];
  ASSERT_EQ(ids.size(), 3u) << r.out;
  r = klipora({"categories", "unfile", ids["listing.png"]});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out, "Took 1 screenshot out of their category.\n");
  std::ifstream defaults(home_ + "/defaults.json");
  std::string saved((std::istreambuf_iterator<char>(defaults)), {});
  EXPECT_NE(saved.find("CustomCategoryLearner.antiExemplars."), std::string::npos) << saved;
  r = klipora({"categories", "file", "Cars", ids["code.png"], "nonsense", "--json"});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.err.find("no screenshot with id nonsense"), std::string::npos) << r.err;
  EXPECT_EQ(json::parse(r.out)["moved"], (json{ids["code.png"]}));
  EXPECT_EQ(categories()[0]["items"], 2);

  r = klipora({"categories", "add", "cars", "--description", "again"});
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_NE(r.err.find("a category named \"Cars\" exists already"), std::string::npos) << r.err;
}

TEST_F(CategoriesCliTest, WithAutomaticAssignmentANewCategoryTakesExistingScreenshots) {
  auto r = klipora({"import", "--wait",
                    screenshot("dealer.png", "Dealer listing: blue car, one owner\nCall the dealer")});
  ASSERT_EQ(r.exitCode, 0) << r.out << r.err;
  r = klipora({"categories", "add", "Cars", "--description", "car dealer listings", "--json"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(json::parse(r.out)["filed"], 1);
  EXPECT_NE(r.err.find("Sorting into \"Cars\": 100% (1 of 1), 1 filed"), std::string::npos)
      << r.err;
  EXPECT_EQ(categories()[0]["items"], 1);
}

TEST_F(CategoriesCliTest, RenameDescribeDeleteAndMistakes) {
  auto r = klipora({"categories"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("No categories of your own"), std::string::npos);

  r = klipora({"categories", "add", "Food", "--description",
               "Screenshots of vegetarian recipes and things for dinner"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("keywords: vegetarian, recipe, dinner"), std::string::npos) << r.out;

  // Another language keeps its words; an empty rule is read from the name.
  r = klipora({"categories", "add", "Autos", "--description", "Fotos von meinem Auto", "--json"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_FALSE(json::parse(r.out)["keywords"].empty());
  r = klipora({"categories", "add", "Invoices", "--json"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(json::parse(r.out)["keywords"], (json{"invoice"}));

  r = klipora({"categories", "rename", "food", "Cooking", "--json"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(json::parse(r.out)["name"], "Cooking");
  r = klipora({"categories", "describe", "Cooking", "pasta and soup", "--json"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(json::parse(r.out)["keywords"], (json{"pasta", "soup"}));

  std::string id = categories()[0]["id"];
  r = klipora({"categories", "delete", id});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(categories().size(), 2u);

  r = klipora({"categories", "apply", "Boats"});
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_NE(r.err.find("no category is named or numbered \"Boats\""), std::string::npos) << r.err;
  r = klipora({"categories", "add", " "});
  EXPECT_EQ(r.exitCode, 2);
}

// Categories that arrive by a settings file come with keywords (or none)
// but never a centroid: the library gives them theirs.
TEST_F(CategoriesCliTest, CategoriesFromASettingsFileAreRepaired) {
  const std::string file = dir_.file("Klipora-Settings.json");
  std::ofstream(file) << R"({"format": "klipora-settings", "customCategories": [
      {"name": "Boats", "description": "sailing boats", "keywords": ["boat", "sail"]},
      {"name": "Hiking", "description": "mountain trails and hiking maps"}]})";
  auto r = klipora({"settings", "import", file});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  auto all = categories();
  ASSERT_EQ(all.size(), 2u) << all.dump();
  EXPECT_EQ(all[0]["keywords"], (json{"boat", "sail"}));
  EXPECT_EQ(all[0]["centroid"], true);
  EXPECT_EQ(all[1]["keywords"], (json{"mountain", "trail", "hiking", "map"}));
  EXPECT_EQ(all[1]["centroid"], true);
}

// With a daemon, sorting and learning happen in it: the command follows
// the daemon's run with its progress, and a correction is learned there
// once it has settled.
TEST_F(CategoriesCliTest, TheDaemonSortsAndLearns) {
  auto r = klipora({"import", "--wait",
                    screenshot("dealer.png", "Dealer listing: blue car, one owner\nCall the dealer"),
                    screenshot("notes.png", "Quarterly budget meeting notes")});
  ASSERT_EQ(r.exitCode, 0) << r.out << r.err;
  r = klipora({"settings", "set", "customCategoryAutoAssignEnabled", "false"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  r = klipora({"categories", "add", "Cars", "--description", "car dealer listings"});
  ASSERT_EQ(r.exitCode, 0) << r.err;

  testing::DaemonProcess daemon(home_, runtime_);
  ASSERT_TRUE(daemon.waitForOutput("Press Ctrl-C to stop.")) << daemon.errors();
  r = klipora({"categories", "apply", "Cars"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.err.find("Sorting into \"Cars\": 100% (2 of 2), 1 filed"), std::string::npos)
      << r.err;
  EXPECT_EQ(r.out, "Filed 1 screenshot into \"Cars\".\n");
  EXPECT_NE(daemon.errors().find("custom-sort DONE"), std::string::npos) << daemon.errors();
  auto sortsInDaemon = [&] {
    size_t n = 0;
    const std::string log = daemon.errors();
    for (size_t at = log.find("custom-sort DONE"); at != std::string::npos;
         at = log.find("custom-sort DONE", at + 1)) {
      ++n;
    }
    return n;
  };

  // With automatic assignment on, a new category and a new rule sort there too.
  r = klipora({"settings", "set", "customCategoryAutoAssignEnabled", "true"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  r = klipora({"categories", "add", "Meetings", "--description", "meeting notes and budgets"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  // (the screenshot filed under Cars is not looked at)
  EXPECT_NE(r.err.find("Sorting into \"Meetings\": 100% (1 of 1), 1 filed"), std::string::npos)
      << r.err;
  EXPECT_NE(r.out.find("Filed 1 screenshot into \"Meetings\"."), std::string::npos) << r.out;
  EXPECT_EQ(sortsInDaemon(), 2u) << daemon.errors();
  r = klipora({"categories", "describe", "Meetings", "quarterly budget meeting notes", "--json"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(json::parse(r.out)["filed"], 0);  // already filed there
  EXPECT_EQ(sortsInDaemon(), 3u) << daemon.errors();
  r = klipora({"categories", "delete", "Meetings"});
  ASSERT_EQ(r.exitCode, 0) << r.err;

  auto items = json::parse(klipora({"list", "--json"}).out);
  std::string dealer;
  for (const auto& item : items) {
    if (item["originalFilename"] == "dealer.png") dealer = item["id"];
  }
  r = klipora({"categories", "unfile", dealer, "--json"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(json::parse(r.out)["moved"], (json{dealer}));
  // The daemon learns after its debounce; wait for it, not for a set time.
  std::string saved;
  for (int i = 0; i < 600 && saved.find("CustomCategoryLearner.antiExemplars.") == std::string::npos;
       ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    std::ifstream defaults(home_ + "/defaults.json");
    saved.assign(std::istreambuf_iterator<char>(defaults), {});
  }
  EXPECT_NE(saved.find("CustomCategoryLearner.antiExemplars."), std::string::npos) << saved;
  EXPECT_EQ(categories()[0]["items"], 0);
  daemon.signal(SIGTERM);
  EXPECT_EQ(daemon.wait(), 0);
}

}  // namespace
}  // namespace klipora
