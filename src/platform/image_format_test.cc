#include "platform/image_format.h"

#include <gtest/gtest.h>

namespace klipora {
namespace {

using namespace std::string_view_literals;

TEST(ImageFormatTest, KnowsTheScreenshotFormatsAndNothingElse) {
  EXPECT_EQ(identifyImageFormat("\x89PNG\r\n\x1a\n...."sv), "png");
  EXPECT_EQ(identifyImageFormat("\xff\xd8\xff\xe0"sv), "jpeg");
  EXPECT_EQ(identifyImageFormat("MM\0*\0\0\0\x08"sv), "tiff");
  EXPECT_EQ(identifyImageFormat("\0\0\0\x18" "ftypheic"sv), "heif");
  EXPECT_EQ(identifyImageFormat("RIFF\x10\0\0\0WEBPVP8 "sv), "webp");
  EXPECT_EQ(identifyImageFormat("\0\0\1\0\1\0"sv), "ico");
  // Formats a general image library would also open, and near misses.
  for (std::string_view other : {"%PDF-1.7"sv, "<svg xmlns="sv, "<?xml version"sv,
                                 "P6\n16 16\n255\n"sv, "RIFF\x10\0\0\0WAVE"sv, "\x89PNX"sv,
                                 "GIF88a"sv, "push graphic-context"sv, ""sv, "\xff\xd8"sv}) {
    EXPECT_EQ(identifyImageFormat(other), std::nullopt) << other;
  }
}

}  // namespace
}  // namespace klipora
