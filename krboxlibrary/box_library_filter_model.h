#ifndef KRBOXLIBRARY_BOX_LIBRARY_FILTER_MODEL_H
#define KRBOXLIBRARY_BOX_LIBRARY_FILTER_MODEL_H

#include <krboxlibrary/box_library_query.h>
#include <krboxlibrary/krboxmodels_export.h>

#include <QSortFilterProxyModel>
#include <QString>

namespace KR {

/// The search of a library panel: a proxy over a KR::BoxLibraryModel that keeps the nodes
/// matching a KR::BoxLibraryQuery and the folders above them. The listing order is kept.
class KRBOXMODELS_EXPORT BoxLibraryFilterModel : public QSortFilterProxyModel {
  Q_OBJECT
  Q_PROPERTY(QString filterText READ filterText WRITE setFilterText NOTIFY filterTextChanged)

public:
  /// A proxy without a source; setSourceModel() gives it a KR::BoxLibraryModel.
  explicit BoxLibraryFilterModel(QObject* parent = nullptr);

  /// Sets the model to search, KR::BoxLibraryModel or any other (searched through its display,
  /// tooltip and KR::BoxLibraryModel::TagsRole data).
  void setSourceModel(QAbstractItemModel* model) override;

  /// The query text; empty shows every node.
  QString filterText() const { return m_query.text(); }

public slots:
  /// Filters by text, a KR::BoxLibraryQuery.
  void setFilterText(const QString& text);

signals:
  /// filterText() changed.
  void filterTextChanged(const QString& text);

protected:
  /// Whether the source row matches the query (its folders are kept by the recursive
  /// filtering).
  bool filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const override;

private:
  void remap();

  BoxLibraryQuery m_query;
};

}  // namespace KR

#endif
