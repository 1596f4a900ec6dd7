#include "library/trash_deleted_originals_store.h"

namespace klipora::library {

template <>
const RecordSchema<DeletedOriginal>& schemaOf<DeletedOriginal>() {
  using R = DeletedOriginal;
  static const RecordSchema<R> schema{
      "DeletedOriginal",
      {
          column(&R::id, "id"),
          column(&R::checksum, "checksum"),
          column(&R::sourcePath, "sourcePath"),
          column(&R::originalFilename, "originalFilename"),
          column(&R::removedAt, "removedAt"),
      },
      {"CREATE INDEX IF NOT EXISTS DeletedOriginal_checksum ON DeletedOriginal(checksum)",
       "CREATE INDEX IF NOT EXISTS DeletedOriginal_sourcePath ON DeletedOriginal(sourcePath)"}};
  return schema;
}

void DeletedOriginalsStore::record(const ScreenshotItem& item, Date removedAt) {
  auto row = std::make_shared<DeletedOriginal>();
  row->id = item.id;
  row->checksum = item.checksum;
  row->sourcePath = item.sourcePath;
  row->originalFilename = item.originalFilename;
  row->removedAt = removedAt;
  context_.insert(std::move(row));
}

bool DeletedOriginalsStore::containsWhere(const std::string& field, const std::string& value) {
  if (value.empty()) return false;
  for (const auto& pending : context_.pendingInserts<DeletedOriginal>()) {
    if ((field == "checksum" ? pending->checksum : pending->sourcePath) == value) return true;
  }
  FetchDescriptor d;
  d.predicate = quoteIdentifier(field) + " = ?";
  d.arguments = {SqlValue(value)};
  auto count = context_.fetchCount<DeletedOriginal>(d);
  return count && *count > 0;
}

bool DeletedOriginalsStore::containsChecksum(const std::string& checksum) {
  return containsWhere("checksum", checksum);
}

bool DeletedOriginalsStore::containsSourcePath(const std::string& sourcePath) {
  return containsWhere("sourcePath", sourcePath);
}

Status DeletedOriginalsStore::forget(const std::string& checksum) {
  FetchDescriptor d;
  d.predicate = "checksum = ?";
  d.arguments = {SqlValue(checksum)};
  ASSIGN_OR_RETURN(auto rows, context_.fetch<DeletedOriginal>(d));
  for (const auto& row : rows) context_.remove(row);
  for (const auto& pending : context_.pendingInserts<DeletedOriginal>()) {
    if (pending->checksum == checksum) context_.remove(pending);
  }
  return Status::Ok();
}

}  // namespace klipora::library
