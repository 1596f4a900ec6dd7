// WatcherService: the folder watcher of a running library. It watches the
// enabled, unpaused watched-folder rows and hands each new screenshot to the
// coordinator. On the library's first start (no watched folders yet, the
// introduction not done) it adds the screenshot folders this machine's tools
// save into, marks them swept now so that what already lies there is left
// alone, and switches automatic import on.
//
// Thread rules: main thread, like the coordinator.
#pragma once

#include <functional>
#include <memory>

#include "app/app_services.h"

namespace klipora::app {

class AppCoordinator;

// Null when the environment has no FolderWatch.
std::function<std::unique_ptr<IngestionWatcherService>(AppCoordinator&)>
makeWatcherServiceFactory();

}  // namespace klipora::app
