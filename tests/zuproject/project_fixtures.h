#ifndef KRBOX_TESTS_ZUPROJECT_PROJECT_FIXTURES_H
#define KRBOX_TESTS_ZUPROJECT_PROJECT_FIXTURES_H

#include <zu/project/project_model.h>

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <map>
#include <vector>

#include "archive_builder.h"

namespace testutil {

/// A project's content: files with their bytes, and directories that hold nothing.
struct ProjectContent {
  std::map<QString, QByteArray> files;
  QStringList emptyDirs;

  /// Every directory, the parents of files included, sorted byte-wise.
  QStringList allDirs() const;
  /// Every file path, sorted byte-wise.
  QStringList filePaths() const;
};

/// Awkward names and bytes: nesting, empty directories, an empty file, spaces, '%',
/// accented and CJK names, NUL bytes.
ProjectContent sampleContent();

void fillModel(zu::project::ProjectModel& model, const ProjectContent& content);
void writeContentToDisk(const QString& root, const ProjectContent& content);
/// Entries for an archive of the content: the empty directories, then the files, whose
/// parent directories are left implicit as many real archives do.
std::vector<ArchiveEntry> contentEntries(const ProjectContent& content,
                                         const std::string& prefix = std::string());

/// Checks that a model holds exactly this content ('.metadata' aside).
void expectModelContent(const zu::project::ProjectModel& model, const ProjectContent& content);
/// Checks that a directory on disk holds exactly this content ('.metadata' aside).
void expectDiskContent(const QString& root, const ProjectContent& content);
/// Checks that a saved archive is of this kind, holds only relative paths and no links,
/// and exactly this content ('.metadata' aside).
void expectArchiveContent(const QString& path, ArchiveKind kind, const ProjectContent& content);

/// Every path in the model, files and directories, without '.metadata'.
QStringList modelEntries(const zu::project::ProjectModel& model);

/// Sorts by the UTF-8 bytes, the order getFileList promises.
QStringList sortedByUtf8(QStringList list);

/// Points TMPDIR (and so every new working copy) at a directory while alive, so that
/// whatever a model would write beside its working copy stays inside a test's own tree.
class ScopedTempRoot {
public:
  explicit ScopedTempRoot(const QString& directory);
  ~ScopedTempRoot();
  ScopedTempRoot(const ScopedTempRoot&) = delete;
  ScopedTempRoot& operator=(const ScopedTempRoot&) = delete;

private:
  QByteArray m_previous;
  bool m_hadPrevious;
};

/// The forms a project can be saved in, for parameterised tests.
struct FormCase {
  zu::project::ArchiveFormat format;
  const char* name;
};
const std::vector<FormCase>& allForms();
bool isArchiveForm(zu::project::ArchiveFormat format);
ArchiveKind archiveKindOf(zu::project::ArchiveFormat format);
/// A target name for the form: "project" plus the form's usual suffix.
QString projectFileName(zu::project::ArchiveFormat format);

}  // namespace testutil

#endif
