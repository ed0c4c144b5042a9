#ifndef KRBOXLIBRARY_BOX_LIBRARY_NODE_H
#define KRBOXLIBRARY_BOX_LIBRARY_NODE_H

#include <krboxlibrary/box_library_problem.h>
#include <krboxlibrary/krboxlibrary_export.h>

#include <QByteArray>
#include <QList>
#include <QMetaType>
#include <QObject>
#include <QString>
#include <QStringList>

#include <boost/shared_ptr.hpp>

#include <string>
#include <vector>

namespace zu {
namespace project {
class ProjectModel;
}
}  // namespace zu

namespace KR {

class BoxData;
class BoxLibrary;
class XmlElement;
// What a tree read takes from a node's files; internal.
struct BoxValues;
struct DirectoryRead;

/// The resource files of a box directory: every file in it but the box file and ".metadata".
/// Valid only while the library owning project is alive.
struct BoxResourceList {
  /// The project model holding the files (not owned).
  zu::project::ProjectModel* project = nullptr;
  /// The box directory inside project.
  QString path;
  /// The file names, relative to path.
  QStringList files;
};

/// What a new box is made of: handed to insertChild() or appendChild() to create a box node.
struct RootBoxDescription {
  /// The name wanted for the box (UTF-8); a sibling's name is avoided by numbering.
  std::string name;
  /// The box element ("Box"); it is not changed. An empty pointer creates nothing.
  boost::shared_ptr<const XmlElement> box;
  /// Files to copy into the new box's directory; may be empty.
  boost::shared_ptr<BoxResourceList> resources;
};

/// One entry of a box library's tree: a folder (a directory holding a folder listing,
/// "lbfinfo", and the directories of its children) or a box (a directory holding its box
/// file, described by a BoxData).
///
/// Structural changes are written to the project's files at once. A node relays the
/// dataChanged() signal of each attached child and of its box data, so a change anywhere in
/// a library reaches the library once per level.
///
/// Ownership: a node deletes the children still in its list when it is destroyed. A node
/// taken out with removeChild() or take() belongs to the caller. Box data is owned by its
/// shared pointers: it outlives its node if held elsewhere.
class KRBOXLIBRARY_EXPORT BoxLibraryNode : public QObject {
  Q_OBJECT

public:
  /// A detached, empty node: no parent, no library, no project, no children.
  BoxLibraryNode();
  /// The root node of library (which becomes its object parent); reads the whole tree from
  /// the library's project model at once.
  explicit BoxLibraryNode(BoxLibrary* library);
  /// Deletes the listed children that have no object parent; object children go with the
  /// QObject base.
  ~BoxLibraryNode() override;

  BoxLibraryNode(const BoxLibraryNode&) = delete;
  BoxLibraryNode& operator=(const BoxLibraryNode&) = delete;

  /// The file name of a display name: "%<>:\"/|?*" become "%" and two lower-case hex digits,
  /// and one trailing full stop, one leading and one trailing blank are escaped too.
  static std::string escapeFileName(const std::string& name);
  /// The display name of a file name: every "%" followed by two hex digits is decoded.
  static std::string unEscapeFileName(const std::string& fileName);
  /// name followed by " (number)".
  static std::string numberName(const std::string& name, int number);
  /// name without a trailing " (digits)" group.
  static std::string unNumberName(const std::string& name);
  /// Whether name can name a node: it is neither empty nor blank once unNumberName() has
  /// dropped its number, its file name is not one the library ("lbfinfo", ".metadata"),
  /// version control or macOS (".git", "CVS", "__MACOSX"...) keep for their own files, and
  /// it is at most 255 bytes long. Every operation that names a node refuses other names,
  /// logging one warning.
  static bool isUsableName(const std::string& name);
  /// Why name cannot name a node, as a clause ("it is empty without its number"); "" when
  /// it can.
  static std::string nameRefusal(const std::string& name);

  /// The display name (UTF-8), unique among the siblings.
  const std::string& name() const { return m_name; }
  /// The name of this node's directory inside its parent's directory (UTF-8); empty for a root.
  const std::string& fileName() const { return m_fileName; }
  /// The parent in the tree; null for a root or a detached node. QObject::parent() is the
  /// object owner, which need not be the same node.
  BoxLibraryNode* parent() const { return m_parent; }
  /// Whether the folder is shown expanded; false for a box.
  bool isExpanded() const { return m_expanded; }
  /// The number of children.
  int childCount() const { return static_cast<int>(m_children.size()); }
  /// The children in display order.
  const QList<BoxLibraryNode*>& childList() const { return m_children; }
  /// The box's description; null for a folder.
  const boost::shared_ptr<BoxData>& boxData() const { return m_boxData; }
  /// Whether this node is a box (it has box data) rather than a folder.
  bool isBox() const { return static_cast<bool>(m_boxData); }

  /// The position in the parent's children; 0 without a parent, -1 when the parent does not
  /// list this node.
  int index() const;
  /// The child at i; null when i is out of range.
  BoxLibraryNode* child(int i) const;
  /// The first child whose name equals name byte for byte; null if none.
  BoxLibraryNode* child(const std::string& name) const;
  /// The library this node belongs to; null for a detached node.
  BoxLibrary* library() const;
  /// The project model holding this node's files; null when there is none.
  zu::project::ProjectModel* project() const;
  /// The "/"-joined file names from below the root down to this node; empty for a root.
  QString path() const;

  /// Attaches node (a taken or cloned node) at index: it becomes this node's object child,
  /// takes a name unique among its new siblings, and its files are copied in. Returns node;
  /// null, with one warning logged, when node is null, still in a tree (or a library's
  /// root), has no usable name, or index is not in 0..childCount().
  BoxLibraryNode* insertChild(int index, BoxLibraryNode* node);
  /// insertChild() at the end.
  BoxLibraryNode* appendChild(BoxLibraryNode* node);
  /// Creates a new folder at index with a unique form of name; null when the name is not
  /// usable (isUsableName()).
  BoxLibraryNode* insertChild(int index, const std::string& name, bool expanded);
  /// Creates a new folder at the end; null when the name is not usable.
  BoxLibraryNode* appendChild(const std::string& name, bool expanded);
  /// Creates a box from description at index: its box data, a unique name, its box file and
  /// its resources. Null, with nothing changed, when the description has no box element or
  /// no usable name.
  BoxLibraryNode* insertChild(int index, const RootBoxDescription& description);
  /// insertChild() of a description at the end.
  BoxLibraryNode* appendChild(const RootBoxDescription& description);
  /// Removes the child at index and its directory. The child is not deleted: the caller
  /// owns it unless it is this node's object child. An index out of range is refused with a
  /// warning.
  void removeChild(int index);
  /// Detaches this node from its parent and library into a project of its own that holds
  /// a copy of its files, ready for insertChild() elsewhere. The old files, the old parent's
  /// listing and its relay of dataChanged() are left as they are. Null, with a warning, for a
  /// node without a parent.
  BoxLibraryNode* take();
  /// A detached copy of this node and its subtree, with a project of its own holding a copy of
  /// its files; the caller owns it. The copy's own box data announces nothing.
  BoxLibraryNode* clone() const;
  /// Removes this node's directory from its project.
  void unInit();
  /// Stores the expanded state and writes it to the folder listing.
  void setExpanded(bool expanded);

  /// Takes name, or its first free numbered form among the siblings, and the file name that
  /// goes with it. Any number name already carries is dropped first. Writes nothing.
  void initName(const std::string& name);
  /// Renames this node (to a unique form of name), moves its directory, rewrites the
  /// parent's listing so that the node keeps its place, and emits dataChanged(this). On a
  /// root only the name changes. A name that is not usable (isUsableName()) is refused:
  /// nothing changes, one warning is logged.
  void setName(const std::string& name);

  /// Writes this node's folder listing: its expanded state and its children's names in order.
  /// A listing that cannot be written is logged as an error (category "krboxlibrary") and
  /// the old one kept.
  void saveFolder();
  /// Reads this node and its whole subtree from its project, and rewrites the listings.
  void initFromProject();
  /// Appends a child read from the directory fileName; null when fileName is empty.
  BoxLibraryNode* appendChildFromProject(const std::string& fileName);
  /// Makes this node a new, empty folder in its project: name, directory and listing.
  void init(const std::string& name, bool expanded);
  /// Makes this node, already given its parent, a new box in its project from description.
  /// False, with a line logged, when the description has no box element or its box file
  /// cannot be written.
  bool init(const RootBoxDescription& description);

  /// Rewrites this node's own file (box file or folder listing). A failure is logged as an
  /// error (category "krboxlibrary") and gives false.
  bool save();
  /// save() for this node, then for a folder every node below it, depth-first. False only when
  /// this node's own file failed; failures below are logged and skipped.
  bool saveAll();

  /// A private copy of the box element of this node's box file ("behavior.bxd" when present,
  /// else "box.bxd"); null when there is no such file or it is not a current box file.
  boost::shared_ptr<XmlElement> loadBox() const;
  /// The bytes of the box file as stored; null without a project.
  QByteArray loadBoxData() const;
  /// Attaches data as this node's box data; its changes are then announced as dataChanged().
  void setBoxDataInternal(boost::shared_ptr<BoxData> data);
  /// The other files of this box's directory; null without a project.
  boost::shared_ptr<BoxResourceList> resources() const;
  /// Writes element (which gets the name "root" and is kept by the document) as this box's
  /// file: "behavior.bxd" with a ".metadata" for a behavior in a behavior-compatible library,
  /// "box.bxd" otherwise; the other form's file is removed then. The file is replaced only by
  /// a whole document: false, with the old file kept and one line logged (category
  /// "krboxlibrary"), when element is empty, the XML writer refuses the document or the
  /// project cannot take the file. False without a project.
  bool saveBox(boost::shared_ptr<XmlElement> element, bool isBehavior);

signals:
  /// node (this node or one below it) changed.
  void dataChanged(KR::BoxLibraryNode* node);

private slots:
  void onBoxDataChanged();

private:
  // path() followed by "/", or "" for the top of the project: where this node's files go.
  QString directoryPrefix() const;
  void initBoxFromProject(const BoxValues& values);
  // saveBox() without its log line: the reason of a failure, "" on success; file is set to
  // the box file meant, once known.
  std::string writeBox(const boost::shared_ptr<XmlElement>& element, bool isBehavior,
                       QString& file);
  void writeBehaviorMetadata(zu::project::ProjectModel& model, const QString& dir,
                             const XmlElement& element) const;
  // Writes the box file or the folder listing; logs a failure as coming from function.
  bool saveOwnFile(const char* function);
  friend class BoxLibrary;
  friend class BoxLibraryEditor;
  friend class BoxData;
  // The name wanted, or its first free numbered form among this folder's children other
  // than self; exact keeps a number the name carries when that form is free.
  std::string freeName(const std::string& wanted, bool exact, const BoxLibraryNode* self) const;
  std::vector<std::string> childNames() const;
  // Writes the listing of the folder at directory (a path prefix); the reason of a failure,
  // "" on success.
  static std::string writeListing(zu::project::ProjectModel& model, const QString& directory,
                                  bool expanded, const std::vector<std::string>& names);
  BoxLibraryNode* insertNewFolder(int index, const std::string& name, bool expanded);
  void relay(BoxLibraryNode* child);
  void initFolderFromProject(const QString& prefix, const DirectoryRead& read);
  // The file names of the folder's children in the order a read gives them (listed ones
  // first, then the rest) and its expanded state, from the listing and directories at
  // prefix; with report, what it reconciles goes to the library's problems.
  std::vector<std::string> readChildOrder(const QString& prefix, bool& expanded, bool report);
  // The same from what was read of the directory at prefix.
  std::vector<std::string> childOrder(const QString& prefix, const DirectoryRead& read,
                                      bool& expanded, bool report);
  // escapeFileName() of a name already in UTF-16, as listings hold them.
  static QString escapedName(const QString& name);
  // Hands a problem the tree read found to the library, when there is one; the node concerned
  // is this one, or its child of that display name.
  void reportProblem(BoxLibraryProblem::Kind kind, const QString& file, const QString& problem,
                     const QString& child = QString()) const;
  // Reports children whose file names collide, or that Windows cannot hold.
  void checkChildNames() const;

  zu::project::ProjectModel* m_ownProject = nullptr;
  BoxLibrary* m_library = nullptr;
  std::string m_name;
  std::string m_fileName;
  BoxLibraryNode* m_parent = nullptr;
  bool m_expanded = false;
  QList<BoxLibraryNode*> m_children;
  boost::shared_ptr<BoxData> m_boxData;
};

}  // namespace KR

Q_DECLARE_METATYPE(KR::BoxLibraryNode*)

#endif
