// Export and import of the library and of the settings, as a user meets
// them: real screenshots read and filed, exported, the library deleted, the
// export taken into a new library.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "cli/testing/daemon_process.h"
#include "cli/testing/run_klipora.h"
#include "platform/linux/testing/text_images.h"
#include "platform/testing/temp_dir.h"

namespace klipora {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::runKlipora;

class PortabilityCliTest : public ::testing::Test {
 protected:
  testing::CommandResult klipora(const std::vector<std::string>& args) {
    return runKlipora(home_, args, "HOME=" + testing::shellQuote(dir_.file("user")));
  }
  json jsonOf(const std::vector<std::string>& args) {
    auto r = klipora(args);
    EXPECT_EQ(r.exitCode, 0) << r.err;
    return json::parse(r.out, nullptr, false);
  }
  std::set<std::string> found(const std::string& query, const std::string& in = "all") {
    std::set<std::string> ids;
    auto r = klipora({"search", "--json", "--in", in, query});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    json result = json::parse(r.out, nullptr, false);
    if (!result.is_object()) ADD_FAILURE() << "search " << query << ": " << r.out << r.err;
    for (const auto& item : result["items"]) ids.insert(item["id"]);
    return ids;
  }
  // What a user sees of each item, by id.
  std::map<std::string, json> shown() {
    std::map<std::string, json> out;
    for (const auto& item : jsonOf({"list", "--json"})) {
      out[item["id"]] = {item["generatedTitle"], item["userTitle"],      item["generatedCategory"],
                         item["userCategory"],   item["userTagsRaw"],    item["ocrText"],
                         item["capturedAt"],     item["processingStateRaw"], item["checksum"],
                         item["userNote"]};
    }
    return out;
  }

  testing::TempDir dir_;
  std::string home_ = dir_.file("home");
};

TEST_F(PortabilityCliTest, ExportDeleteImportFindsTheSameLibrary) {
  const std::vector<std::string> texts = {
      "Invoice 10%d\nTotal due 4%d.90 EUR\nPayment terms 30 days",
      "error: undefined reference to main %d\nld returned 1 exit status",
      "Meeting notes %d\nAgenda and minutes of the weekly review",
      "def handler_%d(event):\n    return event.status"};
  std::vector<std::string> paths;
  for (int i = 0; i < 40; ++i) {
    char text[160];
    std::snprintf(text, sizeof text, texts[i % texts.size()].c_str(), i, i);
    testing::TextImageOptions o;
    o.width = 520;
    o.height = 110;
    o.page = static_cast<uint8_t>(250 - i);
    o.patches.push_back({.text = text, .font = "DejaVu Sans Mono 13"});
    paths.push_back(dir_.file("Screenshot " + std::to_string(i) + ".png"));
    std::ofstream(paths.back(), std::ios::binary) << testing::makeTextImage(o);
  }
  std::vector<std::string> args = {"import", "--wait", "--json"};
  args.insert(args.end(), paths.begin(), paths.end());
  json imported = jsonOf(args);
  std::vector<std::string> ids;
  for (const auto& r : imported["imported"]) ids.push_back(r["id"]);
  ASSERT_EQ(ids.size(), 40u);
  std::vector<std::string> tagWork = {"tag", "add", "work"};
  tagWork.insert(tagWork.end(), ids.begin(), ids.begin() + 20);
  ASSERT_EQ(klipora(tagWork).exitCode, 0);
  std::vector<std::string> tagTax = {"tag", "add", "taxes", "--color", "#112233"};
  tagTax.insert(tagTax.end(), ids.begin() + 15, ids.begin() + 25);
  ASSERT_EQ(klipora(tagTax).exitCode, 0);
  // The user's own titles, notes and categories, built-in and their own.
  for (int i = 0; i < 8; ++i) {
    auto r = klipora({"edit", ids[i], "--title", "Expense claim " + std::to_string(i), "--note",
                      "keep for the auditors"});
    ASSERT_EQ(r.exitCode, 0) << r.err;
  }
  ASSERT_EQ(klipora({"edit", ids[8], ids[9], ids[10], "--category", "travel"}).exitCode, 0);
  auto added = jsonOf({"categories", "add", "Quarterly", "--description",
                       "quarterly reports and revenue figures", "--json"});
  std::vector<std::string> fileQuarterly = {"categories", "file", "Quarterly"};
  fileQuarterly.insert(fileQuarterly.end(), ids.begin() + 30, ids.begin() + 36);
  ASSERT_EQ(klipora(fileQuarterly).exitCode, 0);

  auto before = shown();
  auto work = found("tag:work"), invoices = found("invoice"), errors = found("undefined");
  auto claims = found("expense claim"), auditors = found("auditors"), travel = found("cat:travel");
  EXPECT_EQ(work.size(), 20u);
  EXPECT_FALSE(invoices.empty());
  EXPECT_EQ(claims, std::set<std::string>(ids.begin(), ids.begin() + 8));
  EXPECT_EQ(auditors, claims);
  EXPECT_TRUE(travel.count(ids[8]) && travel.count(ids[9]) && travel.count(ids[10]));
  auto quarterly = found("", "customCategory:" + added["id"].get<std::string>());
  for (int i = 30; i < 36; ++i) EXPECT_TRUE(quarterly.count(ids[i])) << i;

  const std::string out = dir_.file("My Export");
  json exported = jsonOf({"export", out, "--json"});
  EXPECT_EQ(exported["written"], 40);
  EXPECT_TRUE(fs::exists(out + "/library.csv"));
  std::set<std::string> folders;
  for (const auto& e : fs::directory_iterator(out)) {
    if (e.is_directory()) folders.insert(e.path().filename());
  }
  EXPECT_GE(folders.size(), 2u);  // one per category
  EXPECT_EQ(jsonOf({"export", out, "--json"})["alreadyThere"], 40);
  const std::string settingsFile = dir_.file("Klipora-Settings.json");
  ASSERT_EQ(klipora({"settings", "export", settingsFile}).exitCode, 0);

  fs::remove_all(home_);
  auto back = klipora({"import-export", out});
  ASSERT_EQ(back.exitCode, 0) << back.err;
  EXPECT_NE(back.out.find("Imported 40 item(s)"), std::string::npos) << back.out;
  EXPECT_EQ(shown(), before);
  EXPECT_EQ(found("tag:work"), work);
  EXPECT_EQ(found("invoice"), invoices);
  EXPECT_EQ(found("undefined"), errors);
  EXPECT_EQ(found("tag:taxes").size(), 10u);
  EXPECT_EQ(found("expense claim"), claims);
  EXPECT_EQ(found("auditors"), auditors);
  EXPECT_EQ(found("cat:travel"), travel);
  // The user's category comes back by name, with its rule and keywords.
  json categories = jsonOf({"categories", "list", "--json"});
  ASSERT_EQ(categories.size(), 1u) << categories;
  EXPECT_EQ(categories[0]["name"], "Quarterly");
  EXPECT_EQ(categories[0]["keywords"], added["keywords"]);
  EXPECT_EQ(categories[0]["description"], "quarterly reports and revenue figures");
  EXPECT_EQ(categories[0]["centroid"], true);  // repaired after the import
  EXPECT_EQ(found("", "customCategory:" + categories[0]["id"].get<std::string>()), quarterly);

  // The colour of a tag travels with the settings, not with the export.
  auto merged = klipora({"settings", "import", settingsFile});
  ASSERT_EQ(merged.exitCode, 0) << merged.err;
  EXPECT_NE(merged.out.find("tag \"taxes\": colour"), std::string::npos) << merged.out;
  for (const auto& tag : jsonOf({"tag", "list", "--json"})) {
    if (tag["name"] == "taxes") {
      EXPECT_EQ(tag["colorHex"], "#112233");
    }
  }
  EXPECT_EQ(jsonOf({"import-export", out, "--json"})["duplicates"], 40);
}

TEST_F(PortabilityCliTest, BadInputIsNamedAndChangesNothing) {
  fs::create_directories(dir_.file("empty"));
  auto none = klipora({"import-export", dir_.file("empty")});
  EXPECT_EQ(none.exitCode, 1);
  EXPECT_NE(none.err.find(dir_.file("empty") + " holds no library.json"), std::string::npos)
      << none.err;

  std::ofstream(dir_.file("broken.json")) << "{\"format\": \"klipora-settings\", ";
  auto broken = klipora({"settings", "import", dir_.file("broken.json")});
  EXPECT_EQ(broken.exitCode, 1);
  EXPECT_NE(broken.err.find("broken.json is not valid JSON"), std::string::npos) << broken.err;

  std::ofstream(dir_.file("newer.json"))
      << R"({"format": "klipora-settings", "version": 9, "settings": {"automaticImportEnabled": true, "warp": 1}})";
  auto newer = klipora({"settings", "import", dir_.file("newer.json")});
  EXPECT_EQ(newer.exitCode, 0) << newer.err;
  EXPECT_NE(newer.err.find("newer version"), std::string::npos);
  EXPECT_NE(newer.err.find("\"warp\""), std::string::npos);
  EXPECT_EQ(jsonOf({"settings", "--json"})["automaticImportEnabled"], true);

  auto badCategory = klipora({"edit", "6F9619FF-8B86-D011-B42D-00C04FC964FF", "--category", "cars"});
  EXPECT_EQ(badCategory.exitCode, 2);
  EXPECT_NE(badCategory.err.find("\"cars\" is not a category (code, documents"), std::string::npos)
      << badCategory.err;
  auto noItem = klipora({"edit", "6F9619FF-8B86-D011-B42D-00C04FC964FF", "--title", "x"});
  EXPECT_EQ(noItem.exitCode, 1);
  EXPECT_NE(noItem.err.find("no item with id 6F9619FF-8B86-D011-B42D-00C04FC964FF; nothing changed"),
            std::string::npos)
      << noItem.err;

  fs::create_directories(dir_.file("locked"));
  fs::permissions(dir_.file("locked"), fs::perms::owner_read | fs::perms::owner_exec);
  if (::geteuid() != 0) {  // root writes anywhere
    auto refused = klipora({"export", dir_.file("locked/out")});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.err.find("locked/out"), std::string::npos) << refused.err;
  }
}

TEST_F(PortabilityCliTest, BackupWhileTheDaemonRunsIsConsistent) {
  const std::string runtime = dir_.file("rt");
  fs::create_directories(runtime);
  std::vector<std::string> args = {"import"};
  for (int i = 0; i < 5; ++i) {
    testing::TextImageOptions o;
    o.width = 300 + i;
    o.patches.push_back({.text = "Backup page " + std::to_string(i)});
    args.push_back(dir_.file("b" + std::to_string(i) + ".png"));
    std::ofstream(args.back(), std::ios::binary) << testing::makeTextImage(o);
  }
  ASSERT_EQ(klipora(args).exitCode, 0);
  testing::DaemonProcess daemon(home_, runtime);
  ASSERT_TRUE(daemon.waitForOutput("Press Ctrl-C to stop.")) << daemon.errors();

  const std::string out = dir_.file("backup");
  auto r = runKlipora(home_, {"backup", out, "--json"}, "XDG_RUNTIME_DIR=" + runtime);
  ASSERT_EQ(r.exitCode, 0) << r.err;
  json report = json::parse(r.out);
  EXPECT_EQ(report["items"], 5);
  EXPECT_GE(report["files"], 5);
  // The copy opens as a library of its own with every item and its file.
  size_t originals = 0;
  for (const auto& e : fs::directory_iterator(out + "/Library/Originals")) originals += e.is_regular_file();
  EXPECT_EQ(originals, 5u);
  EXPECT_FALSE(fs::exists(out + "/Library/Cache"));
  auto listed = runKlipora(out, {"list", "--json"});
  EXPECT_EQ(json::parse(listed.out).size(), 5u);

  auto again = runKlipora(home_, {"backup", out}, "XDG_RUNTIME_DIR=" + runtime);
  EXPECT_EQ(again.exitCode, 1);
  EXPECT_NE(again.err.find("is not empty"), std::string::npos) << again.err;
  daemon.signal(SIGTERM);
  EXPECT_EQ(daemon.wait(), 0);
}

}  // namespace
}  // namespace klipora
