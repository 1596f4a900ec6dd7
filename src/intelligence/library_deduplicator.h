// LibraryDeduplicator: merges the duplicates that reach the library twice,
// above all through cloud sync: screenshots with one content checksum,
// custom categories with one name, saved searches with one name and the same
// query. A namespace of functions without state of its own.
//
// Survivor: the members of a group sorted by the text of their id (canonical
// upper-case UUID, compared as plain text); the first survives, so every
// device picks the same one without talking to the others. A surviving
// screenshot gains the tags of the others (each once) and keeps its own
// other values, taking a removed member's user title, note, custom category
// and favourite mark only where it has none. Items filed under a removed
// category move to the survivor.
//
// Each merge function saves once at its end; on failure it rolls the context
// back and returns the error, leaving the library as it was.
//
// Thread rules: uses the context on the caller's thread.
#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "library/model_context.h"
#include "library/screenshot_item.h"

namespace klipora::intelligence {

class LibraryDeduplicator {
 public:
  struct Report {
    int64_t screenshots = 0;
    int64_t categories = 0;
    int64_t savedSearches = 0;

    bool isEmpty() const { return screenshots == 0 && categories == 0 && savedSearches == 0; }
    Report& operator+=(const Report& o) {
      screenshots += o.screenshots;
      categories += o.categories;
      savedSearches += o.savedSearches;
      return *this;
    }
  };

  // Supplied by the sync engine, so that the deduplicator stays free of sync
  // and file logic. Each may be empty.
  struct Hooks {
    // A library file's address as a library-relative path.
    std::function<std::string(const std::optional<std::string>& path)> relativePath;
    // Each screenshot the merge touches; `removed` is true for a duplicate
    // about to be deleted, false for the survivor.
    std::function<void(const library::ScreenshotItem& item, bool removed)> touched;
    std::function<void(const std::string& line)> diagnostic;
  };

  // Ids of screenshots sharing a checksum, groups of two or more, each group
  // in survivor order. With `checksums`, only those are examined.
  static Result<std::vector<std::vector<UUID>>> duplicateGroups(
      library::ModelContext& context, const std::optional<std::set<std::string>>& checksums = {});
  static Result<Report> mergeScreenshotGroups(const std::vector<std::vector<UUID>>& groups,
                                              library::ModelContext& context,
                                              const Hooks& hooks = {});
  // Applies deletions that arrived from the cloud to these local rows.
  static Status absorbRemoteDeletes(const std::vector<UUID>& itemIDs,
                                    library::ModelContext& context, const Hooks& hooks = {});
  static Result<Report> mergeDuplicateCategories(library::ModelContext& context);
  static Result<Report> mergeDuplicateSavedSearches(library::ModelContext& context);
  // All of the above over the whole library; logs "dedupe merged …" when
  // anything was merged.
  static Result<Report> run(library::ModelContext& context, const Hooks& hooks = {});
};

}  // namespace klipora::intelligence
