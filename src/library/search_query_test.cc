#include "library/search_query.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "library/records.h"
#include "library/search_index.h"
#include "library/search_test_support.h"
#include "platform/testing/temp_dir.h"

namespace klipora::library {
namespace {

using Kind = SidebarSelection::Kind;

class SearchQueryTest : public SearchStoreTest {
 protected:
  // A store on disk, so that several connections can share it.
  static std::unique_ptr<ModelContext> OpenStore(const std::string& path) {
    auto db = Database::open(path);
    EXPECT_TRUE(db.has_value());
    EXPECT_TRUE(migrateToCurrentSchema(**db).ok());
    return std::make_unique<ModelContext>(std::move(*db));
  }
  std::vector<std::string> find(const std::string& text,
                                SidebarSelection selection = SidebarSelection::fixed(Kind::all),
                                SortMode sort = SortMode::newestFirst) {
    LibraryQuery q;
    q.searchText = text;
    q.selection = selection;
    q.sortMode = sort;
    auto result = LibrarySearch::run(*context_, q, now_);
    EXPECT_TRUE(result.has_value()) << result.error().message();
    std::vector<std::string> texts;
    if (result) {
      for (const auto& item : result->items) texts.push_back(item->ocrText.value_or(""));
    }
    return texts;
  }
  using Texts = std::vector<std::string>;
};

TEST_F(SearchQueryTest, MatchesPrefixesFoldsDiacriticsAndRanks) {
  add("Café receipt for lunch", 3);
  add("invoice number 42", 2);
  auto titled = add("some body text", 1);
  titled->userTitle = "Invoice from ACME";
  ASSERT_TRUE(context_->save().ok());

  EXPECT_EQ(find("cafe"), Texts{"Café receipt for lunch"});
  EXPECT_EQ(find("CAFÉ REC"), Texts{"Café receipt for lunch"});
  // Both match; the title counts more than the recognised text.
  EXPECT_EQ(find("invoi"), (Texts{"some body text", "invoice number 42"}));
  EXPECT_EQ(find("invoice lunch"), Texts{});
  EXPECT_EQ(find("").size(), 3u);
}

TEST_F(SearchQueryTest, IndexFollowsEverySave) {
  auto item = add("alpha words");
  item->ocrText = "beta words";
  ASSERT_TRUE(context_->save().ok());
  EXPECT_EQ(find("alpha"), Texts{});
  EXPECT_EQ(find("beta"), Texts{"beta words"});

  item->deleted = true;
  item->deletedAt = now_;
  ASSERT_TRUE(context_->save().ok());
  EXPECT_EQ(find("beta"), Texts{});
  EXPECT_EQ(find("beta", SidebarSelection::fixed(Kind::trash)), Texts{"beta words"});

  item->deleted = false;
  item->deletedAt.reset();
  ASSERT_TRUE(context_->save().ok());
  EXPECT_EQ(find("beta"), Texts{"beta words"});  // restored: found at once
  EXPECT_EQ(find("beta", SidebarSelection::fixed(Kind::trash)), Texts{});

  context_->remove(item);
  ASSERT_TRUE(context_->save().ok());
  EXPECT_EQ(find("beta"), Texts{});
  add("gamma");  // may take the removed row's number
  EXPECT_EQ(find("gamma"), Texts{"gamma"});
  EXPECT_EQ(find("beta"), Texts{});
}

TEST_F(SearchQueryTest, SeesWritesOfOtherConnectionsAndSurvivesVacuum) {
  testing::TempDir dir;
  auto open = [&] { return OpenStore(dir.file("Klipora.store")); };
  context_ = open();
  auto other = open();
  for (int i = 0; i < 5; ++i) add("filler " + std::to_string(i));
  auto written = std::make_shared<ScreenshotItem>();
  written->ocrText = "elsewhere";
  other->insert(written);
  ASSERT_TRUE(other->save().ok());
  EXPECT_EQ(find("elsewhere"), Texts{"elsewhere"});
  // Plain SQL, as a script or the sqlite3 shell would write.
  ASSERT_TRUE(other->database()
                  .exec("UPDATE ScreenshotItem SET ocrText = 'shell' "
                        "WHERE ocrText = 'filler 0'")
                  .ok());
  EXPECT_EQ(find("shell"), Texts{"shell"});

  ASSERT_TRUE(
      other->database().exec("DELETE FROM ScreenshotItem WHERE ocrText LIKE 'filler%'").ok());
  ASSERT_TRUE(SearchIndex::catchUp(other->database()).has_value());
  ASSERT_TRUE(other->database().exec("VACUUM").ok());
  context_.reset();
  context_ = open();  // a renumbered store is re-indexed on open
  EXPECT_EQ(find("elsewhere"), Texts{"elsewhere"});
  EXPECT_EQ(find("shell"), Texts{"shell"});
}

TEST_F(SearchQueryTest, OpeningKeepsACurrentIndexAndItsCountWithoutCountingItems) {
  testing::TempDir dir;
  auto open = [&] { return OpenStore(dir.file("Klipora.store")); };
  auto count = [&] {
    return SearchIndex::documentFrequencies(context_->database(), {})->documentCount;
  };
  // A marker a rebuild would put back: gone means the index was kept.
  auto rebuilt = [&] {
    auto rows = context_->database().query(
        "SELECT count(*) FROM ScreenshotSearch_config WHERE k = 'automerge'");
    return rows && std::get<int64_t>((*rows)[0][0]) == 1;
  };
  context_ = open();
  for (int i = 0; i < 4; ++i) add("item " + std::to_string(i));
  auto newest = add("newest");
  ASSERT_TRUE(SearchIndex::catchUp(context_->database()).has_value());
  EXPECT_EQ(count(), 5);
  ASSERT_TRUE(
      context_->database().exec("DELETE FROM ScreenshotSearch_config WHERE k = 'automerge'").ok());

  // Deletes (the newest one too), an insert, and an old item written by SQL.
  context_->remove(newest);
  ASSERT_TRUE(context_->save().ok());
  ASSERT_TRUE(
      context_->database().exec("DELETE FROM ScreenshotItem WHERE ocrText = 'item 1'").ok());
  add("later");
  ASSERT_TRUE(SearchIndex::catchUp(context_->database()).has_value());
  EXPECT_EQ(count(), 4);
  context_.reset();
  context_ = open();
  EXPECT_FALSE(rebuilt());
  EXPECT_EQ(count(), 4);
  EXPECT_EQ(find("later"), Texts{"later"});
  EXPECT_EQ(find("newest"), Texts{});

  // A state written before it named the item at its highest row: checked by
  // a count once, then kept.
  ASSERT_TRUE(
      context_->database().exec("UPDATE ScreenshotSearchState SET maxRowidItem = NULL").ok());
  context_.reset();
  context_ = open();
  EXPECT_FALSE(rebuilt());
  auto named = context_->database().query("SELECT maxRowidItem FROM ScreenshotSearchState");
  ASSERT_TRUE(named.has_value());
  EXPECT_FALSE(std::holds_alternative<std::monostate>((*named)[0][0]));
  Texts items = find("item");
  std::sort(items.begin(), items.end());
  EXPECT_EQ(items, (Texts{"item 0", "item 2", "item 3"}));
}

TEST_F(SearchQueryTest, AnIndexWrittenByAnotherVersionIsRebuilt) {
  testing::TempDir dir;
  auto open = [&] { return OpenStore(dir.file("Klipora.store")); };
  context_ = open();
  add("kept across the rebuild");
  // An index as an early build left it: other merge settings, a version
  // number too old to bring up to date in place.
  ASSERT_TRUE(context_->database()
                  .exec("DELETE FROM ScreenshotSearch_config WHERE k IN ('hashsize', 'automerge'); "
                        "UPDATE ScreenshotSearchState SET version = 2")
                  .ok());
  context_.reset();
  context_ = open();
  auto settings = context_->database().query(
      "SELECT count(*) FROM ScreenshotSearch_config WHERE k IN ('hashsize', 'automerge')");
  ASSERT_TRUE(settings.has_value());
  EXPECT_EQ(std::get<int64_t>((*settings)[0][0]), 2);
  EXPECT_EQ(find("kept"), Texts{"kept across the rebuild"});
}

TEST_F(SearchQueryTest, DocumentFrequenciesCountItemsNotOccurrences) {
  add("invoice invoice invoice march");
  add("Invoice april");
  add("lunch");
  add("ｉｎｖｏｉｃｅ 发票");
  ASSERT_TRUE(SearchIndex::catchUp(context_->database()).has_value());
  auto found = SearchIndex::documentFrequencies(
      context_->database(), {"invoice", "march", "absent", "o'brien", "ｍａｒｃｈ", "发票"});
  ASSERT_TRUE(found.has_value()) << found.error().message();
  EXPECT_EQ(found->documentCount, 4);
  EXPECT_EQ(found->perTerm, (std::map<std::string, int64_t>{
                                {"invoice", 3}, {"march", 1}, {"ｍａｒｃｈ", 1}}));
  EXPECT_EQ(SearchIndex::documentFrequencies(context_->database(), {})->documentCount, 4);
}

TEST_F(SearchQueryTest, TokensFilter) {
  auto work = add("invoice march", 1, "Work");
  add("invoice april", 40, "Home");
  auto fav = add("note", 2, std::string("Work") + kListSeparator + "work  stuff");
  fav->favorite = true;
  fav->generatedCategory = ScreenshotCategory::receipts;
  ASSERT_TRUE(context_->save().ok());
  (void)work;

  EXPECT_EQ(find("invoice tag:Work"), Texts{"invoice march"});
  EXPECT_EQ(find("tag:work"), (Texts{"invoice march", "note"}));
  EXPECT_EQ(find("tag:nothing"), Texts{});
  EXPECT_EQ(find("fav:yes"), Texts{"note"});
  EXPECT_EQ(find("fav:no invoice"), (Texts{"invoice march", "invoice april"}));
  EXPECT_EQ(find("cat:receipts"), Texts{"note"});
  EXPECT_EQ(find("cat:Receipts"), Texts{"note"});  // display name, any case
  EXPECT_EQ(find("cat:nonsense"), Texts{});
  EXPECT_EQ(find("invoice date:week"), Texts{"invoice march"});
  EXPECT_EQ(find("invoice date:quarter"), (Texts{"invoice march", "invoice april"}));
  EXPECT_EQ(find("", SidebarSelection::tag("WORK  STUFF")), Texts{"note"});
}

TEST_F(SearchQueryTest, EverySelectionAndSort) {
  auto a = add("a", 0.1);
  auto b = add("b", 3);
  auto c = add("c", 20);
  a->favorite = true;
  a->shareCount = 2;
  a->lastViewedAt = now_.addingTimeInterval(-100);
  b->needsReview = true;
  b->processingStateRaw = "failed";
  b->userCategory = ScreenshotCategory::code;
  b->lastViewedAt = now_.addingTimeInterval(-10);
  c->archived = true;
  c->lastProcessedAt = now_;
  auto d = add("d", 1);
  d->processingStateRaw = "partiallyFailed";
  d->processingError = "OCR failed";  // shown as complete
  d->customCategoryID = UUID::Random();
  ASSERT_TRUE(context_->save().ok());

  EXPECT_EQ(find(""), (Texts{"a", "d", "b"}));
  EXPECT_EQ(find("", SidebarSelection::fixed(Kind::all), SortMode::oldestFirst),
            (Texts{"b", "d", "a"}));
  EXPECT_EQ(find("", SidebarSelection::fixed(Kind::all), SortMode::mostViewed),
            (Texts{"b", "a", "d"}));
  EXPECT_EQ(find("", SidebarSelection::fixed(Kind::archived), SortMode::recentlyProcessed),
            Texts{"c"});
  EXPECT_EQ(find("", SidebarSelection::fixed(Kind::favorites)), Texts{"a"});
  EXPECT_EQ(find("", SidebarSelection::fixed(Kind::recentlyShared)), Texts{"a"});
  EXPECT_EQ(find("", SidebarSelection::fixed(Kind::needsReview)), Texts{"b"});
  EXPECT_EQ(find("", SidebarSelection::fixed(Kind::processingFailed)), Texts{"b"});
  EXPECT_EQ(find("", SidebarSelection::fixed(Kind::uncategorized)), Texts{"a"});
  EXPECT_EQ(find("", SidebarSelection::category(ScreenshotCategory::code)), Texts{"b"});
  EXPECT_EQ(find("", SidebarSelection::customCategory(*d->customCategoryID)), Texts{"d"});
  EXPECT_EQ(find("", SidebarSelection::fixed(Kind::today)).size(), find("a").size());
  EXPECT_EQ(find("", SidebarSelection::fixed(Kind::trash)), Texts{});
  EXPECT_FALSE(LibrarySearch::run(*context_,
                                  {.selection = SidebarSelection::sharedSet(UUID::Random())}, now_)
                   .has_value());

  LibraryQuery archived{.searchText = "c", .showArchivedInSearch = true};
  EXPECT_EQ(LibrarySearch::run(*context_, archived, now_)->items.size(), 1u);
  archived.showArchivedInSearch = false;
  EXPECT_EQ(LibrarySearch::run(*context_, archived, now_)->items.size(), 0u);

  LibraryQuery custom{.datePreset = DateFilterPreset::custom,
                      .customStart = now_.addingTimeInterval(-5 * 86400),
                      .customEnd = now_.addingTimeInterval(-2 * 86400)};
  EXPECT_EQ(LibrarySearch::run(*context_, custom, now_)->items.front()->ocrText, "b");
}

TEST_F(SearchQueryTest, ManyMatchesFollowTheSortOrder) {
  for (int i = 0; i < LibrarySearch::kRankedMatchLimit + 50; ++i) {
    auto item = std::make_shared<ScreenshotItem>();
    item->ocrText = "common " + std::to_string(i);
    item->importedAt = now_.addingTimeInterval(-i * 60.0);
    context_->insert(item);
  }
  ASSERT_TRUE(context_->save().ok());
  LibraryQuery q{.searchText = "common", .limit = 3, .offset = 2};
  auto result = LibrarySearch::run(*context_, q, now_);
  ASSERT_TRUE(result.has_value());
  EXPECT_FALSE(result->rankedByRelevance);
  ASSERT_EQ(result->items.size(), 3u);
  EXPECT_EQ(result->items[0]->ocrText, "common 2");
  EXPECT_EQ(result->items[2]->ocrText, "common 4");
}

TEST_F(SearchQueryTest, SearchSyntaxInTheQueryIsJustText) {
  add("he said \"quoted\" (maybe) NEAR the end - 100% *sure*");
  const char* inputs[] = {"\"",
                          "\"quoted",
                          "*",
                          "sure*",
                          "NEAR(the end)",
                          "(maybe",
                          ")",
                          "-",
                          "- the",
                          "AND",
                          "OR NOT",
                          "the:end",
                          "^",
                          "{body}: x",
                          "\x01\x02 \x7f",
                          "\xff\xfe quoted",
                          "e-mail",
                          "\xe2\x80\x94"};
  for (const char* input : inputs) {
    LibraryQuery q{.searchText = input};
    EXPECT_TRUE(LibrarySearch::run(*context_, q, now_).has_value()) << input;
  }
  EXPECT_EQ(find("\"quoted\"").size(), 1u);
  EXPECT_EQ(find("NEAR(the").size(), 1u);
  EXPECT_EQ(find("-").size(), 1u);  // no word in it: no text filter
  std::string huge;
  for (int i = 0; huge.size() < 100'000; ++i) huge += "word" + std::to_string(i) + " ";
  EXPECT_EQ(find(huge).size(), 0u);
}

}  // namespace
}  // namespace klipora::library
