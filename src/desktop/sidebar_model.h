// SidebarModel: the library window's sidebar: the fixed views of
// SidebarSelection, the built-in categories and the user's categories with
// their item counts, tags with their colours and counts, and saved searches.
// Each entry carries its selection id (sidebar_selection.h) in SelectionRole;
// section headings carry none and cannot be selected. Two columns: the name
// with its icon, and the count.
//
// Thread rules: interface thread.
#pragma once

#include <QStandardItemModel>

#include "app/library_session.h"
#include "intelligence/tag_catalog_service.h"

namespace klipora::desktop {

class SidebarModel : public QStandardItemModel {
  Q_OBJECT

 public:
  static constexpr int SelectionRole = Qt::UserRole + 1;

  explicit SidebarModel(app::LibrarySession& session, QObject* parent = nullptr);

  // Reads the entries and counts again (the first time, it also gives tag
  // names found only on screenshots their catalogue entry). Store errors leave the model as it
  // was and are returned.
  Status refresh();
  // The index (column 0) of the entry with `selectionID`, invalid if none.
  QModelIndex indexOf(const QString& selectionID) const;

 private:
  app::LibrarySession& session_;
  intelligence::TagCatalogService tags_;
};

}  // namespace klipora::desktop
