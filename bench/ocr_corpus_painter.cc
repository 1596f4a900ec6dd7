#include "ocr_corpus_painter.h"

#include <cmath>
#include <cstdio>

namespace klipora::bench {

Colour Hex(unsigned rgb) {
  return {((rgb >> 16) & 0xFF) / 255.0, ((rgb >> 8) & 0xFF) / 255.0, (rgb & 0xFF) / 255.0};
}

Theme MakeTheme(bool dark) {
  if (dark) {
    return {true,         Hex(0x1E1E1E), Hex(0x2A2A2E), Hex(0x303034), Hex(0xE8E8E8),
            Hex(0xA0A0A8), Hex(0x3584E4), Hex(0x3C3C42), Hex(0x2E2E33)};
  }
  return {false,        Hex(0xFFFFFF), Hex(0xF3F3F5), Hex(0xEBEBED), Hex(0x1F1F1F),
          Hex(0x6E6E73), Hex(0x1C71D8), Hex(0xD8D8DC), Hex(0xF6F6F8)};
}

Painter::Painter(int width, int height, double scale)
    : width_(width), height_(height), scale_(scale) {
  surface_ = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
  cr_ = cairo_create(surface_);
  cairo_scale(cr_, scale, scale);
  layout_ = pango_cairo_create_layout(cr_);
}

Painter::~Painter() {
  g_object_unref(layout_);
  cairo_destroy(cr_);
  cairo_surface_destroy(surface_);
}

void Painter::rect(double x, double y, double w, double h, Colour c, double radius) {
  cairo_set_source_rgb(cr_, c.r, c.g, c.b);
  if (radius <= 0) {
    cairo_rectangle(cr_, x, y, w, h);
  } else {
    cairo_new_sub_path(cr_);
    cairo_arc(cr_, x + w - radius, y + radius, radius, -M_PI / 2, 0);
    cairo_arc(cr_, x + w - radius, y + h - radius, radius, 0, M_PI / 2);
    cairo_arc(cr_, x + radius, y + h - radius, radius, M_PI / 2, M_PI);
    cairo_arc(cr_, x + radius, y + radius, radius, M_PI, 3 * M_PI / 2);
    cairo_close_path(cr_);
  }
  cairo_fill(cr_);
}

void Painter::line(double x0, double y0, double x1, double y1, Colour c, double thickness) {
  cairo_set_source_rgb(cr_, c.r, c.g, c.b);
  cairo_set_line_width(cr_, thickness);
  cairo_move_to(cr_, x0, y0);
  cairo_line_to(cr_, x1, y1);
  cairo_stroke(cr_);
}

void Painter::circle(double cx, double cy, double radius, Colour c) {
  cairo_set_source_rgb(cr_, c.r, c.g, c.b);
  cairo_arc(cr_, cx, cy, radius, 0, 2 * M_PI);
  cairo_fill(cr_);
}

PangoLayout* Painter::layoutFor(const Font& f) {
  PangoFontDescription* d = pango_font_description_new();
  pango_font_description_set_family(d, f.family.c_str());
  pango_font_description_set_absolute_size(d, f.size * PANGO_SCALE);
  pango_font_description_set_weight(d, f.bold ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
  pango_layout_set_font_description(layout_, d);
  pango_font_description_free(d);
  pango_layout_set_width(layout_, -1);
  pango_layout_set_attributes(layout_, nullptr);
  return layout_;
}

double Painter::measure(const std::string& s, const Font& f) {
  PangoLayout* layout = layoutFor(f);
  pango_layout_set_text(layout, s.c_str(), -1);
  int w = 0, h = 0;
  pango_layout_get_pixel_size(layout, &w, &h);
  return w;
}

double Painter::text(double x, double y, const std::string& s, const Font& f, Colour c) {
  PangoLayout* layout = layoutFor(f);
  pango_layout_set_text(layout, s.c_str(), -1);
  cairo_set_source_rgb(cr_, c.r, c.g, c.b);
  cairo_move_to(cr_, x, y);
  pango_cairo_show_layout(cr_, layout);
  lines_.push_back(s);
  int w = 0, h = 0;
  pango_layout_get_pixel_size(layout, &w, &h);
  return w;
}

double Painter::textRight(double right, double y, const std::string& s, const Font& f,
                          Colour c) {
  return text(right - measure(s, f), y, s, f, c);
}

double Painter::markup(double x, double y, const std::string& markup, const std::string& plain,
                       const Font& f) {
  PangoLayout* layout = layoutFor(f);
  pango_layout_set_markup(layout, markup.c_str(), -1);
  cairo_move_to(cr_, x, y);
  pango_cairo_show_layout(cr_, layout);
  lines_.push_back(plain);
  int w = 0, h = 0;
  pango_layout_get_pixel_size(layout, &w, &h);
  return w;
}

PangoLayout* Painter::wrapped(double w, const std::string& s, const Font& f,
                              double lineSpacing) {
  PangoLayout* layout = layoutFor(f);
  pango_layout_set_width(layout, static_cast<int>(w * PANGO_SCALE));
  pango_layout_set_wrap(layout, PANGO_WRAP_WORD);
  pango_layout_set_spacing(layout, static_cast<int>(f.size * (lineSpacing - 1.2) * PANGO_SCALE));
  pango_layout_set_text(layout, s.c_str(), -1);
  return layout;
}

double Painter::paragraphHeight(double w, const std::string& s, const Font& f,
                                double lineSpacing) {
  PangoLayout* layout = wrapped(w, s, f, lineSpacing);
  int pw = 0, ph = 0;
  pango_layout_get_pixel_size(layout, &pw, &ph);
  pango_layout_set_spacing(layout, 0);
  return ph;
}

double Painter::paragraph(double x, double y, double w, const std::string& s, const Font& f,
                          Colour c, double lineSpacing) {
  PangoLayout* layout = wrapped(w, s, f, lineSpacing);
  cairo_set_source_rgb(cr_, c.r, c.g, c.b);
  cairo_move_to(cr_, x, y);
  pango_cairo_show_layout(cr_, layout);
  for (GSList* l = pango_layout_get_lines_readonly(layout); l != nullptr; l = l->next) {
    auto* line = static_cast<PangoLayoutLine*>(l->data);
    std::string text = s.substr(line->start_index, line->length);
    while (!text.empty() && text.back() == ' ') text.pop_back();
    lines_.push_back(text);
  }
  int pw = 0, ph = 0;
  pango_layout_get_pixel_size(layout, &pw, &ph);
  pango_layout_set_spacing(layout, 0);
  return ph;
}

void Painter::blit(cairo_surface_t* source, int x, int y) {
  cairo_save(cr_);
  cairo_identity_matrix(cr_);
  cairo_set_source_surface(cr_, source, x, y);
  cairo_paint(cr_);
  cairo_restore(cr_);
}

bool Painter::savePng(const std::string& path) {
  cairo_surface_flush(surface_);
  return cairo_surface_write_to_png(surface_, path.c_str()) == CAIRO_STATUS_SUCCESS;
}

std::string Painter::groundTruth() const {
  std::string out;
  for (const std::string& l : lines_) out += l + "\n";
  return out;
}

const std::vector<std::string>& Sentences() {
  static const std::vector<std::string> pool = {
      "The quarterly report is attached, please review the revenue figures before Friday.",
      "Our team shipped the new search feature after three weeks of careful testing.",
      "Remember to bring the signed contract and your badge to the meeting tomorrow.",
      "The library closes early on holidays, so plan your visit accordingly.",
      "Battery life improved by twelve percent after the latest firmware update.",
      "Customers reported that the checkout page was slow during the weekend sale.",
      "We moved the standup to half past nine because of the design review.",
      "Scientists measured the glacier again and found it had retreated further.",
      "The recipe calls for two cups of flour, a pinch of salt and fresh butter.",
      "Traffic on the northern bridge will be diverted while crews repair the deck.",
      "Please restart the server once the backup has finished copying all files.",
      "The museum opened a new exhibition about early photography and printing.",
      "Invoices older than ninety days are moved to the archive automatically.",
      "She thanked the volunteers who cleaned the park before the festival began.",
      "Engineers traced the outage to an expired certificate on the load balancer.",
      "The council approved funding for new bicycle lanes along the river road.",
      "Your subscription renews next month unless you cancel it in your account.",
      "Local farmers expect a strong harvest thanks to the mild spring weather.",
      "The printer on the third floor is out of toner again, sorry about that.",
      "Flights to Lisbon were delayed by fog, but most passengers made their connections.",
      "We should compare both proposals and pick the one with lower maintenance costs.",
      "The orchestra rehearsed the final movement twice before the evening concert.",
      "Students can submit their essays online until midnight on Thursday.",
      "Updated privacy settings give you more control over shared location data.",
  };
  return pool;
}

const std::vector<std::string>& CodeLines() {
  static const std::vector<std::string> pool = {
      "def load_orders(path, limit=100):",
      "    with open(path, encoding=\"utf-8\") as handle:",
      "        rows = [json.loads(line) for line in handle]",
      "    return rows[:limit]",
      "class InvoiceBuilder:",
      "    def __init__(self, customer, currency=\"EUR\"):",
      "        self.customer = customer",
      "        self.items = []",
      "    def add_item(self, name, price, quantity=1):",
      "        self.items.append((name, price, quantity))",
      "    def total(self):",
      "        return sum(price * quantity for _, price, quantity in self.items)",
      "if __name__ == \"__main__\":",
      "    builder = InvoiceBuilder(\"Acme Corporation\")",
      "    print(f\"Total due: {builder.total():.2f}\")",
      "export async function fetchUser(id) {",
      "  const response = await fetch(`/api/users/${id}`);",
      "  if (!response.ok) throw new Error(\"request failed\");",
      "  return response.json();",
      "}",
      "const settings = { theme: \"dark\", fontSize: 14, autoSave: true };",
      "for (let index = 0; index < items.length; index++) {",
      "  console.log(items[index].title);",
      "  # retry the upload when the network drops",
      "    timeout = config.get(\"timeout\", 30)",
      "    logger.warning(\"disk usage above %d percent\", usage)",
  };
  return pool;
}

const std::vector<std::string>& PersonNames() {
  static const std::vector<std::string> pool = {
      "Alice Martin", "Bruno Silva", "Chen Wei",     "Dana Kowalski", "Elena Rossi",
      "Farid Haddad", "Greta Olsen", "Hiro Tanaka",  "Ines Moreau",   "Jonas Becker",
      "Kara Novak",   "Liam Walsh",  "Maya Patel",   "Noah Fischer",
  };
  return pool;
}

const std::vector<std::string>& FileNames() {
  static const std::vector<std::string> pool = {
      "orders.py",   "invoice.py",  "README.md",   "settings.json", "main.ts",
      "utils.py",    "server.js",   "Makefile",    "tests.py",      "config.yaml",
      "package.json", "index.html", "styles.css",  "report.csv",
  };
  return pool;
}

std::string Pick(const std::vector<std::string>& pool, std::mt19937& rng) {
  return pool[rng() % pool.size()];
}

std::string ClockTime(std::mt19937& rng) {
  char buffer[16];
  std::snprintf(buffer, sizeof buffer, "%d:%02d", 8 + static_cast<int>(rng() % 12),
                static_cast<int>(rng() % 60));
  return buffer;
}

std::string EscapeMarkup(const std::string& s) {
  std::string out;
  for (char c : s) {
    if (c == '&') out += "&amp;";
    else if (c == '<') out += "&lt;";
    else if (c == '>') out += "&gt;";
    else out += c;
  }
  return out;
}

}  // namespace klipora::bench
