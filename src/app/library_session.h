// LibrarySession: what a client of the library works with, the `klipora`
// commands and the desktop window alike: the platform, the paths of the
// support folder, and (opened on first use) the store, the settings row, the
// user defaults and the library's storage. It also reaches the daemon of
// this store: a request goes to the running `klipora run` when there is one
// and is otherwise answered on the store by the same handler, so the answer
// is the same either way (see control_requests.h).
//
// Thread rules: main thread (the store's main context lives there).
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "app/app_environment.h"
#include "app/app_platform.h"
#include "app/control_requests.h"
#include "app/daemon_paths.h"
#include "library/app_settings.h"
#include "library/library_root.h"
#include "library/model_container.h"
#include "library/storage_service.h"
#include "markup/non_destructive_edit_cleaner.h"
#include "platform/app_paths.h"
#include "platform/user_defaults.h"

namespace klipora::app {

struct LibraryReply {
  Json reply;
  bool viaDaemon = false;
};

class LibrarySession {
 public:
  explicit LibrarySession(AppPlatform& platform);
  virtual ~LibrarySession();
  LibrarySession(const LibrarySession&) = delete;
  LibrarySession& operator=(const LibrarySession&) = delete;

  // Plays the part of $KLIPORA_HOME when set before paths() is first used.
  std::string homeOption;

  AppPlatform& platform() { return platform_; }
  // Resolved from homeOption and the environment on first use.
  const AppPaths& paths();

  // Opens the store, settings, defaults and library folder; later calls do
  // nothing. Fails with Unavailable (its message the whole text to show)
  // when the store cannot be opened or created, and with IoError when the
  // library folder cannot be prepared.
  Status open();
  bool isOpen() const { return opened_; }

  // Each requires open().
  library::ModelContainer& container() { return *container_; }
  library::ModelContext& context() { return container_->mainContext(); }
  library::AppSettings& settings() { return *settings_; }
  library::StorageService& storage() { return *storage_; }
  const library::LibraryRootResolution& libraryRoot() const { return root_; }
  UserDefaults& userDefaults() { return *defaults_; }
  // Clears an item's markup edits when it is deleted for good.
  library::MarkupEditCleaner& markupEdits() { return markupEdits_; }
  // The environment the engine's services run in, for a client that drives
  // them itself.
  AppEnvironment environment();

  // The daemon holding this store's lock, if any (its socket may still be
  // empty while it starts).
  std::optional<DaemonHolder> runningDaemon();
  // What requests run against in this process: the store directly, or an
  // engine this client started (requires open()).
  RequestTarget storeRequestTarget(AppCoordinator* coordinator);
  // Runs `request` through the daemon or on the store (opening it). Fails
  // only when neither can answer (a daemon that does not answer, a request
  // only the daemon serves); the store's own failures come back as
  // {"ok": false} replies. A daemon that holds the lock but does not listen
  // yet is given a few seconds before the store is used directly.
  Result<LibraryReply> request(const Json& request, double timeoutSeconds = 600);

 private:
  AppPlatform& platform_;
  std::optional<AppPaths> paths_;
  std::shared_ptr<library::ModelContainer> container_;
  std::shared_ptr<library::AppSettings> settings_;
  std::unique_ptr<library::StorageService> storage_;
  std::unique_ptr<UserDefaults> defaults_;
  library::LibraryRootResolution root_;
  markup::NonDestructiveEditCleaner markupEdits_;
  ProcessingPlatform processing_;
  std::shared_ptr<log::LogSink> fileSink_;
  bool opened_ = false;
};

// The text of a reply's "error", for messages.
std::string replyError(const Json& reply);

}  // namespace klipora::app
