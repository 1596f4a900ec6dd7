#include "library/search_cjk.h"

#include <gtest/gtest.h>

#include "library/search_index.h"
#include "library/search_query.h"
#include "library/search_test_support.h"
#include "library/search_text.h"

namespace klipora::library {
namespace {

using Texts = std::vector<std::string>;

Texts Runs(std::string_view text) {
  Texts out;
  for (const CjkRun& run : cjkRuns(text)) out.push_back(toUtf8(run.characters));
  return out;
}

TEST(CjkTextTest, RunsJoinAcrossBlanksAndFoldWidthAndKana) {
  // The recogniser's blanks between characters, and a sentence wrapped
  // onto the next line, are no part of the text.
  EXPECT_EQ(Runs("会 议 室 讨论 预算"), Texts{"会议室讨论预算"});
  EXPECT_EQ(Runs("会议室讨论预\n算"), Texts{"会议室讨论预算"});
  // Punctuation and other scripts end a run; Latin text yields none.
  EXPECT_EQ(Runs("invoice 发票，金额 total"), (Texts{"发票", "金额"}));
  EXPECT_EQ(Runs("iPhone手机 and 手 机"), (Texts{"手机", "手机"}));
  EXPECT_EQ(Runs("plain café text — “quoted”"), Texts{});
  // Half-width katakana with a voiced mark, and a combining voiced mark,
  // become the precomposed full-width kana.
  EXPECT_EQ(Runs("ｶﾞｲﾄﾞﾌﾞｯｸ"), Texts{"ガイドブック"});
  EXPECT_EQ(Runs("か\u3099くせい"), Texts{"がくせい"});
  // Full-width Latin becomes Latin, which is not for this index.
  EXPECT_EQ(Runs("ＰＤＦ資料"), Texts{"資料"});
  EXPECT_EQ(Runs("회의실에서 만나요"), Texts{"회의실에서만나요"});
  // A squared word expands; an ideographic space is a blank.
  EXPECT_EQ(Runs("㍿\u3000本社"), Texts{"株式会社本社"});
  // Byte offsets of the run in the text as given.
  auto runs = cjkRuns("ab 会 议 cd");
  ASSERT_EQ(runs.size(), 1u);
  EXPECT_EQ(runs[0].start, 3u);
  EXPECT_EQ(runs[0].end, 10u);
  EXPECT_EQ(Runs("\xff\xfe会议\xe4"), Texts{"会议"});  // invalid bytes end nothing badly
}

TEST(CjkTextTest, TermsQueryFormsAndTheTextLeftForTheFirstIndex) {
  EXPECT_EQ(cjkTerms(U"会议室", false), (Texts{"会议", "议室", "室"}));
  EXPECT_EQ(cjkTerms(U"会议室", true), (Texts{"会议", "议室"}));
  EXPECT_EQ(cjkTerms(U"会", true), Texts{"会"});
  EXPECT_EQ(cjkTerms(U"会", false), Texts{"会"});

  EXPECT_EQ(joinCjkAcrossBlanks("会 议  室 invoice 发票 tag:work"), "会议室 invoice 发票 tag:work");
  EXPECT_EQ(joinCjkAcrossBlanks("ｶﾞｲ ﾄﾞ"), "ｶﾞｲﾄﾞ");
  EXPECT_EQ(joinCjkAcrossBlanks("plain words"), "plain words");
  // The first index's text: CJK blanked, full-width Latin and squared units
  // folded, anything else kept byte for byte.
  EXPECT_EQ(wordIndexText("iPhone手机"), "iPhone  ");
  EXPECT_EQ(wordIndexText("会议室meeting"), "   meeting");
  EXPECT_EQ(wordIndexText("ＰＤＦ　１２３ ｶﾞｲﾄﾞ"), "PDF 123    ");
  EXPECT_EQ(wordIndexText("5㎏ café \xff"), "5kg café \xff");
  EXPECT_FALSE(mayDifferForWordIndex("café – naïve “x”"));
  EXPECT_TRUE(mayDifferForWordIndex("Ｘ"));
  EXPECT_TRUE(hasCjkText("x가"));
  EXPECT_TRUE(hasCjkText("ｶ"));
  EXPECT_TRUE(hasCjkText("㍿"));  // a squared word folds to four characters
  EXPECT_FALSE(hasCjkText("café – ＰＤＦ ㎏"));
}

class CjkSearchTest : public SearchStoreTest {
 protected:
  Texts find(const std::string& text) {
    auto result = LibrarySearch::run(*context_, {.searchText = text}, now_);
    EXPECT_TRUE(result.has_value()) << result.error().message();
    Texts texts;
    if (result) {
      for (const auto& item : result->items) texts.push_back(item->ocrText.value_or(""));
    }
    return texts;
  }
};

TEST_F(CjkSearchTest, FindsAnyRunOfCharactersInsideASentence) {
  const std::string chat = "会 议 室 讨论 预算。明天下午三点开会";
  const std::string japanese = "新しいガイドブックを買いました";
  const std::string korean = "오늘 회의실에서 만나요";
  add(chat);
  add(japanese);
  add(korean);
  add("budget meeting in the conference room");

  EXPECT_EQ(find("议室"), Texts{chat});        // two characters from the middle
  EXPECT_EQ(find("讨论预算"), Texts{chat});    // across the recogniser's blanks
  EXPECT_EQ(find("下午三点开"), Texts{chat});  // five
  EXPECT_EQ(find("会 议 室"), Texts{chat});    // typed with blanks too
  EXPECT_EQ(find("预算明天"), Texts{});         // the full stop ends the sentence
  EXPECT_EQ(find("议会"), Texts{});
  EXPECT_EQ(find("ｶﾞｲﾄﾞ"), Texts{japanese});   // half-width typed, full-width read
  EXPECT_EQ(find("ブック"), Texts{japanese});
  EXPECT_EQ(find("의실"), Texts{korean});
  EXPECT_EQ(find("讨"), Texts{chat});           // one character, anywhere
  EXPECT_EQ(find("算"), Texts{chat});           // even at the end of a run
  EXPECT_EQ(find("budget"), Texts{"budget meeting in the conference room"});
}

TEST_F(CjkSearchTest, MixedQueriesNeedEveryPartAndTheIndexFollowsChanges) {
  auto work = add("发票 invoice 2024 总金额", 1, "Work");
  add("发票 invoice draft", 2, "Home");
  add("invoice only", 3, "Work");
  auto ja = add("請求書 invoice", 4, "Work");

  EXPECT_EQ(find("发票 invoice tag:work"), Texts{"发票 invoice 2024 总金额"});
  EXPECT_EQ(find("发票 inv").size(), 2u);
  EXPECT_EQ(find("金额 draft"), Texts{});
  EXPECT_EQ(find("请求书"), Texts{});  // simplified and traditional forms differ
  EXPECT_EQ(find("求書invoice"), Texts{"請求書 invoice"});

  // An edited, a trashed and a removed item leave the index as they leave the
  // first one.
  work->ocrText = "收据 receipt";
  ja->deleted = true;
  ja->deletedAt = now_;
  ASSERT_TRUE(context_->save().ok());
  EXPECT_EQ(find("金额"), Texts{});
  EXPECT_EQ(find("收据"), Texts{"收据 receipt"});
  EXPECT_EQ(find("求書"), Texts{});
  context_->remove(work);
  ASSERT_TRUE(context_->save().ok());
  EXPECT_EQ(find("收据"), Texts{});

  // Titles and tags in those scripts are found as well; ranking favours the
  // title, as in the first index.
  auto titled = add("正文没有关键词");
  titled->userTitle = "季度报告";
  auto body = add("这是季度报告的正文");
  (void)body;
  ASSERT_TRUE(context_->save().ok());
  EXPECT_EQ(find("报告"), (Texts{"正文没有关键词", "这是季度报告的正文"}));
  add("tagged", 1, "工作");
  EXPECT_EQ(find("tag:工作"), Texts{"tagged"});
}

TEST_F(CjkSearchTest, BothIndexesAreRebuiltTogether) {
  add("会议室");
  ASSERT_TRUE(SearchIndex::rebuild(context_->database()).ok());
  EXPECT_EQ(find("议室"), Texts{"会议室"});
  auto expressions = SearchIndex::matchExpressions(context_->database(), "发 票 x\"y 会");
  ASSERT_TRUE(expressions.has_value());
  EXPECT_EQ(expressions->cjk, "\"发票\" AND \"会\" *");
  EXPECT_EQ(expressions->words, "\"x y\"");
}

TEST_F(CjkSearchTest, LatinGluedToCjkAndFullWidthLatinAreWordsOfTheFirstIndex) {
  const std::string text = "ＡＢＣ１２３ 会议室meeting iPhone手机 Ｆｉｌｅ．ｐｄｆ";
  add(text);
  add("abacus meetings iphones");
  EXPECT_EQ(find("abc"), Texts{text});
  EXPECT_EQ(find("abc123"), Texts{text});
  EXPECT_EQ(find("ＡＢＣ"), Texts{text});  // typed full-width
  EXPECT_EQ(find("iphone手机"), Texts{text});
  EXPECT_EQ(find("ｉＰｈｏｎｅ 会议"), Texts{text});
  EXPECT_EQ(find("file pdf"), Texts{text});
  EXPECT_EQ(find("meeting").size(), 2u);
  EXPECT_EQ(find("meeting 室"), Texts{text});
}

// A store whose index predates the second table, or the folding of what the
// first one receives: its first index holds the text as it stands. It is
// brought up to date in place, changes noted meanwhile and items added
// meanwhile included, and both tables then agree with their views.
TEST_F(CjkSearchTest, AnOlderIndexIsBroughtUpToDateInPlace) {
  for (bool withCjkTable : {false, true}) {
    SetUp();
    Database& db = context_->database();
    add("ＡＢＣ１２３ report");
    add("iPhone手机");
    add("会议室meeting");
    add("plain latin");
    ASSERT_TRUE(SearchIndex::catchUp(db).has_value());
    // The index as those versions kept it: one view of the text as it stands,
    // the first table filled from it, the second over all items (or none).
    ASSERT_TRUE(db.exec("DROP TABLE ScreenshotSearchCJK; DROP VIEW ScreenshotSearchCJKSource; "
                        "DROP VIEW ScreenshotSearchSource; "
                        "CREATE VIEW ScreenshotSearchSource AS SELECT * FROM ScreenshotSearchText; "
                        "INSERT INTO ScreenshotSearch(ScreenshotSearch) VALUES('rebuild'); "
                        "UPDATE ScreenshotSearchState SET version = 4; "
                        "DELETE FROM ScreenshotSearch_config WHERE k = 'automerge'")
                    .ok());
    if (withCjkTable) {
      ASSERT_TRUE(db.exec("CREATE VIRTUAL TABLE ScreenshotSearchCJK USING fts5(title, filename, "
                          "body, details, tags, keywords, category, app, "
                          "content='ScreenshotSearchSource', content_rowid='rowid', "
                          "tokenize='klipora_cjk'); "
                          "INSERT INTO ScreenshotSearchCJK(ScreenshotSearchCJK) VALUES('rebuild')")
                      .ok());
    }
    ASSERT_TRUE(db.exec("UPDATE ScreenshotItem SET ocrText = 'iPad平板' WHERE ocrText = "
                        "'iPhone手机'; UPDATE ScreenshotItem SET ocrText = '新しい ｍｅｍｏ' "
                        "WHERE ocrText = 'plain latin'")
                    .ok());
    add("ＸＹＺ文字");

    ASSERT_TRUE(migrateToCurrentSchema(db).ok());
    auto kept = db.query("SELECT count(*) FROM ScreenshotSearch_config WHERE k = 'automerge'");
    ASSERT_TRUE(kept.has_value());
    EXPECT_EQ(std::get<int64_t>((*kept)[0][0]), 0) << "brought up to date, not rebuilt";
    ASSERT_TRUE(SearchIndex::catchUp(db).has_value());
    for (const char* table : {"ScreenshotSearch", "ScreenshotSearchCJK"}) {
      Status checked = db.exec(std::string("INSERT INTO ") + table + "(" + table +
                               ") VALUES('integrity-check')");
      EXPECT_TRUE(checked.ok()) << table << ": " << checked.message();
    }
    EXPECT_EQ(find("abc"), Texts{"ＡＢＣ１２３ report"});
    EXPECT_EQ(find("report"), Texts{"ＡＢＣ１２３ report"});
    EXPECT_EQ(find("meeting"), Texts{"会议室meeting"});
    EXPECT_EQ(find("议室"), Texts{"会议室meeting"});
    EXPECT_EQ(find("ipad"), Texts{"iPad平板"});
    EXPECT_EQ(find("平板"), Texts{"iPad平板"});
    EXPECT_EQ(find("iphone"), Texts{});
    EXPECT_EQ(find("手机"), Texts{});
    EXPECT_EQ(find("memo"), Texts{"新しい ｍｅｍｏ"});
    EXPECT_EQ(find("latin"), Texts{});
    EXPECT_EQ(find("xyz"), Texts{"ＸＹＺ文字"});
    EXPECT_EQ(find("文字"), Texts{"ＸＹＺ文字"});
    // Only items with CJK text are in the second table.
    auto rows = db.query("SELECT count(*) FROM ScreenshotSearchCJK_docsize");
    ASSERT_TRUE(rows.has_value());
    EXPECT_EQ(std::get<int64_t>((*rows)[0][0]), 4);
  }
}

}  // namespace
}  // namespace klipora::library
