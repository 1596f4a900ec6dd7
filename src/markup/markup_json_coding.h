// Internal to the markup module: the JSON encoder and decoder of the markup
// values, driven by the field lists of markup_fields.h. Only the snapshot
// coder (markup_snapshot_json.cc) uses them. Neither throws: the decoder
// records the first problem, with the path of the offending value, in
// `status` and answers false from then on.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "markup/markup_enums.h"
#include "markup/markup_fields.h"
#include "platform/date.h"
#include "platform/status.h"

namespace klipora::markup::json_coding {

// std::map keeps keys sorted, which is the order the files are written in.
using Json = nlohmann::json;

template <typename T>
concept Enumeration = std::is_enum_v<T>;

// Accepts any field, so that HasFields can ask whether visitFields exists.
struct AnyVisitor {
  template <typename F>
  void operator()(const char*, F&) {}
};

template <typename T>
concept HasFields = requires(T& t, AnyVisitor& v) {
  visitFields(t, v);
};

class Encoder {
 public:
  // False once a NaN or an infinity was met (JSON cannot carry them).
  bool allFinite = true;

  Json value(double d);
  Json value(int64_t i) { return i; }
  Json value(bool b) { return b; }
  Json value(const std::string& s) { return s; }
  Json value(const UUID& u) { return u.uuidString(); }
  Json value(Date d) { return formatISO8601(d); }
  Json value(const ImageBytes& b);
  Json value(const Point& p);
  Json value(const Rect& r);
  Json value(const MarkupBackgroundFrame::Fill& fill);
  Json value(const MarkupCanvasExtension::Fill& fill);
  template <Enumeration E>
  Json value(E e) {
    return std::string(library::rawValue(e));
  }
  template <typename T>
  Json value(const std::vector<T>& items) {
    return array(items);
  }
  template <typename T>
  Json value(const std::set<T>& items) {
    return array(items);
  }
  template <typename Items>
  Json array(const Items& items) {
    Json out = Json::array();
    for (const auto& item : items) out.push_back(value(item));
    return out;
  }
  template <HasFields T>
  Json value(const T& record) {
    Json out = Json::object();
    auto put = [this, &out](const char* key, const auto& field) { putField(out, key, field); };
    visitFields(record, put);
    return out;
  }

  template <typename T>
  void putField(Json& out, const char* key, const T& field) {
    out[key] = value(field);
  }
  template <typename T>
  void putField(Json& out, const char* key, const std::optional<T>& field) {
    if (field) out[key] = value(*field);  // absent optionals are omitted
  }
};

// Where a value sits in the document, turned into text only for a message.
struct Path {
  const Path* parent = nullptr;
  const char* key = nullptr;  // null for an array element
  size_t index = 0;
  std::string str() const;
};

class Decoder {
 public:
  Status status;

  bool fail(const Path& path, const std::string& what);

  bool read(const Json& j, const Path& p, double& out);
  bool read(const Json& j, const Path& p, int64_t& out);
  bool read(const Json& j, const Path& p, bool& out);
  bool read(const Json& j, const Path& p, std::string& out);
  bool read(const Json& j, const Path& p, UUID& out);
  bool read(const Json& j, const Path& p, Date& out);
  bool read(const Json& j, const Path& p, ImageBytes& out);
  bool read(const Json& j, const Path& p, Point& out);
  bool read(const Json& j, const Path& p, Rect& out);
  bool read(const Json& j, const Path& p, MarkupBackgroundFrame::Fill& out);
  bool read(const Json& j, const Path& p, MarkupCanvasExtension::Fill& out);
  template <Enumeration E>
  bool read(const Json& j, const Path& p, E& out) {
    const auto* text = j.get_ptr<const std::string*>();
    if (!text) return fail(p, "expected a case name");
    auto value = library::fromRaw<E>(*text);
    if (!value) return fail(p, "unknown value \"" + *text + "\"");
    out = *value;
    return true;
  }
  template <typename T>
  bool read(const Json& j, const Path& p, std::vector<T>& out) {
    if (!j.is_array()) return fail(p, "expected an array");
    out.clear();
    out.resize(j.size());
    for (size_t i = 0; i < j.size(); ++i) {
      if (!read(j[i], Path{&p, nullptr, i}, out[i])) return false;
    }
    return true;
  }
  template <typename T>
  bool read(const Json& j, const Path& p, std::set<T>& out) {
    std::vector<T> items;
    if (!read(j, p, items)) return false;
    out = std::set<T>(items.begin(), items.end());
    return true;
  }
  template <HasFields T>
  bool read(const Json& j, const Path& p, T& out) {
    if (!j.is_object()) return fail(p, "expected an object");
    auto get = [this, &j, &p](const char* key, auto& field) { getField(j, p, key, field); };
    visitFields(out, get);
    return status.ok();
  }

  // A required field: absent is an error.
  template <typename T>
  void getField(const Json& object, const Path& p, const char* key, T& field) {
    if (!status.ok()) return;
    auto it = object.find(key);
    if (it == object.end()) {
      fail(p, std::string("missing \"") + key + "\"");
      return;
    }
    read(*it, Path{&p, key}, field);
  }
  // An optional field: absent and null both mean none.
  template <typename T>
  void getField(const Json& object, const Path& p, const char* key, std::optional<T>& field) {
    if (!status.ok()) return;
    auto it = object.find(key);
    if (it == object.end() || it->is_null()) {
      field.reset();
      return;
    }
    T value{};
    if (read(*it, Path{&p, key}, value)) field = std::move(value);
  }

 private:
  const Json* payloadCase(const Json& j, const Path& p, std::initializer_list<const char*> cases,
                          std::string* name);
  bool readSolid(const Json& payload, const Path& p, CodableColor& color);
};

}  // namespace klipora::markup::json_coding
