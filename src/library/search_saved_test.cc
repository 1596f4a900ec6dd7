#include "library/search_saved.h"

#include <gtest/gtest.h>

#include "library/search_test_support.h"

namespace klipora::library {
namespace {

class SavedSearchTest : public SearchStoreTest {};

TEST_F(SavedSearchTest, CreateListRunRenameDelete) {
  add("old invoice", 60, "Work");
  add("new invoice", 1, "Work");
  add("other invoice", 2, "Home");
  SavedSearchDefinition d{.name = "  Work bills ",
                          .query = "invoice",
                          .sidebarSelectionID = "tag:work",
                          .datePreset = DateFilterPreset::last30Days,
                          .sortMode = SortMode::oldestFirst};
  auto created = SavedSearches::create(*context_, d, now_);
  ASSERT_TRUE(created.has_value()) << created.error().message();
  EXPECT_EQ((*created)->name, "Work bills");

  auto result = SavedSearches::run(*context_, **created, now_);
  ASSERT_TRUE(result.has_value());
  ASSERT_EQ(result->items.size(), 1u);  // scope, date filter and query all apply
  EXPECT_EQ(result->items[0]->ocrText, "new invoice");

  // Selecting it in the sidebar with more text narrows it further.
  LibraryQuery q{.selection = SidebarSelection::savedSearch((*created)->id), .searchText = "new"};
  EXPECT_EQ(LibrarySearch::run(*context_, q, now_)->items.size(), 1u);
  q.searchText = "other";
  EXPECT_EQ(LibrarySearch::run(*context_, q, now_)->items.size(), 0u);

  EXPECT_EQ(SavedSearches::create(*context_, {.name = "work BILLS"}, now_).error().code(),
            Status::Code::kAlreadyExists);
  EXPECT_EQ(SavedSearches::create(*context_, {.name = "  "}, now_).error().code(),
            Status::Code::kInvalidArgument);
  EXPECT_EQ(SavedSearches::create(*context_, {.name = "x", .sidebarSelectionID = "nowhere"}, now_)
                .error()
                .code(),
            Status::Code::kInvalidArgument);
  ASSERT_TRUE(SavedSearches::create(*context_, {.name = "Another"}, now_).has_value());

  auto found = SavedSearches::find(*context_, "work bills");
  ASSERT_TRUE(found.has_value());
  EXPECT_FALSE(SavedSearches::rename(*context_, *found, "another").ok());
  ASSERT_TRUE(SavedSearches::rename(*context_, *found, "Bills").ok());
  auto all = SavedSearches::list(*context_);
  ASSERT_EQ(all->size(), 2u);
  EXPECT_EQ((*all)[0]->name, "Another");
  EXPECT_EQ((*all)[1]->name, "Bills");

  ASSERT_TRUE(SavedSearches::remove(*context_, *found).ok());
  EXPECT_FALSE(SavedSearches::find(*context_, "Bills").has_value());
  q.searchText.clear();
  EXPECT_EQ(LibrarySearch::run(*context_, q, now_).error().code(), Status::Code::kNotFound);
}

TEST_F(SavedSearchTest, SearchesScopedToEachOtherInALoopFail) {
  auto a = SavedSearches::create(*context_, {.name = "a"}, now_);
  auto b = SavedSearches::create(*context_, {.name = "b", .sidebarSelectionID =
                                                               "savedSearch:" + (*a)->id.uuidString()},
                                 now_);
  (*a)->sidebarSelectionID = "savedSearch:" + (*b)->id.uuidString();
  ASSERT_TRUE(context_->save().ok());
  auto result = SavedSearches::run(*context_, **a, now_);
  ASSERT_FALSE(result.has_value());
  EXPECT_EQ(result.error().code(), Status::Code::kFailedPrecondition);
}

}  // namespace
}  // namespace klipora::library
