#include "library/screenshot_category.h"

#include "platform/localization.h"

namespace klipora::library {

using C = ScreenshotCategory;

std::span<const EnumCase<C>> EnumTraits<C>::cases() {
  static constexpr EnumCase<C> kCases[] = {
      {C::code, "code"},         {C::documents, "documents"}, {C::receipts, "receipts"},
      {C::design, "design"},     {C::chats, "chats"},         {C::errors, "errors"},
      {C::payments, "payments"}, {C::travel, "travel"},       {C::shopping, "shopping"},
      {C::social, "social"},     {C::settings, "settings"},   {C::media, "media"},
      {C::articles, "articles"}, {C::uncategorized, "uncategorized"},
  };
  return kCases;
}

std::string displayName(C category) {
  switch (category) {
    // TRANSLATORS: Built-in screenshot category name (screenshots of source code)
    case C::code: return tr("Code");
    // TRANSLATORS: Built-in screenshot category name
    case C::documents: return tr("Documents");
    // TRANSLATORS: Built-in screenshot category name
    case C::receipts: return tr("Receipts");
    // TRANSLATORS: Built-in screenshot category name (UI and graphic design)
    case C::design: return tr("Design");
    // TRANSLATORS: Built-in screenshot category name (messaging conversations)
    case C::chats: return tr("Chats");
    // TRANSLATORS: Built-in screenshot category name (error messages and crashes)
    case C::errors: return tr("Errors");
    // TRANSLATORS: Built-in screenshot category name
    case C::payments: return tr("Payments");
    // TRANSLATORS: Built-in screenshot category name
    case C::travel: return tr("Travel");
    // TRANSLATORS: Built-in screenshot category name
    case C::shopping: return tr("Shopping");
    // TRANSLATORS: Built-in screenshot category name (social media posts)
    case C::social: return tr("Social");
    // TRANSLATORS: Built-in screenshot category name (screenshots of settings screens)
    case C::settings: return tr("Settings");
    // TRANSLATORS: Built-in screenshot category name (video, music, photos)
    case C::media: return tr("Media");
    // TRANSLATORS: Built-in screenshot category name (news and web articles)
    case C::articles: return tr("Articles");
    // TRANSLATORS: Built-in screenshot category name for items without a category
    case C::uncategorized: return tr("Uncategorized");
  }
  return {};
}

std::string_view englishName(C category) {
  static constexpr std::string_view kNames[] = {
      "Code",     "Documents", "Receipts", "Design", "Chats", "Errors",   "Payments",
      "Travel",   "Shopping",  "Social",   "Settings", "Media", "Articles", "Uncategorized"};
  return kNames[static_cast<int>(category)];
}

std::string_view symbolName(C category) {
  // Receipts takes "receipt" where the icon theme has it; the other system's
  // older fallback "doc.plaintext" is not needed on Linux.
  static constexpr std::string_view kSymbols[] = {
      "chevron.left.forwardslash.chevron.right",
      "doc.text",
      "receipt",
      "paintbrush",
      "bubble.left.and.bubble.right",
      "exclamationmark.triangle",
      "creditcard",
      "airplane",
      "cart",
      "person.2",
      "gearshape",
      "play.rectangle",
      "newspaper",
      "questionmark.folder"};
  return kSymbols[static_cast<int>(category)];
}

}  // namespace klipora::library
