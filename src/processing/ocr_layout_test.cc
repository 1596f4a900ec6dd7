#include "processing/ocr_layout.h"

#include <gtest/gtest.h>

#include "processing/ocr_test_support.h"

namespace klipora::processing {
namespace {

using testing::Word;

OcrObservation Line(std::string text, OcrBox box) {
  return {std::move(text), 0.9f, box, {box}, {}};
}

std::vector<std::string> Texts(const std::vector<OcrObservation>& lines) {
  std::vector<std::string> out;
  for (const auto& l : lines) out.push_back(l.text);
  return out;
}

TEST(OcrLayoutTest, ShapesAreFoundWithTheirDiagonalNeighboursAndFilteredToText) {
  PixelImage mask = testing::Page(10, 10, 0);
  mask.row(1)[1] = mask.row(2)[2] = 1;  // touching corners: one shape
  mask.row(5)[7] = 1;
  auto shapes = connectedShapes(mask);
  ASSERT_EQ(shapes.size(), 2u);
  EXPECT_EQ(shapes[0], (OcrBox{1, 1, 3, 3}));

  PixelImage ink = testing::Page(400, 100);
  OcrBox word = Word(ink, 10, 10, 4);
  testing::Fill(ink, {10, 60, 390, 62});        // a rule
  testing::Fill(ink, {200, 30, 202, 32});       // a speck
  testing::Fill(ink, {300, 0, 400, 100}, 100);  // a picture
  auto text = textShapes(ink, 12);
  ASSERT_EQ(text.size(), 4u);
  for (const OcrBox& s : text) EXPECT_EQ(s.top, word.top);
}

TEST(OcrLayoutTest, ShapesGroupIntoLinesAtWordSpacesButNotAcrossColumns) {
  PixelImage ink = testing::Page(600, 100);
  OcrBox left = Word(ink, 10, 10, 3);
  OcrBox next = Word(ink, left.right + 5, 12, 2);  // a word space on, a little lower
  OcrBox column = Word(ink, 300, 10, 2);           // far to the right
  OcrBox below = Word(ink, 10, 40, 2);
  auto lines = groupIntoLines(textShapes(ink, 12), 12, ink.width, ink.height);
  ASSERT_EQ(lines.size(), 3u);
  // Sorted top to bottom, then left to right; padded by a third of the height.
  EXPECT_EQ(lines[0], (OcrBox{left.left - 4, 6, next.right + 4, next.bottom + 4}));
  EXPECT_EQ(lines[1].left, column.left - 4);
  EXPECT_EQ(lines[2].top, below.top - 4);

  auto uncovered = uncoveredShapes(textShapes(ink, 12), {lines[0], lines[1]});
  ASSERT_EQ(uncovered.size(), 2u);
  EXPECT_EQ(uncovered[0].top, below.top);
  // Clipped to the page.
  PixelImage edge = testing::Page(60, 20);
  Word(edge, 0, 0, 2);
  EXPECT_EQ(groupIntoLines(textShapes(edge, 12), 12, 60, 20)[0], (OcrBox{0, 0, 21, 16}));
}

TEST(OcrLayoutTest, RecoveredLinesJoinTheirNeighboursOrStandWhereTheyAre) {
  std::vector<OcrObservation> lines = {Line("Coffee Beans", {10, 100, 200, 120}),
                                       Line(".40", {312, 100, 340, 120}),
                                       Line("TOTAL", {10, 200, 80, 220})};
  mergeRecoveredLines(lines, {Line("11", {290, 101, 310, 119}),      // just before ".40"
                              Line("EUR", {350, 100, 380, 120}),     // a word space after
                              Line("Basil", {10, 150, 60, 170}),     // a row of its own
                              Line("--", {10, 300, 40, 320}),        // no letters: dropped
                              Line("Thanks", {10, 400, 90, 420})});  // below everything
  EXPECT_EQ(Texts(lines),
            (std::vector<std::string>{"Coffee Beans", "11.40 EUR", "Basil", "TOTAL", "Thanks"}));
  EXPECT_EQ(lines[1].box, (OcrBox{290, 100, 380, 120}));
  EXPECT_EQ(lines[1].words.size(), 3u);
}

}  // namespace
}  // namespace klipora::processing
