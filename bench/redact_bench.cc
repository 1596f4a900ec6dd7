// Auto-redaction benchmark: renders screenshots (light and dark, 1920×1080)
// whose rows carry known sensitive strings (e-mail addresses, phone numbers in
// several national formats, card numbers, IPv4 and IPv6 addresses, AWS keys,
// JWTs, GitHub, Slack and other API tokens, 40-character hashes) between
// ordinary words and rows of ordinary text, then runs MarkupAutoRedactor on
// each and prints, per theme:
//   recall     strings whose ink box a detection covers entirely
//   precision  detections that overlap some string
//   tight      covered strings whose detection reaches at most 8 px beyond
//              the string (or beyond the strings it merged) on every side
//   time       detection per image next to plain recognition of the same
//              image (warm engines, one at a time), and their ratio
//
//   build/bench/redact [--images=N] [--keep] [--verbose]
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "markup/redact/markup_auto_redactor.h"
#include "ocr_corpus_painter.h"
#include "platform/linux/linux_platform.h"

namespace klipora::bench {
namespace {

using markup::MarkupAutoRedactor;
using markup::Rect;

struct Truth {
  std::string text;
  Rect box;  // ink, device pixels
};

struct Page {
  std::string path;
  bool dark = false;
  std::vector<Truth> truths;
};

std::string Digits(std::mt19937& rng, int n) {
  std::string s;
  for (int i = 0; i < n; ++i) s += static_cast<char>('0' + rng() % 10);
  return s;
}

std::string Chars(std::mt19937& rng, int n, const char* alphabet) {
  std::string s;
  const size_t size = std::strlen(alphabet);
  for (int i = 0; i < n; ++i) s += alphabet[rng() % size];
  return s;
}

constexpr char kAlnum[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
constexpr char kUpperAlnum[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
constexpr char kHex[] = "0123456789abcdef";

// One sensitive string of each family, in turn.
std::string Sensitive(int family, std::mt19937& rng) {
  const std::vector<std::string> users = {"jane.doe", "m.rossi", "support", "Kim.Lee", "ops-team"};
  const std::vector<std::string> domains = {"example.com", "mail.example.org", "corp.example.net"};
  switch (family % 16) {
    case 0: return users[rng() % users.size()] + "@" + domains[rng() % domains.size()];
    case 1: return "+1 415-555-" + Digits(rng, 4);
    case 2: return "+44 20 7946 " + Digits(rng, 4);
    case 3: return "+49 30 " + Digits(rng, 6);
    case 4: return "(212) 555-" + Digits(rng, 4);
    case 5: return "4111 " + Digits(rng, 4) + " " + Digits(rng, 4) + " " + Digits(rng, 4);
    case 6: return std::to_string(10 + rng() % 240) + "." + std::to_string(rng() % 256) + "." +
                   std::to_string(rng() % 256) + "." + std::to_string(1 + rng() % 254);
    // Written out in full: the address pattern does not take the "::" short form.
    case 7: return "2001:db8:" + Chars(rng, 4, kHex) + ":" + Chars(rng, 4, kHex) + ":0:0:" +
                   Chars(rng, 4, kHex) + ":" + Chars(rng, 3, kHex);
    case 8: return "AKIA" + Chars(rng, 16, kUpperAlnum);
    case 9: return "eyJhbGciOiJIUzI1NiJ9.eyJ" + Chars(rng, 18, kAlnum) + "." + Chars(rng, 22, kAlnum);
    case 10: return "ghp_" + Chars(rng, 36, kAlnum);
    case 11: return "xoxb-" + Digits(rng, 11) + "-" + Chars(rng, 16, kAlnum);
    case 12: return "sk_live_" + Chars(rng, 24, kAlnum);
    case 13: return "AIza" + Chars(rng, 35, kAlnum);
    case 14: return "glpat-" + Chars(rng, 20, kAlnum);
    default: return Chars(rng, 40, kHex);
  }
}

std::string ReadFile(const std::string& path) {
  std::string bytes;
  FILE* f = std::fopen(path.c_str(), "rb");
  char buffer[65536];
  size_t n;
  while (f != nullptr && (n = std::fread(buffer, 1, sizeof buffer, f)) > 0) bytes.append(buffer, n);
  if (f != nullptr) std::fclose(f);
  return bytes;
}

// The ink inside `area` of a rendered page: pixels far from the background.
Rect InkBox(const PixelImage& grey, const Rect& area, uint8_t background) {
  int left = grey.width, top = grey.height, right = -1, bottom = -1;
  for (int y = std::max(0, static_cast<int>(area.minY()));
       y < std::min(grey.height, static_cast<int>(area.maxY())); ++y) {
    for (int x = std::max(0, static_cast<int>(area.minX()));
         x < std::min(grey.width, static_cast<int>(area.maxX())); ++x) {
      if (std::abs(grey.row(y)[x] - background) > 40) {
        left = std::min(left, x), right = std::max(right, x);
        top = std::min(top, y), bottom = std::max(bottom, y);
      }
    }
  }
  if (right < 0) return {};
  return Rect::make(left, top, right - left + 1, bottom - top + 1);
}

Page Render(const std::string& folder, int index, bool dark, std::mt19937& rng, ImageCodec& codec) {
  Theme theme = MakeTheme(dark);
  Painter painter(1920, 1080, 1);
  painter.rect(0, 0, 1920, 1080, theme.window);
  const std::vector<Font> fonts = {{"DejaVu Sans", 15}, {"DejaVu Sans Mono", 14},
                                   {"DejaVu Serif", 15}};
  const Font font = fonts[index % fonts.size()];
  const std::vector<std::string> labels = {"Contact:", "Key", "token =", "Call", "from",
                                           "export SECRET", "Paid with", "host"};
  struct Placed {
    std::string text;
    Rect area;
  };
  std::vector<Placed> placed;
  double y = 40;
  int family = index * 5;
  while (y < 1000) {
    double x = 40 + (rng() % 200);
    if (rng() % 3 == 0) {
      painter.text(x, y, Pick(Sentences(), rng), font, theme.text);
    } else {
      x += painter.text(x, y, labels[rng() % labels.size()] + " ", font, theme.text);
      std::string secret = Sensitive(family++, rng);
      double w = painter.text(x, y, secret, font, theme.text);
      placed.push_back({secret, Rect::make(x, y, w, font.size * 1.6)});
      painter.text(x + w, y, "  (updated " + ClockTime(rng) + ")", font, theme.secondary);
    }
    y += font.size * 2.6;
  }
  Page page;
  page.path = folder + "/redact-" + std::to_string(index) + (dark ? "-dark" : "-light") + ".png";
  page.dark = dark;
  painter.savePng(page.path);
  auto grey = codec.decodePixels(ReadFile(page.path), {});
  if (!grey) return page;
  const uint8_t background = grey->row(5)[5];
  for (const Placed& p : placed) page.truths.push_back({p.text, InkBox(*grey, p.area, background)});
  return page;
}

bool Covers(const Rect& outer, const Rect& inner) {
  return outer.minX() <= inner.minX() && outer.minY() <= inner.minY() &&
         outer.maxX() >= inner.maxX() && outer.maxY() >= inner.maxY();
}

bool Overlaps(const Rect& a, const Rect& b) {
  return a.minX() < b.maxX() && b.minX() < a.maxX() && a.minY() < b.maxY() && b.minY() < a.maxY();
}

struct Tally {
  int truths = 0, recalled = 0, tight = 0, detections = 0, trueDetections = 0, images = 0;
  double worstExcess = 0, detectSeconds = 0, ocrSeconds = 0;
};

// What recognition read where `area` is, for the verbose report of a miss.
std::string ReadAt(const processing::OCRResult& text, const Rect& area, double width,
                   double height) {
  std::string read;
  for (const processing::OCRLine& line : text.lines) {
    const processing::OCRRect& b = line.boundingBox;
    Rect box = Rect::make(b.x * width, (1 - b.maxY()) * height, b.width * width, b.height * height);
    if (Overlaps(box, area)) read += (read.empty() ? "" : " | ") + line.text;
  }
  return read;
}

void Score(const Page& page, const std::vector<MarkupAutoRedactor::Detection>& found,
           const processing::OCRResult& text, bool verbose, Tally& t) {
  t.detections += static_cast<int>(found.size());
  for (const auto& d : found) {
    bool real = false;
    for (const Truth& truth : page.truths) real = real || Overlaps(d.frame, truth.box);
    if (real) ++t.trueDetections;
    if (!real && verbose) {
      std::printf("  false: %s \"%s\"\n", std::string(MarkupAutoRedactor::kindName(d.kind)).c_str(),
                  d.snippet.c_str());
    }
  }
  for (const Truth& truth : page.truths) {
    ++t.truths;
    const MarkupAutoRedactor::Detection* cover = nullptr;
    for (const auto& d : found) {
      if (Covers(d.frame, truth.box)) cover = &d;
    }
    if (cover == nullptr) {
      if (verbose) {
        std::printf("  missed: \"%s\"\n          read \"%s\"\n", truth.text.c_str(),
                    ReadAt(text, truth.box, 1920, 1080).c_str());
        for (const auto& d : found) {
          if (!Overlaps(d.frame, truth.box)) continue;
          std::printf("          partly: %s \"%s\"\n",
                      std::string(MarkupAutoRedactor::kindName(d.kind)).c_str(), d.snippet.c_str());
        }
      }
      continue;
    }
    ++t.recalled;
    // What the detection is allowed to cover: every string it overlaps.
    Rect allowed = truth.box;
    for (const Truth& other : page.truths) {
      if (!Overlaps(cover->frame, other.box)) continue;
      double x = std::min(allowed.minX(), other.box.minX());
      double y = std::min(allowed.minY(), other.box.minY());
      allowed = Rect::make(x, y, std::max(allowed.maxX(), other.box.maxX()) - x,
                           std::max(allowed.maxY(), other.box.maxY()) - y);
    }
    double excess = std::max({allowed.minX() - cover->frame.minX(),
                              allowed.minY() - cover->frame.minY(),
                              cover->frame.maxX() - allowed.maxX(),
                              cover->frame.maxY() - allowed.maxY()});
    t.worstExcess = std::max(t.worstExcess, excess);
    if (excess <= 8) ++t.tight;
    if (excess > 8 && verbose) {
      std::printf("  loose by %.0f px (left %.0f, top %.0f, right %.0f, bottom %.0f): \"%s\"\n",
                  excess, allowed.minX() - cover->frame.minX(), allowed.minY() - cover->frame.minY(),
                  cover->frame.maxX() - allowed.maxX(), cover->frame.maxY() - allowed.maxY(),
                  truth.text.c_str());
    }
  }
}

void Print(const char* name, const Tally& t) {
  auto pct = [](int a, int b) { return b == 0 ? 0.0 : 100.0 * a / b; };
  std::printf("%-6s images %2d  strings %3d  recall %5.1f %%  precision %5.1f %%  tight %5.1f %% "
              "(worst %.0f px)  detect %6.0f ms  recognise %6.0f ms  ratio %.2f\n",
              name, t.images, t.truths, pct(t.recalled, t.truths),
              pct(t.trueDetections, t.detections), pct(t.tight, t.recalled), t.worstExcess,
              1000 * t.detectSeconds / std::max(1, t.images),
              1000 * t.ocrSeconds / std::max(1, t.images),
              t.ocrSeconds > 0 ? t.detectSeconds / t.ocrSeconds : 0);
}

}  // namespace
}  // namespace klipora::bench

int main(int argc, char** argv) {
  using namespace klipora;
  using namespace klipora::bench;
  int images = 6;
  bool keep = false, verbose = false;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a.rfind("--images=", 0) == 0) images = std::max(1, std::atoi(a.c_str() + 9));
    if (a == "--keep") keep = true;
    if (a == "--verbose") verbose = true;
  }
  LinuxPlatform linux;
  processing::OCRServiceConfig config;
  config.engineCount = 1;
  processing::OCRService ocr(linux.ocrEngines, linux.imageCodec, linux.clock, config);
  ocr.warmUp();
  MarkupAutoRedactor redactor(ocr, linux.imageCodec, &linux.imageDetector);

  std::string folder = (std::filesystem::temp_directory_path() / "klipora-redact-bench").string();
  std::filesystem::create_directories(folder);
  std::mt19937 rng(20261125);
  Tally light, dark;
  for (int i = 0; i < images; ++i) {
    for (bool isDark : {false, true}) {
      Page page = Render(folder, i, isDark, rng, linux.imageCodec);
      std::string bytes = ReadFile(page.path);
      auto start = std::chrono::steady_clock::now();
      processing::OCROptions plain;
      plain.contentKey = page.path;  // a key of its own: never joins the redaction's job
      auto text = ocr.recognizeTextWithLayout(bytes, plain);
      auto middle = std::chrono::steady_clock::now();
      auto found = redactor.detect(bytes, {});
      auto end = std::chrono::steady_clock::now();
      if (!text || !found) {
        std::fprintf(stderr, "%s: recognition failed\n", page.path.c_str());
        return 1;
      }
      Tally& t = isDark ? dark : light;
      ++t.images;
      t.ocrSeconds += std::chrono::duration<double>(middle - start).count();
      t.detectSeconds += std::chrono::duration<double>(end - middle).count();
      if (verbose) std::printf("%s\n", page.path.c_str());
      Score(page, *found, *text, verbose, t);
      if (!keep) std::filesystem::remove(page.path);
    }
  }
  Print("light", light);
  Print("dark", dark);
  if (keep) std::printf("images kept in %s\n", folder.c_str());
  return 0;
}
