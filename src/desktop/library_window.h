// LibraryWindow: the main window, a view onto the library: the sidebar of
// views, categories, tags and saved searches on the left; the search field,
// sort and view mode above a grid (or list) of the matching screenshots,
// read a page at a time as it scrolls. The search runs as the user types,
// shortly after the last keystroke.
//
// It reads the store through the session's main context; changes go through
// the same library operations the klipora command uses.
//
// Thread rules: interface thread.
#pragma once

#include <QMainWindow>
#include <QTimer>
#include <memory>

#include "app/library_session.h"
#include "library/search_query.h"

class QAction;
class QComboBox;
class QMenu;
class QLabel;
class QLineEdit;
class QListView;
class QTreeView;

namespace klipora::desktop {

class InspectorPanel;
class ItemDelegate;
class LibraryActions;
class LibraryItemModel;
class SidebarModel;
class ThumbnailLoader;

class LibraryWindow : public QMainWindow {
  Q_OBJECT

 public:
  // Requires session.open() to have succeeded.
  explicit LibraryWindow(app::LibrarySession& session, QWidget* parent = nullptr);
  ~LibraryWindow() override;

  // Runs the search for what the field holds now (the typing pause cut short).
  void commitSearch();
  // Whether typed text waits for the pause before it runs.
  bool searchPending() const { return searchPause_.isActive(); }
  // Shows the sidebar entry with this selection id ("all", "tag:work", …).
  bool selectSidebarEntry(const QString& selectionID);
  void setViewMode(library::ViewMode mode);
  // Reads the sidebar and the current page again (after a change).
  void refresh();
  // Shows `message` in the status bar for a while.
  void showMessage(const QString& message);

  // The ids of the selected screenshots, in grid order.
  std::vector<UUID> selectedIDs() const;
  // Selects the rows with these ids (those on the loaded pages).
  void selectIDs(const std::vector<UUID>& ids);

  // The selection's actions (each acts on selectedIDs(); a failure shows in
  // the status bar).
  void favoriteSelection();
  void archiveSelection();
  void trashSelection();
  void restoreSelection();
  // Asks first unless `confirmed`.
  void deleteSelection(bool confirmed = false);
  void toggleTagOnSelection(const QString& name);
  void setCategoryOfSelection(std::optional<library::ScreenshotCategory> category);

  QLineEdit* searchField() const { return search_; }
  InspectorPanel* inspector() const { return inspector_; }
  QListView* itemView() const { return items_; }
  QTreeView* sidebarView() const { return sidebar_; }
  LibraryItemModel* itemModel() const { return itemModel_; }
  ThumbnailLoader* thumbnails() const { return thumbnails_.get(); }

 private:
  void buildToolbar();
  void buildActions();
  void updateActions();
  void showContextMenu(const QPoint& at);
  void askForTag();
  // Shows a failed action's reason; on success reads the library again and
  // keeps `keep` selected.
  void finishAction(const Status& s, const std::vector<UUID>& keep = {});
  void applyQuery();
  void sidebarChanged();
  void showStatus();

  app::LibrarySession& session_;
  std::unique_ptr<ThumbnailLoader> thumbnails_;
  std::unique_ptr<LibraryActions> actions_;
  InspectorPanel* inspector_ = nullptr;
  struct Actions {
    QAction* favorite = nullptr;
    QAction* archive = nullptr;
    QAction* trash = nullptr;
    QAction* restore = nullptr;
    QAction* remove = nullptr;
    QAction* tag = nullptr;
    QMenu* category = nullptr;
  } act_;
  LibraryItemModel* itemModel_ = nullptr;
  SidebarModel* sidebarModel_ = nullptr;
  ItemDelegate* delegate_ = nullptr;
  QTreeView* sidebar_ = nullptr;
  QListView* items_ = nullptr;
  QLineEdit* search_ = nullptr;
  QComboBox* sort_ = nullptr;
  QLabel* status_ = nullptr;
  QTimer searchPause_;
  library::LibraryQuery query_;
};

}  // namespace klipora::desktop
