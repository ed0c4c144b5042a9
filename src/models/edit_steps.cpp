#include <krboxlibrary/box_data.h>
#include <krboxlibrary/box_library.h>
#include <krboxlibrary/box_library_model.h>
#include <krboxlibrary/box_library_node.h>
#include <zu/project/project_model.h>

#include "model_private.h"

#include <stdexcept>

namespace KR {

namespace {

// Ends a begin...() of the model when the scope ends, thrown out of or not.
class EndOnExit {
public:
  explicit EndOnExit(std::function<void()> end) : m_end(std::move(end)) {}
  ~EndOnExit() { m_end(); }
  EndOnExit(const EndOnExit&) = delete;
  EndOnExit& operator=(const EndOnExit&) = delete;

private:
  std::function<void()> m_end;
};

// The undo stack keeps this many edits; older ones are forgotten.
constexpr std::size_t kMaxCommands = 200;

[[noreturn]] void outOfStep() {
  throw std::logic_error("the undo stack is out of step with the tree");
}

bool isWithin(const BoxLibraryNode* node, const BoxLibraryNode* ancestor) {
  for (; node; node = node->parent()) {
    if (node == ancestor)
      return true;
  }
  return false;
}

}  // namespace

EditStep BoxLibraryModel::Private::apply(EditStep& step) {
  BoxLibraryNode* folder = library->node(step.parent);
  BoxLibraryNode* node = folder ? folder->child(step.row) : nullptr;
  if (!folder || (step.kind != EditStep::Insert && !node))
    outOfStep();
  EditStep inverse;
  inverse.parent = step.parent;
  inverse.row = step.row;
  switch (step.kind) {
    case EditStep::Insert: {
      if (!step.subtree || step.row > folder->childCount())
        outOfStep();
      {
        q->beginInsertRows(indexOf(folder), step.row, step.row);
        const EndOnExit end([this] { q->endInsertRows(); });
        node = folder->insertChild(step.row, step.subtree.release());
        forgetRows(folder);
      }
      // A copy's box data is not attached to its node: announce its changes from now on.
      if (node->isBox())
        node->setBoxDataInternal(node->boxData());
      inverse.kind = EditStep::Remove;
      break;
    }
    case EditStep::Remove: {
      inverse.kind = EditStep::Insert;
      inverse.subtree.reset(node->clone());
      q->beginRemoveRows(indexOf(folder), step.row, step.row);
      const EndOnExit end([this] { q->endRemoveRows(); });
      forgetSubtree(node);
      folder->removeChild(step.row);
      forgetRows(folder);
      delete node;
      break;
    }
    case EditStep::Move: {
      // toParent is counted without the node: where the node still is, the rows after it
      // are one more.
      QList<int> target = step.toParent;
      const int depth = static_cast<int>(step.parent.size());
      if (target.size() > depth && target.mid(0, depth) == step.parent && target[depth] >= step.row)
        ++target[depth];
      BoxLibraryNode* to = library->node(target);
      if (!to || to->isBox() || isWithin(to, node) || step.toRow > to->childCount() - (to == folder))
        outOfStep();
      inverse.kind = EditStep::Move;
      inverse.parent = step.toParent;
      inverse.row = step.toRow;
      inverse.toParent = step.parent;
      inverse.toRow = step.row;
      if (to == folder && step.toRow == step.row)
        break;
      const int before = to == folder && step.toRow > step.row ? step.toRow + 1 : step.toRow;
      if (!q->beginMoveRows(indexOf(folder), step.row, step.row, indexOf(to), before))
        outOfStep();
      const std::string oldName = node->name();
      {
        const EndOnExit end([this] { q->endMoveRows(); });
        // take() copies the files out but leaves the old directory, listing and relay.
        const QString oldPath = node->path();
        std::unique_ptr<BoxLibraryNode> taken(node->take());
        forgetRows(folder);
        library->projectModel()->remove(oldPath);
        folder->saveFolder();
        QObject::disconnect(taken.get(), &BoxLibraryNode::dataChanged, folder,
                            &BoxLibraryNode::dataChanged);
        to->insertChild(step.toRow, taken.release());
        forgetRows(to);
      }
      // A sibling of the same name in the new folder numbers it.
      if (node->name() != oldName) {
        const QModelIndex index = indexOf(node);
        emit q->dataChanged(index, index);
      }
      break;
    }
    case EditStep::Rename:
      inverse.kind = EditStep::Rename;
      inverse.value = QString::fromUtf8(node->name().c_str());
      node->setName(step.value.toString().toUtf8().toStdString());
      // The listing names children by name.
      folder->saveFolder();
      break;
    case EditStep::SetValue: {
      inverse.kind = EditStep::SetValue;
      inverse.role = step.role;
      BoxData* box = node->boxData().get();
      if (step.role == BoxLibraryModel::ExpandedRole) {
        inverse.value = node->isExpanded();
        node->setExpanded(step.value.toBool());
        const QModelIndex index = indexOf(node);
        emit q->dataChanged(index, index, {BoxLibraryModel::ExpandedRole});
        break;
      }
      if (!box)
        outOfStep();
      // The box data's setters announce the change through the library.
      if (step.role == Qt::ToolTipRole) {
        inverse.value = box->tooltip();
        box->setTooltip(step.value.toString());
      } else if (step.role == BoxLibraryModel::BitmapsRole) {
        inverse.value = QStringList(box->bitmaps());
        box->setBitmaps(step.value.toStringList());
      } else if (step.role == BoxLibraryModel::BitmapExpandedRole) {
        inverse.value = box->bitmapExpanded();
        box->setBitmapExpanded(step.value.toBool());
      } else {
        outOfStep();
      }
      break;
    }
  }
  return inverse;
}

bool BoxLibraryModel::Private::perform(
    const QString& text, const std::function<void(std::vector<EditStep>& undo)>& body) {
  const StackState before = state();
  justMoved.clear();
  EditCommand command;
  command.text = text;
  try {
    body(command.steps);
  } catch (const std::exception& e) {
    resetAll();
    announce(before);
    return refuse(QStringLiteral("%1 failed: %2").arg(text, QString::fromUtf8(e.what())));
  }
  if (!command.steps.empty())
    push(std::move(command));
  announce(before);
  return true;
}

bool BoxLibraryModel::Private::perform(const QString& text, std::vector<EditStep> steps) {
  return perform(text, [this, &steps](std::vector<EditStep>& undo) {
    for (EditStep& step : steps)
      undo.push_back(apply(step));
  });
}

QModelIndex BoxLibraryModel::Private::insertNew(
    const QString& text, BoxLibraryNode* folder, int row,
    const std::function<BoxLibraryNode*(BoxLibraryNode*, int)>& create) {
  if (row < 0)
    row = folder->childCount();
  if (row > folder->childCount())
    return refuse(QStringLiteral("no row %1 in the folder").arg(row)), QModelIndex();
  BoxLibraryNode* node = nullptr;
  const bool done = perform(text, [&](std::vector<EditStep>& undo) {
    {
      q->beginInsertRows(indexOf(folder), row, row);
      const EndOnExit end([this] { q->endInsertRows(); });
      node = create(folder, row);
      forgetRows(folder);
    }
    EditStep remove;
    remove.kind = EditStep::Remove;
    remove.parent = pathOf(folder);
    remove.row = row;
    undo.push_back(std::move(remove));
  });
  return done ? indexOf(node) : QModelIndex();
}

EditStep BoxLibraryModel::Private::moveStep(BoxLibraryNode* node, BoxLibraryNode* target,
                                            int rowAfterLeaving) const {
  EditStep step;
  step.kind = EditStep::Move;
  step.parent = pathOf(node->parent());
  step.row = rowOf(node);
  step.toParent = pathOf(target);
  // Counted without the node: the rows after it move up one.
  const int depth = static_cast<int>(step.parent.size());
  if (step.toParent.size() > depth && step.toParent.mid(0, depth) == step.parent &&
      step.toParent[depth] > step.row)
    --step.toParent[depth];
  step.toRow = rowAfterLeaving;
  return step;
}

bool BoxLibraryModel::Private::moveNodes(const QList<BoxLibraryNode*>& nodes,
                                         BoxLibraryNode* target, int row, const QString& text) {
  if (row < 0)
    row = target->childCount();
  if (row > target->childCount())
    return refuse(QStringLiteral("no row %1 in the folder").arg(row));
  for (const BoxLibraryNode* node : nodes) {
    if (!node->parent())
      return refuse(QStringLiteral("the top of the library cannot move"));
    if (isWithin(target, node))
      return refuse(QStringLiteral("a folder cannot go into itself or below itself"));
  }
  // The nodes go, in order, before the first child at or after row that stays.
  BoxLibraryNode* anchor = nullptr;
  for (int i = row; i < target->childCount() && !anchor; ++i) {
    if (!nodes.contains(target->child(i)))
      anchor = target->child(i);
  }
  const bool done = perform(text, [&](std::vector<EditStep>& undo) {
    for (BoxLibraryNode* node : nodes) {
      const bool here = node->parent() == target;
      int to = anchor ? rowOf(anchor) : target->childCount();
      if (here && rowOf(node) < to)
        --to;
      if (here && rowOf(node) == to)
        continue;
      EditStep step = moveStep(node, target, to);
      undo.push_back(apply(step));
    }
  });
  if (done) {
    for (const BoxLibraryNode* node : nodes)
      justMoved.append(QPersistentModelIndex(indexOf(node)));
  }
  return done;
}

bool BoxLibraryModel::Private::insertCopies(const QList<const BoxLibraryNode*>& sources,
                                            BoxLibraryNode* target, int row, const QString& text) {
  if (row < 0)
    row = target->childCount();
  if (row > target->childCount())
    return refuse(QStringLiteral("no row %1 in the folder").arg(row));
  return perform(text, [&](std::vector<EditStep>& undo) {
    // Copied before any is inserted, so that a folder copied into itself is copied once.
    std::vector<std::unique_ptr<BoxLibraryNode>> copies;
    for (const BoxLibraryNode* source : sources)
      copies.emplace_back(source->clone());
    for (std::size_t i = 0; i < copies.size(); ++i) {
      EditStep insert;
      insert.kind = EditStep::Insert;
      insert.parent = pathOf(target);
      insert.row = row + static_cast<int>(i);
      insert.subtree = std::move(copies[i]);
      undo.push_back(apply(insert));
    }
  });
}

void BoxLibraryModel::Private::run(EditCommand& command) {
  std::vector<EditStep> inverse;
  inverse.reserve(command.steps.size());
  for (auto it = command.steps.rbegin(); it != command.steps.rend(); ++it)
    inverse.push_back(apply(*it));
  command.steps = std::move(inverse);
}

void BoxLibraryModel::Private::push(EditCommand command) {
  commands.resize(done);
  commands.push_back(std::move(command));
  if (commands.size() > kMaxCommands)
    commands.erase(commands.begin());
  done = commands.size();
}

void BoxLibraryModel::Private::resetAll() {
  q->beginResetModel();
  rows.clear();
  commands.clear();
  done = 0;
  justMoved.clear();
  q->endResetModel();
}

BoxLibraryModel::Private::StackState BoxLibraryModel::Private::state() const {
  return {done > 0, done < commands.size(), done > 0 ? commands[done - 1].text : QString(),
          done < commands.size() ? commands[done].text : QString()};
}

void BoxLibraryModel::Private::announce(const StackState& before) {
  const StackState now = state();
  if (now.canUndo != before.canUndo)
    emit q->canUndoChanged(now.canUndo);
  if (now.canRedo != before.canRedo)
    emit q->canRedoChanged(now.canRedo);
  if (now.undoText != before.undoText)
    emit q->undoTextChanged(now.undoText);
  if (now.redoText != before.redoText)
    emit q->redoTextChanged(now.redoText);
}

bool BoxLibraryModel::canUndo() const {
  return d->done > 0;
}

bool BoxLibraryModel::canRedo() const {
  return d->done < d->commands.size();
}

QString BoxLibraryModel::undoText() const {
  return d->state().undoText;
}

QString BoxLibraryModel::redoText() const {
  return d->state().redoText;
}

void BoxLibraryModel::undo() {
  if (!canUndo())
    return;
  const Private::StackState before = d->state();
  d->justMoved.clear();
  try {
    d->run(d->commands[d->done - 1]);
    --d->done;
  } catch (const std::exception& e) {
    d->resetAll();
    d->refuse(QStringLiteral("Undo failed: %1").arg(QString::fromUtf8(e.what())));
  }
  d->announce(before);
}

void BoxLibraryModel::redo() {
  if (!canRedo())
    return;
  const Private::StackState before = d->state();
  d->justMoved.clear();
  try {
    d->run(d->commands[d->done]);
    ++d->done;
  } catch (const std::exception& e) {
    d->resetAll();
    d->refuse(QStringLiteral("Redo failed: %1").arg(QString::fromUtf8(e.what())));
  }
  d->announce(before);
}

void BoxLibraryModel::clearUndoStack() {
  const Private::StackState before = d->state();
  d->commands.clear();
  d->done = 0;
  d->announce(before);
}

}  // namespace KR
