#ifndef ZU_PROJECT_PROJECT_MODEL_H
#define ZU_PROJECT_PROJECT_MODEL_H

#include <zu/project/archive_format.h>
#include <zu/project/exceptions.h>
#include <zu/project/zuproject_export.h>

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QStringList>

#include <cstdio>
#include <memory>

namespace zu {
namespace project {

/// A virtual file tree over a project's source: reads come from the source in place (a
/// directory where it is, a zip entry by entry; tar forms are extracted into scratch), and
/// the model holds its own changes until save(), which back to the same source writes
/// only what changed. Nothing else on disk changes before a save.
///
/// Paths inside a model are relative, "/"-separated and normalised ("./a/../b" is "b").
/// A path that would leave the model reads as absent, and operations that change
/// something throw PathNotFound for it.
class ZUPROJECT_EXPORT ProjectModel : public QObject {
  Q_OBJECT

public:
  /// An empty project with no source path.
  explicit ProjectModel(QObject* parent = nullptr);
  /// A copy of other's view (sharing its source), metadata, source path and form; no object
  /// parent. Neither sees the other's later changes or saves.
  ProjectModel(const ProjectModel& other);
  ProjectModel& operator=(const ProjectModel&) = delete;
  /// Drops the changes and removes the scratch directory; costs what was changed.
  ~ProjectModel() override;

  /// Replaces the content by a directory or an archive (ArchiveFormat_Auto recognises both).
  /// Throws PathNotFound, UnsupportedFormat (also for an archive entry that is encrypted or
  /// compressed in a method no reader here knows) or CorruptedFile; a failed load leaves the
  /// model empty and without a source path. Symbolic links in a directory are skipped, and
  /// so is the metadata of version control and of macOS (".git", ".hg", ".svn", ".bzr",
  /// "_darcs", "CVS", "__MACOSX" at any depth), which no path of the model can name. An
  /// archive whose top holds nothing but one folder, and that folder a box library's root
  /// listing "lbfinfo", is read as the library inside that folder.
  void load(const QString& path, ArchiveFormat format);
  /// Writes the project to path ("" is the source path) in format (Current keeps the current
  /// form, Auto chooses by file name); back to the same archive, a wrapping folder stays. The
  /// previous file or directory at path is replaced only once the new one is complete, and
  /// every other model of this process reading there keeps what it shows. Throws when path
  /// exists and overwrite is false, when path is inside the source or holds it (a copy of a
  /// project into itself), and CorruptedFile, writing nothing, when a file of the source
  /// could not be read. Back to the source it holds the source's SourceLock (waiting up to
  /// 10 s, else Busy) and throws Conflict, writing nothing, when another writer changed a
  /// file it would replace or remove (or the archive) since the model read it; files it
  /// leaves alone may have changed. Once another model of this process (a copy, say) saved
  /// over the source, this one's save writes its whole view: the last save wins.
  void save(const QString& path, ArchiveFormat format, bool overwrite);

  /// The path the project was loaded from or last saved to; empty for a new project.
  QString getSourcePath() const;
  /// The form of the source: a directory, an archive form, or Auto when unknown.
  ArchiveFormat getSourceFormat() const;
  /// The first file of the source that is there but could not be read (a damaged entry, a
  /// file its user may not read), with the reason; "" while every read succeeded. Such a
  /// model does not read whole, and refuses to save.
  QString readFailure() const;
  /// Whether another writer, or another model of this process, changed the source since the
  /// model read it (a file it read, or the archive). load() of getSourcePath() takes their
  /// changes and drops the model's own.
  bool sourceChanged() const;
  /// The files of the source that another writer changed, made or removed since the model
  /// read them (paths inside the project), or the archive's own path for an archive.
  QStringList changedInSource() const;
  /// Makes what is on disk now at each of paths (a file, or a directory with all below it)
  /// what the model shows and counts as read, for a model read from a directory: its own
  /// changes there are dropped, and a save no longer takes another writer's change there for
  /// a conflict. Returns the paths it left as they are: those the model made, moved or
  /// copied in itself, and all of them for a source that is no directory.
  QStringList takeFromSource(const QStringList& paths);
  /// Counts what is on disk now at each of paths as read, keeping the model's own changes
  /// there: a save then writes them over another writer's instead of throwing Conflict. For
  /// an archive, the whole archive as it is now, whatever paths.
  void acceptSourceChanges(const QStringList& paths);
  /// The names of the subdirectories of dir in the source as it is now, whatever the model
  /// changed; for a directory source read again from disk. Empty when dir is not there.
  QStringList sourceDirectories(const QString& dir) const;

  /// Whether what the model shows at path, and below it, is its source as read: no change of
  /// the model lies there. A SourceReader reads there what the model would.
  bool showsSource(const QString& path) const;

  /// A metadata value; "" when unset.
  QString getMetadata(const QString& key) const;
  /// Sets a metadata value, written at once to the ".metadata" file at the top.
  void setMetadata(const QString& key, const QString& value);

  /// Opens a file of the project with std::fopen's modes; null on failure.
  /// Writing modes create missing parent directories. The caller closes the stream.
  FILE* fopen(const QString& path, const char* mode);
  /// Whether a regular file is at path.
  bool hasFile(const QString& path) const;
  /// Whether a directory is at path ("" is the top and always exists).
  bool hasDir(const QString& path) const;
  /// The entries below dir, relative to it and sorted byte-wise; directories and/or files,
  /// only the direct entries or all of them.
  QStringList getFileList(const QString& dir, bool includeDirectories, bool includeFiles,
                          bool recursive) const;
  /// Creates a directory (and its parents with parents true); no error when it exists.
  void mkdir(const QString& path, bool parents);
  /// Removes a file or a whole tree; PathNotFound when absent. Removing "" empties the project.
  void remove(const QString& path);
  /// Moves a file or a tree inside the project, creating the target's parents. As in a file
  /// manager, a move into itself or onto a folder that holds it is refused, changing nothing.
  void move(const QString& from, const QString& to, bool overwrite);
  /// Copies a file or a tree from source (which may be this model) to destinationPath.
  /// With overwrite true, a tree is merged into an existing directory, files replaced.
  /// Within this model, a copy into itself or onto a folder that holds it is refused, as is
  /// a tree that would bring the name ".zuproject-pending" to the top; nothing changes then.
  void importFile(const ProjectModel* source, const QString& sourcePath,
                  const QString& destinationPath, bool overwrite);
  /// Copies a file or a tree of the project to diskPath, whose parent must exist.
  /// With overwrite true, a tree is merged into an existing directory, files replaced.
  void exportFile(const QString& path, const QString& diskPath, bool overwrite);
  /// The bytes of a file; a null QByteArray when it is absent.
  QByteArray readFile(const QString& path) const;
  /// Replaces a file's content, creating missing parent directories.
  void writeFile(const QString& path, const QByteArray& data);
  /// The absolute path in scratch of a file or subtree, brought there on first use; the
  /// model reads and writes it there from then on. "" for a path absent or leaving it.
  QString getFileLocalPath(const QString& path) const;

private:
  friend class SourceReader;
  struct Private;
  std::unique_ptr<Private> d;
};

}  // namespace project
}  // namespace zu

#endif
