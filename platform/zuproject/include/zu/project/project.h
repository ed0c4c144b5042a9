#ifndef ZU_PROJECT_PROJECT_H
#define ZU_PROJECT_PROJECT_H

#include <zu/project/zuproject_export.h>

#include <QString>

#include <string>

namespace zu {
namespace project {

/// The project description of a directory on disk: the ".metadata" file inside it.
class ZUPROJECT_EXPORT Project {
public:
  /// Describes the project in this directory (UTF-8 path); nothing is read or written yet.
  explicit Project(const std::string& utf8Directory);

  /// The directory, as given.
  std::string directory() const;
  /// The ".metadata" file's path.
  std::string metadataPath() const;
  /// A metadata value; "" when unset or when there is no ".metadata" file.
  QString metadata(const QString& key) const;
  /// Sets a metadata value and writes the file at once, keeping everything else in it.
  /// Throws PathNotFound when the directory does not exist.
  void setMetadata(const QString& key, const QString& value);

private:
  std::string m_directory;
};

}  // namespace project
}  // namespace zu

#endif
