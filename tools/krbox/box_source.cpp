#include "box_source.h"

#include <krboxlibrary/box_constants.h>
#include <krserial/xml_document.h>
#include <zu/project/project_model.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <boost/make_shared.hpp>

#include <stdexcept>

namespace krbox {

namespace {

// Names a box directory keeps for itself, or that would make it read as a folder.
const char* const kReservedNames[] = {"box.bxd", "behavior.bxd", ".metadata", "lbfinfo"};

// what names the file in messages: "box file", "resource file".
QByteArray readFile(const std::string& path, const char* what) {
  const QFileInfo info(localPath(path));
  if (!info.exists())
    throw std::runtime_error(std::string("no ") + what + " \"" + path + "\"");
  if (!info.isFile())
    throw std::runtime_error("\"" + path + "\" is not a regular file");
  QFile file(info.filePath());
  QByteArray bytes;
  if (file.open(QIODevice::ReadOnly))
    bytes = file.readAll();
  if (file.error() != QFileDevice::NoError)
    throw std::runtime_error("cannot read \"" + path +
                             "\": " + file.errorString().toUtf8().toStdString());
  return bytes;
}

std::string nameFromFile(const std::string& path) {
  const QFileInfo info(localPath(path));
  const QString fileName = info.fileName();
  if (fileName == QLatin1String("box.bxd") || fileName == QLatin1String("behavior.bxd"))
    return KR::BoxLibraryNode::unEscapeFileName(
        QFile::encodeName(info.dir().dirName()).toStdString());
  return QFile::encodeName(info.completeBaseName()).toStdString();
}

}  // namespace

KR::RootBoxDescription readBoxFile(const std::string& path) {
  const QByteArray bytes = readFile(path, "box file");
  std::string error;
  std::string context;
  const KR::XmlDocument::Ptr document =
      KR::XmlDocument::loadFromXmlString(bytes.toStdString(), &error, &context);
  if (!document)
    throw std::runtime_error("cannot parse \"" + path + "\": " + error +
                             (context.empty() ? "" : " (" + context + ")"));
  const KR::XmlElement::Ptr root = document->root();
  if (root->name() != KR::BoxConstants::a_boxBxdBeacon &&
      root->name() != KR::BoxConstants::a_projectTag)
    throw std::runtime_error("\"" + path + "\" is no box file: its root is <" + root->name() + ">");
  const int current = KR::BoxConstants::a_currentBxdVersion;
  int version = KR::BoxConstants::a_defaultBxdVersion;
  if (!root->getAttribute("bxd_version", version) || version != current)
    throw std::runtime_error("\"" + path + "\" is not a version " + std::to_string(current) +
                             " box file (bxd_version \"" + root->attribute("bxd_version", "") +
                             "\")");
  KR::RootBoxDescription description;
  description.box = root->firstChild(KR::BoxConstants::a_boxBeacon);
  if (!description.box)
    throw std::runtime_error("\"" + path + "\" holds no <" + KR::BoxConstants::a_boxBeacon +
                             "> element");
  description.name = description.box->attribute("name", "");
  // "root" is what every box file written by a library calls its box.
  if (description.name.empty() || description.name == "root")
    description.name = nameFromFile(path);
  if (description.name.empty())
    throw std::runtime_error("cannot tell a name for the box in \"" + path + "\"");
  return description;
}

boost::shared_ptr<KR::BoxResourceList> readResources(const Arguments& paths,
                                                     zu::project::ProjectModel& model) {
  auto resources = boost::make_shared<KR::BoxResourceList>();
  resources->project = &model;
  QSet<QString> names;
  for (const std::string& path : paths) {
    const QString name = QFileInfo(localPath(path)).fileName();
    for (const char* reserved : kReservedNames) {
      if (name == QLatin1String(reserved))
        throw std::runtime_error(std::string("a resource cannot be named \"") + reserved + "\"");
    }
    if (names.contains(name))
      throw std::runtime_error("two resources are named \"" +
                               QFile::encodeName(name).toStdString() + "\"");
    names.insert(name);
    model.writeFile(name, readFile(path, "resource file"));
    resources->files.append(name);
  }
  return resources;
}

}  // namespace krbox
