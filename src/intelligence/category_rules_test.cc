// One group per rule of the resolution: what fires it, what keeps it quiet,
// and the weights and signal texts it produces.
#include <gtest/gtest.h>

#include "intelligence/category_resolver.h"
#include "intelligence/category_rules.h"
#include "intelligence/category_test_support.h"

namespace klipora::intelligence {
namespace {

using namespace testing;  // NOLINT: the helpers
using C = ScreenshotCategory;

TEST(TextKeywordRuleTest, EachKeywordCountsOnceWithItsTableWeight) {
  ResolutionResult result = Resolve(TextInput("ERROR error Error; func main; funcs"));
  EXPECT_DOUBLE_EQ(Score(result, C::errors), 0.2);
  EXPECT_DOUBLE_EQ(Weight(result, C::code, "func "), 0.15);  // the trailing blank is part of it
  EXPECT_EQ(Evidence(Resolve(TextInput("funcs")), C::code, "func "), nullptr);
  EXPECT_DOUBLE_EQ(Weight(Resolve(TextInput("Paid with Visa")), C::payments, "visa"), 0.05);
  EXPECT_DOUBLE_EQ(Weight(Resolve(TextInput("a new Mockup")), C::design, "mockup"), 0.2);
  // Currency signs alone weigh nothing.
  EXPECT_TRUE(Resolve(TextInput("$ € £ ¥")).candidates.empty());
}

TEST(TextKeywordRuleTest, CodeStructure) {
  ResolutionResult two = Resolve(TextInput("myValue other_name plain"));
  EXPECT_EQ(Candidate(two, C::code), nullptr);
  ResolutionResult three = Resolve(TextInput("myValue other_name itemCount"));
  EXPECT_DOUBLE_EQ(Weight(three, C::code, "identifiers(camel:2,snake:1)"), 0.15);

  EXPECT_DOUBLE_EQ(Weight(Resolve(TextInput("let total = 3")), C::code, "let ="), 0.15);
  EXPECT_EQ(Evidence(Resolve(TextInput("let Total = 3")), C::code, "let ="), nullptr);

  ResolutionResult indented = Resolve(TextInput("if\n  a\n\tb\n    c\n d\n"));
  EXPECT_DOUBLE_EQ(Weight(indented, C::code, "indentation(3)"), 0.2);
  EXPECT_EQ(Evidence(Resolve(TextInput("x\n  a\n  b\n")), C::code, "indentation(2)"), nullptr);

  EXPECT_DOUBLE_EQ(Weight(Resolve(TextInput("f(a[0]){}")), C::code, "brackets(6)"), 0.15);
  // Six brackets in a long sentence are too thin to count.
  std::string prose = "(a) (b) (c) " + std::string(300, 'w');
  EXPECT_EQ(Candidate(Resolve(TextInput(prose)), C::code), nullptr);

  ResolutionResult gutter = Resolve(TextInput("9 x\n10 y\n11\n12 z\n4 w\n"));
  EXPECT_DOUBLE_EQ(Weight(gutter, C::code, "line_gutter(4)"), 0.2);
  EXPECT_EQ(Candidate(Resolve(TextInput("1 a\n2 b\n5 c\n")), C::code), nullptr);
}

TEST(TextKeywordRuleTest, PlaybackPositions) {
  ResolutionResult playing = Resolve(TextInput("Now playing: Episode 4 at 3:07"));
  EXPECT_DOUBLE_EQ(Weight(playing, C::media, "playback_position"), 0.55);
  EXPECT_DOUBLE_EQ(Weight(playing, C::media, "now playing"), 0.15);
  EXPECT_DOUBLE_EQ(Weight(playing, C::media, "playing"), 0.1);  // a counter word
  // A clock time is no playback position; nor is a time without a media phrase.
  EXPECT_EQ(Evidence(Resolve(TextInput("Episode 4 at 3:07 PM")), C::media, "playback_position"),
            nullptr);
  EXPECT_EQ(Evidence(Resolve(TextInput("Episode 4 at 3:07 p.m.")), C::media, "playback_position"),
            nullptr);
  EXPECT_EQ(Candidate(Resolve(TextInput("meet at 3:07")), C::media), nullptr);

  ResolutionResult split = Resolve(TextInput("1:02 / 3:45 share"));
  EXPECT_DOUBLE_EQ(Weight(split, C::media, "playback_position_split"), 0.6);
  EXPECT_DOUBLE_EQ(Weight(split, C::social, "duration_timestamp"), -0.1);
}

TEST(TextKeywordRuleTest, ErrorContextPaymentNoticeAndWebAddresses) {
  ResolutionResult error = Resolve(TextInput(
      "TypeError: x is undefined\n  at main.js:12\nexit code 1\n404 Not Found"));
  for (const char* kind : {"label", "code", "http_status", "source_line"}) {
    EXPECT_DOUBLE_EQ(Weight(error, C::errors, std::string("error_context:") + kind), 0.05) << kind;
  }
  // Without an error word the context is not looked for.
  EXPECT_EQ(Candidate(Resolve(TextInput("see line 12")), C::errors), nullptr);

  EXPECT_DOUBLE_EQ(
      Weight(Resolve(TextInput("Payment received: €40.00")), C::payments, "payment received"),
      0.3);
  EXPECT_EQ(Evidence(Resolve(TextInput("payment received")), C::payments, "payment received"),
            nullptr);

  ResolutionResult url = Resolve(TextInput("see https://example.com/a"));
  EXPECT_DOUBLE_EQ(Weight(url, C::code, "browser_url_mismatch"), -0.15);
  EXPECT_DOUBLE_EQ(Score(url, C::code), 0);
  ResolutionResult comment = Resolve(TextInput("x = 1 // see https://example.com"));
  EXPECT_EQ(Evidence(comment, C::code, "browser_url_mismatch"), nullptr);
}

TEST(InputRuleTest, LabelsFileNamesAndEntities) {
  ResolutionInput input;
  input.classificationLabels = {{"Chat", 0.5f}, {"logo", std::nullopt}, {"cat", 0.9f}};
  input.filename = "VSCode-Crash.png";
  ResolutionResult result = Resolve(input);
  EXPECT_DOUBLE_EQ(Weight(result, C::chats, "chat"), 0.2 * 0.5);
  EXPECT_DOUBLE_EQ(Weight(result, C::design, "logo"), 0.1);
  EXPECT_DOUBLE_EQ(Score(result, C::code), 0.2);  // "code" and "vscode"
  EXPECT_DOUBLE_EQ(Weight(result, C::errors, "crash"), 0.1);

  ResolutionInput entities;
  entities.entities = {"https://example.com/post", "$12.50", "$12.50", "Alice", "   "};
  ResolutionResult found = Resolve(entities);
  ASSERT_EQ(found.candidates.size(), 2u);
  EXPECT_DOUBLE_EQ(Weight(found, C::articles, "https://example.com/post"), 0.03);
  EXPECT_DOUBLE_EQ(Score(found, C::payments), 0.06);  // each entity counts
  EXPECT_EQ(entityCategory("ann@example.com"), C::chats);
  EXPECT_EQ(entityCategory("+1 (555) 010-9999"), C::chats);
  EXPECT_EQ(entityCategory("www.example.org"), C::articles);
  EXPECT_EQ(entityCategory("Node.js"), C::articles);
  EXPECT_EQ(entityCategory("€ 3"), C::payments);
  EXPECT_EQ(entityCategory("3.14"), std::nullopt);
  EXPECT_EQ(entityCategory("Mr. Smith"), std::nullopt);
  EXPECT_EQ(entityCategory("12345"), std::nullopt);
  // Dates and file paths are not phone numbers or web addresses.
  EXPECT_EQ(entityCategory("2026-11-24"), std::nullopt);
  EXPECT_EQ(entityCategory("24.11.2026"), std::nullopt);
  EXPECT_EQ(entityCategory("030-123-4567"), C::chats);
  EXPECT_EQ(entityCategory("/home/anna/receipt.pdf"), std::nullopt);
  EXPECT_EQ(entityCategory("~/notes.txt"), std::nullopt);
  EXPECT_EQ(entityCategory("C:\\Users\\anna\\file.txt"), std::nullopt);
}

TEST(InputRuleTest, SourceApplication) {
  auto app = [](std::string id, std::string name, std::string text = "") {
    ResolutionInput input = TextInput(std::move(text));
    input.sourceAppBundleID = std::move(id);
    input.sourceAppName = std::move(name);
    return Resolve(input);
  };
  EXPECT_DOUBLE_EQ(Weight(app("org.gnome.Terminal", ""), C::code, "org.gnome.Terminal"), 0.65);
  EXPECT_DOUBLE_EQ(Score(app("ORG.GNOME.PTYXIS.desktop", ""), C::code), 0.65);
  EXPECT_DOUBLE_EQ(Score(app("gnome-control-center", ""), C::settings), 0.65);
  // The bundle table is exact: a case variant is unknown there and in the Linux table.
  EXPECT_TRUE(app("COM.APPLE.TERMINAL", "").candidates.empty());
  // An unknown id falls back to the application's name.
  EXPECT_DOUBLE_EQ(Weight(app("", "GNOME Terminal"), C::code, "app_name(terminal)"), 0.25);
  EXPECT_DOUBLE_EQ(Score(app("com.example.unknown", "Spotify Music"), C::media), 0.25);

  // Browsers: addresses in the text instead of name hints.
  ResolutionResult browser =
      app("firefox", "Firefox Music", "stackoverflow.com/questions/1 · from youtube.com");
  EXPECT_DOUBLE_EQ(Weight(browser, C::code, "stackoverflow.com"), 0.5);
  EXPECT_DOUBLE_EQ(Weight(browser, C::media, "youtube.com"), 0.3);
  EXPECT_DOUBLE_EQ(Score(app("com.apple.Safari", "", "github.com/a\ngithub.com"), C::code), 0.5);
  EXPECT_EQ(Candidate(app("com.apple.Safari", "", "fedex.com/track"), C::social), nullptr);
  EXPECT_EQ(Candidate(app("com.apple.Safari", "", "github.community"), C::code), nullptr);
  // Outside a browser the addresses are not read.
  EXPECT_EQ(Candidate(app("", "", "stackoverflow.com/q"), C::code), nullptr);
}

TEST(NegativeEvidenceTest, ContextRules) {
  ResolutionResult shipping = Resolve(TextInput("Your package has shipped. Payment: Visa"));
  EXPECT_DOUBLE_EQ(Weight(shipping, C::payments, "shipping_context"), -0.15);
  // Code words make "package" and "import" code, not parcels.
  ResolutionResult code = Resolve(TextInput("import package visa"));
  EXPECT_EQ(Evidence(code, C::payments, "shipping_context"), nullptr);

  ResolutionResult delivered = Resolve(TextInput("Delivered. Tracking number 1Z"));
  EXPECT_DOUBLE_EQ(Weight(delivered, C::chats, "sent_delivered_shipping_context"), -0.2);
  EXPECT_DOUBLE_EQ(Weight(delivered, C::shopping, "sent_delivered_shipping_context"), 0.15);
  EXPECT_EQ(Candidate(Resolve(TextInput("tracking delivered")), C::chats)->evidence.size(), 2u);

  ResolutionResult declined = Resolve(TextInput("Error: card declined"));
  EXPECT_DOUBLE_EQ(Weight(declined, C::errors, "error_in_payment_context"), -0.15);
  EXPECT_EQ(Evidence(Resolve(TextInput("Error: file missing")), C::errors,
                     "error_in_payment_context"),
            nullptr);

  EXPECT_DOUBLE_EQ(Weight(Resolve(TextInput("share")), C::social, "low_text_social_uncertainty"),
                   -0.1);
  EXPECT_EQ(Evidence(Resolve(TextInput("share this with everyone")), C::social,
                     "low_text_social_uncertainty"),
            nullptr);
  // Above the uncertain bound of 0.3 the short text does not matter.
  EXPECT_EQ(Evidence(Resolve(TextInput("share likes comment")), C::social,
                     "low_text_social_uncertainty"),
            nullptr);
}

}  // namespace
}  // namespace klipora::intelligence
