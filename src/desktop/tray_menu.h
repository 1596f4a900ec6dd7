// TrayMenu: Klipora in the desktop's panel (a StatusNotifierItem, through
// Qt's tray icon): the latest screenshots, pausing and resuming the import
// of new screenshots with the pause's description, opening the library and
// quitting. Quitting stops the daemon too; closing the library window does
// not.
//
// The menu is built again each time it opens, from the store and the user
// defaults the daemon writes the pause to; pause and resume go to the
// daemon (or, without one, to the user defaults directly).
//
// Thread rules: interface thread.
#pragma once

#include <QMenu>
#include <QObject>
#include <QSystemTrayIcon>
#include <functional>

#include "app/library_session.h"

namespace klipora::desktop {

class TrayMenu : public QObject {
  Q_OBJECT

 public:
  static constexpr int kLatestCount = 5;

  explicit TrayMenu(app::LibrarySession& session, QObject* parent = nullptr);

  // Shows the icon in the panel when the desktop has one.
  void show();
  // Reads the latest items and the pause again.
  void rebuild();
  QMenu* menu() { return &menu_; }
  // The pause's description, empty when not paused.
  QString pauseDescription();

  // `until`: "indefinitely", "tomorrow" or seconds from now.
  Status pause(const app::Json& until);
  Status resume();

 signals:
  void openLibrary();
  // An item of the latest screenshots was chosen.
  void openItem(const QString& id);
  void quitRequested();
  void failed(const QString& message);

 private:
  app::LibrarySession& session_;
  QMenu menu_;
  QSystemTrayIcon icon_;
};

}  // namespace klipora::desktop
