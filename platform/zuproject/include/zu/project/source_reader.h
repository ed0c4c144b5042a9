#ifndef ZU_PROJECT_SOURCE_READER_H
#define ZU_PROJECT_SOURCE_READER_H

#include <zu/project/zuproject_export.h>

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <memory>

namespace zu {
namespace project {

class ProjectModel;

/// Reads the files of a project model's source, as the model read it, on another thread:
/// for reading many files at once while the model stays with its own. It sees none of the
/// model's changes, so what it read at a path is what the model reads there only while
/// ProjectModel::showsSource() says so. Files it reads count as read by the model.
///
/// Make it on the model's thread, then use it from one other thread at a time (one reader
/// per thread); any number of readers and the model itself may read at once. Readers of a
/// directory never wait for each other; those of a zip take turns to decompress an entry,
/// since another libzip handle on a large archive costs more than it saves. The model must
/// outlive it and not be loaded or saved meanwhile.
class ZUPROJECT_EXPORT SourceReader {
public:
  /// A reader of model's source; one that finds nothing when the model has none.
  explicit SourceReader(const ProjectModel& model);
  ~SourceReader();
  SourceReader(const SourceReader&) = delete;
  SourceReader& operator=(const SourceReader&) = delete;

  /// Whether a regular file is at path, as ProjectModel::hasFile() tells.
  bool hasFile(const QString& path);
  /// The bytes of a file; a null QByteArray when it is absent, as ProjectModel::readFile().
  /// isFile, when given, tells whether a regular file is there (hasFile()), read or not.
  QByteArray readFile(const QString& path, bool* isFile = nullptr);
  /// The names of the subdirectories of dir, sorted byte-wise, as
  /// ProjectModel::getFileList(dir, true, false, false) gives them.
  QStringList directories(const QString& dir);

private:
  struct Private;
  std::unique_ptr<Private> d;
};

}  // namespace project
}  // namespace zu

#endif
