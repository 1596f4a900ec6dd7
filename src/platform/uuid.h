// UUID: a 128-bit identity, written in canonical upper-case text form
// ("E621E1F8-C36C-495A-93FC-0C247A3E6E5F") wherever it is stored or shown.
// Plain value; Random() is safe to call from any thread.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace klipora {

class UUID {
 public:
  UUID() = default;  // the nil UUID
  explicit UUID(const std::array<uint8_t, 16>& bytes) : bytes_(bytes) {}

  // A random (version 4) UUID.
  static UUID Random();
  // Parses the canonical 36-character form, upper or lower case; nullopt otherwise.
  static std::optional<UUID> Parse(std::string_view text);

  std::string uuidString() const;  // upper-case canonical form
  const std::array<uint8_t, 16>& bytes() const { return bytes_; }
  bool isNil() const;

  auto operator<=>(const UUID&) const = default;

 private:
  std::array<uint8_t, 16> bytes_{};
};

}  // namespace klipora

template <>
struct std::hash<klipora::UUID> {
  size_t operator()(const klipora::UUID& u) const noexcept;
};
