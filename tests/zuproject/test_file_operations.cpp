#include <gtest/gtest.h>
#include <zu/project/exceptions.h>
#include <zu/project/project_model.h>

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <memory>

#include "project_fixtures.h"
#include "test_files.h"

using zu::project::ProjectModel;
using namespace testutil;

namespace {

QByteArray readStream(FILE* stream) {
  QByteArray data;
  char buffer[256];
  size_t n = 0;
  while ((n = std::fread(buffer, 1, sizeof buffer, stream)) > 0)
    data.append(buffer, static_cast<int>(n));
  return data;
}

TEST(ProjectModelFiles, ANewModelIsEmptyAndHasItsOwnWorkingCopy) {
  ProjectModel model;
  ProjectModel other;
  EXPECT_TRUE(modelEntries(model).isEmpty());
  EXPECT_TRUE(model.hasDir(QString()));
  EXPECT_FALSE(model.hasFile(QString()));
  const QString top = model.getFileLocalPath(QString());
  EXPECT_TRUE(QDir::isAbsolutePath(top)) << top.toStdString();
  EXPECT_TRUE(QFileInfo(top).isDir());
  EXPECT_NE(QDir(top).canonicalPath(), QDir(other.getFileLocalPath(QString())).canonicalPath());
}

TEST(ProjectModelFiles, WorkingCopyGoesWithTheModel) {
  auto model = std::make_unique<ProjectModel>();
  model->writeFile("dir/file.txt", "data");
  const QString top = model->getFileLocalPath(QString());
  ASSERT_TRUE(QFileInfo::exists(top + "/dir/file.txt"));
  model.reset();
  EXPECT_FALSE(QFileInfo::exists(top));
}

TEST(ProjectModelFiles, WriteFileAndReadFileKeepExactBytes) {
  ProjectModel model;
  const QByteArray binary("\0\xff\0\x01 text\r\n\0", 12);
  model.writeFile("deep/er/binary.bin", binary);
  EXPECT_EQ(model.readFile("deep/er/binary.bin"), binary);
  EXPECT_TRUE(model.hasDir("deep/er"));

  // A shorter content must not keep the tail of the longer one.
  model.writeFile("text.txt", "a rather long first content");
  model.writeFile("text.txt", "short");
  EXPECT_EQ(model.readFile("text.txt"), QByteArray("short"));

  model.writeFile("empty.txt", QByteArray());
  const QByteArray empty = model.readFile("empty.txt");
  EXPECT_FALSE(empty.isNull());
  EXPECT_TRUE(empty.isEmpty());
  EXPECT_TRUE(model.hasFile("empty.txt"));

  EXPECT_TRUE(model.readFile("missing.txt").isNull());
  EXPECT_TRUE(model.readFile("deep").isNull());
  EXPECT_FALSE(model.hasFile("deep"));
  EXPECT_FALSE(model.hasDir("text.txt"));
}

TEST(ProjectModelFiles, FopenBehavesLikeStdFopenInsideTheModel) {
  ProjectModel model;
  FILE* out = model.fopen("new/parents/file.txt", "w");
  ASSERT_NE(out, nullptr);
  std::fputs("first", out);
  std::fclose(out);
  EXPECT_EQ(model.readFile("new/parents/file.txt"), QByteArray("first"));

  FILE* append = model.fopen("new/parents/file.txt", "ab");
  ASSERT_NE(append, nullptr);
  std::fputs("+second", append);
  std::fclose(append);

  FILE* in = model.fopen("new/parents/file.txt", "rb");
  ASSERT_NE(in, nullptr);
  EXPECT_EQ(readStream(in), QByteArray("first+second"));
  std::fclose(in);

  FILE* other = model.fopen("other/deeper/binary.bin", "wb");
  ASSERT_NE(other, nullptr);
  std::fwrite("\0\x01\0", 1, 3, other);
  std::fclose(other);
  EXPECT_EQ(model.readFile("other/deeper/binary.bin"), QByteArray("\0\x01\0", 3));

  EXPECT_EQ(model.fopen("missing.txt", "r"), nullptr);
  EXPECT_FALSE(model.hasFile("missing.txt"));
  EXPECT_EQ(model.fopen("missing/dir/file.txt", "rb"), nullptr);
  EXPECT_FALSE(model.hasDir("missing"));
  // std::fopen itself would open a directory for reading on this system.
  EXPECT_EQ(model.fopen("new/parents", "r"), nullptr);
  EXPECT_EQ(model.fopen("new", "w"), nullptr);
  EXPECT_TRUE(model.hasDir("new"));
}

TEST(ProjectModelFiles, PathsAreNormalisedBeforeUse) {
  ProjectModel model;
  model.writeFile("./a/../b.txt", "B");
  EXPECT_EQ(modelEntries(model), QStringList{"b.txt"});
  EXPECT_TRUE(model.hasFile("b.txt"));
  EXPECT_TRUE(model.hasFile("./b.txt"));
  // Normalised as text: "nowhere" does not have to exist.
  EXPECT_EQ(model.readFile("nowhere/../b.txt"), QByteArray("B"));
  model.mkdir("x/./y", true);
  EXPECT_TRUE(model.hasDir("x/y"));
  EXPECT_EQ(model.getFileList("x/y/..", true, true, false), QStringList{"y"});
}

TEST(ProjectModelFiles, PathsLeavingTheModelReadAsAbsentAndCannotBeChanged) {
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  ScopedTempRoot scopedTemp(tmp.path() + "/sandbox");
  ProjectModel model;
  model.writeFile("inside.txt", "inside");
  model.writeFile("dir/f.txt", "f");
  const QString top = model.getFileLocalPath(QString());
  // A real file exactly where "../planted.txt" would resolve on disk.
  const QString planted = QDir::cleanPath(top + "/../planted.txt");
  writeDiskFile(planted, "planted outside");
  const QString exported = tmp.path() + "/exported.txt";

  for (const QString& path :
       {QString("../planted.txt"), QString("dir/../../planted.txt"), QString("./../planted.txt")}) {
    SCOPED_TRACE(path.toStdString());
    EXPECT_FALSE(model.hasFile(path));
    EXPECT_FALSE(model.hasDir(path));
    EXPECT_TRUE(model.readFile(path).isNull());
    EXPECT_EQ(model.fopen(path, "r"), nullptr);
    EXPECT_TRUE(model.getFileLocalPath(path).isEmpty())
        << model.getFileLocalPath(path).toStdString();

    EXPECT_THROW(model.writeFile(path, "overwritten"), zu::project::PathNotFound);
    FILE* stream = model.fopen(path, "w");
    EXPECT_EQ(stream, nullptr);
    if (stream)
      std::fclose(stream);
    EXPECT_THROW(model.remove(path), zu::project::PathNotFound);
    EXPECT_THROW(model.move(path, "stolen.txt", true), zu::project::PathNotFound);
    EXPECT_THROW(model.move("inside.txt", path, true), zu::project::PathNotFound);
    EXPECT_THROW(model.importFile(&model, "inside.txt", path, true), zu::project::PathNotFound);
    EXPECT_THROW(model.importFile(&model, path, "stolen.txt", true), zu::project::PathNotFound);
    EXPECT_THROW(model.exportFile(path, exported, true), zu::project::PathNotFound);

    EXPECT_EQ(readDiskFile(planted), QByteArray("planted outside"));
    EXPECT_EQ(model.readFile("inside.txt"), QByteArray("inside"));
    EXPECT_FALSE(model.hasFile("stolen.txt"));
    EXPECT_FALSE(QFileInfo::exists(exported));
  }
  EXPECT_THROW(model.mkdir("../newdir", true), zu::project::PathNotFound);
  EXPECT_THROW(model.mkdir("dir/../../newdir", false), zu::project::PathNotFound);
  EXPECT_FALSE(QFileInfo::exists(QDir::cleanPath(top + "/../newdir")));
  EXPECT_THROW(model.remove(".."), zu::project::PathNotFound);
  EXPECT_TRUE(QFileInfo::exists(top + "/inside.txt"));
  EXPECT_FALSE(model.hasDir(".."));
  EXPECT_TRUE(model.getFileList("..", true, true, true).isEmpty());
  EXPECT_TRUE(model.getFileList("dir/../..", true, true, false).isEmpty());
  EXPECT_EQ(modelEntries(model), (QStringList{"dir", "dir/f.txt", "inside.txt"}));

  // An absolute path names nothing outside the model, whether refused or taken as relative.
  const QString absolute = tmp.path() + "/absolute.txt";
  writeDiskFile(absolute, "absolute");
  EXPECT_TRUE(model.readFile(absolute).isNull());
  EXPECT_FALSE(model.hasFile(absolute));
  try {
    model.writeFile(absolute, "overwritten");
  } catch (const zu::project::Exception&) {
  }
  EXPECT_EQ(readDiskFile(absolute), QByteArray("absolute"));
}

TEST(ProjectModelFiles, GetFileListHonoursEachFlagAndSortsByUtf8Bytes) {
  ProjectModel model;
  const QString e = QString::fromUtf8("\xc3\xa9");               // U+00E9
  const QString wideZ = QString::fromUtf8("\xef\xbd\x9a");       // U+FF5A
  const QString smiley = QString::fromUtf8("\xf0\x9f\x98\x80");  // U+1F600, a surrogate pair
  for (const QString& file : {QString("B"), QString("a-b"), QString("a0"), e, wideZ, smiley,
                              QString("a/x"), QString("a/sub/deep.txt")})
    model.writeFile("root/" + file, file.toUtf8());
  model.mkdir("root/a/empty", true);
  model.writeFile("outside_root.txt", "not listed");

  const QStringList all = {"B",   "a",  "a-b", "a/empty", "a/sub", "a/sub/deep.txt",
                           "a/x", "a0", e,     wideZ,     smiley};
  // UTF-16 order puts the surrogate pair before U+FF5A, so this list tells the orders apart.
  QStringList utf16Order = all;
  std::sort(utf16Order.begin(), utf16Order.end());
  ASSERT_NE(utf16Order, all);

  EXPECT_EQ(model.getFileList("root", true, true, true), all);
  EXPECT_EQ(model.getFileList("root", true, false, true), (QStringList{"a", "a/empty", "a/sub"}));
  EXPECT_EQ(model.getFileList("root", false, true, true),
            (QStringList{"B", "a-b", "a/sub/deep.txt", "a/x", "a0", e, wideZ, smiley}));
  EXPECT_EQ(model.getFileList("root", true, true, false),
            (QStringList{"B", "a", "a-b", "a0", e, wideZ, smiley}));
  EXPECT_EQ(model.getFileList("root", true, false, false), QStringList{"a"});
  EXPECT_EQ(model.getFileList("root", false, true, false),
            (QStringList{"B", "a-b", "a0", e, wideZ, smiley}));
  EXPECT_TRUE(model.getFileList("root", false, false, true).isEmpty());
  EXPECT_TRUE(model.getFileList("root", false, false, false).isEmpty());

  EXPECT_EQ(model.getFileList("root/a", true, true, true),
            (QStringList{"empty", "sub", "sub/deep.txt", "x"}));
  EXPECT_TRUE(model.getFileList("root/a/empty", true, true, true).isEmpty());
  EXPECT_TRUE(model.getFileList("missing", true, true, true).isEmpty());
  EXPECT_TRUE(model.getFileList("root/missing", true, true, false).isEmpty());
  EXPECT_EQ(model.getFileList(QString(), true, true, false),
            (QStringList{"outside_root.txt", "root"}));
}

TEST(ProjectModelFiles, MkdirCreatesParentsOnlyWhenAsked) {
  ProjectModel model;
  EXPECT_THROW(model.mkdir("x/y/z", false), zu::project::Exception);
  EXPECT_FALSE(model.hasDir("x"));

  model.mkdir("x/y/z", true);
  EXPECT_TRUE(model.hasDir("x"));
  EXPECT_TRUE(model.hasDir("x/y/z"));
  EXPECT_FALSE(model.hasFile("x/y/z"));
  EXPECT_NO_THROW(model.mkdir("x/y/z", true));
  EXPECT_NO_THROW(model.mkdir("x", false));
  model.mkdir("x/single", false);
  EXPECT_TRUE(model.hasDir("x/single"));
  EXPECT_EQ(modelEntries(model), (QStringList{"x", "x/single", "x/y", "x/y/z"}));

  model.writeFile("file.txt", "kept");
  EXPECT_THROW(model.mkdir("file.txt", true), zu::project::Exception);
  EXPECT_EQ(model.readFile("file.txt"), QByteArray("kept"));
}

TEST(ProjectModelFiles, RemoveTakesFilesAndWholeTrees) {
  ProjectModel model;
  model.writeFile("a.txt", "A");
  model.writeFile("keep.txt", "K");
  model.writeFile("tree/b.txt", "B");
  model.writeFile("tree/sub/c.txt", "C");
  model.mkdir("tree/empty", false);

  model.remove("a.txt");
  EXPECT_FALSE(model.hasFile("a.txt"));
  model.remove("tree");
  EXPECT_FALSE(model.hasDir("tree"));
  EXPECT_EQ(modelEntries(model), QStringList{"keep.txt"});
  EXPECT_FALSE(QFileInfo::exists(model.getFileLocalPath(QString()) + "/tree"));

  EXPECT_THROW(model.remove("a.txt"), zu::project::PathNotFound);
  EXPECT_THROW(model.remove("missing/deeper"), zu::project::PathNotFound);
  EXPECT_EQ(model.readFile("keep.txt"), QByteArray("K"));

  model.remove(QString());
  EXPECT_TRUE(modelEntries(model).isEmpty());
  EXPECT_TRUE(model.hasDir(QString()));
  model.writeFile("again.txt", "again");
  EXPECT_EQ(model.readFile("again.txt"), QByteArray("again"));
}

TEST(ProjectModelFiles, MoveFilesAndTrees) {
  ProjectModel model;
  model.writeFile("a.txt", "A");
  model.writeFile("c.txt", "C");
  model.writeFile("tree/x.txt", "X");
  model.writeFile("tree/sub/y.txt", "Y");
  model.mkdir("tree/empty", false);

  model.move("a.txt", "new/parent/b.txt", false);
  EXPECT_FALSE(model.hasFile("a.txt"));
  EXPECT_EQ(model.readFile("new/parent/b.txt"), QByteArray("A"));

  model.move("./c.txt", "d.txt", false);
  EXPECT_FALSE(model.hasFile("c.txt"));
  EXPECT_EQ(model.readFile("d.txt"), QByteArray("C"));

  model.move("tree", "elsewhere/tree2", false);
  EXPECT_FALSE(model.hasDir("tree"));
  EXPECT_EQ(model.getFileList("elsewhere/tree2", true, true, true),
            (QStringList{"empty", "sub", "sub/y.txt", "x.txt"}));
  EXPECT_EQ(model.readFile("elsewhere/tree2/sub/y.txt"), QByteArray("Y"));

  // Without overwrite, an existing destination stops the move before anything changes.
  model.writeFile("src.txt", "source");
  model.writeFile("dst.txt", "destination");
  EXPECT_THROW(model.move("src.txt", "dst.txt", false), zu::project::Exception);
  EXPECT_EQ(model.readFile("src.txt"), QByteArray("source"));
  EXPECT_EQ(model.readFile("dst.txt"), QByteArray("destination"));
  model.writeFile("other/z.txt", "Z");
  EXPECT_THROW(model.move("elsewhere/tree2", "other", false), zu::project::Exception);
  EXPECT_EQ(model.getFileList("other", true, true, true), QStringList{"z.txt"});
  EXPECT_TRUE(model.hasDir("elsewhere/tree2"));

  model.move("src.txt", "dst.txt", true);
  EXPECT_FALSE(model.hasFile("src.txt"));
  EXPECT_EQ(model.readFile("dst.txt"), QByteArray("source"));

  EXPECT_THROW(model.move("missing.txt", "somewhere.txt", true), zu::project::PathNotFound);
  EXPECT_FALSE(model.hasFile("somewhere.txt"));
}

TEST(ProjectModelFiles, ImportFileCopiesFromAnotherModelAndFromItself) {
  ProjectModel source;
  source.writeFile("doc.txt", "doc");
  source.writeFile("tree/a.txt", "new a");
  source.writeFile("tree/sub/b.bin", QByteArray("\0b\0", 3));
  source.mkdir("tree/empty", false);

  ProjectModel model;
  model.writeFile("keep.txt", "keep");
  model.writeFile("a.txt", "old a");

  model.importFile(&source, "doc.txt", "doc_copy.txt", false);
  EXPECT_EQ(model.readFile("doc_copy.txt"), QByteArray("doc"));
  model.importFile(&source, "tree", "tree_copy", false);
  EXPECT_EQ(model.getFileList("tree_copy", true, true, true),
            (QStringList{"a.txt", "empty", "sub", "sub/b.bin"}));
  EXPECT_EQ(model.readFile("tree_copy/sub/b.bin"), QByteArray("\0b\0", 3));

  // Copies, not shared files: changing one side leaves the other alone.
  model.writeFile("tree_copy/a.txt", "changed in the copy");
  EXPECT_EQ(source.readFile("tree/a.txt"), QByteArray("new a"));
  EXPECT_EQ(
      source.getFileList(QString(), true, true, true),
      (QStringList{"doc.txt", "tree", "tree/a.txt", "tree/empty", "tree/sub", "tree/sub/b.bin"}));

  // Without overwrite, nothing of the source may reach an existing destination.
  source.writeFile("tree/late.txt", "late");
  EXPECT_THROW(model.importFile(&source, "tree", "tree_copy", false), zu::project::Exception);
  EXPECT_FALSE(model.hasFile("tree_copy/late.txt"));
  EXPECT_EQ(model.readFile("tree_copy/a.txt"), QByteArray("changed in the copy"));
  model.writeFile("doc_copy.txt", "local doc");
  EXPECT_THROW(model.importFile(&source, "doc.txt", "doc_copy.txt", false), zu::project::Exception);
  EXPECT_EQ(model.readFile("doc_copy.txt"), QByteArray("local doc"));

  // A tree into the top merges: same names replaced, others kept.
  model.importFile(&source, "tree", QString(), true);
  EXPECT_EQ(model.readFile("a.txt"), QByteArray("new a"));
  EXPECT_EQ(model.readFile("keep.txt"), QByteArray("keep"));
  EXPECT_EQ(model.readFile("late.txt"), QByteArray("late"));
  EXPECT_EQ(model.readFile("sub/b.bin"), QByteArray("\0b\0", 3));
  EXPECT_TRUE(model.hasDir("empty"));
  EXPECT_TRUE(model.hasDir("tree_copy"));

  EXPECT_THROW(model.importFile(&source, "missing.txt", "x.txt", true), zu::project::PathNotFound);
  EXPECT_FALSE(model.hasFile("x.txt"));

  model.importFile(&model, "keep.txt", "keep_copy.txt", false);
  EXPECT_EQ(model.readFile("keep.txt"), QByteArray("keep"));
  EXPECT_EQ(model.readFile("keep_copy.txt"), QByteArray("keep"));
  model.importFile(&model, "tree_copy", "tree_copy2", false);
  EXPECT_EQ(model.getFileList("tree_copy2", true, true, true),
            model.getFileList("tree_copy", true, true, true));
  EXPECT_EQ(model.readFile("tree_copy2/a.txt"), QByteArray("changed in the copy"));
  EXPECT_TRUE(model.hasFile("tree_copy/a.txt"));
}

TEST(ProjectModelFiles, ExportFileCopiesToDisk) {
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  ProjectModel model;
  model.writeFile("doc.txt", "doc");
  model.writeFile("tree/a.txt", "new a");
  model.writeFile("tree/sub/b.bin", QByteArray("\0b\0", 3));
  model.mkdir("tree/empty", false);

  model.exportFile("doc.txt", tmp.path() + "/doc.txt", false);
  EXPECT_EQ(readDiskFile(tmp.path() + "/doc.txt"), QByteArray("doc"));
  model.exportFile("tree", tmp.path() + "/tree", false);
  EXPECT_EQ(diskTree(tmp.path() + "/tree"), (QStringList{"a.txt", "empty/", "sub/", "sub/b.bin"}));
  EXPECT_EQ(readDiskFile(tmp.path() + "/tree/sub/b.bin"), QByteArray("\0b\0", 3));

  const QString merged = tmp.path() + "/merged";
  writeDiskFile(merged + "/keep.txt", "keep");
  writeDiskFile(merged + "/a.txt", "old a");
  EXPECT_THROW(model.exportFile("tree", merged, false), zu::project::Exception);
  EXPECT_EQ(diskTree(merged), (QStringList{"a.txt", "keep.txt"}));
  EXPECT_EQ(readDiskFile(merged + "/a.txt"), QByteArray("old a"));
  model.exportFile("tree", merged, true);
  EXPECT_EQ(diskTree(merged), (QStringList{"a.txt", "empty/", "keep.txt", "sub/", "sub/b.bin"}));
  EXPECT_EQ(readDiskFile(merged + "/a.txt"), QByteArray("new a"));
  EXPECT_EQ(readDiskFile(merged + "/keep.txt"), QByteArray("keep"));

  writeDiskFile(tmp.path() + "/existing.txt", "existing");
  EXPECT_THROW(model.exportFile("doc.txt", tmp.path() + "/existing.txt", false),
               zu::project::Exception);
  EXPECT_EQ(readDiskFile(tmp.path() + "/existing.txt"), QByteArray("existing"));
  model.exportFile("doc.txt", tmp.path() + "/existing.txt", true);
  EXPECT_EQ(readDiskFile(tmp.path() + "/existing.txt"), QByteArray("doc"));

  EXPECT_THROW(model.exportFile("doc.txt", tmp.path() + "/no/such/parent/doc.txt", true),
               zu::project::PathNotFound);
  EXPECT_FALSE(QFileInfo::exists(tmp.path() + "/no"));
  EXPECT_THROW(model.exportFile("missing.txt", tmp.path() + "/missing.txt", true),
               zu::project::PathNotFound);
  EXPECT_FALSE(QFileInfo::exists(tmp.path() + "/missing.txt"));
}

TEST(ProjectModelFiles, LocalPathsPointIntoTheWorkingCopy) {
  ProjectModel model;
  model.writeFile("dir/file.txt", "content");
  const QString top = model.getFileLocalPath(QString());
  const QString local = model.getFileLocalPath("dir/file.txt");
  EXPECT_TRUE(QDir::isAbsolutePath(local)) << local.toStdString();
  EXPECT_TRUE(QDir::cleanPath(local).startsWith(QDir::cleanPath(top) + "/")) << local.toStdString();
  EXPECT_EQ(readDiskFile(local), QByteArray("content"));
  EXPECT_TRUE(QFileInfo(model.getFileLocalPath("dir")).isDir());

  // Callers write through local paths, so the model must see what lands there.
  writeDiskFile(local, "written on disk");
  EXPECT_EQ(model.readFile("dir/file.txt"), QByteArray("written on disk"));
}

}  // namespace
