// The written form of a library export: a folder with one image file per
// item in a folder per category, and two indexes beside them:
//   library.json  {"format": "klipora-library-export", "version": 1,
//                  "exportedAt", "variant": "edited"|"originals",
//                  "customCategories": [{"name", "description", "keywords",
//                                        "systemImage"}], "items": [...]}
//   library.csv   one row per item, the user-facing fields, RFC 4180 quoting
// ExportedItem is one entry of "items"; `file` is relative to the folder,
// with '/' between the category folder and the file name.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/date.h"
#include "platform/status.h"

namespace klipora::portability {

using Json = nlohmann::ordered_json;

inline constexpr char kExportFormatName[] = "klipora-library-export";
inline constexpr int kExportFormatVersion = 1;
inline constexpr char kExportIndexName[] = "library.json";
inline constexpr char kExportTableName[] = "library.csv";

struct ExportedItem {
  std::string id;
  std::string file;
  std::string title;  // as shown: the user's title, else the automatic one
  std::optional<std::string> userTitle;
  std::optional<std::string> generatedTitle;
  std::string category;  // raw value of the category in effect
  std::optional<std::string> userCategory;
  std::string generatedCategory = "uncategorized";
  double generatedCategoryConfidence = 0;
  std::optional<std::string> customCategory;  // by name
  std::vector<std::string> tags;
  std::optional<std::string> note;
  std::optional<std::string> text;
  std::optional<std::string> summary;
  std::vector<std::string> keywords;
  std::optional<Date> capturedAt;
  std::optional<Date> importedAt;
  std::optional<std::string> sourceAppName;
  std::optional<std::string> sourceAppBundleID;
  std::string originalFilename;
  bool favorite = false;
  bool archived = false;
  std::string processingState;
};

Json exportedItemToJson(const ExportedItem& item);
// Reads what it understands; fields of the wrong type are left at their
// defaults and named in `warnings`. InvalidArgument when the entry is not an
// object or lacks its file.
Result<ExportedItem> exportedItemFromJson(const Json& json, std::vector<std::string>& warnings);

// The CSV header line and one row (each with its "\r\n").
std::string exportTableHeader();
std::string exportTableRow(const ExportedItem& item);

}  // namespace klipora::portability
