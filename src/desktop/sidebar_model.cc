#include "desktop/sidebar_model.h"

#include <QGuiApplication>
#include <QPainter>
#include <QPalette>
#include <QPixmap>
#include <map>

#include "desktop/icon_names.h"
#include "desktop/texts.h"
#include "intelligence/tag_catalog_service.h"
#include "library/records.h"
#include "library/sidebar_selection.h"
#include "platform/log.h"

namespace klipora::desktop {
namespace {

using library::SidebarSelection;
using Kind = SidebarSelection::Kind;

// Items outside the trash and the archive, per effective category and per
// user category, in one pass over the items.
struct Counts {
  std::map<std::string, int64_t> categories;
  std::map<std::string, int64_t> customCategories;
};

Result<Counts> ReadCounts(library::ModelContext& context) {
  ASSIGN_OR_RETURN(auto rows,
                   context.database().query(
                       "SELECT coalesce(userCategory, generatedCategory), customCategoryID, "
                       "count(*) FROM ScreenshotItem WHERE deleted = 0 AND "
                       "likely(deletedAt IS NULL) AND archived = 0 GROUP BY 1, 2"));
  Counts counts;
  for (const auto& row : rows) {
    const auto* n = std::get_if<int64_t>(&row[2]);
    if (!n) continue;
    if (const auto* c = std::get_if<std::string>(&row[0])) counts.categories[*c] += *n;
    if (const auto* id = std::get_if<std::string>(&row[1])) counts.customCategories[*id] += *n;
  }
  return counts;
}

QStandardItem* Heading(const QString& title) {
  auto* item = new QStandardItem(title);
  item->setFlags(Qt::ItemIsEnabled);
  QFont font = item->font();
  font.setBold(true);
  item->setFont(font);
  return item;
}

QList<QStandardItem*> Entry(const QIcon& icon, const QString& name, const SidebarSelection& s,
                            std::optional<int64_t> count = std::nullopt) {
  auto* label = new QStandardItem(icon, name);
  label->setData(qstr(s.id()), SidebarModel::SelectionRole);
  label->setToolTip(name);
  label->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
  auto* number = new QStandardItem(count ? QString::number(*count) : QString());
  number->setData(qstr(s.id()), SidebarModel::SelectionRole);
  number->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
  number->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
  number->setForeground(QGuiApplication::palette().brush(QPalette::PlaceholderText));
  return {label, number};
}

// A round swatch of the tag's colour.
QIcon TagIcon(const std::string& colorHex) {
  QPixmap pixmap(32, 32);
  pixmap.fill(Qt::transparent);
  QPainter painter(&pixmap);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(Qt::NoPen);
  QColor color(qstr(colorHex));
  painter.setBrush(color.isValid() ? color : QColor(Qt::gray));
  painter.drawEllipse(QRectF(8, 8, 16, 16));
  return QIcon(pixmap);
}

}  // namespace

SidebarModel::SidebarModel(app::LibrarySession& session, QObject* parent)
    : QStandardItemModel(parent), session_(session), tags_(session.platform().clock) {
  setColumnCount(2);
}

Status SidebarModel::refresh() {
  auto& context = session_.context();
  ASSIGN_OR_RETURN(Counts counts, ReadCounts(context));
  library::FetchDescriptor byName;
  byName.sortBy = "name COLLATE NOCASE, id";
  ASSIGN_OR_RETURN(auto customs, context.fetch<library::CustomCategory>(byName));
  ASSIGN_OR_RETURN(auto searches, context.fetch<library::SavedSearch>(byName));
  if (!tags_.didEnsureCatalogThisLaunch()) {
    if (Status s = tags_.ensureCatalogSynced(context); !s.ok()) {
      log::warning("desktop", "cannot bring the tag catalogue up to date: %s", s.message().c_str());
    }
  }
  ASSIGN_OR_RETURN(auto tagList, tags_.suggestions(context));

  clear();
  setColumnCount(2);
  QStandardItem* root = invisibleRootItem();

  auto* library = Heading(text("Library"));
  for (Kind kind : {Kind::all, Kind::today, Kind::thisWeek, Kind::favorites, Kind::recentlyShared,
                    Kind::needsReview, Kind::processingFailed, Kind::uncategorized, Kind::archived,
                    Kind::trash}) {
    auto s = SidebarSelection::fixed(kind);
    library->appendRow(Entry(symbolIcon(s.symbolName()), qstr(s.displayName()), s));
  }
  root->appendRow(library);

  auto* categories = Heading(text("Categories"));
  for (auto c : library::kAllScreenshotCategories) {
    auto s = SidebarSelection::category(c);
    auto it = counts.categories.find(std::string(library::rawValue(c)));
    categories->appendRow(Entry(symbolIcon(library::symbolName(c)), qstr(library::displayName(c)),
                                s, it == counts.categories.end() ? 0 : it->second));
  }
  root->appendRow(categories);

  if (!customs.empty()) {
    auto* mine = Heading(text("My Categories"));
    for (const auto& c : customs) {
      auto it = counts.customCategories.find(c->id.uuidString());
      mine->appendRow(Entry(symbolIcon(c->systemImage), qstr(c->name),
                            SidebarSelection::customCategory(c->id),
                            it == counts.customCategories.end() ? 0 : it->second));
    }
    root->appendRow(mine);
  }
  if (!tagList.empty()) {
    auto* tagSection = Heading(text("Tags"));
    for (const auto& t : tagList) {
      tagSection->appendRow(
          Entry(TagIcon(t.colorHex), qstr(t.name), SidebarSelection::tag(t.name), t.count));
    }
    root->appendRow(tagSection);
  }
  if (!searches.empty()) {
    auto* saved = Heading(text("Saved Searches"));
    for (const auto& s : searches) {
      saved->appendRow(Entry(symbolIcon(s->iconName), qstr(s->name),
                             SidebarSelection::savedSearch(s->id)));
    }
    root->appendRow(saved);
  }
  return Status::Ok();
}

QModelIndex SidebarModel::indexOf(const QString& selectionID) const {
  const QModelIndexList hits =
      match(index(0, 0), SelectionRole, selectionID, 1, Qt::MatchExactly | Qt::MatchRecursive);
  return hits.isEmpty() ? QModelIndex() : hits.first();
}

}  // namespace klipora::desktop
