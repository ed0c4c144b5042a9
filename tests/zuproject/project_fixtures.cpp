#include "project_fixtures.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <algorithm>
#include <set>

#include "test_files.h"

namespace testutil {

namespace {

const QString kMetadataFile = QStringLiteral(".metadata");

QStringList withoutMetadata(QStringList list) {
  list.removeAll(kMetadataFile);
  return list;
}

// Components of a stored name, so that ".." hidden anywhere in it is seen.
bool hasDotDotComponent(const std::string& path) {
  return QString::fromStdString(path).split('/').contains(QStringLiteral(".."));
}

}  // namespace

QStringList ProjectContent::allDirs() const {
  QSet<QString> dirs;
  for (const auto& file : files) {
    QString parent = file.first.section('/', 0, -2);
    while (!parent.isEmpty()) {
      dirs.insert(parent);
      parent = parent.section('/', 0, -2);
    }
  }
  for (const QString& dir : emptyDirs) {
    QString path = dir;
    while (!path.isEmpty()) {
      dirs.insert(path);
      path = path.section('/', 0, -2);
    }
  }
  return sortedByUtf8(QStringList(dirs.begin(), dirs.end()));
}

QStringList ProjectContent::filePaths() const {
  QStringList paths;
  for (const auto& file : files)
    paths << file.first;
  return sortedByUtf8(paths);
}

ProjectContent sampleContent() {
  ProjectContent content;
  content.files[QStringLiteral("readme.txt")] = "hello\n";
  content.files[QStringLiteral("empty_file.txt")] = QByteArray("");
  content.files[QStringLiteral("nested/deeper/deepest/leaf.bin")] =
      QByteArray("\0\x01\x02\xff\0end\0", 9);
  content.files[QStringLiteral("dir with space/50% off.txt")] = "percent %20 %s\n";
  content
      .files[QString::fromUtf8("donn\xc3\xa9"
                               "es/\xc3\xa9t\xc3\xa9.txt")] = "accents";
  content
      .files[QString::fromUtf8("\xe6\x97\xa5\xe6\x9c\xac/\xe3\x83\x95\xe3\x82\xa1\xe3\x82\xa4"
                               "\xe3\x83\xab.txt")] = "cjk";
  content.files[QStringLiteral("binary.dat")] = randomBytes(4096, 7);
  content.emptyDirs << QStringLiteral("empty_dir") << QStringLiteral("nested/empty_inner");
  return content;
}

void fillModel(zu::project::ProjectModel& model, const ProjectContent& content) {
  for (const QString& dir : content.emptyDirs)
    model.mkdir(dir, true);
  for (const auto& file : content.files)
    model.writeFile(file.first, file.second);
}

void writeContentToDisk(const QString& root, const ProjectContent& content) {
  for (const QString& dir : content.emptyDirs)
    QDir().mkpath(root + "/" + dir);
  for (const auto& file : content.files)
    writeDiskFile(root + "/" + file.first, file.second);
}

std::vector<ArchiveEntry> contentEntries(const ProjectContent& content, const std::string& prefix) {
  std::vector<ArchiveEntry> entries;
  for (const QString& dir : content.emptyDirs)
    entries.push_back(dirEntry(prefix + dir.toStdString()));
  for (const auto& file : content.files)
    entries.push_back(fileEntry(prefix + file.first.toStdString(), file.second));
  return entries;
}

QStringList modelEntries(const zu::project::ProjectModel& model) {
  return withoutMetadata(model.getFileList(QString(), true, true, true));
}

void expectModelContent(const zu::project::ProjectModel& model, const ProjectContent& content) {
  EXPECT_EQ(withoutMetadata(model.getFileList(QString(), false, true, true)), content.filePaths());
  EXPECT_EQ(model.getFileList(QString(), true, false, true), content.allDirs());
  for (const auto& file : content.files) {
    QByteArray data = model.readFile(file.first);
    EXPECT_FALSE(data.isNull()) << file.first.toStdString();
    EXPECT_EQ(data, file.second) << file.first.toStdString();
    EXPECT_TRUE(model.hasFile(file.first)) << file.first.toStdString();
  }
  for (const QString& dir : content.allDirs())
    EXPECT_TRUE(model.hasDir(dir)) << dir.toStdString();
}

void expectDiskContent(const QString& root, const ProjectContent& content) {
  QStringList expected;
  for (const QString& dir : content.allDirs())
    expected << dir + "/";
  expected << content.filePaths();
  std::sort(expected.begin(), expected.end());
  EXPECT_EQ(withoutMetadata(diskTree(root)), expected);
  for (const auto& file : content.files)
    EXPECT_EQ(readDiskFile(root + "/" + file.first), file.second) << file.first.toStdString();
}

void expectArchiveContent(const QString& path, ArchiveKind kind, const ProjectContent& content) {
  ArchiveContent archive;
  try {
    archive = readArchive(path);
  } catch (const std::exception& e) {
    ADD_FAILURE() << e.what();
    return;
  }
  EXPECT_EQ(archive.kind, kind) << "found " << archiveKindName(archive.kind);

  std::map<QString, QByteArray> files;
  std::set<QString> dirs;
  const QStringList expectedDirs = content.allDirs();
  for (const ArchiveEntry& entry : archive.entries) {
    EXPECT_FALSE(entry.path.empty());
    EXPECT_NE(entry.path.front(), '/') << entry.path;
    EXPECT_FALSE(hasDotDotComponent(entry.path)) << entry.path;
    EXPECT_TRUE(entry.kind == ArchiveEntry::File || entry.kind == ArchiveEntry::Directory)
        << entry.path;
    QString name = QString::fromStdString(entry.path);
    while (name.startsWith(QStringLiteral("./")))
      name.remove(0, 2);
    if (name.isEmpty() || name == QStringLiteral("."))
      continue;
    if (entry.kind == ArchiveEntry::Directory) {
      EXPECT_TRUE(expectedDirs.contains(name)) << "unexpected directory " << entry.path;
      dirs.insert(name);
    } else if (entry.kind == ArchiveEntry::File) {
      EXPECT_EQ(files.count(name), 0u) << "stored twice: " << entry.path;
      files[name] = QByteArray::fromStdString(entry.data);
    }
  }
  files.erase(kMetadataFile);
  EXPECT_EQ(files, content.files);
  for (const QString& dir : content.emptyDirs)
    EXPECT_EQ(dirs.count(dir), 1u) << "empty directory lost: " << dir.toStdString();
}

QStringList sortedByUtf8(QStringList list) {
  std::sort(list.begin(), list.end(),
            [](const QString& a, const QString& b) { return a.toUtf8() < b.toUtf8(); });
  return list;
}

ScopedTempRoot::ScopedTempRoot(const QString& directory)
    : m_previous(qgetenv("TMPDIR")), m_hadPrevious(qEnvironmentVariableIsSet("TMPDIR")) {
  QDir().mkpath(directory);
  qputenv("TMPDIR", QFile::encodeName(directory));
}

ScopedTempRoot::~ScopedTempRoot() {
  if (m_hadPrevious)
    qputenv("TMPDIR", m_previous);
  else
    qunsetenv("TMPDIR");
}

const std::vector<FormCase>& allForms() {
  static const std::vector<FormCase> forms = {{zu::project::ArchiveFormat_Directory, "Directory"},
                                              {zu::project::ArchiveFormat_Zip, "Zip"},
                                              {zu::project::ArchiveFormat_Tar, "Tar"},
                                              {zu::project::ArchiveFormat_TarGz, "TarGz"},
                                              {zu::project::ArchiveFormat_TarBz2, "TarBz2"},
                                              {zu::project::ArchiveFormat_TarXz, "TarXz"}};
  return forms;
}

bool isArchiveForm(zu::project::ArchiveFormat format) {
  return format >= zu::project::ArchiveFormat_Tar && format <= zu::project::ArchiveFormat_Zip;
}

ArchiveKind archiveKindOf(zu::project::ArchiveFormat format) {
  switch (format) {
    case zu::project::ArchiveFormat_Zip: return ArchiveKind::Zip;
    case zu::project::ArchiveFormat_TarGz: return ArchiveKind::TarGz;
    case zu::project::ArchiveFormat_TarBz2: return ArchiveKind::TarBz2;
    case zu::project::ArchiveFormat_TarXz: return ArchiveKind::TarXz;
    default: return ArchiveKind::Tar;
  }
}

QString projectFileName(zu::project::ArchiveFormat format) {
  if (!isArchiveForm(format))
    return QStringLiteral("project");
  return QStringLiteral("project") + archiveSuffix(archiveKindOf(format));
}

}  // namespace testutil
