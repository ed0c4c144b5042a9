#include "project_fixtures.h"

#include <functional>
#include <tuple>

using zu::project::ArchiveFormat_Current;
using zu::project::ProjectModel;
using namespace testutil;

namespace {

const char kProject[] = "a/ a/b/ a/b/f=F d/ d/f=D";

TEST(ModelSemantics, NothingGoesOntoOrIntoWhatItIsReadFrom) {
  QTemporaryDir tmp;
  writeTree(tmp.path() + "/p", treeOf(kProject));
  ProjectModel model;
  model.load(tmp.path() + "/p", zu::project::ArchiveFormat_Auto);
  ProjectModel other;
  other.writeFile("x/.zuproject-pending/record", "R");
  const std::function<void()> refused[] = {
      [&] { model.move("a/b", "a", true); },
      [&] { model.move("a", "a/b/c", true); },
      [&] { model.importFile(&model, "d/f", "d", true); },
      [&] { model.importFile(&model, "d", "", true); },
      [&] { model.importFile(&other, "x", "", true); },  // the save's reserved name
  };
  for (const auto& call : refused) {
    EXPECT_THROW(call(), zu::project::Exception);
    EXPECT_EQ(flat(modelTree(model)), flat(treeOf(kProject)));
  }
  EXPECT_NO_THROW(model.move("", "", true));
  model.remove("");  // files never read are no other writer's
  model.save(QString(), ArchiveFormat_Current, true);
  EXPECT_EQ(flat(diskSnapshot(tmp.path() + "/p")), "");
}

TEST(ModelSemantics, EveryModelKeepsItsViewAndTheLastSaveWins) {
  for (const Form& form : {kForms[0], kForms[1]}) {
    QTemporaryDir tmp;
    const QString path = tmp.path() + "/" + form.fileName;
    ProjectModel writer;
    fillModel(writer, treeOf(kProject));
    writer.save(path, form.format, false);
    ProjectModel copy(writer);
    ProjectModel reader;
    reader.load(path, zu::project::ArchiveFormat_Auto);
    writer.move("a/b", "e", false);
    writer.writeFile("d/f", "changed");
    writer.save(QString(), ArchiveFormat_Current, true);
    // Another model saving a whole project over the path changes none of them either.
    ProjectModel replacement;
    replacement.writeFile("z", "Z");
    replacement.save(path, form.format, true);
    for (ProjectModel* model : {&copy, &reader}) {
      SCOPED_TRACE(form.name);
      EXPECT_EQ(flat(modelTree(*model)), flat(treeOf(kProject)));
      EXPECT_TRUE(model->sourceChanged());
      model->save(QString(), ArchiveFormat_Current, true);
      EXPECT_EQ(flat(savedTree(path, form)), flat(treeOf(kProject)));
      EXPECT_FALSE(model->sourceChanged());
    }
  }
}

TEST(ModelSemantics, ABoxMovedInUnderARenamedOnesNameIsNoOtherWritersChange) {
  // The boxes' files unread, as a library leaves them; the last row saves after the rename.
  const std::tuple<const char*, int, bool> cases[] = {
      {"F/X/box=FX F/X/icon=FI G/X/box=GX", 0, false},
      {"F/X/box=FX G/X/box=GX G/X/icon=GI", 0, false},
      {"F/X/box=FX F/X/icon=FI G/X/box=GX", 1, false},
      {"F/X/box=FX F/X/icon=FI G/X/box=GX G/X/icon=GI", 0, true}};
  for (const auto& [tree, form, saveBetween] : cases) {
    SCOPED_TRACE(std::string(tree) + " " + kForms[form].name);
    QTemporaryDir tmp;
    const QString path = tmp.path() + "/" + kForms[form].fileName;
    ProjectModel lib;
    fillModel(lib, treeOf(tree));
    lib.save(path, kForms[form].format, false);
    lib.load(path, zu::project::ArchiveFormat_Auto);
    lib.move("F/X", "F/Y", false);
    if (saveBetween)
      lib.save(QString(), ArchiveFormat_Current, true);
    ProjectModel taken;
    taken.importFile(&lib, "G/X", QString(), true);
    lib.remove("G/X");
    lib.importFile(&taken, QString(), "F/X", true);
    Tree want = treeOf("F/ F/X/ F/Y/ G/ F/lbfinfo=2");
    for (const auto& [file, bytes] : treeOf(tree))
      want[(file.startsWith("F/") ? "F/Y" : "F/X") + file.mid(3)] = bytes;
    // Each save threw Conflict here until the library was opened again.
    for (const char* listing : {"1", "2"}) {
      lib.writeFile("F/lbfinfo", listing);
      lib.save(QString(), ArchiveFormat_Current, true);
    }
    ProjectModel reloaded;
    reloaded.load(path, zu::project::ArchiveFormat_Auto);
    EXPECT_EQ(flat(modelTree(reloaded)), flat(want));
  }
}

// A folder moved away and removed with its new parent, then its place taken by a copy:
// the files the model never read there went with it, no other writer's.
TEST(ModelSemantics, AFolderGoneWithItsNewParentLeavesItsPlaceToACopy) {
  QTemporaryDir tmp;
  ProjectModel lib;
  fillModel(lib, treeOf("X/box=B X/meta=M P/S/list=L Z/list=Z"));
  lib.save(tmp.path() + "/lib", zu::project::ArchiveFormat_Directory, false);
  lib.load(tmp.path() + "/lib", zu::project::ArchiveFormat_Auto);
  lib.move("X", "P/S/X", false);
  lib.remove("P/S");
  lib.importFile(&lib, "Z", "X", true);
  lib.save(QString(), ArchiveFormat_Current, true);
  ProjectModel reloaded;
  reloaded.load(tmp.path() + "/lib", zu::project::ArchiveFormat_Auto);
  EXPECT_EQ(flat(modelTree(reloaded)), flat(treeOf("P/ X/ X/list=Z Z/ Z/list=Z")));
}

}  // namespace
