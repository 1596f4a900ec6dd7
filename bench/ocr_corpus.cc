#include "ocr_corpus.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <functional>
#include <map>
#include <set>
#include <sstream>

#include <pango/pangofc-font.h>

#include "ocr_corpus_painter.h"

namespace klipora::bench {
namespace {

struct Fonts {
  std::string ui, mono, serif;
};

Fonts FontsFor(int variant) {
  static const Fonts choices[] = {
      {"Cantarell", "DejaVu Sans Mono", "DejaVu Serif"},
      {"DejaVu Sans", "Liberation Mono", "Liberation Serif"},
      {"Liberation Sans", "DejaVu Sans Mono", "DejaVu Serif"},
  };
  return choices[variant % 3];
}

// The desktop's top bar and a window frame; returns the window's content box.
struct Box {
  double x, y, w, h;
};

Box Desktop(Painter& p, const Theme& t, const Fonts& f, std::mt19937& rng,
            const std::string& title) {
  p.rect(0, 0, p.width(), p.height(), Hex(0x2C4A6E));
  p.rect(0, 0, p.width(), 28, Hex(0x111111));
  p.text(14, 6, "Activities", {f.ui, 14, true}, Hex(0xEEEEEE));
  std::string clock = "Tue " + ClockTime(rng);
  p.text(p.width() / 2 - p.measure(clock, {f.ui, 14, true}) / 2, 6, clock, {f.ui, 14, true},
         Hex(0xEEEEEE));
  Box window{24, 40, p.width() - 48, p.height() - 52};
  p.rect(window.x, window.y, window.w, window.h, t.window, 8);
  p.rect(window.x, window.y, window.w, 40, t.titleBar, 8);
  p.rect(window.x, window.y + 30, window.w, 10, t.titleBar);
  Font titleFont{f.ui, 15, true};
  p.text(window.x + window.w / 2 - p.measure(title, titleFont) / 2, window.y + 11, title,
         titleFont, t.text);
  return {window.x, window.y + 40, window.w, window.h - 40};
}

std::string Highlight(const std::string& code, const Theme& t) {
  static const std::set<std::string> keywords = {
      "def",    "class", "return", "if",    "for",   "with", "as",     "in",    "const",
      "let",    "async", "await",  "throw", "new",   "export", "function", "print", "import"};
  const char* keyword = t.dark ? "#C586C0" : "#AF00DB";
  const char* string = t.dark ? "#CE9178" : "#A31515";
  const char* comment = t.dark ? "#6A9955" : "#008000";
  std::string out;
  size_t i = 0;
  while (i < code.size()) {
    char c = code[i];
    if (c == '#' || (c == '/' && i + 1 < code.size() && code[i + 1] == '/')) {
      out += std::string("<span foreground=\"") + comment + "\">" +
             EscapeMarkup(code.substr(i)) + "</span>";
      break;
    }
    if (c == '"' || c == '`') {
      size_t end = code.find(c, i + 1);
      end = end == std::string::npos ? code.size() : end + 1;
      out += std::string("<span foreground=\"") + string + "\">" +
             EscapeMarkup(code.substr(i, end - i)) + "</span>";
      i = end;
      continue;
    }
    if (std::isalpha(static_cast<unsigned char>(c)) || c == '_') {
      size_t end = i;
      while (end < code.size() &&
             (std::isalnum(static_cast<unsigned char>(code[end])) || code[end] == '_')) {
        ++end;
      }
      std::string word = code.substr(i, end - i);
      out += keywords.count(word) ? std::string("<span foreground=\"") + keyword + "\">" +
                                        word + "</span>"
                                  : word;
      i = end;
      continue;
    }
    out += EscapeMarkup(std::string(1, c));
    ++i;
  }
  return out;
}

void CodeEditor(Painter& p, const Theme& t, const Fonts& f, std::mt19937& rng) {
  std::string file = Pick(FileNames(), rng);
  Box w = Desktop(p, t, f, rng, file + " - Code Editor");
  p.rect(w.x, w.y, 230, w.h, t.sidebar);
  p.text(w.x + 16, w.y + 12, "EXPLORER", {f.ui, 12, true}, t.secondary);
  for (int i = 0; i < 10; ++i) {
    p.text(w.x + 28, w.y + 40 + i * 24, FileNames()[(i * 5 + rng()) % FileNames().size()],
           {f.ui, 14}, t.text);
  }
  double x = w.x + 230;
  p.rect(x, w.y, w.w - 230, 34, t.sidebar);
  p.rect(x, w.y, 150, 34, t.window);
  p.text(x + 16, w.y + 9, file, {f.ui, 13}, t.text);
  p.text(x + 166, w.y + 9, Pick(FileNames(), rng), {f.ui, 13}, t.secondary);
  Font mono{f.mono, 14};
  const auto& lines = CodeLines();
  size_t first = rng() % lines.size();
  int count = static_cast<int>((w.h - 34 - 40) / 21);
  for (int i = 0; i < count; ++i) {
    std::string code = lines[(first + i) % lines.size()];
    std::string number = std::to_string(i + 1);
    number = std::string(3 - std::min<size_t>(3, number.size()), ' ') + number;
    const char* grey = t.dark ? "#858585" : "#999999";
    std::string markup =
        std::string("<span foreground=\"") + grey + "\">" + number + "</span>    " +
        "<span foreground=\"" + (t.dark ? "#D4D4D4" : "#1F1F1F") + "\">" + Highlight(code, t) +
        "</span>";
    p.markup(x + 12, w.y + 46 + i * 21, markup, number + "    " + code, mono);
  }
  p.rect(w.x, w.y + w.h - 24, w.w, 24, t.accent);
  p.text(w.x + 12, w.y + w.h - 20, "Ln 14, Col 9   Spaces: 4   UTF-8   Python", {f.ui, 12},
         Hex(0xFFFFFF));
}

void Chat(Painter& p, const Theme& t, const Fonts& f, std::mt19937& rng) {
  std::string contact = Pick(PersonNames(), rng);
  Box w = Desktop(p, t, f, rng, "Messages");
  p.rect(w.x, w.y, 300, w.h, t.sidebar);
  p.rect(w.x + 12, w.y + 12, 276, 32, t.field, 8);
  p.text(w.x + 24, w.y + 19, "Search", {f.ui, 14}, t.secondary);
  for (int i = 0; i < 8 && 56 + i * 64 + 60 < w.h; ++i) {
    double y = w.y + 56 + i * 64;
    std::string name = PersonNames()[(i * 3 + 1) % PersonNames().size()];
    p.circle(w.x + 36, y + 26, 18, Hex(0x8F9BB3 + i * 0x0A0A05));
    p.text(w.x + 64, y + 8, name, {f.ui, 14, true}, t.text);
    p.textRight(w.x + 288, y + 10, ClockTime(rng), {f.ui, 12}, t.secondary);
    std::istringstream words(Pick(Sentences(), rng));
    std::string snippet, word;
    while (words >> word && p.measure(snippet + " " + word, {f.ui, 13}) < 210) {
      snippet += (snippet.empty() ? "" : " ") + word;
    }
    p.text(w.x + 64, y + 30, snippet, {f.ui, 13}, t.secondary);
  }
  double x = w.x + 300, cw = w.w - 300;
  p.text(x + 20, w.y + 12, contact, {f.ui, 16, true}, t.text);
  p.text(x + 20, w.y + 34, "Active now", {f.ui, 12}, t.secondary);
  p.line(x, w.y + 56, x + cw, w.y + 56, t.border);
  Colour incoming = t.dark ? Hex(0x3A3A3C) : Hex(0xE9E9EB);
  double y = w.y + 72;
  Font body{f.ui, 14}, small{f.ui, 11};
  for (int i = 0; y < w.y + w.h - 150; ++i) {
    bool mine = rng() % 2 == 0;
    std::string message = Pick(Sentences(), rng);
    double maxWidth = std::min(440.0, cw * 0.55);
    double width = std::min(maxWidth, p.measure(message, body)) + 28;
    double bx = mine ? x + cw - 20 - width : x + 20;
    if (!mine) {
      p.text(bx + 4, y, contact, {f.ui, 12}, t.secondary);
      y += 18;
    }
    double height = p.paragraphHeight(width - 26, message, body) + 16;
    p.rect(bx, y, width, height, mine ? Hex(0x0B84FF) : incoming, 14);
    p.paragraph(bx + 14, y + 8, width - 26, message, body, mine ? Hex(0xFFFFFF) : t.text);
    y += height + 4;
    std::string stamp = ClockTime(rng);
    if (mine) {
      p.textRight(bx + width - 4, y, stamp + "  Read", small, t.secondary);
    } else {
      p.text(bx + 4, y, stamp, small, t.secondary);
    }
    y += 26;
  }
  p.rect(x + 20, w.y + w.h - 56, cw - 40, 38, t.field, 19);
  p.text(x + 40, w.y + w.h - 46, "Write a message", {f.ui, 14}, t.secondary);
}

void Dialog(Painter& p, const Theme& t, const Fonts& f, std::mt19937& rng) {
  Box w = Desktop(p, t, f, rng, "Documents - Files");
  p.rect(w.x, w.y, 200, w.h, t.sidebar);
  const char* places[] = {"Recent", "Starred", "Home", "Documents", "Downloads", "Pictures",
                          "Music", "Trash"};
  for (int i = 0; i < 8; ++i) p.text(w.x + 24, w.y + 16 + i * 30, places[i], {f.ui, 14}, t.text);
  const char* sizes[] = {"2.4 MB", "118 kB", "36.1 MB", "4 items", "920 kB", "12 items"};
  const char* dates[] = {"Yesterday", "10:42", "3 Mar", "Monday", "14 Feb 2024", "Today"};
  for (int i = 0; i < 6; ++i) {
    double y = w.y + 16 + i * 36;
    p.text(w.x + 224, y, "Project notes " + std::to_string(2017 + i) + ".odt", {f.ui, 14},
           t.text);
    p.text(w.x + w.w - 320, y, sizes[(i + rng()) % 6], {f.ui, 14}, t.secondary);
    p.text(w.x + w.w - 180, y, dates[(i + rng()) % 6], {f.ui, 14}, t.secondary);
  }
  double dw = 470, dh = 236, dx = w.x + (w.w - dw) / 2, dy = w.y + (w.h - dh) / 2 + 40;
  p.rect(dx - 1, dy - 1, dw + 2, dh + 2, t.border, 12);
  p.rect(dx, dy, dw, dh, t.dark ? Hex(0x2D2D30) : Hex(0xFAFAFA), 12);
  p.circle(dx + 40, dy + 42, 18, Hex(0xE01B24));
  p.rect(dx + 38, dy + 30, 4, 16, Hex(0xFFFFFF));
  p.rect(dx + 38, dy + 50, 4, 4, Hex(0xFFFFFF));
  std::string file = Pick(FileNames(), rng);
  p.paragraph(dx + 76, dy + 24, dw - 100, "Could not open \"" + file + "\"", {f.ui, 17, true},
              t.text, 1.25);
  p.paragraph(dx + 76, dy + 64, dw - 100,
              "The file is damaged or uses a format that this application does not support. "
              "Error code 0x80070570 (ERROR_FILE_CORRUPT).",
              {f.ui, 14}, t.secondary);
  p.rect(dx + dw - 250, dy + dh - 52, 110, 34, t.field, 6);
  p.text(dx + dw - 220, dy + dh - 44, "Cancel", {f.ui, 14}, t.text);
  p.rect(dx + dw - 128, dy + dh - 52, 110, 34, t.accent, 6);
  p.text(dx + dw - 104, dy + dh - 44, "Try Again", {f.ui, 14, true}, Hex(0xFFFFFF));
}

void Receipt(Painter& p, const Theme& t, const Fonts& f, std::mt19937& rng) {
  Box w = Desktop(p, t, f, rng, "receipt-2024-03-14.png - Image Viewer");
  p.rect(w.x, w.y, w.w, w.h, t.dark ? Hex(0x242424) : Hex(0xDADADA));
  double pw = 390, px = w.x + (w.w - pw) / 2, py = w.y + 20;
  double ph = std::min(w.h - 40, 640.0);
  p.rect(px, py, pw, ph, Hex(0xFFFFFF));
  Font mono{f.mono, 14}, bold{f.mono, 16, true};
  Colour ink = Hex(0x222222);
  double y = py + 20;
  auto centered = [&](const std::string& s, const Font& font) {
    p.text(px + (pw - p.measure(s, font)) / 2, y, s, font, ink);
    y += font.size * 1.45;
  };
  auto priced = [&](const std::string& label, const std::string& price) {
    p.text(px + 24, y, label, mono, ink);
    p.textRight(px + pw - 24, y, price, mono, ink);
    y += mono.size * 1.45;
  };
  centered("GREEN LEAF MARKET", bold);
  centered("1458 Harbor Street", mono);
  centered("Portland, OR 97209", mono);
  centered("03/14/2024 18:42  Cashier: Maya", mono);
  y += 10;
  const char* items[][2] = {{"Organic Bananas", "1.29"}, {"Oat Milk 1L", "3.49"},
                            {"Sourdough Bread", "5.25"}, {"Cheddar Cheese", "6.80"},
                            {"Free Range Eggs", "4.15"}, {"Olive Oil 500ml", "8.99"},
                            {"Basil Pesto", "3.75"},     {"Coffee Beans", "11.40"},
                            {"Dark Chocolate", "2.60"},  {"Sparkling Water", "1.10"}};
  double subtotal = 0;
  int count = 6 + static_cast<int>(rng() % 5);
  for (int i = 0; i < count && y < py + ph - 170; ++i) {
    priced(items[i][0], items[i][1]);
    subtotal += std::stod(items[i][1]);
  }
  y += 8;
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.2f", subtotal);
  priced("SUBTOTAL", buffer);
  std::snprintf(buffer, sizeof buffer, "%.2f", subtotal * 0.08);
  priced("TAX 8.0%", buffer);
  std::snprintf(buffer, sizeof buffer, "%.2f", subtotal * 1.08);
  priced("TOTAL", buffer);
  priced("VISA **** 4821", "APPROVED");
  y += 10;
  centered("Thank you for shopping with us!", mono);
}

void Settings(Painter& p, const Theme& t, const Fonts& f, std::mt19937& rng) {
  Box w = Desktop(p, t, f, rng, "Settings");
  p.rect(w.x, w.y, 250, w.h, t.sidebar);
  const char* pages[] = {"Wi-Fi",  "Bluetooth", "Network",       "Displays", "Sound",
                         "Power",  "Notifications", "Search",    "Privacy",  "Keyboard",
                         "Printers", "Date and Time", "About"};
  for (int i = 0; i < 13 && 20 + i * 36 < w.h - 20; ++i) {
    if (i == 6) p.rect(w.x + 8, w.y + 10 + i * 36, 234, 32, t.accent, 6);
    p.text(w.x + 24, w.y + 16 + i * 36, pages[i], {f.ui, 14}, i == 6 ? Hex(0xFFFFFF) : t.text);
  }
  double x = w.x + 290, cw = std::min(640.0, w.w - 330);
  p.text(x, w.y + 20, "Notifications", {f.ui, 22, true}, t.text);
  const char* rows[][2] = {
      {"Do Not Disturb", "Silence notifications until you turn this off"},
      {"Lock Screen Notifications", "Show notifications on the lock screen"},
      {"Notification Sounds", "Play a sound when a notification arrives"},
      {"Calendar", "Banners, sounds and badges"},
      {"Files", "Banners only"},
      {"Terminal", "Notify when a long command finishes"},
      {"Software Updates", "Show when updates are ready to install"}};
  double y = w.y + 70;
  for (int i = 0; i < 7 && y < w.y + w.h - 70; ++i) {
    p.rect(x, y, cw, 62, t.dark ? Hex(0x2A2A2E) : Hex(0xF6F6F8), i == 0 ? 10 : 0);
    p.text(x + 18, y + 10, rows[i][0], {f.ui, 14}, t.text);
    p.text(x + 18, y + 33, rows[i][1], {f.ui, 12}, t.secondary);
    bool on = (rng() % 3) != 0;
    p.rect(x + cw - 66, y + 19, 46, 24, on ? t.accent : t.border, 12);
    p.circle(on ? x + cw - 32 : x + cw - 54, y + 31, 9, Hex(0xFFFFFF));
    y += 64;
  }
}

void Article(Painter& p, const Theme& t, const Fonts& f, std::mt19937& rng) {
  Box w = Desktop(p, t, f, rng, "How Cities Are Rethinking Bike Lanes - Web Browser");
  p.rect(w.x, w.y, w.w, 44, t.sidebar);
  p.rect(w.x + 90, w.y + 7, w.w - 180, 30, t.field, 15);
  p.text(w.x + 110, w.y + 13, "dailyledger.example/cities/rethinking-bike-lanes", {f.ui, 14},
         t.secondary);
  double column = std::min(680.0, w.w - 420), x = w.x + 60, y = w.y + 76;
  y += p.paragraph(x, y, column, "How Cities Are Rethinking Bike Lanes After a Decade of Growth",
                   {f.serif, 30, true}, t.text, 1.2) + 14;
  p.text(x, y, "By " + Pick(PersonNames(), rng) + "  |  March 3, 2024  |  6 min read",
         {f.ui, 14}, t.secondary);
  y += 40;
  while (y < w.y + w.h - 120) {
    std::string text;
    for (int s = 0; s < 3; ++s) text += (s ? " " : "") + Pick(Sentences(), rng);
    y += p.paragraph(x, y, column, text, {f.serif, 18}, t.text, 1.5) + 22;
  }
  double sx = x + column + 60;
  p.text(sx, w.y + 76, "Most Read", {f.ui, 16, true}, t.text);
  for (int i = 0; i < 4; ++i) {
    std::string headline = Pick(Sentences(), rng);
    headline = headline.substr(0, headline.find(',') == std::string::npos ? 40 : headline.find(','));
    p.paragraph(sx, w.y + 110 + i * 70, w.x + w.w - sx - 30, headline, {f.ui, 14, true},
                t.text, 1.3);
  }
}

using Screen = std::function<void(Painter&, const Theme&, const Fonts&, std::mt19937&)>;

const std::map<std::string, Screen>& Screens() {
  static const std::map<std::string, Screen> screens = {
      {"code", CodeEditor}, {"chat", Chat},         {"dialog", Dialog},
      {"receipt", Receipt}, {"settings", Settings}, {"article", Article}};
  return screens;
}

}  // namespace

const std::vector<std::string>& ocrCorpusKinds() {
  static const std::vector<std::string> kinds = {"code",    "chat",     "dialog",
                                                 "receipt", "settings", "article"};
  return kinds;
}

std::vector<OcrCorpusImage> renderOcrCorpus(const std::string& folder,
                                            const OcrCorpusOptions& options) {
  std::vector<OcrCorpusImage> images;
  struct Size {
    int width, height;
    double scale;
    bool wanted;
  };
  const Size sizes[] = {{1920, 1080, 1.0, options.small}, {2880, 1800, 2.0, options.large}};
  // Each screen's variant (its fonts and its text) depends only on its place
  // in the full corpus, so a subset renders the same images.
  int variant = 0;
  for (const std::string& kind : ocrCorpusKinds()) {
    const bool kindWanted = options.kinds.empty() || std::find(options.kinds.begin(),
                                                               options.kinds.end(),
                                                               kind) != options.kinds.end();
    for (const Size& size : sizes) {
      for (bool dark : {false, true}) {
        ++variant;
        if (!kindWanted || !size.wanted || (dark ? !options.dark : !options.light)) continue;
        std::mt19937 rng(static_cast<unsigned>(variant * 7919));
        Painter painter(size.width, size.height, size.scale);
        Screens().at(kind)(painter, MakeTheme(dark), FontsFor(variant), rng);
        OcrCorpusImage image;
        image.kind = kind;
        image.dark = dark;
        image.width = size.width;
        image.height = size.height;
        image.path = folder + "/" + kind + "-" + std::to_string(size.width) +
                     (dark ? "-dark" : "-light") + ".png";
        image.groundTruth = painter.groundTruth();
        if (painter.savePng(image.path)) images.push_back(std::move(image));
      }
    }
  }
  return images;
}

OcrCorpusImage renderWideDesktop(const std::string& folder, int width, int height) {
  Painter painter(width, height, 1.0);
  painter.rect(0, 0, width, height, Hex(0x101010));
  std::string truth;
  // Only the monitors along the diagonal show windows; the rest stay dark.
  int columns = width / 1920, rows = height / 1080;
  for (int i = 0; i < std::min(columns, rows); ++i) {
    Painter screen(1920, 1080, 1.0);
    std::mt19937 rng(static_cast<unsigned>(1000 + i));
    Screens().at(i % 2 == 0 ? "code" : "article")(screen, MakeTheme(false), FontsFor(i), rng);
    std::string path = folder + "/monitor-" + std::to_string(i) + ".png";
    if (!screen.savePng(path)) continue;
    cairo_surface_t* tile = cairo_image_surface_create_from_png(path.c_str());
    std::remove(path.c_str());
    painter.blit(tile, i * 1920 + i * 40, i * 1080 + i * 20);
    cairo_surface_destroy(tile);
    truth += screen.groundTruth();
  }
  OcrCorpusImage image{folder + "/wide-desktop.png", "wide", false, width, height, truth};
  painter.savePng(image.path);
  return image;
}

std::vector<std::string> ocrCorpusFontFiles() {
  std::set<std::string> families;
  for (int variant = 0; variant < 3; ++variant) {
    const Fonts f = FontsFor(variant);
    families.insert({f.ui, f.mono, f.serif});
  }
  std::vector<std::string> lines;
  PangoFontMap* map = pango_cairo_font_map_get_default();
  PangoContext* context = pango_font_map_create_context(map);
  for (const std::string& family : families) {
    PangoFontDescription* d = pango_font_description_new();
    pango_font_description_set_family(d, family.c_str());
    pango_font_description_set_absolute_size(d, 14 * PANGO_SCALE);
    PangoFont* font = pango_font_map_load_font(map, context, d);
    pango_font_description_free(d);
    std::string file = "(no font)";
    if (font != nullptr && PANGO_IS_FC_FONT(font)) {
      FcChar8* path = nullptr;
      if (FcPatternGetString(pango_fc_font_get_pattern(PANGO_FC_FONT(font)), FC_FILE, 0, &path) ==
          FcResultMatch) {
        file = reinterpret_cast<const char*>(path);
      }
    }
    if (font != nullptr) g_object_unref(font);
    lines.push_back(family + " \u2192 " + file);
  }
  g_object_unref(context);
  return lines;
}

}  // namespace klipora::bench
