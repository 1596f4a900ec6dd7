// SidebarSelection: what the library window shows. Not a record; saved
// searches keep it by its id string:
//   "category:<raw value>", "customCategory:<UUID>", "tag:<name>",
//   "savedSearch:<UUID>", "sharedSet:<UUID>", and the case name for the fixed
//   entries ("all", "today", "thisWeek", …, "trash").
#pragma once

#include <optional>
#include <string>
#include <variant>

#include "library/screenshot_category.h"
#include "platform/uuid.h"

namespace klipora::library {

class SidebarSelection {
 public:
  enum class Kind {
    category,
    customCategory,
    tag,
    savedSearch,
    sharedSet,
    all,
    today,
    thisWeek,
    favorites,
    recentlyShared,
    needsReview,
    processingFailed,
    uncategorized,
    archived,
    trash,
  };

  static SidebarSelection category(ScreenshotCategory c) { return {Kind::category, c}; }
  static SidebarSelection customCategory(UUID id) { return {Kind::customCategory, id}; }
  static SidebarSelection tag(std::string name) { return {Kind::tag, std::move(name)}; }
  static SidebarSelection savedSearch(UUID id) { return {Kind::savedSearch, id}; }
  static SidebarSelection sharedSet(UUID id) { return {Kind::sharedSet, id}; }
  // One of the fixed entries (all … trash); `kind` must not take a payload.
  static SidebarSelection fixed(Kind kind) { return {kind, std::monostate{}}; }

  // Parses an id string; nullopt for text that names no selection.
  static std::optional<SidebarSelection> fromID(const std::string& id);

  Kind kind() const { return kind_; }
  std::string id() const;
  std::string displayName() const;  // the generic label; the sidebar shows resolved names
  std::string symbolName() const;

  // Payload accessors; each requires the matching kind.
  ScreenshotCategory categoryValue() const { return std::get<ScreenshotCategory>(payload_); }
  const UUID& uuidValue() const { return std::get<UUID>(payload_); }
  const std::string& tagName() const { return std::get<std::string>(payload_); }

  bool operator==(const SidebarSelection&) const = default;

 private:
  using Payload = std::variant<std::monostate, ScreenshotCategory, UUID, std::string>;
  SidebarSelection(Kind kind, Payload payload) : kind_(kind), payload_(std::move(payload)) {}

  Kind kind_;
  Payload payload_;
};

}  // namespace klipora::library
