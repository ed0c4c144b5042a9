#include <krboxlibrary/box_library_filter_model.h>

#include <krboxlibrary/box_library_model.h>
#include <krboxlibrary/box_library_node.h>

namespace KR {

BoxLibraryFilterModel::BoxLibraryFilterModel(QObject* parent) : QSortFilterProxyModel(parent) {
  setRecursiveFilteringEnabled(true);
  setDynamicSortFilter(true);
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
