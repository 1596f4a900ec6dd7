// ProcessingService: the processing queue of a running library with what it
// runs: the text recognition service (warmed up at start and kept warm), the
// image labeler, the phase-1 analyses, the language model's arbiter and the
// user's categories. makeProcessingServiceFactory() is how the composition
// root hands it to the coordinator.
//
// Thread rules: main thread, like the coordinator.
#pragma once

#include <functional>
#include <memory>

#include "app/app_environment.h"
#include "app/app_services.h"
#include "processing/processing_save_coalescer.h"

namespace klipora::app {

class AppCoordinator;

// Recognition engines are kept warm with a tick this often while the
// daemon runs.
inline constexpr double kKeepWarmInterval = 300;

// Null when the environment has no ProcessingPlatform.
std::function<std::unique_ptr<ProcessingQueueService>(AppCoordinator&)>
makeProcessingServiceFactory();

// The processing of a command that works on the store without a daemon
// (`klipora import --wait`): the same service, driven by the command's own
// main loop, for `items` items. Its recognition engines are loaded when
// first needed, at most one per item, and are neither warmed up nor kept
// warm: a command that reads one screenshot loads one engine. Null when
// `env` has no ProcessingPlatform.
std::unique_ptr<ProcessingQueueService> makeProcessingService(
    const AppEnvironment& env, library::ModelContext& context,
    processing::ProcessingSaveCoalescer& saver, int items);

// The services a running library has in this build: the one place where
// the coordinator's services are chosen.
AppServiceFactories defaultServiceFactories();

// The queue inside a service made by that factory, for commands that wait on
// items (null for any other ProcessingQueueService).
processing::ProcessingQueue* queueOf(ProcessingQueueService* service);

}  // namespace klipora::app
