#ifndef KRBOXLIBRARY_BOX_LIBRARY_FILTER_MODEL_H
#define KRBOXLIBRARY_BOX_LIBRARY_FILTER_MODEL_H

#include <krboxlibrary/box_library_query.h>
#include <krboxlibrary/krboxmodels_export.h>

#include <QSet>
#include <QSortFilterProxyModel>
#include <QString>

#include <memory>

namespace KR {

class BoxLibraryModel;
class BoxLibraryNode;

/// The search of a library panel: a proxy over a KR::BoxLibraryModel that keeps the nodes
/// matching a KR::BoxLibraryQuery and the folders above them. The listing order is kept.
class KRBOXMODELS_EXPORT BoxLibraryFilterModel : public QSortFilterProxyModel {
  Q_OBJECT
  Q_PROPERTY(QString filterText READ filterText WRITE setFilterText NOTIFY filterTextChanged)

public:
  /// A proxy without a source; setSourceModel() gives it a KR::BoxLibraryModel.
  explicit BoxLibraryFilterModel(QObject* parent = nullptr);
  ~BoxLibraryFilterModel() override;

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
  /// Whether the source row matches the query or holds a node that does.
  bool filterAcceptsRow(int sourceRow, const QModelIndex& sourceParent) const override;

private:
  void sourceChanged();
  // Makes the index when there is none; whether there is one.
  bool makeIndex();
  void findKept();

  struct Index;

  BoxLibraryQuery m_query;
  const BoxLibraryModel* m_library = nullptr;  // the source, when it is one
  QSet<const BoxLibraryNode*> m_kept;          // of its nodes, those the query keeps
  std::unique_ptr<Index> m_index;              // their folded text, while a query is on
};

}  // namespace KR

#endif
