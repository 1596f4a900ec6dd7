// TagNormalization: the two pure rules every tag operation relies on (how a
// name is normalised, which colour a new tag gets), and the validation of a
// tag name with its user-visible errors.
//
// Invalid characters: control characters (C0, DEL, C1, which includes the
// U+001F that separates tags in an item's tag list), line breaks inside the
// name, and U+FFFD (what undecodable input becomes). Names are limited to 64
// characters after normalisation. Pure; safe from any thread.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "platform/status.h"

namespace klipora::intelligence {

struct TagNormalization {
  static constexpr std::array<std::string_view, 10> kPalette = {
      "#3B82F6", "#6366F1", "#8B5CF6", "#EC4899", "#EF4444",
      "#F97316", "#F59E0B", "#22C55E", "#14B8A6", "#64748B"};

  // Trim white space and line breaks at both ends, collapse runs of blanks
  // inside to one, lower-case.
  static std::string normalize(std::string_view text);
  // A palette entry picked by a per-process seeded hash of the normalised
  // name: stable within a run, possibly different in the next. Tags store
  // their colour when created, so this never changes an existing tag.
  static std::string defaultColorHex(std::string_view name);
  // True for "#RRGGBB" (hex digits, either case).
  static bool isColorHex(std::string_view text);
};

enum class UserTagValidationError { emptyName, invalidCharacter, duplicateNormalizedName, tooLong };

inline constexpr size_t kMaxTagNameLength = 64;

// "Tag name cannot be empty", "Tag name contains invalid characters", "A tag
// with this name already exists", "Tag name is too long".
std::string message(UserTagValidationError error);
// InvalidArgument, or AlreadyExists for a duplicate, carrying message().
Status toStatus(UserTagValidationError error);

// Checks a name as the user typed it (duplicates are the catalogue's check).
std::optional<UserTagValidationError> validateTagName(std::string_view name);

}  // namespace klipora::intelligence
