// A seeded random run of the panel model: edits, drops, undo and redo under
// QAbstractItemModelTester, each checked against a plain tree of names; every 50 steps the
// library is saved and read back, and at the end everything is undone and compared with
// the start. Usage: panel_soak LIBRARY [--seed N] [--ops N]; PANEL_SOAK_TRACE=1 prints
// each step.
#include <krboxlibrary/box_library.h>
#include <krboxlibrary/box_library_filter_model.h>
#include <krboxlibrary/box_library_model.h>
#include <krboxlibrary/box_library_node.h>

#include <QAbstractItemModelTester>
#include <QCoreApplication>
#include <QDir>
#include <QMimeData>
#include <QTemporaryDir>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

// The oracle: what the tree should be, with what the panel shows of each node.
struct Entry {
  std::string name;
  std::string values;
  std::vector<Entry> children;
};

std::string valuesOf(const QModelIndex& index) {
  using Model = KR::BoxLibraryModel;
  return (index.data(Model::KindRole).toString() + "|" + index.data(Qt::ToolTipRole).toString() +
          "|" + index.data(Model::BitmapsRole).toStringList().join(',') + "|" +
          index.data(Model::BitmapExpandedRole).toString() + "|" +
          index.data(Model::ExpandedRole).toString())
      .toStdString();
}

Entry read(const QAbstractItemModel& model, const QModelIndex& index) {
  Entry entry{index.data().toString().toStdString(), valuesOf(index), {}};
  for (int row = 0; row < model.rowCount(index); ++row)
    entry.children.push_back(read(model, model.index(row, 0, index)));
  return entry;
}

void print(const Entry& entry, int depth, std::string& out) {
  for (const Entry& child : entry.children) {
    out += std::string(depth * 2, ' ') + child.name + " " + child.values + "\n";
    print(child, depth + 1, out);
  }
}

// The rows a search shows below parent, one path a line.
void shown(const QAbstractItemModel& model, const QModelIndex& parent, const std::string& prefix,
           std::string& out) {
  for (int row = 0; row < model.rowCount(parent); ++row) {
    const QModelIndex index = model.index(row, 0, parent);
    const std::string path = prefix + "/" + index.data().toString().toStdString();
    out += path + "\n";
    shown(model, index, path, out);
  }
}

// The same as the query should give it: the nodes that match, and the folders above them.
bool kept(const KR::BoxLibraryModel& model, const KR::BoxLibraryQuery& query,
          const QModelIndex& parent, const std::string& prefix, std::string& out) {
  bool any = false;
  for (int row = 0; row < model.rowCount(parent); ++row) {
    const QModelIndex index = model.index(row, 0, parent);
    const std::string path = prefix + "/" + index.data().toString().toStdString();
    std::string below;
    if (kept(model, query, index, path, below) || query.matches(*model.node(index))) {
      out += path + "\n" + below;
      any = true;
    }
  }
  return any;
}

std::string print(const Entry& entry) {
  std::string out;
  print(entry, 0, out);
  return out;
}

std::vector<int> pathOf(const QModelIndex& index) {
  return index.isValid() ? [&] {
    std::vector<int> path = pathOf(index.parent());
    path.push_back(index.row());
    return path;
  }()
                         : std::vector<int>();
}

Entry& at(Entry& root, const std::vector<int>& path) {
  Entry* entry = &root;
  for (int row : path)
    entry = &entry->children[static_cast<std::size_t>(row)];
  return *entry;
}

bool within(const std::vector<int>& path, const std::vector<int>& ancestor) {
  return path.size() >= ancestor.size() &&
         std::equal(ancestor.begin(), ancestor.end(), path.begin());
}

class Soak {
public:
  // path is edited; nodes of other, a library nobody changes, are copied in.
  Soak(const QString& path, const QString& other, const QString& boxFile, unsigned seed)
      : m_path(path), m_boxFile(boxFile), m_other(other, true), m_random(seed) {
    open();
  }

  // One random step; false when the model and the oracle disagree.
  bool step(int n) {
    KR::BoxLibraryModel& model = *m_model;
    const QModelIndex node = anyIndex(false);
    const QModelIndex folder = anyIndex(true);
    const int rows = model.rowCount(folder);
    const int row = pick(rows + 3) - 2;  // -2 .. rows: refused, the end, or a place
    const std::vector<int> nodePath = pathOf(node), folderPath = pathOf(folder);
    const int op = pick(10);
    if (std::getenv("PANEL_SOAK_TRACE"))
      std::cerr << n << ": op " << op << " node "
                << node.data(KR::BoxLibraryModel::PathRole).toString().toStdString() << " folder "
                << folder.data(KR::BoxLibraryModel::PathRole).toString().toStdString() << " row "
                << row << "\n";
    bool ok = false;
    switch (op) {
      case 0: {
        const QString names[] = {"New", "New (2)", " (3)", "Misc.", "lbfinfo", "a/b?", " "};
        ok = inserted(folderPath, model.insertFolder(folder, row, names[pick(7)]));
        break;
      }
      case 1:
        if (node.isValid() && (ok = model.setData(node, QStringLiteral("Box (2)"))))
          at(m_oracle, nodePath).name = node.data().toString().toStdString();
        break;
      case 2:
        if (node.isValid() && (ok = model.removeRows(node.row(), 1, node.parent())))
          erase(nodePath);
        break;
      case 3:
      case 4: {
        if (!node.isValid())
          break;
        std::unique_ptr<QMimeData> drag(model.mimeData({node}));
        const bool copy = op == 4;
        const QPersistentModelIndex target = folder;
        ok = model.dropMimeData(drag.get(), copy ? Qt::CopyAction : Qt::MoveAction, row, 0, folder);
        if (ok != !(within(folderPath, nodePath) || row < -1 || row > rows))
          return fail("a drop was " + std::string(ok ? "taken" : "refused"));
        if (ok)
          dropped(nodePath, row, copy, target);
        // A view removes the rows it dragged after a move drop: they have moved already.
        if (ok && !copy &&
            (!model.removeRows(m_movedRow, 1, target) || print(current()) != print(m_oracle)))
          return fail("the view's removal after a move drop changed the tree");
        break;
      }
      case 5:
      case 6: {
        const bool undo = op == 5;
        if (!(undo ? model.canUndo() : model.canRedo()))
          break;
        undo ? model.undo() : model.redo();
        m_at += undo ? -1 : 1;
        // Back to the very state the edit started from, or the one it made.
        if (print(current()) != m_states[m_at])
          return fail(undo ? "an undo did not restore the tree" : "a redo differs");
        m_oracle = current();
        return n % 50 != 49 || reopen();
      }
      case 7: {
        if (!node.isValid())
          break;
        const int roles[] = {Qt::ToolTipRole, KR::BoxLibraryModel::BitmapsRole,
                             KR::BoxLibraryModel::BitmapExpandedRole,
                             KR::BoxLibraryModel::ExpandedRole};
        const QVariant values[] = {QStringLiteral("Tip %1").arg(n), QStringList{"a.png"},
                                   pick(2) == 1, pick(2) == 1};
        const int which = pick(4);
        if ((ok = model.setData(node, values[which], roles[which])))
          at(m_oracle, nodePath).values = valuesOf(node);
        break;
      }
      case 8:
        if (pick(2)) {
          ok = inserted(folderPath, model.addBoxFile(folder, row, m_boxFile));
        } else {
          const KR::BoxLibraryNode* source = m_other.boxRoot();
          for (int depth = pick(3); depth >= 0 && source->childCount(); --depth)
            source = source->child(pick(source->childCount()));
          ok = inserted(folderPath, model.insertCopy(folder, row, *source));
        }
        break;
      default: {
        const QString queries[] = {"box", "E", "new (", "tag:a", "été", ""};
        m_filter->setFilterText(queries[pick(6)]);
        break;
      }
    }
    m_done += ok;
    if (print(current()) != print(m_oracle))
      return fail("the tree differs from the oracle:\n" + print(current()) + "-- expected:\n" +
                  print(m_oracle));
    std::string search, expected;
    shown(*m_filter, QModelIndex(), std::string(), search);
    kept(model, KR::BoxLibraryQuery(m_filter->filterText()), QModelIndex(), std::string(),
         expected);
    if (!m_filter->filterText().isEmpty() && search != expected)
      return fail("the search shows:\n" + search + "-- expected:\n" + expected);
    // An edit makes a new state to come back to; one that changed nothing makes none.
    if (ok && print(m_oracle) != m_states[m_at]) {
      m_states.resize(m_at + 1);
      m_states.push_back(print(m_oracle));
      ++m_at;
    }
    return n % 50 != 49 || reopen();
  }

  // Undoes everything: the tree must be the one read at the start.
  bool undoAll() {
    while (m_model->canUndo())
      m_model->undo();
    return print(current()) == m_states.front() || fail("undo all differs");
  }
  int done() const { return m_done; }

private:
  Entry current() const { return read(*m_model, QModelIndex()); }
  void open() {
    m_filter.reset();
    m_tester.reset();
    m_model.reset();
    m_library = std::make_unique<KR::BoxLibrary>(m_path);
    m_model = std::make_unique<KR::BoxLibraryModel>(m_library.get());
    m_tester = std::make_unique<QAbstractItemModelTester>(
        m_model.get(), QAbstractItemModelTester::FailureReportingMode::Fatal);
    m_filter = std::make_unique<KR::BoxLibraryFilterModel>();
    m_filter->setSourceModel(m_model.get());
    m_oracle = current();
    m_states = {print(m_oracle)};
    m_at = 0;
  }
  // Saves and reads back; the undo stack goes with the old model.
  bool reopen() {
    m_library->save();
    const std::string saved = print(m_oracle);
    open();
    return print(m_oracle) == saved || fail("the library read back differs");
  }
  int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(m_random); }
  QModelIndex anyIndex(bool folder) {
    QModelIndex index;
    for (int depth = pick(4); depth > 0; --depth) {
      const int rows = m_model->rowCount(index);
      if (rows == 0)
        break;
      const QModelIndex child = m_model->index(pick(rows), 0, index);
      if (folder && child.data(KR::BoxLibraryModel::KindRole) == QLatin1String("box"))
        break;
      index = child;
    }
    return index;
  }
  // A node the model made: the oracle takes it as the model shows it, at its row.
  bool inserted(const std::vector<int>& folder, const QModelIndex& made) {
    if (!made.isValid())
      return false;
    auto& children = at(m_oracle, folder).children;
    children.insert(children.begin() + made.row(), read(*m_model, made));
    return true;
  }
  void erase(const std::vector<int>& path) {
    std::vector<int> parent(path.begin(), path.end() - 1);
    auto& children = at(m_oracle, parent).children;
    children.erase(children.begin() + path.back());
  }
  void dropped(const std::vector<int>& from, int row, bool copy,
               const QPersistentModelIndex& target) {
    Entry entry = at(m_oracle, from);
    if (!copy) {
      erase(from);
      // The node goes before the child that was at row, wherever that one is now.
      const std::vector<int> parent(from.begin(), from.end() - 1);
      if (parent == pathOf(target) && row > from.back())
        --row;
    }
    auto& children = at(m_oracle, pathOf(target)).children;
    row = row < 0 ? static_cast<int>(children.size()) : row;
    const QModelIndex made = m_model->index(row, 0, target);
    entry.name = made.data().toString().toStdString();
    if (copy)
      entry = read(*m_model, made);
    children.insert(children.begin() + row, entry);
    m_movedRow = row;
  }
  bool fail(const std::string& why) {
    std::cerr << "panel_soak: " << why << "\n";
    return false;
  }

  QString m_path;
  QString m_boxFile;
  KR::BoxLibrary m_other;
  std::mt19937 m_random;
  std::unique_ptr<KR::BoxLibrary> m_library;
  std::unique_ptr<KR::BoxLibraryModel> m_model;
  std::unique_ptr<QAbstractItemModelTester> m_tester;
  std::unique_ptr<KR::BoxLibraryFilterModel> m_filter;
  Entry m_oracle;
  // The tree after each edit of the undo stack, and where the stack stands.
  std::vector<std::string> m_states;
  std::size_t m_at = 0;
  int m_done = 0;
  int m_movedRow = 0;
};

bool copyTree(const QString& from, const QString& to) {
  QDir().mkpath(to);
  for (const QString& name :
       QDir(from).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot)) {
    const QString source = from + "/" + name;
    if (QFileInfo(source).isDir() ? !copyTree(source, to + "/" + name)
                                  : !QFile::copy(source, to + "/" + name))
      return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  QCoreApplication app(argc, argv);
  unsigned seed = 1;
  int ops = 2000;
  for (int i = 2; i + 1 < argc; i += 2) {
    if (std::string(argv[i]) == "--seed")
      seed = static_cast<unsigned>(std::atoi(argv[i + 1]));
    else if (std::string(argv[i]) == "--ops")
      ops = std::atoi(argv[i + 1]);
  }
  QTemporaryDir dir;
  if (argc < 2 || !dir.isValid() ||
      !copyTree(QString::fromLocal8Bit(argv[1]), dir.filePath("lib"))) {
    std::cerr << "usage: panel_soak LIBRARY [--seed N] [--ops N]\n";
    return 2;
  }
  // A box file with a resource beside it, as a file manager would drop it.
  QDir().mkpath(dir.filePath("Nod"));
  QFile box(dir.filePath("Nod/box.bxd"));
  if (!box.open(QIODevice::WriteOnly) ||
      box.write("<VantorelBox bxd_version=\"3\"><Box tooltip=\"Nods.\"/></VantorelBox>") < 0)
    return 2;
  box.close();
  Soak soak(dir.filePath("lib"), QString::fromLocal8Bit(argv[1]), box.fileName(), seed);
  for (int n = 0; n < ops; ++n) {
    if (!soak.step(n)) {
      std::cerr << "panel_soak: seed " << seed << ", step " << n << "\n";
      return 1;
    }
  }
  if (!soak.undoAll())
    return 1;
  std::cout << "panel_soak: seed " << seed << ", " << ops << " steps, " << soak.done()
            << " edits made\n";
  return 0;
}
