// ModelContainer: the opened library store (Klipora.store, SQLite). It owns
// the main context and makes further contexts, each on its own connection,
// for other threads. KliporaModelContainer opens it with the current schema
// (version 9, the eight live record types) and its migration plan.
//
// When the store cannot be opened, a copy of the file is left beside it as
// "Klipora-diagnostic-<stamp>.store" for support, the failure is logged, and
// the error returned; the store file itself is never deleted or replaced.
//
// Thread rules: open on the main thread; mainContext() belongs to it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "library/model_context.h"
#include "platform/app_paths.h"
#include "platform/clock.h"
#include "platform/file_system.h"

namespace klipora::library {

inline constexpr int kCurrentSchemaVersion = 9;

class ModelContainer {
 public:
  ModelContainer(std::string storePath, std::unique_ptr<ModelContext> main);

  ModelContext& mainContext() { return *main_; }
  // A context on a new connection, for use on another thread.
  Result<std::unique_ptr<ModelContext>> newContext();
  const std::string& storePath() const { return storePath_; }

 private:
  std::string storePath_;
  std::unique_ptr<ModelContext> main_;
};

struct KliporaModelContainer {
  // The store file's path; creates its folder.
  static Result<std::string> storeURL(FileSystem& fs, const AppPaths& paths);
  // Opens (creating when missing) and migrates the store at `storePath`.
  static Result<std::shared_ptr<ModelContainer>> make(FileSystem& fs, Clock& clock,
                                                      const std::string& storePath);
  // The tables of the live record types, in schema order.
  static std::vector<std::string> liveModels();
  // The message shown when the store cannot be opened at start-up.
  static std::string fatalMessage(const std::string& storePath, const Status& error);
};

// Brings a database to the current schema: creates missing tables, columns
// and indexes, and runs each migration stage from the stored version on.
// Refuses a store written by a newer schema.
Status migrateToCurrentSchema(Database& db);

}  // namespace klipora::library
