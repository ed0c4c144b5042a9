#ifndef KRBOXLIBRARY_SRC_MODELS_MODEL_PRIVATE_H
#define KRBOXLIBRARY_SRC_MODELS_MODEL_PRIVATE_H

#include <krboxlibrary/box_library.h>
#include <krboxlibrary/box_library_model.h>
#include <krboxlibrary/box_library_node.h>

#include <QHash>
#include <QList>
#include <QPersistentModelIndex>
#include <QString>
#include <QVariant>

#include <functional>
#include <memory>
#include <unordered_map>
#include <vector>

namespace KR {

/// One change of the tree, addressed by row paths (rows from the root down), so that it
/// still applies after the nodes it names were removed and brought back as new objects.
/// Applying a step returns the step that undoes it.
struct EditStep {
  enum Kind { Insert, Remove, Move, Rename, SetValue };
  Kind kind = Insert;
  QList<int> parent;    // Insert, Remove, Move: the folder; Rename, SetValue: the node's folder
  int row = 0;          // the row in parent
  QList<int> toParent;  // Move: the target folder, as a path once the node has left
  int toRow = 0;        // Move: the row in toParent once the node has left
  int role = 0;         // SetValue
  QVariant value;       // SetValue: the value; Rename: the name
  std::unique_ptr<BoxLibraryNode> subtree;  // Insert: the detached copy to insert
};

/// One undo step: the steps that undo it (or, once undone, redo it), applied last first.
struct EditCommand {
  QString text;
  std::vector<EditStep> steps;
};

class BoxLibraryModel::Private {
public:
  Private(BoxLibraryModel* model, BoxLibrary* library) : q(model), library(library) {}

  // Rows.
  int rowOf(const BoxLibraryNode* node) const;
  QModelIndex indexOf(const BoxLibraryNode* node) const;
  QList<int> pathOf(const BoxLibraryNode* node) const;
  void forgetRows(const BoxLibraryNode* folder) { rows.erase(folder); }
  void forgetSubtree(const BoxLibraryNode* node);
  BoxLibraryNode* folderAt(const QModelIndex& parent, QString* error) const;

  // Edits (edit_steps.cpp).
  EditStep apply(EditStep& step);
  /// Runs steps as one undo step named text. False when one throws: the views are reset and
  /// the undo stack forgotten, since the tree may be half changed.
  bool perform(const QString& text, std::vector<EditStep> steps);
  /// perform() for edits whose steps depend on the ones before: body applies them itself
  /// and appends what undoes each to undo.
  bool perform(const QString& text, const std::function<void(std::vector<EditStep>& undo)>& body);
  /// Inserts what create() makes in folder at row as one undo step; its index.
  QModelIndex insertNew(const QString& text, BoxLibraryNode* folder, int row,
                        const std::function<BoxLibraryNode*(BoxLibraryNode*, int)>& create);
  EditStep moveStep(BoxLibraryNode* node, BoxLibraryNode* target, int rowAfterLeaving) const;
  /// Moves nodes, in order, into target before what is at row now (-1: at the end).
  bool moveNodes(const QList<BoxLibraryNode*>& nodes, BoxLibraryNode* target, int row,
                 const QString& text);
  bool insertCopies(const QList<const BoxLibraryNode*>& sources, BoxLibraryNode* target, int row,
                    const QString& text);
  bool refuse(const QString& reason);
  void run(EditCommand& command);
  void push(EditCommand command);
  void resetAll();
  // Emits the undo stack's signals for what changed since before.
  struct StackState {
    bool canUndo, canRedo;
    QString undoText, redoText;
  };
  StackState state() const;
  void announce(const StackState& before);

  BoxLibraryModel* q;
  BoxLibrary* library;
  // Per folder with many children, node -> row, rebuilt when a lookup finds it stale.
  mutable std::unordered_map<const BoxLibraryNode*, QHash<const BoxLibraryNode*, int>> rows;
  std::vector<EditCommand> commands;
  std::size_t done = 0;  // commands[0, done) can be undone
  QString error;
  quint64 id = 0;
  // The nodes a move drop just moved: a view's removeRows() of them right after is a no-op.
  QList<QPersistentModelIndex> justMoved;
};

}  // namespace KR

#endif
