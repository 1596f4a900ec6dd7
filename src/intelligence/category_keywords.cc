#include "intelligence/category_keywords.h"

#include <algorithm>
#include <array>

namespace klipora::intelligence {
namespace {

using C = ScreenshotCategory;
using L = TextWordList;
using SV = std::string_view;

// A trailing blank in a keyword is part of it.
constexpr SV kCode[] = {"func ",     "class ",   "struct ",     "import ",    "var ",
                        "def ",      "return ",  "console.log", "print(",     "=>",
                        "->",        "//",       "stack trace", "stacktrace", "terminal",
                        "git ",      "npm ",     "pip ",        "cargo ",     "brew ",
                        "public ",   "private ", "protected ",  "static ",    "const ",
                        "async ",    "await ",   "export ",     "require(",   "ifdef",
                        "endif",     "pragma",   "include ",    "package ",   "namespace "};
constexpr SV kErrors[] = {"error", "exception", "crash", "fatal",   "failed",
                          "traceback", "segfault", "panic", "abort", "undefined"};
// The longer phrase is the closing line most shops print under the totals.
constexpr SV kReceipts[] = {"receipt", "invoice",    "order #",   "order number",
                            "tax",     "subtotal",   "total:",    "amount due",
                            "thank you for your purchase", "bill to"};
constexpr SV kPayments[] = {"payment", "transaction", "card ending", "visa",
                            "mastercard", "paypal",   "stripe"};
constexpr SV kChats[] = {"sent", "delivered", "read", "typing", "online", "message"};
constexpr SV kTravel[] = {"flight",    "boarding pass", "hotel",     "reservation", "check-in",
                          "departure", "arrival",       "itinerary", "booking"};
constexpr SV kMediaPhrases[] = {"music video", "official video", "watch later", "watch now",
                                "now playing", "playlist",       "episode",     "season",
                                "podcast",     "stream",         "album",       "soundtrack",
                                "subscribers", "subscriptions",  "shorts"};
constexpr SV kMediaCounters[] = {"views",   "plays",  "listeners", "streams",
                                 "playing", "paused", "duration",  "premiere"};
constexpr SV kShopping[] = {"add to cart", "buy now",      "checkout", "shipping", "delivery",
                            "in stock",    "out of stock", "price",    "discount"};
constexpr SV kSocial[] = {"followers", "following", "likes", "retweet", "share", "comment"};
constexpr SV kDesign[] = {"ui design",  "ux design",     "graphic design", "web design",
                          "mockup",     "wireframe",     "prototype",      "artboard",
                          "color palette", "typography", "font size",      "figma",
                          "sketch",     "adobe xd",      "canva",          "layout",
                          "component",  "responsive",    "pixel"};
constexpr SV kSettings[] = {"preferences", "settings", "configuration",
                            "toggle",      "enable",   "disable"};
constexpr SV kArticles[] = {"article",  "blog",      "published", "author",     "read more",
                            "min read", "subscribe", "newsletter", "headline",  "by ",
                            "posted on", "updated on", "written by"};

constexpr SV kCurrencySigns[] = {"$", "€", "£", "¥"};
constexpr SV kShippingWords[] = {"tracking", "package", "shipped", "delivery date",
                                 "order status", "carrier", "usps", "fedex"};
// With any of these, "package" and "import" are code words, not parcels.
constexpr SV kShippingCodeWords[] = {"func ",   "var ",   "def ",   "class ",
                                     "import ", "return ", "print(", "console.log"};
constexpr SV kPaymentContext[] = {"payment", "transaction", "card", "declined", "charge"};
constexpr SV kFailureWords[] = {"error", "failed"};
constexpr SV kDeliveryStates[] = {"sent", "delivered"};
constexpr SV kPaymentReceived[] = {"payment received"};
// Cheap gate before the "let" declaration expression runs.
constexpr SV kLetHint[] = {"let"};

constexpr std::array<std::span<const SV>, static_cast<size_t>(L::count)> kLists = {
    kCode,          kErrors,        kReceipts,         kPayments,       kChats,
    kTravel,        kMediaPhrases,  kMediaCounters,    kShopping,       kSocial,
    kDesign,        kSettings,      kArticles,         kCurrencySigns,  kShippingWords,
    kShippingCodeWords, kPaymentContext, kFailureWords, kDeliveryStates, kPaymentReceived,
    kLetHint};

constexpr KeywordTable kTables[] = {
    {L::codeKeywords, C::code, 0.15},
    {L::errorKeywords, C::errors, 0.2},
    {L::receiptKeywords, C::receipts, 0.15},
    {L::paymentKeywords, C::payments, 0.05},
    {L::chatKeywords, C::chats, 0.15},
    {L::travelKeywords, C::travel, 0.15},
    // A media phrase alone weighs like the other tables' keywords; backed by
    // a playback position it earns the stronger playback rule as well.
    {L::mediaPhrases, C::media, 0.15},
    {L::mediaCounters, C::media, 0.1},
    {L::shoppingKeywords, C::shopping, 0.15},
    {L::socialKeywords, C::social, 0.15},
    {L::designKeywords, C::design, 0.2},
    {L::settingsKeywords, C::settings, 0.15},
    {L::articleKeywords, C::articles, 0.15},
};

constexpr CategoryKey kLabels[] = {
    {"design", C::design},        {"illustration", C::design},  {"graphic", C::design},
    {"drawing", C::design},       {"art", C::design},           {"sketch", C::design},
    {"logo", C::design},          {"chat", C::chats},           {"messaging", C::chats},
    {"conversation", C::chats},   {"video", C::media},          {"music", C::media},
    {"player", C::media},         {"movie", C::media},          {"audio", C::media},
    {"song", C::media},           {"podcast", C::media},        {"social", C::social},
    {"feed", C::social},          {"document", C::documents},   {"paperwork", C::documents},
    {"settings", C::settings},    {"preferences", C::settings},
};

constexpr CategoryKey kFilenames[] = {
    {"code", C::code},         {"xcode", C::code},         {"terminal", C::code},
    {"vscode", C::code},       {"error", C::errors},       {"crash", C::errors},
    {"receipt", C::receipts},  {"invoice", C::receipts},   {"payment", C::payments},
    {"chat", C::chats},        {"message", C::chats},      {"design", C::design},
    {"figma", C::design},      {"sketch", C::design},      {"travel", C::travel},
    {"flight", C::travel},     {"hotel", C::travel},       {"shop", C::shopping},
    {"cart", C::shopping},     {"order", C::shopping},     {"social", C::social},
    {"twitter", C::social},    {"instagram", C::social},   {"settings", C::settings},
    {"preferences", C::settings}, {"article", C::articles}, {"blog", C::articles},
    {"news", C::articles},     {"medium", C::articles},
};

}  // namespace

std::span<const std::string_view> wordsOf(TextWordList list) {
  auto index = static_cast<size_t>(list);
  return index < kLists.size() ? kLists[index] : std::span<const SV>();
}

std::span<const KeywordTable> keywordTables() { return kTables; }
std::span<const CategoryKey> labelTable() { return kLabels; }
std::span<const CategoryKey> filenameTable() { return kFilenames; }

TextVocabulary::TextVocabulary()
    : words_([] {
        std::vector<SV> words;
        for (auto list : kLists) {
          for (SV word : list) {
            if (std::find(words.begin(), words.end(), word) == words.end()) words.push_back(word);
          }
        }
        return words;
      }()),
      automaton_(words_) {
  for (auto list : kLists) {
    auto& indices = indices_.emplace_back();
    for (SV word : list) {
      auto at = std::find(words_.begin(), words_.end(), word) - words_.begin();
      indices.push_back(static_cast<uint16_t>(at));
    }
  }
}

const TextVocabulary& TextVocabulary::instance() {
  static const TextVocabulary* vocabulary = new TextVocabulary();
  return *vocabulary;
}

bool TextVocabulary::anyFound(const KeywordHits& hits, TextWordList list) const {
  for (uint16_t index : indices(list)) {
    if (hits.contains(index)) return true;
  }
  return false;
}

const KeywordAutomaton& filenameAutomaton() {
  static const KeywordAutomaton* automaton = [] {
    std::vector<SV> keys;
    for (const auto& entry : kFilenames) keys.push_back(entry.key);
    return new KeywordAutomaton(keys);
  }();
  return *automaton;
}

}  // namespace klipora::intelligence
