// The tray menu over a real store and user defaults, without a daemon: the
// latest screenshots, and the pause items with the pause's description.
#include <QAction>
#include <QSignalSpy>
#include <QTest>

#include "desktop/desktop_platform.h"
#include "desktop/desktop_test_main.h"
#include "desktop/tray_menu.h"
#include "library/screenshot_item.h"
#include "platform/testing/temp_dir.h"

namespace klipora::desktop {

class TrayMenuTest : public QObject {
  Q_OBJECT

 private:
  std::unique_ptr<testing::TempDir> home_;
  std::unique_ptr<DesktopPlatform> linux_;
  std::unique_ptr<app::LibrarySession> session_;

  QStringList labels(QMenu* menu) {
    QStringList out;
    for (QAction* a : menu->actions()) {
      if (!a->isSeparator()) out << a->text();
    }
    return out;
  }
  QAction* action(QMenu* menu, const QString& label) {
    for (QAction* a : menu->actions()) {
      if (a->text() == label) return a;
    }
    return nullptr;
  }

 private slots:
  void init() {
    home_ = std::make_unique<testing::TempDir>();
    linux_ = std::make_unique<DesktopPlatform>();
    session_ = std::make_unique<app::LibrarySession>(linux_->platform);
    session_->homeOption = home_->path();
    QVERIFY(session_->open().ok());
  }
  void cleanup() {
    session_.reset();
    linux_.reset();
    home_.reset();
  }

  void listsTheLatestScreenshotsNewestFirst() {
    TrayMenu tray(*session_);
    QVERIFY(labels(tray.menu()).contains("No screenshots yet"));
    for (int i = 0; i < TrayMenu::kLatestCount + 2; ++i) {
      auto item = std::make_shared<library::ScreenshotItem>();
      item->generatedTitle = "Shot " + std::to_string(i);
      item->importedAt = linux_->linux.clock.now().addingTimeInterval(i);
      item->checksum = "sum" + std::to_string(i);
      session_->context().insert(item);
    }
    QVERIFY(session_->context().save().ok());
    tray.rebuild();
    const QStringList shown = labels(tray.menu());
    QCOMPARE(shown.mid(0, 3), (QStringList{"Latest Screenshots", "Shot 6", "Shot 5"}));
    QVERIFY(!shown.contains("Shot 1"));
    QSignalSpy opened(&tray, &TrayMenu::openItem);
    action(tray.menu(), "Shot 6")->trigger();
    QCOMPARE(opened.count(), 1);
  }

  void pauseItemsPauseUntilResumed() {
    TrayMenu tray(*session_);
    QCOMPARE(tray.pauseDescription(), QString());
    for (const char* label : {"Pause for 10 Minutes", "Pause for 1 Hour", "Pause Until Tomorrow",
                              "Pause Until I Resume", "Open Library", "Quit Klipora"}) {
      QVERIFY2(action(tray.menu(), label), label);
    }
    QVERIFY(action(tray.menu(), "Pause Until I Resume"));
    action(tray.menu(), "Pause Until I Resume")->trigger();
    QCOMPARE(tray.pauseDescription(), QString("Screenshot watching is paused"));
    tray.rebuild();
    QVERIFY(labels(tray.menu()).contains("Screenshot watching is paused"));
    QVERIFY(!action(tray.menu(), "Pause for 1 Hour"));
    QVERIFY(action(tray.menu(), "Resume"));
    action(tray.menu(), "Resume")->trigger();
    QCOMPARE(tray.pauseDescription(), QString());

    tray.rebuild();
    QVERIFY(action(tray.menu(), "Pause for 10 Minutes"));
    action(tray.menu(), "Pause for 10 Minutes")->trigger();
    QVERIFY(tray.pauseDescription().startsWith("Paused until "));
    QVERIFY(tray.resume().ok());
    QVERIFY(tray.pause("tomorrow").ok());
    QCOMPARE(tray.pauseDescription(), QString("Paused until tomorrow"));
  }
};

KLIPORA_DESKTOP_TEST(TrayMenuTest);

}  // namespace klipora::desktop

#include "tray_menu_test.moc"
