#include "app/daemon.h"

#include <nlohmann/json.hpp>

#include "app/app_test_fixture.h"
#include "app/daemon_paths.h"

namespace klipora::app {
namespace {

using library::ProcessingState;

class DaemonTest : public CoordinatorTest {
 protected:
  Daemon makeDaemon() {
    return Daemon(env(), context(), server_, {"/support/Klipora.store", 4242, "/run/user/7"},
                  services());
  }
  Json ask(const std::string& request) {
    server_.replies.clear();
    server_.deliver(request);
    runUntilIdle();
    EXPECT_EQ(server_.replies.size(), 1u) << request;
    return server_.replies.empty() ? Json() : Json::parse(server_.replies.back());
  }
  testing::FakeControlChannelServer server_;
};

TEST_F(DaemonTest, StatusCountsEveryItemOnce) {
  addItem(ProcessingState::complete);
  addItem(ProcessingState::complete);
  addItem(ProcessingState::failed);
  addItem(ProcessingState::ocrComplete, /*trashed=*/true);
  auto unknown = addItem(ProcessingState::complete);
  unknown->processingStateRaw = "fromANewerBuild";
  auto halfTrashed = addItem(ProcessingState::pending);
  halfTrashed->deletedAt = clock_.now();  // trashed by an older build: no deleted mark
  ASSERT_TRUE(context().save().ok());
  Daemon daemon = makeDaemon();
  ASSERT_TRUE(daemon.start().ok());

  Json items = ask(R"({"command":"status"})")["items"];
  EXPECT_EQ(items["total"], 6);
  EXPECT_EQ(items["live"], 4);
  EXPECT_EQ(items["trashed"], 2);
  EXPECT_EQ(items["states"]["complete"], 2);
  EXPECT_EQ(items["states"]["failed"], 1);
  EXPECT_EQ(items["states"]["pending"], 1);  // the state this build does not know
  EXPECT_EQ(items["states"]["ocrComplete"], 0);
  EXPECT_EQ(items["states"].size(), 8u);
}

TEST_F(DaemonTest, AnswersRequestsOnItsChannel) {
  auto item = addItem(ProcessingState::pending);
  addItem(ProcessingState::complete);
  Daemon daemon = makeDaemon();
  ASSERT_TRUE(daemon.start().ok());
  EXPECT_EQ(server_.address, controlSocketPath("/run/user/7", "/support/Klipora.store", ""));
  EXPECT_TRUE(server_.address.starts_with("/run/user/7/klipora/"));

  Json status = ask(R"({"command":"status"})");
  EXPECT_EQ(status["daemon"]["pid"], 4242);
  EXPECT_EQ(status["library"]["root"], kDefaultRoot);
  EXPECT_EQ(status["items"]["states"]["pending"], 1);
  EXPECT_EQ(status["items"]["states"]["complete"], 1);

  Json trashed = ask(R"({"command":"trash","ids":[")" + item->id.uuidString() + R"("]})");
  EXPECT_TRUE(trashed["ok"]);
  EXPECT_EQ(trashed["outcomes"][0]["outcome"], "done");
  EXPECT_EQ(queue_->removed, std::vector<UUID>{item->id});
  EXPECT_EQ(ask(R"({"command":"status"})")["items"]["trashed"], 1);

  EXPECT_EQ(ask("not json")["error"], "a request is a JSON object with a \"command\" string");
  EXPECT_EQ(ask(R"({"command":"trash","ids":["nope"]})")["error"], "\"nope\" is not an item id");
  EXPECT_EQ(ask(R"({"command":"scan","folders":["/nowhere"]})")["error"].get<std::string>().rfind(
                "/nowhere is not a watched folder", 0),
            0u);
  EXPECT_EQ(ask(R"({"command":"pending"})")["pending"], 0);
  EXPECT_EQ(ask(R"({"command":"fly"})")["error"], "unknown command: fly");
}

TEST_F(DaemonTest, NoticesWhatOtherProcessesSave) {
  auto item = addItem(ProcessingState::pending);
  Daemon daemon = makeDaemon();
  ASSERT_TRUE(daemon.start().ok());
  auto theirs = *other_->fetchByKey<library::ScreenshotItem>(item->id.uuidString());
  theirs->deleted = true;
  theirs->deletedAt = clock_.now();
  ASSERT_TRUE(other_->save().ok());
  EXPECT_TRUE(queue_->removed.empty());
  clock_.advance(Daemon::kStoreChangePollInterval);
  EXPECT_EQ(queue_->removed, std::vector<UUID>{item->id});
}

TEST_F(DaemonTest, StopFinishesImportsThenSavesAndCloses) {
  fs_.addFile("/in/a.png", testing::FakeImageCodec::makeImage(40, 30));
  fs_.addFile("/in/b.png", testing::FakeImageCodec::makeImage(50, 30));
  Daemon daemon = makeDaemon();
  ASSERT_TRUE(daemon.start().ok());
  server_.deliver(R"({"command":"import","paths":["/in/a.png","/in/b.png","/in/c.pdf"]})");
  std::optional<Status> saved;
  daemon.requestStop([&](Status s) { saved = s; });
  EXPECT_FALSE(saved);
  EXPECT_TRUE(server_.listening());

  runUntilIdle();
  ASSERT_TRUE(saved);
  EXPECT_TRUE(saved->ok());
  EXPECT_FALSE(server_.listening());
  EXPECT_EQ(*other_->fetchCount<library::ScreenshotItem>(), 2);
  Json reply = Json::parse(server_.replies.at(0));
  EXPECT_FALSE(reply["ok"]);
  EXPECT_EQ(reply["results"][2]["error"], "Unsupported file type: pdf");
  EXPECT_EQ(queue_->stops, 1);
}

TEST_F(DaemonTest, SecondStopRequestDoesNotWaitForImports) {
  fs_.addFile("/in/a.png", testing::FakeImageCodec::makeImage(40, 30));
  Daemon daemon = makeDaemon();
  ASSERT_TRUE(daemon.start().ok());
  server_.deliver(R"({"command":"import","paths":["/in/a.png"]})");
  int stopped = 0;
  daemon.requestStop([&](Status) { ++stopped; });
  EXPECT_EQ(stopped, 0);
  clock_.advance(Daemon::kShutdownGrace);  // the grace period ends it
  EXPECT_EQ(stopped, 1);
  EXPECT_TRUE(log_.contains("stopping now; 1 import(s) still in flight"));
}

TEST(DaemonPathsTest, HolderTextRoundTripsAndRejectsJunk) {
  auto holder = decodeDaemonHolder(encodeDaemonHolder({17, "/run/k.sock"}));
  ASSERT_TRUE(holder);
  EXPECT_EQ(holder->pid, 17);
  EXPECT_EQ(holder->socket, "/run/k.sock");
  EXPECT_FALSE(decodeDaemonHolder(""));
  EXPECT_FALSE(decodeDaemonHolder(R"({"pid":"x"})"));
  EXPECT_EQ(controlSocketPath("", "/s/Klipora.store", "/lib"), "/lib/klipora-daemon.sock");
  EXPECT_NE(controlSocketPath("/r", "/a/Klipora.store", "/lib"),
            controlSocketPath("/r", "/b/Klipora.store", "/lib"));
}

}  // namespace
}  // namespace klipora::app
