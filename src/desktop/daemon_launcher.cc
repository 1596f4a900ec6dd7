#include "desktop/daemon_launcher.h"

#include <signal.h>

#include <QFileInfo>
#include <cerrno>
#include <QProcess>

namespace klipora::desktop {

Result<DaemonLaunch> ensureDaemonRunning(app::LibrarySession& session,
                                         const QString& kliporaPath) {
  if (session.runningDaemon()) return DaemonLaunch::alreadyRunning;
  QStringList arguments;
  if (!session.homeOption.empty()) {
    arguments << "--home" << QString::fromStdString(session.homeOption);
  }
  arguments << "run";
  QProcess process;
  process.setProgram(kliporaPath);
  process.setArguments(arguments);
  process.setStandardOutputFile(QProcess::nullDevice());
  process.setStandardErrorFile(QProcess::nullDevice());
  if (!process.startDetached()) {
    return Err(Status::Unavailable("cannot start " + kliporaPath.toStdString() + " run: " +
                                   process.errorString().toStdString()));
  }
  return DaemonLaunch::started;
}

Status stopDaemon(app::LibrarySession& session) {
  auto daemon = session.runningDaemon();
  if (!daemon || daemon->pid <= 0) return Status::Ok();
  if (::kill(daemon->pid, SIGTERM) != 0 && errno != ESRCH) {
    return Status::FromErrno(errno, "cannot stop the daemon (pid " + std::to_string(daemon->pid) + ")");
  }
  return Status::Ok();
}

QString kliporaProgram(const QString& applicationDir) {
  const QFileInfo beside(applicationDir + "/klipora");
  return beside.isExecutable() ? beside.filePath() : QStringLiteral("klipora");
}

}  // namespace klipora::desktop
