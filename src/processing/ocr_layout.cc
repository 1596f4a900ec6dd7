#include "processing/ocr_layout.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <string>

namespace klipora::processing {
namespace {

struct Run {
  int x0, x1;  // inclusive
  int y;
};

int Find(std::vector<int>& parent, int i) {
  while (parent[i] != i) i = parent[i] = parent[parent[i]];
  return i;
}

int Height(const OcrBox& b) { return b.bottom - b.top; }
int Width(const OcrBox& b) { return b.right - b.left; }

bool IsRule(const OcrBox& b) { return Width(b) > 20 * Height(b) || Height(b) > 20 * Width(b); }

// Rows shared by two boxes, as a share of the lower one's height.
double RowOverlap(const OcrBox& a, const OcrBox& b) {
  int shared = std::min(a.bottom, b.bottom) - std::max(a.top, b.top);
  int lower = std::max(1, std::min(Height(a), Height(b)));
  return static_cast<double>(shared) / lower;
}

OcrBox Union(const OcrBox& a, const OcrBox& b) {
  return {std::min(a.left, b.left), std::min(a.top, b.top), std::max(a.right, b.right),
          std::max(a.bottom, b.bottom)};
}

bool HasLetterOrDigit(const std::string& text) {
  for (unsigned char c : text) {
    if (std::isalnum(c) || c >= 0x80) return true;
  }
  return false;
}

// `right` follows `left` on one row, with a gap below a height of either.
bool Adjacent(const OcrBox& left, const OcrBox& right) {
  int gap = right.left - left.right;
  int height = std::max(Height(left), Height(right));
  return RowOverlap(left, right) >= 0.5 && gap >= -2 && gap <= height;
}

// Joins `second` to the end of `first`, with a blank when they stand a
// word's space apart.
void Join(OcrObservation& first, OcrObservation second) {
  int gap = second.box.left - first.box.right;
  bool blank = gap * 10 > std::max(Height(first.box), Height(second.box)) * 4;
  first.text += (blank ? " " : "") + second.text;
  first.confidence = std::min(first.confidence, second.confidence);
  first.box = Union(first.box, second.box);
  first.words.insert(first.words.end(), second.words.begin(), second.words.end());
  for (OcrCharacter& c : second.characters) first.characters.push_back(std::move(c));
}

}  // namespace

std::vector<OcrBox> connectedShapes(const PixelImage& mask) {
  std::vector<Run> runs;
  std::vector<int> parent;
  size_t previousStart = 0, previousEnd = 0;
  for (int y = 0; y < mask.height; ++y) {
    const uint8_t* row = mask.row(y);
    size_t rowStart = runs.size();
    for (int x = 0; x < mask.width;) {
      if (row[x] == 0) {
        ++x;
        continue;
      }
      int start = x;
      while (x < mask.width && row[x] != 0) ++x;
      runs.push_back({start, x - 1, y});
      parent.push_back(static_cast<int>(parent.size()));
      int self = static_cast<int>(runs.size() - 1);
      // Runs of the row above touching this one, diagonals included.
      for (size_t p = previousStart; p < previousEnd; ++p) {
        if (runs[p].x1 < start - 1) continue;
        if (runs[p].x0 > x) break;
        int a = Find(parent, self), b = Find(parent, static_cast<int>(p));
        if (a != b) parent[std::max(a, b)] = std::min(a, b);
      }
    }
    previousStart = rowStart;
    previousEnd = runs.size();
  }
  std::vector<OcrBox> extents(runs.size(), OcrBox{INT_MAX, INT_MAX, INT_MIN, INT_MIN});
  for (size_t i = 0; i < runs.size(); ++i) {
    OcrBox& e = extents[Find(parent, static_cast<int>(i))];
    e = {std::min(e.left, runs[i].x0), std::min(e.top, runs[i].y),
         std::max(e.right, runs[i].x1 + 1), std::max(e.bottom, runs[i].y + 1)};
  }
  std::vector<OcrBox> shapes;
  for (size_t i = 0; i < runs.size(); ++i) {
    if (parent[i] == static_cast<int>(i)) shapes.push_back(extents[i]);
  }
  return shapes;
}

int medianGlyphHeight(const std::vector<OcrBox>& shapes) {
  std::vector<int> heights;
  for (const OcrBox& s : shapes) {
    int h = Height(s), w = Width(s);
    // Glyphs, not dots, rules, borders or pictures.
    if (h < 4 || h > 200 || w > 8 * h || h > 12 * w) continue;
    heights.push_back(h);
  }
  if (heights.size() < 3) return 0;
  auto middle = heights.begin() + heights.size() / 2;
  std::nth_element(heights.begin(), middle, heights.end());
  return *middle;
}

std::vector<OcrBox> textShapes(const PixelImage& ink, int glyphHeight) {
  PixelImage mask = PixelImage::filled(ink.width, ink.height, 1, 0);
  for (size_t i = 0; i < ink.pixels.size(); ++i) mask.pixels[i] = ink.pixels[i] < kInkThreshold;
  const int smallest = std::max(3, glyphHeight / 2), largest = std::max(12, glyphHeight * 6);
  std::vector<OcrBox> shapes;
  for (const OcrBox& s : connectedShapes(mask)) {
    if (IsRule(s) || Height(s) < smallest || Height(s) > largest) continue;
    shapes.push_back(s);
  }
  return shapes;
}

std::vector<OcrBox> uncoveredShapes(const std::vector<OcrBox>& shapes,
                                    const std::vector<OcrBox>& covered) {
  std::vector<OcrBox> out;
  for (const OcrBox& s : shapes) {
    int cx = (s.left + s.right) / 2, cy = (s.top + s.bottom) / 2;
    bool inside = std::any_of(covered.begin(), covered.end(), [&](const OcrBox& c) {
      return cx >= c.left - 2 && cx < c.right + 2 && cy >= c.top - 2 && cy < c.bottom + 2;
    });
    if (!inside) out.push_back(s);
  }
  return out;
}

std::vector<OcrBox> groupIntoLines(std::vector<OcrBox> shapes, int glyphHeight, int width,
                                   int height) {
  std::sort(shapes.begin(), shapes.end(),
            [](const OcrBox& a, const OcrBox& b) { return a.left < b.left; });
  const int tallest = std::max(1, glyphHeight * 3);
  std::vector<OcrBox> lines;
  for (const OcrBox& s : shapes) {
    OcrBox* best = nullptr;
    double bestOverlap = 0;
    for (OcrBox& line : lines) {
      double overlap = RowOverlap(line, s);
      // A word space is under half a height, a column gap well over one.
      int reach = std::max(std::min(Height(line), tallest), Height(s)) * 6 / 5;
      if (overlap < 0.5 || s.left - line.right > reach || overlap <= bestOverlap) continue;
      best = &line;
      bestOverlap = overlap;
    }
    if (best) {
      *best = Union(*best, s);
    } else {
      lines.push_back(s);
    }
  }
  for (OcrBox& line : lines) {
    int pad = std::max(2, Height(line) / 3);
    line = {std::max(0, line.left - pad), std::max(0, line.top - pad),
            std::min(width, line.right + pad), std::min(height, line.bottom + pad)};
  }
  std::sort(lines.begin(), lines.end(), [](const OcrBox& a, const OcrBox& b) {
    return a.top != b.top ? a.top < b.top : a.left < b.left;
  });
  return lines;
}

void mergeRecoveredLines(std::vector<OcrObservation>& lines,
                         std::vector<OcrObservation> recovered) {
  for (OcrObservation& extra : recovered) {
    if (!HasLetterOrDigit(extra.text)) continue;
    auto before = std::find_if(lines.begin(), lines.end(), [&](const OcrObservation& line) {
      return Adjacent(extra.box, line.box);
    });
    if (before != lines.end()) {
      Join(extra, std::move(*before));
      *before = std::move(extra);
      continue;
    }
    auto after = std::find_if(lines.begin(), lines.end(), [&](const OcrObservation& line) {
      return Adjacent(line.box, extra.box);
    });
    if (after != lines.end()) {
      Join(*after, std::move(extra));
      continue;
    }
    auto below = std::find_if(lines.begin(), lines.end(), [&](const OcrObservation& line) {
      return line.box.top >= extra.box.bottom;
    });
    lines.insert(below, std::move(extra));
  }
}

}  // namespace klipora::processing
