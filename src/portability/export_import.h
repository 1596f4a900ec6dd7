// ExportImporter: takes a folder written by LibraryExporter back into a
// library. Each listed file is read, checked to be an image, copied into the
// library folder with its thumbnail and recorded with the user's fields of
// the export: titles, categories (custom ones by name, created when
// missing), tags (added to the catalogue), note, recognised text, summary,
// keywords, capture and import dates, source application, marks. An item
// that was fully processed stays so; any other is left pending for the
// daemon. An item keeps its id unless the library already uses it.
//
// Resumable like the export: an image whose checksum the library holds is
// skipped as a duplicate. Every bad entry (missing file, not an image, a
// path leaving the folder, a named pipe) is reported and the rest go on; a
// batch whose save fails takes its copied files away again.
//
// Thread rules: one thread (the context's).
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "library/model_context.h"
#include "library/storage_service.h"
#include "platform/clock.h"
#include "portability/library_export_format.h"

namespace klipora::portability {

enum class ExportImportOutcome { imported, duplicate, failed };
std::string_view outcomeName(ExportImportOutcome outcome);

struct ExportImportItem {
  std::string file;  // as listed in library.json
  std::string id;    // the new item, when imported
  ExportImportOutcome outcome = ExportImportOutcome::failed;
  std::string error;
};

struct ExportImportReport {
  std::vector<ExportImportItem> items;
  std::vector<std::string> warnings;  // parts of the index that were not understood
  size_t imported = 0, duplicates = 0, failed = 0;
};

class ExportImporter {
 public:
  using Progress = std::function<void(size_t done, size_t total)>;
  static constexpr size_t kSaveBatch = 25;

  ExportImporter(library::StorageService& storage, Clock& clock, library::ModelContext& context);

  // Fails when the folder holds no readable library.json in the export
  // format, or the store cannot be read.
  Result<ExportImportReport> importFrom(const std::string& folder, const Progress& progress = {});

 private:
  library::StorageService& storage_;
  Clock& clock_;
  library::ModelContext& context_;
};

}  // namespace klipora::portability
