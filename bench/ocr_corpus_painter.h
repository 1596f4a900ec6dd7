// Painter: draws a screenshot in logical pixels (scaled for 2× screens) with
// Cairo and Pango, and records every text it draws as the ground truth.
// Also the text pools the corpus screens are filled from.
#pragma once

#include <cairo.h>
#include <pango/pangocairo.h>

#include <random>
#include <string>
#include <vector>

namespace klipora::bench {

struct Colour {
  double r, g, b;
};
Colour Hex(unsigned rgb);

struct Font {
  std::string family;
  double size;  // logical pixels
  bool bold = false;
};

struct Theme {
  bool dark;
  Colour window, sidebar, titleBar, text, secondary, accent, border, field;
};
Theme MakeTheme(bool dark);

class Painter {
 public:
  Painter(int width, int height, double scale);
  ~Painter();
  Painter(const Painter&) = delete;
  Painter& operator=(const Painter&) = delete;

  double width() const { return width_ / scale_; }  // logical
  double height() const { return height_ / scale_; }

  void rect(double x, double y, double w, double h, Colour c, double radius = 0);
  void line(double x0, double y0, double x1, double y1, Colour c, double thickness = 1);
  void circle(double cx, double cy, double radius, Colour c);
  // One line of text, top-left at (x, y); returns its logical width.
  double text(double x, double y, const std::string& s, const Font& f, Colour c);
  double textRight(double right, double y, const std::string& s, const Font& f, Colour c);
  // Pango markup (coloured tokens); `plain` is what it reads as.
  double markup(double x, double y, const std::string& markup, const std::string& plain,
                const Font& f);
  // Wrapped text within `w`; returns the height used.
  double paragraph(double x, double y, double w, const std::string& s, const Font& f, Colour c,
                   double lineSpacing = 1.35);
  double measure(const std::string& s, const Font& f);
  double paragraphHeight(double w, const std::string& s, const Font& f,
                         double lineSpacing = 1.35);
  // Copies another surface in at device pixel (x, y).
  void blit(cairo_surface_t* source, int x, int y);

  bool savePng(const std::string& path);
  std::string groundTruth() const;

 private:
  PangoLayout* layoutFor(const Font& f);
  PangoLayout* wrapped(double w, const std::string& s, const Font& f, double lineSpacing);

  int width_, height_;
  double scale_;
  cairo_surface_t* surface_;
  cairo_t* cr_;
  PangoLayout* layout_;
  std::vector<std::string> lines_;
};

// Text pools; each call picks with `rng`.
const std::vector<std::string>& Sentences();
const std::vector<std::string>& CodeLines();
const std::vector<std::string>& PersonNames();
const std::vector<std::string>& FileNames();
std::string Pick(const std::vector<std::string>& pool, std::mt19937& rng);
std::string ClockTime(std::mt19937& rng);
// "&", "<" and ">" escaped for Pango markup.
std::string EscapeMarkup(const std::string& s);

}  // namespace klipora::bench
