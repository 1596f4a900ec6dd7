// The texts sent to the model, word for word where they are fixed, and the
// order of the prompt's parts.
#include "intelligence/foundation_model_prompts.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace klipora::intelligence {
namespace {

using Json = nlohmann::json;

ArbitrationInput SampleInput() {
  ArbitrationInput input;
  input.ocrText = "Build failed\nerror: missing semicolon";
  input.candidates = {{"errors", 0.8}, {"code", 0.55}};
  input.filename = "Screenshot From 2024-05-01 10-20-30.png";
  input.sourceAppName = "Terminal";
  input.heuristicWinner = ScreenshotCategory::errors;
  input.heuristicConfidence = 0.724;
  input.topEvidence = {{"error:", 0.5}, {"failed", 0.25}};
  input.classificationLabels = {{"text", 0.9f}, {"screen", std::nullopt}};
  return input;
}

TEST(FoundationModelPromptsTest, ArbitrationPromptHasEveryPartInOrder) {
  std::string prompt = arbitrationPrompt(SampleInput(), false);
  EXPECT_TRUE(prompt.starts_with(
      "Pick one category for this screenshot: code, documents, receipts, design, chats, errors, "
      "payments, travel, shopping, social, settings, media, articles, uncategorized.\n\n"
      "Guidance:\n- \"media\" = audio/video players"));
  EXPECT_NE(prompt.find("- Only override the heuristic when the evidence clearly contradicts it. "
                        "On a near-tie, keep the heuristic.\n\nFile: Screenshot From "
                        "2024-05-01 10-20-30.png\nApp: Terminal\nHeuristic: errors (72% "
                        "confidence)\nEvidence: error:: 0.50, failed: 0.25\nImage contents "
                        "(vision labels): text, screen\nCandidates: errors: 0.80, code: 0.55\n"
                        "\nOCR: Build failed\nerror: missing semicolon"),
            std::string::npos)
      << prompt;
  EXPECT_TRUE(prompt.ends_with("missing semicolon"));
  EXPECT_NE(prompt.find("pick \"media\" \u2014 even inside a web browser"), std::string::npos);

  std::string attached = arbitrationPrompt(SampleInput(), true);
  EXPECT_TRUE(attached.ends_with(
      "missing semicolon\n\nThe screenshot itself is attached. Judge what the interface LOOKS "
      "like, not only the words in it. The OCR text above may quote content that is incidental "
      "to what the screen actually is."));

  ArbitrationInput bare = SampleInput();
  bare.sourceAppName.reset();
  bare.heuristicWinner.reset();
  bare.topEvidence.clear();
  bare.ocrText = std::string(kMaxPromptOCRBytes - 1, 'a') + "\u00e9tude";
  prompt = arbitrationPrompt(bare, false);
  EXPECT_EQ(prompt.find("App: "), std::string::npos);
  EXPECT_NE(prompt.find("Heuristic: uncategorized (72% confidence)\nEvidence: none\n"),
            std::string::npos);
  // Cut before the two-byte letter rather than through it.
  EXPECT_TRUE(prompt.ends_with(std::string(10, 'a')));
}

TEST(FoundationModelPromptsTest, CombinedPromptNumbersTheUserCategories) {
  std::vector<CustomCategoryDescriptor> categories = {
      {UUID::Random(), "Cars", "photos of my car", {"car", "dealer"}},
      {UUID::Random(), "Recipes", "", {}},
  };
  std::string prompt = combinedPrompt(SampleInput(), categories, false);
  EXPECT_TRUE(prompt.ends_with(
      "missing semicolon\n\nSecond task \u2014 independently, match this screenshot to one of "
      "the user-defined categories below. Answer with the category's number "
      "(customCategoryNumber) AND its exact name (customCategoryName); use 0 and an empty name "
      "if none fit.\nMatch each category's name, description, and keywords against BOTH the OCR "
      "text and the vision labels above \u2014 e.g. an image whose vision labels show a car "
      "matches a category about cars or vehicles even if the OCR text doesn't mention them.\n\n"
      "User-defined categories:\n1. Cars \u2014 photos of my car (keywords: car, dealer)\n"
      "2. Recipes\n"))
      << prompt;
  std::string attached = combinedPrompt(SampleInput(), categories, true);
  EXPECT_NE(attached.find("missing semicolon\n\nThe screenshot itself is attached. Judge both "
                          "tasks from what the interface LOOKS like as well as from its text: a "
                          "user-defined category such as \"photos of my car\" can only be "
                          "matched by looking.\n\nSecond task"),
            std::string::npos);
}

TEST(FoundationModelPromptsTest, SchemasCarryTheGuidesAsDescriptions) {
  Json builtin = Json::parse(categoryClassificationSchema());
  EXPECT_EQ(builtin["type"], "object");
  EXPECT_EQ(builtin["additionalProperties"], false);
  EXPECT_EQ(builtin["required"], (Json{"category", "explanation", "title"}));
  EXPECT_EQ(builtin["properties"]["category"]["description"], kCategoryGuide);
  EXPECT_EQ(builtin["properties"]["explanation"]["description"],
            "A brief one-sentence explanation of why this category was chosen");
  EXPECT_TRUE(std::string(kTitleGuide)
                  .starts_with("A short, specific title for the screenshot, 3 to 6 words. Use "
                               "the most specific names visible on screen (app, website, "
                               "project, file, page or conversation name) rather than a generic "
                               "description: \"Xcode build error in ProcessingQueue\", not"));
  EXPECT_EQ(builtin["properties"]["title"]["description"], kTitleGuide);

  Json custom = Json::parse(customCategoryClassificationSchema());
  EXPECT_EQ(custom["properties"]["categoryNumber"]["type"], "integer");
  EXPECT_EQ(custom["properties"]["categoryNumber"]["description"],
            "The 1-based index of the matching custom category, or 0 if none match");

  Json combined = Json::parse(combinedClassificationSchema());
  EXPECT_EQ(combined["required"], (Json{"category", "explanation", "customCategoryNumber",
                                        "customCategoryName", "customExplanation", "title"}));
  EXPECT_EQ(combined["properties"]["category"]["description"],
            "The built-in screenshot category. Must be one of: code, documents, receipts, "
            "design, chats, errors, payments, travel, shopping, social, settings, media, "
            "articles, uncategorized");
  EXPECT_EQ(combined["properties"]["customCategoryName"]["description"],
            "The exact name of the matching user-defined category copied verbatim from the "
            "list, or an empty string if none match");
  EXPECT_EQ(Json::parse(keywordExpansionSchema())["properties"]["keywords"]["description"],
            "8 to 15 lowercase single-word terms, comma-separated, closely and specifically "
            "related to the category subject. No generic words like screenshot, image, photo, "
            "thing, example.");
}

TEST(FoundationModelPromptsTest, KeywordExpansionPromptIsExact) {
  EXPECT_EQ(keywordExpansionPrompt("Cars", "photos of my car", {"car", "dealer"}),
            "A user created a screenshot category named \"Cars\" described as: \"photos of my "
            "car\".\nIts current subject keywords are: car, dealer.\nList 8 to 15 additional "
            "single-word lowercase terms that are closely and specifically related to this "
            "subject, useful for recognizing screenshots of it.\nOnly nouns or adjectives. Do "
            "not include generic words like \"screenshot\", \"image\", \"photo\", \"thing\", or "
            "\"example\". Do not repeat the existing keywords. Comma-separated.");
}

}  // namespace
}  // namespace klipora::intelligence
