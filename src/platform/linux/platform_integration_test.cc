// The real file system and image codec, on real files and real images.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <sys/xattr.h>

#include "platform/linux/posix_file_system.h"
#include "platform/linux/testing/test_images.h"
#include "platform/linux/vips_image_codec.h"
#include "platform/testing/temp_dir.h"

namespace klipora {
namespace {

class PosixFileSystemTest : public ::testing::Test {
 protected:
  testing::TempDir dir_;
  PosixFileSystem fs_;
};

TEST_F(PosixFileSystemTest, WritesReadsAndReplacesFiles) {
  std::string path = dir_.file("a/b/c.txt");
  ASSERT_TRUE(fs_.createDirectories(dir_.file("a/b")).ok());
  ASSERT_TRUE(fs_.writeNewFile(path, "one").ok());
  EXPECT_EQ(fs_.writeNewFile(path, "two").code(), Status::Code::kAlreadyExists);
  ASSERT_TRUE(fs_.writeFileAtomically(path, "three").ok());
  EXPECT_EQ(*fs_.readFile(path), "three");
  auto attributes = fs_.attributes(path);
  ASSERT_TRUE(attributes);
  EXPECT_EQ(attributes->size, 5);
  EXPECT_TRUE(attributes->isRegularFile);
  EXPECT_GT(attributes->changeTime.timeIntervalSince1970(), 1e9);
  EXPECT_EQ(fs_.readFile(dir_.file("missing")).error().code(), Status::Code::kNotFound);
  EXPECT_EQ(fs_.createDirectories(path).code(), Status::Code::kAlreadyExists);
  EXPECT_EQ(*fs_.listDirectory(dir_.file("a/b")), std::vector<std::string>{"c.txt"});
  EXPECT_TRUE(fs_.isWritableDirectory(dir_.path()));
  EXPECT_FALSE(fs_.isWritableDirectory(path));
}

TEST_F(PosixFileSystemTest, ScreenCaptureMarkIsRemovedAndItsAbsenceIsFine) {
  std::string path = dir_.file("shot.png");
  ASSERT_TRUE(fs_.writeNewFile(path, "x").ok());
  EXPECT_TRUE(fs_.removeExtendedAttribute(path, "user.klipora.screen-capture").ok());
  if (setxattr(path.c_str(), "user.klipora.screen-capture", "1", 1, 0) != 0) {
    GTEST_SKIP() << "this file system keeps no user attributes";
  }
  EXPECT_EQ(*fs_.extendedAttribute(path, "user.klipora.screen-capture"), "1");
  EXPECT_TRUE(fs_.removeExtendedAttribute(path, "user.klipora.screen-capture").ok());
  EXPECT_FALSE(fs_.extendedAttribute(path, "user.klipora.screen-capture"));
}

TEST_F(PosixFileSystemTest, AWriteThatRunsOutOfRoomLeavesNoPartialFile) {
  // A file-size limit makes write() fail part-way, as a full disk does.
  struct rlimit old;
  getrlimit(RLIMIT_FSIZE, &old);
  signal(SIGXFSZ, SIG_IGN);
  struct rlimit small = {4096, old.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  Status fresh = fs_.writeNewFile(dir_.file("big.png"), std::string(100000, 'x'));
  Status replaced = fs_.writeFileAtomically(dir_.file("big.json"), std::string(100000, 'x'));
  setrlimit(RLIMIT_FSIZE, &old);
  EXPECT_FALSE(fresh.ok());
  EXPECT_FALSE(replaced.ok());
  EXPECT_TRUE(fs_.listDirectory(dir_.path())->empty());
}

TEST_F(PosixFileSystemTest, OnlyRegularFilesAreReadAndNothingBlocks) {
  std::string fifo = dir_.file("fifo.png");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0644), 0);
  std::string socketPath = dir_.file("socket.png");
  int sock = ::socket(AF_UNIX, SOCK_STREAM, 0);
  struct sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::snprintf(address.sun_path, sizeof address.sun_path, "%s", socketPath.c_str());
  ASSERT_EQ(::bind(sock, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(::symlink(dir_.file("nowhere.png").c_str(), dir_.file("dangling.png").c_str()), 0);
  ASSERT_EQ(::symlink(dir_.file("loop-b.png").c_str(), dir_.file("loop-a.png").c_str()), 0);
  ASSERT_EQ(::symlink(dir_.file("loop-a.png").c_str(), dir_.file("loop-b.png").c_str()), 0);
  ASSERT_TRUE(fs_.createDirectories(dir_.file("folder.png")).ok());

  const std::pair<std::string, std::string> refused[] = {
      {fifo, "it is a named pipe, not a file"},
      {socketPath, "it is a socket, not a file"},
      {dir_.file("folder.png"), "it is a folder"},
      {"/dev/null", "it is a device, not a file"},
      {dir_.file("dangling.png"), "a link to a file that does not exist"},
      {dir_.file("loop-a.png"), "too many symbolic links (a link loop)"}};
  for (const auto& [path, why] : refused) {
    auto read = fs_.readFile(path);
    ASSERT_FALSE(read) << path;
    EXPECT_TRUE(read.error().message().ends_with(why)) << read.error().message();
    StreamedCopy copy = fs_.copyStreaming(path, dir_.file("copy"), [](std::string_view) {
      return Status::Ok();
    });
    EXPECT_TRUE(copy.sourceError.message().ends_with(why)) << copy.sourceError.message();
    EXPECT_FALSE(fs_.exists(dir_.file("copy")));
  }
  ::close(sock);
}

TEST_F(PosixFileSystemTest, StreamedCopyHandsOverEveryChunkAndCleansUpAfterFailures) {
  std::string big(2 * FileSystem::kCopyChunkSize + 17, 'a');
  big[FileSystem::kCopyChunkSize] = 'b';
  ASSERT_TRUE(fs_.writeNewFile(dir_.file("big.png"), big).ok());
  std::string seen;
  int chunks = 0;
  StreamedCopy copy = fs_.copyStreaming(dir_.file("big.png"), dir_.file("copy.png"),
                                        [&](std::string_view chunk) {
                                          ++chunks;
                                          seen.append(chunk);
                                          return Status::Ok();
                                        });
  ASSERT_TRUE(copy.ok());
  EXPECT_EQ(copy.size, static_cast<int64_t>(big.size()));
  EXPECT_EQ(chunks, 3);
  EXPECT_EQ(seen, big);
  EXPECT_EQ(*fs_.readFile(dir_.file("copy.png")), big);

  StreamedCopy exists = fs_.copyStreaming(dir_.file("big.png"), dir_.file("copy.png"),
                                          [](std::string_view) { return Status::Ok(); });
  EXPECT_EQ(exists.destinationError.code(), Status::Code::kAlreadyExists);
  StreamedCopy stopped = fs_.copyStreaming(dir_.file("big.png"), dir_.file("stopped.png"),
                                           [](std::string_view) {
                                             return Status::Cancelled("enough");
                                           });
  EXPECT_EQ(stopped.sourceError.code(), Status::Code::kCancelled);
  EXPECT_FALSE(fs_.exists(dir_.file("stopped.png")));

  struct rlimit old;
  getrlimit(RLIMIT_FSIZE, &old);
  signal(SIGXFSZ, SIG_IGN);
  struct rlimit small = {4096, old.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  StreamedCopy full = fs_.copyStreaming(dir_.file("big.png"), dir_.file("full.png"),
                                        [](std::string_view) { return Status::Ok(); });
  setrlimit(RLIMIT_FSIZE, &old);
  EXPECT_TRUE(full.sourceError.ok());
  EXPECT_FALSE(full.destinationError.ok());
  EXPECT_FALSE(fs_.exists(dir_.file("full.png")));
}

class VipsImageCodecTest : public ::testing::Test {
 protected:
  VipsImageCodec codec_;
};

TEST_F(VipsImageCodecTest, ReadsFactsAndMakesUprightThumbnails) {
  auto options = testing::imageOptions(400, 300, ".jpg");
  options.orientation = 6;
  options.exifDateTimeOriginal = "2024:02:29 23:59:59";
  std::string jpeg = testing::makeTestImage(options);
  auto p = codec_.properties(jpeg);
  ASSERT_TRUE(p) << p.error().message();
  EXPECT_EQ(p->width, 400);
  EXPECT_EQ(p->orientation, 6);
  EXPECT_EQ(p->exifDateTimeOriginal, "2024:02:29 23:59:59");
  EXPECT_EQ(p->format, "jpeg");
  auto thumb = codec_.makeJpegThumbnail(jpeg, 300, 80);
  ASSERT_TRUE(thumb);
  auto t = codec_.properties(*thumb);
  EXPECT_EQ(t->width, 225);  // turned upright: taller than wide
  EXPECT_EQ(t->height, 300);
  EXPECT_EQ(t->orientation, 1);

  // The same read from a file, as large imports do.
  testing::TempDir dir;
  PosixFileSystem fs;
  ASSERT_TRUE(fs.writeNewFile(dir.file("UPRIGHT.jpg"), jpeg).ok());
  auto fromFile = codec_.propertiesOfFile(dir.file("UPRIGHT.jpg"));
  ASSERT_TRUE(fromFile) << fromFile.error().message();
  EXPECT_EQ(fromFile->exifDateTimeOriginal, "2024:02:29 23:59:59");
  EXPECT_EQ(fromFile->format, "jpeg");
  auto fileThumb = codec_.makeJpegThumbnailOfFile(dir.file("UPRIGHT.jpg"), 300, 80);
  ASSERT_TRUE(fileThumb) << fileThumb.error().message();
  EXPECT_EQ(codec_.properties(*fileThumb)->width, 225);
  ASSERT_TRUE(fs.writeNewFile(dir.file("TEXT.png"), "not an image").ok());
  EXPECT_FALSE(codec_.propertiesOfFile(dir.file("TEXT.png")));
  ASSERT_TRUE(fs.writeNewFile(dir.file("CUT.jpg"), jpeg.substr(0, jpeg.size() / 2)).ok());
  EXPECT_FALSE(codec_.makeJpegThumbnailOfFile(dir.file("CUT.jpg"), 300, 80));

  std::string small = testing::makeTestImage(testing::imageOptions(120, 80));
  auto same = codec_.properties(*codec_.makeJpegThumbnail(small, 300, 80));
  EXPECT_EQ(same->width, 120);  // never enlarged
}

TEST_F(VipsImageCodecTest, OddButValidImagesThumbnail) {
  std::vector<testing::TestImageOptions> cases;
  for (int bands : {4, 2}) {
    cases.push_back(testing::imageOptions(64, 48));
    cases.back().bands = bands;
  }
  cases.push_back(testing::imageOptions(64, 48));
  cases.back().sixteenBit = true;
  for (const char* format : {".webp", ".gif", ".tif"}) {
    cases.push_back(testing::imageOptions(64, 48, format));
  }
  for (const auto& options : cases) {
    std::string bytes = testing::makeTestImage(options);
    ASSERT_FALSE(bytes.empty()) << options.format;
    auto thumb = codec_.makeJpegThumbnail(bytes, 300, 80);
    EXPECT_TRUE(thumb) << options.format << " bands=" << options.bands << ": "
                       << (thumb ? "" : thumb.error().message());
  }
}

TEST_F(VipsImageCodecTest, BrokenImagesFailCleanly) {
  EXPECT_EQ(codec_.properties("").error().code(), Status::Code::kInvalidArgument);
  EXPECT_EQ(codec_.properties("%PDF-1.4 not an image").error().code(),
            Status::Code::kInvalidArgument);
  std::string png = testing::makeTestImage(testing::imageOptions(800, 600));
  std::string truncated = png.substr(0, png.size() / 2);
  EXPECT_TRUE(codec_.properties(truncated));  // the header is intact
  EXPECT_FALSE(codec_.makeJpegThumbnail(truncated, 300, 80));
  std::string huge = testing::makeDeclaredHugePng(100000, 100000);
  auto p = codec_.properties(huge);
  ASSERT_TRUE(p);
  EXPECT_EQ(p->width, 100000);
  EXPECT_FALSE(codec_.makeJpegThumbnail(huge, 300, 80));  // fails at the missing data
}

}  // namespace
}  // namespace klipora
