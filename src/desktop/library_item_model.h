// LibraryItemModel: the items of the library window's grid and list, read a
// page at a time through the library query (search_query.h) as the view
// scrolls, so a library of any size costs only the pages looked at. A row
// keeps the few fields a cell shows, not the record; thumbnails come from a
// ThumbnailLoader and a row is redrawn when its image arrives.
//
// Thread rules: interface thread (the query runs on the session's main
// context, which lives there).
#pragma once

#include <QAbstractListModel>
#include <QHash>
#include <QPixmap>
#include <vector>

#include "app/library_session.h"
#include "desktop/thumbnail_loader.h"
#include "library/search_query.h"

namespace klipora::desktop {

struct ItemRow {
  UUID id;
  QString title;
  QString thumbnailPath;
  QString date;       // capture date (else import date), local, short
  QString category;   // effective category's display name
  bool favorite = false;
  bool failed = false;  // the card's failure badge
};

class LibraryItemModel : public QAbstractListModel {
  Q_OBJECT

 public:
  enum Role { IdRole = Qt::UserRole + 1, FavoriteRole, FailedRole, DateRole, CategoryRole };
  static constexpr int kPageSize = 200;

  LibraryItemModel(app::LibrarySession& session, ThumbnailLoader& thumbnails,
                   QObject* parent = nullptr);

  // Runs `query` from its first page (its limit and offset are the model's).
  // Fails with the query's error; the model is then empty.
  Status setQuery(const library::LibraryQuery& query);
  // Reads the current query again from the first page, after a change.
  Status reload() { return setQuery(query_); }
  const library::LibraryQuery& query() const { return query_; }
  // What the search text meant (tokens and free text) in the current query.
  const library::ParsedSearchQuery& parsedQuery() const { return parsed_; }
  // Whether the last page has been read.
  bool complete() const { return complete_; }
  const ItemRow& row(int index) const { return rows_[static_cast<size_t>(index)]; }

  int rowCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  bool canFetchMore(const QModelIndex& parent) const override;
  void fetchMore(const QModelIndex& parent) override;

 signals:
  // A page failed to load (the rows so far stay).
  void failed(const QString& message);

 private:
  Result<std::vector<ItemRow>> readPage(int64_t offset);
  void thumbnailLoaded(const QString& key);

  app::LibrarySession& session_;
  ThumbnailLoader& thumbnails_;
  library::LibraryQuery query_;
  library::ParsedSearchQuery parsed_;
  std::vector<ItemRow> rows_;
  QHash<QString, int> rowOfKey_;
  bool complete_ = true;
};

}  // namespace klipora::desktop
