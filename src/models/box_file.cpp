#include "box_file.h"

#include <krboxlibrary/box_constants.h>
#include <krserial/xml_document.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <boost/make_shared.hpp>

namespace KR {
namespace models {

namespace {

// Names a box directory keeps for itself, or that would make it read as a folder.
const char* const kReservedNames[] = {"box.bxd", "behavior.bxd", ".metadata", "lbfinfo"};

bool isReserved(const QString& name) {
  for (const char* reserved : kReservedNames) {
    if (name == QLatin1String(reserved))
      return true;
  }
  return false;
}

bool isBoxDirectoryFile(const QFileInfo& info) {
  return info.fileName() == QLatin1String("box.bxd") ||
         info.fileName() == QLatin1String("behavior.bxd");
}

bool readBytes(const QString& path, QByteArray& bytes, QString* error) {
  QFile file(path);
  if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly)) {
    *error = QStringLiteral("cannot read \"%1\"").arg(path);
    return false;
  }
  bytes = file.readAll();
  return true;
}

QString nameFromFile(const QFileInfo& info) {
  if (isBoxDirectoryFile(info))
    return QString::fromUtf8(
        BoxLibraryNode::unEscapeFileName(info.dir().dirName().toStdString()).c_str());
  return info.completeBaseName();
}

}  // namespace

bool readBoxFile(const QString& path, const QStringList& resources, BoxFile& box, QString* error) {
  QByteArray bytes;
  if (!readBytes(path, bytes, error))
    return false;
  const XmlDocument::Ptr document = XmlDocument::loadFromXmlString(bytes.toStdString(), nullptr,
                                                                   nullptr);
  const XmlElement::Ptr root = document ? document->root() : XmlElement::Ptr();
  int version = BoxConstants::a_defaultBxdVersion;
  if (!root ||
      (root->name() != BoxConstants::a_boxBxdBeacon && root->name() != BoxConstants::a_projectTag) ||
      !root->getAttribute("bxd_version", version) ||
      version != BoxConstants::a_currentBxdVersion ||
      !root->firstChild(BoxConstants::a_boxBeacon)) {
    *error = QStringLiteral("\"%1\" is no box file").arg(path);
    return false;
  }
  box.description.box = root->firstChild(BoxConstants::a_boxBeacon);
  std::string name = box.description.box->attribute("name", "");
  // "root" is what every box file written by a library calls its box.
  if (name.empty() || name == "root")
    name = nameFromFile(QFileInfo(path)).toStdString();
  if (name.empty()) {
    *error = QStringLiteral("no name for the box in \"%1\"").arg(path);
    return false;
  }
  box.description.name = name;

  box.files = std::make_unique<zu::project::ProjectModel>();
  auto list = boost::make_shared<BoxResourceList>();
  list->project = box.files.get();
  QSet<QString> names;
  for (const QString& resource : resources) {
    const QString fileName = QFileInfo(resource).fileName();
    if (isReserved(fileName) || names.contains(fileName)) {
      *error = QStringLiteral("a resource cannot be named \"%1\" here").arg(fileName);
      return false;
    }
    if (!readBytes(resource, bytes, error))
      return false;
    names.insert(fileName);
    box.files->writeFile(fileName, bytes);
    list->files.append(fileName);
  }
  box.description.resources = list;
  return true;
}

QStringList resourcesBeside(const QString& boxFile) {
  const QFileInfo info(boxFile);
  QStringList files;
  if (!isBoxDirectoryFile(info))
    return files;
  const QDir dir = info.dir();
  for (const QString& name : dir.entryList(QDir::Files | QDir::Hidden, QDir::Name)) {
    if (!isReserved(name))
      files.append(dir.filePath(name));
  }
  return files;
}

}  // namespace models
}  // namespace KR
