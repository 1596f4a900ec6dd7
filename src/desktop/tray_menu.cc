#include "desktop/tray_menu.h"

#include <QAction>

#include "desktop/icon_names.h"
#include "desktop/texts.h"
#include "ingestion/watcher_pause_schedule.h"
#include "library/search_query.h"

namespace klipora::desktop {

TrayMenu::TrayMenu(app::LibrarySession& session, QObject* parent)
    : QObject(parent), session_(session) {
  icon_.setIcon(QIcon::fromTheme("klipora", symbolIcon("photo.on.rectangle")));
  icon_.setToolTip(text("Klipora"));
  icon_.setContextMenu(&menu_);
  connect(&menu_, &QMenu::aboutToShow, this, &TrayMenu::rebuild);
  connect(&icon_, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason r) {
    if (r == QSystemTrayIcon::Trigger) emit openLibrary();
  });
  rebuild();
}

void TrayMenu::show() {
  if (QSystemTrayIcon::isSystemTrayAvailable()) icon_.show();
}

QString TrayMenu::pauseDescription() {
  (void)session_.userDefaults().load();  // the daemon may have changed it
  ingestion::WatcherPauseSchedule schedule(session_.userDefaults(), session_.platform().clock,
                                           nullptr);
  schedule.load();
  auto description = schedule.statusDescription();
  return description ? qstr(*description) : QString();
}

Status TrayMenu::pause(const app::Json& until) {
  app::Json request = app::makeRequest("pause");
  request["until"] = until;
  auto reply = session_.request(request, 10);
  if (!reply) return reply.error();
  if (!reply->reply.value("ok", false)) return Status::Internal(app::replyError(reply->reply));
  return Status::Ok();
}

Status TrayMenu::resume() {
  auto reply = session_.request(app::makeRequest("resume"), 10);
  if (!reply) return reply.error();
  if (!reply->reply.value("ok", false)) return Status::Internal(app::replyError(reply->reply));
  return Status::Ok();
}

void TrayMenu::rebuild() {
  menu_.clear();
  auto* heading = menu_.addAction(text("Latest Screenshots"));
  heading->setEnabled(false);
  library::LibraryQuery latest;
  latest.limit = kLatestCount;
  auto result = library::LibrarySearch::run(session_.context(), latest,
                                            session_.platform().clock.now());
  if (result && !result->items.empty()) {
    for (const auto& item : result->items) {
      const QString id = qstr(item->id.uuidString());
      QString title = qstr(item->displayTitle());
      if (title.size() > 48) title = title.left(47) + QStringLiteral("…");
      menu_.addAction(symbolIcon(library::symbolName(item->effectiveCategory())), title, this,
                      [this, id] { emit openItem(id); });
    }
  } else {
    menu_.addAction(text("No screenshots yet"))->setEnabled(false);
  }
  menu_.addSeparator();

  const QString paused = pauseDescription();
  auto report = [this](const Status& s) {
    if (!s.ok()) emit failed(qstr(s.message()));
  };
  if (!paused.isEmpty()) {
    menu_.addAction(symbolIcon("pause"), paused)->setEnabled(false);
    menu_.addAction(text("Resume"), this, [this, report] { report(resume()); });
  } else {
    menu_.addAction(text("Pause for 10 Minutes"), this, [this, report] { report(pause(600)); });
    menu_.addAction(text("Pause for 1 Hour"), this, [this, report] { report(pause(3600)); });
    menu_.addAction(text("Pause Until Tomorrow"), this,
                    [this, report] { report(pause("tomorrow")); });
    menu_.addAction(text("Pause Until I Resume"), this,
                    [this, report] { report(pause("indefinitely")); });
  }
  menu_.addSeparator();
  menu_.addAction(text("Open Library"), this, [this] { emit openLibrary(); });
  menu_.addAction(text("Quit Klipora"), this, [this] { emit quitRequested(); });
}

}  // namespace klipora::desktop
