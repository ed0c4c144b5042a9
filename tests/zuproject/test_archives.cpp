#include "project_fixtures.h"

#include <sys/resource.h>
#include <zu/project/metadata.h>
#include <zu/project/project.h>

#include <csignal>
#include <typeinfo>

using zu::project::ProjectModel;
using namespace testutil;

namespace {

const QString kMarkup = "He said \"a & b\" <c> 'd' &amp; été 日本";

// A model that holds something, so that a load has something to throw away.
void loadSomething(ProjectModel& model, const QString& workDir) {
  writeDiskFile(workDir + "/previous/previous.txt", "previous");
  writeDiskFile(workDir + "/previous/.metadata",
                "<Metadata><Entry key=\"owner\" value=\"before\"/></Metadata>");
  model.load(workDir + "/previous", zu::project::ArchiveFormat_Auto);
  ASSERT_EQ(model.getMetadata("owner"), QStringLiteral("before"));
}

class EachForm : public ::testing::TestWithParam<Form> {};

TEST_P(EachForm, LoadsEditsAndSavesInPlaceAndElsewhere) {
  const Form form = GetParam();
  const bool isDir = form.format == zu::project::ArchiveFormat_Directory;
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  Tree content = sampleTree();
  const QString in = tmp.path() + "/in";
  const QString source = in + "/" + form.fileName;
  QDir().mkpath(in);
  if (isDir) {
    writeTree(source, content);
    // Links are skipped wherever they lead, so that nothing outside comes in.
    writeDiskFile(tmp.path() + "/outside/secret.txt", "secret");
    ASSERT_TRUE(QFile::link(tmp.path() + "/outside", source + "/link_dir"));
    ASSERT_TRUE(QFile::link("../../readme.txt", source + "/nested/deeper/link_file"));
    ASSERT_TRUE(QFile::link("/nonexistent/target", source + "/dangling"));
  } else {
    // The shape an archive gets when made with "." from inside its directory.
    std::vector<ArchiveEntry> entries = treeEntries(content, "./");
    entries.insert(entries.begin(), dirEntry("./"));
    writeArchive(source, entries, form.kind);
  }
  const Tree sourceBefore = diskSnapshot(source);
  ProjectModel named;
  named.load(source, form.format);
  EXPECT_EQ(modelTree(named), content);
  EXPECT_EQ(named.getSourceFormat(), form.format);

  QObject parent;
  auto original = std::make_unique<ProjectModel>(&parent);
  loadSomething(*original, tmp.path());
  original->load(source, zu::project::ArchiveFormat_Auto);
  EXPECT_EQ(modelTree(*original), content);
  EXPECT_EQ(diskSnapshot(original->getFileLocalPath(QString())), content);
  EXPECT_TRUE(original->getMetadata("owner").isEmpty());
  // The model works on its own copy: editing it must not touch the source before a save.
  original->writeFile("readme.txt", "second");
  original->remove("binary.dat");
  original->writeFile("added/new.txt", "new");
  original->setMetadata("markup", "replaced");
  original->setMetadata("markup", kMarkup);
  const std::string top = original->getFileLocalPath(QString()).toStdString();
  EXPECT_EQ(zu::project::Project(top).metadata("markup"), kMarkup);
  EXPECT_EQ(zu::project::parseMetadata(original->readFile(".metadata").toStdString()),
            (std::map<std::string, std::string>{{"markup", kMarkup.toStdString()}}));
  EXPECT_EQ(diskSnapshot(source), sourceBefore);
  content["readme.txt"] = "second";
  content.erase("binary.dat");
  content["added/"] = QByteArray();
  content["added/new.txt"] = "new";

  // A copy is deep and independent, has no parent, and outlives the original.
  ProjectModel model(*original);
  EXPECT_EQ(model.parent(), nullptr);
  EXPECT_NE(QDir(model.getFileLocalPath(QString())).canonicalPath(),
            QDir(QString::fromStdString(top)).canonicalPath());
  model.remove("empty_dir");
  original->writeFile("readme.txt", "original only");
  original->setMetadata("markup", "original only");
  EXPECT_TRUE(original->hasDir("empty_dir"));
  original.reset();
  content.erase("empty_dir/");

  auto expectSaved = [&](const QString& path, const Form& as) {
    SCOPED_TRACE(path.toStdString());
    EXPECT_EQ(model.getSourcePath(), path);
    EXPECT_EQ(model.getSourceFormat(), as.format);
    EXPECT_EQ(savedTree(path, as), content);
    ProjectModel reloaded;
    reloaded.load(path, zu::project::ArchiveFormat_Auto);
    EXPECT_EQ(modelTree(reloaded), content);
    EXPECT_EQ(reloaded.getSourceFormat(), as.format);
    EXPECT_EQ(reloaded.getMetadata("markup"), kMarkup);
  };
  // In place: removed files must go too, so the source is replaced, not merged into.
  model.save(QString(), zu::project::ArchiveFormat_Current, true);
  if (isDir) {
    // Links are no content of the model: a save in place leaves them where they are.
    for (const char* link : {"link_dir", "nested/deeper/link_file", "dangling"}) {
      EXPECT_TRUE(QFileInfo(source + "/" + link).isSymLink()) << link;
      QFile::remove(source + "/" + link);
    }
  }
  expectSaved(source, form);
  EXPECT_EQ(QDir(in).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
            QStringList{form.fileName});

  // Elsewhere, an archive's form follows from its file name, and the source moves there.
  const QString copy = tmp.path() + "/" + form.fileName;
  model.save(copy, isDir ? form.format : zu::project::ArchiveFormat_Auto, false);
  expectSaved(copy, form);
  const Form& other = form.format == zu::project::ArchiveFormat_Zip ? kForms[3] : kForms[1];
  const QString otherPath = tmp.path() + "/" + other.fileName;
  model.save(otherPath, other.format, false);
  model.writeFile("readme.txt", "third");
  content["readme.txt"] = "third";
  const Tree copyBefore = diskSnapshot(copy);
  model.save(QString(), zu::project::ArchiveFormat_Current, true);
  expectSaved(otherPath, other);
  EXPECT_EQ(diskSnapshot(copy), copyBefore);
}

INSTANTIATE_TEST_SUITE_P(ProjectModel, EachForm, ::testing::ValuesIn(kForms), formName);

enum Source { Intact, Cut, Missing, Text };

// An archive, or a missing or plain text source: each fails with its own kind of error.
struct FailedLoad {
  const char* name;
  ArchiveKind kind;
  std::vector<ArchiveEntry> entries;
  Source source = Intact;
  const char* text = nullptr;  ///< The content of a Text source.
};

TEST(ProjectModelLoad, FailuresThrowTheirKindLeaveNothingAndWriteNothingAnywhere) {
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  const QString root = tmp.path();
  const std::string rootText = root.toStdString();
  const QString tempRoot = root + "/sandbox/tmp";
  QDir().mkpath(root + "/outside");
  writeDiskFile(root + "/victim.txt", "original");
  // Incompressible data makes a cut land in the middle of an entry's data in every form.
  const std::vector<ArchiveEntry> big = {fileEntry("big.bin", randomBytes(200000, 11)),
                                         fileEntry("last.txt", "last")};
  const ArchiveEntry good = fileEntry("good.txt", "fine");
  const std::vector<FailedLoad> cases = {
      {"missing", ArchiveKind::Tar, {}, Missing},
      {"text", ArchiveKind::Tar, {}, Text, "a note, not an archive"},
      // Both read as file lists if such lists were accepted; the second names a file outside.
      {"word", ArchiveKind::Tar, {}, Text, "hello\n"},
      {"file-list",
       ArchiveKind::Tar,
       {},
       Text,
       "#mtree\n./passwd type=file contents=/etc/passwd\n"},
      {"zip-cut", ArchiveKind::Zip, big, Cut},
      {"targz-cut", ArchiveKind::TarGz, big, Cut},
      {"zip-parent", ArchiveKind::Zip, {good, fileEntry("../escaped", "x")}},
      {"parent-inside", ArchiveKind::TarGz, {good, fileEntry("a/../../escaped", "x")}},
      {"tar-absolute", ArchiveKind::Tar, {good, fileEntry(rootText + "/escaped", "x")}},
      {"zip-absolute", ArchiveKind::Zip, {good, fileEntry(rootText + "/escaped", "x")}},
      {"symlink-then-write-through",
       ArchiveKind::Tar,
       {good, symlinkEntry("link", rootText + "/outside"), fileEntry("link/escaped", "x")}},
      {"zip-symlink-inside", ArchiveKind::Zip, {good, symlinkEntry("alias", "good.txt")}},
      {"hardlink-then-write-through",
       ArchiveKind::Tar,
       {good, hardlinkEntry("hl", rootText + "/victim.txt"), fileEntry("hl", "pwned")}},
      {"hardlink-inside", ArchiveKind::Tar, {good, hardlinkEntry("twin", "good.txt")}},
  };

  for (const FailedLoad& c : cases) {
    SCOPED_TRACE(c.name);
    const QString source = root + "/" + c.name;
    if (c.source == Text)
      writeDiskFile(source, c.text);
    else if (c.source != Missing)
      writeArchive(source, c.entries, c.kind);
    if (c.source == Cut)
      truncateFile(source, QFileInfo(source).size() / 2);
    const Tree sourceBefore = diskSnapshot(source);
    {
      ScopedTempRoot scopedTemp(tempRoot);
      ProjectModel model;
      loadSomething(model, root);
      try {
        model.load(source, zu::project::ArchiveFormat_Auto);
        ADD_FAILURE() << "loaded";
      } catch (const zu::project::Exception& e) {
        const std::type_info& error = c.source == Missing ? typeid(zu::project::PathNotFound)
                                      : c.source == Text  ? typeid(zu::project::UnsupportedFormat)
                                                          : typeid(zu::project::CorruptedFile);
        EXPECT_TRUE(typeid(e) == error) << typeid(e).name() << ": " << e.what();
      }
      EXPECT_EQ(flat(modelTree(model)), "");
      EXPECT_TRUE(model.getMetadata("owner").isEmpty());
      // Neither the unreadable path nor the one before may be taken for the source.
      EXPECT_TRUE(model.getSourcePath().isEmpty());
      model.writeFile("edited.txt", "edited after the failure");
      EXPECT_THROW(model.save(QString(), zu::project::ArchiveFormat_Current, true),
                   zu::project::Exception);
      EXPECT_THROW(model.save(QString(), zu::project::ArchiveFormat_Zip, true),
                   zu::project::Exception);
    }
    EXPECT_EQ(diskSnapshot(source), sourceBefore);
    EXPECT_TRUE(diskTree(root).filter("escaped").isEmpty())
        << diskTree(root).join(", ").toStdString();
    EXPECT_EQ(readDiskFile(root + "/victim.txt"), QByteArray("original"));
    // Whatever the model unpacked into went with it.
    EXPECT_TRUE(diskTree(tempRoot).isEmpty()) << diskTree(tempRoot).join(", ").toStdString();
  }

  // A zip is read entry by entry: damaged data is refused when that entry is read.
  const QString flipped = root + "/flipped.zip";
  writeArchive(flipped, big, ArchiveKind::Zip);
  flipByte(flipped, 1000);  // inside the first entry's data
  ProjectModel model;
  model.load(flipped, zu::project::ArchiveFormat_Auto);
  EXPECT_TRUE(model.readFile("big.bin").isNull());
  EXPECT_EQ(model.fopen("big.bin", "rb"), nullptr);
  EXPECT_EQ(model.readFile("last.txt"), QByteArray("last"));
}

class SaveFailureEachForm : public ::testing::TestWithParam<Form> {};

TEST_P(SaveFailureEachForm, KeepsThePreviousTargetAndLeavesNoTemporaries) {
  const Form form = GetParam();
  QTemporaryDir tmp;
  ASSERT_TRUE(tmp.isValid());
  const QString blocker = tmp.path() + "/blocker";
  writeDiskFile(blocker, "a file where a directory would be needed");
  const QString target = tmp.path() + "/" + form.fileName;
  ProjectModel model;
  model.writeFile("old.txt", "the library as it was");
  model.mkdir("old_dir", false);
  model.save(target, form.format, false);
  const Tree before = diskSnapshot(tmp.path());
  const QByteArray big = randomBytes(1 << 20, 3);
  model.writeFile("big.bin", big);

  EXPECT_THROW(model.save(blocker, form.format, false), zu::project::Exception);
  EXPECT_THROW(model.save(blocker + "/" + form.fileName, form.format, true),
               zu::project::Exception);
  EXPECT_EQ(diskSnapshot(tmp.path()), before);
  // A full disk, made in a way that holds for root too: files may not grow past a limit.
  // Past it, writes fail with EFBIG instead of the process being killed.
  rlimit previous{};
  getrlimit(RLIMIT_FSIZE, &previous);
  const rlimit limited{256 * 1024, previous.rlim_max};
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  const bool isLimited = setrlimit(RLIMIT_FSIZE, &limited) == 0;
  if (isLimited) {
    EXPECT_THROW(model.save(QString(), zu::project::ArchiveFormat_Current, true),
                 zu::project::Exception);
  }
  setrlimit(RLIMIT_FSIZE, &previous);
  std::signal(SIGXFSZ, handler);
  if (!isLimited)
    GTEST_SKIP() << "cannot lower the file size limit here";
  EXPECT_EQ(diskSnapshot(tmp.path()), before);
  EXPECT_EQ(model.getSourcePath(), target);
  EXPECT_EQ(model.getSourceFormat(), form.format);
  // Nothing the model holds may be lost by a failed save.
  EXPECT_EQ(model.readFile("big.bin"), big);
}

INSTANTIATE_TEST_SUITE_P(ProjectModelSave, SaveFailureEachForm, ::testing::ValuesIn(kForms),
                         formName);

}  // namespace
