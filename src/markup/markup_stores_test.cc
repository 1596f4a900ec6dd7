#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "markup/markup_non_destructive_store.h"
#include "markup/markup_sidecar_store.h"
#include "markup/markup_snapshot_json.h"
#include "markup/non_destructive_edit_cleaner.h"
#include "platform/testing/log_capture.h"
#include "platform/testing/memory_file_system.h"

namespace klipora::markup {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Op = testing::FaultInjectingFileSystem::Op;

constexpr char kRoot[] = "/lib";
constexpr char kLive[] = "/lib/Originals/item.png";

class MarkupStoresTest : public ::testing::Test {
 protected:
  MarkupStoresTest() : faulty_(fs_), store_(faulty_), sidecars_(faulty_) {
    fs_.addFile(kLive, "original pixels", t0_);
    snapshot_.sourceItemID = id_;
    snapshot_.shapes.emplace_back();
  }

  // The editor's overwrite in place: stash, render over the live file, manifest.
  void Overwrite(const std::string& rendered, Date at) {
    store_.stashRawIfNeeded(kLive, kRoot, id_);
    fs_.addFile(kLive, rendered, at);
    store_.writeManifest(snapshot_, kLive, kRoot, id_);
  }
  std::string stash() { return "/lib/Edits/.originals/" + id_.uuidString() + ".png"; }
  std::string manifest() { return "/lib/Edits/.originals/" + id_.uuidString() + ".json"; }
  std::string logLine(const std::string& message) { return "[Klipora][nondestructive] " + message; }

  testing::MemoryFileSystem fs_;
  testing::FaultInjectingFileSystem faulty_;
  testing::ScopedLogCapture logs_;
  MarkupNonDestructiveStore store_;
  MarkupSidecarStore sidecars_;
  UUID id_ = UUID::Random();
  Date t0_ = Date::fromSecondsSince1970(1'700'000'000);
  MarkupDocumentSnapshot snapshot_;
};

TEST_F(MarkupStoresTest, OverwriteTwiceKeepsFirstOriginalAndReloadsWhileFingerprintMatches) {
  Overwrite("rendered once", t0_.addingTimeInterval(10));
  Overwrite("rendered twice", t0_.addingTimeInterval(20));
  EXPECT_EQ(*fs_.readFile(stash()), "original pixels");
  EXPECT_EQ(store_.existingRawURL(kRoot, id_), stash());  // never the manifest

  auto written = readSnapshotFile(fs_, manifest());
  ASSERT_TRUE(written);
  EXPECT_EQ(written->renderedFileSize, 14);
  EXPECT_EQ(written->renderedFileModified, t0_.timeIntervalSince1970() + 20);

  // A touch of under two seconds is still the rendered file.
  fs_.addFile(kLive, "rendered twice", t0_.addingTimeInterval(21.9));
  auto reload = store_.validatedReload(kRoot, id_, kLive);
  ASSERT_TRUE(reload);
  EXPECT_EQ(reload->rawURL, stash());
  EXPECT_EQ(reload->snapshot.shapes, snapshot_.shapes);
  EXPECT_TRUE(logs_.lines().empty());
}

TEST_F(MarkupStoresTest, ExternalChangeOrMissingFingerprintClearsStashAndManifest) {
  const std::string changed =
      logLine("Live file changed externally (or fingerprint missing) for id=" + id_.uuidString() +
              "; clearing stale stash.");
  Overwrite("rendered", t0_.addingTimeInterval(10));
  fs_.addFile(kLive, "rendered", t0_.addingTimeInterval(12));  // touched by 2 s
  EXPECT_FALSE(store_.validatedReload(kRoot, id_, kLive));
  EXPECT_FALSE(fs_.exists(stash()) || fs_.exists(manifest()));
  EXPECT_THAT(logs_.lines(), ElementsAre(changed));

  Overwrite("rendered", t0_.addingTimeInterval(30));
  fs_.addFile(kLive, "rendered!", t0_.addingTimeInterval(30));  // same time, other size
  EXPECT_FALSE(store_.validatedReload(kRoot, id_, kLive));
  EXPECT_FALSE(fs_.exists(stash()));

  // A manifest written without a fingerprint never matches.
  Overwrite("rendered", t0_.addingTimeInterval(40));
  ASSERT_TRUE(writeSnapshotFile(fs_, manifest(), snapshot_).ok());
  logs_.clear();
  EXPECT_FALSE(store_.validatedReload(kRoot, id_, kLive));
  EXPECT_FALSE(fs_.exists(stash()));
  EXPECT_THAT(logs_.lines(), ElementsAre(changed));
}

TEST_F(MarkupStoresTest, BadManifestCountsAsAbsentAndStashIsCheckedByContent) {
  store_.stashRawIfNeeded(kLive, kRoot, id_);
  // The manifest is missing its transform: it does not decode.
  fs_.addFile(manifest(), R"({"version": 5, "shapes": []})");
  EXPECT_FALSE(store_.validatedReload(kRoot, id_, kLive));
  EXPECT_TRUE(fs_.exists(stash()));  // the live file still is the original

  fs_.removeFile(manifest()).ok();
  fs_.addFile(kLive, "rendered, manifest lost", t0_);
  logs_.clear();
  EXPECT_FALSE(store_.validatedReload(kRoot, id_, kLive));
  EXPECT_FALSE(fs_.exists(stash()));
  EXPECT_THAT(logs_.lines(), ElementsAre(logLine("Stash without manifest no longer matches live "
                                                 "file for id=" +
                                                 id_.uuidString() + "; clearing.")));

  // Without a stash there is nothing to reopen, whatever manifest is left.
  ASSERT_TRUE(writeSnapshotFile(fs_, manifest(), snapshot_).ok());
  EXPECT_FALSE(store_.validatedReload(kRoot, id_, kLive));
  EXPECT_FALSE(store_.existingRawURL(kRoot, id_));
}

TEST_F(MarkupStoresTest, FailuresAreLoggedAndLeaveNothingBehind) {
  faulty_.failWhen(Op::kCopy, ".originals", Status::NoSpace("disk full"));
  store_.stashRawIfNeeded(kLive, kRoot, id_);
  EXPECT_THAT(logs_.lines(),
              ElementsAre(logLine("Raw stash failed for id=" + id_.uuidString() + ": disk full")));
  faulty_.clearFaults();
  logs_.clear();

  store_.writeManifest(snapshot_, "/lib/Originals/gone.png", kRoot, id_);
  EXPECT_THAT(logs_.lines(), ElementsAre(logLine("Fingerprint failed for id=" + id_.uuidString() +
                                                 "; skipping manifest write.")));
  EXPECT_FALSE(fs_.exists(manifest()));

  logs_.clear();
  faulty_.failWhen(Op::kWriteAtomically, ".json", Status::PermissionDenied("read-only"));
  store_.writeManifest(snapshot_, kLive, kRoot, id_);
  sidecars_.write(snapshot_, kRoot, id_);
  EXPECT_THAT(
      logs_.lines(),
      ElementsAre(
          logLine("Manifest write failed for id=" + id_.uuidString() + ": read-only"),
          "[Klipora][sidecar] Sidecar write failed for id=" + id_.uuidString() + ": read-only"));
}

TEST_F(MarkupStoresTest, ClearAndTheEditCleanerRemoveOnlyThisItemsFiles) {
  Overwrite("rendered", t0_);
  UUID other = UUID::Random();
  fs_.addFile("/lib/Edits/.originals/" + other.uuidString() + ".jpg", "other");
  NonDestructiveEditCleaner cleaner(faulty_);
  library::MarkupEditCleaner& asLibrarySees = cleaner;
  EXPECT_TRUE(asLibrarySees.clearEdits(kRoot, id_).ok());
  EXPECT_THAT(fs_.filesUnder("/lib/Edits"),
              ElementsAre("/lib/Edits/.originals/" + other.uuidString() + ".jpg"));
  EXPECT_TRUE(asLibrarySees.clearEdits(kRoot, id_).ok());  // nothing left: still fine
  EXPECT_TRUE(store_.clear("/elsewhere", id_).ok());
}

TEST_F(MarkupStoresTest, SidecarIsWrittenUnderTheNewItemsIdAndReadBack) {
  UUID newItem = UUID::Random();
  snapshot_.createdAt = t0_;
  sidecars_.write(snapshot_, kRoot, newItem);
  std::string path = "/lib/Edits/.sidecar/" + newItem.uuidString() + ".json";
  EXPECT_EQ(MarkupSidecarStore::sidecarPath(kRoot, newItem), path);
  ASSERT_TRUE(fs_.exists(path));
  EXPECT_THAT(*fs_.readFile(path), HasSubstr("\"sourceItemID\": \"" + id_.uuidString() + "\""));
  EXPECT_EQ(sidecars_.read(kRoot, newItem), snapshot_);
  EXPECT_FALSE(sidecars_.read(kRoot, UUID::Random()));
}

}  // namespace
}  // namespace klipora::markup
