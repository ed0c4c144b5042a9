#include <zu/project/behavior_project.h>

#include "metadata_file.h"

namespace zu {
namespace project {

namespace {
const char* const kName = "Name";
const char* const kTag = "Tag";
}  // namespace

BehaviorProject::BehaviorProject(const Project& project) : m_project(project) {}

void BehaviorProject::setName(const std::string& name) {
  detail::editMetadataFile(m_project, [&](const KR::XmlElement::Ptr& root) {
    KR::XmlElement::Ptr element = root->firstChild(kName);
    if (element && element->hasText() && element->text() == name)
      return false;
    if (!element) {
      element.reset(new KR::XmlElement(kName));
      root->addChild(element);
    }
    element->setText(name, false);
    return true;
  });
}

std::string BehaviorProject::name() const {
  const KR::XmlElement::Ptr element =
      detail::readMetadataFile(m_project.metadataPath())->firstChild(kName);
  return element ? element->text() : std::string();
}

void BehaviorProject::addTag(const std::string& tag) {
  detail::editMetadataFile(m_project, [&](const KR::XmlElement::Ptr& root) {
    for (const KR::XmlElement::Ptr& element : root->children(kTag)) {
      if (element->text() == tag)
        return false;
    }
    KR::XmlElement::Ptr element(new KR::XmlElement(kTag));
    element->setText(tag, false);
    root->addChild(element);
    return true;
  });
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
