#include "library_fixtures.h"

namespace {

using KR::BoxLibraryNode;
using Pairs = std::vector<std::pair<std::string, std::string>>;

TEST(Names, EscapeFileNameEscapesReservedCharactersThenOneEdgeDotOrBlankEach) {
  const Pairs cases = {{"My Box", "My Box"},  {"a/b", "a%2fb"},       {"50%", "50%25"},
                       {"What?", "What%3f"},  {"x:y*z", "x%3ay%2az"}, {"a|b", "a%7cb"},
                       {"<\">", "%3c%22%3e"}, {"a\\b", "a\\b"},       {"end.", "end%2e"},
                       {"end..", "end.%2e"},  {".", "%2e"},           {" lead", "%20lead"},
                       {"  two", "%20 two"},  {"trail ", "trail%20"}, {" ", "%20"},
                       {"a. ", "a.%20"},      {"a .", "a %2e"},       {"\tx\t", "\tx\t"}};
  for (const auto& c : cases)
    EXPECT_EQ(BoxLibraryNode::escapeFileName(c.first), c.second) << '"' << c.first << '"';
  EXPECT_EQ(BoxLibraryNode::escapeFileName(""), "");
  EXPECT_EQ(BoxLibraryNode::escapeFileName("Caf\xc3\xa9 \xc3\xbc"), "Caf\xc3\xa9 \xc3\xbc");
  EXPECT_EQ(BoxLibraryNode::escapeFileName(std::string("ab\0cd", 5)), "ab");
}

TEST(Names, UnEscapeFileNameDecodesEachEscapeOnceAndInvertsEscaping) {
  const Pairs cases = {{"a%2Fb", "a/b"}, {"a%2fb", "a/b"}, {"50%25", "50%"},
                       {"%2541", "%41"}, {"100%", "100%"}, {"%zz", "%zz"},
                       {"%4", "%4"},     {"%41", "A"},     {"%e9%E9", "\xc3\xa9\xc3\xa9"},
                       {"ab%00cd", "ab"}};
  for (const auto& c : cases)
    EXPECT_EQ(BoxLibraryNode::unEscapeFileName(c.first), c.second) << c.first;
  for (const std::string name : {"%", "<", ">", ":", "\"", "/", "|", "?", "*", " a ", "  ", "..",
                                 " . ", "%25", "%2f", "x%2e.", "Caf\xc3\xa9 ?", "a\\b"}) {
    EXPECT_EQ(BoxLibraryNode::unEscapeFileName(BoxLibraryNode::escapeFileName(name)), name)
        << '"' << name << '"';
  }
}

TEST(Names, NumberNameAppendsAGroupAndUnNumberNameStripsOnlyAFinalDigitGroup) {
  EXPECT_EQ(BoxLibraryNode::numberName("Box", 2), "Box (2)");
  EXPECT_EQ(BoxLibraryNode::numberName("Box", -1), "Box (-1)");
  const Pairs cases = {{"Box (2)", "Box"},         {"Box (12)", "Box"},
                       {"Box ()", "Box"},          {"Box(2)", "Box(2)"},
                       {"Box (2) ", "Box (2) "},   {"Box (2a)", "Box (2a)"},
                       {"Box (2) (3)", "Box (2)"}, {"Box (2)\n", "Box (2)\n"}};
  for (const auto& c : cases)
    EXPECT_EQ(BoxLibraryNode::unNumberName(c.first), c.second) << c.first;
}

TEST(Names, NewFoldersTakeTheFirstFreeNumberAmongTheirSiblings) {
  KR::BoxLibrary lib;
  BoxLibraryNode* root = lib.boxRoot();
  const auto* project = lib.projectModel();
  for (int i = 0; i < 3; ++i)
    root->appendChild("Box", false);
  BoxLibraryNode* gone = root->child(1);
  root->removeChild(1);
  delete gone;
  EXPECT_EQ(root->appendChild("Box", false)->name(), "Box (2)");
  EXPECT_EQ(root->appendChild("Box", false)->name(), "Box (4)");
  EXPECT_TRUE(project->hasDir("Box (2)") && project->hasDir("Box (4)"));

  struct Case {
    std::vector<std::string> siblings;
    std::string name, expectedName, expectedFileName;
  };
  const Case cases[] = {{{"Box", "Box (2)"}, "Box (2)", "Box (3)", "Box (3)"},
                        {{}, "Box (7)", "Box", "Box"},
                        {{"box"}, "Box", "Box", "Box"},
                        {{"a/b"}, "a/b", "a/b (2)", "a%2fb (2)"}};
  int n = 0;
  for (const Case& c : cases) {
    BoxLibraryNode* folder = root->appendChild("case " + std::to_string(++n), true);
    for (const std::string& sibling : c.siblings)
      folder->appendChild(sibling, false);
    const BoxLibraryNode* added = folder->appendChild(c.name, false);
    EXPECT_EQ(added->name(), c.expectedName) << c.name;
    EXPECT_EQ(added->fileName(), c.expectedFileName) << c.name;
    EXPECT_TRUE(project->hasDir(folder->path() + "/" + c.expectedFileName.c_str())) << c.name;
  }

  KR::BoxLibraryNode detached;
  detached.initName("Lib (2)");
  EXPECT_EQ(detached.name(), "Lib");
}

TEST(Names, SetNameMovesTheDirectoryWithItsSubtreeAndSignalsOnlyRealRequests) {
  KR::BoxLibrary lib;
  BoxLibraryNode* root = lib.boxRoot();
  const auto* project = lib.projectModel();
  BoxLibraryNode* top = root->appendChild("old", false);
  top->appendChild("inner", false);
  BoxLibraryNode* tools = root->appendChild("Tools", true);
  BoxLibraryNode* deep = tools->appendChild("old", false);
  deep->appendChild("inner", false);
  top->setName("new");
  deep->setName("new");
  // The listing follows, so the renamed node keeps its place.
  EXPECT_EQ(testutil::readListing(*project, "").names, (std::vector<std::string>{"new", "Tools"}));
  for (const QString dir : {"", "Tools/"}) {
    EXPECT_TRUE(project->hasFile(dir + "new/inner/lbfinfo")) << dir.toStdString();
    EXPECT_FALSE(project->hasDir(dir + "old")) << dir.toStdString();
  }

  BoxLibraryNode* box = tools->appendChild("Box", false);
  QSignalSpy spy(box, &BoxLibraryNode::dataChanged);
  box->setName("Box");
  EXPECT_EQ(spy.count(), 0);
  // Without a sibling "Box" the number is dropped: the name stays, yet the request counts.
  box->setName("Box (5)");
  EXPECT_EQ(box->name(), "Box");
  ASSERT_EQ(spy.count(), 1);
  EXPECT_EQ(spy.at(0).at(0).value<BoxLibraryNode*>(), box);
  EXPECT_TRUE(project->hasFile("Tools/Box/lbfinfo"));

  box->setName("new");
  EXPECT_EQ(box->name(), "new (2)");
  EXPECT_TRUE(project->hasFile("Tools/new (2)/lbfinfo") && !project->hasDir("Tools/Box"));

  BoxLibraryNode* slash = tools->appendChild("a/b", false);
  root->setName("Renamed");
  EXPECT_EQ(root->name(), "Renamed");
  EXPECT_EQ(root->path(), "");
  EXPECT_EQ(tools->path(), "Tools");
  EXPECT_EQ(slash->path(), "Tools/a%2fb");
}

// A name empty without its number would give the node its parent's directory; the others
// would collide with the library's own files or not fit a file system.
TEST(Names, NamesEmptyWithoutTheirNumberAreRefusedWithOneWarningAndNothingWritten) {
  KR::BoxLibrary lib;
  BoxLibraryNode* folder = lib.boxRoot()->appendChild("Folder", true);
  folder->appendChild("Inner", false);
  const QStringList before = lib.projectModel()->getFileList("", true, true, true);
  const testutil::LogCapture log;
  BoxLibraryNode unnamed;
  EXPECT_EQ(folder->appendChild(&unnamed), nullptr);
  for (const std::string& bad : std::vector<std::string>{"", " (2)", " ()", std::string("\0x", 2),
                                                        "  (3)", "LBFINFO", std::string(256, 'x')}) {
    EXPECT_EQ(folder->appendChild(bad, true), nullptr);
    EXPECT_EQ(folder->insertChild(0, bad, true), nullptr);
    EXPECT_EQ(folder->appendChild({bad, testutil::parseElement("<Box/>"), nullptr}), nullptr);
    folder->child(0)->setName(bad);
  }
  EXPECT_EQ(folder->childCount(), 1);
  EXPECT_EQ(folder->child(0)->name(), "Inner");
  EXPECT_EQ(lib.projectModel()->getFileList("", true, true, true), before);
  ASSERT_EQ(log.records().size(), 29u);
  EXPECT_EQ(log.records()[0].level, zu::log::LogLevel_Warning);
  EXPECT_EQ(log.records()[0].category, "krboxlibrary");
}

}  // namespace
