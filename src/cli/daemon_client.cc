#include "cli/daemon_client.h"

#include <iostream>

#include "app/custom_category_service.h"
#include "app/processing_service.h"
#include "cli/command_registry.h"

namespace klipora::cli {

std::optional<LibraryReply> runLibraryRequest(CliSession& session, const app::Json& request,
                                              double timeoutSeconds) {
  auto reply = session.request(request, timeoutSeconds);
  if (reply) return std::move(*reply);
  if (reply.error().code() == Status::Code::kUnavailable ||
      reply.error().code() == Status::Code::kIoError) {
    if (!session.isOpen()) {
      (void)session.openLibrary();  // prints why the store cannot be used
      if (session.exitCode != kExitOk) return std::nullopt;
    }
  }
  std::cerr << "klipora: " << reply.error().message() << "\n";
  session.exitCode = kExitFailure;
  return std::nullopt;
}

void libraryChangedHere(CliSession& session) {
  if (runningDaemon(session)) {
    (void)runLibraryRequest(session, app::makeRequest("reload"), 10);
    return;
  }
  auto env = session.environment();
  processing::ProcessingSaveCoalescer saver(session.context(), session.platform().mainLoop);
  auto processing = app::makeProcessingService(env, session.context(), saver, /*items=*/1);
  if (auto* categories = processing ? processing->customCategories() : nullptr) {
    categories->healArrivedCategories();
  }
}

}  // namespace klipora::cli
