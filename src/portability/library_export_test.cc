#include "portability/library_export.h"

#include <gtest/gtest.h>

#include "library/model_container.h"
#include "library/records.h"
#include "library/screenshot_item.h"
#include "platform/sha256.h"
#include "platform/testing/fake_image_codec.h"
#include "platform/testing/log_capture.h"
#include "platform/testing/manual_clock.h"
#include "platform/testing/memory_file_system.h"
#include "platform/testing/scoped_time_zone.h"
#include "platform/testing/temp_dir.h"
#include "portability/export_import.h"

namespace klipora::portability {
namespace {

using library::ScreenshotCategory;
using library::ScreenshotItem;
using testing::FakeImageCodec;

library::FetchDescriptor sortedBy(std::string order) {
  library::FetchDescriptor d;
  d.sortBy = std::move(order);
  return d;
}

class LibraryExportTest : public ::testing::Test {
 protected:
  static constexpr char kRoot[] = "/lib";
  static constexpr char kOut[] = "/out";

  LibraryExportTest() {
    container_ = *library::KliporaModelContainer::make(fs_, clock_, dir_.file("a.store"));
    EXPECT_TRUE(fs_.createDirectories("/lib/Originals").ok());
  }
  library::ModelContext& context() { return container_->mainContext(); }

  std::shared_ptr<ScreenshotItem> addItem(const std::string& title, ScreenshotCategory category,
                                          int width = 100) {
    auto item = std::make_shared<ScreenshotItem>();
    std::string bytes = FakeImageCodec::makeImage(width, 50);
    item->libraryPath = "/lib/Originals/" + item->id.uuidString() + ".PNG";
    fs_.addFile(item->libraryPath, bytes);
    item->originalFilename = "Screenshot " + title + ".png";
    item->checksum = sha256Hex(bytes);
    item->generatedTitle = title;
    item->generatedCategory = category;
    item->generatedCategoryConfidence = 0.7;
    item->ocrText = "text of " + title;
    item->capturedAt = Date::fromSecondsSince1970(1700000000 + imported_);
    item->importedAt = Date::fromSecondsSince1970(1700000100 + imported_++);
    item->setProcessingState(library::ProcessingState::complete);
    context().insert(item);
    EXPECT_TRUE(context().save().ok());
    return item;
  }
  Json index() { return Json::parse(*fs_.readFile("/out/library.json")); }

  testing::ScopedTimeZone zone_{"UTC"};
  testing::TempDir dir_;
  testing::ManualClock clock_;
  testing::MemoryFileSystem fs_;
  FakeImageCodec codec_;
  std::shared_ptr<library::ModelContainer> container_;
  testing::ScopedLogCapture log_;
  int imported_ = 0;
};

TEST_F(LibraryExportTest, WritesOneFilePerItemInCategoryFoldersWithIndexes) {
  auto invoice = addItem("Invoice: March", ScreenshotCategory::receipts);
  invoice->userTitle = "Paid/late";
  invoice->setUserTags({"work", "tax 2024"});
  invoice->userNote = "keep, \"for\" taxes";
  auto same = addItem("Invoice: March", ScreenshotCategory::receipts, 120);
  same->userTitle = "paid late";  // differs only in case once made safe
  same->capturedAt = invoice->capturedAt;
  auto code = addItem("main.cc", ScreenshotCategory::code);
  code->userCategory = ScreenshotCategory::errors;
  auto trashed = addItem("gone", ScreenshotCategory::code);
  trashed->deleted = true;
  ASSERT_TRUE(context().save().ok());

  LibraryExporter exporter(fs_, clock_, context(), kRoot);
  std::vector<size_t> progress;
  auto report = exporter.exportTo(kOut, ExportVariant::edited,
                                  [&](size_t done, size_t total) { progress.push_back(done * 10 + total); });
  ASSERT_TRUE(report.has_value()) << report.error().message();
  EXPECT_EQ(report->written, 3u);
  EXPECT_EQ(progress, (std::vector<size_t>{13, 23, 33}));

  Json items = index()["items"];
  ASSERT_EQ(items.size(), 3u);
  EXPECT_EQ(items[0]["file"], "Receipts/2023-11-14 22.13.20 Paid late.png");
  EXPECT_EQ(items[1]["file"], "Receipts/2023-11-14 22.13.20 paid late 2.png");
  EXPECT_EQ(items[2]["file"], "Errors/2023-11-14 22.13.22 main.cc.png");
  EXPECT_EQ(items[0]["tags"], Json({"work", "tax 2024"}));
  EXPECT_EQ(items[0]["title"], "Paid/late");
  EXPECT_EQ(items[2]["category"], "errors");
  EXPECT_EQ(items[2]["generatedCategory"], "code");
  EXPECT_EQ(*fs_.readFile("/out/Errors/2023-11-14 22.13.22 main.cc.png"),
            *fs_.readFile(code->libraryPath));

  std::string csv = *fs_.readFile("/out/library.csv");
  EXPECT_TRUE(csv.starts_with("file,title,category,"));
  EXPECT_NE(csv.find("\"keep, \"\"for\"\" taxes\""), std::string::npos);
  EXPECT_NE(csv.find("work; tax 2024"), std::string::npos);
  EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 4);
}

TEST_F(LibraryExportTest, ASecondRunSkipsWhatIsThereAndKeepsNames) {
  auto first = addItem("One", ScreenshotCategory::code);
  addItem("Two", ScreenshotCategory::code);
  LibraryExporter exporter(fs_, clock_, context(), kRoot);
  ASSERT_TRUE(exporter.exportTo(kOut, ExportVariant::edited).has_value());
  std::string firstFile = index()["items"][0]["file"];

  // Renamed since, and one file lost half-way: only that one is written again.
  first->userTitle = "Renamed";
  ASSERT_TRUE(context().save().ok());
  ASSERT_TRUE(fs_.removeFile("/out/" + std::string(index()["items"][1]["file"])).ok());
  fs_.addFile("/out/" + std::string(index()["items"][1]["file"]), "half");
  auto again = exporter.exportTo(kOut, ExportVariant::edited);
  ASSERT_TRUE(again.has_value());
  EXPECT_EQ(again->alreadyThere, 1u);
  EXPECT_EQ(again->written, 1u);
  EXPECT_EQ(index()["items"][0]["file"], firstFile);
  EXPECT_EQ(index()["items"][0]["title"], "Renamed");
  EXPECT_EQ(fs_.filesUnder("/out").size(), 4u);  // two images and two indexes, no .part
}

TEST_F(LibraryExportTest, OriginalsComeFromTheStashOfEditedItems) {
  auto edited = addItem("Edited", ScreenshotCategory::design);
  fs_.addFile("/lib/Edits/.originals/" + edited->id.uuidString() + ".png", "RAW");
  LibraryExporter exporter(fs_, clock_, context(), kRoot);
  ASSERT_TRUE(exporter.exportTo(kOut, ExportVariant::originals).has_value());
  std::string file = index()["items"][0]["file"];
  EXPECT_EQ(*fs_.readFile("/out/" + file), "RAW");
  EXPECT_EQ(index()["variant"], "originals");
}

TEST_F(LibraryExportTest, AMissingLibraryFileIsReportedAndTheRestExported) {
  auto lost = addItem("Lost", ScreenshotCategory::code);
  addItem("Kept", ScreenshotCategory::code);
  ASSERT_TRUE(fs_.removeFile(lost->libraryPath).ok());
  LibraryExporter exporter(fs_, clock_, context(), kRoot);
  auto report = exporter.exportTo(kOut, ExportVariant::edited);
  ASSERT_TRUE(report.has_value());
  EXPECT_EQ(report->failed, 1u);
  EXPECT_NE(report->items[0].error.find(lost->libraryPath), std::string::npos);
  EXPECT_EQ(index()["items"].size(), 1u);

  fs_.setReadOnlyDirectory("/ro", true);
  auto refused = exporter.exportTo("/ro/out", ExportVariant::edited);
  EXPECT_FALSE(refused.has_value());
}

class ExportImportTest : public LibraryExportTest {
 protected:
  ExportImportTest() {
    target_ = *library::KliporaModelContainer::make(fs_, clock_, dir_.file("b.store"));
  }
  Result<ExportImportReport> importInto() {
    ExportImporter importer(storage_, clock_, target_->mainContext());
    return importer.importFrom(kOut);
  }
  std::vector<std::shared_ptr<ScreenshotItem>> imported() {
    return *target_->mainContext().fetch<ScreenshotItem>(sortedBy("importedAt"));
  }

  std::shared_ptr<library::ModelContainer> target_;
  library::StorageService storage_{fs_, codec_, "/new"};
};

TEST_F(ExportImportTest, UserFieldsComeBackAndASecondRunFindsDuplicates) {
  ASSERT_TRUE(storage_.createLibraryStructure().ok());
  auto category = std::make_shared<library::CustomCategory>();
  category->name = "Taxes";
  category->categoryDescription = "tax returns and receipts";
  category->setKeywords({"tax", "return", "receipt"});
  context().insert(category);
  auto unused = std::make_shared<library::CustomCategory>();
  unused->name = "Cars";
  context().insert(unused);
  auto a = addItem("Invoice", ScreenshotCategory::receipts);
  a->userTitle = "My invoice";
  a->setUserTags({"work", "Tax"});
  a->userNote = "note";
  a->favorite = true;
  a->customCategoryID = category->id;
  a->sourceAppName = "Firefox";
  auto b = addItem("Chat", ScreenshotCategory::chats, 120);
  b->setProcessingState(library::ProcessingState::ocrComplete);
  ASSERT_TRUE(context().save().ok());
  LibraryExporter exporter(fs_, clock_, context(), kRoot);
  ASSERT_TRUE(exporter.exportTo(kOut, ExportVariant::edited).has_value());

  auto report = importInto();
  ASSERT_TRUE(report.has_value()) << report.error().message();
  EXPECT_EQ(report->imported, 2u);
  auto items = imported();
  ASSERT_EQ(items.size(), 2u);
  const auto& back = *items[0];
  EXPECT_EQ(back.id, a->id);
  EXPECT_EQ(back.displayTitle(), "My invoice");
  EXPECT_EQ(back.generatedTitle, "Invoice");
  EXPECT_EQ(back.userTags(), (std::vector<std::string>{"work", "Tax"}));
  EXPECT_EQ(back.userNote, "note");
  EXPECT_TRUE(back.favorite);
  EXPECT_EQ(back.ocrText, "text of Invoice");
  EXPECT_EQ(back.capturedAt, a->capturedAt);
  EXPECT_EQ(back.importedAt, a->importedAt);
  EXPECT_EQ(back.sourceAppName, "Firefox");
  EXPECT_EQ(back.checksum, a->checksum);
  EXPECT_EQ(back.width, 100);
  EXPECT_EQ(back.processingState(), library::ProcessingState::complete);
  EXPECT_EQ(back.libraryPath.rfind("/new/Originals/", 0), 0u);
  EXPECT_TRUE(back.thumbnailPath.has_value());
  auto categories = *target_->mainContext().fetch<library::CustomCategory>();
  // Every category comes back with its rule, also one nothing was filed in.
  ASSERT_EQ(categories.size(), 2u);
  auto taxes = categories[0]->name == "Taxes" ? categories[0] : categories[1];
  EXPECT_EQ(back.customCategoryID, taxes->id);
  EXPECT_EQ(taxes->categoryDescription, "tax returns and receipts");
  EXPECT_EQ(taxes->keywords(), (std::vector<std::string>{"tax", "return", "receipt"}));
  EXPECT_EQ(items[1]->processingState(), library::ProcessingState::pending);
  EXPECT_EQ(target_->mainContext().fetchCount<library::UserTag>().value_or(0), 2);

  auto again = importInto();
  ASSERT_TRUE(again.has_value());
  EXPECT_EQ(again->duplicates, 2u);
  EXPECT_EQ(imported().size(), 2u);
  EXPECT_EQ(target_->mainContext().fetchCount<library::CustomCategory>().value_or(0), 2);
}

TEST_F(ExportImportTest, BadEntriesAreReportedAndLoseNothing) {
  ASSERT_TRUE(storage_.createLibraryStructure().ok());
  fs_.addFile("/out/Code/ok.png", FakeImageCodec::makeImage(10, 10));
  fs_.addFile("/out/Code/notes.png", "not an image");
  fs_.addFile("/secret.png", FakeImageCodec::makeImage(10, 10));
  Json index = Json::parse(R"({"format": "klipora-library-export", "version": 7, "items": [
      {"file": "Code/ok.png", "tags": "not a list", "future": 1},
      {"file": "Code/notes.png"},
      {"file": "Code/missing.png"},
      {"file": "../secret.png"},
      {"title": "no file"},
      42]})");
  fs_.addFile("/out/library.json", index.dump());
  auto report = importInto();
  ASSERT_TRUE(report.has_value()) << report.error().message();
  EXPECT_EQ(report->imported, 1u);
  EXPECT_EQ(report->failed, 5u);
  EXPECT_NE(report->items[1].error.find("not a readable image"), std::string::npos);
  EXPECT_NE(report->items[2].error.find("/out/Code/missing.png"), std::string::npos);
  EXPECT_NE(report->items[3].error.find("leaves the export folder"), std::string::npos);
  EXPECT_EQ(report->warnings.size(), 2u);  // the newer version, the tags of the wrong type
  EXPECT_EQ(fs_.filesUnder("/new/Originals").size(), 1u);

  fs_.addFile("/bad/library.json", "{\"format\": ");
  ExportImporter importer(storage_, clock_, target_->mainContext());
  EXPECT_EQ(importer.importFrom("/bad").error().code(), Status::Code::kCorruption);
  EXPECT_EQ(importer.importFrom("/nothing").error().code(), Status::Code::kNotFound);
}

}  // namespace
}  // namespace klipora::portability
