// The library window's selection actions: the toolbar buttons, the context
// menu and their shortcuts.
#include <QAction>
#include <QCompleter>
#include <QInputDialog>
#include <QListView>
#include <QMenu>
#include <QMessageBox>
#include <QStatusBar>
#include <QToolBar>

#include "desktop/icon_names.h"
#include "desktop/inspector_panel.h"
#include "desktop/library_actions.h"
#include "desktop/library_item_model.h"
#include "desktop/library_window.h"
#include "desktop/texts.h"

namespace klipora::desktop {

std::vector<UUID> LibraryWindow::selectedIDs() const {
  QModelIndexList rows = items_->selectionModel()->selectedIndexes();
  std::sort(rows.begin(), rows.end(),
            [](const QModelIndex& a, const QModelIndex& b) { return a.row() < b.row(); });
  std::vector<UUID> ids;
  for (const auto& row : rows) ids.push_back(itemModel_->row(row.row()).id);
  return ids;
}

void LibraryWindow::selectIDs(const std::vector<UUID>& ids) {
  QItemSelection selection;
  for (int i = 0; i < itemModel_->rowCount(); ++i) {
    if (std::find(ids.begin(), ids.end(), itemModel_->row(i).id) != ids.end()) {
      selection.select(itemModel_->index(i), itemModel_->index(i));
    }
  }
  items_->selectionModel()->select(selection, QItemSelectionModel::ClearAndSelect);
  if (!selection.isEmpty()) {
    items_->selectionModel()->setCurrentIndex(selection.indexes().first(),
                                              QItemSelectionModel::NoUpdate);
  }
}

void LibraryWindow::buildActions() {
  auto make = [this](const char* symbol, const QString& label, QKeySequence key) {
    auto* action = new QAction(symbolIcon(symbol), label, this);
    action->setShortcut(key);
    action->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    items_->addAction(action);
    return action;
  };
  act_.favorite = make("star", text("Favourite"), QKeySequence(Qt::CTRL | Qt::Key_D));
  act_.favorite->setCheckable(true);
  act_.archive = make("archivebox", text("Archive"), QKeySequence(Qt::CTRL | Qt::Key_E));
  act_.archive->setCheckable(true);
  act_.trash = make("trash", text("Move to Trash"), QKeySequence::Delete);
  act_.restore = make("square.and.arrow.up", text("Put Back"), QKeySequence(Qt::CTRL | Qt::Key_Z));
  act_.remove = make("exclamationmark.triangle", text("Delete Immediately…"),
                     QKeySequence(Qt::SHIFT | Qt::Key_Delete));
  act_.tag = make("tag", text("Tag…"), QKeySequence(Qt::CTRL | Qt::Key_T));
  act_.category = new QMenu(text("Set Category"), this);
  act_.category->setIcon(symbolIcon("folder"));
  act_.category->addAction(text("Automatic"), this, [this] { setCategoryOfSelection(std::nullopt); });
  act_.category->addSeparator();
  for (auto c : library::kAllScreenshotCategories) {
    act_.category->addAction(symbolIcon(library::symbolName(c)), qstr(library::displayName(c)),
                             this, [this, c] { setCategoryOfSelection(c); });
  }
  connect(act_.favorite, &QAction::triggered, this, &LibraryWindow::favoriteSelection);
  connect(act_.archive, &QAction::triggered, this, &LibraryWindow::archiveSelection);
  connect(act_.trash, &QAction::triggered, this, &LibraryWindow::trashSelection);
  connect(act_.restore, &QAction::triggered, this, &LibraryWindow::restoreSelection);
  connect(act_.remove, &QAction::triggered, this, [this] { deleteSelection(); });
  connect(act_.tag, &QAction::triggered, this, &LibraryWindow::askForTag);

  items_->setContextMenuPolicy(Qt::CustomContextMenu);
  connect(items_, &QListView::customContextMenuRequested, this, &LibraryWindow::showContextMenu);
  connect(items_->selectionModel(), &QItemSelectionModel::selectionChanged, this,
          &LibraryWindow::updateActions);
  updateActions();
}

void LibraryWindow::updateActions() {
  const auto ids = selectedIDs();
  const bool any = !ids.empty();
  const bool inTrash = query_.selection.kind() == library::SidebarSelection::Kind::trash;
  bool allFavorite = any, allArchived = any;
  for (const QModelIndex& row : items_->selectionModel()->selectedIndexes()) {
    allFavorite = allFavorite && row.data(LibraryItemModel::FavoriteRole).toBool();
  }
  allArchived = any && query_.selection.kind() == library::SidebarSelection::Kind::archived;
  act_.favorite->setEnabled(any && !inTrash);
  act_.favorite->setChecked(allFavorite);
  act_.archive->setEnabled(any && !inTrash);
  act_.archive->setChecked(allArchived);
  act_.trash->setEnabled(any && !inTrash);
  act_.trash->setVisible(!inTrash);
  act_.restore->setEnabled(any && inTrash);
  act_.restore->setVisible(inTrash);
  act_.remove->setEnabled(any && inTrash);
  act_.remove->setVisible(inTrash);
  act_.tag->setEnabled(any && !inTrash);
  act_.category->setEnabled(any && !inTrash);
  const QModelIndex current = items_->selectionModel()->currentIndex();
  inspector_->showItem(ids.size() == 1 || (any && current.isValid())
                           ? std::optional<UUID>(current.isValid()
                                                     ? itemModel_->row(current.row()).id
                                                     : ids.front())
                           : std::nullopt);
}

void LibraryWindow::showContextMenu(const QPoint& at) {
  if (selectedIDs().empty()) return;
  QMenu menu(this);
  menu.addAction(act_.favorite);
  menu.addAction(act_.tag);
  menu.addMenu(act_.category);
  menu.addSeparator();
  menu.addAction(act_.archive);
  menu.addAction(act_.trash);
  menu.addAction(act_.restore);
  menu.addAction(act_.remove);
  menu.exec(items_->viewport()->mapToGlobal(at));
}

void LibraryWindow::finishAction(const Status& s, const std::vector<UUID>& keep) {
  if (!s.ok()) statusBar()->showMessage(qstr(s.message()), 8000);
  refresh();
  selectIDs(keep);
}

void LibraryWindow::favoriteSelection() {
  const auto ids = selectedIDs();
  if (ids.empty()) return;
  bool all = true;
  for (const QModelIndex& row : items_->selectionModel()->selectedIndexes()) {
    all = all && row.data(LibraryItemModel::FavoriteRole).toBool();
  }
  finishAction(actions_->setFavorite(ids, !all), ids);
}

void LibraryWindow::archiveSelection() {
  const auto ids = selectedIDs();
  if (ids.empty()) return;
  const bool inArchive = query_.selection.kind() == library::SidebarSelection::Kind::archived;
  finishAction(actions_->setArchived(ids, !inArchive));
}

void LibraryWindow::trashSelection() {
  const auto ids = selectedIDs();
  if (!ids.empty()) finishAction(actions_->trash(ids, TrashAction::trash));
}

void LibraryWindow::restoreSelection() {
  const auto ids = selectedIDs();
  if (!ids.empty()) finishAction(actions_->trash(ids, TrashAction::restore));
}

void LibraryWindow::deleteSelection(bool confirmed) {
  const auto ids = selectedIDs();
  if (ids.empty()) return;
  if (!confirmed) {
    const auto answer = QMessageBox::warning(
        this, text("Delete Immediately"),
        textPlural("Delete %1 screenshot for good? This cannot be undone.",
                   "Delete %1 screenshots for good? This cannot be undone.",
                   static_cast<int>(ids.size())),
        QMessageBox::Cancel | QMessageBox::Discard, QMessageBox::Cancel);
    if (answer != QMessageBox::Discard) return;
  }
  finishAction(actions_->trash(ids, TrashAction::deleteForever));
}

void LibraryWindow::toggleTagOnSelection(const QString& name) {
  const auto ids = selectedIDs();
  if (ids.empty() || name.trimmed().isEmpty()) return;
  auto applied = actions_->toggleTag(ids, name.trimmed().toStdString());
  if (applied) {
    statusBar()->showMessage(*applied ? text("Tag “%1” added").arg(name.trimmed())
                                      : text("Tag “%1” removed").arg(name.trimmed()),
                             4000);
  }
  finishAction(applied ? Status::Ok() : applied.error(), ids);
}

void LibraryWindow::setCategoryOfSelection(std::optional<library::ScreenshotCategory> category) {
  const auto ids = selectedIDs();
  if (!ids.empty()) finishAction(actions_->setCategory(ids, category), ids);
}

void LibraryWindow::askForTag() {
  if (selectedIDs().empty()) return;
  QInputDialog dialog(this);
  dialog.setWindowTitle(text("Tag"));
  // TRANSLATORS: the tag dialog; a tag every selected screenshot has is removed.
  dialog.setLabelText(text("Add or remove a tag:"));
  dialog.setInputMode(QInputDialog::TextInput);
  if (dialog.exec() == QDialog::Accepted) toggleTagOnSelection(dialog.textValue());
}

}  // namespace klipora::desktop
