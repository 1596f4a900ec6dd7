#include "app/processing_service.h"

#include <algorithm>

#include "app/app_coordinator.h"
#include "app/custom_category_service.h"
#include "app/model_services.h"
#include "app/watcher_service.h"
#include "intelligence/classification_service.h"
#include "intelligence/semantic_custom_category_matcher.h"
#include "platform/notification_center.h"
#include "intelligence/model_arbiter.h"
#include "platform/log.h"
#include "processing/image_analyses.h"
#include "processing/ocr_service.h"
#include "processing/tracked_executor.h"

namespace klipora::app {
namespace {

class ProcessingService final : public ProcessingQueueService {
 public:
  // `commandItems`: the items of a command's own processing; 0 for the
  // daemon's.
  ProcessingService(const AppEnvironment& env, library::ModelContext& context,
                    processing::ProcessingSaveCoalescer& saver, ProcessingPlatform& platform,
                    int commandItems = 0)
      : env_(env),
        keepWarm_(commandItems == 0),
        recognition_(platform.recognition),
        labels_(platform.labels),
        workers_(env.background) {
    processing::OCRServiceConfig ocrConfig;
    ocrConfig.languages = processing::recognitionLanguages(env_.userDefaults);
    if (platform.freshRecognition) {
      fresh_ = std::make_unique<processing::TrackedExecutor>(*platform.freshRecognition);
      ++ocrConfig.engineCount;  // the fresh screenshots' own engine
    }
    if (commandItems > 0) ocrConfig.engineCount = std::min(ocrConfig.engineCount, commandItems);
    ocr_ = std::make_unique<processing::OCRService>(platform.ocrEngines, env_.imageCodec,
                                                    env_.clock, ocrConfig);
    labeler_ = intelligence::makeDefaultClassificationService(env_.fileSystem, env_.imageCodec);
    analyses_ = std::make_unique<processing::ImageAnalyses>(
        env_.fileSystem, env_.imageCodec, *ocr_, *labeler_,
        processing::ImageAnalysesThreads{recognition_, labels_, workers_, fresh_.get()});
    // The endpoint is read on every request, so `klipora model use` takes
    // effect without a restart.
    models_ = makeModelServices(platform.makeLanguageModel, env_.userDefaults, env_.clock,
                                env_.fileSystem, env_.imageCodec, workers_);
    arbiter_ = platform.arbiter ? platform.arbiter : models_.arbiter.get();
    TextEmbedder& embedder = platform.embedder ? *platform.embedder : *models_.embedder;
    // New screenshots are always matched; the setting
    // customCategoryAutoAssignEnabled decides only whether a new or changed
    // category also takes the screenshots already there (`klipora
    // categories`).
    custom_ = std::make_unique<intelligence::SemanticCustomCategoryMatcher>(
        context, *models_.categoryEmbedder, &env_.userDefaults);
    queue_ = std::make_unique<processing::ProcessingQueue>(processing::ProcessingQueueDeps{
        .context = context,
        .saver = saver,
        .clock = env_.clock,
        .timers = env_.timers,
        .mainThread = env_.mainLoop,
        .workers = workers_,
        .userDefaults = env_.userDefaults,
        .notifications = &notifications_,
        .analyses = *analyses_,
        .arbiter = *arbiter_,
        .customCategories = *custom_,
        .embedder = embedder,
    });
    categories_ = std::make_unique<CustomCategoryService>(CustomCategoryServiceDeps{
        .context = context,
        .clock = env_.clock,
        .timers = env_.timers,
        .mainLoop = env_.mainLoop,
        // The daemon's main loop does not wait for the model while it
        // repairs categories; a command waits, as it does for its answer.
        .background = commandItems == 0 ? &workers_ : nullptr,
        .userDefaults = env_.userDefaults,
        .lexicon = platform.lexicon,
        .embedder = *models_.categoryEmbedder,
        .model = *arbiter_,
        .scorer = *queue_,
        .notifications = &notifications_,
    });
  }

  // Work still running on the pools uses what this service owns: it
  // finishes before anything goes.
  ~ProcessingService() override {
    // A model server that is slow to answer does not hold the stop up.
    models_.arbiter->cancelRequests();
    queue_->stop();
    ocr_->stopKeepWarm();
    recognition_.waitIdle();
    if (fresh_) fresh_->waitIdle();
    labels_.waitIdle();
    workers_.waitIdle();
  }

  void start() override {
    queue_->start();
    if (!warmedUp_) {
      warmedUp_ = true;
      // Categories that arrived while nothing ran (a settings file, an
      // exported library) get their keywords and centroid first.
      categories_->healArrivedCategories();
      if (keepWarm_) recognition_.post([ocr = ocr_.get()] { ocr->warmUp(); });
      arbiter_->warmUp(!custom_->categories().empty());
    }
    if (keepWarm_ && !ocr_->keepWarmStarted()) {
      ocr_->startKeepWarm(kKeepWarmInterval, env_.timers, recognition_);
    }
  }
  void stop() override {
    queue_->stop();
    ocr_->stopKeepWarm();
  }
  bool isRunning() const override { return queue_->isRunning(); }
  void enqueue(const UUID& id) override { queue_->enqueue(id); }
  void enqueuePriority(const UUID& id) override { queue_->enqueuePriority(id); }
  void supersede(const UUID& id) override { queue_->supersede(id); }
  // Start-up recovery already queues every unfinished item.
  std::vector<UUID> orphanedItemIDs() override { return {}; }
  std::vector<UUID> queuedItemIDs() const override { return queue_->inFlightIDs(); }
  void remove(const UUID& id) override { queue_->cancel(id); }
  processing::ProcessingQueueStatus status() const override { return queue_->status(); }
  // User categories or filings changed in another process (`klipora
  // categories`): the matcher reads them again before the next match.
  // Categories that arrived that way are repaired here.
  void libraryChangedElsewhere() override {
    notifications_.post(notifications::kCustomCategoriesDidChange);
    categories_->healArrivedCategories();
  }
  CustomCategoryService* customCategories() override { return categories_.get(); }

  processing::ProcessingQueue& queue() { return *queue_; }

 private:
  const AppEnvironment& env_;
  const bool keepWarm_;  // the daemon's: engines loaded at start and kept warm
  // Declared before what the work uses, so they are destroyed after it.
  processing::TrackedExecutor recognition_;
  processing::TrackedExecutor labels_;
  processing::TrackedExecutor workers_;
  std::unique_ptr<processing::TrackedExecutor> fresh_;
  std::unique_ptr<processing::OCRService> ocr_;
  std::unique_ptr<intelligence::ClassificationService> labeler_;
  std::unique_ptr<processing::ImageAnalyses> analyses_;
  NotificationCenter notifications_{env_.mainLoop};
  ModelServices models_;
  intelligence::ModelArbiter* arbiter_ = nullptr;
  std::unique_ptr<intelligence::CustomCategoryMatcher> custom_;
  std::unique_ptr<processing::ProcessingQueue> queue_;
  // After the queue, its scorer; destroyed first.
  std::unique_ptr<CustomCategoryService> categories_;
  bool warmedUp_ = false;
};

}  // namespace

std::function<std::unique_ptr<ProcessingQueueService>(AppCoordinator&)>
makeProcessingServiceFactory() {
  return [](AppCoordinator& coordinator) -> std::unique_ptr<ProcessingQueueService> {
    ProcessingPlatform* platform = coordinator.environment().processing;
    if (!platform || !coordinator.modelContext() || !coordinator.saveCoalescer()) {
      log::info("Boot", "processing queue skipped — no text recognition in this build");
      return nullptr;
    }
    return std::make_unique<ProcessingService>(coordinator.environment(),
                                               *coordinator.modelContext(),
                                               *coordinator.saveCoalescer(), *platform);
  };
}

std::unique_ptr<ProcessingQueueService> makeProcessingService(
    const AppEnvironment& env, library::ModelContext& context,
    processing::ProcessingSaveCoalescer& saver, int items) {
  if (!env.processing) return nullptr;
  return std::make_unique<ProcessingService>(env, context, saver, *env.processing,
                                             std::max(1, items));
}

AppServiceFactories defaultServiceFactories() {
  AppServiceFactories factories;
  factories.makeProcessingQueue = makeProcessingServiceFactory();
  factories.makeWatcher = makeWatcherServiceFactory();
  return factories;
}

processing::ProcessingQueue* queueOf(ProcessingQueueService* service) {
  auto* real = dynamic_cast<ProcessingService*>(service);
  return real ? &real->queue() : nullptr;
}

}  // namespace klipora::app
