#ifndef KRBOXLIBRARY_SRC_MODELS_MODEL_PRIVATE_H
#define KRBOXLIBRARY_SRC_MODELS_MODEL_PRIVATE_H

#include <krboxlibrary/box_library.h>
#include <krboxlibrary/box_library_editor.h>
#include <krboxlibrary/box_library_model.h>
#include <krboxlibrary/box_library_node.h>

#include <QDateTime>
#include <QElapsedTimer>
#include <QHash>
#include <QList>
#include <QMimeData>
#include <QPersistentModelIndex>
#include <QPointer>
#include <QSet>
#include <QString>
#include <QTimer>
#include <QVariant>

#include "directory_watch.h"

#include <functional>
#include <memory>
#include <optional>
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
  QVariant value;       // SetValue: the value; Rename: the name; Move: the name after, if any
  bool exact = true;    // Rename: the name exactly when free (undo), or numbered (a user's)
  std::unique_ptr<BoxLibraryNode> subtree;  // Insert: the detached copy to insert
};

/// One undo step: the steps that undo it (or, once undone, redo it), applied last first.
struct EditCommand {
  QString text;
  std::vector<EditStep> steps;
  // The model's count of updates from disk when the steps last matched the rows.
  quint64 diskGeneration = 0;
};

/// Whether node is ancestor or below it.
inline bool isWithin(const BoxLibraryNode* node, const BoxLibraryNode* ancestor) {
  for (; node; node = node->parent()) {
    if (node == ancestor)
      return true;
  }
  return false;
}

/// An edit the editor refused, or an undo step out of step with the tree.
struct Refused {
  QString reason;
};

class BoxLibraryModel::Private {
public:
  Private(BoxLibraryModel* model, BoxLibrary* library)
      : q(model), library(library), editor(library) {}

  // Rows.
  int rowOf(const BoxLibraryNode* node) const;
  QModelIndex indexOf(const BoxLibraryNode* node) const;
  QList<int> pathOf(const BoxLibraryNode* node) const;
  void forgetRows(const BoxLibraryNode* folder) { rows.erase(folder); }
  void forgetSubtree(const BoxLibraryNode* node);
  BoxLibraryNode* folderAt(const QModelIndex& parent, QString* error) const;
  // The editor's changes of child lists, as the model's row signals.
  void followEditor();

  // Edits (edit_steps.cpp).
  /// Applies step; what undoes it, or nothing when the step changed nothing. Throws Refused.
  std::optional<EditStep> apply(EditStep& step);
  /// Runs body, which applies steps and appends what undoes each to the command's steps, as
  /// one undo step named text (body may name it better). A step refused rolls back the ones
  /// before it, and the edit is refused.
  bool perform(const QString& text, const std::function<void(EditCommand& command)>& body);
  /// perform() of steps that do not depend on each other.
  bool perform(const QString& text, std::vector<EditStep> steps);
  /// Inserts what create() makes, or refuses with the editor's reason; its index. text
  /// names the new node with "%1".
  QModelIndex insertNew(const QString& text, const std::function<BoxLibraryNode*()>& create);
  EditStep removeStep(const BoxLibraryNode* node) const;
  EditStep moveStep(BoxLibraryNode* node, BoxLibraryNode* target, int rowAfterLeaving) const;
  /// Moves nodes, in order, into target before what is at row now (-1: at the end).
  bool moveNodes(const QList<BoxLibraryNode*>& nodes, BoxLibraryNode* target, int row,
                 const QString& text);
  bool insertCopies(const QList<const BoxLibraryNode*>& sources, BoxLibraryNode* target, int row,
                    const QString& text);
  bool refuse(const QString& reason);
  // Applies a command's steps last first and keeps their inverses; rolled back when one is
  // refused, which throws Refused on.
  void run(EditCommand& command);
  void rollBack(std::vector<EditStep>& undo);
  void push(EditCommand command);
  void resetAll();
  // Emits the undo stack's signals for what changed since before.
  struct StackState {
    bool canUndo, canRedo;
    QString undoText, redoText;
  };
  StackState state() const;
  void announce(const StackState& before);

  // Drags name nodes by an id of their own, so that a drop finds them wherever they went.
  QList<quint64> dragIds(const QList<BoxLibraryNode*>& nodes) const;
  BoxLibraryNode* draggedNode(quint64 id) const;
  /// The nodes a drop carries and their model; false, with why, when one is gone.
  bool droppedNodes(const QMimeData& data, BoxLibraryModel*& model, QList<BoxLibraryNode*>& nodes,
                    QString& why) const;

  // Following the files on disk (disk_follow.cpp).
  void connectFollowing();
  void startFollowing();
  // Watches node's directory and those below it. At once: a change made before its
  // directory is watched would never be seen.
  void watch(const BoxLibraryNode* node);
  void watchOne(const BoxLibraryNode* node, const QString& path);
  void watchTree(const BoxLibraryNode* node, const QString& path);
  // The first watches go a slice at a time, so that the event loop stays live on a large
  // library; the files as read then tell what changed before a watch was there.
  void watchSlice();
  void catchUp();
  void watchAll() { watch(library->boxRoot()); }
  void onDiskEvent(const BoxLibraryNode* node);
  void applyDiskChanges();
  bool archiveForm() const { return followsArchive; }
  void stopFollowing();
  bool hasUnsavedEdits(const BoxLibraryNode* node) const;
  // Why an undo step may no longer apply: a node it goes through changed on disk since.
  QString changedSince(const EditCommand& command) const;

  BoxLibraryModel* q;
  BoxLibrary* library;
  BoxLibraryEditor editor;
  std::unique_ptr<DirectoryWatch> watcher;
  // The watch of each node's directory, and a hash of the path it was added at: a directory
  // renamed or moved keeps its watch under the old name, which must go before the new one.
  struct Watched {
    int id;
    size_t path;
  };
  std::unordered_map<const BoxLibraryNode*, Watched> watched;
  // Following starts from the event loop, so that building the model stays cheap.
  QTimer startTimer;
  QTimer sliceTimer;
  std::vector<std::pair<QPointer<BoxLibraryNode>, QString>> toWatch;
  // What is followed: the library's path and form when following began.
  QString followedPath;
  bool followsArchive = false;
  QTimer diskTimer;
  QElapsedTimer firstDiskEvent;
  QSet<QString> pendingDirectories;
  QDateTime archiveStamp;
  bool archiveChanged = false;
  QElapsedTimer sinceSave;
  QStringList conflicted;
  quint64 diskGeneration = 0;
  std::unordered_map<const BoxLibraryNode*, quint64> changedOnDiskAt;
  // Per folder with many children, node -> row, rebuilt when a lookup finds it stale.
  mutable std::unordered_map<const BoxLibraryNode*, QHash<const BoxLibraryNode*, int>> rows;
  std::vector<EditCommand> commands;
  std::size_t done = 0;  // commands[0, done) can be undone
  QString error;
  quint64 id = 0;
  mutable QHash<quint64, QPointer<BoxLibraryNode>> dragged;
  mutable quint64 nextDragId = 0;
  // Where a node being moved comes from, between the editor's two signals.
  const BoxLibraryNode* movingFrom = nullptr;
  // The nodes a move drop just moved: a view's removeRows() of them right after is a no-op.
  QList<QPersistentModelIndex> justMoved;
};

}  // namespace KR

#endif
