#ifndef KRBOXLIBRARY_SRC_DIRECTORY_READ_H
#define KRBOXLIBRARY_SRC_DIRECTORY_READ_H

// What a tree read takes from one directory of a library's project, read the same way on
// the caller's thread through the project model and on a worker through a reader of the
// model's source.

#include "box_values.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <optional>

namespace zu {
namespace project {
class ProjectModel;
}  // namespace project
}  // namespace zu

namespace KR {

/// The files a read goes through.
class DirectoryFiles {
public:
  virtual ~DirectoryFiles() = default;
  virtual bool hasFile(const QString& path) = 0;
  /// A null array when absent; isFile, when given, tells whether a file is there, read or
  /// not.
  virtual QByteArray readFile(const QString& path, bool* isFile = nullptr) = 0;
  /// Byte-wise sorted names.
  virtual QStringList directories(const QString& dir) = 0;
};

/// Reads through a project model, on its thread.
class ModelFiles : public DirectoryFiles {
public:
  explicit ModelFiles(zu::project::ProjectModel& model) : m_model(model) {}
  bool hasFile(const QString& path) override;
  QByteArray readFile(const QString& path, bool* isFile = nullptr) override;
  QStringList directories(const QString& dir) override;

private:
  zu::project::ProjectModel& m_model;
};

/// What one directory holds for a tree read.
struct DirectoryRead {
  QString boxFile;               // the box file looked for
  std::optional<BoxValues> box;  // its values, when the directory reads as a box
  QString unread;                // why the box file there does not read; "" when none is there
  bool ignoredBoxFile = false;   // a box.bxd lies beside the behavior.bxd that was read
  // The rest only for a folder:
  QByteArray listing;        // null when there is none
  bool listingFile = false;  // whether a file is where the listing goes, read or not
  QStringList directories;   // its subdirectories, sorted byte-wise
};

/// The bytes of the box file of the directory at prefix ("" or ending in "/"), a null array
/// when there is none; file takes the box file meant.
QByteArray readBoxFile(DirectoryFiles& files, const QString& prefix, QString& file);
/// The box part of the directory at prefix.
DirectoryRead readBoxDirectory(DirectoryFiles& files, const QString& prefix);
/// The folder part of it, into read.
void readFolderDirectory(DirectoryFiles& files, const QString& prefix, DirectoryRead& read);
/// The whole of it: the box part, and the folder part when it is no box.
DirectoryRead readDirectory(DirectoryFiles& files, const QString& prefix);
/// The values a box file's bytes give, or nothing with the reason in problem.
std::optional<BoxValues> readBoxValues(const QByteArray& bytes, QString& problem);

}  // namespace KR

#endif
