// The user categories' service as the daemon runs it: corrections filed
// through the control channel are learned after their debounce on the
// daemon's own timers, and categories that arrived from elsewhere are
// repaired.
#include "app/custom_category_service.h"

#include <gtest/gtest.h>

#include <atomic>

#include "app/control_requests.h"
#include "intelligence/hashed_ngram_embedder.h"
#include "intelligence/semantic_custom_category_matcher.h"
#include "library/model_container.h"
#include "library/records.h"
#include "library/screenshot_item.h"
#include "platform/testing/log_capture.h"
#include "platform/testing/manual_clock.h"
#include "platform/testing/memory_file_system.h"
#include "platform/testing/temp_dir.h"

namespace klipora::app {
namespace {

using library::CustomCategory;
using library::ScreenshotItem;

// Files the screenshots whose text names a car.
class CarScorer final : public intelligence::CustomSortScorer {
 public:
  bool belongs(const UUID&, const ScreenshotItem& item) override {
    return item.ocrText && item.ocrText->find("car") != std::string::npos;
  }
};

// A model server that suggests the same terms for every category.
class SuggestingModel final : public intelligence::ModelArbiter {
 public:
  std::vector<std::string> suggestions;
  std::atomic<int> expansions = 0;

  bool isAvailable() override { return true; }
  void warmUp(bool) override {}
  std::optional<intelligence::BuiltinArbitration> arbitrate(
      const intelligence::ArbitrationInput&) override {
    return {};
  }
  std::optional<intelligence::CombinedArbitration> arbitrateAndMatchCustom(
      const intelligence::ArbitrationInput&,
      const std::vector<intelligence::CustomCategoryDescriptor>&) override {
    return {};
  }
  std::optional<std::string> cleanTitle(const std::string&) override { return {}; }
  std::vector<std::string> expandKeywords(const std::string&, const std::string&,
                                          const std::vector<std::string>&) override {
    ++expansions;
    return suggestions;
  }
};

class CustomCategoryServiceTest : public ::testing::Test {
 protected:
  CustomCategoryServiceTest() {
    container_ = *library::KliporaModelContainer::make(fs_, clock_, dir_.file("Klipora.store"));
    EXPECT_TRUE(fs_.createDirectories("/support").ok());
    center_.addObserver(notifications::kCustomCategoriesDidChange, [this] { ++changed_; });
    makeService(*model_, nullptr);
  }
  // As the daemon makes it: repairs on `background`.
  void makeService(intelligence::ModelArbiter& model, Executor* background) {
    service_ = std::make_unique<CustomCategoryService>(
        CustomCategoryServiceDeps{.context = context(),
                                  .clock = clock_,
                                  .timers = clock_,
                                  .mainLoop = main_,
                                  .background = background,
                                  .userDefaults = defaults_,
                                  .lexicon = nullptr,
                                  .embedder = *embedder_,
                                  .model = model,
                                  .scorer = scorer_,
                                  .notifications = &center_});
  }
  library::ModelContext& context() { return container_->mainContext(); }
  std::shared_ptr<CustomCategory> category(const std::string& name,
                                           std::vector<std::string> keywords,
                                           const std::string& description = "") {
    auto c = std::make_shared<CustomCategory>();
    c->name = name;
    c->categoryDescription = description;
    c->setKeywords(keywords);
    context().insert(c);
    EXPECT_TRUE(context().save().ok());
    return c;
  }
  UUID item(const std::string& text, std::optional<UUID> filed = std::nullopt) {
    auto i = std::make_shared<ScreenshotItem>();
    i->ocrText = text;
    i->customCategoryID = filed;
    i->importedAt = clock_.now();
    context().insert(i);
    EXPECT_TRUE(context().save().ok());
    return i->id;
  }
  std::shared_ptr<CustomCategory> fetch(const UUID& id) {
    return *context().fetchByKey<CustomCategory>(id.uuidString());
  }
  Json request(Json r) {
    ControlRequestHandler handler(RequestTarget{.context = context(),
                                                .markupEdits = noEdits_,
                                                .clock = clock_,
                                                .timers = clock_,
                                                .userDefaults = defaults_,
                                                .coordinator = nullptr,
                                                .storage = nullptr,
                                                .storePath = "",
                                                .libraryRoot = "",
                                                .fallbackNotice = std::nullopt,
                                                .daemonPid = std::nullopt,
                                                .customCategories = service_.get()});
    Json reply;
    handler.handle(r, [&](Json answer) { reply = std::move(answer); });
    return reply;
  }

  testing::TempDir dir_;
  testing::ManualClock clock_;
  testing::ManualExecutor main_;
  testing::ManualExecutor background_;
  testing::MemoryFileSystem fs_;
  UserDefaults defaults_{fs_, "/support/defaults.json"};
  std::shared_ptr<library::ModelContainer> container_;
  NotificationCenter center_{main_};
  int changed_ = 0;
  library::NoMarkupEdits noEdits_;
  std::unique_ptr<TextEmbedder> embedder_ = intelligence::makeHashedNgramEmbedder();
  std::unique_ptr<intelligence::ModelArbiter> model_ = intelligence::makeUnavailableModelArbiter();
  CarScorer scorer_;
  std::unique_ptr<CustomCategoryService> service_;
  testing::ScopedLogCapture log_;
};

TEST_F(CustomCategoryServiceTest, FilingThroughTheChannelLearnsAfterTheDebounce) {
  auto cars = category("Cars", {"car", "dealer"});
  auto listing = item("Dealer listing: red sedan", cars->id);
  auto other = item("Car wash coupon");
  auto trashed = item("Car rental receipt");
  {
    auto t = *context().fetchByKey<ScreenshotItem>(trashed.uuidString());
    t->deletedAt = clock_.now();
    ASSERT_TRUE(context().save().ok());
  }

  auto reply = request({{"command", "file-category"},
                        {"category", nullptr},
                        {"ids", {listing.uuidString(), trashed.uuidString(), "junk"}}});
  ASSERT_EQ(reply["ok"], true) << reply.dump();
  EXPECT_EQ(reply["moved"], Json::array({listing.uuidString()}));
  EXPECT_EQ(reply["unknown"], Json::array({trashed.uuidString(), "junk"}));
  EXPECT_FALSE((*context().fetchByKey<ScreenshotItem>(listing.uuidString()))->customCategoryID);
  reply = request({{"command", "file-category"},
                   {"category", cars->id.uuidString()},
                   {"ids", {other.uuidString()}}});
  ASSERT_EQ(reply["ok"], true) << reply.dump();

  // Nothing is learned until the corrections have settled.
  clock_.advance(intelligence::CustomCategoryLearner::kDebounceSeconds - 0.5);
  EXPECT_TRUE(service_->learner().hasPending(cars->id));
  EXPECT_TRUE(defaults_.stringListForKey(intelligence::antiExemplarKey(cars->id)).empty());
  main_.runAll();
  changed_ = 0;
  clock_.advance(1);
  EXPECT_FALSE(service_->learner().hasPending(cars->id));
  EXPECT_EQ(defaults_.stringListForKey(intelligence::antiExemplarKey(cars->id)),
            std::vector<std::string>{"Dealer listing: red sedan"});
  EXPECT_TRUE(log_.contains("learn OK cat=\"Cars\" members=1 antiExemplars=1"));
  EXPECT_TRUE(fetch(cars->id)->embeddingData.has_value());
  main_.runAll();
  EXPECT_EQ(changed_, 1);  // the queue's matcher reads the new centroid

  EXPECT_EQ(request({{"command", "file-category"}, {"category", "nope"}, {"ids", Json::array()}})
                ["error"],
            "\"nope\" is not a category id");
  EXPECT_EQ(request({{"command", "file-category"},
                     {"category", UUID::Random().uuidString()},
                     {"ids", Json::array()}})["ok"],
            false);
  EXPECT_EQ(request({{"command", "file-category"}, {"category", nullptr}})["ok"], false);
}

TEST_F(CustomCategoryServiceTest, SortingThroughTheChannelWalksOnTheMainLoop) {
  auto cars = category("Cars", {"car"});
  for (int i = 0; i < 3; ++i) item("used car " + std::to_string(i));
  item("meeting notes");
  const Json ask = {{"command", "category-sorting"}, {"category", cars->id.uuidString()}};
  EXPECT_EQ(request(ask)["result"], nullptr);

  auto reply = request({{"command", "apply-category"}, {"category", cars->id.uuidString()}});
  ASSERT_EQ(reply["ok"], true) << reply.dump();
  // It has started and waits for its turn of the loop.
  reply = request(ask);
  EXPECT_EQ(reply["running"], true);
  EXPECT_EQ(reply["total"], 4);
  EXPECT_EQ(reply["examined"], 0);
  main_.runAll();
  reply = request(ask);
  EXPECT_EQ(reply["running"], false);
  EXPECT_EQ(reply["examined"], 4);
  EXPECT_EQ(reply["assigned"], 3);
  EXPECT_EQ(reply["result"], (Json{{"assigned", 3}, {"cancelled", false}}));
  EXPECT_EQ(*service_->catalog().itemCount(cars->id), 3);

  // A second start ends the run under way; the newer one finds nothing left.
  item("car dealer");
  ASSERT_EQ(request({{"command", "apply-category"}, {"category", cars->id.uuidString()}})["ok"],
            true);
  ASSERT_EQ(request({{"command", "apply-category"}, {"category", cars->id.uuidString()}})["ok"],
            true);
  main_.runAll();
  EXPECT_EQ(log_.matching("custom-sort CANCELLED").size(), 1u);
  EXPECT_EQ(request(ask)["running"], false);
  EXPECT_EQ(*service_->catalog().itemCount(cars->id), 4);

  EXPECT_EQ(request({{"command", "apply-category"}, {"category", UUID::Random().uuidString()}})
                ["ok"],
            false);
  EXPECT_EQ(request({{"command", "apply-category"}})["ok"], false);
}

TEST_F(CustomCategoryServiceTest, CategoriesFromElsewhereGetTheirKeywordsAndCentroid) {
  auto imported = category("Receipts", {"receipt", "invoice"});
  auto bare = category("Travel", {}, "boarding passes and hotel bookings");
  auto nameOnly = category("Gardening", {});
  ASSERT_EQ(service_->healArrivedCategories(), 3);
  EXPECT_TRUE(log_.contains("synced keywords but no local centroid — computing"));
  EXPECT_TRUE(log_.contains("synced with no keywords — rebuilding from description"));
  EXPECT_EQ(fetch(imported->id)->keywords(), (std::vector<std::string>{"receipt", "invoice"}));
  EXPECT_TRUE(fetch(imported->id)->embeddingData.has_value());
  EXPECT_EQ(fetch(bare->id)->keywords(),
            (std::vector<std::string>{"boarding", "passes", "hotel", "bookings"}));
  EXPECT_TRUE(fetch(bare->id)->embeddingData.has_value());
  EXPECT_EQ(fetch(nameOnly->id)->keywords(), std::vector<std::string>{"gardening"});
  main_.runAll();
  EXPECT_GE(changed_, 1);

  // Whole categories are left alone.
  const auto centroid = *fetch(imported->id)->embeddingData;
  EXPECT_EQ(service_->healArrivedCategories(), 0);
  EXPECT_EQ(*fetch(imported->id)->embeddingData, centroid);
}

TEST_F(CustomCategoryServiceTest, TheDaemonRepairsWithoutWaitingForTheModel) {
  SuggestingModel model;
  model.suggestions = {"flight", "itinerary"};
  makeService(model, &background_);
  auto bare = category("Travel", {}, "boarding passes and hotel bookings");
  auto imported = category("Receipts", {"receipt", "invoice"});
  auto redescribed = category("Music", {}, "concert tickets");
  EXPECT_EQ(service_->healArrivedCategories(), 3);
  // The caller goes on at once: nothing asked of the model, nothing stored.
  EXPECT_EQ(model.expansions, 0);
  EXPECT_FALSE(fetch(bare->id)->embeddingData.has_value());
  EXPECT_EQ(service_->healsInFlight(), 3u);
  // Another notice while they run starts none of them again.
  EXPECT_EQ(service_->healArrivedCategories(), 0);
  {
    auto music = fetch(redescribed->id);
    music->categoryDescription = "vinyl records";
    ASSERT_TRUE(context().save().ok());
  }

  background_.runAll();
  EXPECT_EQ(model.expansions, 2);  // the two rebuilt from their rule
  EXPECT_FALSE(fetch(bare->id)->embeddingData.has_value());  // stored on the main loop
  changed_ = 0;
  main_.runAll();
  EXPECT_EQ(service_->healsInFlight(), 0u);
  EXPECT_EQ(fetch(bare->id)->keywords(), (std::vector<std::string>{
                                             "boarding", "passes", "hotel", "bookings", "flight",
                                             "itinerary"}));
  EXPECT_TRUE(fetch(bare->id)->embeddingData.has_value());
  EXPECT_EQ(fetch(imported->id)->keywords(), (std::vector<std::string>{"receipt", "invoice"}));
  EXPECT_TRUE(fetch(imported->id)->embeddingData.has_value());
  EXPECT_GE(changed_, 1);
  // Described anew while its repair ran: the old rule's keywords are dropped
  // and the next notice repairs it by the new one.
  EXPECT_TRUE(log_.contains("kw-build STALE cat=\"Music\""));
  EXPECT_FALSE(fetch(redescribed->id)->embeddingData.has_value());
  EXPECT_EQ(service_->healArrivedCategories(), 1);
  background_.runAll();
  main_.runAll();
  EXPECT_EQ(fetch(redescribed->id)->keywords(),
            (std::vector<std::string>{"vinyl", "records", "flight", "itinerary"}));

  // A repair that ends after the service has gone stores nothing.
  auto late = category("Late", {}, "late arrivals");
  EXPECT_EQ(service_->healArrivedCategories(), 1);
  background_.runAll();
  service_.reset();
  main_.runAll();
  EXPECT_FALSE(fetch(late->id)->embeddingData.has_value());
}

}  // namespace
}  // namespace klipora::app
