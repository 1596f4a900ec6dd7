#include "markup/markup_json_coding.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <string_view>

#include "library/record_json.h"

namespace klipora::markup::json_coding {
namespace {

std::optional<std::string> DecodeBase64(const std::string& text) {
  auto sextet = [](char c) -> int {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
  };
  // Padding is optional, but when present it must complete the last quantum.
  size_t end = text.size();
  while (end > 0 && text[end - 1] == '=' && text.size() - end < 2) --end;
  if (end % 4 == 1 || (end != text.size() && text.size() % 4 != 0)) return std::nullopt;
  std::string out;
  out.reserve(end / 4 * 3 + 2);
  uint32_t acc = 0;
  int bits = 0;
  for (size_t i = 0; i < end; ++i) {
    int v = sextet(text[i]);
    if (v < 0) return std::nullopt;
    acc = (acc << 6) | static_cast<uint32_t>(v);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out.push_back(static_cast<char>((acc >> bits) & 0xFF));
    }
  }
  return out;
}

Json SolidFill(Json color) { return Json{{"solid", Json{{"_0", std::move(color)}}}}; }

}  // namespace

// ---- Writing ----

Json Encoder::value(double d) {
  if (!std::isfinite(d)) allFinite = false;
  return d;
}

Json Encoder::value(const ImageBytes& b) { return library::base64Encode(b.data); }

Json Encoder::value(const Point& p) { return Json::array({value(p.x), value(p.y)}); }

Json Encoder::value(const Rect& r) {
  return Json::array({value(r.origin), Json::array({value(r.size.width), value(r.size.height)})});
}

Json Encoder::value(const MarkupBackgroundFrame::Fill& fill) {
  if (const auto* solid = std::get_if<MarkupBackgroundFrame::Solid>(&fill)) {
    return SolidFill(value(solid->color));
  }
  return Json{{"linearGradient", value(std::get<MarkupBackgroundFrame::LinearGradient>(fill))}};
}

Json Encoder::value(const MarkupCanvasExtension::Fill& fill) {
  if (const auto* solid = std::get_if<MarkupCanvasExtension::Solid>(&fill)) {
    return SolidFill(value(solid->color));
  }
  const char* name =
      std::holds_alternative<MarkupCanvasExtension::EdgeMirror>(fill) ? "edgeMirror" : "edgeRepeat";
  return Json{{name, Json::object()}};
}

// ---- Reading ----

std::string Path::str() const {
  std::string head = parent ? parent->str() : std::string();
  if (key) return head.empty() ? key : head + "." + key;
  if (!parent) return head;
  return head + "[" + std::to_string(index) + "]";
}

bool Decoder::fail(const Path& path, const std::string& what) {
  if (status.ok()) {
    std::string where = path.str();
    status = Status::Corruption(where.empty() ? what : where + ": " + what);
  }
  return false;
}

bool Decoder::read(const Json& j, const Path& p, double& out) {
  if (!j.is_number()) return fail(p, "expected a number");
  out = j.get<double>();
  return std::isfinite(out) || fail(p, "expected a finite number");
}

bool Decoder::read(const Json& j, const Path& p, int64_t& out) {
  if (j.is_number_unsigned()) {
    uint64_t u = j.get<uint64_t>();
    if (u > uint64_t(std::numeric_limits<int64_t>::max())) return fail(p, "integer out of range");
    out = static_cast<int64_t>(u);
    return true;
  }
  if (j.is_number_integer()) {
    out = j.get<int64_t>();
    return true;
  }
  if (j.is_number_float()) {
    // A whole number written as 3.0 is still an integer; 2^63 is out of range.
    double d = j.get<double>();
    if (d == std::trunc(d) && d >= -0x1p63 && d < 0x1p63) {
      out = static_cast<int64_t>(d);
      return true;
    }
  }
  return fail(p, "expected an integer");
}

bool Decoder::read(const Json& j, const Path& p, bool& out) {
  if (!j.is_boolean()) return fail(p, "expected true or false");
  out = j.get<bool>();
  return true;
}

bool Decoder::read(const Json& j, const Path& p, std::string& out) {
  if (!j.is_string()) return fail(p, "expected a string");
  out = j.get_ref<const std::string&>();
  return true;
}

bool Decoder::read(const Json& j, const Path& p, UUID& out) {
  const auto* text = j.get_ptr<const std::string*>();
  auto uuid = text ? UUID::Parse(*text) : std::nullopt;
  if (!uuid) return fail(p, "expected a UUID");
  out = *uuid;
  return true;
}

bool Decoder::read(const Json& j, const Path& p, Date& out) {
  const auto* text = j.get_ptr<const std::string*>();
  auto date = text ? parseISO8601(*text) : std::nullopt;
  if (!date) return fail(p, "expected an ISO 8601 date");
  out = *date;
  return true;
}

bool Decoder::read(const Json& j, const Path& p, ImageBytes& out) {
  const auto* text = j.get_ptr<const std::string*>();
  auto bytes = text ? DecodeBase64(*text) : std::nullopt;
  if (!bytes) return fail(p, "expected base64 data");
  out.data = std::move(*bytes);
  return true;
}

bool Decoder::read(const Json& j, const Path& p, Point& out) {
  if (!j.is_array() || j.size() != 2) return fail(p, "expected a point [x, y]");
  return read(j[0], Path{&p, nullptr, 0}, out.x) && read(j[1], Path{&p, nullptr, 1}, out.y);
}

bool Decoder::read(const Json& j, const Path& p, Rect& out) {
  if (!j.is_array() || j.size() != 2 || !j[0].is_array() || j[0].size() != 2 || !j[1].is_array() ||
      j[1].size() != 2) {
    return fail(p, "expected a rectangle [[x, y], [width, height]]");
  }
  Path size{&p, nullptr, 1};
  if (!read(j[0], Path{&p, nullptr, 0}, out.origin) ||
      !read(j[1][0], Path{&size, nullptr, 0}, out.size.width) ||
      !read(j[1][1], Path{&size, nullptr, 1}, out.size.height)) {
    return false;
  }
  // A layer's frame may run left or up (a line or an arrow drawn from right to
  // left keeps its direction that way); other rectangles may not.
  bool frame = p.key != nullptr && std::string_view(p.key) == "frame";
  return frame || (out.size.width >= 0 && out.size.height >= 0) ||
         fail(p, "negative width or height");
}

bool Decoder::read(const Json& j, const Path& p, MarkupBackgroundFrame::Fill& out) {
  std::string name;
  const Json* payload = payloadCase(j, p, {"solid", "linearGradient"}, &name);
  if (!payload) return false;
  if (name == "solid") {
    MarkupBackgroundFrame::Solid solid;
    if (!readSolid(*payload, Path{&p, "solid"}, solid.color)) return false;
    out = solid;
    return true;
  }
  MarkupBackgroundFrame::LinearGradient gradient;
  if (!read(*payload, Path{&p, "linearGradient"}, gradient)) return false;
  out = gradient;
  return true;
}

bool Decoder::read(const Json& j, const Path& p, MarkupCanvasExtension::Fill& out) {
  std::string name;
  const Json* payload = payloadCase(j, p, {"solid", "edgeMirror", "edgeRepeat"}, &name);
  if (!payload) return false;
  if (name == "solid") {
    MarkupCanvasExtension::Solid solid;
    if (!readSolid(*payload, Path{&p, "solid"}, solid.color)) return false;
    out = solid;
    return true;
  }
  if (!payload->is_object()) return fail(p, "expected {\"" + name + "\": {}}");
  if (name == "edgeMirror") {
    out = MarkupCanvasExtension::EdgeMirror{};
  } else {
    out = MarkupCanvasExtension::EdgeRepeat{};
  }
  return true;
}

// A payload enumeration is an object with one key, the case name.
const Json* Decoder::payloadCase(const Json& j, const Path& p,
                                 std::initializer_list<const char*> cases, std::string* name) {
  if (!j.is_object() || j.size() != 1) {
    fail(p, "expected an object with exactly one case");
    return nullptr;
  }
  for (const char* candidate : cases) {
    if (j.begin().key() == candidate) {
      *name = candidate;
      return &j.begin().value();
    }
  }
  fail(p, "unknown case \"" + j.begin().key() + "\"");
  return nullptr;
}

bool Decoder::readSolid(const Json& payload, const Path& p, CodableColor& color) {
  if (!payload.is_object()) return fail(p, "expected an object");
  getField(payload, p, "_0", color);
  return status.ok();
}

}  // namespace klipora::markup::json_coding
