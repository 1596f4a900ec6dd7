// ItemDelegate: how one screenshot is drawn in the library window: in the
// grid a card (thumbnail on a neutral tile, title, date; a star for
// favourites, a badge for failed processing), in the list a row (small
// thumbnail, title, category, date). Colours come from the palette, so the
// cards follow the desktop's light or dark theme.
//
// Thread rules: interface thread.
#pragma once

#include <QStyledItemDelegate>

#include "library/enums.h"

namespace klipora::desktop {

class ItemDelegate : public QStyledItemDelegate {
  Q_OBJECT

 public:
  static constexpr int kThumbnailEdge = 168;
  static constexpr int kListThumbnailEdge = 40;

  explicit ItemDelegate(QObject* parent = nullptr) : QStyledItemDelegate(parent) {}

  void setViewMode(library::ViewMode mode) { mode_ = mode; }
  library::ViewMode viewMode() const { return mode_; }
  // The cell size of the current mode (the list's width is the view's).
  QSize cellSize() const;

  void paint(QPainter* painter, const QStyleOptionViewItem& option,
             const QModelIndex& index) const override;
  QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

 private:
  void paintCard(QPainter* painter, const QStyleOptionViewItem& option,
                 const QModelIndex& index) const;
  void paintRow(QPainter* painter, const QStyleOptionViewItem& option,
                const QModelIndex& index) const;

  library::ViewMode mode_ = library::ViewMode::grid;
};

}  // namespace klipora::desktop
