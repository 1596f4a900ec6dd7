#include "queue_overhead.h"

#include "intelligence/custom_category_matcher.h"
#include "intelligence/hashed_ngram_embedder.h"
#include "intelligence/model_arbiter.h"
#include "library/model_container.h"
#include "library/screenshot_item.h"
#include "pipeline_tools.h"
#include "processing/processing_queue.h"
#include "processing/tracked_executor.h"

namespace klipora::bench {
namespace {

using processing::ItemData;
using processing::LabelsOutcome;
using processing::OCROutcome;

// Texts of a few kinds of screen, so that resolution and enrichment see
// something like real input.
const char* const kTexts[] = {
    "def main():\n    import os\n    return os.path.join(a, b)\nclass Foo:\n    pass",
    "Order #48213\nSubtotal $42.10\nTax $3.37\nTotal $45.47\nPaid with Visa ending 4242",
    "Alice 10:42\nare we still on for lunch tomorrow?\nBob 10:43\nyes, 12:30 at the usual place",
    "Error\nThe file report.pdf could not be opened because it is damaged.\nOK  Cancel",
    "Settings\nWi-Fi  On\nBluetooth  Off\nNotifications  Allow\nDisplay brightness 70%",
};

class InstantAnalyses final : public processing::ItemAnalyses {
 public:
  void recognizeText(const ItemData& item, std::function<void(OCROutcome)> done) override {
    processing::OCRLine line;
    line.text = kTexts[item.originalFilename.size() % std::size(kTexts)];
    OCROutcome outcome;
    outcome.result = processing::OCRResult::fromLines({line});
    done(std::move(outcome));
  }
  void labelImage(const ItemData&, std::function<void(LabelsOutcome)> done) override {
    done(LabelsOutcome{});
  }
  void makeFeaturePrint(const ItemData& item,
                        std::function<void(std::optional<library::Bytes>)> done) override {
    done(library::Bytes{item.id.uuidString().substr(0, 8)});
  }
};

}  // namespace

Result<QueueOverhead> MeasureQueueOverhead(LinuxPlatform& platform, const std::string& folder,
                                           int items, double limitSeconds) {
  RETURN_IF_ERROR(platform.fileSystem.createDirectories(folder));
  ASSIGN_OR_RETURN(auto container,
                   library::KliporaModelContainer::make(platform.fileSystem, platform.clock,
                                                        folder + "/Klipora.store"));
  library::ModelContext& context = container->mainContext();
  std::vector<UUID> ids;
  for (int i = 0; i < items; ++i) {
    auto item = std::make_shared<library::ScreenshotItem>();
    item->originalFilename = "Screenshot " + std::to_string(i) + ".png";
    item->libraryPath = folder + "/Originals/" + item->originalFilename;
    item->importedAt = platform.clock.now();
    item->setProcessingState(library::ProcessingState::pending);
    ids.push_back(item->id);
    context.insert(std::move(item));
  }
  RETURN_IF_ERROR(context.save());

  UserDefaults defaults(platform.fileSystem, folder + "/defaults.json");
  processing::ProcessingSaveCoalescer saver(context, platform.mainLoop);
  processing::TrackedExecutor workers(platform.background);
  InstantAnalyses analyses;
  auto arbiter = intelligence::makeUnavailableModelArbiter();
  auto custom = intelligence::makeNoCustomCategoryMatcher();
  auto embedder = intelligence::makeHashedNgramEmbedder();
  QueueOverhead result;
  result.items = items;
  {
    processing::ProcessingQueue queue(processing::ProcessingQueueDeps{
        .context = context,
        .saver = saver,
        .clock = platform.clock,
        .timers = platform.mainLoop,
        .mainThread = platform.mainLoop,
        .workers = workers,
        .userDefaults = defaults,
        .notifications = nullptr,
        .analyses = analyses,
        .arbiter = *arbiter,
        .customCategories = *custom,
        .embedder = *embedder,
    });
    auto& loop = platform.mainLoop;
    double start = 0, last = 0;
    queue.onItemProcessed = [&](const UUID&) {
      last = Now();
      if (++result.processed == items) loop.stop();
    };
    const double deadline = Now() + limitSeconds;
    std::optional<TimerId> watchTimer;
    std::function<void()> watch = [&] {
      watchTimer.reset();
      if (Now() > deadline) return loop.stop();
      watchTimer = loop.scheduleOnce(0.5, watch);
    };
    queue.start();
    loop.post([&] {
      start = Now();
      for (const UUID& id : ids) queue.enqueue(id);
      watchTimer = loop.scheduleOnce(0.5, watch);
    });
    if (items > 0) loop.run();
    if (watchTimer) loop.cancel(*watchTimer);
    result.seconds = (result.processed > 0 ? last : Now()) - start;
    result.finished = result.processed == items;
    queue.stop();
    workers.waitIdle();
    (void)saver.flush();
  }
  result.saves = saver.savesPerformed();
  return result;
}

}  // namespace klipora::bench
