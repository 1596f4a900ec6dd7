#include "intelligence/tag_normalization.h"

#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <random>

#include "library/screenshot_item.h"
#include "library/search_text.h"
#include "platform/localization.h"

namespace klipora::intelligence {
namespace {

size_t ProcessSeed() {
  static const size_t seed = [] {
    std::random_device device;
    return (static_cast<size_t>(device()) << 32) ^ device();
  }();
  return seed;
}

size_t CharacterCount(std::string_view utf8) {
  size_t n = 0;
  for (unsigned char c : utf8) n += (c & 0xC0) != 0x80;
  return n;
}

bool HasInvalidCharacter(std::string_view name) {
  for (size_t i = 0; i < name.size(); ++i) {
    unsigned char c = static_cast<unsigned char>(name[i]);
    if (c < 0x20 || c == 0x7F) return true;
    // C1 controls are U+0080–U+009F: C2 80 … C2 9F in UTF-8.
    if (c == 0xC2 && i + 1 < name.size()) {
      unsigned char next = static_cast<unsigned char>(name[i + 1]);
      if (next >= 0x80 && next <= 0x9F) return true;
    }
  }
  return name.find("\xEF\xBF\xBD") != std::string_view::npos;
}

}  // namespace

std::string TagNormalization::normalize(std::string_view text) {
  return library::normalizedTagName(library::validUtf8(text));
}

std::string TagNormalization::defaultColorHex(std::string_view name) {
  size_t hash = std::hash<std::string>{}(normalize(name)) ^ ProcessSeed();
  auto signedHash = static_cast<int64_t>(hash);
  uint64_t magnitude = signedHash < 0 ? 0 - static_cast<uint64_t>(signedHash)
                                      : static_cast<uint64_t>(signedHash);
  return std::string(kPalette[magnitude % kPalette.size()]);
}

bool TagNormalization::isColorHex(std::string_view text) {
  if (text.size() != 7 || text[0] != '#') return false;
  for (char c : text.substr(1)) {
    if (!std::isxdigit(static_cast<unsigned char>(c))) return false;
  }
  return true;
}

std::string message(UserTagValidationError error) {
  switch (error) {
    case UserTagValidationError::emptyName:
      // TRANSLATORS: Error shown when a tag name is empty
      return tr("Tag name cannot be empty");
    case UserTagValidationError::invalidCharacter:
      // TRANSLATORS: Error shown when a tag name holds control characters
      return tr("Tag name contains invalid characters");
    case UserTagValidationError::duplicateNormalizedName:
      // TRANSLATORS: Error shown when creating a tag whose name is taken
      return tr("A tag with this name already exists");
    case UserTagValidationError::tooLong:
      // TRANSLATORS: Error shown when a tag name is longer than 64 characters
      return tr("Tag name is too long");
  }
  return {};
}

Status toStatus(UserTagValidationError error) {
  if (error == UserTagValidationError::duplicateNormalizedName) {
    return Status::AlreadyExists(message(error));
  }
  return Status::InvalidArgument(message(error));
}

std::optional<UserTagValidationError> validateTagName(std::string_view name) {
  std::string valid = library::validUtf8(name);
  if (valid != name) return UserTagValidationError::invalidCharacter;
  std::string trimmed = library::trimmed(name);
  std::string normalized = library::normalizedTagName(name);
  if (normalized.empty()) return UserTagValidationError::emptyName;
  if (HasInvalidCharacter(trimmed)) return UserTagValidationError::invalidCharacter;
  if (CharacterCount(normalized) > kMaxTagNameLength) return UserTagValidationError::tooLong;
  return std::nullopt;
}

}  // namespace klipora::intelligence
