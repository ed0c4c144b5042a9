#include "directory_read.h"

#include <krboxlibrary/box_constants.h>
#include <krserial/xml_reader.h>
#include <zu/project/project_model.h>

#include <string>
#include <string_view>

namespace KR {

bool ModelFiles::hasFile(const QString& path) {
  return m_model.hasFile(path);
}

QByteArray ModelFiles::readFile(const QString& path, bool* isFile) {
  if (isFile) {
    *isFile = m_model.hasFile(path);
    if (!*isFile)
      return QByteArray();
  }
  return m_model.readFile(path);
}

QStringList ModelFiles::directories(const QString& dir) {
  return m_model.getFileList(dir, true, false, false);
}

std::optional<BoxValues> readBoxValues(const QByteArray& bytes, QString& problem) {
  XmlReader reader;
  std::string error;
  if (!reader.parse(std::string_view(bytes.constData(), static_cast<size_t>(bytes.size())), &error,
                    nullptr)) {
    problem = QStringLiteral("it is not XML: ") + text::fromUtf8(error);
    return std::nullopt;
  }
  problem = boxfile::refusal(reader.root());
  if (!problem.isEmpty())
    return std::nullopt;
  const XmlReader::Element box = reader.root().firstChild(BoxConstants::a_boxBeacon);
  if (!box) {
    problem =
        QStringLiteral("it has no \"%1\" element").arg(QLatin1String(BoxConstants::a_boxBeacon));
    return std::nullopt;
  }
  return boxfile::values(box);
}

QByteArray readBoxFile(DirectoryFiles& files, const QString& prefix, QString& file) {
  // "behavior.bxd" wins over "box.bxd" when a directory holds both.
  const QString behavior = prefix + QLatin1String(vocabulary::kBehaviorFile);
  bool behaviorFile = false;
  const QByteArray bytes = files.readFile(behavior, &behaviorFile);
  file = behaviorFile ? behavior : prefix + QLatin1String(vocabulary::kBoxFile);
  return behaviorFile ? bytes : files.readFile(file);
}

DirectoryRead readBoxDirectory(DirectoryFiles& files, const QString& prefix) {
  DirectoryRead read;
  const QByteArray bytes = readBoxFile(files, prefix, read.boxFile);
  if (!bytes.isNull())
    read.box = readBoxValues(bytes, read.unread);
  if (read.box && read.boxFile.endsWith(QLatin1String(vocabulary::kBehaviorFile)))
    read.ignoredBoxFile = files.hasFile(prefix + QLatin1String(vocabulary::kBoxFile));
  return read;
}

void readFolderDirectory(DirectoryFiles& files, const QString& prefix, DirectoryRead& read) {
  const QString listing = prefix + QLatin1String(vocabulary::kListingFile);
  read.listing = files.readFile(listing, &read.listingFile);
  read.directories = files.directories(prefix);
}

DirectoryRead readDirectory(DirectoryFiles& files, const QString& prefix) {
  DirectoryRead read = readBoxDirectory(files, prefix);
  if (!read.box)
    readFolderDirectory(files, prefix, read);
  return read;
}

}  // namespace KR
