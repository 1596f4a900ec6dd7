// Requests about watching: the global pause of new screenshots, kept in the
// user defaults so that the daemon and a command without one agree.
#include "app/control_requests.h"

namespace klipora::app {

Json ControlRequestHandler::pause(const std::string& command, const Json& request) {
  ingestion::WatcherPauseSchedule ownPause(target_.userDefaults, target_.clock, nullptr);
  if (!target_.coordinator) ownPause.load();
  auto& schedule = target_.coordinator ? target_.coordinator->pauseSchedule() : ownPause;
  Status written;
  if (command == "resume") {
    written = schedule.setPaused(std::nullopt);
  } else {
    const Json& until = request.contains("until") ? request["until"] : Json();
    if (until == "indefinitely") {
      written = schedule.setPaused(ingestion::WatcherPauseSchedule::kFarFuture);
    } else if (until == "tomorrow") {
      written = schedule.pauseUntilTomorrow();
    } else if (until.is_number() && until.get<double>() > 0) {
      written = schedule.setPaused(target_.clock.now().addingTimeInterval(until.get<double>()));
    } else {
      return errorReply("pause needs \"until\": \"indefinitely\", \"tomorrow\" or seconds");
    }
  }
  if (!written.ok()) return errorReply("cannot save the pause: " + written.message());
  auto description = schedule.statusDescription();
  return {{"ok", true}, {"pause", description ? Json(*description) : Json(nullptr)}};
}

}  // namespace klipora::app
