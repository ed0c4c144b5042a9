#include <krboxlibrary/box_library.h>

#include <krboxlibrary/box_constants.h>
#include <krboxlibrary/box_data.h>
#include <krserial/serial.h>
#include <krserial/xml_document.h>
#include <krserial/xml_element.h>
#include <zu/os.h>
#include <zu/project/behavior_project.h>
#include <zu/project/exceptions.h>
#include <zu/project/file_system.h>
#include <zu/project/progress_scope.h>
#include <zu/project/project.h>

#include "text.h"
#include "vocabulary.h"

#include <QDir>
#include <QFileInfo>

#include <boost/make_shared.hpp>

#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>

namespace KR {

namespace {

using namespace vocabulary;

// An exported behavior is a project of the behavior format's version 2, whatever version the
// library's box files have.
const int kExportedBxdVersion = 2;
const char kCannotOpenBehavior[] = "Could not open box behavior.bxd for writing.";

// The box element of the box file copied into directory: "box.bxd", or a box already stored
// as "behavior.bxd".
XmlElement::Ptr readCopiedBox(const std::string& directory) {
  FILE* file = zu::os::fopen((directory + '/' + kBoxFile).c_str(), "rb");
  if (!file)
    file = zu::os::fopen((directory + '/' + kBehaviorFile).c_str(), "rb");
  if (!file)
    throw std::runtime_error(kCannotOpenBehavior);
  const XmlDocument::Ptr document = XmlDocument::loadFromXmlFile(file, nullptr, nullptr);
  std::fclose(file);
  if (!document)
    throw std::runtime_error("Could not parse box BXD file.");
  const XmlElement::Ptr root = document->root();
  const XmlElement::Ptr box = root ? root->firstChild(BoxConstants::a_boxBeacon) : nullptr;
  if (!box)
    throw std::runtime_error("BXD file does not contain a root box.");
  return box;
}

// box is the caller's own element, read for this document; it is adopted, not copied.
void writeBehaviorDocument(const std::string& path, const XmlElement::Ptr& box) {
  auto root = boost::make_shared<XmlElement>(BoxConstants::a_projectTag);
  root->setAttribute(kSchemaAttribute, BoxConstants::a_projectXsd, true);
  root->setAttribute(kVersionAttribute, Serial::save(kExportedBxdVersion), true);
  root->addChild(box);
  const XmlDocument document(root);
  std::string bytes;
  std::string error;
  if (!document.saveToXmlString(bytes, &error))
    throw std::runtime_error(kCannotOpenBehavior + (" " + error));
  // Whole or not at all, every write checked.
  zu::project::writeFile(path, bytes);
}

// Writes the behavior at path in the library's project into directory (which may exist).
void exportBehavior(zu::project::ProjectModel& model, const QDir& destination, const QString& path,
                    const QString& directory) {
  if (!destination.mkpath(path))
    throw std::runtime_error("Could not create behavior directory at destination.");
  model.exportFile(path, directory, true);
  const std::string utf8Directory = text::toUtf8(directory);
  zu::project::Project project(utf8Directory);
  project.setMetadata(QLatin1String(kTypeKey), QLatin1String(BoxConstants::a_behaviorProjectType));
  project.setMetadata(QLatin1String(kVersionKey),
                      QLatin1String(BoxConstants::a_behaviorProjectVersion));

  const XmlElement::Ptr box = readCopiedBox(utf8Directory);
  const std::string projectName = box->attribute(kNameAttribute, std::string());
  box->setAttribute(kNameAttribute, "root", false);
  // The box file gives way to the behavior document once it is written; there may be none.
  writeBehaviorDocument(utf8Directory + '/' + kBehaviorFile, box);
  try {
    zu::project::remove(utf8Directory + '/' + kBoxFile);
  } catch (const std::exception&) {
  }
  zu::project::BehaviorProject(project).setName(projectName);
}

// The directories from destination down to path that do not exist yet, deepest first.
QStringList missingDirectories(const QDir& destination, const QString& path) {
  QStringList missing;
  for (QString dir = path; !dir.isEmpty() && !QFileInfo::exists(destination.filePath(dir));
       dir = QFileInfo(dir).path() == QLatin1String(".") ? QString() : QFileInfo(dir).path())
    missing.append(destination.filePath(dir));
  return missing;
}

}  // namespace

void BoxLibrary::xFindBehaviors(const BoxLibraryNode* node, QStringList& paths) {
  if (const boost::shared_ptr<BoxData>& data = node->boxData()) {
    if (data->behavior())
      paths.append(node->path());
    return;
  }
  const QList<BoxLibraryNode*> children = node->childList();
  for (const BoxLibraryNode* child : children)
    xFindBehaviors(child, paths);
}

void BoxLibrary::exportBehaviors(const QString& destination) const {
  const QDir target(destination);
  if (!target.exists())
    throw zu::project::PathNotFound(text::toLatin1(target.canonicalPath()));
  // Behaviors written into the library would show as part of it.
  const QString source = QFileInfo(path()).canonicalFilePath();
  const QString inside = target.canonicalPath();
  if (!source.isEmpty() && (inside == source || inside.startsWith(source + QLatin1Char('/'))))
    throw zu::project::Exception(text::toUtf8(destination) + ": inside the library at " +
                                 text::toUtf8(source) + ", which cannot hold its own export");
  QStringList paths;
  xFindBehaviors(m_root, paths);
  for (int i = 0; i < paths.size(); ++i) {
    const QString& path = paths.at(i);
    const QString directory = target.filePath(path);
    const QStringList created = missingDirectories(target, path);
    try {
      exportBehavior(*m_project, target, path, directory);
    } catch (const std::exception&) {
      // A failed behavior is skipped; what this export created for it goes, what was there
      // before stays.
      if (!created.isEmpty() && QFileInfo::exists(directory))
        zu::project::remove(text::toUtf8(directory));
      for (const QString& dir : created.mid(1))
        QDir().rmdir(dir);
    }
    zu::project::ProgressScope::report(static_cast<std::size_t>(i) + 1,
                                       static_cast<std::size_t>(paths.size()));
  }
}

}  // namespace KR
