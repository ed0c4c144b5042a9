#include <gtest/gtest.h>
#include <zu/project/exceptions.h>
#include <zu/project/project_model.h>

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <memory>

#include "archive_builder.h"
#include "project_fixtures.h"
#include "test_files.h"

using zu::project::ProjectModel;
using namespace testutil;

namespace {

TEST(ProjectModelCopy, CopiesFilesMetadataAndSourceIntoItsOwnWorkingCopy) {
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  const ProjectContent content = sampleContent();
  const QString source = tmp.path() + "/library.tar.gz";
  writeArchive(source, contentEntries(content), ArchiveKind::TarGz);

  QObject parent;
  auto original = std::make_unique<ProjectModel>(&parent);
  original->load(source, zu::project::ArchiveFormat_Auto);
  original->setMetadata("author", "original author");

  ProjectModel copy(*original);
  EXPECT_EQ(copy.parent(), nullptr);
  expectModelContent(copy, content);
  EXPECT_EQ(copy.getMetadata("author"), QStringLiteral("original author"));
  EXPECT_EQ(copy.getSourcePath(), source);
  EXPECT_EQ(copy.getSourceFormat(), zu::project::ArchiveFormat_TarGz);
  const QString copyTop = copy.getFileLocalPath(QString());
  const QString originalTop = original->getFileLocalPath(QString());
  EXPECT_NE(QDir(copyTop).canonicalPath(), QDir(originalTop).canonicalPath());
  EXPECT_EQ(readDiskFile(copy.getFileLocalPath("readme.txt")), QByteArray("hello\n"));

  // Changes on either side stay there.
  copy.writeFile("readme.txt", "changed in the copy");
  copy.writeFile("only_in_copy.txt", "copy");
  copy.remove("nested");
  copy.setMetadata("author", "copy author");
  original->writeFile("only_in_original.txt", "original");
  original->setMetadata("reviewer", "original reviewer");
  EXPECT_EQ(original->readFile("readme.txt"), QByteArray("hello\n"));
  EXPECT_FALSE(original->hasFile("only_in_copy.txt"));
  EXPECT_TRUE(original->hasDir("nested/deeper/deepest"));
  EXPECT_EQ(original->getMetadata("author"), QStringLiteral("original author"));
  EXPECT_FALSE(copy.hasFile("only_in_original.txt"));
  EXPECT_TRUE(copy.getMetadata("reviewer").isEmpty());

  // The copy outlives the original, and saves back to the shared source in the same form.
  original.reset();
  EXPECT_TRUE(QFileInfo(copyTop).isDir());
  EXPECT_EQ(copy.readFile("only_in_copy.txt"), QByteArray("copy"));
  copy.save(QString(), zu::project::ArchiveFormat_Current, true);
  ProjectModel reloaded;
  reloaded.load(source, zu::project::ArchiveFormat_Auto);
  EXPECT_EQ(reloaded.getSourceFormat(), zu::project::ArchiveFormat_TarGz);
  EXPECT_EQ(reloaded.readFile("readme.txt"), QByteArray("changed in the copy"));
  EXPECT_EQ(reloaded.getMetadata("author"), QStringLiteral("copy author"));
  EXPECT_FALSE(reloaded.hasDir("nested"));
}

TEST(ProjectModelCopy, ACopyOfANewModelIsIndependentAndHasNoSource) {
  ProjectModel original;
  original.writeFile("a.txt", "A");
  original.mkdir("empty", false);

  ProjectModel copy(original);
  EXPECT_TRUE(copy.getSourcePath().isEmpty());
  EXPECT_EQ(copy.getSourceFormat(), zu::project::ArchiveFormat_Auto);
  EXPECT_EQ(modelEntries(copy), (QStringList{"a.txt", "empty"}));
  EXPECT_THROW(copy.save(QString(), zu::project::ArchiveFormat_Current, true),
               zu::project::Exception);

  {
    ProjectModel shortLived(original);
    shortLived.remove("a.txt");
  }
  EXPECT_EQ(original.readFile("a.txt"), QByteArray("A"));
  EXPECT_EQ(copy.readFile("a.txt"), QByteArray("A"));
}

}  // namespace
