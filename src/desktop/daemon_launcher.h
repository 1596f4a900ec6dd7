// Starting the library's daemon (`klipora run`) in the background when none
// runs, so that processing and watching go on while the window is open and
// after it closes. The daemon is started detached: closing the window leaves
// it running.
//
// Thread rules: interface thread.
#pragma once

#include <QString>

#include "app/library_session.h"

namespace klipora::desktop {

enum class DaemonLaunch { alreadyRunning, started };

// Starts `kliporaPath run` (with the session's --home, if any) when no
// daemon holds this store's lock. Fails with Unavailable when the program
// cannot be started.
Result<DaemonLaunch> ensureDaemonRunning(app::LibrarySession& session, const QString& kliporaPath);

// Asks the running daemon of this store, if any, to stop (SIGTERM: it
// finishes the item in hand and saves). Fails when the signal cannot be sent.
Status stopDaemon(app::LibrarySession& session);

// The klipora program beside `applicationDir` (how both are installed and
// built), else "klipora" from PATH.
QString kliporaProgram(const QString& applicationDir);

}  // namespace klipora::desktop
