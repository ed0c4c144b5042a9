#include "project_fixtures.h"

#include <zu/project/source_reader.h>

#include <QFile>
#include <QTemporaryDir>

#include <thread>

using zu::project::ArchiveFormat_Auto;
using zu::project::ProjectModel;
using zu::project::SourceReader;
using namespace testutil;

namespace {

const char kFiles[] = "a.txt=A dir/b.txt=B dir/sub/c.txt=C dir/zeta/d.txt=D dir/alpha/e.txt=";

// What a reader answers for each path, as one text, read on a thread of its own.
std::string readOnThread(const ProjectModel& model, const QStringList& paths) {
  SourceReader reader(model);
  std::string out;
  std::thread([&] {
    for (const QString& path : paths) {
      bool isFile = true;
      const QByteArray bytes = reader.readFile(path, &isFile);
      out += path.toStdString() + ":" + (bytes.isNull() ? "null" : bytes.toStdString()) +
             (isFile ? " file" : "") + (reader.hasFile(path) ? " has" : "") + " [" +
             reader.directories(path).join(',').toStdString() + "]\n";
    }
  }).join();
  return out;
}

// The same from the model itself.
std::string readThroughModel(const ProjectModel& model, const QStringList& paths) {
  std::string out;
  for (const QString& path : paths) {
    const QByteArray bytes = model.readFile(path);
    out += path.toStdString() + ":" + (bytes.isNull() ? "null" : bytes.toStdString()) +
           (model.hasFile(path) ? " file has" : "") + " [" +
           model.getFileList(path, true, false, false).join(',').toStdString() + "]\n";
  }
  return out;
}

TEST(SourceReader, ReadsOnAnotherThreadWhatTheModelReads) {
  QTemporaryDir temp;
  const QString dir = temp.filePath("project"), zip = temp.filePath("project.zip");
  writeTree(dir, treeOf(kFiles));
  ASSERT_EQ(0, ::symlink("../a.txt", QFile::encodeName(dir + "/dir/link").constData()));
  ASSERT_EQ(0, ::symlink("sub", QFile::encodeName(dir + "/dir/through").constData()));
  writeArchive(zip, treeEntries(treeOf(kFiles), ""), ArchiveKind::Zip);
  const QStringList paths = {"a.txt",   "dir/b.txt", "dir/alpha/e.txt",   "",
                             "dir",     "dir/sub/",  "./dir/../a.txt",    "../a.txt",
                             "missing", "dir/link",  "dir/through/c.txt", ".zuproject-pending"};
  for (const QString& source : {dir, zip}) {
    SCOPED_TRACE(source.toStdString());
    ProjectModel model;
    model.load(source, ArchiveFormat_Auto);
    EXPECT_EQ(readThroughModel(model, paths), readOnThread(model, paths));

    // Only what the model changes is no longer read from the source.
    EXPECT_TRUE(model.showsSource("dir/sub"));
    model.writeFile("dir/sub/c.txt", "C2");
    model.remove("dir/zeta");
    for (const auto& [path, shows] : {std::pair{"dir/sub", false},
                                      {"dir/zeta", false},
                                      {"dir", false},
                                      {"dir/alpha", true},
                                      {"a.txt", true}})
      EXPECT_EQ(shows, model.showsSource(path)) << path;
  }
  // A file a reader read counts as read: another writer's change to it shows.
  ProjectModel model;
  model.load(dir, ArchiveFormat_Auto);
  readOnThread(model, {"dir/b.txt"});
  writeDiskFile(dir + "/dir/b.txt", "changed by another writer");
  EXPECT_EQ(QStringList{"dir/b.txt"}, model.changedInSource());
}

}  // namespace
