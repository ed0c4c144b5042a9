#ifndef KRBOXLIBRARY_BOX_LIBRARY_EDITOR_H
#define KRBOXLIBRARY_BOX_LIBRARY_EDITOR_H

#include <krboxlibrary/box_library_node.h>
#include <krboxlibrary/krboxlibrary_export.h>

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>

namespace KR {

class BoxLibrary;

/// Complete edits of one open library, for every front end (a panel, a command line, a
/// script). Each edit checks everything first (the nodes, the index, the name, a folder
/// moved into itself), then changes every file it touches (the node's directory, both
/// listings of a move, the listing after a rename) and last the tree. It returns what it
/// made, or false/null with errorString() saying why; a refused edit changes nothing, in
/// memory or in the files, and emits nothing.
///
/// The nodes announce their changes as always (BoxLibraryNode::dataChanged()). The
/// editor's own signals bracket each change of a child list, for item models.
///
/// An index is a position among the folder's children, -1 meaning after the last. For a
/// move it counts the folder's children once the node has left its old place.
class KRBOXLIBRARY_EXPORT BoxLibraryEditor : public QObject {
  Q_OBJECT

public:
  /// How an edit names the node it makes or renames.
  enum Naming {
    /// The name, or its first free numbered form; a number it carries is dropped first,
    /// so a copy of "Box (3)" is named from "Box" again.
    NumberedName,
    /// The name exactly as given when no sibling has it; otherwise as NumberedName.
    ExactName
  };

  /// An editor of library, which must outlive it.
  explicit BoxLibraryEditor(BoxLibrary* library, QObject* parent = nullptr);
  ~BoxLibraryEditor() override;

  /// The library edited; null once it is gone.
  BoxLibrary* library() const;
  /// Why the last refused edit was refused; "" after an edit that was made.
  QString errorString() const;

  /// Why name cannot name a node of a library (empty once unnumbered, blank, a name the
  /// library or version control keeps for its own files, or a file name longer than a file
  /// system takes); "" when it can.
  static QString nameRefusal(const QString& name);

  /// A new folder in folder at index; null when refused.
  BoxLibraryNode* newFolder(BoxLibraryNode* folder, int index, const QString& name,
                            bool expanded = true);
  /// A new box made from description, with its resources, in folder at index.
  BoxLibraryNode* addBox(BoxLibraryNode* folder, int index, const RootBoxDescription& description);
  /// A new box read from the box file boxFile (a local path), with the files resources
  /// copied into its directory, in folder at index. The box takes the name in the file,
  /// else that of the file's directory for "box.bxd" and "behavior.bxd", else the file's
  /// base name.
  BoxLibraryNode* addBoxFile(BoxLibraryNode* folder, int index, const QString& boxFile,
                             const QStringList& resources = QStringList());
  /// The boxes of the box files boxFiles (local paths) as a file manager drops them, in
  /// folder from index on: "box.bxd" and "behavior.bxd" bring the other files of their
  /// directory as resources. Every file is read before a box is made; empty when refused.
  QList<BoxLibraryNode*> addBoxFiles(BoxLibraryNode* folder, int index,
                                     const QStringList& boxFiles);
  /// A copy of source, a node of any library or a detached one, with its subtree and files,
  /// in folder at index. A folder cannot be copied into itself or below itself.
  BoxLibraryNode* copy(const BoxLibraryNode* source, BoxLibraryNode* folder, int index,
                       Naming naming = NumberedName);
  /// Renames node; the parent's listing keeps it in its place.
  bool rename(BoxLibraryNode* node, const QString& name, Naming naming = NumberedName);
  /// Moves node into folder at index, keeping its name unless a sibling there has it.
  bool move(BoxLibraryNode* node, BoxLibraryNode* folder, int index);
  /// Removes node with everything below it and its files, and deletes it.
  bool remove(BoxLibraryNode* node);
  /// Sets the tooltip of the box node.
  bool setTooltip(BoxLibraryNode* box, const QString& tooltip);
  /// Sets the bitmaps of the box node.
  bool setBitmaps(BoxLibraryNode* box, const QStringList& bitmaps);
  /// Sets whether the box node shows its expanded bitmap.
  bool setBitmapExpanded(BoxLibraryNode* box, bool expanded);
  /// Sets whether the folder is shown expanded.
  bool setExpanded(BoxLibraryNode* folder, bool expanded);

  /// Brings the tree up to date with what another writer left on disk in directories (the
  /// directories of nodes inside the library, as BoxLibraryNode::path() gives them, "" for
  /// the top), read as opening the library would read them: a folder's children are
  /// inserted, removed and moved and its expanded state set, a box's values are set, with
  /// this editor's signals and the box data's, and every node that did not change stays the
  /// same object. For a library read from a directory; nothing is written but the listings
  /// a read rewrites. A node this editor changed since the library was opened, saved or
  /// reloaded is left as it is: its directory is in conflicts(). Returns the nodes changed.
  QList<BoxLibraryNode*> updateFromDisk(const QStringList& directories);
  /// The directories the last updateFromDisk() left because this editor changed them too.
  QStringList conflicts() const;
  /// Whether this editor changed node's own files (its box file, or its listing, name or
  /// place) since the library was opened, saved or reloaded.
  bool hasUnsavedEdit(const BoxLibraryNode* node) const;
  /// Drops every change not saved, the editor's and others', and brings the tree up to date
  /// with the library's files as they are on disk now, the same way as updateFromDisk().
  /// False, with errorString(), when the files cannot be read again (the tree is kept).
  bool reloadFromDisk();

signals:
  /// A node is about to be inserted into folder at index.
  void nodeAboutToBeInserted(KR::BoxLibraryNode* folder, int index);
  /// node was inserted.
  void nodeInserted(KR::BoxLibraryNode* node);
  /// node is about to be removed (and then deleted).
  void nodeAboutToBeRemoved(KR::BoxLibraryNode* node);
  /// The child at index of folder was removed.
  void nodeRemoved(KR::BoxLibraryNode* folder, int index);
  /// node is about to move into folder, to index once it has left its place.
  void nodeAboutToBeMoved(KR::BoxLibraryNode* node, KR::BoxLibraryNode* folder, int index);
  /// node was moved.
  void nodeMoved(KR::BoxLibraryNode* node);
  /// The expanded state of folder changed.
  void expandedChanged(KR::BoxLibraryNode* folder);

private:
  class Private;
  std::unique_ptr<Private> d;
};

}  // namespace KR

#endif
