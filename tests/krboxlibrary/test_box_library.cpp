#include "library_fixtures.h"

#include <zu/project/progress_scope.h>

namespace {

using KR::BoxLibrary;

// A library on disk: a root listing naming "Motions", which holds "Wave".
void writeSmallLibrary(const QString& dir) {
  testutil::writeDiskFile(dir + "/lbfinfo",
                          R"(<Folder expanded="yes"><Node name="Motions"/></Folder>)");
  testutil::writeDiskFile(dir + "/Motions/lbfinfo",
                          R"(<Folder expanded="no"><Node name="Wave"/></Folder>)");
  testutil::writeDiskFile(dir + "/Motions/Wave/lbfinfo", R"(<Folder expanded="no"/>)");
}

TEST(BoxLibrary, NewLibraryIsRecordedAndEmpty) {
  BoxLibrary lib(QString(), true);
  EXPECT_EQ(lib.projectModel()->getMetadata("Type"), "VantorelBoxLibrary");
  EXPECT_EQ(lib.projectModel()->getMetadata("Version"), "3.0");
  EXPECT_EQ(lib.boxRoot()->childCount(), 0);
  EXPECT_EQ(lib.boxRoot()->library(), &lib);
  EXPECT_EQ(lib.boxRoot()->QObject::parent(), &lib);
  EXPECT_EQ(lib.title(), "");
  EXPECT_EQ(lib.path(), "");
  EXPECT_TRUE(lib.isReadOnly());
  EXPECT_FALSE(lib.isBehaviorCompatible());
  lib.setBehaviorCompatible(true);
  EXPECT_TRUE(lib.isBehaviorCompatible());
}

TEST(BoxLibrary, TitlesComeFromFileNamesUnlessStored) {
  const std::pair<QString, QString> titles[] = {
      {"/a/b/My Lib.LBF", "My Lib"}, {"/a/b/x.vbk", "x"},
      {"/a/b/folder", "folder"},     {"/a/b/x.lbf.vbk", "x.lbf"},
      {"/a/b/x.zip", "x.zip"},       {".lbf", ""},
      {"/a/b/x.Vbk", "x"},           {"", ""}};
  for (const auto& [path, title] : titles)
    EXPECT_EQ(BoxLibrary::makeTitleFromPath(path), title) << path.toStdString();

  QTemporaryDir dir;
  const QString path = dir.filePath("Lib.vbk");
  writeSmallLibrary(path);
  testutil::writeDiskFile(path + "/.metadata",
                          R"(<Metadata><Entry key="title" value="Other"/></Metadata>)");
  BoxLibrary lib(path);
  EXPECT_EQ(lib.title(), "Lib");  // the file name wins over the stored title
  EXPECT_EQ(lib.projectModel()->getMetadata("title"), "Lib");

  QSignalSpy spy(&lib, &BoxLibrary::titleChanged);
  lib.setTitle("Lib");
  EXPECT_EQ(spy.count(), 0);
  lib.setTitle("Gestures");
  ASSERT_EQ(spy.count(), 1);
  EXPECT_EQ(spy.at(0).at(0).toString(), "Gestures");
  EXPECT_EQ(lib.title(), "Gestures");

  // A title equal to the derived one is not stored.
  BoxLibrary plain(dir.filePath("Lib.vbk"));
  plain.projectModel()->setMetadata("title", "");
  plain.setTitle("Lib");
  EXPECT_EQ(plain.projectModel()->getMetadata("title"), "");
}

TEST(BoxLibrary, OpeningFailuresAreLoggedAndLeaveAnEmptyLibrary) {
  QTemporaryDir dir;
  const QString missing = dir.filePath("missing.lbf");
  const QString text = dir.filePath("notes.txt");
  const QString corrupt = dir.filePath("Bad.lbf");
  testutil::writeDiskFile(text, "just some notes\n");
  testutil::writeArchive(corrupt, {testutil::fileEntry("lbfinfo", testutil::randomBytes(4000, 1))},
                         testutil::ArchiveKind::Zip);
  testutil::truncateFile(corrupt, 200);

  const std::tuple<QString, std::string, QString> cases[] = {
      {missing, "\": no such file or directory.", "no such file or directory"},
      {text, "\": unrecognized file format.",
       "Unrecognized archive format (unrecognized file format)"},
      // The reader's own words come first, then the kind of failure.
      {corrupt, "\": corrupted file format.", ") (corrupted file format)"}};
  for (const auto& [path, tail, reason] : cases) {
    testutil::LogCapture log;
    BoxLibrary lib(path);
    EXPECT_TRUE(lib.loadError().endsWith(reason)) << lib.loadError().toStdString();
    ASSERT_EQ(log.records().size(), 1u) << path.toStdString();
    const zu::log::Record& record = log.records().front();
    EXPECT_EQ(record.level, zu::log::LogLevel_Warning);
    EXPECT_EQ(record.category, "krboxlibrary");
    EXPECT_EQ(record.function, "BoxLibrary");
    EXPECT_EQ(record.file, "");
    EXPECT_EQ(record.line, 0);
    EXPECT_EQ(record.message,
              "Could not load the box library found at \"" + path.toStdString() + tail);
    EXPECT_EQ(lib.boxRoot()->childCount(), 0);
    EXPECT_EQ(lib.path(), "");
    EXPECT_THROW(lib.save(), std::exception);  // nothing to overwrite the unreadable file with
  }
}

TEST(BoxLibrary, SavesInPlaceAndToBothForms) {
  QTemporaryDir dir;
  const QString original = dir.filePath("Original");
  writeSmallLibrary(original);
  BoxLibrary lib(original, true);
  lib.boxRoot()->child(0)->appendChild("Dance", true);
  lib.save();
  EXPECT_TRUE(lib.isReadOnly());
  EXPECT_TRUE(QFileInfo(original + "/Motions/Dance/lbfinfo").isFile());

  QSignalSpy titles(&lib, &BoxLibrary::titleChanged);
  const QString zip = dir.filePath("Copy.lbf");
  lib.saveTo(zip, BoxLibrary::ZipFormat);
  EXPECT_FALSE(lib.isReadOnly());
  EXPECT_EQ(lib.path(), zip);
  EXPECT_EQ(titles.count(), 1);
  EXPECT_EQ(testutil::readArchive(zip).kind, testutil::ArchiveKind::Zip);

  const QString copy = dir.filePath("Copy");
  lib.saveTo(copy, BoxLibrary::DirectoryFormat);
  for (const QString& path : {zip, copy}) {
    BoxLibrary reopened(path);
    EXPECT_EQ(reopened.title(), "Copy");
    ASSERT_NE(reopened.node({0, 1}), nullptr) << path.toStdString();
    EXPECT_EQ(reopened.node({0, 1})->name(), "Dance");
    EXPECT_TRUE(reopened.node({0, 1})->isExpanded());
    EXPECT_EQ(reopened.node({0, 0})->name(), "Wave");
  }

  EXPECT_EQ(KR::libraryFormatToProjectFormat(BoxLibrary::DirectoryFormat),
            zu::project::ArchiveFormat_Directory);
  EXPECT_EQ(KR::libraryFormatToProjectFormat(BoxLibrary::ZipFormat),
            zu::project::ArchiveFormat_Zip);
  EXPECT_EQ(KR::libraryFormatToProjectFormat(static_cast<BoxLibrary::LibraryFormat>(2)),
            zu::project::ArchiveFormat_Auto);
  EXPECT_EQ(KR::libraryFormatToProjectFormat(static_cast<BoxLibrary::LibraryFormat>(-1)),
            zu::project::ArchiveFormat_Auto);
}

TEST(BoxLibrary, CopyingStartsEmptyWhileAssigningCopiesTheTree) {
  QTemporaryDir dir;
  writeSmallLibrary(dir.filePath("Lib"));
  QObject owner;
  auto* original = new BoxLibrary(dir.filePath("Lib"), true, &owner);
  original->setBehaviorCompatible(true);

  BoxLibrary copied(*original);
  EXPECT_EQ(copied.QObject::parent(), &owner);
  EXPECT_EQ(copied.projectModel()->QObject::parent(), original->projectModel());
  EXPECT_EQ(copied.boxRoot()->childCount(), 0);
  EXPECT_TRUE(copied.isReadOnly());
  EXPECT_TRUE(copied.isBehaviorCompatible());
  QSignalSpy copiedSpy(&copied, &BoxLibrary::dataChanged);
  copied.boxRoot()->appendChild("X", false)->setName("Y");
  EXPECT_EQ(copiedSpy.count(), 1);

  BoxLibrary assigned;
  assigned = *original;
  EXPECT_EQ(assigned.QObject::parent(), &owner);
  EXPECT_EQ(assigned.path(), original->path());
  ASSERT_NE(assigned.node({0, 0}), nullptr);
  EXPECT_EQ(assigned.node({0, 0})->name(), "Wave");
  EXPECT_TRUE(assigned.isReadOnly());
  // Assignment relays nothing, and edits go to the copy only.
  QSignalSpy assignedSpy(&assigned, &BoxLibrary::dataChanged);
  assigned.node({0})->setName("Gestures");
  EXPECT_EQ(assignedSpy.count(), 0);
  EXPECT_TRUE(original->projectModel()->hasDir("Motions"));

  // The copy's model dies with the original's; the copy carries on with a model of its own.
  delete original;
  EXPECT_EQ(copied.projectModel()->QObject::parent(), &copied);
}

// What a host's progress bar hears: the end of each operation, in the innermost scope only.
TEST(BoxLibrary, ProgressReachesTheInnermostScope) {
  using Reports = std::vector<std::pair<std::size_t, std::size_t>>;
  Reports outer, inner;
  const auto into = [](Reports& reports) {
    return [&reports](std::size_t done, std::size_t total) { reports.emplace_back(done, total); };
  };
  QTemporaryDir dir;
  writeSmallLibrary(dir.filePath("Lib"));
  zu::project::ProgressScope outerScope(into(outer));
  {
    zu::project::ProgressScope innerScope(into(inner));
    BoxLibrary(dir.filePath("Lib")).saveTo(dir.filePath("Lib.lbf"), BoxLibrary::ZipFormat);
  }
  BoxLibrary copy(dir.filePath("Lib.lbf"));
  // Two folders read; five entries zipped: two folders and three listings.
  ASSERT_FALSE(inner.empty());
  EXPECT_EQ(inner.front(), Reports::value_type(2, 2));
  EXPECT_EQ(inner.back(), Reports::value_type(5, 5));
  EXPECT_EQ(outer, Reports({{2, 2}}));
}

}  // namespace
