#include "portability/library_export_format.h"

namespace klipora::portability {
namespace {

Json optionalText(const std::optional<std::string>& s) { return s ? Json(*s) : Json(nullptr); }
Json optionalDate(const std::optional<Date>& d) {
  return d ? Json(formatISO8601(*d)) : Json(nullptr);
}

// Reads `key` into `out` when it has the right type; a wrong type is a
// warning, an absent key or null leaves the default.
class FieldReader {
 public:
  FieldReader(const Json& json, std::vector<std::string>& warnings, std::string where)
      : json_(json), warnings_(warnings), where_(std::move(where)) {}

  void text(const char* key, std::string& out) {
    if (auto* v = find(key); v && check(key, v->is_string())) out = v->get<std::string>();
  }
  void text(const char* key, std::optional<std::string>& out) {
    if (auto* v = find(key); v && check(key, v->is_string())) out = v->get<std::string>();
  }
  void flag(const char* key, bool& out) {
    if (auto* v = find(key); v && check(key, v->is_boolean())) out = v->get<bool>();
  }
  void number(const char* key, double& out) {
    if (auto* v = find(key); v && check(key, v->is_number())) out = v->get<double>();
  }
  void date(const char* key, std::optional<Date>& out) {
    auto* v = find(key);
    if (!v || !check(key, v->is_string())) return;
    out = parseISO8601(v->get<std::string>());
    if (!out) warnings_.push_back(where_ + ": " + key + " is not an ISO 8601 date; left out");
  }
  void list(const char* key, std::vector<std::string>& out) {
    auto* v = find(key);
    if (!v || !check(key, v->is_array())) return;
    for (const auto& e : *v) {
      if (e.is_string()) out.push_back(e.get<std::string>());
    }
  }

 private:
  const Json* find(const char* key) {
    auto it = json_.find(key);
    return it == json_.end() || it->is_null() ? nullptr : &*it;
  }
  bool check(const char* key, bool ok) {
    if (!ok) warnings_.push_back(where_ + ": " + key + " has the wrong type; left out");
    return ok;
  }
  const Json& json_;
  std::vector<std::string>& warnings_;
  std::string where_;
};

std::string csvField(const std::string& value) {
  if (value.find_first_of(",\"\r\n") == std::string::npos) return value;
  std::string out = "\"";
  for (char c : value) {
    if (c == '"') out += '"';
    out += c;
  }
  return out + "\"";
}

std::string joined(const std::vector<std::string>& values, const char* separator) {
  std::string out;
  for (const auto& v : values) out += (out.empty() ? "" : separator) + v;
  return out;
}

}  // namespace

Json exportedItemToJson(const ExportedItem& item) {
  return Json{
      {"id", item.id},
      {"file", item.file},
      {"title", item.title},
      {"userTitle", optionalText(item.userTitle)},
      {"generatedTitle", optionalText(item.generatedTitle)},
      {"category", item.category},
      {"userCategory", optionalText(item.userCategory)},
      {"generatedCategory", item.generatedCategory},
      {"generatedCategoryConfidence", item.generatedCategoryConfidence},
      {"customCategory", optionalText(item.customCategory)},
      {"tags", item.tags},
      {"note", optionalText(item.note)},
      {"text", optionalText(item.text)},
      {"summary", optionalText(item.summary)},
      {"keywords", item.keywords},
      {"capturedAt", optionalDate(item.capturedAt)},
      {"importedAt", optionalDate(item.importedAt)},
      {"sourceAppName", optionalText(item.sourceAppName)},
      {"sourceAppBundleID", optionalText(item.sourceAppBundleID)},
      {"originalFilename", item.originalFilename},
      {"favorite", item.favorite},
      {"archived", item.archived},
      {"processingState", item.processingState},
  };
}

Result<ExportedItem> exportedItemFromJson(const Json& json, std::vector<std::string>& warnings) {
  if (!json.is_object()) return Err(Status::InvalidArgument("an entry of items is not an object"));
  ExportedItem item;
  std::string where = "item";
  if (auto it = json.find("file"); it != json.end() && it->is_string()) where = *it;
  FieldReader r(json, warnings, where);
  r.text("id", item.id);
  r.text("file", item.file);
  if (item.file.empty()) return Err(Status::InvalidArgument("an entry of items names no file"));
  r.text("title", item.title);
  r.text("userTitle", item.userTitle);
  r.text("generatedTitle", item.generatedTitle);
  r.text("category", item.category);
  r.text("userCategory", item.userCategory);
  r.text("generatedCategory", item.generatedCategory);
  r.number("generatedCategoryConfidence", item.generatedCategoryConfidence);
  r.text("customCategory", item.customCategory);
  r.list("tags", item.tags);
  r.text("note", item.note);
  r.text("text", item.text);
  r.text("summary", item.summary);
  r.list("keywords", item.keywords);
  r.date("capturedAt", item.capturedAt);
  r.date("importedAt", item.importedAt);
  r.text("sourceAppName", item.sourceAppName);
  r.text("sourceAppBundleID", item.sourceAppBundleID);
  r.text("originalFilename", item.originalFilename);
  r.flag("favorite", item.favorite);
  r.flag("archived", item.archived);
  r.text("processingState", item.processingState);
  return item;
}

std::string exportTableHeader() {
  return "file,title,category,customCategory,tags,note,text,capturedAt,importedAt,"
         "sourceApplication,originalFilename,favorite,archived,id\r\n";
}

std::string exportTableRow(const ExportedItem& item) {
  std::vector<std::string> fields = {
      item.file,
      item.title,
      item.category,
      item.customCategory.value_or(""),
      joined(item.tags, "; "),
      item.note.value_or(""),
      item.text.value_or(""),
      item.capturedAt ? formatISO8601(*item.capturedAt) : "",
      item.importedAt ? formatISO8601(*item.importedAt) : "",
      item.sourceAppName ? *item.sourceAppName : item.sourceAppBundleID.value_or(""),
      item.originalFilename,
      item.favorite ? "true" : "false",
      item.archived ? "true" : "false",
      item.id,
  };
  std::string row;
  for (size_t i = 0; i < fields.size(); ++i) row += (i ? "," : "") + csvField(fields[i]);
  return row + "\r\n";
}

}  // namespace klipora::portability
