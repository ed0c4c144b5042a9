#include "node_mime.h"

#include <krboxlibrary/box_library_model.h>
#include <krboxlibrary/box_library_node.h>

#include "box_file.h"
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

QByteArray encodeNodes(quint64 id, const QList<QList<int>>& paths) {
  QByteArray bytes;
  QDataStream stream(&bytes, QIODevice::WriteOnly);
  stream << static_cast<qint64>(QCoreApplication::applicationPid()) << id << paths;
  return bytes;
}

bool decodeNodes(const QByteArray& bytes, DraggedNodes& nodes) {
  QDataStream stream(bytes);
  qint64 pid = 0;
  quint64 id = 0;
  stream >> pid >> id >> nodes.paths;
  if (stream.status() != QDataStream::Ok)
    return false;
  nodes.model = pid == QCoreApplication::applicationPid() ? registry().value(id) : nullptr;
  return true;
}

}  // namespace models

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
  auto* data = new QMimeData;
  data->setData(QLatin1String(kNodesMimeType), models::encodeNodes(d->id, paths));
  return data;
}

bool BoxLibraryModel::canDropMimeData(const QMimeData* data, Qt::DropAction action, int row,
                                      int column, const QModelIndex& parent) const {
  Q_UNUSED(column)
  if (!data || !(action & (Qt::MoveAction | Qt::CopyAction)))
    return false;
  QString reason;
  const BoxLibraryNode* folder = d->folderAt(parent, &reason);
  if (!folder || row > folder->childCount())
    return false;
  models::DraggedNodes nodes;
  if (data->hasFormat(QLatin1String(kNodesMimeType)) &&
      models::decodeNodes(data->data(QLatin1String(kNodesMimeType)), nodes) && nodes.model) {
    for (const QList<int>& path : nodes.paths) {
      const BoxLibraryNode* node = nodes.model->library()->node(path);
      if (!node)
        return false;
      if (nodes.model == this && action == Qt::MoveAction) {
        for (const BoxLibraryNode* up = folder; up; up = up->parent()) {
          if (up == node)
            return false;
        }
      }
    }
    return true;
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
  if (row < 0)
    row = folder->childCount();
  if (row > folder->childCount())
    return d->refuse(QStringLiteral("no row %1 in the folder").arg(row));

  if (data->hasFormat(QLatin1String(kNodesMimeType))) {
    models::DraggedNodes dragged;
    if (!models::decodeNodes(data->data(QLatin1String(kNodesMimeType)), dragged))
      return d->refuse(QStringLiteral("the dropped entries cannot be read"));
    if (!dragged.model)
      return d->refuse(QStringLiteral("the dropped entries' library is no longer open"));
    QList<BoxLibraryNode*> nodes;
    for (const QList<int>& path : dragged.paths) {
      BoxLibraryNode* node = dragged.model->library()->node(path);
      if (!node || !node->parent())
        return d->refuse(QStringLiteral("a dropped entry is no longer there"));
      nodes.append(node);
    }
    const QString what = nodes.size() == 1
                             ? QStringLiteral("\u201c%1\u201d")
                                   .arg(QString::fromUtf8(nodes.first()->name().c_str()))
                             : QStringLiteral("%1 entries").arg(nodes.size());
    // Nodes of this library move; a copy, or nodes of another library, are copied (the
    // other library's view removes its own after a move).
    if (dragged.model == this && action == Qt::MoveAction)
      return d->moveNodes(nodes, folder, row, QStringLiteral("Move %1").arg(what));
    return d->insertCopies(QList<const BoxLibraryNode*>(nodes.begin(), nodes.end()), folder, row,
                           QStringLiteral("Copy %1").arg(what));
  }

  QStringList files;
  if (!data->hasUrls() || !models::boxFiles(data->urls(), files))
    return d->refuse(QStringLiteral("only box files (.bxd) and library entries can be dropped"));
  // Every file is read before any box is made: one that is no box file refuses them all.
  std::vector<models::BoxFile> boxes(static_cast<std::size_t>(files.size()));
  for (int i = 0; i < files.size(); ++i) {
    if (!models::readBoxFile(files.at(i), models::resourcesBeside(files.at(i)),
                             boxes[static_cast<std::size_t>(i)], &reason))
      return d->refuse(reason);
  }
  const QString text = boxes.size() == 1 ? QStringLiteral("Add box \u201c%1\u201d")
                                               .arg(QString::fromUtf8(
                                                   boxes.front().description.name.c_str()))
                                         : QStringLiteral("Add %1 boxes").arg(boxes.size());
  return d->perform(text, [&](std::vector<EditStep>& undo) {
    for (std::size_t i = 0; i < boxes.size(); ++i) {
      const int at = row + static_cast<int>(i);
      {
        beginInsertRows(d->indexOf(folder), at, at);
        try {
          folder->insertChild(at, boxes[i].description);
        } catch (...) {
          endInsertRows();
          throw;
        }
        d->forgetRows(folder);
        endInsertRows();
      }
      EditStep remove;
      remove.kind = EditStep::Remove;
      remove.parent = d->pathOf(folder);
      remove.row = at;
      undo.push_back(std::move(remove));
    }
  });
}

}  // namespace KR
