#include "desktop/item_delegate.h"

#include <QApplication>
#include <QPainter>
#include <QPainterPath>

#include "desktop/icon_names.h"
#include "desktop/library_item_model.h"

namespace klipora::desktop {
namespace {

constexpr int kPadding = 8;
constexpr int kCardWidth = ItemDelegate::kThumbnailEdge + 2 * kPadding;
constexpr int kTileHeight = ItemDelegate::kThumbnailEdge * 3 / 4;

// The thumbnail scaled into `box`, centred; a faint tile when there is none.
void DrawThumbnail(QPainter* painter, const QRect& box, const QVariant& decoration,
                   const QPalette& palette) {
  QPainterPath clip;
  clip.addRoundedRect(box, 6, 6);
  painter->save();
  painter->setClipPath(clip);
  painter->fillRect(box, palette.color(QPalette::AlternateBase));
  const QPixmap pixmap = decoration.value<QPixmap>();
  if (!pixmap.isNull()) {
    const QSize fitted = pixmap.size().scaled(box.size(), Qt::KeepAspectRatio);
    const QRect target(box.x() + (box.width() - fitted.width()) / 2,
                       box.y() + (box.height() - fitted.height()) / 2, fitted.width(),
                       fitted.height());
    painter->setRenderHint(QPainter::SmoothPixmapTransform);
    painter->drawPixmap(target, pixmap);
  } else {
    const int edge = qMin(32, box.height() / 2);
    symbolIcon("photo.on.rectangle")
        .paint(painter, QRect(box.center().x() - edge / 2, box.center().y() - edge / 2, edge, edge),
               Qt::AlignCenter, QIcon::Disabled);
  }
  painter->restore();
}

void DrawBadges(QPainter* painter, const QRect& box, const QModelIndex& index) {
  const int edge = 16;
  QRect badge(box.right() - edge - 4, box.top() + 4, edge, edge);
  if (index.data(LibraryItemModel::FailedRole).toBool()) {
    symbolIcon("exclamationmark.triangle").paint(painter, badge);
    badge.translate(-edge - 2, 0);
  }
  if (index.data(LibraryItemModel::FavoriteRole).toBool()) {
    symbolIcon("star").paint(painter, badge);
  }
}

}  // namespace

QSize ItemDelegate::cellSize() const {
  if (mode_ == library::ViewMode::list) return {400, kListThumbnailEdge + 2 * 6};
  const int lines = QFontMetrics(QApplication::font()).height() * 2 + 4;
  return {kCardWidth, kTileHeight + 2 * kPadding + lines};
}

QSize ItemDelegate::sizeHint(const QStyleOptionViewItem&, const QModelIndex&) const {
  return cellSize();
}

void ItemDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                         const QModelIndex& index) const {
  if (mode_ == library::ViewMode::list) {
    paintRow(painter, option, index);
  } else {
    paintCard(painter, option, index);
  }
}

void ItemDelegate::paintCard(QPainter* painter, const QStyleOptionViewItem& option,
                             const QModelIndex& index) const {
  const QPalette& palette = option.palette;
  const QRect cell = option.rect.adjusted(2, 2, -2, -2);
  painter->save();
  painter->setRenderHint(QPainter::Antialiasing);
  const bool selected = option.state & QStyle::State_Selected;
  if (selected) {
    QColor fill = palette.color(QPalette::Highlight);
    fill.setAlpha(60);
    painter->setPen(QPen(palette.color(QPalette::Highlight), 2));
    painter->setBrush(fill);
    painter->drawRoundedRect(QRectF(cell).adjusted(1, 1, -1, -1), 8, 8);
  } else if (option.state & QStyle::State_MouseOver) {
    QColor hover = palette.color(QPalette::Highlight);
    hover.setAlpha(24);
    painter->setPen(Qt::NoPen);
    painter->setBrush(hover);
    painter->drawRoundedRect(cell, 8, 8);
  }
  const QRect tile(cell.x() + kPadding - 2, cell.y() + kPadding - 2, kThumbnailEdge, kTileHeight);
  DrawThumbnail(painter, tile, index.data(Qt::DecorationRole), palette);
  DrawBadges(painter, tile, index);

  const QFontMetrics metrics(option.font);
  QRect line(tile.x(), tile.bottom() + 6, tile.width(), metrics.height());
  painter->setPen(palette.color(QPalette::Text));
  painter->setFont(option.font);
  painter->drawText(line, Qt::AlignHCenter | Qt::AlignVCenter,
                    metrics.elidedText(index.data(Qt::DisplayRole).toString(), Qt::ElideRight,
                                       line.width()));
  line.translate(0, metrics.height() + 2);
  QFont small = option.font;
  small.setPointSizeF(small.pointSizeF() * 0.85);
  painter->setFont(small);
  painter->setPen(palette.color(QPalette::PlaceholderText));
  painter->drawText(line, Qt::AlignHCenter | Qt::AlignVCenter,
                    QFontMetrics(small).elidedText(index.data(LibraryItemModel::DateRole).toString(),
                                                   Qt::ElideRight, line.width()));
  if (option.state & QStyle::State_HasFocus) {
    painter->setPen(QPen(palette.color(QPalette::Highlight), 1, Qt::DotLine));
    painter->setBrush(Qt::NoBrush);
    painter->drawRoundedRect(QRectF(cell).adjusted(0.5, 0.5, -0.5, -0.5), 8, 8);
  }
  painter->restore();
}

void ItemDelegate::paintRow(QPainter* painter, const QStyleOptionViewItem& option,
                            const QModelIndex& index) const {
  QStyleOptionViewItem background = option;
  background.text.clear();
  background.icon = QIcon();
  QApplication::style()->drawControl(QStyle::CE_ItemViewItem, &background, painter);
  painter->save();
  painter->setRenderHint(QPainter::Antialiasing);
  const QRect cell = option.rect;
  const QRect thumb(cell.x() + 6, cell.y() + 6, kListThumbnailEdge * 4 / 3, kListThumbnailEdge);
  DrawThumbnail(painter, thumb, index.data(Qt::DecorationRole), option.palette);
  const bool selected = option.state & QStyle::State_Selected;
  const QColor textColor = option.palette.color(selected ? QPalette::HighlightedText
                                                         : QPalette::Text);
  const int dateWidth = 110, categoryWidth = 130;
  QRect title(thumb.right() + 12, cell.y(), cell.width() - thumb.width() - 30 - dateWidth -
                                                categoryWidth, cell.height());
  const QFontMetrics metrics(option.font);
  painter->setPen(textColor);
  QString name = index.data(Qt::DisplayRole).toString();
  if (index.data(LibraryItemModel::FavoriteRole).toBool()) name = QStringLiteral("★ ") + name;
  painter->drawText(title, Qt::AlignLeft | Qt::AlignVCenter,
                    metrics.elidedText(name, Qt::ElideRight, title.width()));
  QColor secondary = selected ? textColor : option.palette.color(QPalette::PlaceholderText);
  painter->setPen(secondary);
  QRect category(title.right() + 6, cell.y(), categoryWidth, cell.height());
  painter->drawText(category, Qt::AlignLeft | Qt::AlignVCenter,
                    metrics.elidedText(index.data(LibraryItemModel::CategoryRole).toString(),
                                       Qt::ElideRight, categoryWidth));
  QRect date(category.right() + 6, cell.y(), dateWidth, cell.height());
  painter->drawText(date, Qt::AlignRight | Qt::AlignVCenter,
                    index.data(LibraryItemModel::DateRole).toString());
  painter->restore();
}

}  // namespace klipora::desktop
