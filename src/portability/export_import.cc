#include "portability/export_import.h"

#include <algorithm>
#include <map>

#include "intelligence/tag_catalog_service.h"
#include "library/records.h"
#include "library/search_text.h"
#include "library/screenshot_item.h"
#include "platform/log.h"
#include "platform/sha256.h"

namespace klipora::portability {
namespace {

using library::ScreenshotItem;

// A listed file must stay inside the export folder.
bool staysInside(const std::string& relative) {
  if (relative.empty() || relative.front() == '/') return false;
  size_t start = 0;
  while (start <= relative.size()) {
    size_t end = relative.find('/', start);
    if (end == std::string::npos) end = relative.size();
    if (relative.compare(start, end - start, "..") == 0 && end - start == 2) return false;
    start = end + 1;
  }
  return true;
}

// The library's custom categories by lower-cased name. Those the export
// lists and the library lacks are made with their rule and keywords (their
// centroid is built when the library next repairs its categories); a name
// that only an item carries is made bare on first use.
class CustomCategories {
 public:
  CustomCategories(library::ModelContext& context, Clock& clock) : context_(context), clock_(clock) {}
  Status load(const Json& listed, const std::string& indexPath, std::vector<std::string>& warnings) {
    ASSIGN_OR_RETURN(auto all, context_.fetch<library::CustomCategory>());
    for (const auto& c : all) byName_.emplace(library::lowercased(c->name), c->id);
    if (listed.is_null()) return Status::Ok();
    if (!listed.is_array()) {
      warnings.push_back(indexPath + ": customCategories is not a list; ignored");
      return Status::Ok();
    }
    for (const auto& entry : listed) {
      if (!entry.is_object() || !entry.contains("name") || !entry["name"].is_string() ||
          entry["name"].get<std::string>().empty()) {
        warnings.push_back(indexPath + ": a custom category without a name ignored");
        continue;
      }
      const std::string name = entry["name"];
      if (byName_.count(library::lowercased(name))) continue;
      auto category = make(name);
      if (entry.contains("description") && entry["description"].is_string() &&
          !entry["description"].get<std::string>().empty()) {
        category->categoryDescription = entry["description"].get<std::string>();
      }
      if (entry.contains("systemImage") && entry["systemImage"].is_string()) {
        category->systemImage = entry["systemImage"];
      }
      std::vector<std::string> keywords;
      if (entry.contains("keywords") && entry["keywords"].is_array()) {
        for (const auto& k : entry["keywords"]) {
          if (k.is_string() && !k.get<std::string>().empty()) keywords.push_back(k);
        }
      }
      if (!keywords.empty()) category->setKeywords(keywords);
    }
    return Status::Ok();
  }
  UUID idFor(const std::string& name) {
    auto it = byName_.find(library::lowercased(name));
    if (it != byName_.end()) return it->second;
    return make(name)->id;
  }

 private:
  std::shared_ptr<library::CustomCategory> make(const std::string& name) {
    auto category = std::make_shared<library::CustomCategory>();
    category->name = name;
    category->createdAt = clock_.now();
    context_.insert(category);
    byName_.emplace(library::lowercased(name), category->id);
    return category;
  }

  library::ModelContext& context_;
  Clock& clock_;
  std::map<std::string, UUID> byName_;
};

void fill(ScreenshotItem& item, const ExportedItem& e) {
  item.originalFilename = e.originalFilename.empty() ? lastPathComponent(e.file) : e.originalFilename;
  item.capturedAt = e.capturedAt;
  item.ocrText = e.text;
  item.generatedTitle = e.generatedTitle;
  item.generatedSummary = e.summary;
  item.generatedCategory = library::fromRaw<library::ScreenshotCategory>(e.generatedCategory)
                               .value_or(library::ScreenshotCategory::uncategorized);
  item.generatedCategoryConfidence = e.generatedCategoryConfidence;
  item.setGeneratedKeywords(e.keywords);
  if (e.userCategory) item.userCategory = library::fromRaw<library::ScreenshotCategory>(*e.userCategory);
  item.userTitle = e.userTitle;
  item.setUserTags(e.tags);
  item.userNote = e.note;
  item.favorite = e.favorite;
  item.archived = e.archived;
  item.importSource = library::ImportSourceType::folderImport;
  item.sourceAppName = e.sourceAppName;
  item.sourceAppBundleID = e.sourceAppBundleID;
  // A finished item keeps its results; anything else is processed again.
  auto state = library::fromRaw<library::ProcessingState>(e.processingState);
  item.setProcessingState(state && library::isTerminal(*state) ? *state
                                                                : library::ProcessingState::pending);
}

}  // namespace

std::string_view outcomeName(ExportImportOutcome outcome) {
  switch (outcome) {
    case ExportImportOutcome::imported:
      return "imported";
    case ExportImportOutcome::duplicate:
      return "duplicate";
    case ExportImportOutcome::failed:
      return "failed";
  }
  return "failed";
}

ExportImporter::ExportImporter(library::StorageService& storage, Clock& clock,
                               library::ModelContext& context)
    : storage_(storage), clock_(clock), context_(context) {}

Result<ExportImportReport> ExportImporter::importFrom(const std::string& folder,
                                                      const Progress& progress) {
  FileSystem& fs = storage_.fileSystem();
  const std::string indexPath = joinPath(folder, kExportIndexName);
  auto indexAttributes = fs.attributes(indexPath);
  if (!indexAttributes) {
    return Err(Status::NotFound(folder + " holds no " + kExportIndexName +
                            ": it is not a library export (" +
                            indexAttributes.error().message() + ")"));
  }
  if (!indexAttributes->isRegularFile) {
    return Err(Status::InvalidArgument(indexPath + " is not a regular file"));
  }
  ASSIGN_OR_RETURN(std::string text, fs.readFile(indexPath));
  Json index = Json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (index.is_discarded()) return Err(Status::Corruption(indexPath + " is not valid JSON"));
  if (!index.is_object() || index.value("format", "") != kExportFormatName ||
      !index["items"].is_array()) {
    return Err(Status::InvalidArgument(indexPath + " is not the index of a library export"));
  }
  ExportImportReport report;
  if (int version = index.value("version", 0); version > kExportFormatVersion) {
    report.warnings.push_back(indexPath + " was written by a newer version (format " +
                              std::to_string(version) + "); reading what this version knows");
  }

  CustomCategories categories(context_, clock_);
  RETURN_IF_ERROR(categories.load(index.contains("customCategories") ? index["customCategories"]
                                                                     : Json(),
                                  indexPath, report.warnings));
  std::vector<std::string> unsavedFiles;
  std::vector<size_t> unsavedItems;
  auto saveBatch = [&]() {
    Status s = context_.save();
    if (s.ok()) {
      unsavedFiles.clear();
      unsavedItems.clear();
      return;
    }
    context_.rollback();
    for (const auto& path : unsavedFiles) (void)fs.removeFile(path);
    for (size_t i : unsavedItems) {
      auto& r = report.items[i];
      r.outcome = ExportImportOutcome::failed;
      r.error = "cannot save the library: " + s.message();
      r.id.clear();
      --report.imported;
      ++report.failed;
    }
    unsavedFiles.clear();
    unsavedItems.clear();
  };

  const auto& entries = index["items"];
  for (size_t n = 0; n < entries.size(); ++n) {
    ExportImportItem result;
    auto fail = [&](std::string error) {
      result.outcome = ExportImportOutcome::failed;
      result.error = std::move(error);
    };
    auto entry = exportedItemFromJson(entries[n], report.warnings);
    if (!entry) {
      result.file = "items[" + std::to_string(n) + "]";
      fail(indexPath + ": " + entry.error().message());
    } else if (result.file = entry->file; !staysInside(entry->file)) {
      fail(entry->file + ": the path leaves the export folder; skipped");
    } else {
      const std::string path = joinPath(folder, entry->file);
      auto attributes = fs.attributes(path);
      Result<std::string> bytes = std::string();
      if (!attributes) {
        fail(path + ": " + attributes.error().message());
      } else if (!attributes->isRegularFile) {
        fail(path + ": not a regular file");
      } else if (bytes = fs.readFile(path); !bytes) {
        fail(path + ": " + bytes.error().message());
      } else if (auto properties = storage_.codec().properties(*bytes); !properties) {
        fail(path + ": not a readable image (" + properties.error().message() + ")");
      } else {
        std::string checksum = sha256Hex(*bytes);
        library::FetchDescriptor same;
        same.predicate = "\"checksum\" = ?";
        same.arguments = {checksum};
        auto count = context_.fetchCount<ScreenshotItem>(same);
        if (!count) return Err(count.error());
        auto unsaved = context_.pendingInserts<ScreenshotItem>();
        bool pendingSame = std::any_of(unsaved.begin(), unsaved.end(), [&](const auto& item) {
          return item->checksum == checksum;
        });
        if (*count > 0 || pendingSame) {
          result.outcome = ExportImportOutcome::duplicate;
        } else if (auto copied = storage_.copyToLibrary(path, *bytes); !copied) {
          fail(path + ": cannot copy into the library: " + copied.error().message());
        } else {
          auto item = std::make_shared<ScreenshotItem>();
          if (auto kept = UUID::Parse(entry->id)) {
            auto taken = context_.fetchByKey<ScreenshotItem>(kept->uuidString());
            if (taken && !*taken) item->id = *kept;
          }
          fill(*item, *entry);
          item->importedFilename = lastPathComponent(*copied);
          item->sourcePath = path;
          item->libraryPath = *copied;
          item->importedAt = entry->importedAt.value_or(clock_.now());
          item->fileSize = static_cast<int64_t>(bytes->size());
          if (auto size = storage_.imageDimensions(*properties)) {
            item->width = size->first;
            item->height = size->second;
          }
          item->checksum = checksum;
          if (entry->customCategory && !entry->customCategory->empty()) {
            item->customCategoryID = categories.idFor(*entry->customCategory);
          }
          if (auto thumbnail = storage_.generateThumbnailFromData(*bytes, item->id)) {
            item->thumbnailPath = *thumbnail;
            unsavedFiles.push_back(*thumbnail);
          } else {
            log::warning("Thumb", "no thumbnail for %s: %s", path.c_str(),
                         thumbnail.error().message().c_str());
          }
          context_.insert(item);
          unsavedFiles.push_back(*copied);
          unsavedItems.push_back(report.items.size());
          result.outcome = ExportImportOutcome::imported;
          result.id = item->id.uuidString();
        }
      }
    }
    switch (result.outcome) {
      case ExportImportOutcome::imported:
        ++report.imported;
        break;
      case ExportImportOutcome::duplicate:
        ++report.duplicates;
        break;
      case ExportImportOutcome::failed:
        ++report.failed;
        break;
    }
    report.items.push_back(std::move(result));
    if (unsavedItems.size() >= kSaveBatch) saveBatch();
    if (progress) progress(n + 1, entries.size());
  }
  saveBatch();
  // The catalogue gets every tag the new items carry, with its default colour.
  intelligence::TagCatalogService tags(clock_);
  if (Status s = tags.ensureCatalogSynced(context_); !s.ok()) {
    report.warnings.push_back("the tag catalogue was not brought up to date: " + s.message());
  }
  return report;
}

}  // namespace klipora::portability
