#ifndef KRBOXLIBRARY_BOX_LIBRARY_MODEL_H
#define KRBOXLIBRARY_BOX_LIBRARY_MODEL_H

#include <krboxlibrary/krboxmodels_export.h>

#include <QAbstractItemModel>
#include <QHash>
#include <QList>
#include <QModelIndex>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <memory>

class QMimeData;

namespace KR {

class BoxLibrary;
class BoxLibraryEditor;
class BoxLibraryNode;

/// The item model of a library panel: one row per node of one KR::BoxLibrary, in listing
/// order, one column. index(), parent() and rowCount() take constant time, in folders of
/// tens of thousands of entries too.
///
/// Every edit goes through the model's KR::BoxLibraryEditor, whose signals become the
/// begin/end signals of the rows touched, and is recorded on the undo stack: rename (setData() of
/// the display role), tooltip, bitmaps and expanded flags (setData() of their roles), new folder,
/// adding a box from a box file, copying a node of any library, removal (removeRows()), moves
/// (moveRows() and drag and drop with mimeType()) and drops of box files (text/uri-list).
/// A change made to a box's KR::BoxData elsewhere reaches the model as dataChanged(), and
/// edits made through editor() reach it as row signals (without an undo step). Structural
/// edits made on the nodes directly are not seen: call reset() after them.
///
/// An edit the tree cannot take is refused: it returns false (or an invalid index),
/// changes nothing, and editRefused() tells why.
///
/// What another writer changes in the library's files while the model is open reaches the
/// rows by itself, as row signals (see followsDisk()).
class KRBOXMODELS_EXPORT BoxLibraryModel : public QAbstractItemModel {
  Q_OBJECT
  Q_PROPERTY(bool canUndo READ canUndo NOTIFY canUndoChanged)
  Q_PROPERTY(bool canRedo READ canRedo NOTIFY canRedoChanged)
  Q_PROPERTY(QString undoText READ undoText NOTIFY undoTextChanged)
  Q_PROPERTY(QString redoText READ redoText NOTIFY redoTextChanged)

public:
  /// The roles beyond Qt's: display and edit roles are the name, the tooltip role the
  /// tooltip.
  enum Role {
    KindRole = Qt::UserRole + 1,  ///< "box" or "folder"
    BehaviorRole,                 ///< bool: whether the box is a behavior
    BitmapsRole,                  ///< QStringList: the box's bitmaps; editable
    BitmapExpandedRole,           ///< bool: whether the box shows its expanded bitmap; editable
    TagsRole,                     ///< QStringList: the tags of the box's tooltip
    ExpandedRole,                 ///< bool: whether the folder is expanded; editable
    PathRole                      ///< QString: the node's path in the library's files
  };

  /// The MIME type of the nodes the model drags.
  static const char kNodesMimeType[];

  /// A model over library, which must outlive it.
  explicit BoxLibraryModel(BoxLibrary* library, QObject* parent = nullptr);
  /// Forgets the undo stack; the library stays as it is.
  ~BoxLibraryModel() override;

  /// The library shown.
  BoxLibrary* library() const;
  /// The editor every edit of the model goes through.
  BoxLibraryEditor* editor() const;
  /// The node at index; the library's root for an invalid index.
  BoxLibraryNode* node(const QModelIndex& index) const;
  /// The index of node, a node of this library; invalid for the root or another node.
  QModelIndex indexOf(const BoxLibraryNode* node) const;
  /// Rebuilds the rows from the library's tree and clears the undo stack.
  void reset();

  /// The child at row of parent (column 0 only); constant time.
  QModelIndex index(int row, int column, const QModelIndex& parent = QModelIndex()) const override;
  /// The folder holding child; constant time.
  QModelIndex parent(const QModelIndex& child) const override;
  /// The number of children of the folder parent; none for a box.
  int rowCount(const QModelIndex& parent = QModelIndex()) const override;
  /// One column.
  int columnCount(const QModelIndex& parent = QModelIndex()) const override;
  /// Whether parent has children.
  bool hasChildren(const QModelIndex& parent = QModelIndex()) const override;
  /// The value of role (see Role) for the node at index.
  QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
  /// Renames (display or edit role), sets the tooltip, bitmaps, bitmap-expanded or expanded
  /// flag; one undo step.
  bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
  /// Every entry is editable and can be dragged; folders (and the top) take drops.
  Qt::ItemFlags flags(const QModelIndex& index) const override;
  /// Qt's role names, with "name", "tooltip" and one per Role.
  QHash<int, QByteArray> roleNames() const override;

  /// Removes count entries and everything below them, one undo step that brings them back
  /// with their files.
  bool removeRows(int row, int count, const QModelIndex& parent = QModelIndex()) override;
  /// Moves count entries to the folder destinationParent, before its row destinationChild
  /// (counted before the move); one undo step. A folder cannot go into itself.
  bool moveRows(const QModelIndex& sourceParent, int sourceRow, int count,
                const QModelIndex& destinationParent, int destinationChild) override;

  /// Moves and copies.
  Qt::DropActions supportedDragActions() const override;
  /// Moves and copies.
  Qt::DropActions supportedDropActions() const override;
  /// kNodesMimeType and "text/uri-list".
  QStringList mimeTypes() const override;
  /// The nodes at indexes, as kNodesMimeType.
  QMimeData* mimeData(const QModelIndexList& indexes) const override;
  /// Whether dropMimeData() would take data: nodes of a model of this program, or box files,
  /// into a folder and not into a dragged folder itself.
  bool canDropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                       const QModelIndex& parent) const override;
  /// Moves (MoveAction) or copies (CopyAction) the dragged nodes of this model, copies those
  /// of another model in the same program, and adds the box files of a text/uri-list, into
  /// the folder parent before row (-1: at the end). One undo step. A view that removes the
  /// dragged rows after a move drop finds them already moved: that removeRows() is a no-op.
  bool dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                    const QModelIndex& parent) override;

  /// Adds a folder named name (numbered when a sibling has it) to the folder parent before
  /// row (-1: at the end); its index, or an invalid one when refused.
  QModelIndex insertFolder(const QModelIndex& parent, int row, const QString& name);
  /// Adds the box of the box file boxFile (a local path), with the resource files resources,
  /// to the folder parent before row (-1: at the end). The box takes the name in the file,
  /// else that of the file's directory for "box.bxd" and "behavior.bxd", else the file's
  /// base name. Its index, or an invalid one when refused.
  QModelIndex addBoxFile(const QModelIndex& parent, int row, const QString& boxFile,
                         const QStringList& resources = QStringList());
  /// Adds a copy of source, a node of any library, with its subtree and files, to the folder
  /// parent before row (-1: at the end). Its index, or an invalid one when refused.
  QModelIndex insertCopy(const QModelIndex& parent, int row, const BoxLibraryNode& source);

  /// Whether there is an edit to undo.
  bool canUndo() const;
  /// Whether there is an undone edit to redo.
  bool canRedo() const;
  /// What undo() would undo, e.g. "Rename “Crouch”"; empty when nothing.
  QString undoText() const;
  /// What redo() would redo; empty when nothing.
  QString redoText() const;
  /// Why the last refused edit was refused.
  QString errorString() const;

  /// Whether the rows follow the library's files on disk: when another writer (a pull, a
  /// script, a second window) changes them, the model reads again what changed, within a
  /// second, and applies the difference as row signals, never a reset. On by default, for a
  /// library read from a directory or an archive.
  bool followsDisk() const;
  /// Turns following the files on disk on or off.
  void setFollowsDisk(bool follows);
  /// Reads again what changed on disk at once, without waiting for the file watcher.
  void updateFromDisk();
  /// Drops the edits not saved yet and shows the library as it is on disk; clears the undo
  /// stack. False, with errorString(), when the files cannot be read again.
  bool reloadFromDisk();
  /// Saves the library in place, keeping this model's version of the files that changed on
  /// disk too (those of conflictOnDisk()). False, with errorString(), when the save fails.
  bool saveOverwriting();

public slots:
  /// Undoes the last edit.
  void undo();
  /// Redoes the last undone edit.
  void redo();
  /// Forgets every edit and undone edit.
  void clearUndoStack();

signals:
  /// canUndo() changed.
  void canUndoChanged(bool canUndo);
  /// canRedo() changed.
  void canRedoChanged(bool canRedo);
  /// undoText() changed.
  void undoTextChanged(const QString& undoText);
  /// redoText() changed.
  void redoTextChanged(const QString& redoText);
  /// An edit was refused, for reason; nothing changed.
  void editRefused(const QString& reason);
  /// Another writer changed the library's files at paths (directories inside the library,
  /// "" for the top) and the rows now show it.
  void changedOnDisk(const QStringList& paths);
  /// Another writer changed files at paths that this model changed too and has not saved:
  /// the rows keep the model's version until reloadFromDisk() or saveOverwriting().
  void conflictOnDisk(const QStringList& paths);

private:
  class Private;
  friend class Private;
  std::unique_ptr<Private> d;
};

}  // namespace KR

#endif
