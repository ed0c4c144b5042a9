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

DirectoryRead readBoxDirectory(DirectoryFiles& files, const QString& prefix) {
  DirectoryRead read;
  // "behavior.bxd" wins over "box.bxd" when a directory holds both.
  const QString behavior = prefix + QLatin1String(vocabulary::kBehaviorFile);
  bool behaviorFile = false;
  QByteArray bytes = files.readFile(behavior, &behaviorFile);
  read.boxFile = behaviorFile ? behavior : prefix + QLatin1String(vocabulary::kBoxFile);
  if (!behaviorFile)
    bytes = files.readFile(read.boxFile);
  if (!bytes.isNull())
    read.box = readBoxValues(bytes, read.unread);
  if (read.box && behaviorFile)
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
