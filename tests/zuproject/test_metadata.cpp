#include <gtest/gtest.h>
#include <zu/project/behavior_project.h>
#include <zu/project/exceptions.h>
#include <zu/project/file_system.h>
#include <zu/project/metadata.h>
#include <zu/project/project.h>
#include <zu/project/project_model.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <map>
#include <string>
#include <vector>

#include "project_fixtures.h"
#include "test_files.h"

using zu::project::ArchiveFormat;
using zu::project::BehaviorProject;
using zu::project::Project;
using zu::project::ProjectModel;
using namespace testutil;

namespace {

const QString kAccented =
    QString::fromUtf8("\xc3\xa9t\xc3\xa9 \xe6\x97\xa5\xe6\x9c\xac \xf0\x9f\x98\x80");
const QString kMarkup = QStringLiteral("He said \"a & b\" <c> 'd' &amp;");

std::map<std::string, std::string> metadataFileEntries(const QString& directory) {
  return zu::project::parseMetadata(readDiskFile(directory + "/.metadata").toStdString());
}

TEST(ProjectModelMetadata, ValuesAreKeptInTheMetadataFileAtTheTop) {
  ProjectModel model;
  EXPECT_TRUE(model.getMetadata("missing").isEmpty());

  model.setMetadata("author", "someone");
  model.setMetadata("accented", kAccented);
  model.setMetadata("markup", kMarkup);
  model.setMetadata("author", "someone else");
  EXPECT_EQ(model.getMetadata("author"), QStringLiteral("someone else"));
  EXPECT_EQ(model.getMetadata("accented"), kAccented);
  EXPECT_EQ(model.getMetadata("markup"), kMarkup);
  EXPECT_TRUE(model.getMetadata("missing").isEmpty());

  const QString top = model.getFileLocalPath(QString());
  ASSERT_TRUE(QFileInfo(top + "/.metadata").isFile());
  const auto entries = metadataFileEntries(top);
  EXPECT_EQ(entries.at("author"), "someone else");
  EXPECT_EQ(entries.at("accented"), kAccented.toStdString());
  EXPECT_EQ(entries.at("markup"), kMarkup.toStdString());

  const Project project(top.toStdString());
  EXPECT_EQ(project.metadata("author"), QStringLiteral("someone else"));
  EXPECT_EQ(project.metadata("accented"), kAccented);
  EXPECT_EQ(project.metadata("markup"), kMarkup);
}

TEST(ProjectModelMetadata, ADirectoryDescribedByProjectLoadsWithItsMetadata) {
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  const QString source = tmp.path() + "/source";
  writeDiskFile(source + "/file.txt", "file");
  Project(source.toStdString()).setMetadata("origin", kAccented);

  ProjectModel model;
  model.load(source, zu::project::ArchiveFormat_Auto);
  EXPECT_EQ(model.getMetadata("origin"), kAccented);
}

class MetadataEachForm : public ::testing::TestWithParam<FormCase> {};

TEST_P(MetadataEachForm, SurvivesSaveAndLoad) {
  const ArchiveFormat format = GetParam().format;
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  ProjectModel model;
  model.writeFile("file.txt", "file");
  model.setMetadata("accented", kAccented);
  model.setMetadata("markup", kMarkup);
  const QString target = tmp.path() + "/" + projectFileName(format);
  model.save(target, format, false);

  ProjectModel reloaded;
  reloaded.load(target, zu::project::ArchiveFormat_Auto);
  EXPECT_EQ(reloaded.getMetadata("accented"), kAccented);
  EXPECT_EQ(reloaded.getMetadata("markup"), kMarkup);
  EXPECT_EQ(reloaded.readFile("file.txt"), QByteArray("file"));
  if (format == zu::project::ArchiveFormat_Directory) {
    EXPECT_EQ(Project(target.toStdString()).metadata("markup"), kMarkup);
  }

  // A change after the reload must reach the next save too.
  reloaded.setMetadata("accented", "changed");
  reloaded.save(QString(), zu::project::ArchiveFormat_Current, true);
  ProjectModel again;
  again.load(target, zu::project::ArchiveFormat_Auto);
  EXPECT_EQ(again.getMetadata("accented"), QStringLiteral("changed"));
  EXPECT_EQ(again.getMetadata("markup"), kMarkup);
}

INSTANTIATE_TEST_SUITE_P(ProjectModelMetadata, MetadataEachForm, ::testing::ValuesIn(allForms()),
                         [](const ::testing::TestParamInfo<FormCase>& info) {
                           return std::string(info.param.name);
                         });

TEST(MetadataDocument, SerializeAndParseRoundTrip) {
  const std::map<std::string, std::string> entries = {{"plain", "value"},
                                                      {"empty", ""},
                                                      {"markup", kMarkup.toStdString()},
                                                      {"accented", kAccented.toStdString()},
                                                      {kAccented.toStdString(), "non-ASCII key"},
                                                      {"spaces", "  leading and trailing  "}};
  const std::string text = zu::project::serializeMetadata(entries);
  EXPECT_NE(text.find("<Metadata"), std::string::npos) << text;
  EXPECT_NE(text.find("<Entry"), std::string::npos) << text;
  EXPECT_EQ(zu::project::parseMetadata(text), entries);
  EXPECT_TRUE(zu::project::parseMetadata(zu::project::serializeMetadata({})).empty());
}

TEST(MetadataDocument, ParseTakesOnlyEntriesAndNothingFromBrokenText) {
  const std::string document =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<Metadata>\n"
      "  <Name>walker</Name>\n"
      "  <Entry key=\"a\" value=\"1\"/>\n"
      "  <Tag>legs</Tag>\n"
      "  <Unknown key=\"b\" value=\"not an entry\"><Entry key=\"nested\" value=\"x\"/></Unknown>\n"
      "  <Entry key=\"c\" value=\"&quot;3&quot; &amp; more\" extra=\"ignored\"><Child/></Entry>\n"
      "</Metadata>\n";
  const auto parsed = zu::project::parseMetadata(document);
  EXPECT_EQ(parsed.at("a"), "1");
  EXPECT_EQ(parsed.at("c"), "\"3\" & more");
  EXPECT_EQ(parsed.count("b"), 0u);
  EXPECT_EQ(parsed.count("walker"), 0u);

  EXPECT_TRUE(zu::project::parseMetadata("").empty());
  EXPECT_TRUE(zu::project::parseMetadata("this is no XML <<< &&&").empty());
  EXPECT_TRUE(zu::project::parseMetadata("<Metadata><Entry key=\"a\" value=\"1\"/>").empty());

  // Entities declared by the document itself are never expanded.
  const auto declared = zu::project::parseMetadata(
      "<?xml version=\"1.0\"?>\n"
      "<!DOCTYPE Metadata [<!ENTITY boom \"expanded entity\">]>\n"
      "<Metadata><Entry key=\"k\" value=\"&boom;\"/></Metadata>\n");
  auto found = declared.find("k");
  if (found != declared.end()) {
    EXPECT_EQ(found->second.find("expanded entity"), std::string::npos) << found->second;
  }
}

TEST(ProjectDescription, MetadataIsWrittenAtOnceAndKeepsTheRest) {
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  const QString directory = tmp.path() + QString::fromUtf8("/proj\xc3\xa9");
  QDir().mkpath(directory);
  const Project project(directory.toStdString());
  EXPECT_EQ(project.directory(), directory.toStdString());
  EXPECT_EQ(QFileInfo(QString::fromStdString(project.metadataPath())).absoluteFilePath(),
            QFileInfo(directory + "/.metadata").absoluteFilePath());
  EXPECT_TRUE(project.metadata("a").isEmpty());

  Project writer(directory.toStdString());
  writer.setMetadata("a", "1");
  writer.setMetadata("b", kMarkup);
  writer.setMetadata("a", "2");
  EXPECT_TRUE(QFileInfo(directory + "/.metadata").isFile());
  const Project reader(directory.toStdString());
  EXPECT_EQ(reader.metadata("a"), QStringLiteral("2"));
  EXPECT_EQ(reader.metadata("b"), kMarkup);
  EXPECT_TRUE(reader.metadata("c").isEmpty());

  const QString missing = tmp.path() + "/missing";
  Project nowhere(missing.toStdString());
  EXPECT_TRUE(nowhere.metadata("a").isEmpty());
  EXPECT_THROW(nowhere.setMetadata("a", "1"), zu::project::PathNotFound);
  EXPECT_FALSE(QFileInfo::exists(missing));
}

TEST(ProjectDescription, BehaviorNameAndTagsAreWrittenAtOnceAndLiveWithMetadata) {
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  const std::string directory = tmp.path().toStdString();
  const std::string name = "walker \"fast\" & <safe> " + kAccented.toStdString();

  BehaviorProject behavior{Project(directory)};
  EXPECT_TRUE(behavior.name().empty());
  EXPECT_TRUE(behavior.tags().empty());
  behavior.setName(name);
  behavior.addTag("legs");
  behavior.addTag(kAccented.toStdString());
  behavior.addTag("legs");
  EXPECT_EQ(behavior.name(), name);
  EXPECT_EQ(behavior.tags(), (std::vector<std::string>{"legs", kAccented.toStdString()}));

  const BehaviorProject seenElsewhere{Project(directory)};
  EXPECT_EQ(seenElsewhere.name(), name);
  EXPECT_EQ(seenElsewhere.tags(), (std::vector<std::string>{"legs", kAccented.toStdString()}));

  Project(directory).setMetadata("key", "value");
  const BehaviorProject afterMetadata{Project(directory)};
  EXPECT_EQ(afterMetadata.name(), name);
  EXPECT_EQ(afterMetadata.tags(), (std::vector<std::string>{"legs", kAccented.toStdString()}));

  BehaviorProject renamer{Project(directory)};
  renamer.setName("runner");
  renamer.addTag("wheels");
  const Project project(directory);
  EXPECT_EQ(project.metadata("key"), QStringLiteral("value"));
  EXPECT_EQ(BehaviorProject(project).name(), "runner");
  EXPECT_EQ(BehaviorProject(project).tags(),
            (std::vector<std::string>{"legs", kAccented.toStdString(), "wheels"}));

  // Name and tags are elements of their own, not entries.
  const auto entries = metadataFileEntries(tmp.path());
  EXPECT_EQ(entries, (std::map<std::string, std::string>{{"key", "value"}}));
}

TEST(DiskRemove, RemovesFilesTreesAndLinksButNeverWhatLinksPointAt) {
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  const QString root = tmp.path();
  writeDiskFile(root + QString::fromUtf8("/fich\xc3\xa9.txt"), "file");
  writeDiskFile(root + "/tree/a.txt", "a");
  writeDiskFile(root + "/tree/sub/b.txt", "b");
  QDir().mkpath(root + "/tree/empty");
  writeDiskFile(root + "/target_dir/kept.txt", "kept");
  writeDiskFile(root + "/target_file.txt", "target");
  ASSERT_TRUE(QFile::link(root + "/target_dir", root + "/dir_link"));
  ASSERT_TRUE(QFile::link(root + "/target_file.txt", root + "/file_link"));
  ASSERT_TRUE(QFile::link(root + "/target_dir", root + "/tree/inner_link"));

  zu::project::remove((root + QString::fromUtf8("/fich\xc3\xa9.txt")).toStdString());
  zu::project::remove((root + "/tree").toStdString());
  zu::project::remove((root + "/dir_link").toStdString());
  zu::project::remove((root + "/file_link").toStdString());

  EXPECT_EQ(diskTree(root), (QStringList{"target_dir/", "target_dir/kept.txt", "target_file.txt"}));
  EXPECT_EQ(readDiskFile(root + "/target_dir/kept.txt"), QByteArray("kept"));
  EXPECT_EQ(readDiskFile(root + "/target_file.txt"), QByteArray("target"));

  EXPECT_THROW(zu::project::remove((root + "/missing").toStdString()), zu::project::PathNotFound);
  EXPECT_THROW(zu::project::remove((root + "/tree").toStdString()), zu::project::PathNotFound);
}

}  // namespace
