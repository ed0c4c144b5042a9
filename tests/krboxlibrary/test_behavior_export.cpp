#include "library_fixtures.h"

#include <zu/project/behavior_project.h>
#include <zu/project/exceptions.h>
#include <zu/project/project.h>

namespace {

using testutil::boxFile;

std::string behavior(const std::string& name) {
  return "<Box name=\"" + name + "\">" + testutil::kBehaviorInterface + "</Box>";
}

TEST(BehaviorExport, WritesEachBehaviorAsAProjectAndSkipsBrokenOnes) {
  QTemporaryDir source;
  testutil::writeFixture(
      source.path(), {{"Tools/Walk/box.bxd", boxFile(behavior("Walk"))},
                      {"Tools/Walk/steps.txt", "left right"},
                      {"Tools/Plain/box.bxd", boxFile(R"(<Box name="Plain"/>)")},
                      {"Tools/Broken/box.bxd", boxFile(behavior("Broken"))},
                      {"Misc%2e/Wave%3a Bye/behavior.bxd", testutil::projectFile(behavior("Wave"))},
                      {"Misc%2e/Wave%3a Bye/.metadata", "<Metadata/>"},
                      {"Deep/Er/Broken/box.bxd", boxFile(behavior("Deeper"))},
                      {"Nothing/Plain/box.bxd", boxFile(R"(<Box name="Plain"/>)")}});
  KR::BoxLibrary library(source.path());
  // Loaded as behaviors, then broken in the project, as a failing disk would leave them.
  library.projectModel()->writeFile("Tools/Broken/box.bxd", "<VantorelBox><Box");
  library.projectModel()->writeFile("Deep/Er/Broken/box.bxd", "<VantorelBox/>");

  QStringList paths;
  KR::BoxLibrary::xFindBehaviors(library.boxRoot(), paths);
  EXPECT_EQ(paths,
            (QStringList{"Deep/Er/Broken", "Misc%2e/Wave%3a Bye", "Tools/Broken", "Tools/Walk"}));

  QTemporaryDir destination;
  testutil::writeFixture(destination.path(), {{"Tools/Broken/kept.txt", "mine"}});
  library.exportBehaviors(destination.path());
  EXPECT_EQ(testutil::diskTree(destination.path()),
            (QStringList{"Misc%2e/", "Misc%2e/Wave%3a Bye/", "Misc%2e/Wave%3a Bye/.metadata",
                         "Misc%2e/Wave%3a Bye/behavior.bxd", "Tools/", "Tools/Broken/",
                         "Tools/Broken/.metadata", "Tools/Broken/box.bxd", "Tools/Broken/kept.txt",
                         "Tools/Walk/", "Tools/Walk/.metadata", "Tools/Walk/behavior.bxd",
                         "Tools/Walk/steps.txt"}))
      << "a new directory of a failed behavior goes with the new folders above it; one that "
         "existed stays";

  const std::string walkDir = (destination.path() + "/Tools/Walk").toStdString();
  const QByteArray walk = testutil::readDiskFile(destination.path() + "/Tools/Walk/behavior.bxd");
  EXPECT_EQ(
      testutil::rootTag(walk),
      "VantorelProject xmlns=" + std::string(KR::BoxConstants::a_projectXsd) + " bxd_version=2");
  const KR::XmlElement::Ptr root = testutil::parseElement(walk.toStdString());
  ASSERT_EQ(root->children().size(), 1u);
  EXPECT_EQ(root->firstChild("Box")->attribute("name", ""), "root");
  EXPECT_EQ(root->firstChild("Box")->children("Input").size(), 3u);

  const zu::project::Project project(walkDir);
  EXPECT_EQ(project.metadata("Type"), "VantorelProject");
  EXPECT_EQ(project.metadata("Version"), "2.0");
  EXPECT_EQ(zu::project::BehaviorProject(project).name(), "Walk");
  const zu::project::Project wave((destination.path() + "/Misc%2e/Wave%3a Bye").toStdString());
  EXPECT_EQ(zu::project::BehaviorProject(wave).name(), "Wave");
}

TEST(BehaviorExport, NeedsAnExistingDestinationAndMayExportNothing) {
  QTemporaryDir source;
  testutil::writeFixture(source.path(), {{"Walk/box.bxd", boxFile(behavior("Walk"))}});
  KR::BoxLibrary library(source.path());
  QTemporaryDir destination;
  const QString missing = destination.path() + "/missing";
  try {
    library.exportBehaviors(missing);
    FAIL() << "no exception";
  } catch (const zu::project::PathNotFound& e) {
    EXPECT_STREQ(e.what(), "");
  }
  EXPECT_TRUE(testutil::diskTree(destination.path()).isEmpty());

  QTemporaryDir plainSource;
  testutil::writeFixture(plainSource.path(), {{"Tools/Plain/box.bxd", boxFile("<Box/>")}});
  KR::BoxLibrary plain(plainSource.path());
  plain.exportBehaviors(destination.path());
  EXPECT_TRUE(testutil::diskTree(destination.path()).isEmpty());
}

}  // namespace
