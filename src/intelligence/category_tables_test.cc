// The constant tables of category resolution and the keyword automaton that
// searches them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

#include "intelligence/category_app_table.h"
#include "intelligence/category_browser_domains.h"
#include "intelligence/category_keyword_matcher.h"
#include "intelligence/category_keywords.h"
#include "intelligence/category_text_signals.h"

namespace klipora::intelligence {
namespace {

using C = ScreenshotCategory;

TEST(KeywordAutomatonTest, FindsOverlappingKeywordsIgnoringAsciiCase) {
  std::vector<std::string_view> keywords = {"he", "she", "his", "hers", "€", "é"};
  KeywordAutomaton automaton(keywords);
  std::vector<std::pair<size_t, size_t>> found;
  automaton.scan("uSHErS \xe2\x82\xac \xc3\x89", [&](size_t k, size_t end) {
    found.emplace_back(k, end);
  });
  // "É" is not "é": only ASCII letters fold.
  EXPECT_THAT(found, ::testing::ElementsAre(std::pair<size_t, size_t>{1, 4},
                                            std::pair<size_t, size_t>{0, 4},
                                            std::pair<size_t, size_t>{3, 6},
                                            std::pair<size_t, size_t>{4, 10}));
}

TEST(KeywordAutomatonTest, AgreesWithTheReferenceSearch) {
  const TextVocabulary& vocabulary = TextVocabulary::instance();
  auto words = vocabulary.words();
  std::mt19937 rng(7);
  for (int run = 0; run < 300; ++run) {
    std::string text;
    const size_t size = rng() % 3000;  // short texts take one lane, long ones four
    while (text.size() < size) {
      std::string piece(words[rng() % words.size()]);
      if (rng() % 2) piece = piece.substr(0, rng() % (piece.size() + 1));
      if (rng() % 3 == 0) for (char& c : piece) c = static_cast<char>(std::toupper(c));
      text += piece;
      if (rng() % 2) text += static_cast<char>(rng());
    }
    EXPECT_EQ(findKeywords(vocabulary.automaton(), text), findKeywordsByReference(words, text))
        << text;
  }
}

TEST(CategoryTablesTest, KeywordTablesHaveTheirCountsAndWeights) {
  std::map<C, std::pair<size_t, double>> expected = {
      {C::code, {35, 0.15}},     {C::errors, {10, 0.2}},   {C::receipts, {10, 0.15}},
      {C::payments, {7, 0.05}},  {C::chats, {6, 0.15}},    {C::travel, {9, 0.15}},
      {C::shopping, {9, 0.15}},  {C::social, {6, 0.15}},   {C::design, {19, 0.2}},
      {C::settings, {6, 0.15}},  {C::articles, {13, 0.15}}};
  for (const KeywordTable& table : keywordTables()) {
    auto words = wordsOf(table.list);
    std::set<std::string_view> distinct(words.begin(), words.end());
    EXPECT_EQ(distinct.size(), words.size());
    for (std::string_view word : words) {
      EXPECT_EQ(std::string(word), [&] {
        std::string lower(word);
        for (char& c : lower) c = static_cast<char>(std::tolower(c));
        return lower;
      }());
    }
    if (table.category == C::media) continue;
    ASSERT_TRUE(expected.count(table.category)) << library::rawValue(table.category);
    EXPECT_EQ(words.size(), expected[table.category].first) << library::rawValue(table.category);
    EXPECT_EQ(table.weight, expected[table.category].second);
  }
  EXPECT_EQ(wordsOf(TextWordList::mediaPhrases).size(), 15u);
  EXPECT_EQ(wordsOf(TextWordList::mediaCounters).size(), 8u);
  EXPECT_EQ(wordsOf(TextWordList::currencySigns).size(), 4u);
  EXPECT_EQ(labelTable().size(), 23u);
  EXPECT_EQ(filenameTable().size(), 29u);
  EXPECT_TRUE(allExpressionsCompile());
}

TEST(CategoryTablesTest, BundleIdentifierTable) {
  std::map<C, int> perCategory;
  std::set<std::string_view> ids;
  for (const AppCategory& row : bundleIdentifierTable()) {
    ++perCategory[row.category];
    ids.insert(row.id);
  }
  EXPECT_EQ(ids.size(), 140u);
  EXPECT_EQ(perCategory, (std::map<C, int>{{C::code, 44},
                                           {C::documents, 27},
                                           {C::design, 20},
                                           {C::chats, 17},
                                           {C::travel, 3},
                                           {C::shopping, 1},
                                           {C::social, 6},
                                           {C::settings, 2},
                                           {C::media, 17},
                                           {C::articles, 3}}));
  EXPECT_EQ(browserBundleIdentifiers().size(), 11u);
  for (std::string_view browser : browserBundleIdentifiers()) {
    EXPECT_FALSE(ids.count(browser)) << browser;
    EXPECT_TRUE(lookUpApplication(browser).browser) << browser;
  }
}

TEST(CategoryTablesTest, LinuxApplicationIds) {
  std::map<std::string, C> bundleLower;
  for (const AppCategory& row : bundleIdentifierTable()) {
    std::string lower(row.id);
    for (char& c : lower) c = static_cast<char>(std::tolower(c));
    bundleLower.emplace(lower, row.category);
  }
  std::set<std::string_view> ids;
  for (const AppCategory& row : linuxApplicationTable()) {
    EXPECT_TRUE(ids.insert(row.id).second) << "twice: " << row.id;
    EXPECT_EQ(row.id.find_first_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ"), std::string_view::npos);
    // Where a Linux id spells a bundle identifier, both say the same.
    auto same = bundleLower.find(std::string(row.id));
    if (same != bundleLower.end()) {
      EXPECT_EQ(same->second, row.category) << row.id;
    }
  }
  for (std::string_view browser : linuxBrowserIds()) {
    EXPECT_TRUE(ids.insert(browser).second) << "twice: " << browser;
  }
  EXPECT_GE(linuxApplicationTable().size(), 80u);
  // Terminals, editors, chat, media, design, office, and the settings of
  // GNOME, KDE and Xfce, each by one well-known id.
  std::map<std::string_view, std::optional<C>> known = {
      {"org.gnome.Terminal", C::code},         {"konsole", C::code},
      {"code", C::code},                       {"Slack", C::chats},
      {"vlc", C::media},                       {"org.gimp.GIMP.desktop", C::design},
      {"libreoffice-writer", C::documents},    {"org.gnome.Settings", C::settings},
      {"systemsettings", C::settings},         {"xfce4-settings-manager", C::settings},
      {"org.telegram.desktop", C::chats},      {"Google-chrome", std::nullopt}};
  for (const auto& [id, category] : known) {
    ApplicationMatch match = lookUpApplication(id);
    EXPECT_EQ(match.category, category) << id;
    EXPECT_EQ(match.browser, !category.has_value()) << id;
  }
  EXPECT_FALSE(lookUpApplication(std::string(1000, 'a')).category.has_value());
  EXPECT_FALSE(lookUpApplication(".desktop").category.has_value());
}

TEST(CategoryTablesTest, ApplicationNameHintsTakeTheFirstMatch) {
  ASSERT_NE(applicationNameHint("Visual Studio Code"), nullptr);
  EXPECT_EQ(applicationNameHint("Visual Studio Code")->key, "visual studio");
  EXPECT_EQ(applicationNameHint("System Settings")->category, C::settings);
  EXPECT_EQ(applicationNameHint("Password Safe"), nullptr);
  EXPECT_EQ(applicationNameHint(std::string(5000, 'x') + "terminal"), nullptr);
}

TEST(CategoryTablesTest, BrowserDomainsMatchWholeNames) {
  std::set<std::string_view> domains;
  for (const auto& row : browserDomainTable()) EXPECT_TRUE(domains.insert(row.domain).second);
  auto match = [](std::string_view text, std::string_view domain) {
    auto rows = browserDomainTable();
    for (size_t i = 0; i < rows.size(); ++i) {
      if (rows[i].domain == domain) return matchBrowserDomains(text)[i];
    }
    return DomainMatch::none;
  };
  EXPECT_EQ(match("https://GitHub.com/org/repo", "github.com"), DomainMatch::strong);
  EXPECT_EQ(match("mirrored on github.com.", "github.com"), DomainMatch::weak);
  EXPECT_EQ(match("mobile.x.com/home", "x.com"), DomainMatch::strong);
  EXPECT_EQ(match("fedex.com/track", "x.com"), DomainMatch::none);
  EXPECT_EQ(match("my-github.com", "github.com"), DomainMatch::none);
}

}  // namespace
}  // namespace klipora::intelligence
