#include "library_fixtures.h"

namespace {

using testutil::boxFile;
using testutil::readListing;

const std::string kWalk =
    std::string(R"(<Box name="Walk" tooltip="Walks.">)") + testutil::kBehaviorInterface + "</Box>";

void expectSaveFailure(const zu::log::Record& record, const char* function,
                       const std::string& path) {
  EXPECT_EQ(record.level, zu::log::LogLevel_Error);
  EXPECT_EQ(record.category, "krboxlibrary");
  EXPECT_EQ(record.function, function);
  EXPECT_EQ(record.file, "");
  EXPECT_EQ(record.line, 0);
  const std::string prefix = "Could not save node " + path + ", reason: ";
  EXPECT_EQ(record.message.substr(0, prefix.size()), prefix) << record.message;
  EXPECT_GT(record.message.size(), prefix.size()) << "the reason is missing";
}

TEST(NodeSaving, SaveRewritesOneNodesOwnFile) {
  QTemporaryDir dir;
  const std::string plainFile = "<?xml version=\"1.0\"?>\n<!-- as the user left it -->\n" +
                                std::string(
                                    "<VantorelBox bxd_version=\"3\"><Box name=\"Plain\" "
                                    "tooltip=\"p\"/></VantorelBox>\n");
  testutil::writeFixture(dir.path(),
                         {{"F/Walk/box.bxd", boxFile(kWalk)}, {"F/Plain/box.bxd", plainFile}});
  KR::BoxLibrary library(dir.path());
  zu::project::ProjectModel& model = *library.projectModel();
  KR::BoxLibraryNode* folder = library.node({0});
  KR::BoxLibraryNode* plain = library.node({0, 0});
  KR::BoxLibraryNode* walk = library.node({0, 1});
  ASSERT_TRUE(library.isBehaviorCompatible() && walk && walk->boxData()->behavior());

  model.remove("F/lbfinfo");
  EXPECT_TRUE(folder->save());
  EXPECT_EQ(readListing(model, "F").names, (std::vector<std::string>{"Plain", "Walk"}));
  EXPECT_EQ(model.readFile("F/Plain/box.bxd").toStdString(), plainFile) << "a box below";
  EXPECT_TRUE(model.hasFile("F/Walk/box.bxd"));

  // The form follows the box data: a behavior in a compatible library becomes a project.
  EXPECT_TRUE(walk->save());
  EXPECT_FALSE(model.hasFile("F/Walk/box.bxd"));
  EXPECT_TRUE(model.hasFile("F/Walk/behavior.bxd"));
  EXPECT_TRUE(model.hasFile("F/Walk/.metadata"));
  EXPECT_TRUE(plain->save());
  EXPECT_NE(model.readFile("F/Plain/box.bxd").toStdString(), plainFile);
  EXPECT_EQ(plain->loadBox()->attribute("tooltip", ""), "p");

  model.remove("F/Plain/box.bxd");
  testutil::LogCapture log;
  EXPECT_FALSE(plain->save());
  ASSERT_EQ(log.records().size(), 1u);
  expectSaveFailure(log.records()[0], "save", "F/Plain");
}

TEST(NodeSaving, SaveAllLogsAFailingChildAndGoesOn) {
  QTemporaryDir dir;
  // A behavior's ".metadata" that is a directory cannot be rewritten. The name is written
  // to the log in Latin-1.
  testutil::writeFixture(dir.path(), {{"F/A/", ""},
                                      {"F/B\xc3\xa9/box.bxd", boxFile(kWalk)},
                                      {"F/B\xc3\xa9/.metadata/", ""},
                                      {"F/C/", ""}});
  KR::BoxLibrary library(dir.path());
  zu::project::ProjectModel& model = *library.projectModel();
  ASSERT_EQ(library.node({0})->childCount(), 3);
  for (const char* folder : {"", "F", "F/A", "F/C"})
    model.remove(QString(folder).isEmpty() ? "lbfinfo" : QString(folder) + "/lbfinfo");

  testutil::LogCapture log;
  EXPECT_TRUE(library.boxRoot()->saveAll());
  for (const char* folder : {"", "F", "F/A", "F/C"})
    EXPECT_TRUE(readListing(model, folder).present) << folder;
  ASSERT_EQ(log.records().size(), 1u);
  expectSaveFailure(log.records()[0], "saveAll", "F/B\xe9");

  EXPECT_FALSE(library.node({0, 1})->saveAll());
  ASSERT_EQ(log.records().size(), 2u);
  expectSaveFailure(log.records()[1], "saveAll", "F/B\xe9");
}

}  // namespace
