#include <krboxlibrary/box_library_model.h>

#include <krboxlibrary/box_data.h>
#include <krboxlibrary/box_library.h>
#include <krboxlibrary/box_library_node.h>

#include "model_private.h"
#include "node_mime.h"

namespace KR {

namespace {

// Folders this small are searched in their list: no table to keep.
constexpr int kLinearRows = 16;

QString quoted(const BoxLibraryNode* node) {
  return QStringLiteral("\u201c%1\u201d").arg(QString::fromUtf8(node->name().c_str()));
}

}  // namespace

// ---- Rows ----------------------------------------------------------------------------

int BoxLibraryModel::Private::rowOf(const BoxLibraryNode* node) const {
  const BoxLibraryNode* parent = node->parent();
  if (!parent)
    return -1;
  const QList<BoxLibraryNode*>& children = parent->childList();
  if (children.size() <= kLinearRows)
    return static_cast<int>(children.indexOf(const_cast<BoxLibraryNode*>(node)));
  QHash<const BoxLibraryNode*, int>& table = rows[parent];
  const auto found = table.constFind(node);
  if (found != table.constEnd() && *found < children.size() && children.at(*found) == node)
    return *found;
  // Stale or new: one pass over the folder makes every later lookup constant.
  table.clear();
  table.reserve(static_cast<int>(children.size()));
  for (int i = 0; i < children.size(); ++i)
    table.insert(children.at(i), i);
  return table.value(node, -1);
}

QModelIndex BoxLibraryModel::Private::indexOf(const BoxLibraryNode* node) const {
  if (!node || !node->parent())
    return QModelIndex();
  const int row = rowOf(node);
  return row < 0 ? QModelIndex() : q->createIndex(row, 0, const_cast<BoxLibraryNode*>(node));
}

QList<int> BoxLibraryModel::Private::pathOf(const BoxLibraryNode* node) const {
  QList<int> path;
  for (; node && node->parent(); node = node->parent())
    path.prepend(rowOf(node));
  return path;
}

void BoxLibraryModel::Private::forgetSubtree(const BoxLibraryNode* node) {
  rows.erase(node);
  changedOnDiskAt.erase(node);
  const auto watch = watched.find(node);
  if (watch != watched.end()) {
    watcher->remove(watch->second.id);
    watched.erase(watch);
  }
  for (const BoxLibraryNode* child : node->childList())
    forgetSubtree(child);
}

BoxLibraryNode* BoxLibraryModel::Private::folderAt(const QModelIndex& parent,
                                                   QString* reason) const {
  if (parent.isValid() && parent.model() != q) {
    *reason = QStringLiteral("the target is not in this library");
    return nullptr;
  }
  BoxLibraryNode* folder = q->node(parent);
  if (folder->isBox()) {
    *reason = QStringLiteral("%1 is a box, not a folder").arg(quoted(folder));
    return nullptr;
  }
  return folder;
}

void BoxLibraryModel::Private::followEditor() {
  QObject::connect(&editor, &BoxLibraryEditor::nodeAboutToBeInserted, q,
                   [this](BoxLibraryNode* folder, int index) {
                     q->beginInsertRows(indexOf(folder), index, index);
                   });
  QObject::connect(&editor, &BoxLibraryEditor::nodeInserted, q, [this](BoxLibraryNode* node) {
    forgetRows(node->parent());
    q->endInsertRows();
    watch(node);
  });
  QObject::connect(&editor, &BoxLibraryEditor::nodeAboutToBeRemoved, q,
                   [this](BoxLibraryNode* node) {
                     const int row = rowOf(node);
                     q->beginRemoveRows(indexOf(node->parent()), row, row);
                     forgetSubtree(node);
                   });
  QObject::connect(&editor, &BoxLibraryEditor::nodeRemoved, q, [this](BoxLibraryNode* folder) {
    forgetRows(folder);
    q->endRemoveRows();
  });
  QObject::connect(&editor, &BoxLibraryEditor::nodeAboutToBeMoved, q,
                   [this](BoxLibraryNode* node, BoxLibraryNode* folder, int index) {
                     movingFrom = node->parent();
                     const int row = rowOf(node);
                     // Qt counts the destination before the node leaves.
                     const int before = folder == movingFrom && index > row ? index + 1 : index;
                     q->beginMoveRows(indexOf(movingFrom), row, row, indexOf(folder), before);
                   });
  QObject::connect(&editor, &BoxLibraryEditor::nodeMoved, q, [this](BoxLibraryNode* node) {
    forgetRows(movingFrom);
    forgetRows(node->parent());
    q->endMoveRows();
    watch(node);
  });
  QObject::connect(&editor, &BoxLibraryEditor::expandedChanged, q, [this](BoxLibraryNode* folder) {
    const QModelIndex index = indexOf(folder);
    if (index.isValid())
      emit q->dataChanged(index, index, {ExpandedRole});
  });
}

bool BoxLibraryModel::Private::refuse(const QString& reason) {
  error = reason;
  emit q->editRefused(reason);
  return false;
}

// ---- The model -----------------------------------------------------------------------

const char BoxLibraryModel::kNodesMimeType[] = "application/x-krbox-library-nodes";

BoxLibraryModel::BoxLibraryModel(BoxLibrary* library, QObject* parent)
    : QAbstractItemModel(parent), d(std::make_unique<Private>(this, library)) {
  d->id = models::registerModel(this);
  d->followEditor();
  d->connectFollowing();
  // Box data changed through its setters, and renames, whoever made them.
  connect(library, &BoxLibrary::dataChanged, this, [this](BoxLibraryNode* node) {
    const QModelIndex index = d->indexOf(node);
    if (index.isValid())
      emit dataChanged(index, index);
  });
}

BoxLibraryModel::~BoxLibraryModel() {
  models::unregisterModel(d->id);
}

BoxLibrary* BoxLibraryModel::library() const {
  return d->library;
}

BoxLibraryEditor* BoxLibraryModel::editor() const {
  return &d->editor;
}

BoxLibraryNode* BoxLibraryModel::node(const QModelIndex& index) const {
  if (!index.isValid())
    return d->library->boxRoot();
  return static_cast<BoxLibraryNode*>(index.internalPointer());
}

QModelIndex BoxLibraryModel::indexOf(const BoxLibraryNode* node) const {
  return d->indexOf(node);
}

void BoxLibraryModel::reset() {
  d->resetAll();
}

QModelIndex BoxLibraryModel::index(int row, int column, const QModelIndex& parent) const {
  if (column != 0 || parent.column() > 0)
    return QModelIndex();
  BoxLibraryNode* child = node(parent)->child(row);
  return child ? createIndex(row, 0, child) : QModelIndex();
}

QModelIndex BoxLibraryModel::parent(const QModelIndex& child) const {
  if (!child.isValid())
    return QModelIndex();
  return d->indexOf(node(child)->parent());
}

int BoxLibraryModel::rowCount(const QModelIndex& parent) const {
  if (parent.column() > 0)
    return 0;
  return node(parent)->childCount();
}

int BoxLibraryModel::columnCount(const QModelIndex& parent) const {
  return parent.column() > 0 ? 0 : 1;
}

bool BoxLibraryModel::hasChildren(const QModelIndex& parent) const {
  return rowCount(parent) > 0;
}

QVariant BoxLibraryModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid())
    return QVariant();
  const BoxLibraryNode* n = node(index);
  const BoxData* box = n->boxData().get();
  switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole: return QString::fromUtf8(n->name().c_str());
    case Qt::ToolTipRole: return box ? QVariant(box->tooltip()) : QVariant();
    case KindRole: return box ? QStringLiteral("box") : QStringLiteral("folder");
    case BehaviorRole: return box && box->behavior();
    case BitmapsRole: return box ? QStringList(box->bitmaps()) : QStringList();
    case BitmapExpandedRole: return box && box->bitmapExpanded();
    case TagsRole: return box ? box->tags() : QStringList();
    case ExpandedRole: return n->isExpanded();
    case PathRole: return n->path();
    default: return QVariant();
  }
}

bool BoxLibraryModel::setData(const QModelIndex& index, const QVariant& value, int role) {
  if (!index.isValid() || index.model() != this)
    return d->refuse(QStringLiteral("no entry to change"));
  BoxLibraryNode* n = node(index);
  EditStep step;
  step.kind = EditStep::SetValue;
  step.parent = d->pathOf(n->parent());
  step.row = index.row();
  step.role = role;
  step.value = value;
  QString text;
  switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole:
      step.kind = EditStep::Rename;
      step.exact = false;
      text = QStringLiteral("Rename %1").arg(quoted(n));
      break;
    case ExpandedRole:
      text = QStringLiteral("%1 %2").arg(value.toBool() ? "Expand" : "Collapse", quoted(n));
      break;
    case Qt::ToolTipRole:
    case BitmapsRole:
    case BitmapExpandedRole:
      text = QStringLiteral("Change the %1 of %2")
                 .arg(role == Qt::ToolTipRole ? "tooltip"
                      : role == BitmapsRole   ? "bitmaps"
                                              : "bitmap style",
                      quoted(n));
      break;
    default: return d->refuse(QStringLiteral("the role %1 cannot be changed").arg(role));
  }
  std::vector<EditStep> steps;
  steps.push_back(std::move(step));
  return d->perform(text, std::move(steps));
}

Qt::ItemFlags BoxLibraryModel::flags(const QModelIndex& index) const {
  if (!index.isValid())
    return Qt::ItemIsDropEnabled;
  Qt::ItemFlags result =
      Qt::ItemIsSelectable | Qt::ItemIsEnabled | Qt::ItemIsEditable | Qt::ItemIsDragEnabled;
  if (node(index)->isBox())
    result |= Qt::ItemNeverHasChildren;
  else
    result |= Qt::ItemIsDropEnabled;
  return result;
}

QHash<int, QByteArray> BoxLibraryModel::roleNames() const {
  QHash<int, QByteArray> names = QAbstractItemModel::roleNames();
  names[Qt::DisplayRole] = "name";
  names[Qt::ToolTipRole] = "tooltip";
  names[KindRole] = "kind";
  names[BehaviorRole] = "behavior";
  names[BitmapsRole] = "bitmaps";
  names[BitmapExpandedRole] = "bitmapExpanded";
  names[TagsRole] = "tags";
  names[ExpandedRole] = "expanded";
  names[PathRole] = "path";
  return names;
}

bool BoxLibraryModel::removeRows(int row, int count, const QModelIndex& parent) {
  QString reason;
  BoxLibraryNode* folder = d->folderAt(parent, &reason);
  if (!folder)
    return d->refuse(reason);
  if (row < 0 || count < 1 || row + count > folder->childCount())
    return d->refuse(QStringLiteral("no such rows to remove"));
  // A view removing what its move drop has just moved: done already.
  if (!d->justMoved.isEmpty()) {
    bool allMoved = true;
    for (int i = row; i < row + count && allMoved; ++i)
      allMoved = d->justMoved.contains(QPersistentModelIndex(index(i, 0, parent)));
    if (allMoved) {
      for (int i = row; i < row + count; ++i)
        d->justMoved.removeAll(QPersistentModelIndex(index(i, 0, parent)));
      return true;
    }
  }
  const QString text = count == 1 ? QStringLiteral("Remove %1").arg(quoted(folder->child(row)))
                                  : QStringLiteral("Remove %1 entries").arg(count);
  std::vector<EditStep> steps;
  for (int i = 0; i < count; ++i)
    steps.push_back(d->removeStep(folder->child(row)));
  return d->perform(text, std::move(steps));
}

bool BoxLibraryModel::moveRows(const QModelIndex& sourceParent, int sourceRow, int count,
                               const QModelIndex& destinationParent, int destinationChild) {
  QString reason;
  BoxLibraryNode* from = d->folderAt(sourceParent, &reason);
  BoxLibraryNode* to = from ? d->folderAt(destinationParent, &reason) : nullptr;
  if (!to)
    return d->refuse(reason);
  if (sourceRow < 0 || count < 1 || sourceRow + count > from->childCount() ||
      destinationChild < 0 || destinationChild > to->childCount())
    return d->refuse(QStringLiteral("no such rows to move"));
  QList<BoxLibraryNode*> nodes;
  for (int i = sourceRow; i < sourceRow + count; ++i)
    nodes.append(from->child(i));
  return d->moveNodes(nodes, to, destinationChild,
                      count == 1 ? QStringLiteral("Move %1").arg(quoted(nodes.first()))
                                 : QStringLiteral("Move %1 entries").arg(count));
}

QModelIndex BoxLibraryModel::insertFolder(const QModelIndex& parent, int row, const QString& name) {
  QString reason;
  BoxLibraryNode* folder = d->folderAt(parent, &reason);
  if (!folder)
    return d->refuse(reason), QModelIndex();
  return d->insertNew(QStringLiteral("New folder %1"),
                      [&] { return d->editor.newFolder(folder, row, name, /*expanded=*/true); });
}

QModelIndex BoxLibraryModel::addBoxFile(const QModelIndex& parent, int row, const QString& boxFile,
                                        const QStringList& resources) {
  QString reason;
  BoxLibraryNode* folder = d->folderAt(parent, &reason);
  if (!folder)
    return d->refuse(reason), QModelIndex();
  return d->insertNew(QStringLiteral("Add box %1"),
                      [&] { return d->editor.addBoxFile(folder, row, boxFile, resources); });
}

QModelIndex BoxLibraryModel::insertCopy(const QModelIndex& parent, int row,
                                        const BoxLibraryNode& source) {
  QString reason;
  BoxLibraryNode* folder = d->folderAt(parent, &reason);
  if (!folder)
    return d->refuse(reason), QModelIndex();
  return d->insertNew(QStringLiteral("Copy %1"),
                      [&] { return d->editor.copy(&source, folder, row); });
}

QString BoxLibraryModel::errorString() const {
  return d->error;
}

}  // namespace KR
