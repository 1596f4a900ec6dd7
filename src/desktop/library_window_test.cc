// The library window on Qt's offscreen platform, over a real store in a
// scratch support folder: the sidebar's entries and counts, the grid paging
// through a large view, search with tokens narrowing the grid, and
// thumbnails arriving from the loader's threads.
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QListView>
#include <QSignalSpy>
#include <QTest>
#include <QTreeView>

#include "desktop/desktop_platform.h"
#include "desktop/desktop_test_main.h"
#include "desktop/inspector_panel.h"
#include "desktop/library_item_model.h"
#include "desktop/library_window.h"
#include "desktop/sidebar_model.h"
#include "desktop/thumbnail_loader.h"
#include "library/screenshot_item.h"
#include "platform/testing/temp_dir.h"

namespace klipora::desktop {

class LibraryWindowTest : public QObject {
  Q_OBJECT

 private:
  std::unique_ptr<testing::TempDir> home_;
  std::unique_ptr<DesktopPlatform> linux_;
  std::unique_ptr<app::LibrarySession> session_;
  int added_ = 0;

  std::shared_ptr<library::ScreenshotItem> add(const std::string& title, const std::string& text,
                                               std::vector<std::string> tags = {},
                                               library::ScreenshotCategory category =
                                                   library::ScreenshotCategory::documents) {
    auto item = std::make_shared<library::ScreenshotItem>();
    item->originalFilename = "Screenshot " + std::to_string(++added_) + ".png";
    item->generatedTitle = title;
    item->ocrText = text;
    item->setUserTags(tags);
    item->generatedCategory = category;
    item->processingStateRaw = "complete";
    item->importedAt = linux_->linux.clock.now().addingTimeInterval(-added_);
    item->checksum = "sum" + std::to_string(added_);
    session_->context().insert(item);
    return item;
  }
  void save() { QVERIFY(session_->context().save().ok()); }
  QStringList titles(const LibraryItemModel& model) {
    QStringList out;
    for (int i = 0; i < model.rowCount(); ++i) out << model.row(i).title;
    return out;
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

  void sidebarListsViewsCategoriesAndTagsWithCounts() {
    add("Invoice March", "invoice total 120", {"work"}, library::ScreenshotCategory::receipts);
    add("Invoice April", "invoice total 80", {}, library::ScreenshotCategory::receipts);
    add("Build log", "error: undefined symbol", {"work"}, library::ScreenshotCategory::errors);
    save();
    LibraryWindow window(*session_);
    auto* sidebar = qobject_cast<SidebarModel*>(window.sidebarView()->model());
    QVERIFY(sidebar);
    for (const char* id : {"all", "today", "thisWeek", "favorites", "recentlyShared", "needsReview",
                           "processingFailed", "uncategorized", "archived", "trash",
                           "category:code", "category:uncategorized", "tag:work"}) {
      QVERIFY2(sidebar->indexOf(id).isValid(), id);
    }
    auto countOf = [&](const char* id) {
      QModelIndex entry = sidebar->indexOf(id);
      return entry.siblingAtColumn(1).data().toString();
    };
    QCOMPARE(countOf("category:receipts"), QString("2"));
    QCOMPARE(countOf("category:errors"), QString("1"));
    QCOMPARE(countOf("category:code"), QString("0"));
    QCOMPARE(countOf("tag:work"), QString("2"));

    QCOMPARE(window.itemModel()->rowCount(), 3);
    QVERIFY(window.selectSidebarEntry("category:errors"));
    QCOMPARE(titles(*window.itemModel()), QStringList{"Build log"});
    QVERIFY(window.selectSidebarEntry("tag:work"));
    QCOMPARE(window.itemModel()->rowCount(), 2);
  }

  void typingTokensAndWordsNarrowsTheGrid() {
    add("Invoice March", "invoice total 120", {"work"});
    add("Invoice April", "invoice total 80", {"home"});
    add("Build log", "error: undefined symbol", {"work"});
    save();
    LibraryWindow window(*session_);
    QCOMPARE(window.itemModel()->rowCount(), 3);

    QTest::keyClicks(window.searchField(), "invoice");
    window.commitSearch();
    QCOMPARE(window.itemModel()->rowCount(), 2);

    window.searchField()->clear();
    QTest::keyClicks(window.searchField(), "tag:work invoice");
    window.commitSearch();
    QCOMPARE(titles(*window.itemModel()), QStringList{"Invoice March"});
    QCOMPARE(window.itemModel()->parsedQuery().tags, std::vector<std::string>{"work"});

    // Typing arms the search; it runs once typing pauses (or on Return).
    window.searchField()->clear();
    window.commitSearch();
    QTest::keyClicks(window.searchField(), "undefined");
    QVERIFY(window.searchPending());
    QCOMPARE(window.itemModel()->rowCount(), 3);
    QTest::keyClick(window.searchField(), Qt::Key_Return);
    QVERIFY(!window.searchPending());
    QCOMPARE(titles(*window.itemModel()), QStringList{"Build log"});

    window.searchField()->clear();
    window.commitSearch();
    QCOMPARE(window.itemModel()->rowCount(), 3);
  }

  void actionsOnAMultiSelection() {
    auto a = add("Invoice March", "invoice total 120", {"work"});
    auto b = add("Invoice April", "invoice total 80");
    add("Build log", "error: undefined symbol");
    save();
    LibraryWindow window(*session_);
    window.selectIDs({a->id, b->id});
    QCOMPARE(window.selectedIDs().size(), size_t{2});

    // A tag only some carry goes on all; toggled again, it comes off all.
    window.toggleTagOnSelection("work");
    QCOMPARE(window.selectedIDs().size(), size_t{2});
    QVERIFY(window.selectSidebarEntry("tag:work"));
    QCOMPARE(window.itemModel()->rowCount(), 2);
    QVERIFY(window.selectSidebarEntry("all"));
    window.selectIDs({a->id, b->id});
    window.toggleTagOnSelection("work");
    QVERIFY(window.selectSidebarEntry("tag:work"));
    QCOMPARE(window.itemModel()->rowCount(), 0);  // no item carries it now
    QVERIFY(window.selectSidebarEntry("all"));

    window.selectIDs({a->id, b->id});
    window.favoriteSelection();
    QVERIFY(window.selectSidebarEntry("favorites"));
    QCOMPARE(window.itemModel()->rowCount(), 2);

    QVERIFY(window.selectSidebarEntry("all"));
    window.selectIDs({a->id});
    window.setCategoryOfSelection(library::ScreenshotCategory::receipts);
    QVERIFY(window.selectSidebarEntry("category:receipts"));
    QCOMPARE(titles(*window.itemModel()), QStringList{"Invoice March"});

    // Trash (no daemon runs: on the store) and back.
    QVERIFY(window.selectSidebarEntry("all"));
    window.selectIDs({a->id, b->id});
    window.trashSelection();
    QCOMPARE(titles(*window.itemModel()), QStringList{"Build log"});
    QVERIFY(window.selectSidebarEntry("trash"));
    QCOMPARE(window.itemModel()->rowCount(), 2);
    window.selectIDs({b->id});
    window.restoreSelection();
    QCOMPARE(titles(*window.itemModel()), QStringList{"Invoice March"});
    window.selectIDs({a->id});
    window.deleteSelection(/*confirmed=*/true);
    QCOMPARE(window.itemModel()->rowCount(), 0);
    QVERIFY(window.selectSidebarEntry("all"));
    QCOMPARE(titles(*window.itemModel()), (QStringList{"Invoice April", "Build log"}));
  }

  void theInspectorEditsTheCurrentItem() {
    auto a = add("Invoice March", "invoice total 120");
    a->processingStateRaw = "failed";
    a->processingError = "Processing timed out after 120s. Retry from the inspector";
    save();
    LibraryWindow window(*session_);
    window.selectIDs({a->id});
    InspectorPanel& inspector = *window.inspector();
    QCOMPARE(inspector.shownItem(), std::optional<UUID>(a->id));
    QCOMPARE(inspector.titleField()->placeholderText(), QString("Invoice March"));
    QVERIFY(inspector.stateLabel()->text().contains("timed out after 120s"));
    QVERIFY(!inspector.retryButton()->isHidden());
    QCOMPARE(inspector.recognisedText()->toPlainText(), QString("invoice total 120"));

    inspector.titleField()->setText("March bill");
    emit inspector.titleField()->editingFinished();
    QCOMPARE(titles(*window.itemModel()), QStringList{"March bill"});
    // An empty title shows the automatic one again.
    window.selectIDs({a->id});
    window.inspector()->titleField()->clear();
    emit window.inspector()->titleField()->editingFinished();
    QCOMPARE(titles(*window.itemModel()), QStringList{"Invoice March"});

    window.selectIDs({a->id});
    window.inspector()->retryButton()->click();
    QCOMPARE(session_->context().fetchByKey<library::ScreenshotItem>(a->id.uuidString())
                 .value()->processingStateRaw,
             std::string("pending"));
  }

  void theGridReadsPagesAsItScrolls() {
    const int total = LibraryItemModel::kPageSize * 2 + 17;
    for (int i = 0; i < total; ++i) add("Item " + std::to_string(i), "text");
    save();
    LibraryWindow window(*session_);
    window.show();
    LibraryItemModel& model = *window.itemModel();
    QCOMPARE(model.rowCount(), LibraryItemModel::kPageSize);
    QVERIFY(!model.complete());
    window.itemView()->scrollToBottom();
    while (model.canFetchMore({})) model.fetchMore({});
    QCOMPARE(model.rowCount(), total);
    QVERIFY(model.complete());
    // Newest first: the first item added is the first row.
    QCOMPARE(model.row(0).title, QString("Item 0"));
    QCOMPARE(model.row(total - 1).title, QString("Item %1").arg(total - 1));
  }

  void thumbnailsArriveFromTheLoaderThreads() {
    auto item = add("With picture", "text");
    const std::string path = home_->file("thumb.jpg");
    QImage image(320, 200, QImage::Format_RGB32);
    image.fill(QColor(200, 40, 40));
    QVERIFY(image.save(QString::fromStdString(path)));
    item->thumbnailPath = path;
    add("No picture", "text");  // no thumbnail: a placeholder, no read
    save();
    LibraryWindow window(*session_);
    LibraryItemModel& model = *window.itemModel();
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    const QModelIndex withPicture = model.index(0);
    QCOMPARE(model.row(0).title, QString("With picture"));
    QVERIFY(withPicture.data(Qt::DecorationRole).isNull());  // not read yet
    QVERIFY(model.index(1).data(Qt::DecorationRole).isNull());
    window.thumbnails()->waitForIdle();
    QCoreApplication::processEvents();  // the loaded image's queued hand-over
    QCOMPARE(changed.count(), 1);
    const QPixmap pixmap = withPicture.data(Qt::DecorationRole).value<QPixmap>();
    QVERIFY(!pixmap.isNull());
    QCOMPARE(pixmap.width(), 320);  // smaller than the cache's edge: not scaled
    QCOMPARE(window.thumbnails()->pendingCount(), 0);
  }
};

KLIPORA_DESKTOP_TEST(LibraryWindowTest);

}  // namespace klipora::desktop

#include "library_window_test.moc"
