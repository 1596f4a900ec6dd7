#include "intelligence/category_rules.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "intelligence/category_app_table.h"
#include "intelligence/category_browser_domains.h"
#include "intelligence/category_keywords.h"

namespace klipora::intelligence {
namespace {

using C = ScreenshotCategory;
using S = EvidenceSource;
using L = TextWordList;

// Structural code signals.
constexpr double kIdentifierWeight = 0.15;
constexpr double kLetWeight = 0.15;  // a declaration is as telling as an identifier pattern
constexpr double kIndentationWeight = 0.2;
constexpr double kBracketWeight = 0.15;
constexpr double kGutterWeight = 0.2;
// Media: a phrase backed by a playback position, and a current/total pair.
constexpr double kPlaybackWeight = 0.55;
constexpr double kPlaybackSplitWeight = 0.6;
constexpr double kErrorContextWeight = 0.05;
constexpr double kPaymentReceivedWeight = 0.3;  // two payment keywords' worth and then some
// Takes back the "//" keyword when every "//" belongs to a web address.
constexpr double kBrowserURLMismatchWeight = -0.15;

constexpr double kLabelWeightPerConfidence = 0.2;
constexpr double kLabelWeightWithoutConfidence = 0.1;
constexpr double kFilenameWeight = 0.1;
constexpr double kEntityWeight = 0.03;
constexpr double kAppWeight = 0.65;
constexpr double kAppNameHintWeight = 0.25;

constexpr double kSimilarityThreshold = 0.55;  // semantic scores must exceed it
constexpr double kHardEvidenceFloor = 0.05;
constexpr double kStrongSimilarityFactor = 0.4;
constexpr double kWeakSemanticFactor = 0.15;
constexpr double kWeakVisualFactor = 0.08;
constexpr double kMinSimilarityWeight = 0.05;

constexpr size_t kLongTextCharacters = 400;
constexpr size_t kShortTextCharacters = 20;  // below this, social evidence is uncertain
constexpr double kUncertainSocialScore = 0.3;

std::string_view Format(char (&buffer)[96], const char* format, auto... args) {
  int n = std::snprintf(buffer, sizeof buffer, format, args...);
  return std::string_view(buffer, n < 0 ? 0 : std::min<size_t>(n, sizeof buffer - 1));
}

bool EqualsIgnoringAsciiCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
    auto lower = [](char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; };
    return lower(x) == lower(y);
  });
}

// Every "//" is the "://" of a web address, so it is no comment marker.
bool OnlyURLSlashes(std::string_view text) {
  bool any = false;
  for (size_t at = text.find("//"); at != std::string_view::npos; at = text.find("//", at + 2)) {
    if (at == 0 || text[at - 1] != ':') return false;
    any = true;
  }
  return any;
}

void AddCodeStructure(CategoryScoreTable& table, const TextFacts& facts, bool mayDeclare) {
  char buffer[96];
  CodeStructure code = findCodeStructure(facts.text, facts.shape, mayDeclare);
  if (code.camelIdentifiers + code.snakeIdentifiers >= kMinIdentifiers) {
    table.addEvidence(C::code, S::ocrText,
                      Format(buffer, "identifiers(camel:%d,snake:%d)", code.camelIdentifiers,
                             code.snakeIdentifiers),
                      kIdentifierWeight);
  }
  if (code.letDeclaration) table.addEvidence(C::code, S::ocrText, "let =", kLetWeight);
  if (facts.shape.indentedLines >= kMinIndentedLines) {
    table.addEvidence(C::code, S::ocrText,
                      Format(buffer, "indentation(%d)", facts.shape.indentedLines),
                      kIndentationWeight);
  }
  if (bracketsSignal(facts.shape)) {
    table.addEvidence(C::code, S::ocrText, Format(buffer, "brackets(%d)", facts.shape.brackets),
                      kBracketWeight);
  }
  if (code.gutterRun >= kMinGutterRun) {
    table.addEvidence(C::code, S::ocrText, Format(buffer, "line_gutter(%d)", code.gutterRun),
                      kGutterWeight);
  }
}

bool IsCurrencyAmount(std::string_view entity) {
  bool digit = std::any_of(entity.begin(), entity.end(), [](char c) { return c >= '0' && c <= '9'; });
  if (!digit) return false;
  for (std::string_view sign : wordsOf(L::currencySigns)) {
    if (entity.find(sign) != std::string_view::npos) return true;
  }
  return false;
}

// Three groups of digits with one separator, year first or last: a date
// such as 2026-11-24 or 24.11.2026, which has as many digits as a phone number.
bool IsNumericDate(std::string_view entity) {
  size_t first = entity.find_first_not_of("0123456789");
  if (first == std::string_view::npos) return false;
  char separator = entity[first];
  size_t second = entity.find(separator, first + 1);
  if (second == std::string_view::npos) return false;
  std::string_view groups[] = {entity.substr(0, first),
                               entity.substr(first + 1, second - first - 1),
                               entity.substr(second + 1)};
  for (std::string_view group : groups) {
    if (group.empty() || group.find_first_not_of("0123456789") != std::string_view::npos) {
      return false;
    }
  }
  bool yearFirst = groups[0].size() == 4 && groups[1].size() <= 2 && groups[2].size() <= 2;
  bool yearLast = groups[0].size() <= 2 && groups[1].size() <= 2 && groups[2].size() == 4;
  return yearFirst || yearLast;
}

bool IsPhoneNumber(std::string_view entity) {
  if (IsNumericDate(entity)) return false;
  int digits = 0;
  for (char c : entity) {
    if (c >= '0' && c <= '9') {
      ++digits;
    } else if (c != ' ' && c != '+' && c != '-' && c != '(' && c != ')' && c != '.') {
      return false;
    }
  }
  return digits >= 7;
}

// "/home/me/notes.txt", "~/notes.txt", "./build", "C:\Users\me\a.pdf".
bool IsFilePath(std::string_view entity) {
  return entity.starts_with('/') || entity.starts_with('~') || entity.starts_with("./") ||
         entity.starts_with("../") || (entity.size() > 2 && entity[1] == ':' && entity[2] == '\\');
}

bool IsWebAddress(std::string_view entity) {
  if (entity.find("://") != std::string_view::npos) return true;
  if (IsFilePath(entity)) return false;
  if (entity.size() > 4 && EqualsIgnoringAsciiCase(entity.substr(0, 4), "www.")) return true;
  if (entity.find_first_of(" \t\n@") != std::string_view::npos) return false;
  size_t dot = entity.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return false;
  std::string_view tld = entity.substr(dot + 1);
  return tld.size() >= 2 && tld.size() <= 6 && std::all_of(tld.begin(), tld.end(), [](char c) {
           return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
         });
}

bool IsEmailAddress(std::string_view entity) {
  size_t at = entity.find('@');
  return at != std::string_view::npos && at > 0 &&
         entity.find('.', at) != std::string_view::npos &&
         entity.find_first_of(" \t\n") == std::string_view::npos;
}

}  // namespace

void accumulateOCR(CategoryScoreTable& table, const TextFacts& facts) {
  const TextVocabulary& vocabulary = TextVocabulary::instance();
  for (const KeywordTable& keywordTable : keywordTables()) {
    auto words = wordsOf(keywordTable.list);
    for (size_t i = 0; i < words.size(); ++i) {
      if (vocabulary.found(facts.hits, keywordTable.list, i)) {
        table.addEvidence(keywordTable.category, S::ocrText, words[i], keywordTable.weight);
      }
    }
  }
  if (facts.text.empty()) return;

  AddCodeStructure(table, facts, vocabulary.anyFound(facts.hits, L::letHint));

  if (vocabulary.anyFound(facts.hits, L::mediaPhrases) &&
      hasPlaybackPosition(facts.text, facts.shape)) {
    table.addEvidence(C::media, S::ocrText, "playback_position", kPlaybackWeight);
  }
  if (facts.playbackSplit) {
    table.addEvidence(C::media, S::ocrText, "playback_position_split", kPlaybackSplitWeight);
  }

  // Error context is only looked for where the text speaks of errors.
  if (vocabulary.anyFound(facts.hits, L::errorKeywords)) {
    uint8_t contexts = findErrorContexts(facts.text);
    char buffer[96];
    for (size_t bit = 0; bit < std::size(kErrorContextNames); ++bit) {
      if ((contexts & (1u << bit)) == 0) continue;
      table.addEvidence(C::errors, S::ocrText,
                        Format(buffer, "error_context:%s", kErrorContextNames[bit].data()),
                        kErrorContextWeight);
    }
  }

  // "Payment received" with an amount beside it is a payment notice.
  if (vocabulary.anyFound(facts.hits, L::paymentReceivedPhrase) &&
      vocabulary.anyFound(facts.hits, L::currencySigns)) {
    table.addEvidence(C::payments, S::ocrText, "payment received", kPaymentReceivedWeight);
  }

  static const size_t kCommentMarker = [] {
    auto words = wordsOf(L::codeKeywords);
    return static_cast<size_t>(std::find(words.begin(), words.end(), "//") - words.begin());
  }();
  if (vocabulary.found(facts.hits, L::codeKeywords, kCommentMarker) && OnlyURLSlashes(facts.text)) {
    table.addEvidence(C::code, S::ocrText, "browser_url_mismatch", kBrowserURLMismatchWeight);
  }
}

void accumulateLabels(CategoryScoreTable& table, std::span<const ClassificationLabel> labels) {
  for (const ClassificationLabel& label : labels) {
    double weight = kLabelWeightWithoutConfidence;
    if (label.confidence) {
      double confidence = *label.confidence;
      // A negative or NaN confidence is no measurement at all.
      if (!(confidence >= 0)) continue;
      weight = kLabelWeightPerConfidence * std::min(confidence, 1.0);
    }
    for (const CategoryKey& row : labelTable()) {
      if (EqualsIgnoringAsciiCase(label.label, row.key)) {
        table.addEvidence(row.category, S::classifierLabel, row.key, weight);
        break;
      }
    }
  }
}

void accumulateFilename(CategoryScoreTable& table, std::string_view filename) {
  KeywordHits hits = findKeywords(filenameAutomaton(), filename);
  auto rows = filenameTable();
  for (size_t i = 0; i < rows.size(); ++i) {
    if (hits.contains(i)) table.addEvidence(rows[i].category, S::filename, rows[i].key, kFilenameWeight);
  }
}

std::optional<ScreenshotCategory> entityCategory(std::string_view entity) {
  if (entity.find_first_not_of(" \t\r\n") == std::string_view::npos) return std::nullopt;
  if (IsEmailAddress(entity)) return C::chats;
  if (IsWebAddress(entity)) return C::articles;
  if (IsCurrencyAmount(entity)) return C::payments;
  if (IsPhoneNumber(entity)) return C::chats;
  return std::nullopt;
}

void accumulateEntities(CategoryScoreTable& table, std::span<const std::string> entities) {
  for (const std::string& entity : entities) {
    if (auto category = entityCategory(entity)) {
      table.addEvidence(*category, S::entity, entity, kEntityWeight);
    }
  }
}

void accumulateAppContext(CategoryScoreTable& table, const std::optional<std::string>& bundleID,
                          const std::optional<std::string>& appName, std::string_view text) {
  std::string_view id = bundleID ? std::string_view(*bundleID) : std::string_view();
  ApplicationMatch match = lookUpApplication(id);
  if (match.category) {
    table.addEvidence(*match.category, S::sourceApp, id, kAppWeight);
    return;
  }
  if (match.browser) {
    accumulateBrowserURLPatterns(table, text);
    return;
  }
  if (!appName) return;
  if (const CategoryKey* hint = applicationNameHint(*appName)) {
    char buffer[96];
    table.addEvidence(hint->category, S::sourceApp,
                      Format(buffer, "app_name(%.*s)", static_cast<int>(hint->key.size()),
                             hint->key.data()),
                      kAppNameHintWeight);
  }
}

void accumulateBrowserURLPatterns(CategoryScoreTable& table, std::string_view text) {
  auto matches = matchBrowserDomains(text);
  auto rows = browserDomainTable();
  for (size_t i = 0; i < rows.size(); ++i) {
    if (matches[i] == DomainMatch::none) continue;
    double weight = matches[i] == DomainMatch::strong ? kStrongDomainWeight : kWeakDomainWeight;
    table.addEvidence(rows[i].category, S::sourceApp, rows[i].domain, weight);
  }
}

void accumulateSemanticScores(CategoryScoreTable& table, const HardScores& hard,
                              const std::map<ScreenshotCategory, double>& scores) {
  char buffer[96];
  for (const auto& [category, raw] : scores) {
    if (category == C::uncategorized || !(raw > kSimilarityThreshold)) continue;
    double s = std::min(raw, 1.0);  // a similarity cannot exceed 1
    bool backed = hard[static_cast<size_t>(category)] > kHardEvidenceFloor;
    double weight = (backed ? kStrongSimilarityFactor : kWeakSemanticFactor) * s;
    if (!(weight > kMinSimilarityWeight)) continue;
    table.addEvidence(category, S::semanticSimilarity,
                      Format(buffer, backed ? "nlembedding(%.2f)" : "nlembedding_weak(%.2f)", s),
                      weight);
  }
}

void accumulateVisualVotes(CategoryScoreTable& table, const HardScores& hard,
                           const std::map<ScreenshotCategory, double>& votes) {
  char buffer[96];
  for (const auto& [category, raw] : votes) {
    if (category == C::uncategorized || !(raw > 0)) continue;
    double v = std::min(raw, 1.0);  // a vote is a share of neighbours
    bool backed = hard[static_cast<size_t>(category)] > kHardEvidenceFloor;
    double weight = (backed ? kStrongSimilarityFactor : kWeakVisualFactor) * v;
    if (!(weight > kMinSimilarityWeight)) continue;
    table.addEvidence(category, S::visualSimilarity,
                      Format(buffer, backed ? "featureprint(%.2f)" : "featureprint_weak(%.2f)", v),
                      weight);
  }
}

void applyNegativeEvidence(CategoryScoreTable& table, const TextFacts& facts) {
  const TextVocabulary& vocabulary = TextVocabulary::instance();
  const KeywordHits& hits = facts.hits;
  bool shipping = vocabulary.anyFound(hits, L::shippingWords) &&
                  !vocabulary.anyFound(hits, L::shippingCodeWords);
  if (shipping && table.score(C::payments) > 0) {
    table.addEvidence(C::payments, S::negativeEvidence, "shipping_context", -0.15);
  }
  if (shipping && vocabulary.anyFound(hits, L::deliveryStateWords) && table.score(C::chats) > 0) {
    table.addEvidence(C::chats, S::negativeEvidence, "sent_delivered_shipping_context", -0.2);
    table.addEvidence(C::shopping, S::negativeEvidence, "sent_delivered_shipping_context", 0.15);
  }
  if (vocabulary.anyFound(hits, L::paymentContextWords) &&
      vocabulary.anyFound(hits, L::failureWords) && table.score(C::errors) > 0) {
    table.addEvidence(C::errors, S::negativeEvidence, "error_in_payment_context", -0.15);
  }
  double social = table.score(C::social);
  if (social > 0 && social <= kUncertainSocialScore &&
      facts.shape.characters < kShortTextCharacters) {
    table.addEvidence(C::social, S::negativeEvidence, "low_text_social_uncertainty", -0.1);
  }
  if (facts.playbackSplit && table.score(C::social) > 0) {
    table.addEvidence(C::social, S::negativeEvidence, "duration_timestamp", -0.1);
  }
}

void accumulateLongText(CategoryScoreTable& table, const TextFacts& facts) {
  size_t characters = facts.shape.characters;
  if (characters <= kLongTextCharacters) return;
  double weight = std::min(0.2, static_cast<double>(characters - kLongTextCharacters) / 10000 + 0.1);
  char buffer[96];
  table.addEvidence(C::documents, S::ocrText, Format(buffer, "long_text(%zu)", characters), weight);
}

}  // namespace klipora::intelligence
