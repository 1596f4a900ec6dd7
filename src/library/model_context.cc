#include "library/model_context.h"

namespace klipora::library {

ModelContext::ModelContext(std::unique_ptr<Database> db) : db_(std::move(db)) {}

ModelContext::~ModelContext() = default;

bool ModelContext::hasChanges() const {
  for (const auto& [type, registry] : registries_) {
    if (registry->hasChanges()) return true;
  }
  return false;
}

Status ModelContext::save() {
  if (!hasChanges()) return Status::Ok();
  // IMMEDIATE takes the write lock up front, so a busy store is waited for
  // (busy timeout) before anything is written rather than failing half-way.
  RETURN_IF_ERROR(db_->exec("BEGIN IMMEDIATE"));
  for (auto& [type, registry] : registries_) {
    Status s = registry->write(*db_);
    if (!s.ok()) {
      (void)db_->exec("ROLLBACK");
      return s.WithContext("save failed");
    }
  }
  Status committed = db_->exec("COMMIT");
  if (!committed.ok()) {
    (void)db_->exec("ROLLBACK");
    return committed.WithContext("save failed");
  }
  for (auto& [type, registry] : registries_) registry->didSave();
  // Our own commit is not a change by someone else.
  if (auto v = db_->dataVersion()) lastDataVersion_ = *v;
  return Status::Ok();
}

void ModelContext::rollback() {
  for (auto& [type, registry] : registries_) registry->rollback();
}

Result<bool> ModelContext::hasExternalChanges() {
  ASSIGN_OR_RETURN(int64_t version, db_->dataVersion());
  bool changed = lastDataVersion_.has_value() && *lastDataVersion_ != version;
  lastDataVersion_ = version;
  return changed;
}

}  // namespace klipora::library
