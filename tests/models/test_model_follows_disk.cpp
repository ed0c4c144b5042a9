// A panel's model following its library's files while other writers change them.
#include "library_fixtures.h"

#include <krboxlibrary/box_library_editor.h>
#include <krboxlibrary/box_library_model.h>
#include <krboxlibrary/box_library_node.h>

#include <QAbstractItemModelTester>
#include <QPersistentModelIndex>
#include <QProcess>
#include <QTest>

#include <filesystem>
#include <functional>

// Defined beside the model's other tests: failures show the text.
void PrintTo(const QString& text, std::ostream* out);

namespace {

// The row at a "/"-joined path of display names; invalid when there is none.
QModelIndex at(const QAbstractItemModel& model, const QString& path) {
  QModelIndex index;
  for (const QString& name : path.split('/')) {
    int row = 0;
    while (row < model.rowCount(index) && model.index(row, 0, index).data().toString() != name)
      ++row;
    if (row == model.rowCount(index))
      return {};
    index = model.index(row, 0, index);
  }
  return index;
}

// A folder as its children's names, a box as its tooltip.
QString shown(const QAbstractItemModel& model, const QString& path) {
  const QModelIndex index = at(model, path);
  if (!index.isValid())
    return "no " + path;
  if (index.data(KR::BoxLibraryModel::KindRole) == "box")
    return index.data(Qt::ToolTipRole).toString();
  QStringList names;
  for (int row = 0; row < model.rowCount(index); ++row)
    names << model.index(row, 0, index).data().toString();
  return names.join('|');
}

}  // namespace

TEST(ModelFollowsDisk, OtherWritersReachTheRowsWithoutAReset) {
  QTemporaryDir temporary;
  const QString lib = temporary.filePath("lib");
  std::filesystem::copy(EXAMPLES_DIR "/Robot Basics", lib.toStdString(),
                        std::filesystem::copy_options::recursive);
  qputenv("KRBOX_LOCK_WAIT_MS", "2000");
  KR::BoxLibrary library(lib);
  KR::BoxLibraryModel model(&library);
  QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
  QSignalSpy reset(&model, &QAbstractItemModel::modelAboutToBeReset);
  QSignalSpy changed(&model, &KR::BoxLibraryModel::changedOnDisk);
  QSignalSpy conflict(&model, &KR::BoxLibraryModel::conflictOnDisk);
  ASSERT_TRUE(model.followsDisk());

  // Rows no change touches keep their node objects, wherever their row goes.
  const QStringList untouched = {"Misc.", "Sounds/Voices", "Sensing/Look: Up?",
                                 "Motions/Postures/Sit Down"};
  QList<QPersistentModelIndex> kept;
  QList<KR::BoxLibraryNode*> keptNodes;
  for (const QString& path : untouched) {
    kept << QPersistentModelIndex(at(model, path));
    keptNodes << model.node(kept.last());
  }

  const auto krbox = [&](QStringList arguments) {
    arguments.insert(1, lib);
    return std::function<void()>([arguments] {
      QProcess process;
      process.start(KRBOX_TOOL, arguments);
      EXPECT_TRUE(process.waitForFinished(30000) && process.exitCode() == 0)
          << arguments.join(' ').toStdString() << process.readAllStandardError().constData();
    });
  };
  struct Case {
    std::function<void()> change;
    QString path, expected;
    bool watched;  // left to the file watcher instead of updateFromDisk()
  };
  const Case cases[] = {
      {krbox({"mkdir", "Motions/Kicks"}), "Motions", "Walk / Turn|Postures|Dances|Kicks", false},
      {krbox({"rm", "Sounds/Music"}), "Sounds", "Voices", false},
      {krbox({"mv", "Motions/Postures/Crouch", "Motions", "0"}), "Motions",
       "Crouch|Walk / Turn|Postures|Dances|Kicks", false},
      {krbox({"rename", "Sensing/Touch", "Feel"}), "Sensing", "Feel|Look: Up?", false},
      // Moved and renamed directories are followed at their new place.
      {krbox({"set-tooltip", "Motions/Crouch", "Moved"}), "Motions/Crouch", "Moved", false},
      {krbox({"set-tooltip", "Motions/Postures/Stand Up", "New tip"}), "Motions/Postures/Stand Up",
       "New tip", false},
      {[&] {
         KR::BoxLibrary second(lib);
         EXPECT_TRUE(KR::BoxLibraryEditor(&second).newFolder(second.boxRoot()->child("Sounds"), -1,
                                                             "Second"));
         second.save();
       },
       "Sounds", "Voices|Second", false},
      {krbox({"rm", "Misc./Tests/Legacy Blink"}), "Misc./Tests", "Wait 1/2 s|Blink Eyes", true},
  };
  for (const Case& c : cases) {
    changed.clear();
    c.change();
    if (c.watched)
      EXPECT_TRUE(QTest::qWaitFor([&] { return shown(model, c.path) == c.expected; }, 3000));
    else
      model.updateFromDisk();
    EXPECT_EQ(shown(model, c.path), c.expected);
    EXPECT_FALSE(changed.isEmpty()) << c.path.toStdString();
  }
  for (int i = 0; i < kept.size(); ++i) {
    EXPECT_EQ(kept[i], at(model, untouched[i])) << untouched[i].toStdString();
    EXPECT_EQ(model.node(kept[i]), keptNodes[i]) << untouched[i].toStdString();
  }

  // An unsaved edit of a box another writer changed too: the model's version stays, and
  // saving over the other's writes it.
  const QString box = "Motions/Dances/Party/Robot Dance";
  ASSERT_TRUE(model.setData(at(model, box), "Mine", Qt::ToolTipRole));
  krbox({"set-tooltip", box, "Theirs"})();
  model.updateFromDisk();
  ASSERT_EQ(conflict.count(), 1);
  EXPECT_TRUE(conflict.first().first().toStringList().contains(box));
  EXPECT_EQ(shown(model, box), "Mine");
  ASSERT_TRUE(model.saveOverwriting()) << model.errorString().toStdString();
  KR::BoxLibrary fresh(lib, true);
  EXPECT_EQ(shown(KR::BoxLibraryModel(&fresh), box), "Mine");
  // Undo after such a save either undoes or says why not.
  QSignalSpy refused(&model, &KR::BoxLibraryModel::editRefused);
  ASSERT_TRUE(model.canUndo());
  model.undo();
  EXPECT_TRUE(shown(model, box) != "Mine" || refused.count() == 1);
  EXPECT_TRUE(reset.isEmpty());
}
