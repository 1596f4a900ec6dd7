#include "library/sidebar_selection.h"

#include <string_view>

#include "platform/localization.h"

namespace klipora::library {
namespace {

using Kind = SidebarSelection::Kind;

struct FixedEntry {
  Kind kind;
  std::string_view id;
  std::string_view symbol;
};

constexpr FixedEntry kFixed[] = {
    {Kind::all, "all", "photo.on.rectangle"},
    {Kind::today, "today", "calendar"},
    {Kind::thisWeek, "thisWeek", "calendar.badge.clock"},
    {Kind::favorites, "favorites", "star"},
    {Kind::recentlyShared, "recentlyShared", "square.and.arrow.up"},
    {Kind::needsReview, "needsReview", "eye"},
    {Kind::processingFailed, "processingFailed", "exclamationmark.circle"},
    {Kind::uncategorized, "uncategorized", "questionmark.folder"},
    {Kind::archived, "archived", "archivebox"},
    {Kind::trash, "trash", "trash"},
};

const FixedEntry* FindFixed(Kind kind) {
  for (const auto& e : kFixed) {
    if (e.kind == kind) return &e;
  }
  return nullptr;
}

}  // namespace

std::optional<SidebarSelection> SidebarSelection::fromID(const std::string& id) {
  for (const auto& e : kFixed) {
    if (id == e.id) return fixed(e.kind);
  }
  size_t colon = id.find(':');
  if (colon == std::string::npos) return std::nullopt;
  std::string_view key(id.data(), colon);
  std::string value = id.substr(colon + 1);
  if (key == "category") {
    if (auto c = fromRaw<ScreenshotCategory>(value)) return category(*c);
    return std::nullopt;
  }
  if (key == "tag") return tag(value);
  auto uuid = UUID::Parse(value);
  if (!uuid) return std::nullopt;
  if (key == "customCategory") return customCategory(*uuid);
  if (key == "savedSearch") return savedSearch(*uuid);
  if (key == "sharedSet") return sharedSet(*uuid);
  return std::nullopt;
}

std::string SidebarSelection::id() const {
  switch (kind_) {
    case Kind::category: return "category:" + std::string(rawValue(categoryValue()));
    case Kind::customCategory: return "customCategory:" + uuidValue().uuidString();
    case Kind::tag: return "tag:" + tagName();
    case Kind::savedSearch: return "savedSearch:" + uuidValue().uuidString();
    case Kind::sharedSet: return "sharedSet:" + uuidValue().uuidString();
    default: return std::string(FindFixed(kind_)->id);
  }
}

std::string SidebarSelection::displayName() const {
  switch (kind_) {
    case Kind::category: return library::displayName(categoryValue());
    // TRANSLATORS: Sidebar item for a custom category
    case Kind::customCategory: return tr("Custom");
    case Kind::tag: return tagName();
    // TRANSLATORS: Sidebar item
    case Kind::savedSearch: return tr("Saved Search");
    // TRANSLATORS: Sidebar item for a cloud-shared set
    case Kind::sharedSet: return tr("Shared Set");
    // TRANSLATORS: Sidebar item
    case Kind::all: return tr("All Screenshots");
    // TRANSLATORS: Sidebar item
    case Kind::today: return tr("Today");
    // TRANSLATORS: Sidebar item
    case Kind::thisWeek: return tr("This Week");
    // TRANSLATORS: Sidebar item
    case Kind::favorites: return tr("Favorites");
    // TRANSLATORS: Sidebar item
    case Kind::recentlyShared: return tr("Recently Shared");
    // TRANSLATORS: Sidebar item
    case Kind::needsReview: return tr("Needs Review");
    // TRANSLATORS: Sidebar item
    case Kind::processingFailed: return tr("Processing Failed");
    // TRANSLATORS: Sidebar item
    case Kind::uncategorized: return tr("Uncategorized");
    // TRANSLATORS: Sidebar item
    case Kind::archived: return tr("Archived");
    // TRANSLATORS: Sidebar item
    case Kind::trash: return tr("Trash");
  }
  return {};
}

std::string SidebarSelection::symbolName() const {
  switch (kind_) {
    case Kind::category: return std::string(library::symbolName(categoryValue()));
    case Kind::customCategory: return "folder";
    case Kind::tag: return "tag";
    case Kind::savedSearch: return "magnifyingglass";
    case Kind::sharedSet: return "person.2";
    default: return std::string(FindFixed(kind_)->symbol);
  }
}

}  // namespace klipora::library
