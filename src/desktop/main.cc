// klipora-app: the desktop window onto the library. The one place of the
// program that creates the real Linux platform. It starts the daemon
// (`klipora run`) when none runs; closing the window leaves the daemon
// running.
#include <QApplication>
#include <QCommandLineParser>
#include <QMessageBox>
#include <QSystemTrayIcon>
#include <clocale>
#include <cstdlib>
#include <memory>

#include "app/library_session.h"
#include "desktop/daemon_launcher.h"
#include "desktop/desktop_platform.h"
#include "desktop/library_window.h"
#include "desktop/texts.h"
#include "desktop/tray_menu.h"
#include "platform/linux/log_sinks.h"
#include "platform/linux/malloc_tuning.h"

int main(int argc, char** argv) {
  using namespace klipora;
  limitMallocArenas();
  QApplication application(argc, argv);
  QApplication::setApplicationName("klipora-app");
  QApplication::setApplicationDisplayName("Klipora");
  QApplication::setDesktopFileName("klipora-app");
  std::setlocale(LC_NUMERIC, "C");  // Qt set the user's locale; numbers in files stay C
  log::addSink(std::make_shared<StderrLogSink>(log::Level::kWarning));

  QCommandLineParser options;
  options.setApplicationDescription(desktop::text("Klipora: a screenshot library"));
  options.addHelpOption();
  QCommandLineOption home("home", desktop::text("Library support folder"), "folder");
  QCommandLineOption noDaemon("no-daemon", desktop::text("Do not start the daemon"));
  options.addOptions({home, noDaemon});
  options.process(application);

  desktop::DesktopPlatform linux;
  app::LibrarySession session(linux.platform);
  session.homeOption = options.value(home).toStdString();
  if (Status s = session.open(); !s.ok()) {
    QMessageBox::critical(nullptr, desktop::text("Klipora"), desktop::qstr(s.message()));
    return 3;
  }
  if (!options.isSet(noDaemon)) {
    auto launch = desktop::ensureDaemonRunning(
        session, desktop::kliporaProgram(QApplication::applicationDirPath()));
    if (!launch) log::warning("desktop", "%s", launch.error().message().c_str());
  }
  desktop::LibraryWindow window(session);
  desktop::TrayMenu tray(session);
  auto showWindow = [&window] {
    window.refresh();
    window.show();
    window.raise();
    window.activateWindow();
  };
  QObject::connect(&tray, &desktop::TrayMenu::openLibrary, &window, showWindow);
  QObject::connect(&tray, &desktop::TrayMenu::openItem, &window,
                   [&window, showWindow](const QString& id) {
                     showWindow();
                     window.selectSidebarEntry("all");
                     if (auto uuid = UUID::Parse(id.toStdString())) window.selectIDs({*uuid});
                   });
  QObject::connect(&tray, &desktop::TrayMenu::quitRequested, &application, [&session] {
    if (Status s = desktop::stopDaemon(session); !s.ok()) {
      log::warning("desktop", "%s", s.message().c_str());
    }
    QApplication::quit();
  });
  QObject::connect(&tray, &desktop::TrayMenu::failed, &window,
                   [&window](const QString& message) { window.showMessage(message); });
  // With a panel icon the program lives on when the window closes; without
  // one, closing the window ends it (the daemon goes on either way).
  if (QSystemTrayIcon::isSystemTrayAvailable()) {
    QApplication::setQuitOnLastWindowClosed(false);
    tray.show();
  }
  window.show();
  return QApplication::exec();
}
