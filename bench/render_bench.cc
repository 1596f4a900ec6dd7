// Markup rendering on a 2880×1800 screenshot with a document of 30 mixed
// layers (two blurs, a pixelate, a feathered spotlight, text, arrows, emoji,
// badges, a background frame with a shadow…). Prints the median time of
// decode + render + encode next to the median of decoding the screenshot and
// encoding the output alone (the work no render avoids), and the ratio of
// what rendering adds; then the time of one 1000×300 Gaussian blur region.
// Each time is given as elapsed time and as the process's CPU time (all
// threads), which a busy machine inflates far less. Nothing is asserted.
#include <algorithm>
#include <chrono>
#include <ctime>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <vector>

#include "markup/render/markup_export_service.h"
#include "markup/render/markup_image.h"
#include "markup/render/markup_render_steps.h"
#include "platform/linux/posix_file_system.h"
#include "platform/linux/vips_image_codec.h"
#include "screenshot_corpus.h"

namespace klipora::bench {
namespace {

using namespace klipora::markup;

double CpuMs() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return t.tv_sec * 1e3 + t.tv_nsec / 1e6;
}

// Medians of elapsed and CPU time.
struct Timing {
  double wall = 0, cpu = 0;
  Timing operator-(const Timing& o) const { return {wall - o.wall, cpu - o.cpu}; }
};

Timing MedianMs(int runs, const std::function<void()>& work) {
  std::vector<double> walls, cpus;
  for (int i = 0; i < runs; ++i) {
    auto start = std::chrono::steady_clock::now();
    double cpuStart = CpuMs();
    work();
    cpus.push_back(CpuMs() - cpuStart);
    walls.push_back(
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
  }
  std::sort(walls.begin(), walls.end());
  std::sort(cpus.begin(), cpus.end());
  return {walls[walls.size() / 2], cpus[cpus.size() / 2]};
}

MarkupDocumentSnapshot ThirtyLayers() {
  MarkupDocumentSnapshot d;
  d.sourceImageWidth = 2880;
  d.sourceImageHeight = 1800;
  const CodableColor red{0.92, 0.2, 0.18, 1}, blue{0.1, 0.4, 0.95, 1}, white{1, 1, 1, 1};
  d.effects = {{.kind = MarkupEffectRegion::Kind::gaussianBlur, .frame = Rect::make(300, 200, 1000, 300), .intensity = 0.5},
               {.kind = MarkupEffectRegion::Kind::gaussianBlur, .frame = Rect::make(1500, 900, 600, 200), .intensity = 0.8},
               {.kind = MarkupEffectRegion::Kind::pixelate, .frame = Rect::make(200, 1300, 800, 240), .intensity = 0.5}};
  d.spotlights = {{.shape = MarkupSpotlightRegion::Shape::ellipse, .frame = Rect::make(1200, 400, 900, 600),
                   .dimColor = {0, 0, 0, 1}, .dimOpacity = 0.45, .feather = 24}};
  d.magnifiers = {{.frame = Rect::make(2300, 1200, 360, 360), .sourceCenter = {600, 600}, .zoom = 2,
                   .borderWidth = 6, .borderColor = white}};
  const MarkupShape::ArrowStyle styles[] = {MarkupShape::ArrowStyle::straight, MarkupShape::ArrowStyle::curved,
                                            MarkupShape::ArrowStyle::tapered, MarkupShape::ArrowStyle::sketch,
                                            MarkupShape::ArrowStyle::elbow, MarkupShape::ArrowStyle::bold};
  for (int i = 0; i < 6; ++i) {
    d.shapes.push_back({.kind = MarkupShape::Kind::arrow, .frame = Rect::make(400 + i * 300, 1000, 220, -180),
                        .strokeColor = red, .strokeWidth = 8, .arrowStyle = styles[i]});
  }
  d.shapes.push_back({.kind = MarkupShape::Kind::roundedRect, .frame = Rect::make(1150, 350, 1000, 700),
                      .strokeColor = red, .strokeWidth = 6});
  d.shapes.push_back({.kind = MarkupShape::Kind::oval, .frame = Rect::make(2200, 200, 400, 250),
                      .strokeColor = blue, .strokeWidth = 6, .dashPattern = MarkupShape::DashPattern::dashed});
  d.shapes.push_back({.kind = MarkupShape::Kind::line, .frame = Rect::make(2300, 600, 400, 0),
                      .strokeColor = blue, .strokeWidth = 4, .dashPattern = MarkupShape::DashPattern::dotted});
  for (int i = 0; i < 4; ++i) {
    d.textBoxes.push_back({.frame = Rect::make(200 + i * 650, 80, 600, 110), .text = "Step " + std::to_string(i + 1) + ": check this value before you ship",
                           .fontName = "Helvetica", .fontSize = 36, .textColor = white,
                           .backgroundColor = CodableColor{0.1, 0.1, 0.12, 0.85}, .isBold = i % 2 == 0});
  }
  for (int i = 0; i < 5; ++i) {
    d.stepBadges.push_back({.number = i + 1, .frame = Rect::make(150 + i * 500, 600, 72, 72), .fillColor = red,
                            .textColor = white, .style = static_cast<MarkupStepBadge::Style>(i % 4)});
  }
  d.emojiStamps = {{.emoji = "\xF0\x9F\x91\x8D", .frame = Rect::make(2500, 700, 160, 160)},
                   {.emoji = "\xE2\x9A\xA0\xEF\xB8\x8F", .frame = Rect::make(2650, 900, 140, 140)},
                   {.emoji = "\xF0\x9F\x91\x8D", .frame = Rect::make(2300, 1650, 120, 120)}};
  d.inkStrokes = {{.kind = MarkupInkStroke::Kind::highlighter, .points = {{300, 1650}, {1400, 1650}}, .color = {1, 0.9, 0, 1}, .width = 40},
                  {.kind = MarkupInkStroke::Kind::pen, .points = {{1500, 1500}, {1600, 1560}, {1700, 1500}, {1800, 1580}}, .color = blue, .width = 6}};
  d.rulers = {{.from = {300, 1750}, .to = {1300, 1750}, .color = blue, .strokeWidth = 3, .fontSize = 24}};
  d.background = MarkupBackgroundFrame{.padding = 120, .paddingVertical = std::nullopt,
                                       .fill = MarkupBackgroundFrame::LinearGradient{{0.35, 0.2, 0.9, 1}, {0.95, 0.45, 0.55, 1}, 135},
                                       .cornerRadius = 24, .shadow = MarkupBackgroundFrame::Shadow{{0, 0, 0, 1}, 60, 0, 24, 0.4}};
  return d;
}

}  // namespace
}  // namespace klipora::bench

int main() {
  using namespace klipora;
  using namespace klipora::bench;
  namespace fs = std::filesystem;
  std::string folder = (fs::temp_directory_path() / "klipora-render-bench").string();
  fs::remove_all(folder);
  fs::create_directories(folder);
  auto corpus = renderScreenshotCorpus(folder, 1);
  auto shot = std::find_if(corpus.begin(), corpus.end(), [](const CorpusFile& f) {
    return f.width == 2880 && f.format == "png";
  });
  if (shot == corpus.end()) {
    std::fprintf(stderr, "no 2880x1800 screenshot was made\n");
    return 1;
  }
  PosixFileSystem files;
  VipsImageCodec codec;
  std::string bytes = *files.readFile(shot->path);
  markup::MarkupExportService exporter(codec);
  auto document = ThirtyLayers();
  size_t layers = document.effects.size() + document.spotlights.size() + document.magnifiers.size() +
                  document.shapes.size() + document.textBoxes.size() + document.stepBadges.size() +
                  document.emojiStamps.size() + document.inkStrokes.size() + document.rulers.size() + 1;
  // Warm up fonts, the emoji cache and libvips; the output, framed and so
  // larger than the screenshot, is what any export must encode.
  auto output = exporter.render(document, *exporter.decode(bytes));
  if (!output) {
    std::fprintf(stderr, "the document did not render: %s\n", output.error().message().c_str());
    return 1;
  }
  constexpr int kRuns = 7;
  Timing baseline = MedianMs(kRuns, [&] {
    (void)exporter.decode(bytes);
    (void)exporter.encodePng(*output);
  });
  Timing rendered = MedianMs(kRuns, [&] {
    auto image = exporter.decode(bytes);
    (void)exporter.renderPng(document, *image);
  });
  Timing renderOnly = MedianMs(kRuns, [&] {
    auto image = exporter.decode(bytes);
    (void)exporter.render(document, *image);
  });
  Timing decodeOnly = MedianMs(kRuns, [&] { (void)exporter.decode(bytes); });
  std::printf("render: 2880x1800 screenshot, %zu layers, median of %d runs (elapsed / CPU)\n",
              layers, kRuns);
  std::printf("  decode + encode PNG (unavoidable)   %8.1f / %8.1f ms\n", baseline.wall,
              baseline.cpu);
  std::printf("  decode + render + encode PNG        %8.1f / %8.1f ms\n", rendered.wall,
              rendered.cpu);
  Timing alone = renderOnly - decodeOnly;
  std::printf("  of which the render alone           %8.1f / %8.1f ms\n", alone.wall, alone.cpu);
  std::printf("  rendering adds %.2fx / %.2fx the decode + encode time (goal: at most 1.0x)\n",
              (rendered.wall - baseline.wall) / baseline.wall,
              (rendered.cpu - baseline.cpu) / baseline.cpu);

  auto canvas = exporter.decode(bytes);
  std::vector<markup::MarkupEffectRegion> blur = {
      {.kind = markup::MarkupEffectRegion::Kind::gaussianBlur,
       .frame = markup::Rect::make(200, 200, 1000, 300), .intensity = 0.5}};
  Timing blurMs = MedianMs(21, [&] { markup::drawEffects(*canvas, blur); });
  std::printf(
      "  one 1000x300 Gaussian blur region (radius %.0f)  %6.1f / %6.1f ms (goal: under 15 ms)\n",
      markup::blurRadius(0.5), blurMs.wall, blurMs.cpu);
  fs::remove_all(folder);
  return 0;
}
