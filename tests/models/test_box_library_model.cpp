#include "library_fixtures.h"

#include <krboxlibrary/box_library_filter_model.h>
#include <krboxlibrary/box_library_model.h>

#include <QAbstractItemModelTester>
#include <QDirIterator>
#include <QMimeData>
#include <QUrl>

// Failures show the text.
void PrintTo(const QString& text, std::ostream* out) {
  *out << text.toStdString();
}

namespace {

const QString kExample = QStringLiteral(EXAMPLES_DIR "/Robot Basics");

// The tree as a model shows it: one line per row, with what each edit may change.
void dump(const QAbstractItemModel& model, const QModelIndex& parent, int depth, QString& out) {
  for (int row = 0; row < model.rowCount(parent); ++row) {
    const QModelIndex index = model.index(row, 0, parent);
    EXPECT_EQ(model.parent(index), parent);
    out += QString(depth * 2, ' ') + index.data().toString() + " " +
           index.data(KR::BoxLibraryModel::KindRole).toString() +
           (index.data(KR::BoxLibraryModel::ExpandedRole).toBool() ? "-" : "+") + " " +
           index.data(Qt::ToolTipRole).toString().left(12) +
           index.data(KR::BoxLibraryModel::BitmapsRole).toStringList().join(",") + "\n";
    dump(model, index, depth + 1, out);
  }
}

QString dump(const QAbstractItemModel& model) {
  QString out;
  dump(model, QModelIndex(), 0, out);
  return out;
}

struct Panel {
  explicit Panel(const QString& path)
      : library(path), model(&library),
        tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal) {}
  KR::BoxLibrary library;
  KR::BoxLibraryModel model;
  QAbstractItemModelTester tester;
};

class ModelSession : public ::testing::Test {
protected:
  void SetUp() override {
    ASSERT_TRUE(dir.isValid());
    // A box file with a resource beside it, as a file manager would drop it.
    testutil::writeFixture(dir.path(), {{"Nod/box.bxd", testutil::boxFile(
                                             R"(<Box name="root" tooltip="Nods."/>)")},
                                        {"Nod/nod.txt", "yes"},
                                        {"notes.bxd", "not a box"}});
  }
  QString copyExample() {
    const QDir from(kExample);
    for (QDirIterator it(kExample, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
         it.hasNext();) {
      const QString file = it.next();
      testutil::writeDiskFile(dir.filePath("lib/" + from.relativeFilePath(file)),
                              testutil::readDiskFile(file));
    }
    return dir.filePath("lib");
  }
  QString generated(int boxes) {
    testutil::Fixture files{{"Other/Deeper/", ""}};
    for (int i = 0; i < boxes; ++i)
      files.push_back({"Flat/Box " + std::to_string(i) + "/box.bxd",
                       testutil::boxFile(R"(<Box name="root" tooltip="Generated )" +
                                         std::to_string(i) + R"("/>)")});
    testutil::writeFixture(dir.filePath("gen"), files);
    return dir.filePath("gen");
  }
  QModelIndex firstBox(const QAbstractItemModel& model, const QModelIndex& parent = {}) {
    for (int row = 0; row < model.rowCount(parent); ++row) {
      const QModelIndex index = model.index(row, 0, parent);
      if (index.data(KR::BoxLibraryModel::KindRole) == "box")
        return index;
      if (const QModelIndex found = firstBox(model, index); found.isValid())
        return found;
    }
    return {};
  }

  // Every kind of edit, each checked against the tree before it after undo and redo, then
  // the files saved checked against the tree.
  void runSession(const QString& path) {
    Panel panel(path);
    Panel other(kExample);
    KR::BoxLibraryModel& model = panel.model;
    QSignalSpy canUndo(&model, &KR::BoxLibraryModel::canUndoChanged);
    QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
    std::vector<QString> states{dump(model)};
    const auto check = [&](bool ok) {
      ASSERT_TRUE(ok) << model.errorString().toStdString();
      states.push_back(dump(model));
      ASSERT_NE(states.back(), states[states.size() - 2]) << "edit " << states.size() - 1;
    };
    const QModelIndex box = firstBox(model);
    const QModelIndex folder = box.parent();
    check(model.setData(box, QStringLiteral("Renamed \u00e9"), Qt::EditRole));
    check(model.setData(box, QStringLiteral("New tip"), Qt::ToolTipRole));
    EXPECT_EQ(changed.count(), 2);
    EXPECT_EQ(changed.last().at(0).toModelIndex(), box);
    check(model.setData(box, QStringList{"a.png", "b.png"}, KR::BoxLibraryModel::BitmapsRole));
    check(model.setData(folder, !folder.data(KR::BoxLibraryModel::ExpandedRole).toBool(),
                        KR::BoxLibraryModel::ExpandedRole));
    const QPersistentModelIndex made = model.insertFolder({}, 0, QStringLiteral("Made"));
    check(made.isValid());
    check(model.addBoxFile(made, -1, dir.filePath("Nod/box.bxd"), {dir.filePath("Nod/nod.txt")})
              .isValid());
    check(model.moveRows(box.parent(), box.row(), 1, made, 0));
    check(model.moveRows({}, 1, 1, {}, model.rowCount()));
    std::unique_ptr<QMimeData> drag(model.mimeData({model.index(1, 0)}));
    check(model.dropMimeData(drag.get(), Qt::MoveAction, 1, 0, made));
    drag.reset(model.mimeData({model.index(1, 0)}));
    check(model.dropMimeData(drag.get(), Qt::CopyAction, -1, 0, {}));
    check(model.insertCopy(made, 0, *other.library.boxRoot()->child(0)).isValid());
    QMimeData files;
    files.setUrls({QUrl::fromLocalFile(dir.filePath("Nod/box.bxd"))});
    check(model.dropMimeData(&files, Qt::CopyAction, -1, 0, made));
    check(model.removeRows(1, 1));
    EXPECT_EQ(canUndo.count(), 1);
    EXPECT_TRUE(model.undoText().startsWith("Remove \u201c"));

    for (std::size_t i = states.size() - 1; i > 0; --i) {
      model.undo();
      ASSERT_EQ(dump(model), states[i - 1]) << "undo of edit " << i;
    }
    EXPECT_FALSE(model.canUndo());
    for (std::size_t i = 1; i < states.size(); ++i) {
      model.redo();
      ASSERT_EQ(dump(model), states[i]) << "redo of edit " << i;
    }
    EXPECT_FALSE(model.canRedo());
    EXPECT_EQ(canUndo.count(), 3);
    panel.library.save();
    Panel reread(path);
    EXPECT_EQ(dump(reread.model), states.back());
  }

  QTemporaryDir dir;
};

TEST_F(ModelSession, EveryEditUndoesAndRedoesOnTheExampleLibrary) {
  runSession(copyExample());
}

TEST_F(ModelSession, EveryEditUndoesAndRedoesOnAGeneratedLibrary) {
  runSession(generated(12));
}

TEST_F(ModelSession, RowsOfALargeFolderStayInStep) {
  Panel panel(generated(300));
  const QModelIndex flat = panel.model.index(0, 0);
  ASSERT_EQ(panel.model.rowCount(flat), 300);
  const QString name = panel.model.index(250, 0, flat).data().toString();
  ASSERT_TRUE(panel.model.moveRows(flat, 250, 10, flat, 3));
  ASSERT_TRUE(panel.model.removeRows(100, 50, flat));
  for (int row = 0; row < 250; ++row) {
    const QModelIndex index = panel.model.index(row, 0, flat);
    ASSERT_EQ(panel.model.indexOf(panel.model.node(index)), index);
  }
  EXPECT_EQ(panel.model.index(3, 0, flat).data().toString(), name);
}

TEST_F(ModelSession, RefusalsChangeNothing) {
  Panel panel(copyExample());
  KR::BoxLibraryModel& model = panel.model;
  QSignalSpy refused(&model, &KR::BoxLibraryModel::editRefused);
  const QString before = dump(model);
  const QModelIndex motions = model.index(0, 0);
  const QModelIndex box = firstBox(model);
  std::unique_ptr<QMimeData> drag(model.mimeData({motions}));
  EXPECT_FALSE(model.canDropMimeData(drag.get(), Qt::MoveAction, -1, 0, box));
  EXPECT_FALSE(model.dropMimeData(drag.get(), Qt::MoveAction, -1, 0, box));
  EXPECT_FALSE(model.dropMimeData(drag.get(), Qt::MoveAction, 0, 0, model.index(0, 0, motions)));
  EXPECT_FALSE(model.moveRows({}, 0, 1, motions, 0));
  EXPECT_FALSE(model.setData(box, QString(" "), Qt::EditRole));
  EXPECT_FALSE(model.insertFolder({}, 0, QString()).isValid());
  QMimeData files;
  files.setUrls({QUrl::fromLocalFile(dir.filePath("Nod/box.bxd")),
                 QUrl::fromLocalFile(dir.filePath("notes.bxd"))});
  EXPECT_FALSE(model.dropMimeData(&files, Qt::CopyAction, -1, 0, {}));
  EXPECT_EQ(refused.count(), 6);
  EXPECT_EQ(dump(model), before);
  EXPECT_FALSE(model.canUndo());
}

TEST_F(ModelSession, ChangesMadeElsewhereAndAViewsRemovalAfterAMove) {
  Panel panel(copyExample());
  KR::BoxLibraryModel& model = panel.model;
  const QModelIndex box = firstBox(model);
  QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
  model.node(box)->boxData()->setTooltip(QStringLiteral("Set elsewhere"));
  ASSERT_EQ(changed.count(), 1);
  EXPECT_EQ(changed.first().at(0).toModelIndex(), box);
  // A view removes the rows it dragged once a move drop succeeds: they have moved already.
  std::unique_ptr<QMimeData> drag(model.mimeData({model.index(0, 0)}));
  ASSERT_TRUE(model.dropMimeData(drag.get(), Qt::MoveAction, -1, 0, {}));
  const QString moved = dump(model);
  EXPECT_TRUE(model.removeRows(model.rowCount() - 1, 1));
  EXPECT_EQ(dump(model), moved);
  EXPECT_EQ(model.undoText(), QStringLiteral("Move \u201cMotions\u201d"));
}

TEST_F(ModelSession, SearchKeepsTheFoldersAboveAMatch) {
  Panel panel(copyExample());
  KR::BoxLibraryFilterModel filter;
  filter.setSourceModel(&panel.model);
  QAbstractItemModelTester tester(&filter, QAbstractItemModelTester::FailureReportingMode::Fatal);
  const auto shown = [&](const QString& query) {
    filter.setFilterText(query);
    return dump(filter);
  };
  EXPECT_EQ(shown("CROUCH"),
            "Motions folder- \n  Postures folder+ \n    Crouch box+ Bends the kn"
            "media/images/box/movement/crouch.png\n");
  EXPECT_EQ(shown("tag:crouch"), shown("cr\u00f4uch KNEES"));
  EXPECT_EQ(shown("tag:knees"), "");
  ASSERT_TRUE(panel.model.setData(panel.model.index(0, 0), QStringLiteral("\u00c9t\u00e9")));
  EXPECT_TRUE(shown("ete").startsWith(QStringLiteral("\u00c9t\u00e9 folder")));
  EXPECT_EQ(shown(""), dump(panel.model));
}

}  // namespace
