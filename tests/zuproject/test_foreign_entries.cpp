#include "project_fixtures.h"

using zu::project::ProjectModel;
using namespace testutil;

namespace {

// What other tools leave in a project: version control, the Finder, and a wrapping folder.
const char kForeign[] =
    ".git/ .git/HEAD=ref .git/refs/ a/ a/.svn/ a/.svn/entries=12 __MACOSX/ "
    "__MACOSX/._a=apple CVS=file";

class ForeignEntries : public ::testing::TestWithParam<Form> {};

TEST_P(ForeignEntries, AreNeitherSeenNorWrittenNorCarried) {
  const Form form = GetParam();
  const bool isDir = form.format == zu::project::ArchiveFormat_Directory;
  QTemporaryDir tmp;
  const QString source = tmp.path() + "/" + form.fileName;
  const Tree own = treeOf(".gitignore=*.orig a/ a/f=1 a/.DS_Store=finder");
  Tree all = own;
  for (const auto& [path, bytes] : treeOf(kForeign))
    all[path] = bytes;
  isDir ? writeTree(source, all) : writeArchive(source, treeEntries(all, ""), form.kind);

  ProjectModel model;
  model.load(source, zu::project::ArchiveFormat_Auto);
  EXPECT_EQ(flat(modelTree(model)), flat(own));
  EXPECT_TRUE(model.readFile("a/.svn/entries").isNull());
  for (const char* path : {".git/config", "a/CVS", "b/__MACOSX/x"})
    EXPECT_THROW(model.writeFile(path, "x"), zu::project::PathNotFound) << path;
  EXPECT_THROW(model.move("a", ".hg", false), zu::project::PathNotFound);

  // In place, a directory keeps them untouched; an archive is written without them.
  model.writeFile("a/f", "2");
  model.remove(".gitignore");
  model.save(QString(), zu::project::ArchiveFormat_Current, true);
  Tree expected = isDir ? all : own;
  expected["a/f"] = "2";
  expected.erase(".gitignore");
  EXPECT_EQ(flat(isDir ? diskSnapshot(source) : savedTree(source, form)), flat(expected));
  if (isDir) {
    // A directory replaced by another project keeps its repository.
    const QString other = tmp.path() + "/other";
    writeTree(other, treeOf("x=1"));
    ProjectModel replacement;
    replacement.load(other, zu::project::ArchiveFormat_Directory);
    replacement.save(source, zu::project::ArchiveFormat_Directory, true);
    EXPECT_EQ(flat(diskSnapshot(source)),
              ".git/ .git/HEAD=ref .git/refs/ CVS=file __MACOSX/ __MACOSX/._a=apple x=1");
  }
}

INSTANTIATE_TEST_SUITE_P(Forms, ForeignEntries, ::testing::ValuesIn(kForms), formName);

TEST(WrappedArchive, ReadsTheProjectInsideAndKeepsTheFolderWhenSaved) {
  QTemporaryDir tmp;
  struct Case {
    const char* tree;
    bool unwrapped;
  };
  const Case cases[] = {
      {"Lib/ Lib/lbfinfo=l Lib/a/ Lib/a/f=1 .DS_Store=x __MACOSX/ __MACOSX/._Lib=y", true},
      {"Lib/ Lib/lbfinfo=l Lib/.metadata=m", true},
      {"Lib/ Lib/.metadata=m Lib/a/", false},                // metadata alone is no library
      {"Lib/ Lib/a/ Lib/a/lbfinfo=l", false},                // the folder holds no top files
      {"Lib/ Lib/lbfinfo=l lbfinfo=l", false},               // the top is a project itself
      {"Lib/ Lib/lbfinfo=l Other/ Other/lbfinfo=l", false},  // two folders
      {"Lib/ Lib/lbfinfo=l notes.txt=n", false},             // a file a save would lose
  };
  for (const Form& form : {kForms[1], kForms[3]}) {
    for (const Case& c : cases) {
      const QString path = tmp.path() + "/" + form.fileName;
      QFile::remove(path);
      writeArchive(path, treeEntries(treeOf(c.tree), ""), form.kind);
      ProjectModel model;
      model.load(path, zu::project::ArchiveFormat_Auto);
      SCOPED_TRACE(std::string(form.name) + ": " + c.tree);
      EXPECT_EQ(model.hasDir("Lib"), !c.unwrapped);
      if (!c.unwrapped)
        continue;
      model.writeFile("b/g", "2");
      model.save(QString(), zu::project::ArchiveFormat_Current, true);
      for (const ArchiveEntry& entry : readArchive(path).entries)
        EXPECT_EQ(entry.path.rfind("Lib", 0), 0u) << entry.path;
    }
  }
}

}  // namespace
