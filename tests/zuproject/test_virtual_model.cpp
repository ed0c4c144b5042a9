#include "project_fixtures.h"

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <filesystem>

using zu::project::ArchiveFormat_Auto;
using zu::project::ArchiveFormat_Current;
using zu::project::ProjectModel;
using namespace testutil;

namespace {

const char kOld[] = "a.txt=A keep.txt=K dir/b.txt=B dir/sub/c.txt=C gone/x.txt=X moved/y.txt=Y";

// kOld as a model reads it, directories included.
Tree oldTree() {
  Tree tree = treeOf(kOld);
  for (const char* d : {"dir/", "dir/sub/", "gone/", "moved/"})
    tree[d] = QByteArray();
  return tree;
}

// What the edits below make of kOld.
Tree edited() {
  return treeOf(
      "a.txt=A2 keep.txt=K dir/ dir/b.txt=B2 dir/sub/ dir/sub/c.txt=C new/ "
      "new/n.txt=N there/ there/y.txt=Y");
}

void edit(ProjectModel& model) {
  model.writeFile("a.txt", "A2");
  model.writeFile("dir/b.txt", "B2");
  model.writeFile("new/n.txt", "N");
  model.remove("gone");
  model.move("moved", "there", false);
}

// Every entry below root with what tells a rewrite: inode and modification time.
std::map<std::string, std::pair<ino_t, long long>> stamps(const QString& root) {
  std::map<std::string, std::pair<ino_t, long long>> result;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root.toStdString())) {
    struct stat info;
    ::lstat(entry.path().c_str(), &info);
    result[entry.path().native()] = {info.st_ino,
                                     info.st_mtim.tv_sec * 1000000000LL + info.st_mtim.tv_nsec};
  }
  return result;
}

struct VirtualModel : ::testing::Test {
  QTemporaryDir tmp;
  QString dir() const { return tmp.path() + "/lib"; }
  QString zip() const { return tmp.path() + "/lib.zip"; }
  void SetUp() override {
    ASSERT_TRUE(tmp.isValid());
    QDir(dir()).removeRecursively();
    writeTree(dir(), treeOf(kOld));
    QFile::remove(zip());
    writeArchive(zip(), treeEntries(treeOf(kOld), ""), ArchiveKind::Zip);
  }
};

TEST_F(VirtualModel, ASaveKilledAtAnyPointReadsBackWhollyOldOrWhollyNew) {
  const Tree old = oldTree();
  for (const QString& source : {dir(), zip()}) {
    int news = 0;
    for (int point = 0; point < 20; ++point) {
      SCOPED_TRACE(source.toStdString() + " point " + std::to_string(point));
      SetUp();
      int ready[2];
      ASSERT_EQ(::pipe(ready), 0);
      const pid_t child = ::fork();
      if (child == 0) {
        ProjectModel model;
        model.load(source, ArchiveFormat_Auto);
        edit(model);
        char go = 1;
        if (::write(ready[1], &go, 1) == 1)
          model.save(QString(), ArchiveFormat_Current, true);
        ::_exit(0);
      }
      char go = 0;
      ASSERT_EQ(::read(ready[0], &go, 1), 1);
      // Growing delays spread the kills over the save; the last one lets it finish.
      ::usleep(static_cast<useconds_t>(point * point * 150));
      if (point < 19)
        ::kill(child, SIGKILL);
      ::waitpid(child, nullptr, 0);
      ::close(ready[0]);
      ::close(ready[1]);
      ProjectModel reader;
      reader.load(source, ArchiveFormat_Auto);
      const Tree seen = modelTree(reader);
      EXPECT_TRUE(seen == old || seen == edited()) << flat(seen);
      news += seen == edited();
      EXPECT_FALSE(QFileInfo::exists(dir() + "/.zuproject-pending"));
    }
    EXPECT_GT(news, 0) << "never finished";
  }
}

TEST_F(VirtualModel, ASaveFailingAtAnyStepLeavesTheOldTreeOrTheNewWholeAndSavesNext) {
  writeArchive(tmp.path() + "/long.zip", {fileEntry("t/" + std::string(300, 'n') + "/f", "L")},
               ArchiveKind::Zip);
  ProjectModel longNames;
  longNames.load(tmp.path() + "/long.zip", ArchiveFormat_Auto);
  // Each step failing in turn; without a fault, a name no directory holds fails every save.
  std::vector<std::string> faults{""};
  for (const char* kind : {"rename", "unlink", "write", "flush", "open", "close"}) {
    for (int n = 1; n < 24; ++n)
      faults.push_back(kind + (":" + std::to_string(n)));
  }
  for (const QString& source : {dir(), zip()}) {
    for (const std::string& fault : faults) {
      SCOPED_TRACE(source.toStdString() + " " + fault);
      SetUp();
      ProjectModel model;
      model.load(source, ArchiveFormat_Auto);
      edit(model);
      ProjectModel taken;  // a folder moved in under a moved one's name, as a library does it
      taken.importFile(&model, "dir/sub", "", true);
      model.remove("dir/sub");
      model.importFile(&taken, QString(), "moved", true);
      const bool longName = fault.empty() && source == dir();
      if (longName)
        model.importFile(&longNames, "t", "dir/t", false);
      const std::string want = flat(modelTree(model));
      qputenv("ZUPROJECT_FAULT", fault.c_str());
      try {
        model.save(QString(), ArchiveFormat_Current, true);
      } catch (const zu::project::Exception& e) {
        EXPECT_FALSE(dynamic_cast<const zu::project::Conflict*>(&e)) << e.what();
      }
      qunsetenv("ZUPROJECT_FAULT");
      EXPECT_EQ(flat(modelTree(model)), want);
      EXPECT_FALSE(model.sourceChanged());
      ProjectModel reader;
      reader.load(source, ArchiveFormat_Auto);
      const std::string seen = flat(modelTree(reader));
      EXPECT_TRUE(seen == flat(oldTree()) || seen == want) << seen;
      EXPECT_FALSE(QFileInfo::exists(dir() + "/.zuproject-pending"));
      if (longName) {
        EXPECT_THROW(model.save(QString(), ArchiveFormat_Current, true), zu::project::Exception);
        model.remove("dir/t");
      }
      model.save(QString(), ArchiveFormat_Current, true);
      reader.load(source, ArchiveFormat_Auto);
      EXPECT_EQ(flat(modelTree(reader)), flat(modelTree(model)));
    }
  }
}

TEST_F(VirtualModel, LinksInsideASourceDirectoryAreNeverFollowed) {
  const QString outside = tmp.path() + "/outside";
  writeTree(outside, treeOf("secret.txt=secret"));
  ASSERT_TRUE(QFile::link(outside, dir() + "/link_dir"));
  ASSERT_TRUE(QFile::link(outside + "/secret.txt", dir() + "/link_file"));
  ASSERT_TRUE(QFile::link("../../outside", dir() + "/dir/inner_link"));
  const Tree outsideBefore = diskSnapshot(outside);

  ProjectModel model;
  model.load(dir(), ArchiveFormat_Auto);
  EXPECT_EQ(modelTree(model), oldTree());
  for (const char* path : {"link_dir", "link_file", "link_dir/secret.txt", "dir/inner_link",
                           "dir/inner_link/secret.txt"}) {
    SCOPED_TRACE(path);
    EXPECT_FALSE(model.hasFile(path) || model.hasDir(path));
    EXPECT_TRUE(model.readFile(path).isNull());
    EXPECT_EQ(model.fopen(path, "rb"), nullptr);
  }
  EXPECT_FALSE(QFileInfo::exists(model.getFileLocalPath("dir") + "/inner_link"));
  // Writing where a link is makes the model's own entry, which replaces the link.
  model.writeFile("link_dir/planted.txt", "planted");
  model.writeFile("link_file", "replaced");
  model.writeFile("dir/inner_link/planted.txt", "planted");
  model.save(QString(), ArchiveFormat_Current, true);
  EXPECT_EQ(diskSnapshot(outside), outsideBefore);
  for (const char* path : {"/link_dir", "/link_file", "/dir/inner_link"})
    EXPECT_FALSE(QFileInfo(dir() + path).isSymLink()) << path;
  EXPECT_EQ(readDiskFile(dir() + "/link_dir/planted.txt"), QByteArray("planted"));
  EXPECT_EQ(readDiskFile(dir() + "/link_file"), QByteArray("replaced"));
}

TEST_F(VirtualModel, ASaveInPlaceWritesOnlyWhatChanged) {
  for (const QString& source : {dir(), zip()}) {
    SCOPED_TRACE(source.toStdString());
    const bool isDir = source == dir();
    const auto untouched = stamps(tmp.path());
    {
      // Rewriting what the source holds, as opening a library does, is no change.
      ProjectModel model;
      model.load(source, ArchiveFormat_Auto);
      for (const QString& path : model.getFileList(QString(), false, true, true)) {
        model.writeFile(path, model.readFile(path));
        FILE* same = model.fopen(path, "wb");
        const QByteArray bytes = model.readFile(path);
        std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), same);
        std::fclose(same);
      }
      model.mkdir("dir/sub", true);
      model.save(QString(), ArchiveFormat_Current, true);
      EXPECT_EQ(stamps(tmp.path()), untouched);
    }
    ProjectModel model;
    model.load(source, ArchiveFormat_Auto);
    model.writeFile("a.txt", "A2");
    // A file written through a local path is saved like any other change.
    writeDiskFile(model.getFileLocalPath("dir") + "/local.txt", "local");
    writeDiskFile(model.getFileLocalPath("dir/b.txt"), "B2");
    if (isDir)  // someone else's file, added while the model is open
      writeDiskFile(dir() + "/theirs.txt", "theirs");
    model.save(QString(), ArchiveFormat_Current, true);
    ProjectModel reloaded;
    reloaded.load(source, ArchiveFormat_Auto);
    EXPECT_EQ(reloaded.readFile("a.txt"), QByteArray("A2"));
    EXPECT_EQ(reloaded.readFile("dir/local.txt"), QByteArray("local"));
    EXPECT_EQ(reloaded.readFile("dir/b.txt"), QByteArray("B2"));
    if (!isDir)
      continue;
    EXPECT_EQ(reloaded.readFile("theirs.txt"), QByteArray("theirs"));
    const auto after = stamps(tmp.path());
    for (const char* same : {"/keep.txt", "/dir/sub/c.txt", "/moved/y.txt", "/gone/x.txt"}) {
      const std::string path = (dir() + same).toStdString();
      EXPECT_EQ(after.at(path), untouched.at(path)) << same;
    }
  }
}

TEST_F(VirtualModel, ARemovedDirectoryLeavesNoneOfItsChangesBehind) {
  // "dir (2)" sorts between "dir" and "dir/...": the removal reaches past it.
  ProjectModel model;
  model.load(dir(), ArchiveFormat_Auto);
  model.writeFile("dir/sub/new.txt", "N");
  model.writeFile("dir (2)/c.txt", "C2");
  model.remove("dir");
  model.save(QString(), ArchiveFormat_Current, true);
  ProjectModel reloaded;
  reloaded.load(dir(), ArchiveFormat_Auto);
  EXPECT_FALSE(reloaded.hasDir("dir"));
  EXPECT_EQ(reloaded.readFile("dir (2)/c.txt"), QByteArray("C2"));
}

TEST_F(VirtualModel, ACopyIsNotChangedByTheOthersSave) {
  for (const QString& source : {dir(), zip()}) {
    SCOPED_TRACE(source.toStdString());
    SetUp();
    ProjectModel original;
    original.load(source, ArchiveFormat_Auto);
    original.writeFile("dir/sub/c.txt", "copy only");
    ProjectModel copy(original);
    const Tree seen = modelTree(copy);
    edit(original);
    original.writeFile("keep.txt", "K2");
    original.save(QString(), ArchiveFormat_Current, true);
    EXPECT_EQ(modelTree(copy), seen);
    // The copy's own save then makes the source what the copy shows.
    copy.save(QString(), ArchiveFormat_Current, true);
    ProjectModel reloaded;
    reloaded.load(source, ArchiveFormat_Auto);
    EXPECT_EQ(modelTree(reloaded), seen);
  }
}

}  // namespace
