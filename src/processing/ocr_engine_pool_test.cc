#include "processing/ocr_engine_pool.h"

#include <gtest/gtest.h>

#include "platform/testing/fake_ocr_engine.h"
#include "platform/testing/log_capture.h"

namespace klipora::processing {
namespace {

class OCREnginePoolTest : public ::testing::Test {
 protected:
  klipora::testing::FakeOcrEngineFactory engines_;
  OCREnginePool pool_{engines_, {"eng"}, 2};
};

TEST_F(OCREnginePoolTest, EnginesAreLoadedOnNeedKeptAndLentOneThreadAtATime) {
  EXPECT_FALSE(pool_.tryAcquireIdle());  // nothing loaded yet
  {
    auto a = pool_.acquire(0);
    auto b = pool_.acquire(0);
    ASSERT_TRUE(a && b);
    auto c = pool_.acquire(0);  // both lent: no third engine
    ASSERT_FALSE(c);
    EXPECT_FALSE(c.error().stillLoading);
    EXPECT_EQ(pool_.loadedCount(), 2);
  }
  auto again = pool_.acquire(0);
  ASSERT_TRUE(again);
  EXPECT_EQ(pool_.loadsStarted(), 2);  // given back and reused
  again->discard();
  again = decltype(again)();  // a discarded engine is dropped, not kept
  EXPECT_EQ(pool_.loadedCount(), 1);
  auto x = pool_.acquire(0), y = pool_.acquire(0);
  ASSERT_TRUE(x && y);
  EXPECT_EQ(pool_.loadsStarted(), 3);
}

TEST_F(OCREnginePoolTest, NewLanguagesReplaceEnginesAsTheyComeBack) {
  ASSERT_TRUE(pool_.preload(5).ok());
  EXPECT_EQ(pool_.loadedCount(), 2);  // never beyond capacity
  auto lent = pool_.acquire(0);
  engines_.installed.insert("deu");
  pool_.setLanguages({"deu"});
  EXPECT_EQ(pool_.loadedCount(), 1);  // the idle one went at once
  lent = pool_.acquire(0);            // the lent one goes when given back
  EXPECT_EQ(engines_.loads().back(), std::vector<std::string>{"deu"});
  EXPECT_EQ(pool_.loadedCount(), 1);

  pool_.setLanguages({"fra"});
  lent = decltype(lent)();
  auto failed = pool_.acquire(0);
  ASSERT_FALSE(failed);
  EXPECT_EQ(failed.error().status.code(), Status::Code::kNotFound);
  EXPECT_FALSE(pool_.preload(1).ok());
}

TEST_F(OCREnginePoolTest, AVanishedLanguageIsLeftOutWithOneWarning) {
  klipora::testing::ScopedLogCapture log;
  engines_.installed = {"eng", "chi_sim", "jpn"};
  pool_.setLanguages({"eng", "chi_sim", "jpn"});
  ASSERT_TRUE(pool_.preload(1).ok());
  engines_.installed = {"eng", "jpn"};  // chi_sim's package was removed
  auto a = pool_.acquire(0), b = pool_.acquire(0);
  ASSERT_TRUE(a && b);
  EXPECT_EQ(engines_.loads().back(), (std::vector<std::string>{"eng", "jpn"}));
  b->discard();
  b = decltype(b)();
  ASSERT_TRUE(pool_.acquire(0));  // a third load: no second warning
  auto warnings = log.matching("reading with eng+jpn meanwhile");
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_NE(warnings[0].find("tesseract-ocr-chi_sim"), std::string::npos) << warnings[0];

  a = decltype(a)();
  engines_.installed = {"deu"};  // none of them left: a failure, as before
  pool_.setLanguages({"eng", "jpn"});
  EXPECT_FALSE(pool_.preload(1).ok());
}

}  // namespace
}  // namespace klipora::processing
