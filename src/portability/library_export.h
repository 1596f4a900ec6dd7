// LibraryExporter: writes the library to a folder that a person can browse
// and another program can read (layout in library_export_format.h). Items
// in the trash are left out. Each item's file is the live library file (with
// the user's edits rendered into it) or, with ExportVariant::originals, the
// untouched original kept aside when the item was edited.
//
// Resumable: names are chosen in a stable order (import date, then id) and
// an earlier run's library.json is honoured, so a second run finds each file
// where the first put it and skips it when its size matches. Files are
// written beside their final name and renamed, so an interrupted run leaves
// no partial image under a final name. The indexes are written last.
//
// Thread rules: one thread (the context's).
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "library/model_context.h"
#include "platform/clock.h"
#include "platform/file_system.h"
#include "portability/library_export_format.h"

namespace klipora::portability {

enum class ExportVariant { edited, originals };

enum class ExportOutcome { written, alreadyThere, failed };
std::string_view outcomeName(ExportOutcome outcome);

struct ExportItemResult {
  std::string id;
  std::string file;  // relative to the export folder; empty when it failed early
  ExportOutcome outcome = ExportOutcome::failed;
  std::string error;  // names the file and the cause when failed
};

struct LibraryExportReport {
  std::vector<ExportItemResult> items;
  size_t written = 0, alreadyThere = 0, failed = 0;
};

class LibraryExporter {
 public:
  // Called after each item with the number done and the total.
  using Progress = std::function<void(size_t done, size_t total)>;

  LibraryExporter(FileSystem& fs, Clock& clock, library::ModelContext& context,
                  std::string libraryRoot);

  // Fails (and writes no index) when the folder cannot be made or written, the
  // store cannot be read, or the indexes cannot be written; a single item
  // that cannot be copied is reported in the result and the rest go on.
  Result<LibraryExportReport> exportTo(const std::string& folder, ExportVariant variant,
                                       const Progress& progress = {});

 private:
  FileSystem& fs_;
  Clock& clock_;
  library::ModelContext& context_;
  std::string libraryRoot_;
};

}  // namespace klipora::portability
