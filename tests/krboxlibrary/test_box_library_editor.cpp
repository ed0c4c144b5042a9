#include "library_fixtures.h"

#include <krboxlibrary/box_library_editor.h>

#include <QSet>

#include <functional>

namespace {

using KR::BoxLibraryEditor;
using KR::BoxLibraryNode;

// The tree as read back: folders with their expanded flag, boxes with their values.
void dump(const BoxLibraryNode& node, int depth, std::string& out) {
  for (const BoxLibraryNode* child : node.childList()) {
    out += std::string(depth * 2, ' ') + child->name();
    if (const auto& box = child->boxData())
      out += " [" + box->tooltip().toStdString() + "|" + box->bitmaps().join(',').toStdString() +
             (box->bitmapExpanded() ? "" : "|small") + "]";
    else
      out += child->isExpanded() ? " -" : " +";
    out += "\n";
    dump(*child, depth + 1, out);
  }
}

std::string dump(const KR::BoxLibrary& library) {
  std::string out;
  dump(*library.boxRoot(), 0, out);
  return out;
}

// The entries a change added ("+path") and removed ("-path") on disk.
std::string changedEntries(const QStringList& before, const QStringList& after) {
  std::string out;
  const QSet<QString> old(before.begin(), before.end());
  const QSet<QString> now(after.begin(), after.end());
  for (const QString& entry : after)
    out += old.contains(entry) ? "" : " +" + entry.toStdString();
  for (const QString& entry : before)
    out += now.contains(entry) ? "" : " -" + entry.toStdString();
  return out;
}

using Edit = std::function<bool(BoxLibraryEditor&, KR::BoxLibrary&)>;

BoxLibraryNode* at(KR::BoxLibrary& library, const std::string& path) {
  BoxLibraryNode* node = library.boxRoot();
  std::size_t start = 0;
  while (node && start < path.size()) {
    const std::size_t slash = path.find('/', start);
    node = node->child(path.substr(start, slash - start));
    start = slash == std::string::npos ? path.size() : slash + 1;
  }
  return node;
}

class Editor : public ::testing::Test {
protected:
  void SetUp() override {
    ASSERT_TRUE(dir.isValid());
    testutil::writeFixture(dir.filePath("src"),
                           {{"Nod%3f/box.bxd", testutil::boxFile(R"(<Box tooltip="Nods"/>)")},
                            {"Nod%3f/nod.txt", "yes"},
                            {"bad.bxd", "<VantorelBox><Box/></VantorelBox>"}});
  }
  // A library of two folders, with boxes of the same name in each, at dir/name.
  QString makeLibrary(const QString& name) const {
    const std::string box = testutil::boxFile(R"(<Box name="root" tooltip="Tip"/>)");
    testutil::writeFixture(
        dir.filePath(name),
        {{"lbfinfo", R"(<Folder expanded="yes"><Node name="A"/><Node name="B"/></Folder>)"},
         {"A/lbfinfo",
          R"x(<Folder expanded="no"><Node name="Box"/><Node name="Box (3)"/></Folder>)x"},
         {"A/Box/box.bxd", box},
         {"A/Box/icon.png", "png"},
         {"A/Box (3)/box.bxd", box},
         {"A/notes.txt", "not a node"},
         {"B/lbfinfo", R"(<Folder expanded="yes"><Node name="Box"/></Folder>)"},
         {"B/Box/box.bxd", box}});
    return dir.filePath(name);
  }

  QTemporaryDir dir;
};

TEST_F(Editor, EachEditChangesTheTreeAndItsFiles) {
  const QString nod = dir.filePath("src/Nod%3f/box.bxd");
  const struct {
    const char* name;
    Edit edit;
    const char* tree;
    const char* files;
  } cases[] = {
      {"new folder", [](auto& e, auto& l) { return e.newFolder(l.boxRoot(), 1, "New/One"); },
       "A +\n  Box [Tip|]\n  Box (3) [Tip|]\nNew/One -\nB -\n  Box [Tip|]\n",
       " +New%2fOne/ +New%2fOne/lbfinfo"},
      {"add box file",
       [&](auto& e, auto& l) {
         return e.addBoxFile(at(l, "B"), 0, nod, {dir.filePath("src/Nod%3f/nod.txt")});
       },
       "A +\n  Box [Tip|]\n  Box (3) [Tip|]\nB -\n  Nod? [Nods|]\n  Box [Tip|]\n",
       " +B/Nod%3f/ +B/Nod%3f/box.bxd +B/Nod%3f/nod.txt"},
      {"copy", [](auto& e, auto& l) { return e.copy(at(l, "A/Box"), at(l, "B"), -1); },
       "A +\n  Box [Tip|]\n  Box (3) [Tip|]\nB -\n  Box [Tip|]\n  Box (2) [Tip|]\n",
       " +B/Box (2)/ +B/Box (2)/box.bxd +B/Box (2)/icon.png"},
      {"rename keeps the place", [](auto& e, auto& l) { return e.rename(at(l, "A/Box"), "R?"); },
       "A +\n  R? [Tip|]\n  Box (3) [Tip|]\nB -\n  Box [Tip|]\n",
       " +A/R%3f/ +A/R%3f/box.bxd +A/R%3f/icon.png -A/Box/ -A/Box/box.bxd -A/Box/icon.png"},
      {"move across, numbered",
       [](auto& e, auto& l) { return e.move(at(l, "B/Box"), at(l, "A"), 0); },
       "A +\n  Box (2) [Tip|]\n  Box [Tip|]\n  Box (3) [Tip|]\nB -\n",
       " +A/Box (2)/ +A/Box (2)/box.bxd -B/Box/ -B/Box/box.bxd"},
      {"move within", [](auto& e, auto& l) { return e.move(at(l, "A/Box"), at(l, "A"), -1); },
       "A +\n  Box (3) [Tip|]\n  Box [Tip|]\nB -\n  Box [Tip|]\n", ""},
      {"remove", [](auto& e, auto& l) { return e.remove(at(l, "A/Box")); },
       "A +\n  Box (3) [Tip|]\nB -\n  Box [Tip|]\n", " -A/Box/ -A/Box/box.bxd -A/Box/icon.png"},
      {"tooltip", [](auto& e, auto& l) { return e.setTooltip(at(l, "B/Box"), "New"); },
       "A +\n  Box [Tip|]\n  Box (3) [Tip|]\nB -\n  Box [New|]\n", ""},
      {"bitmaps",
       [](auto& e, auto& l) {
         return e.setBitmaps(at(l, "B/Box"), {"a.png", "b.png"});
       },
       "A +\n  Box [Tip|]\n  Box (3) [Tip|]\nB -\n  Box [Tip|a.png,b.png]\n", ""},
      {"bitmap style", [](auto& e, auto& l) { return e.setBitmapExpanded(at(l, "B/Box"), false); },
       "A +\n  Box [Tip|]\n  Box (3) [Tip|]\nB -\n  Box [Tip||small]\n", ""},
      {"expanded", [](auto& e, auto& l) { return e.setExpanded(at(l, "A"), true); },
       "A -\n  Box [Tip|]\n  Box (3) [Tip|]\nB -\n  Box [Tip|]\n", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const QString path = makeLibrary(c.name);
    const QStringList before = testutil::diskTree(path);
    {
      KR::BoxLibrary library(path);
      BoxLibraryEditor editor(&library);
      ASSERT_TRUE(c.edit(editor, library)) << editor.errorString().toStdString();
      EXPECT_EQ(dump(library), c.tree);
      library.save();
    }
    KR::BoxLibrary reread(path);
    EXPECT_EQ(dump(reread), c.tree) << "read back";
    EXPECT_EQ(changedEntries(before, testutil::diskTree(path)), c.files);
  }
}

TEST_F(Editor, RefusalsSayWhyAndChangeNothing) {
  KR::BoxLibrary other;
  const struct {
    Edit edit;
    const char* reason;
  } cases[] = {
      {[](auto& e, auto& l) { return e.newFolder(l.boxRoot(), 0, " (2)"); }, "empty without"},
      {[](auto& e, auto& l) { return e.newFolder(l.boxRoot(), 0, " \t"); }, "it is blank"},
      {[](auto& e, auto& l) { return e.newFolder(at(l, "A"), 0, "LbfInfo (4)"); }, "library's own"},
      {[](auto& e, auto& l) { return e.newFolder(l.boxRoot(), 0, ".zuproject-pending"); },
       "library's own"},
      {[](auto& e, auto& l) { return e.rename(at(l, "A"), ".metadata"); }, "library's own"},
      {[](auto& e, auto& l) { return e.rename(at(l, "A"), ".git"); }, "version control"},
      {[](auto& e, auto& l) { return e.rename(at(l, "A"), QString(253, 'x') + "?"); },
       "longer than 255"},
      {[](auto& e, auto& l) { return e.newFolder(at(l, "A"), 0, "notes.txt"); }, "cannot make"},
      {[](auto& e, auto& l) { return e.rename(at(l, "A/Box"), "notes.txt"); }, "cannot rename"},
      {[](auto& e, auto& l) { return e.newFolder(l.boxRoot(), 3, "X"); }, "no position 3"},
      {[](auto& e, auto& l) { return e.newFolder(l.boxRoot(), -2, "X"); }, "no position -2"},
      {[](auto& e, auto& l) { return e.newFolder(at(l, "A/Box"), 0, "X"); }, "is a box"},
      {[&](auto& e, auto&) { return e.newFolder(other.boxRoot(), 0, "X"); }, "not in this"},
      {[](auto& e, auto& l) { return e.move(at(l, "A"), at(l, "A"), 0); }, "into itself"},
      {[](auto& e, auto& l) { return e.move(l.boxRoot(), at(l, "A"), 0); }, "cannot move"},
      {[](auto& e, auto& l) { return e.move(at(l, "A/Box"), at(l, "A"), 2); }, "0 to 1"},
      {[](auto& e, auto& l) { return e.copy(at(l, "A"), at(l, "A"), 0); }, "into itself"},
      {[](auto& e, auto& l) { return e.rename(l.boxRoot(), "X"); }, "top of the library"},
      {[](auto& e, auto& l) { return e.remove(l.boxRoot()); }, "top of the library"},
      {[](auto& e, auto& l) { return e.setTooltip(at(l, "A"), "X"); }, "not a box"},
      {[](auto& e, auto& l) { return e.setExpanded(at(l, "A/Box"), true); }, "is a box"},
      {[&](auto& e, auto& l) { return e.addBoxFile(l.boxRoot(), 0, dir.filePath("none.bxd")); },
       "no box file"},
      {[&](auto& e, auto& l) {
         return !e.addBoxFiles(l.boxRoot(), 0,
                               {dir.filePath("src/Nod%3f/box.bxd"), dir.filePath("src/bad.bxd")})
                     .isEmpty();
       },
       "not a version 3 box file"},
  };
  const QString lib = makeLibrary("lib");
  KR::BoxLibrary library(lib);
  BoxLibraryEditor editor(&library);
  QSignalSpy inserted(&editor, &BoxLibraryEditor::nodeAboutToBeInserted);
  QSignalSpy changed(&library, &KR::BoxLibrary::dataChanged);
  const std::string tree = dump(library);
  for (const auto& c : cases) {
    EXPECT_FALSE(c.edit(editor, library)) << c.reason;
    EXPECT_TRUE(editor.errorString().contains(c.reason)) << editor.errorString().toStdString();
    EXPECT_EQ(dump(library), tree) << c.reason;
  }
  EXPECT_EQ(inserted.count() + changed.count(), 0);
  const QString files = testutil::diskTree(lib).join('\n');
  library.save();
  EXPECT_EQ(testutil::diskTree(lib).join('\n').toStdString(), files.toStdString());
}

// A name read from disk that the editor would not give (blank) still moves and copies.
TEST_F(Editor, NodesReadUnderUnusableNamesMoveAndCopy) {
  const QString path = makeLibrary("odd");
  testutil::writeFixture(path, {{"A/%20/lbfinfo", "<Folder/>"}});
  KR::BoxLibrary library(path);
  BoxLibraryEditor editor(&library);
  ASSERT_TRUE(editor.move(at(library, "A/ "), at(library, "B"), 0))
      << editor.errorString().toStdString();
  EXPECT_TRUE(editor.copy(at(library, "B/ "), at(library, "A"), 0))
      << editor.errorString().toStdString();
}

}  // namespace
