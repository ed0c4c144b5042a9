#include "library_fixtures.h"

namespace {

using Problem = KR::BoxLibraryProblem;

// Each entry tries one thing the tree read reconciles or skips without a word.
const testutil::Fixture kWild = {
    {"lbfinfo",
     R"(<Folder><Node name="A"/><Node name="Gone"/><Node name="A"/><Node name="Fine"/></Folder>)"},
    {"A/lbfinfo", "<<<<<<< HEAD\n<Folder/>\n=======\n<Folder expanded=\"yes\"/>\n>>>>>>> b\n"},
    {"A/Bad/box.bxd", "<root"},
    {"A/Both/behavior.bxd", testutil::boxFile(R"(<Box name="Both"/>)")},
    {"A/Both/box.bxd", testutil::boxFile(R"(<Box name="Both"/>)")},
    {"A/CON.wav/", ""},
    {"A/Kick/", ""},
    {"A/Old/box.bxd", testutil::boxFile(R"(<Box name="Old"/>)", "1")},
    {"A/Same%3a/", ""},
    {"A/Same:/", ""},
    {"A/kick/", ""},
    {"Extra/p/", ""},
    {"Extra/q/", ""},
    {"Fine/lbfinfo", R"(<Folder expanded="yes"><Node name="Box: 1"/></Folder>)"},
    {"Fine/Box%3a 1/box.bxd", testutil::boxFile(R"(<Box name="Box: 1"/>)")},
};

TEST(LibraryProblems, NameEverythingTheReadReconciledInDirectoriesAndZips) {
  const std::tuple<Problem::Kind, const char*, const char*> expected[] = {
      {Problem::MissingDirectory, "Gone", "lbfinfo"},
      {Problem::ListedTwice, "A", "lbfinfo"},
      {Problem::UnlistedDirectory, "Extra", "Extra"},
      {Problem::ConflictedListing, "A", "A/lbfinfo"},
      {Problem::UnreadableBoxFile, "A/Bad", "A/Bad/box.bxd"},
      {Problem::IgnoredBoxFile, "A/Both", "A/Both/box.bxd"},
      {Problem::UnreadableBoxFile, "A/Old", "A/Old/box.bxd"},
      {Problem::NonPortableName, "A/CON.wav", "A/CON.wav"},
      {Problem::SameName, "A/Same:", "A/Same:"},
      {Problem::NonPortableName, "A/Same:", "A/Same:"},
      {Problem::NonPortableName, "A/kick", "A/kick"},
      {Problem::MissingListing, "Extra", "Extra/lbfinfo"},
  };
  QTemporaryDir temp;
  const QString dir = temp.filePath("lib"), zip = temp.filePath("lib.zip");
  testutil::writeFixture(dir, kWild);
  testutil::writeZipFixture(zip, kWild);
  // However many threads read the files, the tree, its listings and its problems are one.
  for (const int threads : {0, 1, 3}) {
    KR::BoxLibrary::setReadThreads(threads);
    for (const QString& source : {dir, zip}) {
      SCOPED_TRACE(source.toStdString() + ", threads " + std::to_string(threads));
      const KR::BoxLibrary library(source);
      const QList<Problem> problems = library.problems();
      ASSERT_EQ(problems.size(), static_cast<int>(std::size(expected)));
      for (int i = 0; i < problems.size(); ++i) {
        const auto& [kind, path, file] = expected[i];
        EXPECT_EQ(problems[i].kind, kind) << i;
        EXPECT_EQ(problems[i].path, path) << i;
        EXPECT_EQ(problems[i].file, file) << i;
      }
      EXPECT_EQ(testutil::treeText(*library.boxRoot()),
                " [A [Bad, Both: , CON.wav, Kick, Old, Same:, Same:, kick], Fine+ [Box: 1: ], "
                "Extra [p, q]]");
    }
  }
  KR::BoxLibrary::setReadThreads(-1);
  // What the library writes itself reads as it is stored.
  KR::BoxLibrary library(dir);
  const std::unique_ptr<KR::BoxLibraryNode> conflicted(library.boxRoot()->child(0));
  library.boxRoot()->removeChild(0);
  library.saveTo(temp.filePath("saved"), KR::BoxLibrary::DirectoryFormat);
  library = KR::BoxLibrary(temp.filePath("saved"));
  EXPECT_EQ(library.problems().size(), 0);
}

}  // namespace
