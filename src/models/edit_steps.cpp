#include <krboxlibrary/box_data.h>
#include <krboxlibrary/box_library.h>
#include <krboxlibrary/box_library_model.h>
#include <krboxlibrary/box_library_node.h>
#include <zu/project/project_model.h>

#include "model_private.h"

#include <stdexcept>

namespace KR {

namespace {

// The undo stack keeps this many edits; older ones are forgotten.
constexpr std::size_t kMaxCommands = 200;

[[noreturn]] void outOfStep() {
  throw Refused{QStringLiteral("the undo stack is out of step with the tree")};
}

}  // namespace

std::optional<EditStep> BoxLibraryModel::Private::apply(EditStep& step) {
  BoxLibraryNode* folder = library->node(step.parent);
  BoxLibraryNode* node = folder ? folder->child(step.row) : nullptr;
  if (!folder || (step.kind != EditStep::Insert && !node))
    outOfStep();
  const auto refused = [this] { throw Refused{editor.errorString()}; };
  EditStep inverse;
  inverse.parent = step.parent;
  inverse.row = step.row;
  switch (step.kind) {
    case EditStep::Insert:
      if (!step.subtree ||
          !editor.copy(step.subtree.get(), folder, step.row, BoxLibraryEditor::ExactName))
        refused();
      step.subtree.reset();
      inverse.kind = EditStep::Remove;
      break;
    case EditStep::Remove: {
      inverse.kind = EditStep::Insert;
      try {
        inverse.subtree.reset(node->clone());
      } catch (const std::exception& e) {
        throw Refused{QString::fromUtf8(e.what())};
      }
      // A detached node takes a name as it is: "Box (3)" comes back as "Box (3)".
      inverse.subtree->setName(node->name());
      if (!editor.remove(node))
        refused();
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
      if (!to)
        outOfStep();
      inverse.kind = EditStep::Move;
      inverse.parent = step.toParent;
      inverse.row = step.toRow;
      inverse.toParent = step.parent;
      inverse.toRow = step.row;
      inverse.value = QString::fromUtf8(node->name().c_str());
      if (to == folder && step.toRow == step.row)
        return std::nullopt;
      if (!editor.move(node, to, step.toRow))
        refused();
      // An undone move brings back the name a sibling there made it give up.
      if (step.value.isValid() && step.value.toString() != inverse.value.toString() &&
          !editor.rename(node, step.value.toString(), BoxLibraryEditor::ExactName))
        refused();
      break;
    }
    case EditStep::Rename: {
      inverse.kind = EditStep::Rename;
      inverse.value = QString::fromUtf8(node->name().c_str());
      if (!editor.rename(node, step.value.toString(),
                         step.exact ? BoxLibraryEditor::ExactName : BoxLibraryEditor::NumberedName))
        refused();
      if (node->name() == inverse.value.toString().toStdString())
        return std::nullopt;
      break;
    }
    case EditStep::SetValue: {
      inverse.kind = EditStep::SetValue;
      inverse.role = step.role;
      inverse.value = q->data(q->index(step.row, 0, indexOf(folder)), step.role);
      if (inverse.value == step.value)
        return std::nullopt;
      bool done = false;
      if (step.role == BoxLibraryModel::ExpandedRole)
        done = editor.setExpanded(node, step.value.toBool());
      else if (step.role == Qt::ToolTipRole)
        done = editor.setTooltip(node, step.value.toString());
      else if (step.role == BoxLibraryModel::BitmapsRole)
        done = editor.setBitmaps(node, step.value.toStringList());
      else if (step.role == BoxLibraryModel::BitmapExpandedRole)
        done = editor.setBitmapExpanded(node, step.value.toBool());
      else
        outOfStep();
      if (!done)
        refused();
      break;
    }
  }
  return inverse;
}

void BoxLibraryModel::Private::rollBack(std::vector<EditStep>& undo) {
  for (auto it = undo.rbegin(); it != undo.rend(); ++it)
    apply(*it);
  undo.clear();
}

bool BoxLibraryModel::Private::perform(const QString& text,
                                       const std::function<void(EditCommand& command)>& body) {
  const StackState before = state();
  justMoved.clear();
  EditCommand command;
  command.text = text;
  try {
    body(command);
  } catch (const Refused& refusal) {
    try {
      rollBack(command.steps);
    } catch (const Refused&) {
      // What cannot be put back leaves rows the stack no longer knows.
      resetAll();
    }
    announce(before);
    return refuse(refusal.reason);
  }
  if (!command.steps.empty())
    push(std::move(command));
  announce(before);
  return true;
}

bool BoxLibraryModel::Private::perform(const QString& text, std::vector<EditStep> steps) {
  return perform(text, [this, &steps](EditCommand& command) {
    for (EditStep& step : steps) {
      if (std::optional<EditStep> inverse = apply(step))
        command.steps.push_back(std::move(*inverse));
    }
  });
}

EditStep BoxLibraryModel::Private::removeStep(const BoxLibraryNode* node) const {
  EditStep remove;
  remove.kind = EditStep::Remove;
  remove.parent = pathOf(node->parent());
  remove.row = rowOf(node);
  return remove;
}

QModelIndex BoxLibraryModel::Private::insertNew(const QString& text,
                                                const std::function<BoxLibraryNode*()>& create) {
  BoxLibraryNode* node = nullptr;
  const bool done = perform(text, [&](EditCommand& command) {
    node = create();
    if (!node)
      throw Refused{editor.errorString()};
    // The text names what was made, known only once it is.
    command.text =
        text.arg(QStringLiteral("\u201c%1\u201d").arg(QString::fromUtf8(node->name().c_str())));
    command.steps.push_back(removeStep(node));
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
  if (row == -1)
    row = target->childCount();
  if (row < 0 || row > target->childCount())
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
  // Nodes that end where they are make no edit at all.
  QList<BoxLibraryNode*> after = target->childList();
  for (BoxLibraryNode* node : nodes)
    after.removeAll(node);
  const int at = anchor ? static_cast<int>(after.indexOf(anchor)) : static_cast<int>(after.size());
  for (int i = 0; i < nodes.size(); ++i)
    after.insert(at + i, nodes.at(i));
  if (after == target->childList())
    return true;
  return perform(text, [&](EditCommand& command) {
    for (BoxLibraryNode* node : nodes) {
      const bool here = node->parent() == target;
      int to = anchor ? rowOf(anchor) : target->childCount();
      if (here && rowOf(node) < to)
        --to;
      EditStep step = moveStep(node, target, to);
      if (std::optional<EditStep> inverse = apply(step))
        command.steps.push_back(std::move(*inverse));
    }
  });
}

bool BoxLibraryModel::Private::insertCopies(const QList<const BoxLibraryNode*>& sources,
                                            BoxLibraryNode* target, int row, const QString& text) {
  if (row == -1)
    row = target->childCount();
  if (row < 0 || row > target->childCount())
    return refuse(QStringLiteral("no row %1 in the folder").arg(row));
  return perform(text, [&](EditCommand& command) {
    for (int i = 0; i < sources.size(); ++i) {
      const BoxLibraryNode* copy = editor.copy(sources.at(i), target, row + i);
      if (!copy)
        throw Refused{editor.errorString()};
      command.steps.push_back(removeStep(copy));
    }
  });
}

void BoxLibraryModel::Private::run(EditCommand& command) {
  const QString stale = changedSince(command);
  if (!stale.isEmpty())
    throw Refused{stale};
  std::vector<EditStep> inverse;
  inverse.reserve(command.steps.size());
  try {
    for (auto it = command.steps.rbegin(); it != command.steps.rend(); ++it) {
      if (std::optional<EditStep> step = apply(*it))
        inverse.push_back(std::move(*step));
    }
  } catch (const Refused&) {
    // The steps applied so far are put back, so the command stays as it was; what cannot
    // be put back leaves rows the stack no longer knows.
    try {
      rollBack(inverse);
    } catch (const Refused&) {
      resetAll();
    }
    throw;
  }
  command.steps = std::move(inverse);
  command.diskGeneration = diskGeneration;
}

void BoxLibraryModel::Private::push(EditCommand command) {
  command.diskGeneration = diskGeneration;
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
  return {done > 0, done<commands.size(), done> 0 ? commands[done - 1].text : QString(),
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
  } catch (const Refused& refusal) {
    d->refuse(QStringLiteral("Undo failed: %1").arg(refusal.reason));
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
  } catch (const Refused& refusal) {
    d->refuse(QStringLiteral("Redo failed: %1").arg(refusal.reason));
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
