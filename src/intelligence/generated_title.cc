#include "intelligence/generated_title.h"

#include <array>
#include <cmath>
#include <ctime>

#include "intelligence/text_words.h"
#include "library/screenshot_item.h"

namespace klipora::intelligence {
namespace {

constexpr std::string_view kBlanks = " \t\r\n\f\v";
// Quotes a model wraps a title in, straight and typographic.
constexpr std::array<std::string_view, 10> kQuotes = {
    "\"", "'", "`", "\u201C", "\u201D", "\u2018", "\u2019", "\u00AB", "\u00BB", "*"};

bool IsBlank(char c) { return kBlanks.find(c) != std::string_view::npos; }

// Strips quotes from both ends, and blanks they enclosed, until none is left.
std::string_view Unquote(std::string_view text) {
  bool stripped = true;
  while (stripped) {
    stripped = false;
    for (std::string_view quote : kQuotes) {
      if (text.starts_with(quote)) {
        text = trimBlanks(text.substr(quote.size()));
        stripped = true;
      }
      if (text.ends_with(quote)) {
        text = trimBlanks(text.substr(0, text.size() - quote.size()));
        stripped = true;
      }
    }
  }
  return text;
}

bool StartsWithIgnoringCase(std::string_view text, std::string_view lowerPrefix) {
  if (text.size() < lowerPrefix.size()) return false;
  for (size_t i = 0; i < lowerPrefix.size(); ++i) {
    char c = text[i];
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if (c != lowerPrefix[i]) return false;
  }
  return true;
}

std::string CollapseBlanks(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (!IsBlank(c)) {
      out += c;
    } else if (!out.empty() && out.back() != ' ') {
      out += ' ';
    }
  }
  return out;
}

std::string LocalDay(Date date) {
  static constexpr std::array<const char*, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const double seconds = std::floor(date.timeIntervalSince1970());
  if (!(std::abs(seconds) < 1e15)) return "";  // NaN or beyond any calendar
  std::time_t t = static_cast<std::time_t>(seconds);
  std::tm tm{};
  if (!localtime_r(&t, &tm)) return "";
  return std::to_string(tm.tm_mday) + " " + kMonths[tm.tm_mon % 12] + " " +
         std::to_string(tm.tm_year + 1900);
}

}  // namespace

std::string cleanModelTitle(std::string_view title) {
  std::string_view text = Unquote(trimBlanks(title));
  if (StartsWithIgnoringCase(text, "title:")) text = Unquote(trimBlanks(text.substr(6)));
  std::string cleaned = CollapseBlanks(text);
  while (!cleaned.empty() && cleaned.back() == ' ') cleaned.pop_back();
  if (cleaned.ends_with('.') && !cleaned.ends_with("..")) {
    cleaned.pop_back();
    while (!cleaned.empty() && cleaned.back() == ' ') cleaned.pop_back();
  }
  return capAtWordBoundary(std::move(cleaned), kMaxGeneratedTitleLength);
}

std::string makeGeneratedTitle(const std::optional<std::string>& modelTitle,
                               library::ScreenshotCategory category, Date capturedOrImportedAt) {
  if (modelTitle) {
    std::string title = cleanModelTitle(*modelTitle);
    if (!title.empty()) return title;
  }
  std::string title = library::displayName(category);
  std::string day = LocalDay(capturedOrImportedAt);
  if (!day.empty()) title += " \u00B7 " + day;
  return title;
}

bool shouldFlagForReview(double confidence) { return !(confidence >= kReviewConfidenceThreshold); }

}  // namespace klipora::intelligence
