#include "library/model_context.h"

#include <gtest/gtest.h>

#include "library/app_settings.h"
#include "library/model_container.h"
#include "library/record_json.h"
#include "library/screenshot_item.h"
#include "library/settings_store.h"
#include "platform/testing/log_capture.h"
#include "platform/testing/manual_clock.h"
#include "platform/testing/memory_file_system.h"
#include "platform/testing/temp_dir.h"

namespace klipora::library {
namespace {

// The store is real SQLite in a scratch folder; the file system fake only
// serves the diagnostic copy.
class ModelContextTest : public ::testing::Test {
 protected:
  std::shared_ptr<ModelContainer> open() {
    auto container = KliporaModelContainer::make(fs_, clock_, storePath_);
    EXPECT_TRUE(container) << container.error().message();
    return *container;
  }
  std::unique_ptr<ModelContext> second(ModelContainer& c) { return *c.newContext(); }

  static std::shared_ptr<ScreenshotItem> makeItem(const std::string& checksum) {
    auto item = std::make_shared<ScreenshotItem>();
    item->originalFilename = "Screenshot From 2024-05-01 10-20-30.png";
    item->checksum = checksum;
    item->importedAt = Date::fromSecondsSince1970(1'700'000'000.5);
    return item;
  }

  testing::TempDir dir_;
  std::string storePath_ = dir_.file("Klipora.store");
  testing::MemoryFileSystem fs_;
  testing::ManualClock clock_;
};

TEST_F(ModelContextTest, EveryFieldSurvivesTheStore) {
  auto container = open();
  auto item = makeItem("abc");
  item->capturedAt = Date::fromSecondsSince1970(1'600'000'000);
  item->featurePrintData = Bytes{std::string("\x00\x01\xff", 3)};
  item->userCategory = ScreenshotCategory::receipts;
  item->customCategoryID = UUID::Random();
  item->setClassificationConfidences({0.5f, 0.25f});
  item->favorite = true;
  item->fileSize = int64_t{5} << 32;
  container->mainContext().insert(item);
  ASSERT_TRUE(container->mainContext().save().ok());

  auto other = second(*container);
  auto fetched = other->fetchByKey<ScreenshotItem>(item->id.uuidString());
  ASSERT_TRUE(fetched && *fetched);
  EXPECT_EQ(recordToJson(**fetched), recordToJson(*item));
  EXPECT_FALSE((*fetched)->thumbnailPath);
  auto json = recordToJson(*item);
  EXPECT_EQ(json["id"], item->id.uuidString());
  EXPECT_EQ(json["capturedAt"], "2020-09-13T12:26:40Z");
  EXPECT_EQ(json["thumbnailPath"], nullptr);
  EXPECT_EQ(json["favorite"], true);
  EXPECT_EQ(json["userCategory"], "receipts");
  EXPECT_EQ(json["featurePrintData"], "AAH/");
  EXPECT_EQ(json.size(), 44u);
}

TEST_F(ModelContextTest, SavesWriteOnlyChangedFieldsSoProcessesDoNotUndoEachOther) {
  auto container = open();
  auto item = makeItem("abc");
  container->mainContext().insert(item);
  ASSERT_TRUE(container->mainContext().save().ok());

  auto daemon = second(*container);
  auto mine = *daemon->fetchByKey<ScreenshotItem>(item->id.uuidString());
  mine->ocrText = "recognised text";  // the daemon works on the item

  item->favorite = true;  // meanwhile the user stars it from the command line
  ASSERT_TRUE(container->mainContext().save().ok());
  ASSERT_TRUE(daemon->save().ok());  // the daemon's stale copy has favorite = false

  auto reread = second(*container);
  auto stored = *reread->fetchByKey<ScreenshotItem>(item->id.uuidString());
  EXPECT_TRUE(stored->favorite);
  EXPECT_EQ(stored->ocrText, "recognised text");

  // A fetch merges what others saved into fields not changed here.
  mine->userNote = "local, unsaved";
  item->archived = true;
  ASSERT_TRUE(container->mainContext().save().ok());
  auto again = *daemon->fetchByKey<ScreenshotItem>(item->id.uuidString());
  EXPECT_EQ(again.get(), mine.get());  // one object per record
  EXPECT_TRUE(mine->archived);
  EXPECT_EQ(mine->userNote, "local, unsaved");
}

TEST_F(ModelContextTest, ExternalChangesAreNoticedButOwnSavesAreNot) {
  auto container = open();
  auto& main = container->mainContext();
  auto other = second(*container);
  ASSERT_TRUE(main.hasExternalChanges());  // primes the version
  main.insert(makeItem("one"));
  ASSERT_TRUE(main.save().ok());
  EXPECT_FALSE(*main.hasExternalChanges());
  other->insert(makeItem("two"));
  ASSERT_TRUE(other->save().ok());
  EXPECT_TRUE(*main.hasExternalChanges());
  EXPECT_FALSE(*main.hasExternalChanges());
}

TEST_F(ModelContextTest, FailedSaveWritesNothingAndKeepsChangesForRetryOrRollback) {
  auto container = open();
  auto& main = container->mainContext();
  auto item = makeItem("one");
  main.insert(item);
  ASSERT_TRUE(main.save().ok());

  auto other = second(*container);
  auto clash = makeItem("two");
  clash->id = item->id;  // same identity: the insert must fail
  auto fine = makeItem("three");
  other->insert(fine);
  other->insert(clash);
  EXPECT_FALSE(other->save().ok());
  EXPECT_TRUE(other->hasChanges());
  EXPECT_EQ(*main.fetchCount<ScreenshotItem>(), 1);  // "three" was rolled back too
  other->rollback();
  EXPECT_FALSE(other->hasChanges());

  item->userNote = "changed";
  main.remove(item);
  main.rollback();
  EXPECT_FALSE(item->userNote);
  EXPECT_EQ(*main.fetchCount<ScreenshotItem>(), 1);
}

TEST_F(ModelContextTest, FreshStoreHasTheCurrentSchemaAndOneSettingsRow) {
  auto container = open();
  auto& db = container->mainContext().database();
  auto version = *db.query("PRAGMA user_version");
  EXPECT_EQ(std::get<int64_t>(version[0][0]), kCurrentSchemaVersion);
  for (const auto& table : KliporaModelContainer::liveModels()) {
    EXPECT_FALSE(db.query("SELECT * FROM pragma_table_info(?)", {SqlValue(table)})->empty())
        << table;
  }
  auto settings = fetchOrCreateSettings(container->mainContext());
  ASSERT_TRUE(settings);
  EXPECT_EQ((*settings)->trashRetentionDays, 30);
  auto reopened = open();
  auto same = fetchOrCreateSettings(reopened->mainContext());
  EXPECT_EQ((*same)->id, (*settings)->id);
  EXPECT_EQ(*reopened->mainContext().fetchCount<AppSettings>(), 1);

  AppSettings s;
  EXPECT_TRUE(assignFieldFromText(s, "trashRetentionDays", "14").ok());
  EXPECT_EQ(s.trashRetentionDays, 14);
  EXPECT_TRUE(assignFieldFromText(s, "defaultSortMode", "oldestFirst").ok());
  EXPECT_FALSE(assignFieldFromText(s, "defaultSortMode", "sideways").ok());
  EXPECT_FALSE(assignFieldFromText(s, "trashRetentionDays", "soon").ok());
  EXPECT_FALSE(assignFieldFromText(s, "automaticImportEnabled", "null").ok());
  EXPECT_TRUE(assignFieldFromText(s, "playSoundOnProcessing", "null").ok());
  EXPECT_FALSE(assignFieldFromText(s, "id", UUID::Random().uuidString()).ok());
  EXPECT_FALSE(assignFieldFromText(s, "noSuchField", "1").ok());
}

TEST_F(ModelContextTest, UnopenableStoreLeavesADiagnosticCopyAndIsNeverTouched) {
  const std::string garbage(8192, 'x');
  {
    std::FILE* f = std::fopen(storePath_.c_str(), "wb");
    std::fwrite(garbage.data(), 1, garbage.size(), f);
    std::fclose(f);
  }
  fs_.addFile(storePath_, garbage);  // the copy is made through the file system interface
  testing::ScopedLogCapture logs;
  auto container = KliporaModelContainer::make(fs_, clock_, storePath_);
  ASSERT_FALSE(container);
  auto lines = logs.matching("[Klipora] ModelContainer init failed: ");
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].find(". Diagnostic copy at " + dir_.path() + "/Klipora-diagnostic-"),
            std::string::npos);
  auto copies = fs_.filesUnder(dir_.path());
  EXPECT_EQ(copies.size(), 2u);
  std::FILE* f = std::fopen(storePath_.c_str(), "rb");
  std::string after(garbage.size() + 1, '\0');
  after.resize(std::fread(after.data(), 1, after.size(), f));
  std::fclose(f);
  EXPECT_EQ(after, garbage);
  std::string message = KliporaModelContainer::fatalMessage(storePath_, container.error());
  EXPECT_EQ(message.rfind("Could not open Klipora library. Your data is safe at " + storePath_, 0),
            0u);
  EXPECT_NE(message.find(" Underlying error: "), std::string::npos);
}

TEST_F(ModelContextTest, StoreFromANewerVersionIsRefused) {
  {
    auto db = *Database::open(storePath_);
    ASSERT_TRUE(db->exec("PRAGMA user_version = 10").ok());
  }
  auto container = KliporaModelContainer::make(fs_, clock_, storePath_);
  ASSERT_FALSE(container);
  EXPECT_NE(container.error().message().find("newer"), std::string::npos);
}

TEST_F(ModelContextTest, DetachedRecordsAreReadButNeverWritten) {
  auto container = open();
  auto& context = container->mainContext();
  auto item = makeItem("abc");
  item->favorite = true;
  context.insert(item);
  ASSERT_TRUE(context.save().ok());

  auto other = second(*container);
  FetchDescriptor d;
  d.predicate = "checksum = ?";
  d.arguments = {SqlValue(std::string("abc"))};
  auto detached = other->fetchDetached<ScreenshotItem>(d);
  ASSERT_TRUE(detached) << detached.error().message();
  ASSERT_EQ(detached->size(), 1u);
  EXPECT_EQ(recordToJson(detached->front()), recordToJson(*item));
  detached->front().favorite = false;
  EXPECT_FALSE(other->hasChanges());
  ASSERT_TRUE(other->save().ok());
  auto stored = context.fetchByKey<ScreenshotItem>(item->id.uuidString());
  ASSERT_TRUE(stored && *stored);
  EXPECT_TRUE((*stored)->favorite);
}

}  // namespace
}  // namespace klipora::library
