#ifndef KRBOX_TESTS_ZUPROJECT_PROJECT_FIXTURES_H
#define KRBOX_TESTS_ZUPROJECT_PROJECT_FIXTURES_H

#include <gtest/gtest.h>
#include <zu/project/exceptions.h>
#include <zu/project/project_model.h>

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>
#include <QTemporaryDir>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "archive_builder.h"
#include "test_files.h"

namespace testutil {

/// Every entry below a project's top: directories as "path/" without bytes, files with theirs.
using Tree = std::map<QString, QByteArray>;

/// Awkward names and bytes: nesting, empty directories, an empty file, spaces, '%',
/// accented and CJK names, NUL bytes, incompressible data.
Tree sampleTree();
/// A tree from "dir/ file=bytes ...", for names and bytes without spaces.
Tree treeOf(const char* listing);
/// A tree as such a line, with every directory, for expectations that read at a glance.
std::string flat(const Tree& tree);
void fillModel(zu::project::ProjectModel& model, const Tree& tree);
void writeTree(const QString& root, const Tree& tree);
/// Archive entries for a tree, each name behind prefix. Directories that hold something are
/// left implicit, as many real archives do.
std::vector<ArchiveEntry> treeEntries(const Tree& tree, const std::string& prefix);

/// What a model holds, '.metadata' aside.
Tree modelTree(const zu::project::ProjectModel& model);
/// What is on disk at path: a tree, or a single file under the key "".
Tree diskSnapshot(const QString& path);

/// The forms a project can be saved in, for parameterised tests.
struct Form {
  zu::project::ArchiveFormat format;
  const char* name;
  const char* fileName;  ///< A usual name for a project in this form.
  ArchiveKind kind;      ///< Meaningless for a directory.
};
extern const std::vector<Form> kForms;
inline std::string formName(const ::testing::TestParamInfo<Form>& info) {
  return info.param.name;
}

/// What a saved project holds, '.metadata' aside. An archive must be of the form's kind;
/// links and names that are not plain relative paths show up as differences.
Tree savedTree(const QString& path, const Form& form);

/// Points TMPDIR (and so every new scratch directory) at a directory while alive, so that
/// whatever a model would write beside its scratch stays inside a test's own tree.
class ScopedTempRoot {
public:
  explicit ScopedTempRoot(const QString& directory)
      : m_previous(qgetenv("TMPDIR")), m_hadPrevious(qEnvironmentVariableIsSet("TMPDIR")) {
    QDir().mkpath(directory);
    qputenv("TMPDIR", QFile::encodeName(directory));
  }
  ~ScopedTempRoot() { m_hadPrevious ? qputenv("TMPDIR", m_previous) : qunsetenv("TMPDIR"); }

private:
  QByteArray m_previous;
  bool m_hadPrevious;
};

}  // namespace testutil

#endif
