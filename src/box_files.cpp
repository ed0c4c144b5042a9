#include <krboxlibrary/box_library_node.h>

#include <krboxlibrary/box_constants.h>
#include <krboxlibrary/box_data.h>
#include <krboxlibrary/box_library.h>
#include <krserial/xml_document.h>
#include <krserial/xml_element.h>
#include <zu/project/behavior_project.h>
#include <zu/project/file_system.h>
#include <zu/project/metadata.h>
#include <zu/project/project.h>
#include <zu/project/project_model.h>

#include "box_values.h"
#include "directory_read.h"
#include "refusal.h"
#include "text.h"
#include "tooltip_tags.h"
#include "vocabulary.h"

#include <boost/make_shared.hpp>

#include <cstdio>
#include <exception>
#include <map>
#include <string>

namespace KR {

namespace {

using namespace vocabulary;

}  // namespace

XmlElement::Ptr BoxLibraryNode::loadBox() const {
  zu::project::ProjectModel* model = project();
  if (!model)
    return XmlElement::Ptr();
  ModelFiles files(*model);
  QString file;
  const QByteArray bytes = readBoxFile(files, directoryPrefix(), file);
  if (bytes.isNull())
    return XmlElement::Ptr();
  const XmlDocument::Ptr document = XmlDocument::loadFromXmlString(
      std::string(bytes.constData(), static_cast<size_t>(bytes.size())), nullptr, nullptr);
  if (!document || !document->root() || !boxfile::refusal(*document->root()).isEmpty())
    return XmlElement::Ptr();
  // The document dies here, so its box element is the caller's own without a copy: free to
  // change without touching the file.
  return document->root()->firstChild(BoxConstants::a_boxBeacon);
}

QByteArray BoxLibraryNode::loadBoxData() const {
  zu::project::ProjectModel* model = project();
  if (!model)
    return QByteArray();
  ModelFiles files(*model);
  QString file;
  return readBoxFile(files, directoryPrefix(), file);
}

void BoxLibraryNode::setBoxDataInternal(boost::shared_ptr<BoxData> data) {
  // Data let go of belongs to its other holders alone, never also to this node.
  if (m_boxData && m_boxData->QObject::parent() == this)
    m_boxData->setParent(nullptr);
  m_boxData = data;
  if (!data)
    return;
  connect(data.get(), &BoxData::tooltipChanged, this, &BoxLibraryNode::onBoxDataChanged);
  connect(data.get(), &BoxData::bitmapsChanged, this, &BoxLibraryNode::onBoxDataChanged);
  connect(data.get(), &BoxData::bitmapExpandedChanged, this, &BoxLibraryNode::onBoxDataChanged);
}

void BoxLibraryNode::initBoxFromProject(const BoxValues& values) {
  m_expanded = false;
  setBoxDataInternal(boost::shared_ptr<BoxData>(new BoxData(this, values)));
  // One behavior is enough; loading never clears the flag.
  if (values.behavior) {
    if (BoxLibrary* owner = library())
      owner->setBehaviorCompatible(true);
  }
}

void BoxLibraryNode::onBoxDataChanged() {
  emit dataChanged(this);
}

boost::shared_ptr<BoxResourceList> BoxLibraryNode::resources() const {
  zu::project::ProjectModel* model = project();
  if (!model)
    return boost::shared_ptr<BoxResourceList>();
  auto list = boost::make_shared<BoxResourceList>();
  list->project = model;
  list->path = path();
  list->files = model->getFileList(list->path, false, true, false);
  list->files.removeAll(QLatin1String(kBoxFile));
  list->files.removeAll(QLatin1String(kBehaviorFile));
  list->files.removeAll(QLatin1String(kMetadataFile));
  // What a desktop system leaves in a box's directory is none of the box's resources.
  list->files.erase(std::remove_if(list->files.begin(), list->files.end(),
                                   [](const QString& file) {
                                     return zu::project::isSystemFile(text::toUtf8(file));
                                   }),
                    list->files.end());
  return list;
}

bool BoxLibraryNode::saveBox(boost::shared_ptr<XmlElement> element, bool isBehavior) {
  if (!element) {
    refusal::warn("saveBox", "Refused to save an empty box element at " + text::toLatin1(path()));
    return false;
  }
  QString file;
  const std::string error = writeBox(element, isBehavior, file);
  if (!error.empty() && !file.isEmpty())
    refusal::writeFailed("saveBox", text::toLatin1(file), error);
  return error.empty();
}

std::string BoxLibraryNode::writeBox(const boost::shared_ptr<XmlElement>& element, bool isBehavior,
                                     QString& file) {
  zu::project::ProjectModel* model = project();
  if (!model)
    return "the box has no project";
  const QString dir = directoryPrefix();

  // A node without a library (a clone, a taken node) cannot hold behaviors.
  const BoxLibrary* owner = library();
  const bool projectForm = isBehavior && owner && owner->isBehaviorCompatible();
  auto root = boost::make_shared<XmlElement>(projectForm ? BoxConstants::a_projectTag
                                                         : BoxConstants::a_boxBxdBeacon);
  if (projectForm)
    root->setAttribute(kSchemaAttribute, BoxConstants::a_projectXsd, true);
  root->setAttribute(kVersionAttribute, Serial::save(BoxConstants::a_currentBxdVersion), true);
  element->setAttribute(kNameAttribute, "root", false);
  root->addChild(element);
  const XmlDocument document(root);
  file = dir + QLatin1String(projectForm ? kBehaviorFile : kBoxFile);
  const QString other = dir + QLatin1String(projectForm ? kBoxFile : kBehaviorFile);
  // The whole document is made before the file is touched: one the writer refuses (nested
  // too deep to be read back) leaves the old file as it was.
  std::string bytes;
  std::string error;
  if (!document.saveToXmlString(bytes, &error))
    return error;
  try {
    model->writeFile(file, QByteArray(bytes.data(), static_cast<int>(bytes.size())));
    // Only one form's file may stay.
    if (model->hasFile(other))
      model->remove(other);
    if (!projectForm) {
      if (model->hasFile(dir + QLatin1String(kMetadataFile)))
        model->remove(dir + QLatin1String(kMetadataFile));
      return std::string();
    }
    writeBehaviorMetadata(*model, dir, *element);
  } catch (const std::exception& e) {
    return *e.what() ? e.what() : "unknown failure";
  }
  return std::string();
}

void BoxLibraryNode::writeBehaviorMetadata(zu::project::ProjectModel& model, const QString& dir,
                                           const XmlElement& element) const {
  const std::map<std::string, std::string> metadata = {
      {kTypeKey, BoxConstants::a_behaviorProjectType},
      {kVersionKey, BoxConstants::a_behaviorProjectVersion}};
  model.writeFile(dir + QLatin1String(kMetadataFile),
                  QByteArray(zu::project::serializeMetadata(metadata).c_str()));
  zu::project::BehaviorProject behavior(
      zu::project::Project(text::toUtf8(model.getFileLocalPath(dir))));
  behavior.setName(m_name);
  for (const std::string& tag : tooltipTags(element.attribute(kTooltipAttribute, std::string())))
    behavior.addTag(tag);
}

}  // namespace KR
