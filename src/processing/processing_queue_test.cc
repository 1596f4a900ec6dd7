#include "processing/processing_queue.h"

#include <gtest/gtest.h>

#include "intelligence/custom_category_sorter.h"
#include "intelligence/hashed_ngram_embedder.h"
#include "intelligence/semantic_custom_category_matcher.h"
#include "library/model_container.h"
#include "library/records.h"
#include "library/screenshot_item.h"
#include "platform/testing/log_capture.h"
#include "platform/testing/manual_clock.h"
#include "platform/testing/memory_file_system.h"
#include "platform/testing/temp_dir.h"

namespace klipora::processing {
namespace {

using library::ProcessingState;
using library::ScreenshotItem;

// Answers at once with `textFor` (keyed by file name), or holds the answer
// until the test releases it.
class FakeAnalyses final : public ItemAnalyses {
 public:
  void recognizeText(const ItemData& item, std::function<void(OCROutcome)> done) override {
    ++textCalls;
    if (holdText) {
      heldText.push_back(std::move(done));
      return;
    }
    done(outcomeFor(item.originalFilename));
  }
  void labelImage(const ItemData&, std::function<void(LabelsOutcome)> done) override {
    done(LabelsOutcome{});
  }
  void makeFeaturePrint(const ItemData&,
                        std::function<void(std::optional<library::Bytes>)> done) override {
    done(library::Bytes{"12345678"});
  }
  OCROutcome outcomeFor(const std::string& file) {
    if (auto it = unreadable.find(file); it != unreadable.end()) {
      return {.result = std::nullopt, .unreadable = true, .error = OCRError::unreadableImage()};
    }
    if (failing) return {.result = std::nullopt, .error = OCRError::recognizerStillLoading()};
    auto it = textFor.find(file);
    OCRLine line;
    line.text = it == textFor.end() ? "hello" : it->second;
    OCROutcome outcome;
    outcome.result = OCRResult::fromLines({line});
    return outcome;
  }

  std::map<std::string, std::string> textFor;
  std::set<std::string> unreadable;
  bool holdText = false;
  bool failing = false;
  int textCalls = 0;
  std::vector<std::function<void(OCROutcome)>> heldText;
};

class HashEmbedder final : public TextEmbedder {
 public:
  std::vector<float> embed(std::string_view) override { return {1, 0}; }
  std::string name() const override { return "test"; }
};

class ProcessingQueueTest : public ::testing::Test {
 protected:
  ProcessingQueueTest() {
    container_ = *library::KliporaModelContainer::make(fs_, clock_, dir_.file("Klipora.store"));
    saver_ = std::make_unique<ProcessingSaveCoalescer>(context(), clock_);
    makeQueue({});
  }
  void makeQueue(ProcessingQueueConfig config) {
    queue_.reset();
    queue_ = std::make_unique<ProcessingQueue>(ProcessingQueueDeps{.context = context(),
                                                                   .saver = *saver_,
                                                                   .clock = clock_,
                                                                   .timers = clock_,
                                                                   .mainThread = main_,
                                                                   .workers = workers_,
                                                                   .userDefaults = defaults_,
                                                                   .notifications = nullptr,
                                                                   .analyses = analyses_,
                                                                   .arbiter = *arbiter_,
                                                                   .customCategories = *custom_,
                                                                   .embedder = embedder_},
                                               config);
  }
  library::ModelContext& context() { return container_->mainContext(); }
  UUID addItem(const std::string& file, ProcessingState state = ProcessingState::pending) {
    auto item = std::make_shared<ScreenshotItem>();
    item->originalFilename = file;
    item->libraryPath = "/lib/Originals/" + file;
    item->importedAt = clock_.now();
    item->setProcessingState(state);
    context().insert(item);
    EXPECT_TRUE(context().save().ok());
    return item->id;
  }
  std::shared_ptr<ScreenshotItem> item(const UUID& id) {
    return *context().fetchByKey<ScreenshotItem>(id.uuidString());
  }
  void runUntilIdle() {
    while (workers_.runAll() + main_.runAll() > 0) {
    }
  }

  testing::TempDir dir_;
  testing::ManualClock clock_;
  testing::ManualExecutor main_, workers_;
  testing::MemoryFileSystem fs_;
  UserDefaults defaults_{fs_, "/support/defaults.json"};
  std::shared_ptr<library::ModelContainer> container_;
  std::unique_ptr<ProcessingSaveCoalescer> saver_;
  FakeAnalyses analyses_;
  std::unique_ptr<intelligence::ModelArbiter> arbiter_ =
      intelligence::makeUnavailableModelArbiter();
  std::unique_ptr<intelligence::CustomCategoryMatcher> custom_ =
      intelligence::makeNoCustomCategoryMatcher();
  HashEmbedder embedder_;
  std::unique_ptr<ProcessingQueue> queue_;
  testing::ScopedLogCapture log_;
};

TEST_F(ProcessingQueueTest, RunsAnItemToCompleteWithItsTextAndCategory) {
  analyses_.textFor["code.png"] =
      "def main():\n    import os\n    return os.path.join(a, b)\nclass Foo:\n    pass";
  auto id = addItem("code.png");
  queue_->start();
  std::vector<UUID> processed;
  queue_->onItemProcessed = [&](const UUID& done) { processed.push_back(done); };
  queue_->enqueuePriority(id);
  runUntilIdle();

  auto done = item(id);
  EXPECT_EQ(done->processingState(), ProcessingState::complete);
  EXPECT_EQ(done->generatedCategory, library::ScreenshotCategory::code);
  EXPECT_EQ(done->categorizationVersion, kCategorizationRulesVersion);
  EXPECT_NE(done->ocrText->find("import os"), std::string::npos);
  EXPECT_TRUE(done->featurePrintData.has_value());
  EXPECT_TRUE(done->lastProcessedAt.has_value());
  EXPECT_EQ(processed, std::vector<UUID>{id});
  EXPECT_TRUE(log_.contains("early-persist file=code.png"));
  EXPECT_TRUE(log_.contains("processItemCore done id=" + id.uuidString()));
  EXPECT_TRUE(saver_->flush().ok());
}

TEST_F(ProcessingQueueTest, AnIdAskedForAgainWhileInFlightRunsExactlyOnceMore) {
  analyses_.holdText = true;
  auto id = addItem("a.png");
  queue_->start();
  queue_->enqueue(id);
  runUntilIdle();
  queue_->enqueue(id);
  queue_->enqueuePriority(id);
  EXPECT_TRUE(log_.contains("enqueue skipped id=" + id.uuidString() + " — already in-flight"));
  ASSERT_EQ(analyses_.heldText.size(), 1u);
  analyses_.holdText = false;
  analyses_.heldText[0](analyses_.outcomeFor("a.png"));
  runUntilIdle();
  // The rerun finds the item complete and leaves it alone: two runs, one read.
  EXPECT_EQ(analyses_.textCalls, 1);
  EXPECT_TRUE(log_.contains("skipped-terminal-state file=a.png"));
  EXPECT_TRUE(queue_->inFlightIDs().empty());

  queue_->stop();
  queue_->enqueue(id);
  EXPECT_TRUE(log_.contains("enqueue skipped id=" + id.uuidString() + " — not running"));
}

TEST_F(ProcessingQueueTest, AnImageReplacedMidRunIsReadAgainWithNoStaleWrites) {
  analyses_.holdText = true;
  analyses_.textFor["a.png"] = "old words";
  auto id = addItem("a.png");
  queue_->start();
  queue_->enqueue(id);
  runUntilIdle();
  OCROutcome stale = analyses_.outcomeFor("a.png");

  analyses_.textFor["a.png"] = "new words";
  analyses_.holdText = false;
  item(id)->setProcessingState(ProcessingState::pending);
  ASSERT_TRUE(context().save().ok());
  queue_->supersede(id);
  queue_->enqueuePriority(id);
  analyses_.heldText[0](stale);
  runUntilIdle();
  EXPECT_TRUE(log_.contains("item-superseded file=a.png"));
  EXPECT_EQ(analyses_.textCalls, 2);
  EXPECT_EQ(item(id)->ocrText, "new words");
  EXPECT_EQ(item(id)->processingState(), ProcessingState::complete);
  EXPECT_TRUE(queue_->inFlightIDs().empty());
}

TEST_F(ProcessingQueueTest, SlowTextIsBackfilledAfterClassifyingWithoutIt) {
  analyses_.holdText = true;
  auto id = addItem("slow.png");
  queue_->start();
  queue_->enqueue(id);
  runUntilIdle();
  clock_.advance(30.5);
  runUntilIdle();
  EXPECT_TRUE(log_.contains("step=ocr OVER-BUDGET: classifying without text"));
  EXPECT_EQ(item(id)->processingState(), ProcessingState::complete);
  EXPECT_FALSE(item(id)->ocrText.has_value());
  EXPECT_EQ(queue_->status().lateOCRPending, 1);

  analyses_.heldText[0](analyses_.outcomeFor("slow.png"));
  runUntilIdle();
  EXPECT_EQ(item(id)->ocrText, "hello");
  EXPECT_TRUE(log_.contains("ocr-backfill file=slow.png"));
  EXPECT_EQ(queue_->status().lateOCRPending, 0);
}

TEST_F(ProcessingQueueTest, LateTextForATrashedItemIsDropped) {
  analyses_.holdText = true;
  auto id = addItem("gone.png");
  queue_->start();
  queue_->enqueue(id);
  runUntilIdle();
  clock_.advance(31);
  runUntilIdle();
  item(id)->deleted = true;
  ASSERT_TRUE(context().save().ok());
  analyses_.heldText[0](analyses_.outcomeFor("gone.png"));
  runUntilIdle();
  EXPECT_TRUE(log_.contains("ocr-backfill file=gone.png SKIP item is in the trash"));
  EXPECT_FALSE(item(id)->ocrText.has_value());
}

TEST_F(ProcessingQueueTest, FailuresEndTheItemWithTheirReason) {
  analyses_.unreadable.insert("broken.png");
  auto broken = addItem("broken.png");
  auto missing = UUID::Random();
  queue_->start();
  queue_->enqueue(broken);
  queue_->enqueue(missing);
  runUntilIdle();
  EXPECT_EQ(item(broken)->processingState(), ProcessingState::failed);
  EXPECT_EQ(item(broken)->processingError, "Image unreadable");
  EXPECT_TRUE(log_.contains("itemData nil, marking unfetchable"));

  // A run that never ends is failed at 120 s; the stuck work is abandoned.
  ProcessingQueueConfig config;
  config.ocrBudget = 500;
  makeQueue(config);
  analyses_.holdText = true;
  auto stuck = addItem("stuck.png");
  queue_->start();
  queue_->enqueue(stuck);
  runUntilIdle();
  clock_.advance(120);
  runUntilIdle();
  EXPECT_EQ(item(stuck)->processingState(), ProcessingState::failed);
  EXPECT_EQ(item(stuck)->processingError,
            "Processing timed out after 120s. Retry from the inspector");
  EXPECT_TRUE(queue_->inFlightIDs().empty());

  // Recognition that fails leaves a usable item and a retry pass.
  analyses_.holdText = false;
  analyses_.failing = true;
  auto unlucky = addItem("unlucky.png");
  queue_->enqueue(unlucky);
  runUntilIdle();
  EXPECT_EQ(item(unlucky)->processingState(), ProcessingState::partiallyFailed);
  EXPECT_EQ(item(unlucky)->processingError, "OCR failed");
  analyses_.failing = false;
  clock_.advance(30);
  runUntilIdle();
  EXPECT_EQ(item(unlucky)->processingState(), ProcessingState::complete);
  EXPECT_EQ(item(unlucky)->ocrText, "hello");
}

TEST_F(ProcessingQueueTest, AnItemDeletedOrTrashedMidRunGetsNoWrites) {
  analyses_.holdText = true;
  auto deleted = addItem("deleted.png");
  auto trashed = addItem("trashed.png");
  queue_->start();
  queue_->enqueue(deleted);
  queue_->enqueue(trashed);
  runUntilIdle();
  context().remove(item(deleted));
  item(trashed)->deleted = true;
  ASSERT_TRUE(context().save().ok());
  queue_->cancel(trashed);
  for (auto& done : analyses_.heldText) done(analyses_.outcomeFor("x.png"));
  runUntilIdle();
  EXPECT_FALSE(item(trashed)->ocrText.has_value());
  EXPECT_EQ(item(trashed)->processingState(), ProcessingState::pending);
  EXPECT_EQ(item(deleted), nullptr);
  EXPECT_TRUE(queue_->inFlightIDs().empty());
}

TEST_F(ProcessingQueueTest, PriorityLaneRunsBesideABusyBulkLane) {
  analyses_.holdText = true;
  std::vector<UUID> bulk;
  for (int i = 0; i < 4; ++i) bulk.push_back(addItem("bulk" + std::to_string(i) + ".png"));
  auto fresh = addItem("fresh.png");
  queue_->start();
  for (const auto& id : bulk) queue_->enqueue(id);
  runUntilIdle();
  EXPECT_EQ(analyses_.textCalls, 2);  // two bulk items at once
  queue_->enqueuePriority(fresh);
  runUntilIdle();
  auto s = queue_->status();
  EXPECT_EQ(s.bulkRunning, 2);
  EXPECT_EQ(s.bulkWaiting, 2);
  EXPECT_EQ(s.priorityRunning, 1);
  // Both engines are busy with bulk items; the fresh screenshot gets the
  // next one, ahead of the two bulk items still waiting.
  analyses_.heldText[0](analyses_.outcomeFor("bulk0.png"));
  analyses_.holdText = false;
  runUntilIdle();
  EXPECT_EQ(item(fresh)->processingState(), ProcessingState::complete);
}

TEST_F(ProcessingQueueTest, WatchdogRequeuesItemsLeftBehindByACrash) {
  auto left = addItem("left.png", ProcessingState::ocrComplete);
  queue_->start();
  clock_.advance(60);
  runUntilIdle();
  EXPECT_TRUE(log_.contains("[Watchdog] tick: stale=0 inFlight=0"));
  clock_.advance(180);
  runUntilIdle();
  EXPECT_TRUE(log_.contains("re-enqueueing 1 stuck item(s) (stale > 180s)"));
  EXPECT_TRUE(log_.contains("→ enqueue id=" + left.uuidString() + " state=ocrComplete"));
  EXPECT_EQ(item(left)->processingState(), ProcessingState::complete);
}

TEST_F(ProcessingQueueTest, TimedOutItemsAreRecoveredOnceAtStart) {
  auto old = addItem("old.png", ProcessingState::failed);
  item(old)->processingError = "Processing timed out after 120s. Retry from the inspector";
  ASSERT_TRUE(context().save().ok());
  queue_->start();
  runUntilIdle();
  EXPECT_EQ(item(old)->processingState(), ProcessingState::complete);
  EXPECT_TRUE(log_.contains("re-queueing 1 item(s) failed by the old 120s OCR stall"));
  EXPECT_TRUE(defaults_.boolForKey(ProcessingQueue::kRecoveredTimeoutsKey));
}

// Sorting the library into a user category scores each screenshot through
// the queue, by the evidence new screenshots are matched with.
TEST_F(ProcessingQueueTest, SortsExistingScreenshotsIntoAUserCategoryThroughTheQueue) {
  auto categoryEmbedder = intelligence::makeHashedNgramEmbedder();
  custom_ = std::make_unique<intelligence::SemanticCustomCategoryMatcher>(
      context(), *categoryEmbedder, &defaults_);
  makeQueue({});
  auto cars = std::make_shared<library::CustomCategory>();
  cars->name = "Cars";
  cars->categoryDescription = "car dealer listings";
  cars->setKeywords({"car", "dealer", "listing"});
  context().insert(cars);
  auto existing = [&](const std::string& text, std::vector<std::string> labels = {}) {
    auto id = addItem(text + ".png", ProcessingState::complete);
    auto it = item(id);
    it->ocrText = text;
    it->setClassificationLabels(labels);
    EXPECT_TRUE(context().save().ok());
    return id;
  };
  auto listing = existing("Used car dealer listing: blue sedan, 40,000 km, one owner");
  auto byLabel = existing("Blue sedan, one owner", {"car"});
  auto notes = existing("Quarterly budget meeting notes: hiring plan and travel costs");
  auto blank = existing("");

  intelligence::CustomCategorySorter sorter(context(), clock_, *queue_);
  auto result = sorter.sort(cars->id);
  ASSERT_TRUE(result) << result.error().message();
  EXPECT_EQ(result->assigned, 1);
  EXPECT_EQ(item(listing)->customCategoryID, cars->id);
  EXPECT_FALSE(item(notes)->customCategoryID.has_value());
  EXPECT_FALSE(item(blank)->customCategoryID.has_value());
  // One keyword, as an image label, without a likeness of the text: not enough.
  EXPECT_FALSE(item(byLabel)->customCategoryID.has_value());

  // A screenshot the user took out of the category keeps look-alikes out.
  ASSERT_TRUE(defaults_.setStringList(intelligence::antiExemplarKey(cars->id),
                                      {"Used car dealer listing: red coupe, 90,000 km"}).ok());
  custom_->markStale();
  auto lookAlike = existing("Used car dealer listing: red coupe, 80,000 km");
  queue_->prepareToScore(cars->id);
  EXPECT_FALSE(queue_->belongs(cars->id, *item(lookAlike)));
  EXPECT_TRUE(queue_->belongs(cars->id, *item(listing)));
  EXPECT_FALSE(queue_->belongs(UUID::Random(), *item(listing)));
}

}  // namespace
}  // namespace klipora::processing
