#include "project_fixtures.h"

#include <zu/project/behavior_project.h>
#include <zu/project/file_system.h>
#include <zu/project/metadata.h>
#include <zu/project/project.h>

#include <sys/stat.h>

using zu::project::BehaviorProject;
using zu::project::Project;
using namespace testutil;
using Entries = std::map<std::string, std::string>;
using Tags = std::vector<std::string>;

namespace {

const QString kAccented = "été 日本 😀";
const QString kMarkup = "He said \"a & b\" <c> 'd' &amp;";

Entries metadataFile(const QString& directory) {
  return zu::project::parseMetadata(readDiskFile(directory + "/.metadata").toStdString());
}

TEST(MetadataDocument, SerializeAndParseRoundTripAndBrokenTextGivesNothing) {
  const Entries entries = {{"plain", "value"},
                           {"empty", ""},
                           {"markup", kMarkup.toStdString()},
                           {kAccented.toStdString(), kAccented.toStdString()},
                           {"spaces", "  leading and trailing  "}};
  const std::string text = zu::project::serializeMetadata(entries);
  EXPECT_NE(text.find("<Metadata>"), std::string::npos) << text;
  EXPECT_EQ(zu::project::parseMetadata(text), entries);
  EXPECT_EQ(zu::project::parseMetadata(zu::project::serializeMetadata({})), Entries());

  EXPECT_EQ(zu::project::parseMetadata(
                "<Metadata><Name>walker</Name><Entry key=\"a\" value=\"1\"/><Tag>legs</Tag>"
                "<Unknown key=\"b\" value=\"x\"><Entry key=\"nested\" value=\"x\"/></Unknown>"
                "<Entry key=\"c\" value=\"&quot;3&quot; &amp; more\" extra=\"\"><C/></Entry>"
                "</Metadata>"),
            (Entries{{"a", "1"}, {"c", "\"3\" & more"}}));
  for (const char* broken :
       {"", "this is no XML <<< &&&", "<Metadata><Entry key=\"a\" value=\"1\"/>"})
    EXPECT_EQ(zu::project::parseMetadata(broken), Entries()) << broken;
}

TEST(ProjectDescription, MetadataNameAndTagsAreWrittenAtOnceAndKeepEachOther) {
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  const QString dir = tmp.path() + "/projé";
  QDir().mkpath(dir);
  const std::string directory = dir.toStdString();
  const std::string name = "walker \"fast\" & <safe> " + kAccented.toStdString();

  BehaviorProject behavior{Project(directory)};
  EXPECT_TRUE(behavior.name().empty() && behavior.tags().empty());
  behavior.setName(name);
  behavior.addTag("legs");
  behavior.addTag(kAccented.toStdString());
  behavior.addTag("legs");
  Project(directory).setMetadata("key", kMarkup);
  BehaviorProject(Project(directory)).addTag("wheels");

  const Project project(directory);
  EXPECT_EQ(project.metadata("key"), kMarkup);
  EXPECT_EQ(BehaviorProject(project).name(), name);
  EXPECT_EQ(BehaviorProject(project).tags(), (Tags{"legs", kAccented.toStdString(), "wheels"}));
  BehaviorProject(project).setName("runner");
  EXPECT_EQ(BehaviorProject(project).name(), "runner");
  // Name and tags are elements of their own, not entries.
  EXPECT_EQ(metadataFile(dir), (Entries{{"key", kMarkup.toStdString()}}));

  const std::string missing = (tmp.path() + "/missing").toStdString();
  EXPECT_TRUE(Project(missing).metadata("a").isEmpty());
  EXPECT_THROW(Project(missing).setMetadata("a", "1"), zu::project::PathNotFound);
  EXPECT_THROW(BehaviorProject(Project(missing)).setName("x"), zu::project::PathNotFound);
  EXPECT_THROW(BehaviorProject(Project(missing)).addTag("x"), zu::project::PathNotFound);
  EXPECT_FALSE(QFileInfo::exists(QString::fromStdString(missing)));
}

// Exporting rewrites the type, version and name a behavior usually has already; a value
// that is there stays on disk untouched (same inode), anything else is written.
TEST(ProjectDescription, AValueAlreadyThereIsNotWrittenAgain) {
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  const std::string directory = tmp.path().toStdString();
  const std::string file = directory + "/.metadata";
  auto inode = [&] {
    struct stat info {};
    return ::stat(file.c_str(), &info) == 0 ? info.st_ino : 0;
  };
  Project project(directory);
  BehaviorProject behavior(project);
  project.setMetadata("Type", "behavior");
  behavior.setName("Walk");
  const auto written = inode();
  project.setMetadata("Type", "behavior");
  behavior.setName("Walk");
  EXPECT_EQ(inode(), written);

  // Checked right after one write: a second one could reuse the first file's inode.
  project.setMetadata("Version", "");
  EXPECT_NE(inode(), written);
  behavior.setName("Run");
  EXPECT_EQ(metadataFile(tmp.path()), (Entries{{"Type", "behavior"}, {"Version", ""}}));
  EXPECT_EQ(behavior.name(), "Run");
}

TEST(DiskRemove, RemovesFilesTreesAndLinksButNeverWhatLinksPointAt) {
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  const QString root = tmp.path();
  writeTree(root, treeOf("fiché=file tree/sub/b=b tree/empty/ target_dir/kept=kept target=t"));
  ASSERT_TRUE(QFile::link(root + "/target_dir", root + "/dir_link"));
  ASSERT_TRUE(QFile::link(root + "/target", root + "/file_link"));
  ASSERT_TRUE(QFile::link(root + "/target_dir", root + "/tree/inner_link"));

  for (const char* name : {"fiché", "tree", "dir_link", "file_link"})
    zu::project::remove((root + "/" + name).toStdString());
  EXPECT_EQ(flat(diskSnapshot(root)), "target=t target_dir/ target_dir/kept=kept");
  EXPECT_THROW(zu::project::remove((root + "/missing").toStdString()), zu::project::PathNotFound);
  EXPECT_THROW(zu::project::remove((root + "/tree").toStdString()), zu::project::PathNotFound);
}

}  // namespace
