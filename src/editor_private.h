#ifndef KRBOXLIBRARY_SRC_EDITOR_PRIVATE_H
#define KRBOXLIBRARY_SRC_EDITOR_PRIVATE_H

#include <krboxlibrary/box_data.h>
#include <krboxlibrary/box_library.h>
#include <krboxlibrary/box_library_editor.h>
#include <krboxlibrary/box_library_node.h>

#include <QPointer>
#include <QSet>
#include <QString>
#include <QStringList>

#include <string>
#include <type_traits>
#include <vector>

namespace KR {

// Each edit runs in three stages: checks, which change nothing; the files, undone when one
// fails; and last the tree in memory, which cannot fail, bracketed by the signals.
class BoxLibraryEditor::Private {
public:
  Private(BoxLibraryEditor* editor, BoxLibrary* library) : q(editor), library(library) {}

  bool refuse(const QString& reason) {
    error = reason;
    return false;
  }
  bool checkNode(const BoxLibraryNode* node);
  bool checkFolder(const BoxLibraryNode* folder);
  bool checkIndex(int& index, int count, const BoxLibraryNode* folder);
  // The name a node takes in folder (self excluded); "" with the refusal set when unusable.
  // A name a node already has (a copy's, a moved node's) was taken on reading: only a
  // form numbered anew is checked.
  std::string takeName(const BoxLibraryNode* folder, const QString& wanted, bool exact,
                       const BoxLibraryNode* self, bool existing = false);
  bool writeListing(const BoxLibraryNode* folder, bool expanded,
                    const std::vector<std::string>& names);
  // Attaches a node whose files are written, and announces it.
  BoxLibraryNode* attach(BoxLibraryNode* folder, int index, BoxLibraryNode* node);
  // Writes folder's listing with the node at index, then attaches it; on a failure the
  // node is discarded.
  BoxLibraryNode* finishInsert(BoxLibraryNode* folder, int index, BoxLibraryNode* node);
  // A node named name that reaches folder's files but is not in its list yet.
  BoxLibraryNode* newNode(BoxLibraryNode* folder, const std::string& name) {
    auto* node = new BoxLibraryNode();
    node->m_name = name;
    node->m_fileName = BoxLibraryNode::escapeFileName(name);
    node->m_parent = folder;
    return node;
  }
  // Removes the files of a node never attached, and deletes it; returns null.
  BoxLibraryNode* discard(BoxLibraryNode* node);
  // Writes value into the box file, then stores it in the box data and announces it
  // (value's type is not deduced: a QStringList must fit a QList<QString> member on Qt 5.)
  template <class T, class Write, class Signal>
  bool setValue(BoxLibraryNode* box, const char* what, T BoxData::*member,
                const typename std::common_type<T>::type& value, Write write, Signal changed);

  // Disk updates (disk_update.cpp). Guarded: a node noted as changed may go later in the
  // same update.
  using Changed = QList<QPointer<BoxLibraryNode>>;
  // node's own files were written by this editor: a change on disk there is a conflict.
  void touch(const BoxLibraryNode* node) { edited.insert(node); }
  void forgetEdits(const BoxLibraryNode* node);
  bool editedBelow(const BoxLibraryNode* node) const;
  BoxLibraryNode* nodeAt(const QString& path) const;
  // Whether the disk's files at path may replace what the model holds; a conflict when not.
  bool take(const QString& path, const BoxLibraryNode* node);
  void syncBox(BoxLibraryNode* box, Changed& changed);
  void syncFolder(BoxLibraryNode* folder, Changed& changed,
                  const BoxLibraryNode* replace = nullptr);
  void syncTree(BoxLibraryNode* node, Changed& changed);
  void removeChild(BoxLibraryNode* folder, int index);

  BoxLibraryEditor* q;
  QPointer<BoxLibrary> library;
  QString error;
  QSet<const BoxLibraryNode*> edited;
  QStringList conflicts;
  // While reloading, the model holds no changes of its own: nothing needs taking back.
  bool reloading = false;
};

}  // namespace KR

#endif
