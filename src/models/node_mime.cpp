#include "node_mime.h"

#include <krboxlibrary/box_library_model.h>
#include <krboxlibrary/box_library_node.h>

#include "model_private.h"

#include <QCoreApplication>
#include <QDataStream>
#include <QFileInfo>
#include <QHash>
#include <QMimeData>
#include <QUrl>

#include <algorithm>

namespace KR {
namespace models {

namespace {

const QLatin1String kUriList("text/uri-list");

QHash<quint64, BoxLibraryModel*>& registry() {
  static QHash<quint64, BoxLibraryModel*> models;
  return models;
}

// The local box files among urls; false when one is not a local ".bxd" file.
bool boxFiles(const QList<QUrl>& urls, QStringList& files) {
  for (const QUrl& url : urls) {
    if (!url.isLocalFile() || !url.toLocalFile().endsWith(QLatin1String(".bxd")))
      return false;
    files.append(url.toLocalFile());
  }
  return !files.isEmpty();
}

}  // namespace

quint64 registerModel(BoxLibraryModel* model) {
  static quint64 next = 0;
  registry().insert(++next, model);
  return next;
}

void unregisterModel(quint64 id) {
  registry().remove(id);
}

QByteArray encodeNodes(quint64 id, const QList<quint64>& nodes) {
  QByteArray bytes;
  QDataStream stream(&bytes, QIODevice::WriteOnly);
  stream << static_cast<qint64>(QCoreApplication::applicationPid()) << id << nodes;
  return bytes;
}

bool decodeNodes(const QByteArray& bytes, DraggedNodes& nodes) {
  QDataStream stream(bytes);
  qint64 pid = 0;
  quint64 id = 0;
  stream >> pid >> id >> nodes.nodes;
  if (stream.status() != QDataStream::Ok)
    return false;
  nodes.model = pid == QCoreApplication::applicationPid() ? registry().value(id) : nullptr;
  return true;
}

}  // namespace models

QList<quint64> BoxLibraryModel::Private::dragIds(const QList<BoxLibraryNode*>& nodes) const {
  // Nodes gone since earlier drags are forgotten as new ones come.
  for (auto it = dragged.begin(); it != dragged.end();)
    it = it->isNull() ? dragged.erase(it) : std::next(it);
  QList<quint64> ids;
  for (BoxLibraryNode* node : nodes) {
    dragged.insert(++nextDragId, node);
    ids.append(nextDragId);
  }
  return ids;
}

BoxLibraryNode* BoxLibraryModel::Private::draggedNode(quint64 id) const {
  BoxLibraryNode* node = dragged.value(id);
  // Removed nodes are deleted; a node still alive must still be in this library.
  return node && node->parent() && node->library() == library ? node : nullptr;
}

Qt::DropActions BoxLibraryModel::supportedDragActions() const {
  return Qt::MoveAction | Qt::CopyAction;
}

Qt::DropActions BoxLibraryModel::supportedDropActions() const {
  return Qt::MoveAction | Qt::CopyAction;
}

QStringList BoxLibraryModel::mimeTypes() const {
  return {QLatin1String(kNodesMimeType), models::kUriList};
}

QMimeData* BoxLibraryModel::mimeData(const QModelIndexList& indexes) const {
  QList<QList<int>> paths;
  for (const QModelIndex& index : indexes) {
    if (index.isValid() && index.model() == this && index.column() == 0)
      paths.append(d->pathOf(node(index)));
  }
  if (paths.isEmpty())
    return nullptr;
  // Rows in tree order, so that the drop keeps it.
  std::sort(paths.begin(), paths.end());
  QList<BoxLibraryNode*> nodes;
  for (const QList<int>& path : paths)
    nodes.append(d->library->node(path));
  auto* data = new QMimeData;
  data->setData(QLatin1String(kNodesMimeType), models::encodeNodes(d->id, d->dragIds(nodes)));
  return data;
}

bool BoxLibraryModel::Private::droppedNodes(const QMimeData& data, BoxLibraryModel*& model,
                                            QList<BoxLibraryNode*>& nodes, QString& why) const {
  models::DraggedNodes dragged;
  if (!models::decodeNodes(data.data(QLatin1String(BoxLibraryModel::kNodesMimeType)), dragged)) {
    why = QStringLiteral("the dropped entries cannot be read");
    return false;
  }
  if (!dragged.model) {
    why = QStringLiteral("the dropped entries' library is no longer open");
    return false;
  }
  model = dragged.model;
  for (const quint64 id : dragged.nodes) {
    BoxLibraryNode* node = model->d->draggedNode(id);
    if (!node) {
      why = QStringLiteral("a dropped entry is no longer there");
      return false;
    }
    nodes.append(node);
  }
  return !nodes.isEmpty();
}

bool BoxLibraryModel::canDropMimeData(const QMimeData* data, Qt::DropAction action, int row,
                                      int column, const QModelIndex& parent) const {
  Q_UNUSED(column)
  if (!data || !(action & (Qt::MoveAction | Qt::CopyAction)))
    return false;
  QString reason;
  const BoxLibraryNode* folder = d->folderAt(parent, &reason);
  if (!folder || row < -1 || row > folder->childCount())
    return false;
  if (data->hasFormat(QLatin1String(kNodesMimeType))) {
    BoxLibraryModel* from = nullptr;
    QList<BoxLibraryNode*> nodes;
    if (!d->droppedNodes(*data, from, nodes, reason))
      return false;
    // Neither a move nor a copy goes into the dragged folder or below it.
    return std::none_of(nodes.begin(), nodes.end(),
                        [folder](const BoxLibraryNode* node) { return isWithin(folder, node); });
  }
  QStringList files;
  return data->hasUrls() && models::boxFiles(data->urls(), files);
}

bool BoxLibraryModel::dropMimeData(const QMimeData* data, Qt::DropAction action, int row,
                                   int column, const QModelIndex& parent) {
  Q_UNUSED(column)
  if (!data)
    return d->refuse(QStringLiteral("nothing to drop"));
  if (action == Qt::IgnoreAction)
    return true;
  if (action != Qt::MoveAction && action != Qt::CopyAction)
    return d->refuse(QStringLiteral("only a move or a copy can be dropped"));
  QString reason;
  BoxLibraryNode* folder = d->folderAt(parent, &reason);
  if (!folder)
    return d->refuse(QStringLiteral("cannot drop here: %1").arg(reason));
  if (row == -1)
    row = folder->childCount();
  if (row < 0 || row > folder->childCount())
    return d->refuse(QStringLiteral("no row %1 in the folder").arg(row));

  if (data->hasFormat(QLatin1String(kNodesMimeType))) {
    BoxLibraryModel* from = nullptr;
    QList<BoxLibraryNode*> nodes;
    if (!d->droppedNodes(*data, from, nodes, reason))
      return d->refuse(reason);
    const QString what =
        nodes.size() == 1
            ? QStringLiteral("\u201c%1\u201d").arg(QString::fromUtf8(nodes.first()->name().c_str()))
            : QStringLiteral("%1 entries").arg(nodes.size());
    // Nodes of this library move; a copy, or nodes of another library, are copied (the
    // other library's view removes its own after a move).
    if (from != this || action != Qt::MoveAction)
      return d->insertCopies(QList<const BoxLibraryNode*>(nodes.begin(), nodes.end()), folder, row,
                             QStringLiteral("Copy %1").arg(what));
    if (!d->moveNodes(nodes, folder, row, QStringLiteral("Move %1").arg(what)))
      return false;
    // The view removes the rows it dragged once the drop succeeds: they have moved already.
    for (const BoxLibraryNode* node : nodes)
      d->justMoved.append(QPersistentModelIndex(d->indexOf(node)));
    return true;
  }

  QStringList files;
  if (!data->hasUrls() || !models::boxFiles(data->urls(), files))
    return d->refuse(QStringLiteral("only box files (.bxd) and library entries can be dropped"));
  const QString text = files.size() == 1 ? QStringLiteral("Add box %1")
                                         : QStringLiteral("Add %1 boxes").arg(files.size());
  return d->perform(text, [&](EditCommand& command) {
    const QList<BoxLibraryNode*> boxes = d->editor.addBoxFiles(folder, row, files);
    if (boxes.isEmpty())
      throw Refused{d->editor.errorString()};
    if (boxes.size() == 1)
      command.text = text.arg(
          QStringLiteral("\u201c%1\u201d").arg(QString::fromUtf8(boxes.first()->name().c_str())));
    for (const BoxLibraryNode* box : boxes)
      command.steps.push_back(d->removeStep(box));
  });
}

}  // namespace KR
