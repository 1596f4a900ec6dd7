// The library volume watch: the mount table watch and the folder-health probe
// both ask whether the library root went away or came back.
#include "app/app_coordinator.h"
#include "platform/log.h"

namespace klipora::app {

bool AppCoordinator::libraryRootIsUsable() {
  // An unmounted disk often leaves its empty (and writable) mount point
  // behind, so the library's own "Originals" folder must be there too.
  if (!env_.fileSystem.isWritableDirectory(root_)) return false;
  auto originals = env_.fileSystem.attributes(joinPath(root_, "Originals"));
  return originals && originals->isDirectory;
}

void AppCoordinator::startFolderHealthProbe() {
  auto check = [this] {
    handleLibraryVolumeMaybeUnmounted();
    handleLibraryVolumeMaybeRemounted();
  };
  if (healthProbe_) env_.timers.cancel(*healthProbe_);
  healthProbe_ = env_.timers.scheduleRepeating(kFolderHealthProbeInterval, 5, check);
  if (env_.mountWatch) {
    if (Status s = env_.mountWatch->start(check); !s.ok()) {
      log::info("Library", "mount table watch unavailable (%s); relying on the health probe",
                s.message().c_str());
    }
  }
}

void AppCoordinator::handleLibraryVolumeMaybeUnmounted() {
  if (!started_ || servicesPaused_ || libraryRootIsUsable()) return;
  log::info("Library", "active library volume disappeared (%s); pausing services", root_.c_str());
  servicesPaused_ = true;
  if (watcher_) watcher_->stopAll();
  if (queue_) queue_->stop();
}

void AppCoordinator::handleLibraryVolumeMaybeRemounted() {
  if (!started_ || !servicesPaused_) return;
  if (!libraryRootIsUsable()) {
    // A start that could not create the folders retries once the root is
    // writable; a root that had them is never recreated (wrong disk).
    if (structureCreated_ || !env_.fileSystem.isWritableDirectory(root_)) return;
    if (!storage_->createLibraryStructure().ok()) return;
    structureCreated_ = true;
  }
  log::info("Library", "active library volume came back (%s); resuming services", root_.c_str());
  servicesPaused_ = false;
  if (queue_) queue_->start();
  auto settings = currentSettings();
  if (settings && settings->automaticImportEnabled) enableAutomaticImport(false);
}

}  // namespace klipora::app
