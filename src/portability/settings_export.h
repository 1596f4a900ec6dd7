// The settings export file "Klipora-Settings.json": what a user carries to
// another machine or a new library. It holds the preferences of the settings
// row that travel (from automaticImportEnabled to
// customCategoryAutoAssignEnabled, without libraryFolder and
// backfillOnFirstRun), the watched folders, the tags with their colours, the
// custom categories and the saved searches:
//   {"format": "klipora-settings", "version": 1, "exportedAt",
//    "settings": {...}, "watchedFolders": [...], "tags": [...],
//    "customCategories": [...], "savedSearches": [...]}
// Paths inside the user's home are written as "~/…" and read back against
// the importing user's home, so no path names this machine's user.
//
// Importing merges: preferences in the file win; folders, tags, categories
// and searches are matched by path or name, added when missing and updated
// when they differ. A file of a newer version or with fields this version
// does not know is read as far as understood, with a warning for the rest.
//
// Thread rules: the context's thread.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "library/model_context.h"
#include "platform/clock.h"
#include "platform/status.h"

namespace klipora::portability {

inline constexpr char kSettingsFileName[] = "Klipora-Settings.json";
inline constexpr char kSettingsFormatName[] = "klipora-settings";
inline constexpr int kSettingsFormatVersion = 1;

// The settings-row fields that travel, in row order.
const std::vector<std::string>& travellingSettingsFields();

// The file's content. `home` is the user's home folder ("" when unknown).
Result<nlohmann::ordered_json> exportSettings(library::ModelContext& context, Clock& clock,
                                              const std::string& home);

struct SettingsImportSummary {
  std::vector<std::string> changes;   // one line per change, as shown to the user
  std::vector<std::string> warnings;  // what was not understood and left out
};

// Merges `file` into the library and saves. InvalidArgument when `file` is
// not a settings export at all; a save failure leaves the library unchanged.
Result<SettingsImportSummary> importSettings(library::ModelContext& context, Clock& clock,
                                             const nlohmann::ordered_json& file,
                                             const std::string& home);

}  // namespace klipora::portability
