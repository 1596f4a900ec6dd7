#include "desktop/library_item_model.h"

#include <QDateTime>
#include <QLocale>

#include "desktop/texts.h"

namespace klipora::desktop {

LibraryItemModel::LibraryItemModel(app::LibrarySession& session, ThumbnailLoader& thumbnails,
                                   QObject* parent)
    : QAbstractListModel(parent), session_(session), thumbnails_(thumbnails) {
  connect(&thumbnails_, &ThumbnailLoader::loaded, this, &LibraryItemModel::thumbnailLoaded);
}

Status LibraryItemModel::setQuery(const library::LibraryQuery& query) {
  beginResetModel();
  query_ = query;
  query_.limit = kPageSize;
  query_.offset = 0;
  rows_.clear();
  rowOfKey_.clear();
  complete_ = true;
  auto page = readPage(0);
  if (page) {
    rows_ = std::move(*page);
    for (size_t i = 0; i < rows_.size(); ++i) {
      rowOfKey_.insert(QString::fromStdString(rows_[i].id.uuidString()), static_cast<int>(i));
    }
  }
  endResetModel();
  return page ? Status::Ok() : page.error();
}

Result<std::vector<ItemRow>> LibraryItemModel::readPage(int64_t offset) {
  library::LibraryQuery q = query_;
  q.offset = offset;
  q.limit = kPageSize;
  auto result = library::LibrarySearch::run(session_.context(), q, session_.platform().clock.now());
  if (!result) return Err(result.error());
  if (offset == 0) parsed_ = result->parsed;
  complete_ = static_cast<int64_t>(result->items.size()) < kPageSize;
  const QLocale locale;
  std::vector<ItemRow> rows;
  rows.reserve(result->items.size());
  for (const auto& item : result->items) {
    ItemRow row{.id = item->id,
                .title = qstr(item->displayTitle()),
                .thumbnailPath = item->thumbnailPath ? qstr(*item->thumbnailPath) : QString(),
                .date = {},
                .category = qstr(library::displayName(item->effectiveCategory())),
                .favorite = item->favorite,
                .failed = item->showsProcessingFailure()};
    const Date when = item->capturedAt.value_or(item->importedAt);
    row.date = locale.toString(
        QDateTime::fromSecsSinceEpoch(static_cast<qint64>(when.timeIntervalSince1970())).date(),
        QLocale::ShortFormat);
    rows.push_back(std::move(row));
  }
  // The page's records are not kept: the context forgets them at its next
  // save, and the rows hold what the cells show.
  return rows;
}

int LibraryItemModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

QVariant LibraryItemModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() >= rowCount()) return {};
  const ItemRow& r = rows_[static_cast<size_t>(index.row())];
  switch (role) {
    case Qt::DisplayRole:
      return r.title;
    case Qt::ToolTipRole:
      return r.title + "\n" + r.category + " · " + r.date;
    case Qt::DecorationRole: {
      const QPixmap* pixmap =
          thumbnails_.request(QString::fromStdString(r.id.uuidString()), r.thumbnailPath);
      return pixmap ? QVariant(*pixmap) : QVariant();
    }
    case IdRole:
      return QString::fromStdString(r.id.uuidString());
    case FavoriteRole:
      return r.favorite;
    case FailedRole:
      return r.failed;
    case DateRole:
      return r.date;
    case CategoryRole:
      return r.category;
    default:
      return {};
  }
}

bool LibraryItemModel::canFetchMore(const QModelIndex& parent) const {
  return !parent.isValid() && !complete_;
}

void LibraryItemModel::fetchMore(const QModelIndex& parent) {
  if (!canFetchMore(parent)) return;
  auto page = readPage(static_cast<int64_t>(rows_.size()));
  if (!page) {
    complete_ = true;
    emit failed(qstr(page.error().message()));
    return;
  }
  if (page->empty()) return;
  const int first = static_cast<int>(rows_.size());
  beginInsertRows({}, first, first + static_cast<int>(page->size()) - 1);
  for (auto& row : *page) {
    rowOfKey_.insert(QString::fromStdString(row.id.uuidString()), static_cast<int>(rows_.size()));
    rows_.push_back(std::move(row));
  }
  endInsertRows();
}

void LibraryItemModel::thumbnailLoaded(const QString& key) {
  auto it = rowOfKey_.find(key);
  if (it == rowOfKey_.end()) return;
  const QModelIndex cell = index(*it);
  emit dataChanged(cell, cell, {Qt::DecorationRole});
}

}  // namespace klipora::desktop
