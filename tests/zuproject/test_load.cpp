#include <gtest/gtest.h>
#include <zu/project/exceptions.h>
#include <zu/project/project_model.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <memory>

#include "archive_builder.h"
#include "project_fixtures.h"
#include "test_files.h"

using zu::project::ArchiveFormat;
using zu::project::ProjectModel;
using namespace testutil;

namespace {

// A model that holds something, so that a failing load has something to throw away.
void loadSomething(ProjectModel& model, const QString& workDir) {
  QString source = workDir + "/previous";
  writeDiskFile(source + "/previous.txt", "previous");
  writeDiskFile(source + "/.metadata",
                "<?xml version=\"1.0\"?><Metadata><Entry key=\"owner\" value=\"before\"/>"
                "</Metadata>");
  model.load(source, zu::project::ArchiveFormat_Auto);
  ASSERT_TRUE(model.hasFile("previous.txt"));
  ASSERT_EQ(model.getMetadata("owner"), QStringLiteral("before"));
}

// What every failed load must leave behind: nothing.
void expectEmptyAfterFailedLoad(const ProjectModel& model) {
  EXPECT_TRUE(model.getFileList(QString(), true, true, true).isEmpty())
      << model.getFileList(QString(), true, true, true).join(", ").toStdString();
  EXPECT_TRUE(model.getSourcePath().isEmpty()) << model.getSourcePath().toStdString();
  EXPECT_TRUE(model.getMetadata("owner").isEmpty());
  EXPECT_FALSE(model.hasFile("previous.txt"));
}

QStringList filesNamed(const QString& root, const QString& name) {
  QStringList found;
  for (const QString& entry : diskTree(root))
    if (entry == name || entry.endsWith("/" + name))
      found << entry;
  return found;
}

bool archiveHoldsPath(const QString& archivePath, const std::string& rawPath) {
  for (const ArchiveEntry& entry : readArchive(archivePath).entries)
    if (entry.path == rawPath)
      return true;
  return false;
}

class LoadEachForm : public ::testing::TestWithParam<FormCase> {};

TEST_P(LoadEachForm, GivesTheSameContentAndLeavesTheSourceAlone) {
  const ArchiveFormat format = GetParam().format;
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  const ProjectContent content = sampleContent();
  const QString source = tmp.path() + "/" + projectFileName(format);
  if (isArchiveForm(format))
    writeArchive(source, contentEntries(content), archiveKindOf(format));
  else
    writeContentToDisk(source, content);
  const QStringList sourceTree = diskTree(source);
  const QByteArray sourceBytes = readDiskFile(source);

  ProjectModel model;
  model.load(source, zu::project::ArchiveFormat_Auto);
  {
    SCOPED_TRACE("loaded with Auto");
    expectModelContent(model, content);
  }
  EXPECT_EQ(model.getSourcePath(), source);
  EXPECT_EQ(model.getSourceFormat(), format);

  // The model works on its own copy: editing it must not touch the source before a save.
  const QString workingCopy = model.getFileLocalPath(QString());
  EXPECT_FALSE(workingCopy.isEmpty());
  EXPECT_NE(QDir(workingCopy).canonicalPath(), QDir(source).canonicalPath());
  model.writeFile("readme.txt", "changed");
  model.writeFile("added.txt", "added");
  model.remove("nested");
  if (isArchiveForm(format)) {
    EXPECT_EQ(readDiskFile(source), sourceBytes);
  } else {
    EXPECT_EQ(diskTree(source), sourceTree);
    EXPECT_EQ(readDiskFile(source + "/readme.txt"), QByteArray("hello\n"));
  }

  ProjectModel explicitModel;
  explicitModel.load(source, format);
  SCOPED_TRACE("loaded with its own form named");
  expectModelContent(explicitModel, content);
  EXPECT_EQ(explicitModel.getSourceFormat(), format);
}

INSTANTIATE_TEST_SUITE_P(ProjectModelLoad, LoadEachForm, ::testing::ValuesIn(allForms()),
                         [](const ::testing::TestParamInfo<FormCase>& info) {
                           return std::string(info.param.name);
                         });

TEST(ProjectModelLoad, ArchivesWithDotSlashEntriesLoad) {
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  // The shape an archive gets when made from inside its directory with ".".
  const std::vector<ArchiveEntry> entries = {dirEntry("./"), fileEntry("./a.txt", "A"),
                                             dirEntry("./dir"), fileEntry("./dir/b.txt", "B"),
                                             dirEntry("./empty")};
  for (ArchiveKind kind : {ArchiveKind::Tar, ArchiveKind::TarGz, ArchiveKind::Zip}) {
    SCOPED_TRACE(archiveKindName(kind));
    const QString path = tmp.path() + "/dotslash" + archiveSuffix(kind);
    writeArchive(path, entries, kind);
    ProjectModel model;
    model.load(path, zu::project::ArchiveFormat_Auto);
    EXPECT_EQ(modelEntries(model), (QStringList{"a.txt", "dir", "dir/b.txt", "empty"}));
    EXPECT_EQ(model.readFile("a.txt"), QByteArray("A"));
    EXPECT_EQ(model.readFile("dir/b.txt"), QByteArray("B"));
    EXPECT_TRUE(model.hasDir("empty"));
  }
}

TEST(ProjectModelLoad, ASecondLoadReplacesTheFirst) {
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  ProjectModel model;
  loadSomething(model, tmp.path());
  const QString second = tmp.path() + "/second.zip";
  writeArchive(second, {fileEntry("second.txt", "2")}, ArchiveKind::Zip);

  model.load(second, zu::project::ArchiveFormat_Auto);

  EXPECT_EQ(modelEntries(model), QStringList{"second.txt"});
  EXPECT_TRUE(model.getMetadata("owner").isEmpty());
  EXPECT_EQ(model.getSourcePath(), second);
  EXPECT_EQ(model.getSourceFormat(), zu::project::ArchiveFormat_Zip);
}

TEST(ProjectModelLoad, MissingPathAndPlainFileFailAndLeaveNothing) {
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());

  ProjectModel fresh;
  EXPECT_THROW(fresh.load(tmp.path() + "/missing.zip", zu::project::ArchiveFormat_Auto),
               zu::project::PathNotFound);
  expectEmptyAfterFailedLoad(fresh);

  ProjectModel model;
  loadSomething(model, tmp.path());
  EXPECT_THROW(model.load(tmp.path() + "/missing", zu::project::ArchiveFormat_Auto),
               zu::project::PathNotFound);
  expectEmptyAfterFailedLoad(model);

  const QString text = tmp.path() + "/notes.txt";
  writeDiskFile(text, "This is a plain text note.\nIt is not an archive.\n");
  loadSomething(model, tmp.path());
  EXPECT_THROW(model.load(text, zu::project::ArchiveFormat_Auto), zu::project::UnsupportedFormat);
  expectEmptyAfterFailedLoad(model);
  EXPECT_EQ(readDiskFile(text), QByteArray("This is a plain text note.\nIt is not an archive.\n"));
}

TEST(ProjectModelLoad, DamagedArchivesAreCorruptedAndLeaveNothing) {
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  // Incompressible data makes the cut land in the middle of an entry's data in every form.
  const std::vector<ArchiveEntry> entries = {fileEntry("first.txt", "first"),
                                             fileEntry("big.bin", randomBytes(200000, 11)),
                                             fileEntry("last.txt", "last")};
  std::vector<QString> damaged;
  for (ArchiveKind kind :
       {ArchiveKind::Zip, ArchiveKind::Tar, ArchiveKind::TarGz, ArchiveKind::TarXz}) {
    const QString path = tmp.path() + "/cut" + archiveSuffix(kind);
    writeArchive(path, entries, kind);
    ASSERT_NO_THROW(readArchive(path));
    truncateFile(path, QFileInfo(path).size() / 2);
    damaged.push_back(path);
  }

  QByteArray text;
  for (int i = 0; i < 3000; ++i)
    text += QString("line %1 value %2\n").arg(i).arg((i * 7919) % 100003).toUtf8();
  const QString flipped = tmp.path() + "/flipped.zip";
  writeArchive(flipped, {fileEntry("text.txt", text), fileEntry("after.txt", "after")},
               ArchiveKind::Zip);
  ASSERT_NO_THROW(readArchive(flipped));
  flipByte(flipped, zipFirstDataOffset(flipped) + 500);
  damaged.push_back(flipped);

  for (const QString& path : damaged) {
    SCOPED_TRACE(path.toStdString());
    ASSERT_ANY_THROW(readArchive(path)) << "the fixture is not damaged";
    const QByteArray bytes = readDiskFile(path);

    ProjectModel fresh;
    EXPECT_THROW(fresh.load(path, zu::project::ArchiveFormat_Auto), zu::project::CorruptedFile);
    expectEmptyAfterFailedLoad(fresh);

    ProjectModel model;
    loadSomething(model, tmp.path());
    EXPECT_THROW(model.load(path, zu::project::ArchiveFormat_Auto), zu::project::CorruptedFile);
    expectEmptyAfterFailedLoad(model);
    EXPECT_EQ(readDiskFile(path), bytes);
  }
}

TEST(ProjectModelLoad, HostileEntriesAreRefusedAndNothingLeavesTheWorkingCopy) {
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  const QString root = tmp.path();
  const QString tempRoot = root + "/sandbox/tmp";
  const QString outside = root + "/outside";
  const QString victim = root + "/victim.txt";
  QDir().mkpath(outside);
  writeDiskFile(victim, "original");
  const std::string absolute = (root + "/abs/escaped.txt").toStdString();
  const std::string outsideDir = outside.toStdString();

  struct Case {
    const char* name;
    ArchiveKind kind;
    std::vector<ArchiveEntry> entries;
    std::string rawPath;  // the entry that must reach the model as written
  };
  const std::vector<Case> cases = {
      {"parent",
       ArchiveKind::Tar,
       {fileEntry("good.txt", "fine"), fileEntry("../escaped.txt", "x")},
       "../escaped.txt"},
      {"parent-two-levels",
       ArchiveKind::TarGz,
       {fileEntry("good.txt", "fine"), fileEntry("../../escaped.txt", "x")},
       "../../escaped.txt"},
      {"parent-inside",
       ArchiveKind::Tar,
       {fileEntry("good.txt", "fine"), fileEntry("a/../../escaped.txt", "x")},
       "a/../../escaped.txt"},
      {"absolute",
       ArchiveKind::Tar,
       {fileEntry("good.txt", "fine"), fileEntry(absolute, "x")},
       absolute},
      {"zip-parent",
       ArchiveKind::Zip,
       {fileEntry("good.txt", "fine"), fileEntry("../escaped.txt", "x")},
       "../escaped.txt"},
      {"zip-absolute",
       ArchiveKind::Zip,
       {fileEntry("good.txt", "fine"), fileEntry(absolute, "x")},
       absolute},
      {"symlink-then-write-through",
       ArchiveKind::Tar,
       {fileEntry("good.txt", "fine"), symlinkEntry("link", outsideDir),
        fileEntry("link/escaped.txt", "x")},
       "link"},
      {"zip-symlink-then-write-through",
       ArchiveKind::Zip,
       {fileEntry("good.txt", "fine"), symlinkEntry("link", outsideDir),
        fileEntry("link/escaped.txt", "x")},
       "link"},
      {"harmless-looking-symlink",
       ArchiveKind::Tar,
       {fileEntry("good.txt", "fine"), symlinkEntry("alias", "good.txt")},
       "alias"},
      {"hardlink-then-write-through",
       ArchiveKind::Tar,
       {fileEntry("good.txt", "fine"), hardlinkEntry("hl", victim.toStdString()),
        fileEntry("hl", "pwned")},
       "hl"},
      {"hardlink-inside",
       ArchiveKind::Tar,
       {fileEntry("good.txt", "fine"), hardlinkEntry("twin", "good.txt")},
       "twin"},
  };

  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const QString archivePath = root + "/archives/" + c.name + archiveSuffix(c.kind);
    QDir().mkpath(root + "/archives");
    writeArchive(archivePath, c.entries, c.kind);
    ASSERT_TRUE(archiveHoldsPath(archivePath, c.rawPath)) << "the fixture lost its entry";

    QString workingCopy;
    {
      ScopedTempRoot scopedTemp(tempRoot);
      ProjectModel model;
      loadSomething(model, root);
      workingCopy = model.getFileLocalPath(QString());
      EXPECT_THROW(model.load(archivePath, zu::project::ArchiveFormat_Auto),
                   zu::project::CorruptedFile);
      expectEmptyAfterFailedLoad(model);
      EXPECT_FALSE(model.hasFile("good.txt"));
      EXPECT_FALSE(model.hasFile("escaped.txt"));
      EXPECT_FALSE(QFileInfo::exists(workingCopy + "/../escaped.txt"));
      EXPECT_FALSE(QFileInfo::exists(workingCopy + "/../../escaped.txt"));
    }
    EXPECT_TRUE(filesNamed(root, "escaped.txt").isEmpty())
        << filesNamed(root, "escaped.txt").join(", ").toStdString();
    EXPECT_FALSE(QFileInfo::exists(QString::fromStdString(absolute)));
    EXPECT_TRUE(diskTree(outside).isEmpty());
    EXPECT_EQ(readDiskFile(victim), QByteArray("original"));
    // Whatever the model unpacked into went with it.
    EXPECT_TRUE(diskTree(tempRoot).isEmpty()) << diskTree(tempRoot).join(", ").toStdString();
  }
}

TEST(ProjectModelLoad, SymbolicLinksInASourceDirectoryAreSkipped) {
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  const QString source = tmp.path() + "/source";
  const QString outsideFile = tmp.path() + "/outside_file.txt";
  const QString outsideDir = tmp.path() + "/outside_dir";
  writeDiskFile(source + "/real.txt", "real");
  writeDiskFile(source + "/sub/inner.txt", "inner");
  writeDiskFile(outsideFile, "outside");
  writeDiskFile(outsideDir + "/secret.txt", "secret");
  ASSERT_TRUE(QFile::link(outsideFile, source + "/link_file"));
  ASSERT_TRUE(QFile::link(outsideDir, source + "/link_dir"));
  ASSERT_TRUE(QFile::link("../real.txt", source + "/sub/inner_link"));
  ASSERT_TRUE(QFile::link("/nonexistent/target", source + "/dangling"));

  ProjectModel model;
  ASSERT_NO_THROW(model.load(source, zu::project::ArchiveFormat_Auto));

  EXPECT_EQ(modelEntries(model), (QStringList{"real.txt", "sub", "sub/inner.txt"}));
  EXPECT_FALSE(model.hasFile("link_file"));
  EXPECT_FALSE(model.hasDir("link_dir"));
  EXPECT_TRUE(model.readFile("link_dir/secret.txt").isNull());
  EXPECT_EQ(model.getSourcePath(), source);
  // Not even a link may sit in the working copy, or a later save would carry it along.
  const QStringList copied = diskTree(model.getFileLocalPath(QString()));
  for (const QString& entry : copied) {
    EXPECT_FALSE(QFileInfo(model.getFileLocalPath(QString()) + "/" + entry).isSymLink())
        << entry.toStdString();
  }
  EXPECT_FALSE(copied.contains("link_dir/secret.txt"));
  EXPECT_EQ(readDiskFile(outsideFile), QByteArray("outside"));
  EXPECT_EQ(diskTree(outsideDir), QStringList{"secret.txt"});
}

}  // namespace
