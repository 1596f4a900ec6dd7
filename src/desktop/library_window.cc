#include "desktop/library_window.h"

#include <QAction>
#include <QActionGroup>
#include <QComboBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QSplitter>
#include <QStatusBar>
#include <QToolBar>
#include <QTreeView>

#include "desktop/icon_names.h"
#include "desktop/inspector_panel.h"
#include "desktop/item_delegate.h"
#include "desktop/library_actions.h"
#include "desktop/library_item_model.h"
#include "desktop/sidebar_model.h"
#include "desktop/texts.h"
#include "desktop/thumbnail_loader.h"
#include "library/enum_table.h"

namespace klipora::desktop {
namespace {

// How long typing must pause before the search runs.
constexpr int kSearchPauseMs = 150;

}  // namespace

LibraryWindow::LibraryWindow(app::LibrarySession& session, QWidget* parent)
    : QMainWindow(parent),
      session_(session),
      thumbnails_(std::make_unique<ThumbnailLoader>(ItemDelegate::kThumbnailEdge * 2)),
      actions_(std::make_unique<LibraryActions>(session)) {
  // TRANSLATORS: the title of the main window.
  setWindowTitle(text("Klipora Library"));
  setWindowIcon(QIcon::fromTheme("klipora", symbolIcon("photo.on.rectangle")));
  query_.showArchivedInSearch = session_.settings().showArchivedInSearch;

  sidebarModel_ = new SidebarModel(session_, this);
  sidebar_ = new QTreeView;
  sidebar_->setModel(sidebarModel_);
  sidebar_->setHeaderHidden(true);
  sidebar_->setRootIsDecorated(false);
  sidebar_->setItemsExpandable(false);
  sidebar_->setIndentation(12);
  sidebar_->setUniformRowHeights(true);
  sidebar_->setIconSize(QSize(16, 16));
  sidebar_->setFrameShape(QFrame::NoFrame);
  sidebar_->setMinimumWidth(200);
  sidebar_->setAccessibleName(text("Sidebar"));

  itemModel_ = new LibraryItemModel(session_, *thumbnails_, this);
  delegate_ = new ItemDelegate(this);
  items_ = new QListView;
  items_->setModel(itemModel_);
  items_->setItemDelegate(delegate_);
  items_->setSelectionMode(QAbstractItemView::ExtendedSelection);
  items_->setUniformItemSizes(true);
  items_->setMouseTracking(true);
  items_->setFrameShape(QFrame::NoFrame);
  items_->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
  items_->setAccessibleName(text("Screenshots"));
  setViewMode(library::ViewMode::grid);

  inspector_ = new InspectorPanel(session_, *actions_);
  connect(inspector_, &InspectorPanel::failed, this,
          [this](const QString& message) { statusBar()->showMessage(message, 8000); });
  connect(inspector_, &InspectorPanel::itemChanged, this, [this] {
    const auto keep = selectedIDs();
    refresh();
    selectIDs(keep);
  });

  auto* split = new QSplitter;
  split->addWidget(sidebar_);
  split->addWidget(items_);
  split->addWidget(inspector_);
  split->setStretchFactor(1, 1);
  split->setCollapsible(1, false);
  split->setSizes({220, 620, 300});
  setCentralWidget(split);

  buildActions();
  buildToolbar();
  status_ = new QLabel;
  statusBar()->addWidget(status_, 1);

  searchPause_.setSingleShot(true);
  searchPause_.setInterval(kSearchPauseMs);
  connect(&searchPause_, &QTimer::timeout, this, &LibraryWindow::applyQuery);
  connect(search_, &QLineEdit::textChanged, this, [this] { searchPause_.start(); });
  connect(search_, &QLineEdit::returnPressed, this, &LibraryWindow::commitSearch);
  connect(itemModel_, &LibraryItemModel::failed, this,
          [this](const QString& message) { statusBar()->showMessage(message, 8000); });

  refresh();
  selectSidebarEntry("all");
  connect(sidebar_->selectionModel(), &QItemSelectionModel::currentChanged, this,
          &LibraryWindow::sidebarChanged);
  resize(1100, 720);
}

LibraryWindow::~LibraryWindow() {
  // The views go before the loader whose pixmaps they may still ask for.
  delete centralWidget();
}

void LibraryWindow::buildToolbar() {
  auto* bar = addToolBar(text("Library"));
  bar->setMovable(false);
  bar->setIconSize(QSize(16, 16));
  search_ = new QLineEdit;
  // TRANSLATORS: placeholder of the search field; the tokens stay in English.
  search_->setPlaceholderText(text("Search (tag:, cat:, fav:, date:)"));
  search_->setClearButtonEnabled(true);
  search_->addAction(symbolIcon("magnifyingglass"), QLineEdit::LeadingPosition);
  search_->setMinimumWidth(320);
  search_->setAccessibleName(text("Search"));
  bar->addWidget(search_);
  bar->addSeparator();

  sort_ = new QComboBox;
  sort_->setAccessibleName(text("Sort"));
  for (const auto& c : library::EnumTraits<library::SortMode>::cases()) {
    sort_->addItem(qstr(library::displayName(c.value)), static_cast<int>(c.value));
  }
  connect(sort_, &QComboBox::currentIndexChanged, this, [this] {
    query_.sortMode = static_cast<library::SortMode>(sort_->currentData().toInt());
    query_.rankByRelevance = false;  // an order the user picks wins over relevance
    applyQuery();
  });
  bar->addWidget(sort_);
  bar->addSeparator();
  bar->addAction(act_.favorite);
  bar->addAction(act_.tag);
  bar->addAction(act_.trash);
  bar->addAction(act_.restore);
  bar->addSeparator();

  auto* modes = new QActionGroup(this);
  for (auto mode : {library::ViewMode::grid, library::ViewMode::list}) {
    auto* action = bar->addAction(
        QIcon::fromTheme(mode == library::ViewMode::grid ? "view-grid-symbolic"
                                                         : "view-list-symbolic"),
        qstr(library::displayName(mode)));
    action->setCheckable(true);
    action->setChecked(mode == library::ViewMode::grid);
    modes->addAction(action);
    connect(action, &QAction::triggered, this, [this, mode] { setViewMode(mode); });
  }
}

void LibraryWindow::setViewMode(library::ViewMode mode) {
  delegate_->setViewMode(mode);
  if (mode == library::ViewMode::grid) {
    items_->setViewMode(QListView::IconMode);
    items_->setFlow(QListView::LeftToRight);
    items_->setWrapping(true);
    items_->setResizeMode(QListView::Adjust);
    items_->setMovement(QListView::Static);
    items_->setSpacing(4);
    items_->setGridSize(delegate_->cellSize() + QSize(8, 8));
  } else {
    items_->setViewMode(QListView::ListMode);
    items_->setFlow(QListView::TopToBottom);
    items_->setWrapping(false);
    items_->setSpacing(0);
    items_->setGridSize(QSize());
  }
  items_->doItemsLayout();
}

void LibraryWindow::commitSearch() {
  searchPause_.stop();
  applyQuery();
}

bool LibraryWindow::selectSidebarEntry(const QString& selectionID) {
  const QModelIndex entry = sidebarModel_->indexOf(selectionID);
  if (!entry.isValid()) return false;
  sidebar_->setCurrentIndex(entry);
  sidebarChanged();
  return true;
}

void LibraryWindow::sidebarChanged() {
  const QString id = sidebar_->currentIndex().data(SidebarModel::SelectionRole).toString();
  auto selection = library::SidebarSelection::fromID(id.toStdString());
  if (!selection || *selection == query_.selection) return;
  query_.selection = *selection;
  applyQuery();
}

void LibraryWindow::refresh() {
  const QString current = sidebar_->currentIndex().data(SidebarModel::SelectionRole).toString();
  if (Status s = sidebarModel_->refresh(); !s.ok()) {
    statusBar()->showMessage(qstr(s.message()), 8000);
  }
  sidebar_->expandAll();
  sidebar_->header()->setStretchLastSection(false);
  sidebar_->header()->setSectionResizeMode(0, QHeaderView::Stretch);
  sidebar_->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
  if (!current.isEmpty()) {
    const QSignalBlocker quiet(sidebar_->selectionModel());
    sidebar_->setCurrentIndex(sidebarModel_->indexOf(current));
  }
  applyQuery();
}

void LibraryWindow::showMessage(const QString& message) {
  statusBar()->showMessage(message, 8000);
}

void LibraryWindow::applyQuery() {
  query_.searchText = search_->text().toStdString();
  if (Status s = itemModel_->setQuery(query_); !s.ok()) {
    statusBar()->showMessage(qstr(s.message()), 8000);
  }
  showStatus();
  updateActions();
}

void LibraryWindow::showStatus() {
  const int shown = itemModel_->rowCount();
  QString line;
  if (shown == 0) {
    line = search_->text().isEmpty() ? text("No screenshots here") : text("No items match.");
  } else if (itemModel_->complete()) {
    line = textPlural("%1 screenshot", "%1 screenshots", shown);
  } else {
    // TRANSLATORS: more pages follow as the grid scrolls.
    line = text("%1+ screenshots").arg(shown);
  }
  status_->setText(line);
}

}  // namespace klipora::desktop
