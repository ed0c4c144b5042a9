#include <krboxlibrary/box_library_filter_model.h>

#include <krboxlibrary/box_library_model.h>
#include <krboxlibrary/box_library_node.h>

namespace KR {

BoxLibraryFilterModel::BoxLibraryFilterModel(QObject* parent) : QSortFilterProxyModel(parent) {
  setRecursiveFilteringEnabled(true);
  setDynamicSortFilter(true);
}

void BoxLibraryFilterModel::setSourceModel(QAbstractItemModel* model) {
  if (QAbstractItemModel* old = sourceModel()) {
    disconnect(old, &QAbstractItemModel::rowsMoved, this, &BoxLibraryFilterModel::remap);
    disconnect(old, &QAbstractItemModel::layoutChanged, this, &BoxLibraryFilterModel::remap);
  }
  QSortFilterProxyModel::setSourceModel(model);
  // Connected after the base class's own handlers, so as to run once they are done.
  if (model) {
    connect(model, &QAbstractItemModel::rowsMoved, this, &BoxLibraryFilterModel::remap);
    connect(model, &QAbstractItemModel::layoutChanged, this, &BoxLibraryFilterModel::remap);
  }
}

// Once a query hides folders, the base class (Qt 5.15 and 6.4) follows a source move or layout
// change only in part: it can keep mappings that name rows by their old places, so that the
// rows shown go wrong and a later invalidateFilter() walks them into deleted rows. Starting
// over is right whatever it kept. Without a query nothing is hidden, and it starts over itself.
void BoxLibraryFilterModel::remap() {
  if (!m_query.isEmpty())
    invalidate();
}

void BoxLibraryFilterModel::setFilterText(const QString& text) {
  if (text == m_query.text())
    return;
  m_query = BoxLibraryQuery(text);
  invalidateFilter();
  emit filterTextChanged(text);
}

bool BoxLibraryFilterModel::filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const {
  if (m_query.isEmpty())
    return true;
  const QModelIndex index = sourceModel()->index(sourceRow, 0, sourceParent);
  if (const auto* model = qobject_cast<const BoxLibraryModel*>(sourceModel()))
    return m_query.matches(*model->node(index));
  // Any other model is searched through its roles.
  return m_query.matches(index.data(Qt::DisplayRole).toString(),
                         index.data(Qt::ToolTipRole).toString(),
                         index.data(BoxLibraryModel::TagsRole).toStringList());
}

}  // namespace KR
