// DeletedOriginalsStore: remembers the originals of items the user removed
// for good (by the trash retention, a permanent delete or emptying the
// trash), so that the import and the watched-folder sweep do not bring a
// thrown-away screenshot back from the folder where its source file may
// still lie.
//
// One DeletedOriginal row per removed item, kept in the library store beside
// the items, so that every process sharing the store sees it, and written in
// the same save that deletes the item's row. Rows are kept for good: they
// are small (a path and a checksum), and a source file can stay in a watched
// folder for years.
//
// Thread rules: the thread of the context it was given (the main thread).
#pragma once

#include <string>

#include "library/model_context.h"
#include "library/record_schema.h"
#include "library/screenshot_item.h"

namespace klipora::library {

struct DeletedOriginal {
  UUID id = UUID::Random();  // the removed item's id
  std::string checksum;      // SHA-256 of the original's bytes
  std::string sourcePath;    // where the original was imported from
  std::string originalFilename;
  Date removedAt;
};

template <>
const RecordSchema<DeletedOriginal>& schemaOf<DeletedOriginal>();

class DeletedOriginalsStore {
 public:
  explicit DeletedOriginalsStore(ModelContext& context) : context_(context) {}

  // Inserts the record of `item` into the context; the caller's next save
  // writes it together with the item's deletion.
  void record(const ScreenshotItem& item, Date removedAt);

  // True when an original with this checksum was removed for good, saved or
  // waiting for the next save. False when the store cannot be read (the
  // import then goes ahead: a duplicate beats a lost screenshot).
  bool containsChecksum(const std::string& checksum);
  bool containsSourcePath(const std::string& sourcePath);

  // Forgets a checksum, for a user who imports a removed screenshot again on
  // purpose. Takes effect with the caller's next save.
  Status forget(const std::string& checksum);

 private:
  bool containsWhere(const std::string& field, const std::string& value);

  ModelContext& context_;
};

}  // namespace klipora::library
