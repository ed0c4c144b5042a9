#include <zu/project/behavior_project.h>

#include <zu/project/exceptions.h>

#include "metadata_file.h"
#include "paths.h"

namespace zu {
namespace project {

namespace {
const char* const kName = "Name";
const char* const kTag = "Tag";

void requireDirectory(const Project& project) {
  std::error_code error;
  if (project.directory().empty() || !detail::fs::is_directory(project.directory(), error))
    throw PathNotFound(project.directory());
}
}  // namespace

BehaviorProject::BehaviorProject(const Project& project) : m_project(project) {}

void BehaviorProject::setName(const std::string& name) {
  requireDirectory(m_project);
  const KR::XmlElement::Ptr root = detail::readMetadataFile(m_project.metadataPath());
  KR::XmlElement::Ptr element = root->firstChild(kName);
  if (!element) {
    element.reset(new KR::XmlElement(kName));
    root->addChild(element);
  }
  element->setText(name, false);
  detail::writeMetadataFile(m_project.metadataPath(), root);
}

std::string BehaviorProject::name() const {
  const KR::XmlElement::Ptr element =
      detail::readMetadataFile(m_project.metadataPath())->firstChild(kName);
  return element ? element->text() : std::string();
}

void BehaviorProject::addTag(const std::string& tag) {
  requireDirectory(m_project);
  const KR::XmlElement::Ptr root = detail::readMetadataFile(m_project.metadataPath());
  for (const KR::XmlElement::Ptr& element : root->children(kTag)) {
    if (element->text() == tag)
      return;
  }
  KR::XmlElement::Ptr element(new KR::XmlElement(kTag));
  element->setText(tag, false);
  root->addChild(element);
  detail::writeMetadataFile(m_project.metadataPath(), root);
}

std::vector<std::string> BehaviorProject::tags() const {
  std::vector<std::string> result;
  for (const KR::XmlElement::Ptr& element :
       detail::readMetadataFile(m_project.metadataPath())->children(kTag))
    result.push_back(element->text());
  return result;
}

}  // namespace project
}  // namespace zu
