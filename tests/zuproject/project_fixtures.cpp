#include "project_fixtures.h"

#include <QFileInfo>
#include <iterator>

namespace testutil {

const std::vector<Form> kForms = {
    {zu::project::ArchiveFormat_Directory, "Directory", "project", ArchiveKind::Tar},
    {zu::project::ArchiveFormat_Zip, "Zip", "project.zip", ArchiveKind::Zip},
    {zu::project::ArchiveFormat_Tar, "Tar", "project.tar", ArchiveKind::Tar},
    {zu::project::ArchiveFormat_TarGz, "TarGz", "project.tar.gz", ArchiveKind::TarGz},
    {zu::project::ArchiveFormat_TarBz2, "TarBz2", "project.tar.bz2", ArchiveKind::TarBz2},
    {zu::project::ArchiveFormat_TarXz, "TarXz", "project.tar.xz", ArchiveKind::TarXz}};

Tree sampleTree() {
  Tree tree = treeOf(
      "readme.txt=hello\n empty_file.txt= empty_dir/ nested/ nested/empty_inner/ nested/deeper/ "
      "nested/deeper/deepest/ données/ données/été.txt=accents 日本/ 日本/ファイル.txt=cjk");
  tree["nested/deeper/deepest/leaf.bin"] = QByteArray("\0\x01\x02\xff\0end\0", 9);
  tree["dir with space/"] = QByteArray();
  tree["dir with space/50% off.txt"] = "percent %20 %s\n";
  tree["binary.dat"] = randomBytes(4096, 7);
  return tree;
}

Tree treeOf(const char* listing) {
  Tree tree;
  for (const QString& item : QString(listing).split(' ', Qt::SkipEmptyParts))
    tree[item.section('=', 0, 0)] =
        item.contains('=') ? item.section('=', 1).toUtf8() : QByteArray();
  return tree;
}

std::string flat(const Tree& tree) {
  std::string line;
  for (const auto& entry : tree) {
    line += (line.empty() ? "" : " ") + entry.first.toStdString();
    if (!entry.first.endsWith('/'))
      line += "=" + entry.second.toStdString();
  }
  return line;
}

void fillModel(zu::project::ProjectModel& model, const Tree& tree) {
  for (const auto& entry : tree) {
    if (entry.first.endsWith('/'))
      model.mkdir(entry.first, true);
    else
      model.writeFile(entry.first, entry.second);
  }
}

void writeTree(const QString& root, const Tree& tree) {
  for (const auto& entry : tree) {
    if (entry.first.endsWith('/'))
      QDir().mkpath(root + "/" + entry.first);
    else
      writeDiskFile(root + "/" + entry.first, entry.second);
  }
}

std::vector<ArchiveEntry> treeEntries(const Tree& tree, const std::string& prefix) {
  std::vector<ArchiveEntry> entries;
  for (auto it = tree.begin(); it != tree.end(); ++it) {
    const std::string name = prefix + it->first.toStdString();
    const auto next = std::next(it);
    if (!it->first.endsWith('/'))
      entries.push_back(fileEntry(name, it->second));
    else if (next == tree.end() || !next->first.startsWith(it->first))
      entries.push_back(dirEntry(name));
  }
  return entries;
}

Tree modelTree(const zu::project::ProjectModel& model) {
  Tree tree;
  for (const QString& path : model.getFileList(QString(), true, true, true)) {
    if (path != ".metadata")
      tree[model.hasDir(path) ? path + "/" : path] = model.readFile(path);
  }
  return tree;
}

Tree diskSnapshot(const QString& path) {
  if (!QFileInfo(path).isDir())
    return QFileInfo::exists(path) ? Tree{{QString(), readDiskFile(path)}} : Tree();
  Tree tree;
  for (const QString& entry : diskTree(path))
    tree[entry] = entry.endsWith('/') ? QByteArray() : readDiskFile(path + "/" + entry);
  return tree;
}

Tree savedTree(const QString& path, const Form& form) {
  Tree tree;
  if (form.format == zu::project::ArchiveFormat_Directory) {
    tree = diskSnapshot(path);
  } else {
    const ArchiveContent archive = readArchive(path);
    EXPECT_EQ(archive.kind, form.kind);
    for (const ArchiveEntry& entry : archive.entries) {
      QString name = QString::fromStdString(entry.path);
      if (entry.kind == ArchiveEntry::Directory)
        name += "/";
      else if (entry.kind != ArchiveEntry::File)
        name = "link " + name + " -> " + QString::fromStdString(entry.data);
      EXPECT_TRUE(tree.emplace(name, QByteArray::fromStdString(entry.data)).second)
          << "stored twice: " << entry.path;
    }
  }
  tree.erase(".metadata");
  return tree;
}

}  // namespace testutil
