#include "library_fixtures.h"

namespace {

using KR::BoxLibraryNode;
using zu::project::ProjectModel;

// The children below node as "name<fileName when it differs>+ or -(grandchildren)".
std::string tree(const BoxLibraryNode* node) {
  std::string text;
  for (const BoxLibraryNode* child : node->childList()) {
    text += (text.empty() ? "" : " ") + child->name();
    if (child->fileName() != child->name())
      text += "<" + child->fileName() + ">";
    text += child->isExpanded() ? "+" : "-";
    if (child->childCount() > 0)
      text += "(" + tree(child) + ")";
  }
  return text;
}

// A listing as "expanded|name|name..."; "unreadable" unless it is a Folder.
std::string listing(const QByteArray& xml) {
  const testutil::Listing parsed = testutil::parseListing(xml);
  if (!parsed.present)
    return "unreadable";
  std::string text = parsed.expanded;
  for (const std::string& name : parsed.names)
    text += "|" + name;
  return text;
}

// Every folder's listing must name exactly the children held, or a reload would differ.
void expectListingsMatchTree(const ProjectModel& model, const BoxLibraryNode* node) {
  std::string held = node->isExpanded() ? "yes" : "no";
  for (const BoxLibraryNode* child : node->childList()) {
    held += "|" + child->name();
    expectListingsMatchTree(model, child);
  }
  const QString file = node->path().isEmpty() ? "lbfinfo" : node->path() + "/lbfinfo";
  EXPECT_EQ(listing(model.readFile(file)), held) << file.toStdString();
}

const char* const kOrderListing =
    R"(<Folder expanded="true"><Node name="B"/><Node name="X"/><Node name="A"/></Folder>)";
// Each folder tries one way a listing can disagree with the directories beside it.
const testutil::Fixture kStale = {
    {"lbfinfo",
     R"(<Folder expanded="yes"><Node name="a/b"/><Node name="Order"/><Node name="Missing"/>
        <Node name="Look: Up?"/><Node name="Order"/></Folder>)"},
    {"readme.txt", "a stray file"},
    {"Order/lbfinfo", kOrderListing},
    {"Order/notes.txt", "another stray file"},
    {"Order/Z/", ""},
    {"Order/A/", ""},
    {"Order/B/", ""},
    {"Look%3a Up%3f/", ""},
    {"a%2Fb/", ""},
    {"Flags/no/lbfinfo", R"(<Folder expanded="no"/>)"},
    {"Flags/No/lbfinfo", R"(<Folder expanded="No"/>)"},
    {"Flags/true/lbfinfo", R"(<Folder expanded="true"/>)"},
    {"Flags/blank/lbfinfo", R"(<Folder expanded=""/>)"},
    {"Flags/absent/lbfinfo", R"(<Folder/>)"},
    {"Other/lbfinfo", R"(<Library expanded="yes"><Node name="Y"/></Library>)"},
    {"Other/Y/", ""},
    {"Other/X/", ""},
    {"Broken/lbfinfo", R"(<Folder expanded="yes"><Node name="Y"/>)"},
    {"Broken/Y/", ""},
    {"Broken/X/", ""},
};
const char* const kReconciled =
    "Order+(B- A- Z-) Look: Up?<Look%3a Up%3f>- Broken-(X- Y-) "
    "Flags-(No+ absent- blank+ no- true+) Other-(X- Y-) a/b<a%2Fb>-";

void expectReconciled(const QString& path) {
  SCOPED_TRACE(path.toStdString());
  const KR::BoxLibrary lib(path);
  EXPECT_TRUE(lib.boxRoot()->isExpanded());
  EXPECT_EQ(tree(lib.boxRoot()), kReconciled);
  expectListingsMatchTree(*lib.projectModel(), lib.boxRoot());
}

TEST(FolderListing, StaleListingsAreReconciledAlikeFromDirectoriesAndZipsAndKeptBySaving) {
  const testutil::LogCapture quiet;
  QTemporaryDir temp;
  ASSERT_TRUE(temp.isValid());
  const QString dir = temp.filePath("lib"), zip = temp.filePath("lib.zip");
  testutil::writeFixture(dir, kStale);
  testutil::writeZipFixture(zip, kStale);
  expectReconciled(zip);
  expectReconciled(dir);
  // Reconciling works on the model: the disk changes only when the library is saved.
  EXPECT_EQ(testutil::readDiskFile(dir + "/Order/lbfinfo"), QByteArray(kOrderListing));
  {
    KR::BoxLibrary lib(dir);
    lib.save();
    lib.saveTo(temp.filePath("saved.zip"), KR::BoxLibrary::ZipFormat);
  }
  EXPECT_EQ(listing(testutil::readDiskFile(dir + "/lbfinfo")),
            "yes|Order|Look: Up?|Broken|Flags|Other|a/b");
  expectReconciled(dir);
  expectReconciled(temp.filePath("saved.zip"));
}

TEST(FolderListing, ARootWithoutListingsGetsSortedCollapsedFolders) {
  QTemporaryDir temp;
  testutil::writeFixture(temp.path(), {{"b/", ""}, {"A/inner/", ""}, {"A/file.txt", "text"}});
  const KR::BoxLibrary lib(temp.path());
  EXPECT_FALSE(lib.boxRoot()->isExpanded());
  EXPECT_EQ(tree(lib.boxRoot()), "A-(inner-) b-");
  expectListingsMatchTree(*lib.projectModel(), lib.boxRoot());
}

}  // namespace
