// SqlValue: one stored value as the store keeps it (NULL, integer, real, text
// or blob), and the conversions between record field types and stored values:
// UUIDs as upper-case text, dates as REAL seconds since 1970, booleans as 0/1,
// enumerations by raw value, absent optionals as NULL.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <variant>

#include "library/enum_table.h"
#include "platform/date.h"
#include "platform/uuid.h"

namespace klipora::library {

// Binary data (the `Data` fields); kept apart from text so the two never mix.
struct Bytes {
  std::string data;
  bool operator==(const Bytes&) const = default;
};

using SqlValue = std::variant<std::monostate, int64_t, double, std::string, Bytes>;

// How a field is shown outside the store (JSON, the settings command).
enum class ValueKind { text, integer, real, boolean, date, uuid, bytes, enumeration };

template <typename T, typename = void>
struct SqlTraits;

template <>
struct SqlTraits<std::string> {
  static constexpr ValueKind kind = ValueKind::text;
  static SqlValue to(const std::string& v) { return v; }
  static bool from(const SqlValue& s, std::string& v) {
    if (auto p = std::get_if<std::string>(&s)) return v = *p, true;
    return false;
  }
};

template <typename I>
struct SqlTraits<I, std::enable_if_t<std::is_integral_v<I> && !std::is_same_v<I, bool>>> {
  static constexpr ValueKind kind = ValueKind::integer;
  static SqlValue to(I v) { return static_cast<int64_t>(v); }
  static bool from(const SqlValue& s, I& v) {
    if (auto p = std::get_if<int64_t>(&s)) return v = static_cast<I>(*p), true;
    return false;
  }
};

template <>
struct SqlTraits<bool> {
  static constexpr ValueKind kind = ValueKind::boolean;
  static SqlValue to(bool v) { return static_cast<int64_t>(v ? 1 : 0); }
  static bool from(const SqlValue& s, bool& v) {
    if (auto p = std::get_if<int64_t>(&s)) return v = *p != 0, true;
    return false;
  }
};

template <>
struct SqlTraits<double> {
  static constexpr ValueKind kind = ValueKind::real;
  static SqlValue to(double v) { return v; }
  static bool from(const SqlValue& s, double& v) {
    if (auto p = std::get_if<double>(&s)) return v = *p, true;
    if (auto p = std::get_if<int64_t>(&s)) return v = static_cast<double>(*p), true;
    return false;
  }
};

template <>
struct SqlTraits<Date> {
  static constexpr ValueKind kind = ValueKind::date;
  static SqlValue to(Date v) { return v.timeIntervalSince1970(); }
  static bool from(const SqlValue& s, Date& v) {
    double d;
    if (!SqlTraits<double>::from(s, d)) return false;
    v = Date::fromSecondsSince1970(d);
    return true;
  }
};

template <>
struct SqlTraits<UUID> {
  static constexpr ValueKind kind = ValueKind::uuid;
  static SqlValue to(const UUID& v) { return v.uuidString(); }
  static bool from(const SqlValue& s, UUID& v) {
    auto p = std::get_if<std::string>(&s);
    if (!p) return false;
    auto parsed = UUID::Parse(*p);
    if (!parsed) return false;
    v = *parsed;
    return true;
  }
};

template <>
struct SqlTraits<Bytes> {
  static constexpr ValueKind kind = ValueKind::bytes;
  static SqlValue to(const Bytes& v) { return v; }
  static bool from(const SqlValue& s, Bytes& v) {
    if (auto p = std::get_if<Bytes>(&s)) return v = *p, true;
    if (auto p = std::get_if<std::string>(&s)) return v = Bytes{*p}, true;
    return false;
  }
};

template <typename E>
struct SqlTraits<E, std::enable_if_t<std::is_enum_v<E>>> {
  static constexpr ValueKind kind = ValueKind::enumeration;
  static SqlValue to(E v) { return std::string(rawValue(v)); }
  static bool from(const SqlValue& s, E& v) {
    auto p = std::get_if<std::string>(&s);
    if (!p) return false;
    v = fromRaw<E>(*p).value_or(unknownRawFallback<E>());
    return true;
  }
};

template <typename T>
struct SqlTraits<std::optional<T>> {
  static constexpr ValueKind kind = SqlTraits<T>::kind;
  static SqlValue to(const std::optional<T>& v) {
    return v ? SqlTraits<T>::to(*v) : SqlValue(std::monostate{});
  }
  static bool from(const SqlValue& s, std::optional<T>& v) {
    if (std::holds_alternative<std::monostate>(s)) return v.reset(), true;
    T inner{};
    if (!SqlTraits<T>::from(s, inner)) return false;
    v = std::move(inner);
    return true;
  }
};

template <typename T>
inline constexpr bool kIsOptional = false;
template <typename T>
inline constexpr bool kIsOptional<std::optional<T>> = true;

}  // namespace klipora::library
