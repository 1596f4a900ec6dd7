#include "platform/uuid.h"

#include <cstring>
#include <random>

namespace klipora {
namespace {

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

UUID UUID::Random() {
  // One generator per thread, seeded from the OS; UUIDs need uniqueness, not secrecy.
  thread_local std::mt19937_64 engine([] {
    std::random_device device;
    std::seed_seq seq{device(), device(), device(), device(), device(), device()};
    return std::mt19937_64(seq);
  }());
  std::array<uint8_t, 16> bytes;
  uint64_t a = engine(), b = engine();
  std::memcpy(bytes.data(), &a, 8);
  std::memcpy(bytes.data() + 8, &b, 8);
  bytes[6] = (bytes[6] & 0x0F) | 0x40;  // version 4
  bytes[8] = (bytes[8] & 0x3F) | 0x80;  // RFC 4122 variant
  return UUID(bytes);
}

std::optional<UUID> UUID::Parse(std::string_view text) {
  if (text.size() != 36) return std::nullopt;
  std::array<uint8_t, 16> bytes;
  size_t out = 0;
  for (size_t i = 0; i < 36;) {
    if (i == 8 || i == 13 || i == 18 || i == 23) {
      if (text[i] != '-') return std::nullopt;
      ++i;
      continue;
    }
    int hi = HexValue(text[i]), lo = HexValue(text[i + 1]);
    if (hi < 0 || lo < 0) return std::nullopt;
    bytes[out++] = static_cast<uint8_t>(hi * 16 + lo);
    i += 2;
  }
  return UUID(bytes);
}

std::string UUID::uuidString() const {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string s;
  s.reserve(36);
  for (size_t i = 0; i < 16; ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) s.push_back('-');
    s.push_back(kHex[bytes_[i] >> 4]);
    s.push_back(kHex[bytes_[i] & 0xF]);
  }
  return s;
}

bool UUID::isNil() const {
  for (uint8_t b : bytes_) {
    if (b != 0) return false;
  }
  return true;
}

}  // namespace klipora

size_t std::hash<klipora::UUID>::operator()(const klipora::UUID& u) const noexcept {
  uint64_t a, b;
  std::memcpy(&a, u.bytes().data(), 8);
  std::memcpy(&b, u.bytes().data() + 8, 8);
  return static_cast<size_t>(a ^ (b * 0x9E3779B97F4A7C15ULL));
}
