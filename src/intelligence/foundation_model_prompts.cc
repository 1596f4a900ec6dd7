#include "intelligence/foundation_model_prompts.h"

#include <cstdio>
#include <nlohmann/json.hpp>

namespace klipora::intelligence {
namespace {

using Json = nlohmann::ordered_json;

constexpr char kCategoryList[] =
    "code, documents, receipts, design, chats, errors, payments, travel, shopping, social, "
    "settings, media, articles, uncategorized";

constexpr char kInstructions[] =
    "Pick one category for this screenshot: code, documents, receipts, design, chats, errors, "
    "payments, travel, shopping, social, settings, media, articles, uncategorized.\n"
    "\n"
    "Guidance:\n"
    "- \"media\" = audio/video players and playback UI: YouTube/Spotify/Apple Music/video "
    "players, play-pause/next/prev controls, a seek bar, a current/total timestamp like "
    "\"0:21 / 5:11\", track/album/artist info, thumbnails. If playback controls or a "
    "current/total duration timestamp are present, pick \"media\" \u2014 even inside a web "
    "browser, and in preference to \"documents\", \"articles\", or any other category.\n"
    "- \"design\" = UI/UX work in a design tool (Figma, Sketch, Adobe XD), wireframes, "
    "mockups, app layouts, layer/canvas panels. Prefer this over \"documents\" when the image "
    "shows a design canvas or editor chrome, even if it contains lots of text.\n"
    "- \"articles\" = published editorial/web writing: news stories, blog posts, Medium "
    "articles, multi-paragraph prose meant for readers. Pick this only when the text is "
    "genuinely flowing prose (a headline plus several body paragraphs). Do NOT pick "
    "\"articles\" just because the page is open in a web browser.\n"
    "- \"documents\" = personal/work documents such as PDFs, Word/Pages files, forms, "
    "contracts, plain text. Do NOT pick \"documents\" just because the vision label "
    "\"document\" appears or the text is long \u2014 that label fires on any text-heavy image, "
    "including design tools, articles, and media players.\n"
    "- Only override the heuristic when the evidence clearly contradicts it. On a near-tie, "
    "keep the heuristic.";

constexpr char kAttachedLine[] =
    "The screenshot itself is attached. Judge what the interface LOOKS like, not only the "
    "words in it. The OCR text above may quote content that is incidental to what the screen "
    "actually is.";

constexpr char kCombinedAttachedLine[] =
    "The screenshot itself is attached. Judge both tasks from what the interface LOOKS like as "
    "well as from its text: a user-defined category such as \"photos of my car\" can only be "
    "matched by looking.";

constexpr char kSecondTask[] =
    "\n\nSecond task \u2014 independently, match this screenshot to one of the user-defined "
    "categories below. Answer with the category's number (customCategoryNumber) AND its exact "
    "name (customCategoryName); use 0 and an empty name if none fit.\nMatch each category's "
    "name, description, and keywords against BOTH the OCR text and the vision labels above "
    "\u2014 e.g. an image whose vision labels show a car matches a category about cars or "
    "vehicles even if the OCR text doesn't mention them.\n\nUser-defined categories:\n";

std::string Format(const char* format, double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, format, value);
  return buffer;
}

// At most `limit` bytes, never ending inside a UTF-8 sequence.
std::string Cut(const std::string& text, size_t limit) {
  if (text.size() <= limit) return text;
  size_t end = limit;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
  return text.substr(0, end);
}

Json Field(const char* type, const char* guide) {
  return Json{{"type", type}, {"description", guide}};
}

std::string Schema(Json properties) {
  Json required = Json::array();
  for (const auto& [name, _] : properties.items()) required.push_back(name);
  return Json{{"type", "object"},
              {"properties", std::move(properties)},
              {"required", std::move(required)},
              {"additionalProperties", false}}
      .dump();
}

// The arbitration prompt without its attachment line.
std::string PromptBody(const ArbitrationInput& input) {
  std::string out = kInstructions;
  out += "\n\nFile: " + input.filename + "\n";
  if (input.sourceAppName && !input.sourceAppName->empty()) {
    out += "App: " + *input.sourceAppName + "\n";
  }
  out += "Heuristic: ";
  out += input.heuristicWinner ? std::string(library::rawValue(*input.heuristicWinner))
                               : "uncategorized";
  out += " (" + Format("%.0f%%", input.heuristicConfidence * 100) + " confidence)\n";
  out += "Evidence: ";
  for (size_t i = 0; i < input.topEvidence.size(); ++i) {
    if (i) out += ", ";
    out += input.topEvidence[i].first + ": " + Format("%.2f", input.topEvidence[i].second);
  }
  out += input.topEvidence.empty() ? "none\n" : "\n";
  out += "Image contents (vision labels): ";
  for (size_t i = 0; i < input.classificationLabels.size(); ++i) {
    if (i) out += ", ";
    out += input.classificationLabels[i].label;
  }
  out += input.classificationLabels.empty() ? "none\n" : "\n";
  out += "Candidates: ";
  for (size_t i = 0; i < input.candidates.size(); ++i) {
    if (i) out += ", ";
    out += input.candidates[i].first + ": " + Format("%.2f", input.candidates[i].second);
  }
  out += input.candidates.empty() ? "none\n" : "\n";
  out += "\nOCR: " + Cut(input.ocrText, kMaxPromptOCRBytes);
  return out;
}

std::string Join(const std::vector<std::string>& parts, const char* separator) {
  std::string out;
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i) out += separator;
    out += parts[i];
  }
  return out;
}

}  // namespace

const char* const kCategoryGuide =
    "The screenshot category. Must be one of: code, documents, receipts, design, chats, errors, "
    "payments, travel, shopping, social, settings, media, articles, uncategorized";
const char* const kTitleGuide =
    "A short, specific title for the screenshot, 3 to 6 words. Use the most specific names "
    "visible on screen (app, website, project, file, page or conversation name) rather than a "
    "generic description: \"Xcode build error in ProcessingQueue\", not \"Code editor with "
    "multiple files\"; \"Stripe payout settings\", not \"Settings page\". Never include "
    "personal data such as names, emails, phone numbers, addresses, passwords, keys or tokens. "
    "No quotes, no ending punctuation, and do not use the words screenshot or image.";
const char* const kKeywordsGuide =
    "8 to 15 lowercase single-word terms, comma-separated, closely and specifically related to "
    "the category subject. No generic words like screenshot, image, photo, thing, example.";

std::string categoryClassificationSchema() {
  return Schema(Json{
      {"category", Field("string", kCategoryGuide)},
      {"explanation",
       Field("string", "A brief one-sentence explanation of why this category was chosen")},
      {"title", Field("string", kTitleGuide)},
  });
}

std::string customCategoryClassificationSchema() {
  return Schema(Json{
      {"categoryNumber",
       Field("integer", "The 1-based index of the matching custom category, or 0 if none match")},
      {"explanation",
       Field("string", "A brief one-sentence explanation of the match or why none matched")},
  });
}

std::string combinedClassificationSchema() {
  return Schema(Json{
      {"category",
       Field("string",
             (std::string("The built-in screenshot category. Must be one of: ") + kCategoryList)
                 .c_str())},
      {"explanation", Field("string",
                            "A brief one-sentence explanation of why this built-in category "
                            "was chosen")},
      {"customCategoryNumber",
       Field("integer",
             "The 1-based number of the matching user-defined category, or 0 if none match")},
      {"customCategoryName",
       Field("string",
             "The exact name of the matching user-defined category copied verbatim from the "
             "list, or an empty string if none match")},
      {"customExplanation",
       Field("string",
             "A brief one-sentence explanation of the custom category match or why none "
             "matched")},
      {"title", Field("string", kTitleGuide)},
  });
}

std::string keywordExpansionSchema() {
  return Schema(Json{{"keywords", Field("string", kKeywordsGuide)}});
}

std::string arbitrationPrompt(const ArbitrationInput& input, bool imageAttached) {
  std::string out = PromptBody(input);
  if (imageAttached) out += std::string("\n\n") + kAttachedLine;
  return out;
}

std::string combinedPrompt(const ArbitrationInput& input,
                           const std::vector<CustomCategoryDescriptor>& categories,
                           bool imageAttached) {
  std::string out = PromptBody(input);
  if (imageAttached) out += std::string("\n\n") + kCombinedAttachedLine;
  out += kSecondTask;
  for (size_t i = 0; i < categories.size(); ++i) {
    const auto& c = categories[i];
    out += std::to_string(i + 1) + ". " + c.name;
    if (!c.description.empty()) out += " \u2014 " + c.description;
    if (!c.keywords.empty()) out += " (keywords: " + Join(c.keywords, ", ") + ")";
    out += "\n";
  }
  return out;
}

std::string keywordExpansionPrompt(const std::string& categoryName,
                                   const std::string& description,
                                   const std::vector<std::string>& base) {
  return "A user created a screenshot category named \"" + categoryName +
         "\" described as: \"" + description + "\".\nIts current subject keywords are: " +
         Join(base, ", ") +
         ".\nList 8 to 15 additional single-word lowercase terms that are closely and "
         "specifically related to this subject, useful for recognizing screenshots of it.\nOnly "
         "nouns or adjectives. Do not include generic words like \"screenshot\", \"image\", "
         "\"photo\", \"thing\", or \"example\". Do not repeat the existing keywords. "
         "Comma-separated.";
}

}  // namespace klipora::intelligence
