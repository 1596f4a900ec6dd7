#include "portability/library_export.h"

#include <algorithm>
#include <ctime>
#include <map>
#include <unordered_map>

#include "library/records.h"
#include "library/search_text.h"
#include "library/screenshot_item.h"
#include "markup/markup_non_destructive_store.h"
#include "portability/export_file_names.h"

namespace klipora::portability {
namespace {

using library::ScreenshotItem;

constexpr int64_t kPageSize = 200;
constexpr char kLiveItems[] = "\"deleted\" = 0 AND \"deletedAt\" IS NULL";

// Live items in export order, a page at a time, read straight from the rows
// so that no record stays cached in the context after its page.
Result<std::vector<ScreenshotItem>> readPage(library::Database& db, int64_t offset) {
  const auto& schema = library::schemaOf<ScreenshotItem>();
  std::string sql = "SELECT ";
  for (size_t i = 0; i < schema.columns.size(); ++i) {
    sql += (i ? ", " : "") + library::quoteIdentifier(schema.columns[i].name);
  }
  sql += " FROM " + library::quoteIdentifier(schema.table) + " WHERE " + kLiveItems +
         " ORDER BY \"importedAt\", \"id\" LIMIT " + std::to_string(kPageSize) + " OFFSET " +
         std::to_string(offset);
  ASSIGN_OR_RETURN(auto rows, db.query(sql));
  std::vector<ScreenshotItem> items(rows.size());
  for (size_t r = 0; r < rows.size(); ++r) {
    for (size_t c = 0; c < schema.columns.size(); ++c) schema.columns[c].set(items[r], rows[r][c]);
  }
  return items;
}

std::string localStamp(Date date) {
  std::time_t t = static_cast<std::time_t>(date.timeIntervalSince1970());
  std::tm local{};
  if (!localtime_r(&t, &local)) return "";
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H.%M.%S", &local);
  return text;
}

// One item on its way out: its index entry, where its bytes come from, and
// which folder it goes to.
struct Pending {
  ExportedItem entry;
  std::string source;
  std::string folderKey;
};

ExportedItem describe(const ScreenshotItem& item,
                      const std::unordered_map<std::string, std::string>& customNames) {
  ExportedItem e;
  e.id = item.id.uuidString();
  e.title = item.displayTitle();
  e.userTitle = item.userTitle;
  e.generatedTitle = item.generatedTitle;
  e.category = std::string(library::rawValue(item.effectiveCategory()));
  if (item.userCategory) e.userCategory = std::string(library::rawValue(*item.userCategory));
  e.generatedCategory = std::string(library::rawValue(item.generatedCategory));
  e.generatedCategoryConfidence = item.generatedCategoryConfidence;
  if (item.customCategoryID) {
    auto it = customNames.find(item.customCategoryID->uuidString());
    if (it != customNames.end()) e.customCategory = it->second;
  }
  e.tags = item.userTags();
  e.note = item.userNote;
  e.text = item.ocrText;
  e.summary = item.generatedSummary;
  e.keywords = item.generatedKeywords();
  e.capturedAt = item.capturedAt;
  e.importedAt = item.importedAt;
  e.sourceAppName = item.sourceAppName;
  e.sourceAppBundleID = item.sourceAppBundleID;
  e.originalFilename = item.originalFilename;
  e.favorite = item.favorite;
  e.archived = item.archived;
  e.processingState = item.processingStateRaw;
  return e;
}

// The files an earlier export wrote, by item id.
std::unordered_map<std::string, std::string> previousFiles(FileSystem& fs,
                                                           const std::string& indexPath) {
  std::unordered_map<std::string, std::string> out;
  auto text = fs.readFile(indexPath);
  if (!text) return out;
  Json index = Json::parse(*text, nullptr, /*allow_exceptions=*/false);
  if (!index.is_object() || !index["items"].is_array()) return out;
  for (const auto& e : index["items"]) {
    if (e.is_object() && e["id"].is_string() && e["file"].is_string()) out[e["id"]] = e["file"];
  }
  return out;
}

}  // namespace

std::string_view outcomeName(ExportOutcome outcome) {
  switch (outcome) {
    case ExportOutcome::written:
      return "written";
    case ExportOutcome::alreadyThere:
      return "alreadyThere";
    case ExportOutcome::failed:
      return "failed";
  }
  return "failed";
}

LibraryExporter::LibraryExporter(FileSystem& fs, Clock& clock, library::ModelContext& context,
                                 std::string libraryRoot)
    : fs_(fs), clock_(clock), context_(context), libraryRoot_(std::move(libraryRoot)) {}

Result<LibraryExportReport> LibraryExporter::exportTo(const std::string& folder,
                                                      ExportVariant variant,
                                                      const Progress& progress) {
  if (Status s = fs_.createDirectories(folder); !s.ok()) {
    return Err(s.WithContext("cannot create the export folder " + folder));
  }
  if (!fs_.isWritableDirectory(folder)) {
    return Err(Status::PermissionDenied("cannot write into the export folder " + folder));
  }
  ASSIGN_OR_RETURN(auto categories, context_.fetch<library::CustomCategory>());
  std::unordered_map<std::string, std::string> customNames;
  Json customCategories = Json::array();
  for (const auto& c : categories) {
    customNames[c->id.uuidString()] = c->name;
    customCategories.push_back({{"name", c->name},
                                {"description", c->categoryDescription.value_or("")},
                                {"keywords", c->keywords()},
                                {"systemImage", c->systemImage}});
  }

  // Every item is named before any file is written, so that names an earlier
  // run gave are kept and a new name never takes one of them.
  const std::string indexPath = joinPath(folder, kExportIndexName);
  auto previous = previousFiles(fs_, indexPath);
  markup::MarkupNonDestructiveStore edits(fs_);
  std::vector<Pending> pending;
  std::map<std::string, std::string> folderNames;  // folder key -> folder name
  UniqueNames topLevel;
  topLevel.reserve(kExportIndexName);
  topLevel.reserve(kExportTableName);
  for (int64_t offset = 0;; offset += kPageSize) {
    ASSIGN_OR_RETURN(auto page, readPage(context_.database(), offset));
    for (const auto& item : page) {
      Pending p{describe(item, customNames), item.libraryPath, ""};
      if (variant == ExportVariant::originals) {
        if (auto raw = edits.existingRawURL(libraryRoot_, item.id)) p.source = *raw;
      }
      p.folderKey = p.entry.customCategory ? "custom:" + *p.entry.customCategory
                                           : "category:" + p.entry.category;
      if (!folderNames.count(p.folderKey)) {
        std::string shown = p.entry.customCategory
                                ? *p.entry.customCategory
                                : library::displayName(item.effectiveCategory());
        folderNames[p.folderKey] = topLevel.claim(safeNameComponent(shown, "Category"), "");
      }
      pending.push_back(std::move(p));
    }
    if (page.size() < static_cast<size_t>(kPageSize)) break;
  }

  std::map<std::string, UniqueNames> namesIn;  // folder name -> its file names
  for (const auto& [id, file] : previous) {
    auto slash = file.find('/');
    if (slash != std::string::npos) namesIn[file.substr(0, slash)].reserve(file.substr(slash + 1));
  }
  for (auto& p : pending) {
    const std::string& dir = folderNames[p.folderKey];
    auto it = previous.find(p.entry.id);
    if (it != previous.end() && it->second.starts_with(dir + "/") &&
        it->second.find('/', dir.size() + 1) == std::string::npos) {
      p.entry.file = it->second;
      continue;
    }
    std::string extension = library::lowercased(pathExtension(p.source));
    Date when = p.entry.capturedAt.value_or(p.entry.importedAt.value_or(Date()));
    std::string stem = safeNameComponent(localStamp(when) + " " + p.entry.title);
    p.entry.file =
        dir + "/" + namesIn[dir].claim(stem, extension.empty() ? "" : "." + extension);
  }

  LibraryExportReport report;
  std::string index;
  std::string table = exportTableHeader();
  Json items = Json::array();
  for (size_t i = 0; i < pending.size(); ++i) {
    auto& p = pending[i];
    ExportItemResult result{p.entry.id, p.entry.file, ExportOutcome::failed, ""};
    const std::string target = joinPath(folder, p.entry.file);
    auto source = fs_.attributes(p.source);
    auto existing = fs_.attributes(target);
    if (!source || !source->isRegularFile) {
      result.error = "item " + p.entry.id + ": its library file " + p.source +
                     (source ? " is not a regular file" : " cannot be read: " +
                                                              source.error().message());
    } else if (existing && existing->isRegularFile && existing->size == source->size) {
      result.outcome = ExportOutcome::alreadyThere;
    } else {
      const std::string partial = target + ".part";
      (void)fs_.removeFile(partial);  // left by an interrupted run
      Status s = fs_.createDirectories(deletingLastPathComponent(target));
      if (s.ok()) s = fs_.copyFile(p.source, partial);
      if (s.ok()) s = fs_.rename(partial, target);
      if (s.ok()) {
        result.outcome = ExportOutcome::written;
      } else {
        (void)fs_.removeFile(partial);
        result.error = "cannot write " + target + ": " + s.message();
      }
    }
    switch (result.outcome) {
      case ExportOutcome::written:
        ++report.written;
        break;
      case ExportOutcome::alreadyThere:
        ++report.alreadyThere;
        break;
      case ExportOutcome::failed:
        ++report.failed;
        break;
    }
    if (result.outcome != ExportOutcome::failed) {
      items.push_back(exportedItemToJson(p.entry));
      table += exportTableRow(p.entry);
    }
    report.items.push_back(std::move(result));
    if (progress) progress(i + 1, pending.size());
  }

  Json written{{"format", kExportFormatName},
               {"version", kExportFormatVersion},
               {"exportedAt", formatISO8601(clock_.now())},
               {"variant", variant == ExportVariant::originals ? "originals" : "edited"},
               {"customCategories", std::move(customCategories)},
               {"items", std::move(items)}};
  RETURN_IF_ERROR(fs_.writeFileAtomically(
                         indexPath, written.dump(2, ' ', false, Json::error_handler_t::replace) +
                                        "\n")
                      .WithContext("cannot write " + indexPath));
  const std::string tablePath = joinPath(folder, kExportTableName);
  RETURN_IF_ERROR(
      fs_.writeFileAtomically(tablePath, table).WithContext("cannot write " + tablePath));
  return report;
}

}  // namespace klipora::portability
