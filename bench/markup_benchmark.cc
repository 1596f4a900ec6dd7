// Markup document costs: writing and reading the JSON snapshot of a document
// with 1,000 layers of mixed kinds, and one drag gesture of 200 mutations
// (which must stay a single undo step). Prints medians; asserts nothing.
#include <benchmark/benchmark.h>

#include <string>

#include "markup/markup_document.h"
#include "markup/markup_snapshot_json.h"
#include "platform/linux/main_loop.h"

namespace klipora::markup {
namespace {

constexpr int kLayers = 1000;
constexpr int kGestureSteps = 200;

// Layers dealt round-robin over the eleven families and the watermarks, with
// the optional fields filled so every code path is paid for.
MarkupDocumentSnapshot MixedSnapshot() {
  MarkupDocumentSnapshot s;
  s.sourceItemID = UUID::Random();
  s.sourceImageWidth = 2880;
  s.sourceImageHeight = 1800;
  CodableColor red{1, 0.23, 0.19, 1};
  for (int i = 0; i < kLayers; ++i) {
    Rect frame = Rect::make(i % 97 * 13.5, i % 89 * 17.25, 120.5, 48.75);
    switch (i % 12) {
      case 0: {
        auto& stroke = s.inkStrokes.emplace_back();
        for (int p = 0; p < 24; ++p) stroke.points.push_back({p * 3.5 + i, p * 1.25});
        stroke.color = red;
        break;
      }
      case 1: {
        auto& shape = s.shapes.emplace_back();
        shape.kind = MarkupShape::Kind::arrow;
        shape.frame = frame;
        shape.fillColor = red;
        shape.arrowStyle = MarkupShape::ArrowStyle::curved;
        shape.arrowControl = Point{10, 20};
        break;
      }
      case 2:
        s.textBoxes.emplace_back().frame = frame;
        s.textBoxes.back().text = "Step " + std::to_string(i) + ": click";
        break;
      case 3:
        s.effects.emplace_back().frame = frame;
        break;
      case 4:
        s.signatures.emplace_back().frame = frame;
        s.signatures.back().signatureID = UUID::Random();
        break;
      case 5:
        s.magnifiers.emplace_back().frame = frame;
        s.magnifiers.back().sourceCenter = {5, 5};
        break;
      case 6:
        s.spotlights.emplace_back().frame = frame;
        break;
      case 7:
        s.stepBadges.emplace_back().frame = frame;
        s.stepBadges.back().number = i;
        break;
      case 8:
        s.emojiStamps.emplace_back().frame = frame;
        s.emojiStamps.back().emoji = "\xF0\x9F\x91\x8D";
        break;
      case 9:
        s.cutouts.emplace_back().frame = frame;
        s.cutouts.back().imageData.data = std::string(512, '\x7f');
        break;
      case 10:
        s.rulers.emplace_back().to = {100, 100};
        break;
      default:
        s.watermarks.emplace_back().customFrame = frame;
        break;
    }
  }
  return s;
}

void BM_EncodeSnapshot1000Layers(benchmark::State& state) {
  AsioMainLoop loop;
  NoPointerInput pointer;
  MarkupDocument doc(MixedSnapshot(), loop, pointer);
  auto snapshot = doc.snapshot(Date::fromSecondsSince1970(1'700'000'000));
  size_t bytes = 0;
  for (auto _ : state) {
    auto text = encodeSnapshot(snapshot);
    bytes = text->size();
    benchmark::DoNotOptimize(text);
  }
  state.counters["jsonKiB"] = bytes / 1024.0;
}
BENCHMARK(BM_EncodeSnapshot1000Layers)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(9)
    ->ReportAggregatesOnly(true);

void BM_DecodeSnapshot1000Layers(benchmark::State& state) {
  AsioMainLoop loop;
  NoPointerInput pointer;
  MarkupDocument doc(MixedSnapshot(), loop, pointer);
  std::string text = *encodeSnapshot(doc.snapshot(Date::fromSecondsSince1970(1'700'000'000)));
  for (auto _ : state) {
    auto snapshot = decodeSnapshot(text);
    if (!snapshot) state.SkipWithError(snapshot.error().message().c_str());
    benchmark::DoNotOptimize(snapshot);
  }
}
BENCHMARK(BM_DecodeSnapshot1000Layers)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(9)
    ->ReportAggregatesOnly(true);

class HeldPointer final : public PointerInput {
 public:
  bool isButtonDown() const override { return true; }
};

// One drag of a shape through 200 updates, in a document of 1,000 layers.
void BM_Gesture200MutationsIn1000LayerDocument(benchmark::State& state) {
  AsioMainLoop loop;
  HeldPointer pointer;
  MarkupDocument doc(MixedSnapshot(), loop, pointer);
  size_t stepsPerGesture = 0;
  for (auto _ : state) {
    size_t before = doc.undoManager().undoCount();
    doc.beginContinuousEdit();
    for (int i = 0; i < kGestureSteps; ++i) {
      auto shapes = doc.content().shapes;
      shapes[0].frame = shapes[0].frame.offsetBy(1, 0.5);
      doc.mutateShapes(std::move(shapes), "Move");
    }
    doc.endContinuousEdit();
    stepsPerGesture = doc.undoManager().undoCount() - before;
  }
  state.counters["undoStepsPerGesture"] = static_cast<double>(stepsPerGesture);
  state.counters["usPerMutation"] =
      benchmark::Counter(kGestureSteps * 1e-6, benchmark::Counter::kIsIterationInvariantRate |
                                                   benchmark::Counter::kInvert);
}
BENCHMARK(BM_Gesture200MutationsIn1000LayerDocument)
    ->Unit(benchmark::kMillisecond)
    ->Repetitions(9)
    ->ReportAggregatesOnly(true);

}  // namespace
}  // namespace klipora::markup

BENCHMARK_MAIN();
