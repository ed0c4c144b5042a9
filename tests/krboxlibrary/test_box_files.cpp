#include "library_fixtures.h"

#include <zu/project/behavior_project.h>
#include <zu/project/metadata.h>
#include <zu/project/project.h>

namespace {

using KR::BoxLibraryNode;
using testutil::boxFile;
using testutil::kBehaviorInterface;
using testutil::projectFile;

std::string box(const std::string& tooltip, const std::string& children = "") {
  return R"(<Box name="root" tooltip=")" + tooltip + R"(">)" + children + "</Box>";
}

TEST(BoxFiles, OnlyCurrentBoxFilesMakeBoxes) {
  QTemporaryDir dir;
  const std::string xsd = KR::BoxConstants::a_projectXsd;
  const auto projectRoot = [](const std::string& attributes, const std::string& content) {
    return "<VantorelProject " + attributes + ">" + content + "</VantorelProject>";
  };
  // Each directory is one case: the tooltip read, or "" when it must read as a folder.
  const struct {
    const char* directory;
    std::vector<std::pair<std::string, std::string>> files;
    const char* tooltip;
  } cases[] = {
      {"Plain", {{"box.bxd", boxFile(box("plain"))}}, "plain"},
      {"Both", {{"box.bxd", boxFile(box("plain"))}, {"behavior.bxd", projectFile(box("b"))}}, "b"},
      {"Project form in box.bxd", {{"box.bxd", projectFile(box("project"))}}, "project"},
      {"Old version", {{"box.bxd", boxFile(box("v1"), "1")}}, ""},
      {"Version text", {{"box.bxd", boxFile(box("vx"), "three")}}, ""},
      {"No version", {{"box.bxd", "<VantorelBox>" + box("none") + "</VantorelBox>"}}, ""},
      {"Root case",
       {{"box.bxd", "<vantorelbox bxd_version=\"3\">" + box("c") + "</vantorelbox>"}},
       ""},
      {"Schema with slash",
       {{"box.bxd", projectRoot("xmlns=\"" + xsd + "/\" bxd_version=\"3\"", box("s"))}},
       ""},
      {"Schema missing", {{"box.bxd", projectRoot("bxd_version=\"3\"", box("s"))}}, ""},
      {"Project version one",
       {{"box.bxd", projectRoot("xmlns=\"" + xsd + "\" bxd_version=\"1\"", box("p1"))}},
       ""},
      {"Behavior file broken",
       {{"box.bxd", boxFile(box("plain"))}, {"behavior.bxd", "<VantorelProject"}},
       ""},
      {"No box element", {{"box.bxd", boxFile("<Diagram/>")}}, ""},
      {"Box with subfolder", {{"box.bxd", boxFile(box("sub"))}, {"Inner/lbfinfo", ""}}, "sub"},
  };
  testutil::Fixture fixture;
  for (const auto& c : cases) {
    for (const auto& file : c.files)
      fixture.push_back({std::string(c.directory) + "/" + file.first, file.second});
  }
  testutil::writeFixture(dir.path(), fixture);

  KR::BoxLibrary library(dir.path());
  ASSERT_EQ(library.boxRoot()->childCount(), static_cast<int>(std::size(cases)));
  for (const auto& c : cases) {
    const BoxLibraryNode* node = library.boxRoot()->child(std::string(c.directory));
    ASSERT_NE(node, nullptr) << c.directory;
    const bool isBox = *c.tooltip != '\0';
    EXPECT_EQ(node->isBox(), isBox) << c.directory;
    EXPECT_EQ(static_cast<bool>(node->loadBox()), isBox) << c.directory;
    if (isBox) {
      EXPECT_EQ(node->boxData()->tooltip().toStdString(), c.tooltip) << c.directory;
      EXPECT_EQ(node->childCount(), 0) << c.directory;
    } else {
      EXPECT_TRUE(library.projectModel()->hasFile(node->path() + "/lbfinfo")) << c.directory;
    }
  }
  EXPECT_FALSE(library.isBehaviorCompatible()) << "no box here is a behavior";
}

class SaveBox : public ::testing::Test {
protected:
  // A box directory holding every file a save may replace or remove.
  BoxLibraryNode* openBox(const std::string& tooltip, bool compatible) {
    testutil::writeFixture(dir.path(), {{"Wave/box.bxd", boxFile(box("old"))},
                                        {"Wave/behavior.bxd", projectFile(box("stale"))},
                                        {"Wave/.metadata", "stale"},
                                        {"Wave/wave.ogg", "OggS"}});
    library = std::make_unique<KR::BoxLibrary>(dir.path());
    library->setBehaviorCompatible(compatible);
    element = testutil::parseElement(box("", kBehaviorInterface));
    // Set rather than parsed: line ends in parsed attributes would become blanks.
    element->setAttribute("tooltip", tooltip, false);
    element->setAttribute("name", "Walk", false);
    return library->boxRoot()->child(0);
  }

  QByteArray read(const char* file) const {
    return library->projectModel()->readFile(QString("Wave/") + file);
  }

  QTemporaryDir dir;
  std::unique_ptr<KR::BoxLibrary> library;
  KR::XmlElement::Ptr element;
};

TEST_F(SaveBox, BehaviorInCompatibleLibraryIsAProjectWithMetadata) {
  BoxLibraryNode* wave = openBox("Waves.\r\ntags:\r\n greeting ; arm;;", true);
  wave->saveBox(element, true);
  EXPECT_TRUE(read("box.bxd").isNull());
  EXPECT_EQ(
      testutil::rootTag(read("behavior.bxd")),
      "VantorelProject xmlns=" + std::string(KR::BoxConstants::a_projectXsd) + " bxd_version=3");
  const KR::XmlElement::Ptr saved = wave->loadBox();
  ASSERT_TRUE(saved);
  EXPECT_EQ(saved->attribute("name", ""), "root");
  EXPECT_EQ(saved->children("Input").size(), 3u);
  EXPECT_EQ(read("wave.ogg"), "OggS");

  const auto entries = zu::project::parseMetadata(read(".metadata").toStdString());
  EXPECT_EQ(entries.at("Type"), "VantorelProject");
  EXPECT_EQ(entries.at("Version"), "2.0");
  const zu::project::BehaviorProject behavior(
      zu::project::Project(library->projectModel()->getFileLocalPath("Wave").toStdString()));
  EXPECT_EQ(behavior.name(), "Wave");
  EXPECT_EQ(behavior.tags(), (std::vector<std::string>{"greeting", "arm"}));
}

TEST_F(SaveBox, OtherwiseAPlainBoxFileAndNoMetadata) {
  for (const bool compatible : {false, true}) {
    BoxLibraryNode* wave = openBox("Waves.", compatible);
    // A behavior in a library without behaviors, or an ordinary box anywhere.
    wave->saveBox(element, !compatible);
    EXPECT_EQ(testutil::rootTag(read("box.bxd")), "VantorelBox bxd_version=3") << compatible;
    EXPECT_TRUE(read("behavior.bxd").isNull()) << compatible;
    EXPECT_TRUE(read(".metadata").isNull()) << compatible;
    EXPECT_EQ(wave->loadBox()->attribute("tooltip", ""), "Waves.");
    // Saving again, now without a ".metadata" to remove, is just as quiet.
    wave->saveBox(wave->loadBox(), false);
    EXPECT_EQ(wave->loadBox()->attribute("name", ""), "root");
  }
}

}  // namespace
