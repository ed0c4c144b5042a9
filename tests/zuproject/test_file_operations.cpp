#include "project_fixtures.h"

#include <cstdio>
#include <functional>

using zu::project::Exception;
using zu::project::PathNotFound;
using zu::project::ProjectModel;
using namespace testutil;

namespace {

TEST(ProjectModelFiles, AWorkingCopyOfItsOwnKeepsExactBytesAtNormalisedPaths) {
  auto model = std::make_unique<ProjectModel>();
  EXPECT_TRUE(model->hasDir(QString()) && model->getSourcePath().isEmpty());
  EXPECT_THROW(model->save(QString(), zu::project::ArchiveFormat_Current, true), Exception);
  const QByteArray binary("\0\xff\0\x01 text\r\n\0", 12);
  model->writeFile("deep/er/binary.bin", binary);
  EXPECT_EQ(model->readFile("deep/er/binary.bin"), binary);
  // A shorter content must not keep the tail of the longer one.
  model->writeFile("text.txt", "a rather long first content");
  model->writeFile("text.txt", "short");
  model->writeFile("empty.txt", QByteArray());
  model->remove("deep/er/binary.bin");
  // Normalised as text: "nowhere" does not have to exist.
  model->writeFile("./a/../nowhere/../b.txt", "B");
  model->mkdir("x/./y", true);
  EXPECT_THROW(model->mkdir("p/q", false), Exception);
  EXPECT_THROW(model->mkdir("text.txt", true), Exception);
  EXPECT_THROW(model->remove("missing/deeper"), PathNotFound);
  EXPECT_EQ(flat(modelTree(*model)), "b.txt=B deep/ deep/er/ empty.txt= text.txt=short x/ x/y/");
  EXPECT_TRUE(model->hasFile("./b.txt") && !model->hasFile("deep") && !model->hasDir("b.txt"));
  EXPECT_EQ(model->getFileList("x/y/..", true, true, false), QStringList{"y"});
  EXPECT_FALSE(model->readFile("empty.txt").isNull());
  EXPECT_TRUE(model->readFile("missing.txt").isNull() && model->readFile("deep").isNull());

  // Callers write through local paths, so the model must see what lands there.
  const QString top = model->getFileLocalPath(QString());
  writeDiskFile(model->getFileLocalPath("b.txt"), "written on disk");
  EXPECT_EQ(model->readFile("b.txt"), QByteArray("written on disk"));
  EXPECT_NE(QDir(top).canonicalPath(), QDir(ProjectModel().getFileLocalPath("")).canonicalPath());
  model->remove("x");
  model->remove(QString());
  EXPECT_EQ(flat(modelTree(*model)), "");
  model.reset();
  EXPECT_FALSE(QFileInfo::exists(top));
}

TEST(ProjectModelFiles, FopenBehavesLikeStdFopenInsideTheModel) {
  ProjectModel model;
  for (const char* mode : {"w", "ab"}) {
    FILE* out = model.fopen("new/parents/file.txt", mode);
    ASSERT_NE(out, nullptr) << mode;
    std::fputs(mode, out);
    std::fclose(out);
  }
  FILE* in = model.fopen("new/parents/file.txt", "rb");
  ASSERT_NE(in, nullptr);
  char buffer[16] = {};
  EXPECT_EQ(std::fread(buffer, 1, sizeof buffer, in), 3u);
  EXPECT_STREQ(buffer, "wab");
  std::fclose(in);
  EXPECT_EQ(model.fopen("missing.txt", "r"), nullptr);
  EXPECT_EQ(model.fopen("missing/dir/file.txt", "rb"), nullptr);
  // std::fopen itself would open a directory for reading on this system.
  EXPECT_EQ(model.fopen("new/parents", "r"), nullptr);
  EXPECT_EQ(model.fopen("new", "w"), nullptr);
  EXPECT_EQ(flat(modelTree(model)), "new/ new/parents/ new/parents/file.txt=wab");
}

TEST(ProjectModelFiles, PathsLeavingTheModelReadAsAbsentAndCannotBeChanged) {
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  ScopedTempRoot scopedTemp(tmp.path() + "/sandbox");
  ProjectModel model;
  fillModel(model, treeOf("inside.txt=inside dir/f.txt=f"));
  // A real file exactly where "../planted.txt" would resolve on disk.
  writeDiskFile(model.getFileLocalPath(QString()) + "/../planted.txt", "planted outside");
  const QString exported = tmp.path() + "/exported.txt";
  const Tree before = diskSnapshot(tmp.path());

  for (const QString& path : {QString("../planted.txt"), QString("dir/../../planted.txt"),
                              QString("./../planted.txt"), QString("..")}) {
    SCOPED_TRACE(path.toStdString());
    EXPECT_FALSE(model.hasFile(path));
    EXPECT_FALSE(model.hasDir(path));
    EXPECT_TRUE(model.readFile(path).isNull());
    EXPECT_TRUE(model.getFileList(path, true, true, true).isEmpty());
    EXPECT_EQ(model.fopen(path, "r"), nullptr);
    EXPECT_EQ(model.fopen(path, "w"), nullptr);
    EXPECT_TRUE(model.getFileLocalPath(path).isEmpty());
    EXPECT_THROW(model.writeFile(path, "overwritten"), PathNotFound);
    EXPECT_THROW(model.mkdir(path + "/new", true), PathNotFound);
    EXPECT_THROW(model.remove(path), PathNotFound);
    EXPECT_THROW(model.move(path, "stolen.txt", true), PathNotFound);
    EXPECT_THROW(model.move("inside.txt", path, true), PathNotFound);
    EXPECT_THROW(model.importFile(&model, "inside.txt", path, true), PathNotFound);
    EXPECT_THROW(model.importFile(&model, path, "stolen.txt", true), PathNotFound);
    EXPECT_THROW(model.exportFile(path, exported, true), PathNotFound);
    EXPECT_EQ(diskSnapshot(tmp.path()), before);
  }

  // An absolute path names nothing outside the model, whether refused or taken as relative.
  const QString absolute = tmp.path() + "/absolute.txt";
  writeDiskFile(absolute, "absolute");
  EXPECT_TRUE(model.readFile(absolute).isNull());
  try {
    model.writeFile(absolute, "overwritten");
  } catch (const Exception&) {
  }
  EXPECT_EQ(readDiskFile(absolute), QByteArray("absolute"));
}

TEST(ProjectModelFiles, ANameLongerThanAFileSystemHoldsIsRefusedChangingNothing) {
  ProjectModel model;
  model.writeFile("F/X", "X");
  const QString tooLong = "F/" + QString(128, QChar(0xE9)) + "/Y";  // 256 bytes in 128 letters
  const std::function<void()> makes[] = {[&] { model.move("F/X", tooLong, false); },
                                         [&] { model.mkdir(tooLong, true); },
                                         [&] { model.writeFile(tooLong, "Y"); },
                                         [&] { model.importFile(&model, "F/X", tooLong, false); }};
  for (const auto& make : makes) {
    try {
      make();
      ADD_FAILURE() << "accepted";
    } catch (const Exception& e) {
      EXPECT_EQ(e.what(),
                tooLong.toStdString() + ": a name in it is too long (more than 255 bytes)");
    }
    EXPECT_EQ(flat(modelTree(model)), "F/ F/X=X");
  }
  EXPECT_EQ(model.fopen(tooLong, "w"), nullptr);
  EXPECT_NO_THROW(model.move("F/X", "F/" + QString(255, 'n'), false));
}

TEST(ProjectModelFiles, GetFileListHonoursEachFlagAndSortsByUtf8Bytes) {
  ProjectModel model;
  fillModel(model, treeOf("root/B= root/a-b= root/a0= root/é= root/ｚ= root/😀= root/a/x= "
                          "root/a/sub/deep.txt= root/a/empty/ outside_root.txt="));
  // UTF-16 order would put the surrogate pair of U+1F600 before U+FF5A.
  ASSERT_LT(QString("😀"), QString("ｚ"));
  auto list = [&model](const char* dir, bool dirs, bool files, bool recursive) {
    return model.getFileList(dir, dirs, files, recursive).join(' ').toStdString();
  };
  EXPECT_EQ(list("root", true, true, true), "B a a-b a/empty a/sub a/sub/deep.txt a/x a0 é ｚ 😀");
  EXPECT_EQ(list("root", true, false, true), "a a/empty a/sub");
  EXPECT_EQ(list("root", false, true, true), "B a-b a/sub/deep.txt a/x a0 é ｚ 😀");
  EXPECT_EQ(list("root", true, true, false), "B a a-b a0 é ｚ 😀");
  EXPECT_EQ(list("root", true, false, false), "a");
  EXPECT_EQ(list("root", false, true, false), "B a-b a0 é ｚ 😀");
  EXPECT_EQ(list("root", false, false, true), "");
  EXPECT_EQ(list("root", false, false, false), "");
  EXPECT_EQ(list("root/a", true, true, true), "empty sub sub/deep.txt x");
  EXPECT_EQ(list("root/a/empty", true, true, true), "");
  EXPECT_EQ(list("root/missing", true, true, false), "");
  EXPECT_EQ(list("", true, true, false), "outside_root.txt root");
}

TEST(ProjectModelFiles, MoveFilesAndTrees) {
  ProjectModel model;
  fillModel(model, treeOf("a.txt=A c.txt=C tree/sub/y.txt=Y tree/empty/ src=S dst=D other/z=Z"));
  model.move("a.txt", "new/parent/b.txt", false);
  model.move("./c.txt", "d.txt", false);
  model.move("tree", "moved/tree", false);
  // Without overwrite, an existing destination stops the move before anything changes.
  EXPECT_THROW(model.move("src", "dst", false), Exception);
  EXPECT_THROW(model.move("moved/tree", "other", false), Exception);
  EXPECT_THROW(model.move("missing.txt", "somewhere.txt", true), PathNotFound);
  EXPECT_EQ(flat(modelTree(model)),
            "d.txt=C dst=D moved/ moved/tree/ moved/tree/empty/ moved/tree/sub/ "
            "moved/tree/sub/y.txt=Y new/ new/parent/ new/parent/b.txt=A other/ other/z=Z src=S");
  model.move("src", "dst", true);
  EXPECT_FALSE(model.hasFile("src"));
  EXPECT_EQ(model.readFile("dst"), QByteArray("S"));
}

TEST(ProjectModelFiles, ImportAndExportCopyTreesAndMergeOnlyWhenAsked) {
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  const Tree content = treeOf("doc=doc tree/ tree/a=new tree/empty/ tree/sub/ tree/sub/b=B");
  ProjectModel source;
  fillModel(source, content);
  ProjectModel model;
  fillModel(model, treeOf("keep=keep a=old copy/a=local"));
  writeTree(tmp.path(), treeOf("merged/a=old existing=old"));

  model.importFile(&source, "tree", "tree_copy", false);
  model.exportFile("tree_copy", tmp.path() + "/tree", false);
  // Copies, not shared files: changing one side leaves the other alone.
  model.writeFile("tree_copy/a", "changed");
  EXPECT_EQ(modelTree(source), content);
  // Without overwrite, nothing of the source may reach an existing destination.
  EXPECT_THROW(model.importFile(&source, "tree", "copy", false), Exception);
  EXPECT_THROW(model.importFile(&source, "doc", "keep", false), Exception);
  EXPECT_THROW(model.importFile(&source, "missing", "x", true), PathNotFound);
  EXPECT_THROW(model.exportFile("copy", tmp.path() + "/merged", false), Exception);
  EXPECT_THROW(model.exportFile("keep", tmp.path() + "/no/parent/doc", true), PathNotFound);
  // A tree into an existing one merges: same names replaced, others kept.
  model.importFile(&source, "tree", QString(), true);
  model.importFile(&model, "tree_copy", "tree_copy2", false);
  model.remove("tree_copy");
  model.exportFile("sub", tmp.path() + "/merged", true);
  model.exportFile("keep", tmp.path() + "/existing", true);
  EXPECT_EQ(
      flat(modelTree(model)),
      "a=new copy/ copy/a=local empty/ keep=keep sub/ sub/b=B tree_copy2/ tree_copy2/a=changed "
      "tree_copy2/empty/ tree_copy2/sub/ tree_copy2/sub/b=B");
  EXPECT_EQ(flat(diskSnapshot(tmp.path())),
            "existing=keep merged/ merged/a=old merged/b=B tree/ tree/a=new tree/empty/ tree/sub/ "
            "tree/sub/b=B");
}

}  // namespace
