#include "portability/export_file_names.h"

#include <gtest/gtest.h>

namespace klipora::portability {
namespace {

TEST(SafeNameComponentTest, KeepsWhatEveryFileSystemTakes) {
  EXPECT_EQ(safeNameComponent("Invoice: March/April *final*?"), "Invoice March April final");
  EXPECT_EQ(safeNameComponent("a\\b|c<d>e\"f"), "a b c d e f");
  EXPECT_EQ(safeNameComponent("tab\tnew\nline\x7f end"), "tab new line end");
  EXPECT_EQ(safeNameComponent("  ..hidden. . "), "hidden");
  EXPECT_EQ(safeNameComponent("Größe 日本語 ✓"), "Größe 日本語 ✓");
  std::string repaired = safeNameComponent("bad \xff bytes");
  EXPECT_EQ(repaired, "bad \xef\xbf\xbd bytes");  // U+FFFD
  EXPECT_EQ(safeNameComponent("\xc2\x85next"), "next");  // a C1 control character
  EXPECT_EQ(safeNameComponent(""), "Untitled");
  EXPECT_EQ(safeNameComponent("???", "Category"), "Category");
  EXPECT_EQ(safeNameComponent("con"), "Untitled con");
  EXPECT_EQ(safeNameComponent("LPT3.txt"), "Untitled LPT3.txt");
  EXPECT_EQ(safeNameComponent("COM0"), "COM0");
}

TEST(SafeNameComponentTest, LongNamesAreCutBetweenCharacters) {
  std::string longName;
  for (int i = 0; i < 100; ++i) longName += "é";  // two bytes each
  std::string safe = safeNameComponent(longName);
  EXPECT_LE(safe.size(), kMaxNameBytes);
  EXPECT_EQ(safe.size() % 2, 0u);
  EXPECT_EQ(safe, std::string(longName, 0, safe.size()));
}

TEST(UniqueNamesTest, SameNameDifferingOnlyInCaseGetsANumber) {
  UniqueNames names;
  EXPECT_EQ(names.claim("Shot", ".png"), "Shot.png");
  EXPECT_EQ(names.claim("shot", ".png"), "shot 2.png");
  EXPECT_EQ(names.claim("SHOT", ".png"), "SHOT 3.png");
  EXPECT_EQ(names.claim("Shot", ".jpg"), "Shot.jpg");
  EXPECT_EQ(names.claim("Ärger", ".png"), "Ärger.png");
  EXPECT_EQ(names.claim("ärger", ".png"), "ärger 2.png");
  names.reserve("Kept 2.png");
  EXPECT_EQ(names.claim("Kept", ".png"), "Kept.png");
  EXPECT_EQ(names.claim("Kept", ".png"), "Kept 3.png");
}

TEST(UniqueNamesTest, NumberedLongNamesStayWithinTheLimit) {
  UniqueNames names;
  std::string stem(200, 'x');
  std::string first = names.claim(stem, ".png");
  std::string second = names.claim(stem, ".png");
  EXPECT_EQ(first.size(), kMaxNameBytes);
  EXPECT_LE(second.size(), kMaxNameBytes);
  EXPECT_TRUE(second.ends_with(" 2.png"));
  EXPECT_NE(first, second);
}

}  // namespace
}  // namespace klipora::portability
