#ifndef KRBOXLIBRARY_BOX_LIBRARY_H
#define KRBOXLIBRARY_BOX_LIBRARY_H

#include <krboxlibrary/box_library_node.h>
#include <krboxlibrary/box_library_problem.h>
#include <krboxlibrary/krboxlibrary_export.h>
#include <zu/project/archive_format.h>
#include <zu/project/project_model.h>

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

namespace KR {

/// One box library, opened from a directory or an archive, or new. It owns the project
/// model holding the library's files and the root of its tree, and relays every change of
/// the tree through dataChanged().
class KRBOXLIBRARY_EXPORT BoxLibrary : public QObject {
  Q_OBJECT

public:
  /// The file form saveTo() writes.
  enum LibraryFormat {
    DirectoryFormat = 0,  ///< a directory tree
    ZipFormat = 1         ///< a zip archive
  };

  /// Opens the library at path (a directory or an archive), or creates a new, empty one when
  /// path is empty. A path that does not exist, is no archive or is damaged is logged as a
  /// warning (category "krboxlibrary") and leaves an empty library; other failures of the
  /// project model (an unreadable file, say) are thrown.
  explicit BoxLibrary(const QString& path = QString(), bool readOnly = false,
                      QObject* parent = nullptr);
  /// An empty library with other's flags and object parent; the content is not copied. Its
  /// project model is an object child of other's: when other goes, this library logs one
  /// warning and becomes an empty, unsaved library with a new model and a new root (nodes of
  /// the old root reach no files any more).
  BoxLibrary(const BoxLibrary& other);
  /// Takes a copy of other's files, flags and object parent, and reads a new tree from them.
  /// The new root's changes are not relayed to dataChanged().
  BoxLibrary& operator=(const BoxLibrary& other);
  /// Deletes the tree and the project model.
  ~BoxLibrary() override;

  /// The root of the tree; never null.
  BoxLibraryNode* boxRoot() const { return m_root; }
  /// The node reached from the root through the child indexes of indexPath; the root for an
  /// empty list, null as soon as an index is out of range.
  BoxLibraryNode* node(const QList<int>& indexPath) const;
  /// The project model holding the library's files.
  zu::project::ProjectModel* projectModel() const { return m_project; }
  /// The path the library was opened from or last saved to.
  QString path() const;
  /// Why the library could not be opened whole, then the kind of failure in parentheses:
  /// `entry "Motions\Crouch\box.bxd" has a backslash (corrupted file format)`. "" when it
  /// opened (and for a new library). A library with a file that is there but could not be
  /// read shows what it could read, and refuses to be saved.
  QString loadError() const { return m_loadError; }

  /// What reading the tree found in the files that it reconciled or skipped, in the order
  /// read: a listing that is no listing, a listed name without its directory, a box file that
  /// reads as a folder, file names that collide or that Windows cannot hold. Empty when the
  /// files read as they are stored. Set when the tree is read; edits do not change it.
  QList<BoxLibraryProblem> problems() const { return m_problems; }

  /// Whether the library was opened read-only and has not been saved elsewhere since.
  bool isReadOnly() const { return m_readOnly; }
  /// Whether the library holds a box that is a complete behavior.
  bool isBehaviorCompatible() const { return m_behaviorCompatible; }
  /// Sets the behavior-compatible flag; emits nothing.
  void setBehaviorCompatible(bool compatible) { m_behaviorCompatible = compatible; }

  /// The stored title, or the title made from path() when none is stored.
  QString title() const;
  /// Stores title and emits titleChanged() when it differs from title().
  void setTitle(const QString& title);
  /// The file name of path without one ".lbf" or ".vbk" extension (any letter case).
  static QString makeTitleFromPath(const QString& path);

  /// Writes the library back to path() in its current form. Throws the project model's
  /// exceptions; a failed save leaves the previous file as it was.
  void save();
  /// save(), writing this library's version also of the files in paths (inside the library)
  /// that another writer changed since it read them, instead of refusing with Conflict.
  void saveOverwriting(const QStringList& paths);
  /// Writes the library to path in format, which becomes its path; the title follows the new
  /// file name and the library is no longer read-only. Throws the project model's exceptions,
  /// also for a path inside the library or around it.
  void saveTo(const QString& path, LibraryFormat format);

  /// Writes every behavior box into destination, an existing directory on disk, as a behavior
  /// project at the box's path. A behavior that fails is skipped, and its directory removed
  /// when the export made it. Throws zu::project::PathNotFound when destination does not exist,
  /// zu::project::Exception when it is the library's directory or inside it.
  void exportBehaviors(const QString& destination) const;
  /// Appends to paths the path() of every behavior box at and below node, depth-first.
  static void xFindBehaviors(const BoxLibraryNode* node, QStringList& paths);

  /// How many threads read and parse a library's files while its tree is read, beside the
  /// caller's thread, which builds the nodes: as set by setReadThreads(), else as the
  /// KRBOX_READ_THREADS environment variable says, else one per core the process may use;
  /// at most 64. A zip is read on the caller's thread alone: its entries decompress one at
  /// a time, which leaves other threads nothing to gain.
  static int readThreads();
  /// Sets readThreads() for every library of the process; 0 reads on the caller's thread
  /// alone, and a negative count leaves it to the environment and the machine again.
  static void setReadThreads(int count);

signals:
  /// The title was changed by setTitle().
  void titleChanged(const QString& title);
  /// The library was written to its files by save(), saveOverwriting() or saveTo().
  void saved();
  /// node, somewhere in the tree, changed.
  void dataChanged(KR::BoxLibraryNode* node);

private:
  friend class BoxLibraryNode;

  void relayRoot();
  void replaceLostModel();
  void failOpening(const QString& path, const QString& reason, const char* kind);

  // Guarded: a copy-constructed library's model is an object child of the original's model
  // and may be deleted with it.
  QPointer<zu::project::ProjectModel> m_project;
  bool m_readOnly;
  bool m_behaviorCompatible;
  QPointer<BoxLibraryNode> m_root;
  QString m_loadError;
  QList<BoxLibraryProblem> m_problems;
};

/// The project model's archive format for format; ArchiveFormat_Auto for any other value.
KRBOXLIBRARY_EXPORT zu::project::ArchiveFormat libraryFormatToProjectFormat(
    BoxLibrary::LibraryFormat format);

}  // namespace KR

#endif
