// Records as JSON, for the command line and exports: keys are the field names,
// UUIDs upper-case canonical text, dates ISO 8601, booleans true/false, binary
// data base64, absent values null. And the reverse for one field given as
// text (`klipora settings set FIELD VALUE`).
#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "library/record_schema.h"
#include "platform/status.h"

namespace klipora::library {

using Json = nlohmann::ordered_json;

Json sqlValueToJson(const SqlValue& value, ValueKind kind);
// Parses user text for a field of `kind`; "null" clears a nullable field.
Result<SqlValue> parseFieldText(const std::string& text, ValueKind kind, bool nullable);
std::string base64Encode(std::string_view bytes);

// Every field of the record, in declaration order.
template <typename R>
Json recordToJson(const R& record) {
  Json out = Json::object();
  for (const auto& c : schemaOf<R>().columns) out[c.name] = sqlValueToJson(c.get(record), c.kind);
  return out;
}

// Sets `field` of `record` from text. InvalidArgument names the problem.
template <typename R>
Status assignFieldFromText(R& record, const std::string& field, const std::string& text) {
  const auto* c = schemaOf<R>().find(field);
  if (!c) return Status::InvalidArgument("no field named " + field);
  if (c == &schemaOf<R>().key()) return Status::InvalidArgument(field + " cannot be changed");
  ASSIGN_OR_RETURN(SqlValue value, parseFieldText(text, c->kind, c->nullable));
  R changed = record;
  if (!c->set(changed, value) || c->get(changed) != value) {
    return Status::InvalidArgument("\"" + text + "\" is not a valid value for " + field);
  }
  record = std::move(changed);
  return Status::Ok();
}

}  // namespace klipora::library
