#include "library/record_json.h"

#include "library/list_encoding.h"

namespace klipora::library {

std::string base64Encode(std::string_view bytes) {
  static constexpr char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 2 < bytes.size(); i += 3) {
    uint32_t n = (uint8_t(bytes[i]) << 16) | (uint8_t(bytes[i + 1]) << 8) | uint8_t(bytes[i + 2]);
    for (int shift : {18, 12, 6, 0}) out.push_back(kAlphabet[(n >> shift) & 63]);
  }
  if (i < bytes.size()) {
    uint32_t n = uint8_t(bytes[i]) << 16;
    if (i + 1 < bytes.size()) n |= uint8_t(bytes[i + 1]) << 8;
    out.push_back(kAlphabet[(n >> 18) & 63]);
    out.push_back(kAlphabet[(n >> 12) & 63]);
    out.push_back(i + 1 < bytes.size() ? kAlphabet[(n >> 6) & 63] : '=');
    out.push_back('=');
  }
  return out;
}

Json sqlValueToJson(const SqlValue& value, ValueKind kind) {
  if (std::holds_alternative<std::monostate>(value)) return nullptr;
  switch (kind) {
    case ValueKind::boolean:
      return std::get<int64_t>(value) != 0;
    case ValueKind::date:
      return formatISO8601(Date::fromSecondsSince1970(std::get<double>(value)));
    case ValueKind::bytes:
      return base64Encode(std::get<Bytes>(value).data);
    case ValueKind::integer:
      return std::get<int64_t>(value);
    case ValueKind::real:
      return std::get<double>(value);
    default:
      return std::get<std::string>(value);
  }
}

Result<SqlValue> parseFieldText(const std::string& text, ValueKind kind, bool nullable) {
  if (text == "null") {
    if (nullable) return SqlValue(std::monostate{});
    return Err(Status::InvalidArgument("this field cannot be empty"));
  }
  switch (kind) {
    case ValueKind::boolean:
      if (text == "true" || text == "yes" || text == "1") return SqlValue(int64_t{1});
      if (text == "false" || text == "no" || text == "0") return SqlValue(int64_t{0});
      return Err(Status::InvalidArgument("expected true or false, got \"" + text + "\""));
    case ValueKind::integer: {
      double v;
      if (!parseNumber(text, &v) || v != static_cast<double>(static_cast<int64_t>(v))) {
        return Err(Status::InvalidArgument("expected a whole number, got \"" + text + "\""));
      }
      return SqlValue(static_cast<int64_t>(v));
    }
    case ValueKind::real: {
      double v;
      if (!parseNumber(text, &v)) {
        return Err(Status::InvalidArgument("expected a number, got \"" + text + "\""));
      }
      return SqlValue(v);
    }
    case ValueKind::date: {
      auto date = parseISO8601(text);
      if (!date) {
        return Err(Status::InvalidArgument("expected an ISO 8601 date, got \"" + text + "\""));
      }
      return SqlValue(date->timeIntervalSince1970());
    }
    case ValueKind::uuid: {
      auto uuid = UUID::Parse(text);
      if (!uuid) return Err(Status::InvalidArgument("expected a UUID, got \"" + text + "\""));
      return SqlValue(uuid->uuidString());
    }
    case ValueKind::bytes:
      return Err(Status::InvalidArgument("binary fields cannot be set from text"));
    default:
      return SqlValue(text);
  }
}

}  // namespace klipora::library
