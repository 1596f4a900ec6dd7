#include "portability/settings_export.h"

#include <algorithm>
#include <map>
#include <set>

#include "intelligence/tag_normalization.h"
#include "library/record_json.h"
#include "library/records.h"
#include "library/screenshot_item.h"
#include "library/search_text.h"
#include "library/settings_store.h"
#include "platform/file_system.h"

namespace klipora::portability {
namespace {

using Json = nlohmann::ordered_json;
using library::AppSettings;

std::string homeRelative(const std::string& path, const std::string& home) {
  if (home.empty() || home == "/") return path;
  if (path == home) return "~";
  if (path.starts_with(home + "/")) return "~" + path.substr(home.size());
  return path;
}

std::string expandHome(const std::string& path, const std::string& home) {
  if (path == "~") return home;
  if (path.starts_with("~/")) return joinPath(home, path.substr(2));
  return path;
}

std::string shown(const Json& value) {
  return value.is_string() ? "\"" + value.get<std::string>() + "\"" : value.dump();
}

// Reads one object of the file, warning about what it does not know.
class Entry {
 public:
  Entry(const Json& json, std::string where, std::vector<std::string>& warnings,
        std::set<std::string> known)
      : json_(json), where_(std::move(where)), warnings_(warnings) {
    for (const auto& [key, value] : json_.items()) {
      if (!known.count(key)) warnings_.push_back(where_ + ": unknown field \"" + key + "\" ignored");
    }
  }
  std::optional<std::string> text(const char* key) {
    auto it = json_.find(key);
    if (it == json_.end() || it->is_null()) return std::nullopt;
    if (it->is_string()) return it->get<std::string>();
    warnings_.push_back(where_ + ": " + key + " is not text; ignored");
    return std::nullopt;
  }
  std::optional<bool> flag(const char* key) {
    auto it = json_.find(key);
    if (it == json_.end() || it->is_null()) return std::nullopt;
    if (it->is_boolean()) return it->get<bool>();
    warnings_.push_back(where_ + ": " + key + " is not true or false; ignored");
    return std::nullopt;
  }
  std::vector<std::string> list(const char* key) {
    std::vector<std::string> out;
    auto it = json_.find(key);
    if (it == json_.end() || it->is_null()) return out;
    if (!it->is_array()) {
      warnings_.push_back(where_ + ": " + key + " is not a list; ignored");
      return out;
    }
    for (const auto& v : *it) {
      if (v.is_string()) out.push_back(v.get<std::string>());
    }
    return out;
  }

 private:
  const Json& json_;
  std::string where_;
  std::vector<std::string>& warnings_;
};

// The objects of one list of the file.
std::vector<const Json*> objectsOf(const Json& file, const char* key,
                                   std::vector<std::string>& warnings) {
  std::vector<const Json*> out;
  auto it = file.find(key);
  if (it == file.end() || it->is_null()) return out;
  if (!it->is_array()) {
    warnings.push_back(std::string(key) + " is not a list; ignored");
    return out;
  }
  for (size_t i = 0; i < it->size(); ++i) {
    if ((*it)[i].is_object()) {
      out.push_back(&(*it)[i]);
    } else {
      warnings.push_back(std::string(key) + "[" + std::to_string(i) + "] is not an object; ignored");
    }
  }
  return out;
}

// A changed value, noted for the summary.
template <typename T>
void change(T& field, const T& value, const std::string& what, std::vector<std::string>& changes) {
  if (field == value) return;
  field = value;
  changes.push_back(what);
}

void importPreferences(AppSettings& settings, const Json& file, const std::string& home,
                       SettingsImportSummary& out) {
  auto it = file.find("settings");
  if (it == file.end() || it->is_null()) return;
  if (!it->is_object()) {
    out.warnings.push_back("settings is not an object; ignored");
    return;
  }
  const auto& fields = travellingSettingsFields();
  Json before = library::recordToJson(settings);
  for (const auto& [key, value] : it->items()) {
    if (std::find(fields.begin(), fields.end(), key) == fields.end()) {
      out.warnings.push_back("settings: unknown field \"" + key + "\" ignored");
      continue;
    }
    Json wanted = value;
    if (key == "screenshotSourceFolder" && value.is_string()) {
      wanted = expandHome(value.get<std::string>(), home);
    }
    std::string text = wanted.is_string() ? wanted.get<std::string>() : wanted.dump();
    if (Status s = library::assignFieldFromText(settings, key, text); !s.ok()) {
      out.warnings.push_back("settings: " + key + ": " + s.message() + "; ignored");
      continue;
    }
    Json after = library::recordToJson(settings)[key];
    if (after != before[key]) {
      out.changes.push_back("setting " + key + ": " + shown(before[key]) + " → " + shown(after));
    }
  }
}

void importFolders(library::ModelContext& context, Clock& clock, const Json& file,
                   const std::string& home, SettingsImportSummary& out) {
  auto existing = context.fetch<library::WatchedFolder>();
  if (!existing) return;
  int nextIndex = 0;
  for (const auto& f : *existing) nextIndex = std::max(nextIndex, f->sortIndex + 1);
  for (const Json* json : objectsOf(file, "watchedFolders", out.warnings)) {
    Entry e(*json, "watchedFolders", out.warnings,
            {"path", "displayName", "isEnabled", "includeSubfolders", "isDefault"});
    auto path = e.text("path");
    if (!path || path->empty()) {
      out.warnings.push_back("watchedFolders: an entry without a path ignored");
      continue;
    }
    std::string local = expandHome(*path, home);
    auto enabled = e.flag("isEnabled");
    auto subfolders = e.flag("includeSubfolders");
    auto match = std::find_if(existing->begin(), existing->end(),
                              [&](const auto& f) { return f->path == local; });
    if (match != existing->end()) {
      auto& f = **match;
      if (enabled) change(f.isEnabled, *enabled, "folder " + local + ": isEnabled → " + (*enabled ? "true" : "false"), out.changes);
      if (subfolders) change(f.includeSubfolders, *subfolders, "folder " + local + ": includeSubfolders → " + (*subfolders ? "true" : "false"), out.changes);
      continue;
    }
    auto folder = std::make_shared<library::WatchedFolder>();
    folder->path = local;
    folder->displayName = e.text("displayName").value_or(lastPathComponent(local));
    folder->isEnabled = enabled.value_or(true);
    folder->includeSubfolders = subfolders.value_or(false);
    folder->isDefault = e.flag("isDefault").value_or(false);
    folder->sortIndex = nextIndex++;
    folder->createdAt = clock.now();
    context.insert(folder);
    existing->push_back(folder);
    out.changes.push_back("folder " + local + " added");
  }
}

void importTags(library::ModelContext& context, Clock& clock, const Json& file,
                SettingsImportSummary& out) {
  auto existing = context.fetch<library::UserTag>();
  if (!existing) return;
  for (const Json* json : objectsOf(file, "tags", out.warnings)) {
    Entry e(*json, "tags", out.warnings, {"name", "colorHex"});
    auto name = e.text("name");
    auto color = e.text("colorHex");
    if (!name || intelligence::validateTagName(*name)) {
      out.warnings.push_back("tags: an entry without a valid name ignored");
      continue;
    }
    if (color && !intelligence::TagNormalization::isColorHex(*color)) {
      out.warnings.push_back("tags: \"" + *name + "\": colour " + *color + " is not like #3B82F6");
      color.reset();
    }
    const std::string normalized = intelligence::TagNormalization::normalize(*name);
    auto match = std::find_if(existing->begin(), existing->end(),
                              [&](const auto& t) { return t->normalizedName == normalized; });
    if (match != existing->end()) {
      if (color && (*match)->colorHex != *color) {
        out.changes.push_back("tag \"" + (*match)->name + "\": colour " + (*match)->colorHex +
                              " → " + *color);
        (*match)->colorHex = *color;
        (*match)->updatedAt = clock.now();
      }
      continue;
    }
    auto tag = std::make_shared<library::UserTag>();
    tag->normalizedName = normalized;
    tag->name = library::trimmed(*name);
    tag->colorHex = color.value_or(intelligence::TagNormalization::defaultColorHex(*name));
    tag->createdAt = tag->updatedAt = clock.now();
    context.insert(tag);
    existing->push_back(tag);
    out.changes.push_back("tag \"" + tag->name + "\" added");
  }
}

// Returns the exported id of each category mapped to the local one.
std::map<std::string, std::string> importCategories(library::ModelContext& context, Clock& clock,
                                                    const Json& file, SettingsImportSummary& out) {
  std::map<std::string, std::string> ids;
  auto existing = context.fetch<library::CustomCategory>();
  if (!existing) return ids;
  for (const Json* json : objectsOf(file, "customCategories", out.warnings)) {
    Entry e(*json, "customCategories", out.warnings,
            {"id", "name", "systemImage", "description", "keywords"});
    auto name = e.text("name");
    if (!name || library::trimmed(*name).empty()) {
      out.warnings.push_back("customCategories: an entry without a name ignored");
      continue;
    }
    auto description = e.text("description");
    auto keywords = e.list("keywords");
    auto match = std::find_if(existing->begin(), existing->end(), [&](const auto& c) {
      return library::lowercased(c->name) == library::lowercased(*name);
    });
    std::shared_ptr<library::CustomCategory> category;
    if (match != existing->end()) {
      category = *match;
      if (description) change(category->categoryDescription, description, "category \"" + category->name + "\": description changed", out.changes);
      if (json->contains("keywords") && category->keywords() != keywords) {
        category->setKeywords(keywords);
        out.changes.push_back("category \"" + category->name + "\": keywords changed");
      }
    } else {
      category = std::make_shared<library::CustomCategory>();
      category->name = library::trimmed(*name);
      category->systemImage = e.text("systemImage").value_or("folder");
      category->categoryDescription = description;
      category->setKeywords(keywords);
      category->createdAt = clock.now();
      context.insert(category);
      existing->push_back(category);
      out.changes.push_back("category \"" + category->name + "\" added");
    }
    if (auto id = e.text("id")) ids[*id] = category->id.uuidString();
  }
  return ids;
}

void importSearches(library::ModelContext& context, Clock& clock, const Json& file,
                    const std::map<std::string, std::string>& categoryIDs,
                    SettingsImportSummary& out) {
  auto existing = context.fetch<library::SavedSearch>();
  if (!existing) return;
  for (const Json* json : objectsOf(file, "savedSearches", out.warnings)) {
    Entry e(*json, "savedSearches", out.warnings,
            {"name", "iconName", "query", "sidebarSelectionID", "dateFilterPreset",
             "dateFilterStart", "dateFilterEnd", "sortMode"});
    auto name = e.text("name");
    if (!name || library::trimmed(*name).empty()) {
      out.warnings.push_back("savedSearches: an entry without a name ignored");
      continue;
    }
    library::SavedSearch wanted;
    wanted.name = library::trimmed(*name);
    wanted.iconName = e.text("iconName").value_or(wanted.iconName);
    wanted.query = e.text("query").value_or("");
    wanted.sidebarSelectionID = e.text("sidebarSelectionID").value_or("all");
    const std::string kCustom = "customCategory:";
    if (wanted.sidebarSelectionID.starts_with(kCustom)) {
      auto it = categoryIDs.find(wanted.sidebarSelectionID.substr(kCustom.size()));
      if (it != categoryIDs.end()) wanted.sidebarSelectionID = kCustom + it->second;
    }
    wanted.dateFilterPresetRaw = e.text("dateFilterPreset").value_or("all");
    if (auto d = e.text("dateFilterStart")) wanted.dateFilterStart = parseISO8601(*d);
    if (auto d = e.text("dateFilterEnd")) wanted.dateFilterEnd = parseISO8601(*d);
    wanted.sortModeRaw = e.text("sortMode").value_or("newestFirst");
    auto match = std::find_if(existing->begin(), existing->end(),
                              [&](const auto& s) { return s->name == wanted.name; });
    if (match == existing->end()) {
      wanted.createdAt = clock.now();
      auto search = std::make_shared<library::SavedSearch>(wanted);
      context.insert(search);
      existing->push_back(search);
      out.changes.push_back("saved search \"" + wanted.name + "\" added");
      continue;
    }
    auto& s = **match;
    bool differs = s.iconName != wanted.iconName || s.query != wanted.query ||
                   s.sidebarSelectionID != wanted.sidebarSelectionID ||
                   s.dateFilterPresetRaw != wanted.dateFilterPresetRaw ||
                   s.dateFilterStart != wanted.dateFilterStart ||
                   s.dateFilterEnd != wanted.dateFilterEnd || s.sortModeRaw != wanted.sortModeRaw;
    if (!differs) continue;
    wanted.id = s.id;
    wanted.createdAt = s.createdAt;
    s = wanted;
    out.changes.push_back("saved search \"" + wanted.name + "\" updated");
  }
}

library::FetchDescriptor sortedBy(std::string order) {
  library::FetchDescriptor d;
  d.sortBy = std::move(order);
  return d;
}

Json optionalDate(const std::optional<Date>& d) {
  return d ? Json(formatISO8601(*d)) : Json(nullptr);
}

}  // namespace

const std::vector<std::string>& travellingSettingsFields() {
  static const std::vector<std::string> fields = [] {
    std::vector<std::string> out;
    bool inside = false;
    for (const auto& c : library::schemaOf<AppSettings>().columns) {
      if (c.name == "automaticImportEnabled") inside = true;
      if (inside && c.name != "libraryFolder" && c.name != "backfillOnFirstRun") {
        out.push_back(c.name);
      }
      if (c.name == "customCategoryAutoAssignEnabled") break;
    }
    return out;
  }();
  return fields;
}

Result<Json> exportSettings(library::ModelContext& context, Clock& clock, const std::string& home) {
  ASSIGN_OR_RETURN(auto settings, library::fetchOrCreateSettings(context));
  Json row = library::recordToJson(*settings);
  Json preferences = Json::object();
  for (const auto& field : travellingSettingsFields()) preferences[field] = row[field];
  if (preferences["screenshotSourceFolder"].is_string()) {
    preferences["screenshotSourceFolder"] =
        homeRelative(preferences["screenshotSourceFolder"].get<std::string>(), home);
  }

  ASSIGN_OR_RETURN(auto folders, context.fetch<library::WatchedFolder>(sortedBy("sortIndex")));
  Json folderList = Json::array();
  for (const auto& f : folders) {
    folderList.push_back({{"path", homeRelative(f->path, home)},
                          {"displayName", f->displayName},
                          {"isEnabled", f->isEnabled},
                          {"includeSubfolders", f->includeSubfolders},
                          {"isDefault", f->isDefault}});
  }
  ASSIGN_OR_RETURN(auto tags, context.fetch<library::UserTag>(sortedBy("name")));
  Json tagList = Json::array();
  for (const auto& t : tags) tagList.push_back({{"name", t->name}, {"colorHex", t->colorHex}});
  ASSIGN_OR_RETURN(auto categories,
                   context.fetch<library::CustomCategory>(sortedBy("createdAt, id")));
  Json categoryList = Json::array();
  for (const auto& c : categories) {
    categoryList.push_back({{"id", c->id.uuidString()},
                            {"name", c->name},
                            {"systemImage", c->systemImage},
                            {"description", c->categoryDescription
                                                ? Json(*c->categoryDescription)
                                                : Json(nullptr)},
                            {"keywords", c->keywords()}});
  }
  ASSIGN_OR_RETURN(auto searches, context.fetch<library::SavedSearch>(sortedBy("createdAt, id")));
  Json searchList = Json::array();
  for (const auto& s : searches) {
    searchList.push_back({{"name", s->name},
                          {"iconName", s->iconName},
                          {"query", s->query},
                          {"sidebarSelectionID", s->sidebarSelectionID},
                          {"dateFilterPreset", s->dateFilterPresetRaw},
                          {"dateFilterStart", optionalDate(s->dateFilterStart)},
                          {"dateFilterEnd", optionalDate(s->dateFilterEnd)},
                          {"sortMode", s->sortModeRaw}});
  }
  return Json{{"format", kSettingsFormatName},
              {"version", kSettingsFormatVersion},
              {"exportedAt", formatISO8601(clock.now())},
              {"settings", std::move(preferences)},
              {"watchedFolders", std::move(folderList)},
              {"tags", std::move(tagList)},
              {"customCategories", std::move(categoryList)},
              {"savedSearches", std::move(searchList)}};
}

Result<SettingsImportSummary> importSettings(library::ModelContext& context, Clock& clock,
                                             const Json& file, const std::string& home) {
  if (!file.is_object() || file.value("format", "") != kSettingsFormatName) {
    return Err(Status::InvalidArgument("it is not a Klipora settings export (no \"format\": \"" +
                                   std::string(kSettingsFormatName) + "\")"));
  }
  SettingsImportSummary out;
  if (auto v = file.find("version"); v != file.end() && v->is_number_integer() &&
                                     v->get<int64_t>() > kSettingsFormatVersion) {
    out.warnings.push_back("written by a newer version (format " + v->dump() +
                           "); reading what this version knows");
  }
  static const std::set<std::string> kKnown = {
      "format", "version", "exportedAt", "settings", "watchedFolders",
      "tags", "customCategories", "savedSearches"};
  for (const auto& [key, value] : file.items()) {
    if (!kKnown.count(key)) out.warnings.push_back("unknown field \"" + key + "\" ignored");
  }
  ASSIGN_OR_RETURN(auto settings, library::fetchOrCreateSettings(context));
  importPreferences(*settings, file, home, out);
  importFolders(context, clock, file, home, out);
  importTags(context, clock, file, out);
  auto categoryIDs = importCategories(context, clock, file, out);
  importSearches(context, clock, file, categoryIDs, out);
  if (Status s = context.save(); !s.ok()) {
    context.rollback();
    return Err(s.WithContext("cannot save the library"));
  }
  return out;
}

}  // namespace klipora::portability
