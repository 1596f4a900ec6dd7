// Raw-value tables for the stored enumerations. Each enumeration declares an
// EnumTraits specialisation listing its cases with their raw values; rawValue()
// and fromRaw<E>() work for all of them.
#pragma once

#include <optional>
#include <span>
#include <string_view>

namespace klipora::library {

template <typename E>
struct EnumCase {
  E value;
  std::string_view raw;
};

template <typename E>
struct EnumTraits;  // static std::span<const EnumCase<E>> cases();

template <typename E>
std::string_view rawValue(E value) {
  for (const auto& c : EnumTraits<E>::cases()) {
    if (c.value == value) return c.raw;
  }
  return {};
}

template <typename E>
std::optional<E> fromRaw(std::string_view raw) {
  for (const auto& c : EnumTraits<E>::cases()) {
    if (c.raw == raw) return c.value;
  }
  return std::nullopt;
}

// The value an enumeration field takes when the store holds a raw value this
// build does not know; the first case unless specialised.
template <typename E>
E unknownRawFallback() {
  return EnumTraits<E>::cases()[0].value;
}

}  // namespace klipora::library
