// Every kind of bad input a user can hand `klipora import`, walked on the real
// binary: each gives its exit code, its message and its cause, and none leaves
// a partial record, a stray file or a crash behind. README's table of bad
// input is this test's table.
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>

#include "cli/testing/run_klipora.h"
#include "platform/linux/testing/test_images.h"
#include "platform/testing/temp_dir.h"

namespace klipora {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::imageOptions;
using testing::makeTestImage;
using testing::runKlipora;

// Runs as root lose the right to ignore file permissions, so that a file
// nobody may read is unreadable for them too.
std::string WithoutPermissionOverride() {
  return ::geteuid() == 0 ? "setpriv --bounding-set -dac_override,-dac_read_search "
                            "--inh-caps -dac_override,-dac_read_search"
                          : "";
}

// A two-frame GIF.
std::string AnimatedGif() {
  std::string frames = makeTestImage(imageOptions(64, 96));
  VipsImage* image = vips_image_new_from_buffer(frames.data(), frames.size(), "", nullptr);
  if (!image) return {};
  VipsImage* copy = nullptr;
  vips_copy(image, &copy, nullptr);
  g_object_unref(image);
  vips_image_set_int(copy, "page-height", 48);
  void* buffer = nullptr;
  size_t length = 0;
  int rc = vips_image_write_to_buffer(copy, ".gif", &buffer, &length, nullptr);
  g_object_unref(copy);
  if (rc != 0) return {};
  std::string out(static_cast<const char*>(buffer), length);
  g_free(buffer);
  return out;
}

// A 4-band CMYK JPEG.
std::string CmykJpeg() {
  auto options = imageOptions(80, 60);
  options.bands = 4;
  std::string png = makeTestImage(options);
  VipsImage* image = vips_image_new_from_buffer(png.data(), png.size(), "", nullptr);
  if (!image) return {};
  VipsImage* cmyk = nullptr;
  vips_copy(image, &cmyk, "interpretation", VIPS_INTERPRETATION_CMYK, nullptr);
  g_object_unref(image);
  void* buffer = nullptr;
  size_t length = 0;
  int rc = vips_jpegsave_buffer(cmyk, &buffer, &length, nullptr);
  g_object_unref(cmyk);
  if (rc != 0) return {};
  std::string out(static_cast<const char*>(buffer), length);
  g_free(buffer);
  return out;
}

class BadInputCliTest : public ::testing::Test {
 protected:
  std::string write(const std::string& name, const std::string& bytes) {
    std::string path = dir_.file(name);
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }
  // Items in the library, and files in its Originals and Thumbnails.
  struct Library {
    size_t items = 0, originals = 0, thumbnails = 0;
  };
  Library library(const std::string& home) {
    Library l;
    auto list = runKlipora(home, {"list", "--json"});
    if (list.exitCode == 0) l.items = json::parse(list.out).size();
    for (const char* folder : {"/Library/Originals", "/Library/Thumbnails"}) {
      std::error_code ignored;
      size_t n = 0;
      for (auto it = fs::directory_iterator(home + folder, ignored); it != fs::directory_iterator();
           ++it) {
        ++n;
      }
      (folder[9] == 'O' ? l.originals : l.thumbnails) = n;
    }
    return l;
  }

  testing::TempDir dir_;
  std::string home_ = dir_.file("home");
};

struct Kind {
  std::string name;
  std::function<std::vector<std::string>()> args;  // after "import"
  int exitCode;
  std::string message;  // the line on standard error, or on standard output for 0
  std::string cause;    // the second line, without its parentheses; "" for none
  std::string environment = "";
};

TEST_F(BadInputCliTest, EveryKindOfBadFileIsNamedWithItsCauseAndLeavesNothingBehind) {
  const std::string png = makeTestImage(imageOptions(320, 200));
  const std::string jpeg = makeTestImage(imageOptions(320, 200, ".jpg"));
  const std::string webp = makeTestImage(imageOptions(320, 200, ".webp"));
  auto one = [this](const std::string& name, const std::string& bytes) {
    return [=, this] { return std::vector<std::string>{write(name, bytes)}; };
  };
  auto sixteen = imageOptions(100, 80);
  sixteen.sixteenBit = true;
  auto greyAlpha = imageOptions(100, 80);
  greyAlpha.bands = 2;
  const std::string notReadable = "it is not an image in any format Klipora reads";
  const std::string damaged = "the image is damaged or incomplete";

  std::vector<Kind> kinds = {
      {"zero bytes", one("empty.png", ""), 1, "Could not read the file.", "the file is empty"},
      {"truncated PNG", one("cut.png", png.substr(0, png.size() / 2)), 0, "", ""},
      {"truncated JPEG", one("cut.jpg", jpeg.substr(0, jpeg.size() / 2)), 0, "", ""},
      {"truncated WebP", one("cut.webp", webp.substr(0, webp.size() / 2)), 1,
       "Could not read the file.", damaged},
      {"truncated HEIC",
       one("cut.heic", std::string("\0\0\0\x18"
                                   "ftypheic\0\0\0\0mif1heic",
                                   24)),
       1, "Could not read the file.", damaged},
      {"wrong magic", one("magic.png", "\x89PNX\r\n\x1a\n" + png.substr(8)), 1,
       "Could not read the file.", notReadable},
      {"text named .png", one("notes.png", "these are my notes\n"), 1, "Could not read the file.",
       notReadable},
      {"30000×30000 decompression bomb",
       one("bomb.png", testing::makeDeclaredHugePng(30000, 30000)), 0, "", ""},
      {"16-bit PNG", one("deep.png", makeTestImage(sixteen)), 0, "", ""},
      {"CMYK JPEG", one("cmyk.jpg", CmykJpeg()), 0, "", ""},
      {"grey+alpha PNG", one("grey-alpha.png", makeTestImage(greyAlpha)), 0, "", ""},
      {"animated GIF", one("moving.gif", AnimatedGif()), 0, "", ""},
      {"JPEG named .png", one("really-a-jpeg.png", makeTestImage(imageOptions(90, 60, ".jpg"))), 0,
       "", ""},
      {"unsupported type", one("notes.pdf", "%PDF-1.4\n"), 1, "Unsupported file type: pdf",
       "Klipora takes .png, .jpg, .jpeg, .jpe, .jfif, .tif, .tiff, .heic, .heif, .webp, .avif, "
       ".gif, .bmp and .ico files"},
      {"no extension", one("README", png), 1, "Unsupported file type: ",
       "the name has no extension; Klipora takes .png, .jpg, .jpeg, .jpe, .jfif, .tif, .tiff, "
       ".heic, .heif, .webp, .avif, .gif, .bmp and .ico files"},
      {"a directory",
       [this] {
         fs::create_directories(dir_.file("folder.png"));
         return std::vector<std::string>{dir_.file("folder.png")};
       },
       1, "Could not read the file.",
       "it is a folder; klipora import --folder imports the screenshots in it"},
      {"a FIFO",
       [this] {
         ::mkfifo(dir_.file("fifo.png").c_str(), 0644);
         return std::vector<std::string>{dir_.file("fifo.png")};
       },
       1, "Could not read the file.", "it is a named pipe, not a file"},
      {"a socket",
       [this] {
         int s = ::socket(AF_UNIX, SOCK_STREAM, 0);
         sockaddr_un a = {};
         a.sun_family = AF_UNIX;
         std::snprintf(a.sun_path, sizeof a.sun_path, "%s", dir_.file("socket.png").c_str());
         (void)::bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a);
         ::close(s);
         return std::vector<std::string>{dir_.file("socket.png")};
       },
       1, "Could not read the file.", "it is a socket, not a file"},
      {"a device",
       [this] {
         fs::create_symlink("/dev/zero", dir_.file("device.png"));
         return std::vector<std::string>{dir_.file("device.png")};
       },
       1, "Could not read the file.", "it is a device, not a file"},
      {"a dangling link",
       [this] {
         fs::create_symlink(dir_.file("nowhere.png"), dir_.file("dangling.png"));
         return std::vector<std::string>{dir_.file("dangling.png")};
       },
       1, "Could not read the file.", "it is a link to a file that does not exist"},
      {"a link loop",
       [this] {
         fs::create_symlink(dir_.file("loop-b.png"), dir_.file("loop-a.png"));
         fs::create_symlink(dir_.file("loop-a.png"), dir_.file("loop-b.png"));
         return std::vector<std::string>{dir_.file("loop-a.png")};
       },
       1, "Could not read the file.", "too many symbolic links (a link loop)"},
      {"no read permission",
       [this] {
         std::string path = write("locked.png", makeTestImage(imageOptions(33, 33)));
         ::chmod(path.c_str(), 0);
         return std::vector<std::string>{path};
       },
       1, "Could not read the file.", "no permission to read it", WithoutPermissionOverride()},
      {"a vanished file", [this] { return std::vector<std::string>{dir_.file("gone.png")}; }, 1,
       "Could not read the file.", "no such file; it may have been moved or deleted"},
      {"a name with a newline", one("two\nlines.png", makeTestImage(imageOptions(41, 30))), 0, "",
       ""},
      {"a name with emoji", one("\U0001F4F7 shot.png", makeTestImage(imageOptions(42, 30))), 0, "",
       ""},
      {"a name with a leading dash",
       [this] {
         return std::vector<std::string>{write("-dash.png", makeTestImage(imageOptions(43, 30)))};
       },
       0, "", ""},
      {"a 200 MB file",
       [this] {
         // A real PNG followed by 200 MB the decoder never needs.
         std::string path = write("huge.png", makeTestImage(imageOptions(44, 30)));
         std::ofstream(path, std::ios::binary | std::ios::app) << std::string(200 << 20, '\x5a');
         return std::vector<std::string>{path};
       },
       0, "", ""},
      {"already in the library", one("again.png", png), 0, "already in the library", ""},
  };
  // The same bytes as the truncated PNG's source, imported first under another name.
  ASSERT_EQ(runKlipora(home_, {"import", write("first.png", png)}).exitCode, 0);

  for (const auto& kind : kinds) {
    SCOPED_TRACE(kind.name);
    Library before = library(home_);
    std::vector<std::string> args = {"import"};
    for (auto& a : kind.args()) args.push_back(a);
    auto r = runKlipora(home_, args, kind.environment);
    EXPECT_EQ(r.exitCode, kind.exitCode) << r.out << r.err;
    EXPECT_EQ(r.err.find("runtime error"), std::string::npos) << r.err;
    if (kind.exitCode != 0) {
      std::string expected = ": " + kind.message + "\n";
      if (!kind.cause.empty()) expected += "  (" + kind.cause + ")\n";
      EXPECT_NE(r.err.find(expected), std::string::npos) << r.err;
    } else if (!kind.message.empty()) {
      EXPECT_NE(r.out.find(": " + kind.message + "\n"), std::string::npos) << r.out;
    }
    Library after = library(home_);
    size_t added = kind.exitCode == 0 && kind.message.empty() ? 1 : 0;
    EXPECT_EQ(after.items, before.items + added);
    EXPECT_EQ(after.originals, after.items);  // no stray copy
    EXPECT_LE(after.thumbnails, after.items);
  }
}

TEST_F(BadInputCliTest, BrokenLibrariesAndFullDisksFailCleanly) {
  const std::string shot = write("shot.png", makeTestImage(imageOptions(120, 90)));
  auto countCopies = [](const std::string& home) {
    std::error_code ignored;
    size_t n = 0;
    for (auto it = fs::directory_iterator(home + "/Library/Originals", ignored);
         it != fs::directory_iterator(); ++it) {
      ++n;
    }
    return n;
  };

  {
    SCOPED_TRACE("a corrupt store");
    std::string home = dir_.file("corrupt");
    fs::create_directories(home);
    std::ofstream(home + "/Klipora.store") << std::string(8192, 'z');
    auto r = runKlipora(home, {"import", shot});
    EXPECT_EQ(r.exitCode, 3);
    EXPECT_NE(r.err.find("Could not open Klipora library. Your data is safe at"),
              std::string::npos);
    EXPECT_NE(r.err.find("file is not a database"), std::string::npos) << r.err;
    EXPECT_EQ(countCopies(home), 0u);
  }
  {
    SCOPED_TRACE("a truncated store");
    std::string home = dir_.file("truncated");
    ASSERT_EQ(runKlipora(home, {"import", write("other.png", makeTestImage(imageOptions(99, 9)))})
                  .exitCode,
              0);
    std::string store = home + "/Klipora.store";
    fs::remove(store + "-wal");
    fs::remove(store + "-shm");
    fs::resize_file(store, fs::file_size(store) / 2);
    auto r = runKlipora(home, {"import", shot});
    EXPECT_EQ(r.exitCode, 3) << r.out << r.err;
    EXPECT_NE(r.err.find("Could not open Klipora library."), std::string::npos) << r.err;
    EXPECT_EQ(countCopies(home), 1u);  // the earlier import's copy, nothing new
  }
  {
    SCOPED_TRACE("a broken defaults.json");
    std::string home = dir_.file("defaults");
    fs::create_directories(home);
    std::ofstream(home + "/defaults.json") << "{\"broken\": ";
    auto r = runKlipora(home, {"import", shot});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.err.find("defaults.json"), std::string::npos) << r.err;
    EXPECT_EQ(countCopies(home), 1u);
  }
  {
    SCOPED_TRACE("a read-only library folder");
    std::string home = dir_.file("readonly");
    ASSERT_EQ(runKlipora(home, {"info"}).exitCode, 0);
    ::chmod((home + "/Library/Originals").c_str(), 0555);
    auto r = runKlipora(home, {"import", shot}, WithoutPermissionOverride());
    ::chmod((home + "/Library/Originals").c_str(), 0755);
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find(shot + ": create " + home + "/Library/Originals/"), std::string::npos)
        << r.err;
    EXPECT_NE(r.err.find("  (no permission to write in the library folder)\n"), std::string::npos)
        << r.err;
    EXPECT_EQ(countCopies(home), 0u);
  }
  {
    SCOPED_TRACE("a full disk");
    // A small file system of its own when this run may mount one; else a
    // file-size limit, which fails the writes the same way part-way through.
    std::string home = dir_.file("full");
    fs::create_directories(home);
    bool mounted = ::mount("tmpfs", home.c_str(), "tmpfs", 0, "size=2m") == 0;
    std::string big =
        write("big.png", makeTestImage(imageOptions(45, 30)) + std::string(3 << 20, 'Z'));
    auto r = runKlipora(home, {"import", big}, mounted ? "" : "trap '' XFSZ; ulimit -f 1024;");
    EXPECT_EQ(r.exitCode, 1) << r.out << r.err;
    EXPECT_NE(r.err.find(mounted ? "  (the disk is full)\n" : "  (File too large)\n"),
              std::string::npos)
        << r.err;
    EXPECT_EQ(countCopies(home), 0u);
    EXPECT_EQ(runKlipora(home, {"import", shot}).exitCode, 0);  // a file that fits still does
    if (mounted) ::umount(home.c_str());
  }
}

}  // namespace
}  // namespace klipora
