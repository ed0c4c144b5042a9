#include "library_fixtures.h"

namespace {

using KR::BoxLibraryNode;
using testutil::readListing;

std::vector<std::string> namesOf(const BoxLibraryNode* folder) {
  std::vector<std::string> names;
  for (const BoxLibraryNode* child : folder->childList())
    names.push_back(child->name());
  return names;
}

TEST(NodeTree, NewFoldersWriteTheirDirectoryAndBothListings) {
  KR::BoxLibrary lib;
  const zu::project::ProjectModel& model = *lib.projectModel();
  BoxLibraryNode* root = lib.boxRoot();

  EXPECT_EQ(root->appendChild("", true), nullptr);
  EXPECT_EQ(root->insertChild(0, "", true), nullptr);
  EXPECT_EQ(root->childCount(), 0);
  EXPECT_TRUE(readListing(model, "").names.empty());

  BoxLibraryNode* tools = root->appendChild("Tools", true);
  BoxLibraryNode* first = root->insertChild(0, "First", false);
  BoxLibraryNode* nested = tools->appendChild("a/b", false);
  EXPECT_EQ(namesOf(root), (std::vector<std::string>{"First", "Tools"}));
  EXPECT_TRUE(model.hasDir("Tools/a%2fb"));
  EXPECT_EQ(readListing(model, "").names, (std::vector<std::string>{"First", "Tools"}));
  EXPECT_EQ(readListing(model, "Tools").expanded, "yes");
  EXPECT_EQ(readListing(model, "Tools").names, (std::vector<std::string>{"a/b"}));
  EXPECT_EQ(readListing(model, "First").expanded, "no");
  EXPECT_TRUE(readListing(model, "Tools/a%2fb").present);

  nested->setExpanded(true);
  EXPECT_EQ(readListing(model, "Tools/a%2fb").expanded, "yes");

  // Lookups and walks.
  EXPECT_EQ(root->index(), 0);
  EXPECT_EQ(tools->index(), 1);
  EXPECT_EQ(root->child(-1), nullptr);
  EXPECT_EQ(root->child(2), nullptr);
  EXPECT_EQ(root->child(0), first);
  EXPECT_EQ(root->child(std::string("Tools")), tools);
  EXPECT_EQ(root->child(std::string("tools")), nullptr);
  EXPECT_EQ(nested->library(), &lib);
  EXPECT_EQ(nested->project(), lib.projectModel());
  EXPECT_EQ(nested->path(), "Tools/a%2fb");
  EXPECT_EQ(lib.node({1, 0}), nested);
  EXPECT_EQ(lib.node({}), root);
  EXPECT_EQ(lib.node({1, 5}), nullptr);
  EXPECT_EQ(lib.node({-1}), nullptr);
}

TEST(NodeTree, RemovedChildLosesItsFilesButNotItsObject) {
  KR::BoxLibrary lib;
  BoxLibraryNode* root = lib.boxRoot();
  root->appendChild("Keep", false);
  BoxLibraryNode* gone = root->appendChild("Gone", false);
  gone->appendChild("Inside", false);

  QSignalSpy rootSpy(root, &BoxLibraryNode::dataChanged);
  root->removeChild(1);
  std::unique_ptr<BoxLibraryNode> owned(gone);  // in-place nodes belong to the caller now
  EXPECT_FALSE(lib.projectModel()->hasDir("Gone"));
  EXPECT_EQ(readListing(*lib.projectModel(), "").names, (std::vector<std::string>{"Keep"}));
  EXPECT_EQ(gone->parent(), nullptr);
  EXPECT_EQ(gone->childCount(), 1);
  EXPECT_EQ(gone->project(), nullptr);

  // The relay to the old parent is cut.
  gone->child(0)->setName("Renamed");
  EXPECT_EQ(rootSpy.count(), 0);
}

TEST(NodeTree, TakeAndInsertMoveASubtreeAcrossFolders) {
  KR::BoxLibrary lib;
  zu::project::ProjectModel* model = lib.projectModel();
  BoxLibraryNode* root = lib.boxRoot();
  BoxLibraryNode* source = root->appendChild("Source", true);
  BoxLibraryNode* target = root->appendChild("Target", true);
  target->appendChild("Walk", false);
  BoxLibraryNode* walk = source->appendChild("Walk", false);
  BoxLibraryNode* step = walk->appendChild("Step", false);

  ASSERT_EQ(walk->take(), walk);
  EXPECT_EQ(walk->parent(), nullptr);
  EXPECT_EQ(walk->library(), nullptr);
  EXPECT_EQ(source->childCount(), 0);
  zu::project::ProjectModel* own = walk->project();
  ASSERT_NE(own, model);
  EXPECT_EQ(step->project(), own);
  EXPECT_TRUE(own->hasFile("Step/lbfinfo"));
  // Taking leaves the old files and listing alone; the caller tidies up.
  EXPECT_TRUE(model->hasDir("Source/Walk"));
  EXPECT_EQ(readListing(*model, "Source").names, (std::vector<std::string>{"Walk"}));

  ASSERT_EQ(target->insertChild(0, walk), walk);
  EXPECT_EQ(walk->name(), "Walk (2)");
  EXPECT_EQ(walk->QObject::parent(), target);
  EXPECT_EQ(walk->project(), model);
  EXPECT_EQ(step->path(), "Target/Walk (2)/Step");
  EXPECT_TRUE(model->hasFile("Target/Walk (2)/Step/lbfinfo"));
  EXPECT_EQ(readListing(*model, "Target").names, (std::vector<std::string>{"Walk (2)", "Walk"}));

  QSignalSpy libSpy(&lib, &KR::BoxLibrary::dataChanged);
  step->setName("Stride");
  EXPECT_TRUE(model->hasDir("Target/Walk (2)/Stride"));
  // Once through the new parent, once through the relay take() deliberately keeps.
  EXPECT_EQ(libSpy.count(), 2);
}

}  // namespace
