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
  EXPECT_EQ(withoutCjkText("iPhone手机"), "iPhone  ");
  EXPECT_EQ(withoutCjkText("ＰＤＦ"), "ＰＤＦ");
  EXPECT_TRUE(hasCjkText("x가"));
  EXPECT_TRUE(hasCjkText("ｶ"));
  EXPECT_FALSE(hasCjkText("café – ＰＤＦ"));
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

}  // namespace
}  // namespace klipora::library
