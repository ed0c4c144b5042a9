#include <zu/project/project.h>

#include "metadata_file.h"
#include "paths.h"

namespace zu {
namespace project {

Project::Project(const std::string& utf8Directory) : m_directory(utf8Directory) {}

std::string Project::directory() const {
  return m_directory;
}

std::string Project::metadataPath() const {
  return (detail::fs::path(m_directory) / ".metadata").native();
}

QString Project::metadata(const QString& key) const {
  return detail::entryValue(detail::readMetadataFile(metadataPath()), key);
}

void Project::setMetadata(const QString& key, const QString& value) {
  // Only this entry changes, so what others wrote (a behavior's name and tags) stays.
  detail::editMetadataFile(
      *this, [&](const KR::XmlElement::Ptr& root) { return detail::setEntry(root, key, value); });
}

}  // namespace project
}  // namespace zu
