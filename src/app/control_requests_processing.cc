// Requests about processing: retry and reprocess put items back to pending
// (the daemon queues them at once; without one they wait for `klipora run`),
// and wait answers once items have finished.
#include <memory>

#include "app/control_requests.h"
#include "library/screenshot_category.h"
#include "platform/log.h"

namespace klipora::app {

using library::FetchDescriptor;
using library::ProcessingState;
using library::ScreenshotItem;
using library::SqlValue;

namespace {

constexpr double kWaitPollSeconds = 0.25;
constexpr double kDefaultWaitSeconds = 600;

void resetForProcessing(ScreenshotItem& item) {
  item.setProcessingState(ProcessingState::pending);
  item.processingError.reset();
}

}  // namespace

Json itemOutcomeJson(const ScreenshotItem& item) {
  Json entry = {{"id", item.id.uuidString()},
                {"file", item.originalFilename},
                {"state", item.processingStateRaw},
                {"category", std::string(library::rawValue(item.effectiveCategory()))},
                {"confidence", item.generatedCategoryConfidence},
                {"title", item.displayTitle()}};
  entry["error"] = item.processingError ? Json(*item.processingError) : Json(nullptr);
  return entry;
}

Json ControlRequestHandler::retry(const Json& request) {
  auto ids = idsOf("retry", request);
  if (!ids) return errorReply(ids.error().message());
  Json results = Json::array();
  std::vector<UUID> queued;
  bool allFound = true;
  for (const UUID& id : *ids) {
    auto item = target_.context.fetchByKey<ScreenshotItem>(id.uuidString());
    if (!item) return errorReply("cannot read the library: " + item.error().message());
    if (!*item || (*item)->isTrashed()) {
      allFound = false;
      results.push_back({{"id", id.uuidString()},
                         {"error", *item ? "the item is in the trash" : "no item has this id"}});
      continue;
    }
    resetForProcessing(**item);
    queued.push_back(id);
    results.push_back(itemOutcomeJson(**item));
  }
  if (Status s = target_.context.save(); !s.ok()) return errorReply(s.message());
  auto* queue = target_.coordinator ? target_.coordinator->processingQueue() : nullptr;
  for (const UUID& id : queued) {
    if (!queue) break;
    queue->supersede(id);
    queue->enqueuePriority(id);
  }
  return {{"ok", allFound}, {"queued", queue != nullptr}, {"results", std::move(results)}};
}

Json ControlRequestHandler::reprocess(const Json& request) {
  FetchDescriptor d;
  d.predicate = "deleted = 0 AND deletedAt IS NULL";
  const std::string which = request.value("which", "");
  if (which == "failed") {
    d.predicate += " AND processingStateRaw IN ('failed', 'partiallyFailed')";
  } else if (which == "category") {
    const std::string category = request.value("category", "");
    bool known = false;
    for (auto c : library::kAllScreenshotCategories) known |= library::rawValue(c) == category;
    if (!known) return errorReply("\"" + category + "\" is not a category");
    d.predicate += " AND COALESCE(userCategory, generatedCategory) = ?";
    d.arguments = {SqlValue(category)};
  } else if (which != "all") {
    return errorReply("reprocess needs \"which\": all, failed or category");
  }
  d.sortBy = "importedAt DESC";
  auto items = target_.context.fetch<ScreenshotItem>(d);
  if (!items) return errorReply("cannot read the library: " + items.error().message());
  for (const auto& item : *items) resetForProcessing(*item);
  if (Status s = target_.context.save(); !s.ok()) return errorReply(s.message());
  auto* queue = target_.coordinator ? target_.coordinator->processingQueue() : nullptr;
  if (queue) {
    for (const auto& item : *items) {
      queue->supersede(item->id);
      queue->enqueue(item->id);
    }
  }
  log::info("Processing", "reprocess %s: %zu item(s) back to pending", which.c_str(),
            items->size());
  return {{"ok", true}, {"count", items->size()}, {"queued", queue != nullptr}};
}

void ControlRequestHandler::wait(const Json& request, Reply reply) {
  if (!target_.coordinator) return reply(errorReply("waiting for processing needs the daemon"));
  auto ids = idsOf("wait", request);
  if (!ids) return reply(errorReply(ids.error().message()));
  // Items imported a moment ago may still wait for their batched save.
  if (auto* saver = target_.coordinator->saveCoalescer()) (void)saver->flush();
  struct Waiter {
    std::vector<UUID> ids;
    Reply reply;
    double deadline = 0;
    std::function<void()> check;
  };
  auto waiter = std::make_shared<Waiter>();
  waiter->ids = std::move(*ids);
  waiter->reply = std::move(reply);
  waiter->deadline =
      target_.clock.monotonicSeconds() + request.value("timeoutSeconds", kDefaultWaitSeconds);
  library::ModelContext& context = target_.context;
  Clock& clock = target_.clock;
  Timers& timers = target_.timers;
  // Polls the store: the items may be changed by this daemon's queue or by
  // any other writer, and a few reads per second cost nothing.
  processing::ProcessingSaveCoalescer* saver = target_.coordinator->saveCoalescer();
  waiter->check = [waiter, &context, &clock, &timers, saver] {
    Json results = Json::array();
    bool finished = true;
    for (const UUID& id : waiter->ids) {
      auto item = context.fetchByKey<ScreenshotItem>(id.uuidString());
      if (item && *item) {
        finished &= library::isTerminal((*item)->processingState()) || (*item)->isTrashed();
        results.push_back(itemOutcomeJson(**item));
      } else {
        results.push_back({{"id", id.uuidString()}, {"error", "no item has this id"}});
      }
    }
    const bool timedOut = clock.monotonicSeconds() >= waiter->deadline;
    if (finished || timedOut) {
      // What the reply says is in the store for every other reader too.
      if (saver) (void)saver->flush();
      waiter->reply({{"ok", finished}, {"timedOut", !finished}, {"results", std::move(results)}});
      waiter->check = nullptr;  // ends the cycle of references
      return;
    }
    timers.scheduleOnce(kWaitPollSeconds, [waiter] {
      if (waiter->check) waiter->check();
    });
  };
  waiter->check();
}

}  // namespace klipora::app
