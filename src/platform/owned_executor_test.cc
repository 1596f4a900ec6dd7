#include "platform/owned_executor.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "platform/testing/manual_clock.h"

namespace klipora {
namespace {

TEST(OwnedExecutorTest, WorkNotStartedWhenClosedNeverRuns) {
  testing::ManualExecutor target;
  int ran = 0;
  {
    OwnedExecutor owned(target);
    owned.post([&] { ++ran; });
    EXPECT_EQ(target.runAll(), 1u);
    owned.post([&] { ++ran; });
    owned.post([&] { ++ran; });
  }  // closed with two items queued on the target
  target.runAll();
  EXPECT_EQ(ran, 1);
}

TEST(OwnedExecutorTest, CloseWaitsForTheWorkThatIsRunning) {
  struct Inline final : Executor {
    std::thread thread;
    void post(std::function<void()> work) override { thread = std::thread(std::move(work)); }
  } target;
  std::promise<void> started, release;
  auto releasedFuture = release.get_future().share();
  bool finished = false;
  OwnedExecutor owned(target);
  owned.post([&] {
    started.set_value();
    releasedFuture.wait();
    finished = true;
  });
  started.get_future().wait();
  auto closing = std::async(std::launch::async, [&] { owned.close(); });
  EXPECT_EQ(closing.wait_for(std::chrono::milliseconds(0)), std::future_status::timeout);
  release.set_value();
  closing.wait();
  EXPECT_TRUE(finished);
  target.thread.join();
}

}  // namespace
}  // namespace klipora
