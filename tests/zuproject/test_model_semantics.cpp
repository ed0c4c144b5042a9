#include "project_fixtures.h"

#include <functional>

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

}  // namespace
