#include "intelligence/library_deduplicator.h"

#include <gtest/gtest.h>

#include "library/model_container.h"
#include "library/records.h"

namespace klipora::intelligence {
namespace {

using library::ScreenshotItem;

class DeduplicatorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto db = library::Database::open(":memory:");
    ASSERT_TRUE(db && library::migrateToCurrentSchema(**db).ok());
    context_ = std::make_unique<library::ModelContext>(std::move(*db));
  }
  std::shared_ptr<ScreenshotItem> item(const std::string& id, const std::string& checksum,
                                       std::vector<std::string> tags = {}) {
    auto i = std::make_shared<ScreenshotItem>();
    i->id = *UUID::Parse(id);
    i->checksum = checksum;
    i->setUserTags(tags);
    context_->insert(i);
    EXPECT_TRUE(context_->save().ok());
    return i;
  }
  std::unique_ptr<library::ModelContext> context_;
};

TEST_F(DeduplicatorTest, MergesScreenshotsIntoTheSmallestID) {
  auto c = item("CCCCCCCC-0000-0000-0000-000000000000", "same", {"b", "Shared"});
  auto a = item("AAAAAAAA-0000-0000-0000-000000000000", "same", {"a", "shared"});
  auto b = item("BBBBBBBB-0000-0000-0000-000000000000", "same", {"c"});
  b->userNote = "from b";
  b->favorite = true;
  a->userTitle = "mine";
  item("DDDDDDDD-0000-0000-0000-000000000000", "alone");
  ASSERT_TRUE(context_->save().ok());

  auto groups = LibraryDeduplicator::duplicateGroups(*context_);
  ASSERT_EQ(groups->size(), 1u);
  EXPECT_EQ((*groups)[0], (std::vector<UUID>{a->id, b->id, c->id}));
  EXPECT_TRUE(LibraryDeduplicator::duplicateGroups(*context_, std::set<std::string>{"alone"})
                  ->empty());

  std::vector<std::string> touched;
  LibraryDeduplicator::Hooks hooks;
  hooks.touched = [&](const ScreenshotItem& i, bool removed) {
    touched.push_back(i.id.uuidString().substr(0, 1) + (removed ? "-" : "+"));
  };
  auto report = LibraryDeduplicator::mergeScreenshotGroups(*groups, *context_, hooks);
  ASSERT_TRUE(report.has_value());
  EXPECT_EQ(report->screenshots, 2);
  EXPECT_EQ(touched, (std::vector<std::string>{"B-", "C-", "A+"}));
  EXPECT_EQ(*context_->fetchCount<ScreenshotItem>(), 2);
  EXPECT_EQ(a->userTags(), (std::vector<std::string>{"a", "shared", "c", "b"}));
  EXPECT_EQ(a->userTitle, "mine");
  EXPECT_EQ(a->userNote, "from b");
  EXPECT_TRUE(a->favorite);

  // Nothing left to merge: an empty report.
  auto again = LibraryDeduplicator::run(*context_);
  ASSERT_TRUE(again.has_value());
  EXPECT_TRUE(again->isEmpty());
}

TEST_F(DeduplicatorTest, MergesCategoriesAndSavedSearches) {
  auto keep = std::make_shared<library::CustomCategory>();
  keep->id = *UUID::Parse("10000000-0000-0000-0000-000000000000");
  keep->name = "Bills";
  auto extra = std::make_shared<library::CustomCategory>();
  extra->id = *UUID::Parse("20000000-0000-0000-0000-000000000000");
  extra->name = " bills";
  extra->categoryDescription = "monthly bills";
  context_->insert(keep);
  context_->insert(extra);
  auto filed = item("30000000-0000-0000-0000-000000000000", "x");
  filed->customCategoryID = extra->id;
  for (int i = 0; i < 3; ++i) {
    auto s = std::make_shared<library::SavedSearch>();
    s->name = "Invoices";
    s->query = i < 2 ? "invoice" : "other";  // a different query is no duplicate
    context_->insert(s);
  }
  ASSERT_TRUE(context_->save().ok());

  auto report = LibraryDeduplicator::run(*context_);
  ASSERT_TRUE(report.has_value());
  EXPECT_EQ(report->categories, 1);
  EXPECT_EQ(report->savedSearches, 1);
  EXPECT_EQ(filed->customCategoryID, keep->id);
  EXPECT_EQ(keep->categoryDescription, "monthly bills");
  EXPECT_EQ(*context_->fetchCount<library::SavedSearch>(), 2);
}

}  // namespace
}  // namespace klipora::intelligence
