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
  const KR::XmlElement::Ptr entry =
      detail::findEntry(detail::readMetadataFile(metadataPath()), detail::toUtf8(key));
  return entry ? QString::fromStdString(entry->attribute("value", "")) : QString("");
}

void Project::setMetadata(const QString& key, const QString& value) {
  // Only this entry changes, so what others wrote (a behavior's name and tags) stays.
  detail::editMetadataFile(*this, [&](const KR::XmlElement::Ptr& root) {
    const std::string keyText = detail::toUtf8(key);
    KR::XmlElement::Ptr entry = detail::findEntry(root, keyText);
    const std::string valueText = detail::toUtf8(value);
    // Rewriting a value it already has would only cost a write.
    if (entry && entry->hasAttribute("value") && entry->attribute("value", "") == valueText)
      return false;
    if (!entry) {
      entry.reset(new KR::XmlElement("Entry"));
      entry->setAttribute("key", keyText, true);
      root->addChild(entry);
    }
    entry->setAttribute("value", valueText, false);
    return true;
  });
}

}  // namespace project
}  // namespace zu
