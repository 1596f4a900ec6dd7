// User categories: keywords and centroid from a description, the model's
// enrichment and the staleness check, the records' life, the matcher's
// thresholds on example screens, and sorting existing screenshots.
#include <gtest/gtest.h>

#include <functional>

#include "intelligence/custom_category_catalog.h"
#include "intelligence/custom_category_learner.h"
#include "intelligence/custom_category_sorter.h"
#include "intelligence/hashed_ngram_embedder.h"
#include "intelligence/semantic_custom_category_matcher.h"
#include "library/model_container.h"
#include "library/screenshot_item.h"
#include "platform/testing/log_capture.h"
#include "platform/testing/manual_clock.h"
#include "platform/testing/map_lexicon.h"
#include "platform/testing/memory_file_system.h"

namespace klipora::intelligence {
namespace {

using library::CustomCategory;
using library::ScreenshotItem;

// A model that suggests what the test says, and may act while it "thinks".
class ScriptedModel final : public ModelArbiter {
 public:
  bool available = true;
  std::vector<std::string> suggestions;
  std::function<void()> whileThinking;
  int expansions = 0;

  bool isAvailable() override { return available; }
  void warmUp(bool) override {}
  std::optional<BuiltinArbitration> arbitrate(const ArbitrationInput&) override { return {}; }
  std::optional<CombinedArbitration> arbitrateAndMatchCustom(
      const ArbitrationInput&, const std::vector<CustomCategoryDescriptor>&) override {
    return {};
  }
  std::optional<std::string> cleanTitle(const std::string&) override { return {}; }
  std::vector<std::string> expandKeywords(const std::string&, const std::string&,
                                          const std::vector<std::string>&) override {
    ++expansions;
    if (whileThinking) whileThinking();
    return suggestions;
  }
};

class CustomCategoriesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto db = library::Database::open(":memory:");
    ASSERT_TRUE(db && library::migrateToCurrentSchema(**db).ok());
    context_ = std::make_unique<library::ModelContext>(std::move(*db));
    catalog_ = std::make_unique<CustomCategoryCatalog>(*context_, clock_, builder_, &center_);
    center_.addObserver(notifications::kCustomCategoriesDidChange,
                        [this] { ++categoriesChanged_; });
    center_.addObserver(notifications::kUserCategoryDidChange, [this] { ++filingsChanged_; });
  }

  std::shared_ptr<ScreenshotItem> Item(const std::string& text,
                                       std::optional<UUID> filed = std::nullopt) {
    auto item = std::make_shared<ScreenshotItem>();
    item->ocrText = text;
    item->customCategoryID = filed;
    item->importedAt = clock_.now().addingTimeInterval(double(++imported_));
    context_->insert(item);
    EXPECT_TRUE(context_->save().ok());
    return item;
  }

  std::shared_ptr<CustomCategory> Fetch(const UUID& id) {
    return *context_->fetchByKey<CustomCategory>(id.uuidString());
  }

  testing::ManualClock clock_;
  testing::MemoryFileSystem fs_;
  testing::ManualExecutor main_;
  NotificationCenter center_{main_};
  testing::MapLexicon lexicon_{{{"photos", "photo"}, {"car", "car"}, {"cars", "car"},
                                {"dealer", "dealer"}, {"listings", "listing"},
                                {"recipes", "recipe"}, {"vegetarian", "vegetarian"},
                                {"dinner", "dinner"}, {"screenshots", "screenshot"},
                                {"things", "thing"}, {"ox", "ox"}}};
  std::unique_ptr<TextEmbedder> embedder_ = makeHashedNgramEmbedder();
  ScriptedModel model_;
  CustomCategoryKeywordBuilder builder_{lexicon_, *embedder_, model_};
  std::unique_ptr<library::ModelContext> context_;
  std::unique_ptr<CustomCategoryCatalog> catalog_;
  testing::ScopedLogCapture log_;
  int categoriesChanged_ = 0;
  int filingsChanged_ = 0;
  int imported_ = 0;
};

TEST_F(CustomCategoriesTest, KeywordsAreTheDescriptionsNounsAndAdjectives) {
  EXPECT_EQ(kKeywordStopWords.size(), 49u);
  EXPECT_EQ(builder_.extract("photos of my car and car dealer listings"),
            (std::vector<std::string>{"car", "dealer", "listing"}));
  EXPECT_EQ(builder_.sanitizedText("Screenshots of things, like vegetarian recipes for dinner"),
            "vegetarian, recipe, dinner");
  // Shorter than three characters goes.
  EXPECT_TRUE(builder_.extract("ox").empty());
  // A language the lexicon does not know keeps its words.
  EXPECT_EQ(builder_.extract("Fotos von meinem Auto und Händlern"),
            (std::vector<std::string>{"fotos", "von", "meinem", "auto", "und", "händlern"}));
  EXPECT_EQ(CustomCategoryKeywordBuilder::sanitize({"  Car ", "car", "the", "ab", "IMAGES", "Ünïcode"}),
            (std::vector<std::string>{"car", "ünïcode"}));
}

TEST_F(CustomCategoriesTest, CentroidIsTheMeanOfTheTermsOrTheWholeText) {
  auto centroid = builder_.computeCentroid({"car", "dealer"}, "ignored");
  ASSERT_TRUE(centroid);
  auto car = embedder_->embed("car");
  auto dealer = embedder_->embed("dealer");
  EXPECT_NEAR(cosineSimilarity(*centroid, car), cosineSimilarity(*centroid, dealer), 1e-6);
  double norm = 0;
  for (float v : *centroid) norm += double(v) * v;
  EXPECT_NEAR(norm, 1.0, 1e-5);
  EXPECT_EQ(builder_.computeCentroid({}, "car dealer"), embedder_->embed("car dealer"));
  EXPECT_FALSE(builder_.computeCentroid({}, ""));
  EXPECT_EQ(decodeCentroid(encodeCentroid(*centroid)), *centroid);
}

TEST_F(CustomCategoriesTest, AddStoresKeywordsThenTheModelsEnrichment) {
  model_.suggestions = {"Sedan", "dealer", "photo", "hatchback", "x"};
  auto cars = catalog_->create("Cars", "photos of my car and car dealer listings");
  ASSERT_TRUE(cars) << cars.error().message();
  auto stored = Fetch((*cars)->id);
  EXPECT_EQ(stored->keywords(),
            (std::vector<std::string>{"car", "dealer", "listing", "sedan", "hatchback"}));
  ASSERT_TRUE(stored->embeddingData);
  EXPECT_EQ(decodeCentroid(*stored->embeddingData).size(), embedder_->embed("car").size());
  EXPECT_TRUE(log_.contains("[CLASSIFY] kw-build OK cat=\"Cars\" count=3 centroid=YES"));
  EXPECT_TRUE(log_.contains("[CLASSIFY] kw-enrich OK cat=\"Cars\" count=5"));
  main_.runAll();
  EXPECT_EQ(categoriesChanged_, 2);

  // Without a model the base set stays.
  model_.available = false;
  auto food = catalog_->create("Food", "vegetarian recipes");
  ASSERT_TRUE(food);
  EXPECT_EQ(Fetch((*food)->id)->keywords(), (std::vector<std::string>{"vegetarian", "recipe"}));
  EXPECT_TRUE(log_.contains("[CLASSIFY] kw-enrich SKIP cat=\"Food\" (no AI expansion — keeping "
                            "base count=2)"));

  // An empty description is read from the name.
  auto empty = catalog_->create("Recipes", "");
  ASSERT_TRUE(empty);
  EXPECT_EQ(Fetch((*empty)->id)->keywords(), (std::vector<std::string>{"recipe"}));
}

TEST_F(CustomCategoriesTest, AChangedDescriptionMakesTheEnrichmentStale) {
  model_.suggestions = {"sedan"};
  auto cars = catalog_->create("Cars", "car dealer");
  ASSERT_TRUE(cars);
  // While the model answers, the user changes the rule again.
  model_.whileThinking = [&] {
    model_.whileThinking = nullptr;
    Fetch((*cars)->id)->categoryDescription = "vegetarian dinner";
    ASSERT_TRUE(context_->save().ok());
  };
  ASSERT_TRUE(builder_.buildAndEnrich((*cars)->id, "car listings", *context_).ok());
  EXPECT_TRUE(log_.contains("[CLASSIFY] kw-build STALE cat=\"Cars\" (desc changed or deleted — "
                            "skipped)") ||
              log_.contains("[CLASSIFY] kw-enrich STALE cat=\"Cars\""));
  // Rebuilding for a deleted category writes nothing.
  ASSERT_TRUE(catalog_->remove((*cars)->id));
  EXPECT_TRUE(builder_.buildAndEnrich((*cars)->id, "car", *context_).ok());
}

TEST_F(CustomCategoriesTest, HealsCategoriesThatArriveBySync) {
  model_.available = false;
  auto synced = std::make_shared<CustomCategory>();
  synced->name = "Cars";
  synced->categoryDescription = "car dealer";
  synced->setKeywords({"car", "dealer"});
  context_->insert(synced);
  auto bare = std::make_shared<CustomCategory>();
  bare->name = "Food";
  bare->categoryDescription = "vegetarian recipes";
  context_->insert(bare);
  ASSERT_TRUE(context_->save().ok());
  ASSERT_TRUE(builder_.healAfterSync(synced->id, *context_).ok());
  EXPECT_TRUE(Fetch(synced->id)->embeddingData);
  EXPECT_TRUE(log_.contains("synced keywords but no local centroid — computing"));
  ASSERT_TRUE(builder_.healAfterSync(bare->id, *context_).ok());
  EXPECT_EQ(Fetch(bare->id)->keywords(), (std::vector<std::string>{"vegetarian", "recipe"}));
  EXPECT_TRUE(log_.contains("synced with no keywords — rebuilding from description"));
}

TEST_F(CustomCategoriesTest, RenameDescribeAndDelete) {
  model_.available = false;
  auto cars = catalog_->create("Cars", "car dealer");
  ASSERT_TRUE(cars);
  EXPECT_EQ(catalog_->create(" cars ", "x").error().code(), Status::Code::kAlreadyExists);
  EXPECT_EQ(catalog_->create("  ", "x").error().code(), Status::Code::kInvalidArgument);
  ASSERT_TRUE(catalog_->rename((*cars)->id, "Vehicles").ok());
  EXPECT_EQ((*catalog_->find("vehicles"))->id, (*cars)->id);
  ASSERT_TRUE(catalog_->changeDescription((*cars)->id, "vegetarian dinner").ok());
  EXPECT_EQ(Fetch((*cars)->id)->keywords(), (std::vector<std::string>{"vegetarian", "dinner"}));

  auto filed = Item("my sedan", (*cars)->id);
  auto other = Item("something else");
  main_.runAll();
  categoriesChanged_ = filingsChanged_ = 0;
  auto unfiled = catalog_->remove((*cars)->id);
  ASSERT_TRUE(unfiled);
  EXPECT_EQ(*unfiled, 1);
  EXPECT_FALSE((*context_->fetchByKey<ScreenshotItem>(filed->id.uuidString()))->customCategoryID);
  EXPECT_FALSE(Fetch((*cars)->id));
  main_.runAll();
  EXPECT_EQ(categoriesChanged_, 1);
  EXPECT_EQ(filingsChanged_, 1);
  EXPECT_EQ(catalog_->find("Vehicles").error().code(), Status::Code::kNotFound);
}

// The thresholds, on screens a user would file and screens they would not.
TEST_F(CustomCategoriesTest, MatcherFilesLikelyScreensAndLeavesOthers) {
  model_.available = false;
  auto cars = *catalog_->create("Cars", "photos of my car and car dealer listings");
  auto food = *catalog_->create("Food", "vegetarian recipes for dinner");
  SemanticCustomCategoryMatcher matcher(*context_, *embedder_, nullptr);
  auto verdict = [&](const std::string& text) -> std::optional<UUID> {
    auto match = matcher.match({.ocrText = text, .classificationLabels = {}, .featurePrint = {}});
    return match ? std::optional<UUID>(match->id) : std::nullopt;
  };
  ASSERT_EQ(matcher.categories().size(), 2u);
  EXPECT_EQ(verdict("Used Cars for Sale - Main Street Dealer\n2019 Honda Civic 42,000 miles "
                    "$17,900\nContact dealer"),
            cars->id);
  EXPECT_EQ(verdict("Listing #4411: blue car, one owner, dealer warranty"), cars->id);
  EXPECT_EQ(verdict("Easy Vegetarian Dinner Recipes\nChickpea curry 30 min\nIngredients"),
            food->id);
  EXPECT_FALSE(verdict("error[E0308]: mismatched types\n --> src/main.rs:4:5"));
  EXPECT_FALSE(verdict("Inbox (3) Re: quarterly report draft attached"));
  EXPECT_FALSE(verdict("Settings > Bluetooth > Devices: Keyboard connected"));
  EXPECT_FALSE(verdict("Careers at Carrefour: apply for a cashier position in your area today"));
  EXPECT_FALSE(verdict("The quiet return of the night train. Across the continent, sleeper "
                       "services that were written off a decade ago are filling up again."));
  // One stray keyword in an unrelated screen is not enough.
  EXPECT_FALSE(verdict("git commit -m 'fix car parser' && cargo test --release -- --nocapture "
                       "running 48 tests test result: ok"));
  // An image label can carry a screen that has no text about it.
  auto labelled = matcher.match(
      {.ocrText = "", .classificationLabels = {{"car", 0.9f}}, .featurePrint = {}});
  ASSERT_TRUE(labelled);
  EXPECT_EQ(labelled->id, cars->id);

  // The user took such a screen out once: look-alikes stay out.
  UserDefaults defaults(fs_, "/defaults.json");
  ASSERT_TRUE(defaults.setStringList(antiExemplarKey(cars->id),
                                     {"Listing #4411: blue car, one owner, dealer warranty"})
                  .ok());
  SemanticCustomCategoryMatcher learned(*context_, *embedder_, &defaults);
  learned.reload();
  auto again = learned.match({.ocrText = "Listing #4412: blue car, one owner, dealer warranty",
                              .classificationLabels = {},
                              .featurePrint = {}});
  EXPECT_FALSE(again && again->id == cars->id);
}

class ListScorer final : public CustomSortScorer {
 public:
  std::function<bool(const ScreenshotItem&)> decide;
  bool belongs(const UUID&, const ScreenshotItem& item) override { return decide(item); }
};

TEST_F(CustomCategoriesTest, SorterFilesExistingScreenshotsWithProgress) {
  model_.available = false;
  auto cars = *catalog_->create("Cars", "car dealer");
  auto food = *catalog_->create("Food", "vegetarian");
  for (int i = 0; i < 5; ++i) Item("car " + std::to_string(i));
  for (int i = 0; i < 4; ++i) Item("other " + std::to_string(i));
  auto elsewhere = Item("car filed as food", food->id);
  ListScorer scorer;
  scorer.decide = [](const ScreenshotItem& item) { return item.ocrText->starts_with("car"); };
  CustomCategorySorter sorter(*context_, clock_, scorer, /*batchSize=*/4);
  std::vector<std::pair<int64_t, int64_t>> progress;
  auto result = sorter.sort(cars->id, [&](const CustomSortProgress& p) {
    progress.emplace_back(p.examined, p.assigned);
    EXPECT_TRUE(sorter.isSorting(cars->id));
  });
  ASSERT_TRUE(result) << result.error().message();
  EXPECT_EQ(result->assigned, 5);
  EXPECT_FALSE(result->cancelled);
  EXPECT_EQ(progress, (std::vector<std::pair<int64_t, int64_t>>{{4, 4}, {8, 5}, {9, 5}}));
  EXPECT_FALSE(sorter.isSorting(cars->id));
  EXPECT_EQ(*catalog_->itemCount(cars->id), 5);
  // What the user filed elsewhere stays there.
  EXPECT_EQ((*context_->fetchByKey<ScreenshotItem>(elsewhere->id.uuidString()))->customCategoryID,
            food->id);

  // A new run (here: cancel) ends the one under way after its batch.
  for (int i = 0; i < 6; ++i) Item("car again " + std::to_string(i));
  result = sorter.sort(food->id, [&](const CustomSortProgress&) { sorter.cancel(food->id); });
  ASSERT_TRUE(result);
  EXPECT_TRUE(result->cancelled);
  EXPECT_EQ(sorter.state().lastResult->cancelled, true);
}

TEST_F(CustomCategoriesTest, LearnerDebouncesCorrectionsAndKeepsAntiExemplars) {
  model_.available = false;
  auto cars = *catalog_->create("Cars", "car dealer");
  Item("Dealer listing: red sedan", cars->id);
  const auto before = *Fetch(cars->id)->embeddingData;
  ASSERT_TRUE(fs_.createDirectories("/support").ok());
  UserDefaults defaults(fs_, "/support/defaults.json");
  CustomCategoryLearner learner(*context_, clock_, *embedder_, defaults);
  learner.addAntiExemplar("car wash coupon", cars->id);
  clock_.advance(2);
  learner.addAntiExemplar("car insurance invoice", cars->id);
  clock_.advance(2);
  EXPECT_TRUE(learner.hasPending(cars->id));  // the second correction restarted the wait
  clock_.advance(1.5);
  EXPECT_FALSE(learner.hasPending(cars->id));
  EXPECT_EQ(log_.matching("learn OK").size(), 1u);
  EXPECT_TRUE(log_.contains("[CLASSIFY] learn OK cat=\"Cars\" members=1 antiExemplars=2 "
                            "(centroid recomputed, exemplars preserved)"));
  EXPECT_EQ(defaults.stringListForKey(antiExemplarKey(cars->id)),
            (std::vector<std::string>{"car insurance invoice", "car wash coupon"}));
  EXPECT_NE(*Fetch(cars->id)->embeddingData, before);

  // A run that cannot save is retried, then given up.
  fs_.setReadOnlyDirectory("/support", true);
  learner.addAntiExemplar("car rental", cars->id);
  for (int i = 0; i < CustomCategoryLearner::kMaxAttempts; ++i) clock_.advance(3.1);
  EXPECT_EQ(log_.matching("learn RETRY").size(), 2u);
  EXPECT_TRUE(log_.contains("learn GAVE UP"));
  EXPECT_FALSE(learner.hasPending(cars->id));
}

}  // namespace
}  // namespace klipora::intelligence
