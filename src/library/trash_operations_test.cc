#include "library/trash_operations.h"

#include <gtest/gtest.h>

#include "library/model_container.h"
#include "platform/testing/fake_image_codec.h"
#include "platform/testing/log_capture.h"
#include "platform/testing/manual_clock.h"
#include "platform/testing/memory_file_system.h"
#include "platform/testing/temp_dir.h"

namespace klipora::library {
namespace {

using Kind = TrashOutcome::Kind;

class LibraryTrashTest : public ::testing::Test {
 protected:
  LibraryTrashTest() {
    container_ = *KliporaModelContainer::make(fs_, clock_, dir_.file("Klipora.store"));
    reader_ = *container_->newContext();
    EXPECT_TRUE(storage_.createLibraryStructure().ok());
  }
  ModelContext& context() { return container_->mainContext(); }
  std::shared_ptr<ScreenshotItem> addItem(const std::string& name) {
    auto item = std::make_shared<ScreenshotItem>();
    item->checksum = "sum-" + name;
    item->sourcePath = "/src/" + name + ".png";
    item->libraryPath = joinPath(storage_.originalsFolder(), name + ".png");
    fs_.addFile(item->libraryPath, "copy");
    context().insert(item);
    EXPECT_TRUE(context().save().ok());
    return item;
  }
  std::vector<Kind> kinds(const std::vector<TrashOutcome>& outcomes) {
    std::vector<Kind> out;
    for (const auto& o : outcomes) out.push_back(o.kind);
    return out;
  }
  // What another process reads from the store.
  std::shared_ptr<ScreenshotItem> stored(const UUID& id) {
    return *reader_->fetchByKey<ScreenshotItem>(id.uuidString());
  }

  testing::TempDir dir_;
  testing::ManualClock clock_;
  testing::MemoryFileSystem fs_;
  testing::FakeImageCodec codec_;
  StorageService storage_{fs_, codec_, "/lib"};
  NoMarkupEdits noEdits_;
  std::shared_ptr<ModelContainer> container_;
  std::unique_ptr<ModelContext> reader_;
  testing::ScopedLogCapture log_;
};

TEST_F(LibraryTrashTest, TrashAndRestoreRoundTrip) {
  auto a = addItem("a");
  UUID missing = UUID::Random();
  LibraryTrash trash(context(), &storage_, noEdits_, clock_);

  EXPECT_EQ(kinds(trash.moveToTrash({a->id, missing})), (std::vector{Kind::done, Kind::notFound}));
  EXPECT_TRUE(stored(a->id)->deleted);
  EXPECT_EQ(stored(a->id)->deletedAt->timeIntervalSince1970(),
            clock_.now().timeIntervalSince1970());
  EXPECT_EQ(kinds(trash.moveToTrash({a->id})), (std::vector{Kind::alreadyInTrash}));

  EXPECT_EQ(kinds(trash.restore({a->id})), (std::vector{Kind::done}));
  EXPECT_FALSE(stored(a->id)->isTrashed());
  EXPECT_EQ(kinds(trash.restore({a->id})), (std::vector{Kind::notInTrash}));
  EXPECT_TRUE(fs_.exists(a->libraryPath));
}

TEST_F(LibraryTrashTest, PermanentDeleteRemovesFilesRowAndRemembersTheOriginal) {
  auto a = addItem("a");
  auto b = addItem("b");
  LibraryTrash trash(context(), &storage_, noEdits_, clock_);
  ASSERT_EQ(kinds(*trash.deletePermanently({a->id})), (std::vector{Kind::done}));
  EXPECT_EQ(stored(a->id), nullptr);
  EXPECT_FALSE(fs_.exists(a->libraryPath));
  EXPECT_TRUE(DeletedOriginalsStore(*reader_).containsChecksum("sum-a"));

  // Emptying the trash takes only what is in it.
  auto c = addItem("c");
  trash.moveToTrash({c->id});
  ASSERT_EQ(kinds(*trash.emptyTrash()), (std::vector{Kind::done}));
  EXPECT_EQ(stored(c->id), nullptr);
  EXPECT_NE(stored(b->id), nullptr);

  // A user who imports a removed screenshot again on purpose.
  DeletedOriginalsStore originals(context());
  ASSERT_TRUE(originals.forget("sum-a").ok());
  ASSERT_TRUE(context().save().ok());
  EXPECT_FALSE(DeletedOriginalsStore(*reader_).containsChecksum("sum-a"));
  EXPECT_TRUE(DeletedOriginalsStore(*reader_).containsChecksum("sum-c"));
}

TEST_F(LibraryTrashTest, PermanentDeleteNeedsTheLibraryFolder) {
  auto a = addItem("a");
  LibraryTrash trash(context(), nullptr, noEdits_, clock_);
  auto result = trash.deletePermanently({a->id});
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().code(), Status::Code::kFailedPrecondition);
  EXPECT_TRUE(log_.contains("[Klipora][Trash] Skipping permanent delete: storageService not ready."));
  EXPECT_NE(stored(a->id), nullptr);
  // Moving to the trash only touches the record, so it still works.
  EXPECT_EQ(kinds(trash.moveToTrash({a->id})), (std::vector{Kind::done}));
}

TEST_F(LibraryTrashTest, FailedSaveUndoesOnlyTheTrashMarks) {
  auto a = addItem("a");
  auto pending = std::make_shared<ScreenshotItem>();  // another writer's unsaved import
  context().insert(pending);
  // Hold the write lock from another connection so the save fails.
  ASSERT_TRUE(reader_->database().exec("PRAGMA busy_timeout = 0; BEGIN IMMEDIATE").ok());
  ASSERT_TRUE(context().database().exec("PRAGMA busy_timeout = 0").ok());
  LibraryTrash trash(context(), &storage_, noEdits_, clock_);
  EXPECT_EQ(kinds(trash.moveToTrash({a->id})), (std::vector{Kind::failed}));
  EXPECT_TRUE(log_.contains("[Klipora][Trash] performDelete: save failed:"));
  EXPECT_FALSE(a->isTrashed());
  EXPECT_EQ(context().pendingInserts<ScreenshotItem>().size(), 1u);
  ASSERT_TRUE(reader_->database().exec("ROLLBACK").ok());
}

}  // namespace
}  // namespace klipora::library
