#include "library/trash_operations.h"

#include "platform/log.h"

namespace klipora::library {
namespace {

bool IsInside(const std::string& path, const std::string& root) {
  if (root.empty() || path.size() <= root.size()) return false;
  std::string prefix = root.back() == '/' ? root : root + "/";
  return path.compare(0, prefix.size(), prefix) == 0 && path.find("/../") == std::string::npos;
}

// Removes one file of the library; a file already gone is fine. A path
// outside the current root (the session fell back to the default root while
// the chosen library's disk is away) is refused: the row is the only record
// of that file, so it must stay until the file can be removed.
Status RemoveLibraryFile(StorageService& storage, const std::string& path) {
  if (path.empty()) return Status::Ok();
  if (!IsInside(path, storage.libraryRoot())) {
    return Status::FailedPrecondition(path + " lies outside the library at " +
                                      storage.libraryRoot());
  }
  Status s = storage.fileSystem().removeFile(path);
  if (s.ok() || s.code() == Status::Code::kNotFound) return Status::Ok();
  return s;
}

}  // namespace

const char* outcomeName(TrashOutcome::Kind kind) {
  switch (kind) {
    case TrashOutcome::Kind::done: return "done";
    case TrashOutcome::Kind::notFound: return "notFound";
    case TrashOutcome::Kind::alreadyInTrash: return "alreadyInTrash";
    case TrashOutcome::Kind::notInTrash: return "notInTrash";
    case TrashOutcome::Kind::failed: return "failed";
  }
  return "";
}

Status removeItemForGood(ModelContext& context, StorageService& storage,
                         MarkupEditCleaner& markupEdits, DeletedOriginalsStore& originals,
                         const std::shared_ptr<ScreenshotItem>& item, Date now) {
  if (item->thumbnailPath) {
    if (Status s = RemoveLibraryFile(storage, *item->thumbnailPath); !s.ok()) {
      return s.WithContext("thumbnail");
    }
  }
  if (Status s = markupEdits.clearEdits(storage.libraryRoot(), item->id); !s.ok()) {
    // The thumbnail is gone; say so in the record, which stays.
    item->thumbnailPath.reset();
    return s.WithContext("markup edits");
  }
  if (Status s = RemoveLibraryFile(storage, item->libraryPath); !s.ok()) {
    item->thumbnailPath.reset();
    return s.WithContext("library copy");
  }
  originals.record(*item, now);
  context.remove(item);
  return Status::Ok();
}

LibraryTrash::LibraryTrash(ModelContext& context, StorageService* storage,
                           MarkupEditCleaner& markupEdits, Clock& clock)
    : context_(context), storage_(storage), markupEdits_(markupEdits), clock_(clock) {}

std::vector<TrashOutcome> LibraryTrash::changeAll(const std::vector<UUID>& ids, bool toTrash) {
  std::vector<TrashOutcome> outcomes;
  struct Change {
    size_t index;
    std::shared_ptr<ScreenshotItem> item;
    bool deleted;
    std::optional<Date> deletedAt;
  };
  std::vector<Change> changed;
  Date now = clock_.now();
  for (const UUID& id : ids) {
    TrashOutcome outcome;
    outcome.id = id;
    auto item = context_.fetchByKey<ScreenshotItem>(id.uuidString());
    if (!item) {
      outcome.kind = TrashOutcome::Kind::failed;
      outcome.error = item.error().message();
    } else if (!*item) {
      outcome.kind = TrashOutcome::Kind::notFound;
    } else if (toTrash && (*item)->isTrashed()) {
      outcome.kind = TrashOutcome::Kind::alreadyInTrash;
    } else if (!toTrash && !(*item)->isTrashed()) {
      outcome.kind = TrashOutcome::Kind::notInTrash;
    } else {
      changed.push_back({outcomes.size(), *item, (*item)->deleted, (*item)->deletedAt});
      (*item)->deleted = toTrash;
      (*item)->deletedAt = toTrash ? std::optional<Date>(now) : std::nullopt;
    }
    outcomes.push_back(std::move(outcome));
  }
  if (changed.empty()) return outcomes;
  if (Status s = context_.save(); !s.ok()) {
    if (toTrash) {
      log::error("Trash", "performDelete: save failed: %s", s.message().c_str());
    } else {
      log::error("Trash", "restore: save failed: %s", s.message().c_str());
    }
    // Nothing reached the store. Undo only these fields: the context may
    // hold other writers' pending work (imports) that must not be dropped.
    for (auto& c : changed) {
      c.item->deleted = c.deleted;
      c.item->deletedAt = c.deletedAt;
      outcomes[c.index].kind = TrashOutcome::Kind::failed;
      outcomes[c.index].error = s.message();
    }
    return outcomes;
  }
  log::info("Trash", "%s %zu item(s)", toTrash ? "moved to trash" : "restored", changed.size());
  return outcomes;
}

std::vector<TrashOutcome> LibraryTrash::moveToTrash(const std::vector<UUID>& ids) {
  return changeAll(ids, true);
}

std::vector<TrashOutcome> LibraryTrash::restore(const std::vector<UUID>& ids) {
  return changeAll(ids, false);
}

Result<std::vector<TrashOutcome>> LibraryTrash::deletePermanently(const std::vector<UUID>& ids) {
  std::vector<TrashOutcome> outcomes;
  std::vector<std::shared_ptr<ScreenshotItem>> items;
  for (const UUID& id : ids) {
    TrashOutcome outcome;
    outcome.id = id;
    auto item = context_.fetchByKey<ScreenshotItem>(id.uuidString());
    if (!item) {
      outcome.kind = TrashOutcome::Kind::failed;
      outcome.error = item.error().message();
    } else if (!*item) {
      outcome.kind = TrashOutcome::Kind::notFound;
    }
    items.push_back(item ? *item : nullptr);
    outcomes.push_back(std::move(outcome));
  }
  return removeAll(items, std::move(outcomes));
}

Result<std::vector<TrashOutcome>> LibraryTrash::emptyTrash() {
  FetchDescriptor d;
  d.predicate = "deleted = 1 OR deletedAt IS NOT NULL";
  d.sortBy = "deletedAt, id";
  ASSIGN_OR_RETURN(auto items, context_.fetch<ScreenshotItem>(d));
  std::vector<TrashOutcome> outcomes;
  for (const auto& item : items) outcomes.push_back(TrashOutcome{item->id, TrashOutcome::Kind::done, {}});
  return removeAll(items, std::move(outcomes));
}

Result<std::vector<TrashOutcome>> LibraryTrash::removeAll(
    const std::vector<std::shared_ptr<ScreenshotItem>>& items, std::vector<TrashOutcome> outcomes) {
  if (!storage_) {
    log::info("Trash", "Skipping permanent delete: storageService not ready.");
    return Err(Status::FailedPrecondition("the library folder is not available"));
  }
  DeletedOriginalsStore originals(context_);
  std::vector<size_t> removed;
  Date now = clock_.now();
  for (size_t i = 0; i < items.size(); ++i) {
    if (!items[i] || outcomes[i].kind != TrashOutcome::Kind::done) continue;
    Status s = removeItemForGood(context_, *storage_, markupEdits_, originals, items[i], now);
    if (!s.ok()) {
      log::warning("Trash", "kept %s: %s", items[i]->id.uuidString().c_str(),
                   s.message().c_str());
      outcomes[i].kind = TrashOutcome::Kind::failed;
      outcomes[i].error = s.message();
      continue;
    }
    removed.push_back(i);
  }
  if (!context_.hasChanges()) return outcomes;
  if (Status s = context_.save(); !s.ok()) {
    // The files are gone; the rows stay pending and a later save or removal
    // finishes the job (a missing file is not an error then).
    log::error("Trash", "performPermanentDelete: save failed: %s", s.message().c_str());
    for (size_t i : removed) {
      outcomes[i].kind = TrashOutcome::Kind::failed;
      outcomes[i].error = s.message();
    }
    return outcomes;
  }
  log::info("Trash", "permanently deleted %zu item(s)", removed.size());
  return outcomes;
}

}  // namespace klipora::library
