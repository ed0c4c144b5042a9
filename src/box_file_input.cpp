#include "box_file_input.h"

#include <krboxlibrary/box_constants.h>
#include <krserial/xml_document.h>

#include "vocabulary.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <boost/make_shared.hpp>

namespace KR {

namespace {

using namespace vocabulary;

// Names a box directory keeps for itself, or that would make it read as a folder.
bool isReserved(const QString& name) {
  for (const char* reserved : {kBoxFile, kBehaviorFile, kMetadataFile, kListingFile}) {
    if (name == QLatin1String(reserved))
      return true;
  }
  return false;
}

// what names the file in messages: "box file", "resource file".
QString readBytes(const QString& path, const char* what, QByteArray& bytes) {
  const QFileInfo info(path);
  if (!info.exists())
    return QStringLiteral("no %1 \"%2\"").arg(QLatin1String(what), path);
  if (!info.isFile())
    return QStringLiteral("\"%1\" is not a regular file").arg(path);
  QFile file(path);
  if (file.open(QIODevice::ReadOnly))
    bytes = file.readAll();
  if (file.error() != QFileDevice::NoError)
    return QStringLiteral("cannot read \"%1\": %2").arg(path, file.errorString());
  return QString();
}

bool isBoxDirectoryFile(const QFileInfo& info) {
  return info.fileName() == QLatin1String(kBoxFile) ||
         info.fileName() == QLatin1String(kBehaviorFile);
}

std::string nameFromFile(const QFileInfo& info) {
  if (isBoxDirectoryFile(info))
    return BoxLibraryNode::unEscapeFileName(info.dir().dirName().toUtf8().toStdString());
  return info.completeBaseName().toUtf8().toStdString();
}

QString readDescription(const QString& path, RootBoxDescription& description) {
  QByteArray bytes;
  const QString error = readBytes(path, "box file", bytes);
  if (!error.isEmpty())
    return error;
  std::string reason;
  std::string context;
  const XmlDocument::Ptr document =
      XmlDocument::loadFromXmlString(bytes.toStdString(), &reason, &context);
  if (!document)
    return QStringLiteral("cannot parse \"%1\": %2%3")
        .arg(path, QString::fromStdString(reason),
             context.empty() ? QString() : " (" + QString::fromStdString(context) + ")");
  const XmlElement::Ptr root = document->root();
  if (root->name() != BoxConstants::a_boxBxdBeacon && root->name() != BoxConstants::a_projectTag)
    return QStringLiteral("\"%1\" is no box file: its root is <%2>")
        .arg(path, QString::fromStdString(root->name()));
  int version = BoxConstants::a_defaultBxdVersion;
  if (!root->getAttribute(kVersionAttribute, version) ||
      version != BoxConstants::a_currentBxdVersion)
    return QStringLiteral("\"%1\" is not a version %2 box file (bxd_version \"%3\")")
        .arg(path)
        .arg(BoxConstants::a_currentBxdVersion)
        .arg(QString::fromStdString(root->attribute(kVersionAttribute, "")));
  description.box = root->firstChild(BoxConstants::a_boxBeacon);
  if (!description.box)
    return QStringLiteral("\"%1\" holds no <%2> element")
        .arg(path, QLatin1String(BoxConstants::a_boxBeacon));
  description.name = description.box->attribute(kNameAttribute, "");
  // "root" is what every box file written by a library calls its box.
  if (description.name.empty() || description.name == "root")
    description.name = nameFromFile(QFileInfo(path));
  if (description.name.empty())
    return QStringLiteral("cannot tell a name for the box in \"%1\"").arg(path);
  return QString();
}

}  // namespace

QString readBoxFileInput(const QString& path, const QStringList& resources, BoxFileInput& input) {
  QString error = readDescription(path, input.description);
  if (!error.isEmpty())
    return error;
  input.files = std::make_unique<zu::project::ProjectModel>();
  auto list = boost::make_shared<BoxResourceList>();
  list->project = input.files.get();
  QSet<QString> names;
  for (const QString& resource : resources) {
    const QString name = QFileInfo(resource).fileName();
    if (isReserved(name))
      return QStringLiteral("a resource cannot be named \"%1\"").arg(name);
    if (names.contains(name))
      return QStringLiteral("two resources are named \"%1\"").arg(name);
    QByteArray bytes;
    error = readBytes(resource, "resource file", bytes);
    if (!error.isEmpty())
      return error;
    names.insert(name);
    input.files->writeFile(name, bytes);
    list->files.append(name);
  }
  input.description.resources = list;
  return QString();
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

}  // namespace KR
