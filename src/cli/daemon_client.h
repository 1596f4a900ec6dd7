// Reaching the daemon from the other klipora commands: a request goes to the
// running `klipora run` of this store when there is one, and is otherwise
// run on the store directly by the same handler, so the answer is the same
// either way (see app/control_requests.h).
#pragma once

#include <optional>
#include <string>

#include "app/control_requests.h"
#include "app/daemon_paths.h"
#include "cli/cli_session.h"

namespace klipora::cli {

// The daemon holding this store's lock, if any (its socket may still be empty
// while it starts).
inline std::optional<app::DaemonHolder> runningDaemon(CliSession& session) {
  return session.runningDaemon();
}

using app::LibraryReply;
using app::replyError;

// What requests run against in this process: the store directly, or an
// engine this command started (after session.openLibrary()).
inline app::RequestTarget storeRequestTarget(CliSession& session,
                                             app::AppCoordinator* coordinator) {
  return session.storeRequestTarget(coordinator);
}

// Runs `request` through the daemon or on the store. Fails only when neither
// can answer; the store's own failures come back as {"ok": false} replies.
// On failure the reason has been printed and session.exitCode set.
std::optional<LibraryReply> runLibraryRequest(CliSession& session, const app::Json& request,
                                              double timeoutSeconds = 600);

// After this command changed the store: a running daemon reads it again;
// without one, user categories that arrived (a settings file, an exported
// library) get their keywords and centroid here.
void libraryChangedHere(CliSession& session);

}  // namespace klipora::cli
