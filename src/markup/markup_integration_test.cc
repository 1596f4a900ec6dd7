// Markup persistence on real files, and `klipora markup` as a user runs it.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "cli/testing/run_klipora.h"
#include "markup/markup_non_destructive_store.h"
#include "markup/markup_snapshot_json.h"
#include "platform/linux/posix_file_system.h"
#include "platform/linux/testing/test_images.h"
#include "platform/testing/temp_dir.h"

namespace klipora::markup {
namespace {

using nlohmann::json;
using testing::runKlipora;
namespace fsys = std::filesystem;

class MarkupOnDiskTest : public ::testing::Test {
 protected:
  std::string write(const std::string& path, const std::string& bytes) {
    fsys::create_directories(fsys::path(path).parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
    return path;
  }
  // Moves the modification time of `path` by `seconds`.
  void touch(const std::string& path, double seconds) {
    auto shift = std::chrono::duration_cast<fsys::file_time_type::duration>(
        std::chrono::duration<double>(seconds));
    fsys::last_write_time(path, fsys::last_write_time(path) + shift);
  }
  // The editor's overwrite in place, on real files.
  void overwrite(const std::string& root, const UUID& id, const std::string& live) {
    store_.stashRawIfNeeded(live, root, id);
    write(live, "rendered pixels");
    MarkupDocumentSnapshot snapshot;
    snapshot.sourceItemID = id;
    snapshot.shapes.emplace_back();
    store_.writeManifest(snapshot, live, root, id);
  }

  testing::TempDir dir_;
  PosixFileSystem fs_;
  MarkupNonDestructiveStore store_{fs_};
};

TEST_F(MarkupOnDiskTest, ReloadFollowsTheRealModificationTime) {
  std::string root = dir_.file("lib");
  std::string live = write(root + "/Originals/shot.png", "original pixels");
  UUID id = UUID::Random();
  overwrite(root, id, live);
  overwrite(root, id, live);
  auto raw = store_.existingRawURL(root, id);
  ASSERT_TRUE(raw);
  EXPECT_EQ(*fs_.readFile(*raw), "original pixels");

  touch(live, 1.5);
  EXPECT_TRUE(store_.validatedReload(root, id, live));
  touch(live, 1.0);  // 2.5 s after the manifest's fingerprint
  EXPECT_FALSE(store_.validatedReload(root, id, live));
  EXPECT_TRUE(fsys::is_empty(root + "/Edits/.originals"));
}

TEST_F(MarkupOnDiskTest, CheckPrintsTheCanonicalFormOrWhatIsWrong) {
  std::string home = dir_.file("home");
  std::string old = write(dir_.file("old.json"), R"({
    "sourceItemID": "e621e1f8-c36c-495a-93fc-0c247a3e6e5f", "sourceImageWidth": 10,
    "sourceImageHeight": 20, "createdAt": "2026-03-01T10:20:30+02:00",
    "inkStrokes": [], "textBoxes": [], "signatures": [],
    "shapes": [], "effects": [{"id": "44444444-4444-4444-8444-444444444444",
      "kind": "gaussianBlur", "frame": [[0, 0], [5, 5]], "intensity": 0.5}],
    "spotlights": [{"id": "77777777-7777-4777-8777-777777777777", "shape": "rectangle",
      "frame": [[1, 1], [2, 2]], "dimColor": {"red": 0, "green": 0, "blue": 0, "alpha": 1},
      "dimOpacity": 0.5, "feather": 0}],
    "watermarks": [{"id": "CCCCCCCC-CCCC-4CCC-8CCC-CCCCCCCCCCCC",
      "stampID": "CDCDCDCD-CDCD-4CDC-8CDC-CDCDCDCDCDCD", "corner": "center", "insets": [0, 0],
      "opacity": 1, "scale": 1, "locked": false}],
    "transform": {"rotationQuarterTurns": 0, "flipHorizontal": false, "flipVertical": false,
      "straightenDegrees": 0}})");
  auto r = runKlipora(home, {"markup", "check", old});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  json out = json::parse(r.out);
  EXPECT_EQ(out["version"], 5);
  EXPECT_EQ(out["sourceItemID"], "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
  EXPECT_EQ(out["createdAt"], "2026-03-01T08:20:30Z");
  std::vector<std::string> kinds;
  for (const auto& ref : out["layerOrder"]) kinds.push_back(ref["kind"]);
  EXPECT_EQ(kinds, (std::vector<std::string>{"effect", "spotlight", "watermark"}));

  json broken = json::parse(r.out);
  broken["crop"] = {{"rect", {{0, 0}, {1, 2, 3}}}};
  auto bad = runKlipora(home, {"markup", "check", write(dir_.file("bad.json"), broken.dump())});
  EXPECT_EQ(bad.exitCode, 1);
  EXPECT_NE(bad.err.find("crop.rect: expected a rectangle [[x, y], [width, height]]"),
            std::string::npos)
      << bad.err;
  EXPECT_TRUE(bad.out.empty());

  std::string big = write(dir_.file("big.json"), std::string(50 << 20, ' '));
  auto huge = runKlipora(home, {"markup", "check", big});
  EXPECT_EQ(huge.exitCode, 1);
  EXPECT_NE(huge.err.find("larger than"), std::string::npos) << huge.err;
}

TEST_F(MarkupOnDiskTest, ShowPrintsTheEditsThatWouldReopen) {
  std::string home = dir_.file("home");
  std::string image = write(dir_.file("shot.png"), testing::makeTestImage({}));
  ASSERT_EQ(runKlipora(home, {"import", image}).exitCode, 0);
  json items = json::parse(runKlipora(home, {"list", "--json"}).out);
  ASSERT_EQ(items.size(), 1u);
  std::string idText = items[0]["id"];
  std::string live = items[0]["libraryPath"];
  UUID id = *UUID::Parse(idText);

  auto none = runKlipora(home, {"markup", "show", idText, "--json"});
  ASSERT_EQ(none.exitCode, 0) << none.err;
  EXPECT_EQ(json::parse(none.out)["hasEdits"], false);

  overwrite(home + "/Library", id, live);
  auto shown = runKlipora(home, {"markup", "show", idText, "--json"});
  ASSERT_EQ(shown.exitCode, 0) << shown.err;
  json out = json::parse(shown.out);
  EXPECT_EQ(out["hasEdits"], true);
  EXPECT_EQ(out["original"], home + "/Library/Edits/.originals/" + idText + ".png");
  EXPECT_EQ(out["snapshot"]["shapes"].size(), 1u);
  EXPECT_EQ(out["snapshot"]["renderedFileSize"], 15);

  touch(live, 3);  // changed behind the editor's back
  auto stale = runKlipora(home, {"markup", "show", idText});
  EXPECT_EQ(stale.exitCode, 0);
  EXPECT_NE(stale.out.find("has no markup edits"), std::string::npos) << stale.out;
  EXPECT_NE(stale.err.find("clearing stale stash"), std::string::npos) << stale.err;
  EXPECT_FALSE(store_.existingRawURL(home + "/Library", id));

  EXPECT_EQ(runKlipora(home, {"markup", "show", "not-an-id"}).exitCode, 2);
}

}  // namespace
}  // namespace klipora::markup
