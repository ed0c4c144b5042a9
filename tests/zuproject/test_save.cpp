#include <gtest/gtest.h>
#include <sys/resource.h>
#include <zu/project/exceptions.h>
#include <zu/project/project_model.h>

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <csignal>
#include <map>

#include "archive_builder.h"
#include "project_fixtures.h"
#include "test_files.h"

using zu::project::ArchiveFormat;
using zu::project::ProjectModel;
using namespace testutil;

namespace {

// The bytes of a file, or every file of a tree, so "unchanged" covers both forms.
std::map<QString, QByteArray> snapshot(const QString& path) {
  std::map<QString, QByteArray> result;
  if (!QFileInfo(path).isDir()) {
    result[QString()] = readDiskFile(path);
    return result;
  }
  for (const QString& entry : diskTree(path))
    result[entry] = entry.endsWith('/') ? QByteArray() : readDiskFile(path + "/" + entry);
  return result;
}

void expectSaved(const QString& path, ArchiveFormat format, const ProjectContent& content) {
  if (isArchiveForm(format))
    expectArchiveContent(path, archiveKindOf(format), content);
  else
    expectDiskContent(path, content);
}

// A full disk, made in a way that holds for root too: files may not grow past a limit.
class FileSizeLimit {
public:
  explicit FileSizeLimit(rlim_t bytes) {
    getrlimit(RLIMIT_FSIZE, &m_previous);
    // Past the limit, writes fail with EFBIG instead of the process being killed.
    m_previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    rlimit limited = m_previous;
    limited.rlim_cur = bytes;
    m_active = setrlimit(RLIMIT_FSIZE, &limited) == 0;
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &m_previous);
    std::signal(SIGXFSZ, m_previousHandler);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;
  bool active() const { return m_active; }

private:
  rlimit m_previous{};
  void (*m_previousHandler)(int) = SIG_DFL;
  bool m_active = false;
};

std::string formName(const ::testing::TestParamInfo<FormCase>& info) {
  return info.param.name;
}

class SaveEachForm : public ::testing::TestWithParam<FormCase> {};

TEST_P(SaveEachForm, RoundTripsInPlaceAndToAnotherPath) {
  const ArchiveFormat format = GetParam().format;
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  ProjectContent content = sampleContent();
  ProjectModel model;
  fillModel(model, content);

  const QString target = tmp.path() + "/out/" + projectFileName(format);
  QDir().mkpath(tmp.path() + "/out");
  model.save(target, format, false);
  EXPECT_EQ(model.getSourcePath(), target);
  EXPECT_EQ(model.getSourceFormat(), format);
  // What is on disk, and what a fresh model reads back from it, is exactly the content.
  auto expectTargetHolds = [&](const char* when) {
    SCOPED_TRACE(when);
    expectSaved(target, format, content);
    ProjectModel reloaded;
    reloaded.load(target, zu::project::ArchiveFormat_Auto);
    expectModelContent(reloaded, content);
    EXPECT_EQ(reloaded.getSourceFormat(), format);
  };
  expectTargetHolds("first save");

  // In place: removed files must go too, so the target is replaced, not merged into.
  model.writeFile("readme.txt", "second");
  model.remove("binary.dat");
  model.writeFile("added/new.txt", "new");
  content.files["readme.txt"] = "second";
  content.files.erase("binary.dat");
  content.files["added/new.txt"] = "new";
  model.save(QString(), zu::project::ArchiveFormat_Current, true);
  EXPECT_EQ(model.getSourcePath(), target);
  EXPECT_EQ(model.getSourceFormat(), format);
  expectTargetHolds("saved in place");
  QStringList beside;
  for (const QString& entry : diskTree(tmp.path() + "/out"))
    if (!entry.startsWith(projectFileName(format) + "/") && entry != projectFileName(format))
      beside << entry;
  EXPECT_TRUE(beside.isEmpty()) << "left beside the target: " << beside.join(", ").toStdString();

  // Saving elsewhere, in another form, moves the source there.
  const ArchiveFormat otherFormat = format == zu::project::ArchiveFormat_Zip
                                        ? zu::project::ArchiveFormat_TarGz
                                        : zu::project::ArchiveFormat_Zip;
  const QString other = tmp.path() + "/other/" + projectFileName(otherFormat);
  QDir().mkpath(tmp.path() + "/other");
  const auto firstTarget = snapshot(target);
  model.save(other, otherFormat, false);
  EXPECT_EQ(model.getSourcePath(), other);
  EXPECT_EQ(model.getSourceFormat(), otherFormat);
  model.writeFile("readme.txt", "third");
  content.files["readme.txt"] = "third";
  model.save(QString(), zu::project::ArchiveFormat_Current, true);
  {
    SCOPED_TRACE("saved in place after moving the source");
    expectSaved(other, otherFormat, content);
  }
  EXPECT_EQ(snapshot(target), firstTarget);
}

INSTANTIATE_TEST_SUITE_P(ProjectModelSave, SaveEachForm, ::testing::ValuesIn(allForms()), formName);

TEST(ProjectModelSave, AutoChoosesTheFormFromTheFileName) {
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  ProjectModel model;
  model.writeFile("a.txt", "A");
  for (ArchiveKind kind : {ArchiveKind::Zip, ArchiveKind::Tar, ArchiveKind::TarGz,
                           ArchiveKind::TarBz2, ArchiveKind::TarXz}) {
    SCOPED_TRACE(archiveKindName(kind));
    const QString path = tmp.path() + "/auto" + archiveSuffix(kind);
    model.save(path, zu::project::ArchiveFormat_Auto, false);
    ProjectContent expected;
    expected.files["a.txt"] = "A";
    expectArchiveContent(path, kind, expected);
    EXPECT_NE(model.getSourceFormat(), zu::project::ArchiveFormat_Auto);
    EXPECT_NE(model.getSourceFormat(), zu::project::ArchiveFormat_Current);
  }
}

TEST(ProjectModelSave, AnExistingTargetIsKeptWithoutOverwriteAndReplacedWithIt) {
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  ProjectContent content;
  content.files["new.txt"] = "new";
  ProjectModel model;
  fillModel(model, content);

  const QString file = tmp.path() + "/existing.zip";
  writeDiskFile(file, "not yet a project");
  const QString dir = tmp.path() + "/existing";
  writeDiskFile(dir + "/stale.txt", "stale");
  writeDiskFile(dir + "/sub/old.txt", "old");

  for (const auto& target : {std::make_pair(file, zu::project::ArchiveFormat_Zip),
                             std::make_pair(dir, zu::project::ArchiveFormat_Directory)}) {
    SCOPED_TRACE(target.first.toStdString());
    const auto before = snapshot(target.first);
    const QString sourceBefore = model.getSourcePath();
    EXPECT_THROW(model.save(target.first, target.second, false), zu::project::Exception);
    EXPECT_EQ(snapshot(target.first), before);
    EXPECT_EQ(model.getSourcePath(), sourceBefore);

    model.save(target.first, target.second, true);
    expectSaved(target.first, target.second, content);
    EXPECT_EQ(model.getSourcePath(), target.first);
  }
  EXPECT_FALSE(QFileInfo::exists(dir + "/stale.txt"));
}

TEST(ProjectModelSave, ATargetUnderARegularFileFailsAndLeavesEverythingAsItWas) {
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  const QString blocker = tmp.path() + "/blocker";
  writeDiskFile(blocker, "a file where a directory would be needed");
  ProjectModel model;
  model.writeFile("a.txt", "A");
  const QString previous = tmp.path() + "/previous.zip";
  model.save(previous, zu::project::ArchiveFormat_Zip, false);
  const auto before = snapshot(tmp.path());

  for (const FormCase& form : allForms()) {
    SCOPED_TRACE(form.name);
    EXPECT_THROW(model.save(blocker + "/" + projectFileName(form.format), form.format, true),
                 zu::project::Exception);
    EXPECT_EQ(snapshot(tmp.path()), before);
    EXPECT_EQ(model.getSourcePath(), previous);
    EXPECT_EQ(model.getSourceFormat(), zu::project::ArchiveFormat_Zip);
  }
}

class SaveFailureEachForm : public ::testing::TestWithParam<FormCase> {};

TEST_P(SaveFailureEachForm, AFullDiskKeepsThePreviousTargetAndLeavesNoTemporaries) {
  const ArchiveFormat format = GetParam().format;
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  const QString out = tmp.path() + "/out";
  const QString target = out + "/" + projectFileName(format);
  QDir().mkpath(out);

  ProjectModel model;
  model.writeFile("old.txt", "the library as it was");
  model.mkdir("old_dir", false);
  model.save(target, format, false);
  const auto before = snapshot(target);
  const QStringList outBefore = diskTree(out);
  ASSERT_FALSE(before.empty());

  model.writeFile("big.bin", randomBytes(1 << 20, 3));
  {
    FileSizeLimit limit(256 * 1024);
    if (!limit.active())
      GTEST_SKIP() << "cannot lower the file size limit here";
    EXPECT_THROW(model.save(QString(), zu::project::ArchiveFormat_Current, true),
                 zu::project::Exception);
    EXPECT_THROW(model.save(target, format, true), zu::project::Exception);
  }
  EXPECT_EQ(snapshot(target), before);
  EXPECT_EQ(diskTree(out), outBefore);
  EXPECT_EQ(model.getSourcePath(), target);
  // Nothing of the working copy may be lost by a failed save.
  EXPECT_EQ(model.readFile("big.bin"), randomBytes(1 << 20, 3));
  EXPECT_EQ(model.readFile("old.txt"), QByteArray("the library as it was"));
}

INSTANTIATE_TEST_SUITE_P(ProjectModelSave, SaveFailureEachForm, ::testing::ValuesIn(allForms()),
                         formName);

TEST(ProjectModelSave, InPlaceAfterAFailedLoadNeverOverwritesTheUnreadableFile) {
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  const QString corrupt = tmp.path() + "/library.zip";
  writeArchive(corrupt, {fileEntry("big.bin", randomBytes(100000, 5))}, ArchiveKind::Zip);
  truncateFile(corrupt, QFileInfo(corrupt).size() / 2);
  const QByteArray corruptBytes = readDiskFile(corrupt);
  const QString text = tmp.path() + "/notes.tar";
  writeDiskFile(text, "only text");
  const QString good = tmp.path() + "/good";
  writeDiskFile(good + "/a.txt", "A");
  const auto goodBefore = snapshot(good);

  ProjectModel model;
  EXPECT_THROW(model.load(corrupt, zu::project::ArchiveFormat_Auto), zu::project::CorruptedFile);
  model.writeFile("edited.txt", "edited after the failure");
  EXPECT_THROW(model.save(QString(), zu::project::ArchiveFormat_Current, true),
               zu::project::Exception);
  EXPECT_THROW(model.save(QString(), zu::project::ArchiveFormat_Zip, true), zu::project::Exception);
  EXPECT_EQ(readDiskFile(corrupt), corruptBytes);

  // A good load before the failure must not leave its path behind as the source either.
  ProjectModel reused;
  reused.load(good, zu::project::ArchiveFormat_Auto);
  EXPECT_THROW(reused.load(corrupt, zu::project::ArchiveFormat_Auto), zu::project::CorruptedFile);
  EXPECT_THROW(reused.save(QString(), zu::project::ArchiveFormat_Current, true),
               zu::project::Exception);
  EXPECT_THROW(reused.load(text, zu::project::ArchiveFormat_Auto), zu::project::UnsupportedFormat);
  EXPECT_THROW(reused.save(QString(), zu::project::ArchiveFormat_Current, true),
               zu::project::Exception);
  EXPECT_EQ(readDiskFile(corrupt), corruptBytes);
  EXPECT_EQ(readDiskFile(text), QByteArray("only text"));
  EXPECT_EQ(snapshot(good), goodBefore);
}

TEST(ProjectModelSave, ANewModelHasNoSourceToSaveTo) {
  ProjectModel model;
  EXPECT_TRUE(model.getSourcePath().isEmpty());
  EXPECT_EQ(model.getSourceFormat(), zu::project::ArchiveFormat_Auto);
  model.writeFile("a.txt", "A");
  EXPECT_THROW(model.save(QString(), zu::project::ArchiveFormat_Current, true),
               zu::project::Exception);
  EXPECT_THROW(model.save(QString(), zu::project::ArchiveFormat_Zip, true), zu::project::Exception);
  EXPECT_TRUE(model.getSourcePath().isEmpty());
}

}  // namespace
