#include "library_fixtures.h"

#include <boost/make_shared.hpp>

namespace {

using KR::BoxLibraryNode;
using KR::RootBoxDescription;
using testutil::boxFile;

RootBoxDescription description(const std::string& name, const std::string& box) {
  RootBoxDescription result;
  result.name = name;
  result.box = testutil::parseElement(box);
  return result;
}

// Every file below dir in model, with its bytes.
std::map<QString, QByteArray> filesBelow(const zu::project::ProjectModel& model,
                                         const QString& dir) {
  std::map<QString, QByteArray> files;
  for (const QString& file : model.getFileList(dir, false, true, true))
    files[file] = model.readFile(dir.isEmpty() ? file : dir + "/" + file);
  return files;
}

TEST(BoxCreation, DescriptionsMakeBoxesWithUniqueNamesAndTheirFiles) {
  QTemporaryDir dir;
  testutil::writeFixture(dir.path(), {{"Moves/", ""}});
  KR::BoxLibrary library(dir.path());
  zu::project::ProjectModel& model = *library.projectModel();
  BoxLibraryNode* moves = library.node({0});

  EXPECT_EQ(moves->appendChild(RootBoxDescription{"Empty", nullptr, nullptr}), nullptr);
  EXPECT_EQ(moves->childCount(), 0);
  EXPECT_EQ(model.getFileList("Moves", true, false, false), QStringList());

  const RootBoxDescription walk = description("Walk: Fast", R"(<Box name="Walk" tooltip="w"/>)");
  BoxLibraryNode* first = moves->appendChild(walk);
  BoxLibraryNode* second = moves->insertChild(0, walk);
  ASSERT_TRUE(first && second && first->isBox() && second->isBox());
  EXPECT_EQ(walk.box->attribute("name", ""), "Walk") << "the caller's element is not renamed";
  EXPECT_EQ(moves->childList(), (QList<BoxLibraryNode*>{second, first}));
  EXPECT_EQ(first->name(), "Walk: Fast");
  EXPECT_EQ(second->name(), "Walk: Fast (2)");
  EXPECT_EQ(second->fileName(), "Walk%3a Fast (2)");
  EXPECT_FALSE(second->isExpanded());
  EXPECT_EQ(testutil::readListing(model, "Moves").names,
            (std::vector<std::string>{"Walk: Fast (2)", "Walk: Fast"}));
  EXPECT_EQ(second->loadBox()->attribute("name", ""), "root");
  EXPECT_EQ(second->boxData()->tooltip(), "w");
  // With no project anywhere, the box is made all the same and written nowhere.
  BoxLibraryNode detached;
  EXPECT_NE(detached.appendChild(walk), nullptr);

  // The folder relays the new box's changes.
  QSignalSpy changes(moves, &BoxLibraryNode::dataChanged);
  first->boxData()->setTooltip("changed");
  ASSERT_EQ(changes.size(), 1);
  EXPECT_EQ(changes[0][0].value<BoxLibraryNode*>(), first);
  EXPECT_EQ(first->loadBox()->attribute("tooltip", ""), "changed");

  // A behavior in a behavior-compatible library is written as a project.
  library.setBehaviorCompatible(true);
  BoxLibraryNode* stand = moves->appendChild(description(
      "Stand", "<Box name=\"Stand\">" + std::string(testutil::kBehaviorInterface) + "</Box>"));
  EXPECT_TRUE(stand->boxData()->behavior());
  EXPECT_TRUE(model.hasFile("Moves/Stand/behavior.bxd"));
  EXPECT_FALSE(model.hasFile("Moves/Stand/box.bxd"));
}

TEST(BoxCreation, ResourcesAreCopiedFromTheirRecord) {
  QTemporaryDir dir;
  testutil::writeFixture(dir.path(), {{"Sounds/", ""}});
  KR::BoxLibrary library(dir.path());
  zu::project::ProjectModel source;
  source.writeFile("Hello/hello.wav", "RIFF");
  source.writeFile("Hello/words.txt", "hi");
  source.writeFile("Hello/left out.txt", "no");

  RootBoxDescription hello = description("Hello", R"(<Box name="root"/>)");
  hello.resources = boost::make_shared<KR::BoxResourceList>();
  hello.resources->project = &source;
  hello.resources->path = "Hello";
  hello.resources->files = QStringList{"/hello.wav", "", "words.txt"};
  BoxLibraryNode* box = library.node({0})->appendChild(hello);
  ASSERT_TRUE(box);
  EXPECT_EQ(box->resources()->files, (QStringList{"hello.wav", "words.txt"}));
  EXPECT_EQ(library.projectModel()->readFile("Sounds/Hello/hello.wav"), "RIFF");

  hello.resources->project = nullptr;
  BoxLibraryNode* bare = library.node({0})->appendChild(hello);
  ASSERT_TRUE(bare);
  EXPECT_TRUE(bare->resources()->files.isEmpty());
  EXPECT_TRUE(library.projectModel()->hasFile("Sounds/Hello (2)/box.bxd"));
}

TEST(BoxCreation, CloneIsADetachedCopyReadFromItsOwnFiles) {
  QTemporaryDir dir;
  testutil::writeFixture(dir.path(),
                         {{"Tools/lbfinfo", R"(<Folder expanded="yes"><Node name="Walk"/>)"
                                            R"(<Node name="Sit"/></Folder>)"},
                          {"Tools/Walk/box.bxd", boxFile(R"(<Box name="root" tooltip="w"/>)")},
                          {"Tools/Walk/steps.txt", "left right"},
                          {"Tools/Sit/box.bxd", boxFile(R"(<Box name="root" tooltip="s"/>)")}});
  KR::BoxLibrary library(dir.path());
  zu::project::ProjectModel& model = *library.projectModel();
  BoxLibraryNode* tools = library.node({0});
  const auto sourceFiles = filesBelow(model, "Tools");

  BoxLibraryNode* copy = tools->clone();
  EXPECT_EQ(copy->parent(), nullptr);
  EXPECT_EQ(copy->QObject::parent(), nullptr);
  EXPECT_EQ(copy->library(), nullptr);
  EXPECT_NE(copy->project(), &model);
  EXPECT_EQ(copy->name(), "Tools");
  EXPECT_TRUE(copy->isExpanded());
  EXPECT_EQ(filesBelow(*copy->project(), ""), sourceFiles);

  library.boxRoot()->removeChild(0);
  delete tools;
  ASSERT_EQ(copy->childCount(), 2);
  BoxLibraryNode* walk = copy->child(0);
  EXPECT_EQ(walk->name(), "Walk");
  EXPECT_EQ(walk->boxData()->tooltip(), "w");
  EXPECT_EQ(walk->resources()->files, QStringList{"steps.txt"});
  EXPECT_EQ(copy->child(1)->name(), "Sit");

  // A cloned box's data writes to the clone's files but announces nothing on the clone.
  BoxLibraryNode* walkCopy = walk->clone();
  QSignalSpy changes(walkCopy, &BoxLibraryNode::dataChanged);
  walkCopy->boxData()->setTooltip("copied");
  EXPECT_EQ(changes.size(), 0);
  EXPECT_EQ(walkCopy->loadBox()->attribute("tooltip", ""), "copied");
  EXPECT_EQ(walk->boxData()->tooltip(), "w");
  delete walkCopy;
  delete copy;
}

}  // namespace
