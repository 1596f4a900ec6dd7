#include "ingestion/ingestion_watcher.h"

#include <gtest/gtest.h>

#include "ingestion/screenshot_evidence.h"
#include "platform/testing/fake_folder_watch.h"
#include "platform/testing/log_capture.h"
#include "platform/testing/manual_clock.h"
#include "platform/testing/memory_file_system.h"

namespace klipora::ingestion {
namespace {

using Kind = FolderWatchEvent::Kind;

std::string Chunk(std::string_view type, std::string_view data) {
  std::string out;
  const uint32_t n = static_cast<uint32_t>(data.size());
  out += {char(n >> 24), char(n >> 16), char(n >> 8), char(n)};
  out += type;
  out += data;
  out += std::string(4, '\x01');  // the CRC is not checked
  return out;
}

// A PNG's structure without real pixels: enough for the watcher's checks.
std::string Png(bool complete = true, std::string_view software = "") {
  std::string png("\x89PNG\r\n\x1a\n", 8);
  png += Chunk("IHDR", std::string(13, '\0'));
  if (!software.empty()) png += Chunk("tEXt", std::string("Software\0", 9) + std::string(software));
  png += Chunk("IDAT", std::string(40, 'x'));
  if (complete) png += std::string("\0\0\0\0IEND\xae\x42\x60\x82", 12);
  return png;
}

TEST(ScreenshotEvidenceTest, ToolNamesAndTemporaries) {
  for (const char* name :
       {"Screenshot From 2024-05-01 10-20-30.png", "Screenshot from 2024-05-01 10-20-30-1.png",
        "Bildschirmfoto vom 2024-05-01 10-20-30.png", "Screenshot_20240501_102030.png",
        "Screenshot_2024-05-01_10-20-30.png", "2024-05-01_10-20.png", "ksnip_20240501-102030.png",
        "2024-05-01-102030_1920x1080_scrot.png", "20240501_10h20m30s_grim.png",
        "2024-05-01-102030_hyprshot.png", "swappy-20240501_102030.png",
        "Screenshot 2024-05-01 at 10.20.30.png", "Capture d’écran du 2024-05-01 10-20-30.png"}) {
    EXPECT_TRUE(looksLikeScreenshotName(name)) << name;
  }
  for (const char* name : {"holiday.png", "IMG_20240501_102030.jpg", "2024-05-01.png",
                           "report 2024-05-01 10-20-30 final.png"}) {
    EXPECT_FALSE(looksLikeScreenshotName(name)) << name;
  }
  for (const char* name : {".Screenshot.png", "#123", "shot.png.a1B2c3"}) {
    EXPECT_TRUE(isTemporaryName(name)) << name;
  }
  EXPECT_FALSE(isTemporaryName("shot.backup.png"));

  EXPECT_TRUE(pngNamesScreenshotTool(Png(true, "gnome-screenshot")));
  EXPECT_FALSE(pngNamesScreenshotTool(Png(true, "GIMP 2.10")));
  EXPECT_EQ(completenessOf(Png(), Png().substr(Png().size() - 64)), Completeness::complete);
  EXPECT_EQ(completenessOf(Png(false), Png(false).substr(40)), Completeness::incomplete);
  EXPECT_EQ(completenessOf("\xff\xd8\xff\xe0 data \xff\xd9", "data \xff\xd9"),
            Completeness::complete);
  EXPECT_EQ(completenessOf("\xff\xd8\xff\xe0 data", "data"), Completeness::incomplete);
  EXPECT_EQ(completenessOf("GIF89a", "GIF89a"), Completeness::undecided);
}

class IngestionWatcherTest : public ::testing::Test {
 protected:
  IngestionWatcherTest() {
    watcher_.onNewFile = [this](const std::string& path, auto, auto) {
      handedOff_.push_back(path);
    };
    (void)fs_.createDirectories("/home/u/Pictures/Screenshots");
    (void)fs_.createDirectories("/home/u/Inbox");
    (void)fs_.createDirectories("/home/u/Klipora/Library");
  }
  void watch(std::vector<WatchedFolderSnapshot> folders) { watcher_.reloadFolders(folders); }
  static WatchedFolderSnapshot Screenshots() {
    return {UUID::Random(), "/home/u/Pictures/Screenshots", true, false};
  }
  static WatchedFolderSnapshot Inbox(bool recursive = false) {
    return {UUID::Random(), "/home/u/Inbox", false, recursive};
  }
  // Writes a file born now and reports it the way a tool's write would be.
  void write(const std::string& path, std::string data, Kind kind = Kind::closedWrite) {
    fs_.addFile(path, std::move(data), clock_.now());
    folderWatch_.send(Kind::created, path);
    folderWatch_.send(kind, path);
  }

  testing::ManualClock clock_;
  testing::MemoryFileSystem fs_;
  testing::FakeFolderWatch folderWatch_;
  testing::ScopedLogCapture log_;
  IngestionWatcher watcher_{{folderWatch_, fs_, clock_, clock_}, "/home/u/Klipora/Library"};
  std::vector<std::string> handedOff_;
};

TEST_F(IngestionWatcherTest, ACompleteScreenshotIsHandedOffOnce) {
  watch({Screenshots()});
  const std::string shot = "/home/u/Pictures/Screenshots/Screenshot From 2024-05-01 10-20-30.png";
  write(shot, Png());
  folderWatch_.send(Kind::movedIn, shot);  // a second report of the same file
  clock_.advance(1);
  EXPECT_EQ(handedOff_, std::vector<std::string>{shot});
  folderWatch_.send(Kind::closedWrite, shot);
  clock_.advance(5);
  EXPECT_EQ(handedOff_.size(), 1u);
  EXPECT_TRUE(log_.contains("handoff Screenshot From 2024-05-01 10-20-30.png (fsevents)"));

  // Created now and closed seconds later: handed off only once it is whole.
  const std::string late = "/home/u/Pictures/Screenshots/Screenshot From 2024-05-01 10-21-00.png";
  write(late, Png(false), Kind::modified);
  clock_.advance(10);
  EXPECT_EQ(handedOff_.size(), 1u);
  fs_.addFile(late, Png(), clock_.now().addingTimeInterval(-10));
  folderWatch_.send(Kind::closedWrite, late);
  clock_.advance(0.5);
  EXPECT_EQ(handedOff_.back(), late);

  // A format without an end marker counts once its size holds still.
  const std::string gif = "/home/u/Pictures/Screenshots/Screenshot From 2024-05-01 10-22-00.gif";
  write(gif, "GIF89a....", Kind::created);
  clock_.advance(IngestionWatcher::kMaybeCompleteDelay);
  EXPECT_NE(handedOff_.back(), gif);
  clock_.advance(IngestionWatcher::kRecheckDelay);
  EXPECT_EQ(handedOff_.back(), gif);

  // A JPEG still open may end, for now, with the end marker of the thumbnail
  // in its EXIF block: its size must hold still too, unless it was closed.
  const std::string jpeg = "/home/u/Pictures/Screenshots/Screenshot From 2024-05-01 10-23-00.jpg";
  write(jpeg, "\xff\xd8\xff\xe1 exif thumbnail \xff\xd9", Kind::modified);
  clock_.advance(IngestionWatcher::kMaybeCompleteDelay);
  EXPECT_NE(handedOff_.back(), jpeg);
  fs_.addFile(jpeg, "\xff\xd8\xff\xe1 exif thumbnail \xff\xd9 pixels \xff\xd9", clock_.now());
  folderWatch_.send(Kind::modified, jpeg);
  clock_.advance(IngestionWatcher::kRecheckDelay);
  EXPECT_NE(handedOff_.back(), jpeg);
  folderWatch_.send(Kind::closedWrite, jpeg);
  clock_.advance(IngestionWatcher::kProbablyCompleteDelay);
  EXPECT_EQ(handedOff_.back(), jpeg);
}

TEST_F(IngestionWatcherTest, EachToolsWayOfWritingGivesOneHandOff) {
  watch({Screenshots()});
  const std::string dir = "/home/u/Pictures/Screenshots/";

  // Written under a dot-name, then renamed: only the rename counts.
  const std::string hidden = dir + ".Screenshot_20240501_102030.png";
  const std::string visible = dir + "Screenshot_20240501_102030.png";
  write(hidden, Png());
  clock_.advance(2);
  EXPECT_TRUE(handedOff_.empty());
  ASSERT_TRUE(fs_.rename(hidden, visible).ok());
  folderWatch_.send(Kind::movedOut, hidden);
  folderWatch_.send(Kind::movedIn, visible);
  clock_.advance(IngestionWatcher::kProbablyCompleteDelay);
  EXPECT_EQ(handedOff_, std::vector<std::string>{visible});

  // Made whole elsewhere and linked into place: only a create event.
  const std::string linked = dir + "Screenshot_20240501_102031.png";
  fs_.addFile(linked, Png(), clock_.now());
  folderWatch_.send(Kind::created, linked);
  clock_.advance(IngestionWatcher::kMaybeCompleteDelay);
  EXPECT_EQ(handedOff_.back(), linked);

  // Created, then renamed to a second name in the folder: reported by both
  // events, handed off once under its final name.
  const std::string first = dir + "Screenshot_20240501_102032.png";
  const std::string renamed = dir + "Screenshot_20240501_102033.png";
  write(first, Png(false), Kind::modified);
  fs_.addFile(renamed, Png(), clock_.now());
  (void)fs_.removeFile(first);
  folderWatch_.send(Kind::movedOut, first);
  folderWatch_.send(Kind::movedIn, renamed);
  folderWatch_.send(Kind::closedWrite, renamed);
  clock_.advance(5);
  EXPECT_EQ(handedOff_, (std::vector<std::string>{visible, linked, renamed}));
}

TEST_F(IngestionWatcherTest, TheApplicationInFrontWhenAScreenshotAppearsIsHandedOn) {
  struct Frontmost final : ActiveApplication {
    std::optional<CapturingApplication> current() override { return app; }
    std::optional<CapturingApplication> app;
  } frontmost;
  std::vector<std::optional<std::string>> ids, names;
  watcher_.onNewFile = [&](const std::string&, auto id, auto name) {
    ids.push_back(id);
    names.push_back(name);
  };
  watcher_.setActiveApplication(&frontmost);
  watch({Inbox()});
  frontmost.app = CapturingApplication{"org.gnome.Terminal", "user@host: ~"};
  write("/home/u/Inbox/a.png", Png());
  frontmost.app.reset();  // what is in front later does not count
  clock_.advance(2);
  write("/home/u/Inbox/b.png", Png());
  clock_.advance(2);
  EXPECT_EQ(ids, (std::vector<std::optional<std::string>>{"org.gnome.Terminal", std::nullopt}));
  EXPECT_EQ(names[0], "user@host: ~");
}

TEST_F(IngestionWatcherTest, AHalfWrittenFileWaitsAndIsDroppedWhenItNeverEnds) {
  watch({Inbox()});
  const std::string shot = "/home/u/Inbox/slow.png";
  write(shot, Png(false), Kind::modified);
  for (int i = 0; i < 10; ++i) {
    clock_.advance(1);
    fs_.addFile(shot, Png(false) + std::string(i * 10, 'x'), clock_.now().addingTimeInterval(-i));
    folderWatch_.send(Kind::modified, shot);
  }
  EXPECT_TRUE(handedOff_.empty());
  clock_.advance(IngestionWatcher::kGiveUpAfter);
  EXPECT_TRUE(handedOff_.empty());
  EXPECT_TRUE(log_.contains("skip /home/u/Inbox/slow.png: still incomplete after 120s"));
}

TEST_F(IngestionWatcherTest, OnlyNewScreenshotsPassTheFilters) {
  watch({Screenshots(), Inbox()});
  const std::string dir = "/home/u/Pictures/Screenshots/";
  write(dir + ".Screenshot From 2024-05-01 10-20-30.png", Png());  // written hidden, renamed later
  write(dir + "Screenshot From 2024-05-01 10-20-30.png.Xy12Ab", Png());
  write(dir + "notes.txt", "text");
  write(dir + "holiday.png", Png());                       // no sign of a tool
  write(dir + "tool.png", Png(true, "gnome-screenshot"));  // its PNG text names the tool
  write(dir + "marked.png", Png());
  fs_.setExtendedAttribute(dir + "marked.png", kScreenCaptureAttribute, "1");
  write("/home/u/Inbox/holiday.png", Png());                // a folder the user added
  write("/home/u/Inbox/sub/deep.png", Png());               // below a top-level-only folder
  write("/home/u/Klipora/Library/Originals/x.png", Png());  // the library's own copies
  fs_.addFile(dir + "Screenshot From 2020-01-01 10-20-30.png", Png(),
              clock_.now().addingTimeInterval(-3600));  // an old file copied in
  folderWatch_.send(Kind::movedIn, dir + "Screenshot From 2020-01-01 10-20-30.png");
  clock_.advance(2);
  EXPECT_EQ(handedOff_, (std::vector<std::string>{dir + "tool.png", dir + "marked.png",
                                                  "/home/u/Inbox/holiday.png"}));
  EXPECT_TRUE(log_.contains("skip holiday.png: no sign of a screenshot tool"));
  EXPECT_TRUE(log_.contains("skip Screenshot From 2020-01-01 10-20-30.png: created 3600s ago"));
}

TEST_F(IngestionWatcherTest, FoldersThatAppearGoAndComeBackAreWatched) {
  (void)fs_.createDirectories("/home/u");
  watch({{UUID::Random(), "/home/u/Later/Shots", false, true}, Inbox(true)});
  EXPECT_EQ(watcher_.awaitedFolders(), std::vector<std::string>{"/home/u/Later/Shots"});
  EXPECT_TRUE(folderWatch_.watches("/home/u"));

  // Both levels appear at once, with a file in the deeper one; only the
  // first level is reported (the second was made before it was watched).
  fs_.addFile("/home/u/Later/Shots/first.png", Png(), clock_.now());
  folderWatch_.send(Kind::created, "/home/u/Later", true);
  EXPECT_TRUE(watcher_.awaitedFolders().empty());
  clock_.advance(2);
  EXPECT_EQ(handedOff_, std::vector<std::string>{"/home/u/Later/Shots/first.png"});

  // It goes away and comes back.
  fs_.removeTree("/home/u/Later/Shots");
  folderWatch_.send(Kind::folderGone, "/home/u/Later/Shots");
  EXPECT_EQ(watcher_.awaitedFolders(), std::vector<std::string>{"/home/u/Later/Shots"});
  (void)fs_.createDirectories("/home/u/Later/Shots");
  folderWatch_.send(Kind::created, "/home/u/Later/Shots", true);
  write("/home/u/Later/Shots/second.png", Png());
  clock_.advance(2);
  EXPECT_EQ(handedOff_.back(), "/home/u/Later/Shots/second.png");

  // A new subfolder of a tree is watched, and what reached it first is seen.
  fs_.addFile("/home/u/Inbox/2024/early.png", Png(), clock_.now());
  folderWatch_.send(Kind::created, "/home/u/Inbox/2024", true);
  EXPECT_TRUE(folderWatch_.watches("/home/u/Inbox/2024"));
  write("/home/u/Inbox/2024/later.png", Png());
  clock_.advance(2);
  EXPECT_EQ(handedOff_.size(), 4u);

  // Lost events: every folder is looked through again, and only what is new
  // and not yet handed off goes on.
  fs_.addFile("/home/u/Inbox/missed.png", Png(), clock_.now());
  folderWatch_.send(Kind::overflow, "");
  clock_.advance(2);
  EXPECT_EQ(handedOff_.back(), "/home/u/Inbox/missed.png");
  EXPECT_EQ(handedOff_.size(), 5u);

  watcher_.stopAll();
  EXPECT_EQ(folderWatch_.watchCount(), 0u);
  EXPECT_FALSE(watcher_.isWatching());
}

TEST(BoundedPathSetTest, KeepsTheNewestPaths) {
  BoundedPathSet set(3);
  for (const char* p : {"a", "b", "c"}) EXPECT_TRUE(set.insert(p));
  EXPECT_FALSE(set.insert("a"));
  set.erase("b");
  EXPECT_TRUE(set.insert("d"));
  EXPECT_TRUE(set.insert("e"));  // evicts "a", the oldest still present
  EXPECT_FALSE(set.contains("a"));
  EXPECT_TRUE(set.contains("c") && set.contains("d") && set.contains("e"));
  for (int i = 0; i < 100; ++i) set.insert(std::to_string(i));
  EXPECT_EQ(set.size(), 3u);
}

}  // namespace
}  // namespace klipora::ingestion
