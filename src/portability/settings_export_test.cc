#include "portability/settings_export.h"

#include <gtest/gtest.h>

#include "library/model_container.h"
#include "library/records.h"
#include "library/settings_store.h"
#include "platform/testing/log_capture.h"
#include "platform/testing/manual_clock.h"
#include "platform/testing/memory_file_system.h"
#include "platform/testing/temp_dir.h"

namespace klipora::portability {
namespace {

using Json = nlohmann::ordered_json;

library::FetchDescriptor sortedBy(std::string order) {
  library::FetchDescriptor d;
  d.sortBy = std::move(order);
  return d;
}

class SettingsExportTest : public ::testing::Test {
 protected:
  SettingsExportTest() {
    from_ = *library::KliporaModelContainer::make(fs_, clock_, dir_.file("a.store"));
    to_ = *library::KliporaModelContainer::make(fs_, clock_, dir_.file("b.store"));
  }
  library::ModelContext& from() { return from_->mainContext(); }
  library::ModelContext& to() { return to_->mainContext(); }

  void fillSource() {
    auto settings = *library::fetchOrCreateSettings(from());
    settings->automaticImportEnabled = true;
    settings->screenshotSourceFolder = "/home/alice/Pictures/Screenshots";
    settings->libraryFolder = "/home/alice/Elsewhere";
    settings->trashRetentionDays = 7;
    settings->thumbnailQuality = 0.5;
    auto folder = std::make_shared<library::WatchedFolder>();
    folder->path = "/home/alice/Desktop";
    folder->displayName = "Desktop";
    folder->includeSubfolders = true;
    from().insert(folder);
    auto outside = std::make_shared<library::WatchedFolder>();
    outside->path = "/srv/shots";
    outside->isEnabled = false;
    outside->sortIndex = 1;
    from().insert(outside);
    auto tag = std::make_shared<library::UserTag>();
    tag->name = "Work";
    tag->normalizedName = "work";
    tag->colorHex = "#112233";
    from().insert(tag);
    auto category = std::make_shared<library::CustomCategory>();
    category->name = "Taxes";
    category->categoryDescription = "tax forms";
    category->setKeywords({"irs", "vat"});
    from().insert(category);
    auto search = std::make_shared<library::SavedSearch>();
    search->name = "Work taxes";
    search->query = "tag:work";
    search->sidebarSelectionID = "customCategory:" + category->id.uuidString();
    from().insert(search);
    ASSERT_TRUE(from().save().ok());
  }

  testing::TempDir dir_;
  testing::ManualClock clock_;
  testing::MemoryFileSystem fs_;
  std::shared_ptr<library::ModelContainer> from_, to_;
  testing::ScopedLogCapture log_;
};

TEST_F(SettingsExportTest, WritesWhatTravelsWithoutThisMachinesHome) {
  fillSource();
  Json file = *exportSettings(from(), clock_, "/home/alice");
  EXPECT_EQ(file["format"], "klipora-settings");
  EXPECT_EQ(file["version"], 1);
  const Json& settings = file["settings"];
  EXPECT_EQ(settings["automaticImportEnabled"], true);
  EXPECT_EQ(settings["screenshotSourceFolder"], "~/Pictures/Screenshots");
  EXPECT_FALSE(settings.contains("libraryFolder"));
  EXPECT_FALSE(settings.contains("backfillOnFirstRun"));
  EXPECT_FALSE(settings.contains("trashRetentionDays"));
  EXPECT_FALSE(settings.contains("onboardingCompleted"));
  EXPECT_TRUE(settings.contains("customCategoryAutoAssignEnabled"));
  EXPECT_EQ(settings.size(), travellingSettingsFields().size());
  EXPECT_EQ(file["watchedFolders"][0]["path"], "~/Desktop");
  EXPECT_EQ(file["watchedFolders"][1]["path"], "/srv/shots");
  EXPECT_EQ(file["tags"][0], Json({{"name", "Work"}, {"colorHex", "#112233"}}));
  EXPECT_EQ(file["customCategories"][0]["keywords"], Json({"irs", "vat"}));
  EXPECT_EQ(file.dump().find("alice"), std::string::npos);
}

TEST_F(SettingsExportTest, ImportMergesIntoAnotherLibraryAndSaysWhatChanged) {
  fillSource();
  Json file = *exportSettings(from(), clock_, "/home/alice");
  auto existing = std::make_shared<library::UserTag>();
  existing->name = "work";
  existing->normalizedName = "work";
  existing->colorHex = "#000000";
  to().insert(existing);
  ASSERT_TRUE(to().save().ok());

  auto summary = importSettings(to(), clock_, file, "/home/bob");
  ASSERT_TRUE(summary.has_value()) << summary.error().message();
  EXPECT_TRUE(summary->warnings.empty());
  auto settings = *library::fetchOrCreateSettings(to());
  EXPECT_TRUE(settings->automaticImportEnabled);
  EXPECT_EQ(settings->screenshotSourceFolder, "/home/bob/Pictures/Screenshots");
  EXPECT_FALSE(settings->libraryFolder.has_value());
  EXPECT_EQ(settings->trashRetentionDays, 30);
  EXPECT_DOUBLE_EQ(settings->thumbnailQuality, 0.5);
  auto folders = *to().fetch<library::WatchedFolder>(sortedBy("sortIndex"));
  ASSERT_EQ(folders.size(), 2u);
  EXPECT_EQ(folders[0]->path, "/home/bob/Desktop");
  EXPECT_TRUE(folders[0]->includeSubfolders);
  EXPECT_FALSE(folders[1]->isEnabled);
  EXPECT_EQ(existing->colorHex, "#112233");
  auto categories = *to().fetch<library::CustomCategory>();
  auto searches = *to().fetch<library::SavedSearch>();
  ASSERT_EQ(categories.size(), 1u);
  ASSERT_EQ(searches.size(), 1u);
  EXPECT_EQ(searches[0]->sidebarSelectionID, "customCategory:" + categories[0]->id.uuidString());
  auto has = [&](const std::string& line) {
    return std::find(summary->changes.begin(), summary->changes.end(), line) !=
           summary->changes.end();
  };
  EXPECT_TRUE(has("setting automaticImportEnabled: false → true"));
  EXPECT_TRUE(has("folder /home/bob/Desktop added"));
  EXPECT_TRUE(has("tag \"work\": colour #000000 → #112233"));
  EXPECT_TRUE(has("category \"Taxes\" added"));
  EXPECT_TRUE(has("saved search \"Work taxes\" added"));

  auto again = importSettings(to(), clock_, file, "/home/bob");
  ASSERT_TRUE(again.has_value());
  EXPECT_TRUE(again->changes.empty());
}

TEST_F(SettingsExportTest, ANewerOrStrangeFileIsReadAsFarAsUnderstood) {
  Json file = Json::parse(R"({
    "format": "klipora-settings", "version": 3, "cloud": {"zone": 1},
    "settings": {"automaticImportEnabled": true, "thumbnailQuality": "high",
                 "hologramMode": true, "libraryFolder": "/x"},
    "watchedFolders": [{"path": "~/Shots", "colour": "red"}, {"displayName": "no path"}, 5],
    "tags": [{"name": "ok", "colorHex": "red"}, {"name": "   "}],
    "customCategories": "none",
    "savedSearches": [{"name": "s", "query": 12}]
  })");
  auto summary = importSettings(to(), clock_, file, "/home/bob");
  ASSERT_TRUE(summary.has_value()) << summary.error().message();
  EXPECT_TRUE((*library::fetchOrCreateSettings(to()))->automaticImportEnabled);
  EXPECT_EQ((*to().fetch<library::WatchedFolder>())[0]->path, "/home/bob/Shots");
  EXPECT_EQ((*to().fetch<library::UserTag>()).size(), 1u);
  EXPECT_EQ((*to().fetch<library::SavedSearch>())[0]->query, "");
  std::string warnings;
  for (const auto& w : summary->warnings) warnings += w + "\n";
  for (const char* expected : {"newer version (format 3)", "unknown field \"cloud\"",
                               "thumbnailQuality", "hologramMode", "libraryFolder",
                               "unknown field \"colour\"", "without a path",
                               "watchedFolders[2] is not an object", "colour red",
                               "without a valid name", "customCategories is not a list",
                               "query is not text"}) {
    EXPECT_NE(warnings.find(expected), std::string::npos) << expected << "\n" << warnings;
  }

  EXPECT_FALSE(importSettings(to(), clock_, Json::array(), "/home/bob").has_value());
  EXPECT_FALSE(importSettings(to(), clock_, Json{{"format", "other"}}, "/home/bob").has_value());
}

}  // namespace
}  // namespace klipora::portability
