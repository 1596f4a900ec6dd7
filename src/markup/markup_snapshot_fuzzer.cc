// Feeds arbitrary bytes to the snapshot decoder, twice: as they are, and as
// byte edits of a valid snapshot (so that random input reaches deep into the
// layer records). Whatever decodes must open as a document whose written form
// reads back and writes again unchanged.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "markup/markup_beautify_presets.h"
#include "markup/markup_document.h"
#include "markup/markup_snapshot_json.h"

namespace {

using namespace klipora::markup;

class NoTimers final : public klipora::Timers {
 public:
  klipora::TimerId scheduleOnce(double, std::function<void()>) override { return 1; }
  klipora::TimerId scheduleRepeating(double, double, std::function<void()>) override { return 1; }
  void cancel(klipora::TimerId) override {}
};

const std::string& Seed() {
  static const std::string seed = [] {
    MarkupDocumentSnapshot s;
    s.sourceImageWidth = 640;
    s.sourceImageHeight = 480;
    s.shapes.emplace_back().fillColor = CodableColor{1, 0, 0, 1};
    s.shapes[0].arrowControl = Point{3, 4};
    s.textBoxes.emplace_back().text = "hi";
    s.inkStrokes.emplace_back().points = {{1, 2}, {3, 4}};
    s.effects.emplace_back();
    s.stepBadges.emplace_back();
    s.cutouts.emplace_back().imageData.data = "PNG";
    s.watermarks.emplace_back().customFrame = Rect::make(1, 2, 3, 4);
    s.crop = MarkupCrop{Rect::make(0, 0, 10, 10)};
    s.background = MarkupBeautifyPresets::output(MarkupBeautifyPresets::Look::sunset).background;
    s.canvasExtension = MarkupCanvasExtension{1, 2, 3, 4, MarkupCanvasExtension::EdgeMirror{}};
    s.colorAdjustments = MarkupColorAdjustments{};
    s.layerOrder = std::vector<LayerRef>{{LayerRef::Kind::effect, s.effects[0].id}};
    s.lockedLayers.insert({LayerRef::Kind::shape, s.shapes[0].id});
    return *encodeSnapshot(s);
  }();
  return seed;
}

void Check(std::string_view text) {
  auto snapshot = decodeSnapshot(text);
  if (!snapshot) return;
  NoTimers timers;
  NoPointerInput pointer;
  MarkupDocument document(*snapshot, timers, pointer);
  // Writing may normalise once (dates keep milliseconds); after that a
  // read and a write give the same text again.
  auto written = encodeSnapshot(document.baselineSnapshot());
  if (!written) std::abort();
  auto again = decodeSnapshot(*written);
  if (!again) std::abort();
  auto rewritten = encodeSnapshot(*again);
  if (!rewritten || *rewritten != *written) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Check(std::string_view(reinterpret_cast<const char*>(data), size));
  std::string edited = Seed();
  for (size_t i = 0; i + 2 < size && i < 24; i += 3) {
    size_t at = ((size_t{data[i]} << 8) | data[i + 1]) % edited.size();
    edited[at] = static_cast<char>(data[i + 2]);
  }
  Check(edited);
  return 0;
}
