#include "library_fixtures.h"

#include <krboxlibrary/box_library_editor.h>
#include <krboxlibrary/box_library_filter_model.h>
#include <krboxlibrary/box_library_model.h>

#include <QAbstractItemModelTester>
#include <QDirIterator>
#include <QMimeData>
#include <QUrl>

#include <functional>

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
      : library(path),
        model(&library),
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
    testutil::writeFixture(
        dir.path(), {{"Nod/box.bxd", testutil::boxFile(R"(<Box name="root" tooltip="Nods."/>)")},
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

  QTemporaryDir dir;
};

// Each refused edit returns false (or an invalid index), says why once, and changes no row,
// no file and no undo step.
TEST_F(ModelSession, RefusalsChangeNothing) {
  Panel panel(copyExample());
  KR::BoxLibraryModel& model = panel.model;
  testutil::writeFixture(dir.path(), {{" (7)/box.bxd", testutil::boxFile("<Box/>")}});
  const QModelIndex motions = model.index(0, 0);
  const QPersistentModelIndex box = firstBox(model);
  const auto drop = [&](const QModelIndexList& rows, Qt::DropAction action, int row,
                        const QModelIndex& parent) {
    std::unique_ptr<QMimeData> drag(model.mimeData(rows));
    return model.canDropMimeData(drag.get(), action, row, 0, parent) ||
           model.dropMimeData(drag.get(), action, row, 0, parent);
  };
  const auto dropFiles = [&](const QStringList& files) {
    QMimeData data;
    QList<QUrl> urls;
    for (const QString& file : files)
      urls.append(QUrl::fromLocalFile(dir.filePath(file)));
    data.setUrls(urls);
    return model.dropMimeData(&data, Qt::CopyAction, -1, 0, {});
  };
  const std::vector<std::function<bool()>> refused = {
      [&] { return drop({motions}, Qt::MoveAction, -1, box); },
      [&] { return drop({motions}, Qt::MoveAction, 0, model.index(0, 0, motions)); },
      [&] { return drop({motions}, Qt::CopyAction, 0, model.index(0, 0, motions)); },
      [&] { return drop({box}, Qt::CopyAction, -2, {}); },
      [&] { return model.moveRows({}, 0, 1, motions, 0); },
      [&] { return model.setData(box, QString(" "), Qt::EditRole); },
      [&] { return model.setData(box, QString(" (2)"), Qt::EditRole); },
      [&] { return model.setData(box, QString("lbfinfo"), Qt::EditRole); },
      [&] { return model.setData(box, QString(300, 'x'), Qt::EditRole); },
      [&] { return model.setData(box, true, KR::BoxLibraryModel::ExpandedRole); },
      [&] { return model.setData(motions, "tip", Qt::ToolTipRole); },
      [&] { return model.insertFolder({}, 0, QString()).isValid(); },
      [&] { return model.insertFolder({}, 0, " (2)").isValid(); },
      [&] { return model.insertFolder({}, 0, "lbfinfo").isValid(); },
      [&] { return model.insertFolder({}, 0, ".zuproject-pending").isValid(); },
      [&] { return model.insertFolder({}, -2, "X").isValid(); },
      [&] { return model.insertFolder(box, 0, "X").isValid(); },
      [&] {
        return dropFiles({"Nod/box.bxd", "notes.bxd"});
      },
      [&] { return dropFiles({" (7)/box.bxd"}); },
  };
  QSignalSpy refusals(&model, &KR::BoxLibraryModel::editRefused);
  QSignalSpy inserted(&model, &QAbstractItemModel::rowsInserted);
  QSignalSpy removed(&model, &QAbstractItemModel::rowsRemoved);
  QSignalSpy moved(&model, &QAbstractItemModel::rowsMoved);
  QSignalSpy reset(&model, &QAbstractItemModel::modelReset);
  const QString before = dump(model);
  // Reading the tree writes the listings of folders that had none: saved before comparing.
  panel.library.save();
  const QStringList files = testutil::diskTree(dir.filePath("lib"));
  for (std::size_t i = 0; i < refused.size(); ++i) {
    EXPECT_FALSE(refused[i]()) << "edit " << i;
    EXPECT_EQ(refusals.count(), static_cast<int>(i) + 1) << "edit " << i;
    EXPECT_EQ(dump(model), before) << "edit " << i;
  }
  EXPECT_EQ(inserted.count() + removed.count() + moved.count() + reset.count(), 0);
  EXPECT_FALSE(model.canUndo());
  panel.library.save();
  EXPECT_EQ(testutil::diskTree(dir.filePath("lib")), files);
}

TEST_F(ModelSession, DropsNameNodesAndUndoRestoresNames) {
  Panel panel(copyExample());
  KR::BoxLibraryModel& model = panel.model;
  const QString start = dump(model);
  // A drag made before the tree changed still moves the node it named.
  std::unique_ptr<QMimeData> drag(model.mimeData({model.index(3, 0)}));
  ASSERT_TRUE(model.moveRows({}, 0, 1, {}, 4));
  ASSERT_TRUE(model.dropMimeData(drag.get(), Qt::MoveAction, 0, 0, {}));
  EXPECT_EQ(model.index(0, 0).data().toString(), "Misc.");
  // A new "Misc." in the folder "Motions" makes a moved "Misc." give way...
  const QModelIndex motions = model.index(3, 0);
  ASSERT_TRUE(model.insertFolder(motions, 0, "Misc.").isValid());
  ASSERT_TRUE(model.moveRows({}, 0, 1, motions, 0));
  EXPECT_EQ(model.index(0, 0, motions).data().toString(), "Misc. (2)");
  // ... and undoing everything brings back every name exactly.
  while (model.canUndo())
    model.undo();
  EXPECT_EQ(dump(model), start);
  // A move that ends where it began is no edit; removeRows() after a plain move removes.
  ASSERT_TRUE(model.moveRows({}, 0, 2, {}, 0));
  EXPECT_FALSE(model.canUndo());
  ASSERT_TRUE(model.moveRows({}, 0, 1, {}, 2));
  ASSERT_TRUE(model.removeRows(1, 1));
  EXPECT_EQ(model.rowCount(), 3);
}

TEST_F(ModelSession, ChangesMadeElsewhereReachTheRows) {
  Panel panel(copyExample());
  KR::BoxLibraryModel& model = panel.model;
  const QModelIndex box = firstBox(model);
  QSignalSpy changed(&model, &QAbstractItemModel::dataChanged);
  model.node(box)->boxData()->setTooltip(QStringLiteral("Set elsewhere"));
  ASSERT_EQ(changed.count(), 1);
  EXPECT_EQ(changed.first().at(0).toModelIndex(), box);
  // The model's editor used from outside: the rows follow, with no undo step.
  ASSERT_TRUE(model.editor()->newFolder(model.node(box.parent()), 0, "Outside"));
  EXPECT_EQ(model.index(0, 0, box.parent()).data().toString(), "Outside");
  EXPECT_FALSE(model.canUndo());
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
