#include "processing/ocr_service.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <future>
#include <thread>

#include "platform/testing/fake_image_codec.h"
#include "platform/testing/fake_ocr_engine.h"
#include "platform/testing/log_capture.h"
#include "platform/testing/manual_clock.h"
#include "processing/ocr_test_support.h"

namespace klipora::processing {
namespace {

using klipora::testing::FakeOcrEngineFactory;
using testing::Word;

OcrObservation Line(std::string text, OcrBox box, float confidence = 0.9f) {
  return {std::move(text), confidence, box, {box}, {}};
}

::testing::AssertionResult SameRect(const OCRRect& a, const OCRRect& b) {
  auto near = [](double x, double y) { return std::abs(x - y) < 1e-9; };
  if (near(a.x, b.x) && near(a.y, b.y) && near(a.width, b.width) && near(a.height, b.height)) {
    return ::testing::AssertionSuccess();
  }
  return ::testing::AssertionFailure()
         << "[" << a.x << ", " << a.y << ", " << a.width << ", " << a.height << "]";
}

class OCRServiceTest : public ::testing::Test {
 protected:
  OCRServiceTest() { config_.engineWaitSeconds = 0; }

  OCRService& service() {
    if (!service_) service_ = std::make_unique<OCRService>(engines_, codec_, clock_, config_);
    return *service_;
  }
  // A white page with one row of glyphs, different for every `seed`.
  static PixelImage Page(int seed = 0) {
    PixelImage page = testing::Page(200, 100);
    Word(page, 10 + seed, 10, 5);
    return page;
  }
  size_t countRequests(OcrLevel level) const {
    auto all = engines_.requests();
    return std::count_if(all.begin(), all.end(), [&](const auto& r) { return r.level == level; });
  }

  klipora::testing::ManualClock clock_;
  klipora::testing::FakeImageCodec codec_;
  FakeOcrEngineFactory engines_;
  klipora::testing::ScopedLogCapture log_;
  OCRServiceConfig config_;
  std::unique_ptr<OCRService> service_;
};

TEST_F(OCRServiceTest, LinesKeepTheRecognisersOrderAndJoinWithSingleLineFeeds) {
  engines_.respond = [](const OcrRequest&) -> Result<std::vector<OcrObservation>> {
    return std::vector<OcrObservation>{Line("first line", {0, 0, 100, 20}),
                                       Line("second", {0, 30, 50, 50}),
                                       Line("third", {100, 80, 200, 100})};
  };
  auto result = service().recognizeTextWithLayout(Page());
  ASSERT_TRUE(result);
  EXPECT_EQ(result->text, "first line\nsecond\nthird");
  ASSERT_EQ(result->lines.size(), 3u);
  // Normalised, origin at the bottom left.
  EXPECT_TRUE(SameRect(result->lines[0].boundingBox, {0, 0.8, 0.5, 0.2}));
  EXPECT_TRUE(SameRect(result->lines[2].boundingBox, {0.5, 0, 0.5, 0.2}));
  EXPECT_FLOAT_EQ(result->lines[1].confidence, 0.9f);
  EXPECT_TRUE(engines_.requests().front().darkOnLight);  // prepared as dark ink on white
}

TEST_F(OCRServiceTest, NothingToReadIsAnEmptyResultNotAnError) {
  auto blank = service().recognizeTextWithLayout(testing::Page(300, 200));
  ASSERT_TRUE(blank);
  EXPECT_EQ(blank->text, "");
  EXPECT_TRUE(blank->lines.empty());
  auto dot = service().recognizeTextWithLayout(testing::Page(1, 1, 0));
  ASSERT_TRUE(dot);
  EXPECT_TRUE(dot->lines.empty());

  auto broken = service().recognizeTextWithLayout(
      klipora::testing::FakeImageCodec::makeImage(300, 200, "broken"));
  ASSERT_FALSE(broken);
  EXPECT_EQ(broken.error().kind, OCRError::Case::unreadableImage);
  EXPECT_EQ(broken.error().errorDescription(), "Could not load image for OCR.");
  EXPECT_FALSE(service().recognizeTextWithLayout(std::string("%PDF-1.4")));
}

TEST_F(OCRServiceTest, FastLevelStandsInWhenTheAccurateOneFails) {
  engines_.respond = [](const OcrRequest& r) -> Result<std::vector<OcrObservation>> {
    if (r.level == OcrLevel::accurate) return Err(Status::Internal("layout failed"));
    return std::vector<OcrObservation>{Line("sparse", {0, 0, 10, 10})};
  };
  auto result = service().recognizeTextWithLayout(Page());
  ASSERT_TRUE(result);
  EXPECT_EQ(result->text, "sparse");
  EXPECT_TRUE(log_.contains("[Klipora][Processing] ocr-fallback .fast lines=1"));
  EXPECT_EQ(engines_.loads().size(), 2u);  // the failed engine is not reused

  engines_.respond = [](const OcrRequest&) -> Result<std::vector<OcrObservation>> {
    return Err(Status::Internal("broken"));
  };
  auto failed = service().recognizeTextWithLayout(Page(1));
  ASSERT_FALSE(failed);
  EXPECT_EQ(failed.error().kind, OCRError::Case::recognizerUnavailable);
  EXPECT_EQ(failed.error().errorDescription(),
            "Text recognition isn't responding. Try again in a minute.");

  OCROptions fast;
  fast.fastOnly = true;
  auto fastOnly = service().recognizeTextWithLayout(Page(2), fast);
  EXPECT_EQ(countRequests(OcrLevel::accurate), 2u);  // the fast-only call asked for none
  EXPECT_FALSE(fastOnly);
}

TEST_F(OCRServiceTest, AMissingLanguageNamesThePackageToInstall) {
  config_.languages = {"deu"};
  auto result = service().recognizeTextWithLayout(Page());
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().kind, OCRError::Case::recognizerUnavailable);
  EXPECT_NE(result.error().detail.find("tesseract-ocr-deu"), std::string::npos);

  engines_.installed.insert("deu");
  service().setLanguages({"deu"});
  EXPECT_TRUE(service().recognizeTextWithLayout(Page(1)));
  EXPECT_EQ(engines_.loads().back(), std::vector<std::string>{"deu"});
}

TEST_F(OCRServiceTest, HangGuardAbandonsAnAccurateRecognitionThatRunsTooLong) {
  engines_.respond = [this](const OcrRequest& r) -> Result<std::vector<OcrObservation>> {
    if (r.level == OcrLevel::accurate) clock_.advance(600);
    return FakeOcrEngineFactory::defaultLines(r);
  };
  auto result = service().recognizeTextWithLayout(Page());
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().kind, OCRError::Case::accurateHangGuardTripped);
  EXPECT_EQ(result.error().errorDescription(), "Accurate text recognition hung.");
  EXPECT_EQ(countRequests(OcrLevel::fast), 0u);

  engines_.respond = nullptr;
  EXPECT_TRUE(service().recognizeTextWithLayout(Page(1)));
  EXPECT_EQ(engines_.loads().size(), 2u);  // the abandoned engine was dropped
}

TEST_F(OCRServiceTest, ARecogniserStuckWhereItNeverChecksIsLeftAndItsEngineReplaced) {
  config_.engineCount = 1;
  std::promise<void> entered, release, returned;
  std::shared_future<void> released = release.get_future().share();
  std::atomic<int> accurateCalls = 0;
  engines_.respond = [&, released](const OcrRequest& r) -> Result<std::vector<OcrObservation>> {
    if (r.level != OcrLevel::accurate || accurateCalls++ > 0) {
      return FakeOcrEngineFactory::defaultLines(r);
    }
    entered.set_value();
    released.wait();  // stuck, and never asking whether to stop
    auto lines = FakeOcrEngineFactory::defaultLines(r);
    returned.set_value();
    return lines;
  };
  OCRResultOrError result;
  std::thread caller([&] { result = service().recognizeTextWithLayout(Page()); });
  entered.get_future().wait();
  clock_.advance(600);
  caller.join();
  ASSERT_FALSE(result);
  EXPECT_EQ(result.error().kind, OCRError::Case::accurateHangGuardTripped);

  // The only engine is still stuck, yet the next screenshot is read at once.
  EXPECT_TRUE(service().recognizeTextWithLayout(Page(1)));
  EXPECT_EQ(engines_.loads().size(), 2u);
  release.set_value();
  returned.get_future().wait();
}

TEST_F(OCRServiceTest, AnEngineStillLoadingMakesOthersWaitThenGiveUp) {
  config_.engineCount = 1;
  std::promise<void> loading, release;
  std::shared_future<void> released = release.get_future().share();
  engines_.duringLoad = [&loading, released] {
    loading.set_value();
    released.wait();
  };
  std::thread first([this] { EXPECT_TRUE(service().recognizeTextWithLayout(Page(1))); });
  loading.get_future().wait();
  auto second = service().recognizeTextWithLayout(Page(2));
  release.set_value();
  first.join();
  ASSERT_FALSE(second);
  EXPECT_EQ(second.error().kind, OCRError::Case::recognizerStillLoading);
  EXPECT_EQ(second.error().errorDescription(),
            "Text recognition is still loading. Try again shortly.");
}

TEST_F(OCRServiceTest, AnIdenticalJobJoinsTheRunningOneInsteadOfRecognisingAgain) {
  std::promise<void> entered, release;
  std::shared_future<void> released = release.get_future().share();
  std::atomic<int> calls{0};
  engines_.respond = [&](const OcrRequest& r) -> Result<std::vector<OcrObservation>> {
    if (calls++ == 0) {
      entered.set_value();
      released.wait();
    }
    return FakeOcrEngineFactory::defaultLines(r);
  };
  const std::string image = klipora::testing::FakeImageCodec::makeImage(200, 100, "fill=40");
  OCRResultOrError a, b;
  std::thread first([&] { a = service().recognizeTextWithLayout(image); });
  entered.get_future().wait();
  std::thread second([&] { b = service().recognizeTextWithLayout(image); });
  while (service().blockingVision().jobsJoined() == 0) std::this_thread::yield();
  release.set_value();
  first.join();
  second.join();
  ASSERT_TRUE(a && b);
  EXPECT_EQ(a->text, b->text);
  EXPECT_EQ(calls.load(), 1);
  EXPECT_EQ(service().blockingVision().jobsRunning(), 0);
}

TEST_F(OCRServiceTest, CharacterBoxesMapEveryRangeOfALineToItsTightBox) {
  engines_.respond = [](const OcrRequest&) -> Result<std::vector<OcrObservation>> {
    OcrObservation line = Line("ab c", {0, 0, 40, 10});
    line.characters = {{"a", {0, 0, 10, 10}}, {"b", {10, 0, 20, 8}}, {"c", {30, 0, 40, 10}}};
    return std::vector<OcrObservation>{line};
  };
  OCROptions withBoxes;
  withBoxes.characterBoxes = true;
  auto result = service().recognizeTextWithLayout(Page(), withBoxes);
  ASSERT_TRUE(result);
  const OCRLine& line = result->lines.at(0);
  ASSERT_EQ(line.characterBoxes.size(), 3u);
  EXPECT_EQ(line.characterBoxes[2].offset, 3u);
  ASSERT_TRUE(line.boundingBoxOfRange(0, 2));
  EXPECT_TRUE(SameRect(*line.boundingBoxOfRange(0, 2), {0, 0.9, 0.1, 0.1}));
  EXPECT_EQ(line.boundingBoxOfRange(2, 3), std::nullopt);  // only the blank
  EXPECT_TRUE(engines_.requests().back().characterBoxes);

  auto plain = service().recognizeTextWithLayout(Page(1));
  EXPECT_TRUE(plain->lines.at(0).characterBoxes.empty());
  EXPECT_FALSE(engines_.requests().back().characterBoxes);
}

TEST_F(OCRServiceTest, TextTheLayoutLeftOutIsReadLineByLineAndPutInPlace) {
  PixelImage page = testing::Page(400, 100);
  OcrBox price = Word(page, 20, 40, 3);
  OcrBox cents = Word(page, 60, 40, 3);
  OcrBox footer = Word(page, 300, 80, 2);
  std::vector<std::vector<OcrBox>> asked;
  engines_.respond = [&](const OcrRequest& r) -> Result<std::vector<OcrObservation>> {
    if (r.level == OcrLevel::accurate) {
      return std::vector<OcrObservation>{Line(".29", {cents.left - 5, 40, cents.right, 52})};
    }
    asked.push_back(r.lines);
    std::vector<OcrObservation> found;
    for (const OcrBox& b : r.lines) {
      bool isPrice = b.left <= price.left;
      found.push_back(Line(isPrice ? "1" : "xx", b, isPrice ? 0.9f : 0.3f));
    }
    return found;
  };
  auto result = service().recognizeTextWithLayout(page);
  ASSERT_TRUE(result);
  EXPECT_EQ(result->text, "1.29");  // the unsure footer reading is dropped
  ASSERT_EQ(asked.size(), 1u);
  ASSERT_EQ(asked[0].size(), 2u);  // the price's integer part and the footer
  EXPECT_LE(asked[0][1].left, footer.left);
  EXPECT_GE(asked[0][1].bottom, footer.bottom);

  // Nothing left out: no second reading.
  engines_.respond = nullptr;
  ASSERT_TRUE(service().recognizeTextWithLayout(Page(3)));
  EXPECT_EQ(countRequests(OcrLevel::lines), 1u);
}

TEST_F(OCRServiceTest, WarmUpLoadsEveryEngineOnceAndSaysHowLongItTook) {
  service().warmUp();
  service().warmUp();
  EXPECT_EQ(log_.matching("ocr-warmup done ms=").size(), 1u);
  EXPECT_EQ(engines_.loads().size(), 2u);
  EXPECT_EQ(countRequests(OcrLevel::accurate), 2u);  // each engine read the image

  FakeOcrEngineFactory missing;
  missing.installed.clear();
  OCRService broken(missing, codec_, clock_, config_);
  broken.warmUp();
  EXPECT_TRUE(log_.contains("ocr-warmup FAILED ms=0"));
}

TEST_F(OCRServiceTest, KeepWarmTicksOneAtATimeAndJudgesHealthByDuration) {
  klipora::testing::ManualExecutor queue;
  service().startKeepWarm(300, clock_, queue);
  EXPECT_TRUE(service().keepWarmStarted());
  clock_.advance(300);
  clock_.advance(300);
  service().systemDidWake();
  EXPECT_EQ(queue.runAll(), 1u);  // later ticks skipped while one is in flight
  EXPECT_TRUE(log_.contains("ocr-keepwarm reloaded ms=0"));
  EXPECT_TRUE(service().keepWarmHealthy());

  engines_.respond = [this](const OcrRequest& r) -> Result<std::vector<OcrObservation>> {
    clock_.advance(2.5);
    return FakeOcrEngineFactory::defaultLines(r);
  };
  service().systemDidWake();
  queue.runAll();
  EXPECT_TRUE(log_.contains("ocr-keepwarm reloaded ms=2500"));
  EXPECT_FALSE(service().keepWarmHealthy());

  engines_.respond = [](const OcrRequest&) -> Result<std::vector<OcrObservation>> {
    return Err(Status::Internal("gone"));
  };
  service().systemDidWake();
  queue.runAll();
  EXPECT_TRUE(log_.contains("ocr-keepwarm FAILED ms=0"));
  EXPECT_FALSE(service().keepWarmHealthy());

  service().stopKeepWarm();
  clock_.advance(3000);
  EXPECT_EQ(queue.pending(), 0u);
}

}  // namespace
}  // namespace klipora::processing
