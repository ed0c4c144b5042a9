// A seeded random run of the search proxy over a small deep tree of names with true moves,
// insertions, removals and layout changes, under QAbstractItemModelTester: after each step
// the rows shown must be those that match or hold a match. Usage: filter_soak [RUNS]
#include <krboxlibrary/box_library_filter_model.h>
#include <krboxlibrary/box_library_query.h>

#include <QAbstractItemModelTester>
#include <QCoreApplication>

#include <cstdlib>
#include <iostream>
#include <random>

namespace {

// A tree of names with true moves: QStandardItemModel has no moveRows(), and its takeRow()
// reaches a proxy as a removal and an insertion, never as rowsMoved.
class NameTree : public QAbstractItemModel {
public:
  struct Node {
    QString name;
    Node* up;
    QList<Node*> rows;
    ~Node() { qDeleteAll(rows); }
  };
  Node* node(const QModelIndex& index) const {
    return index.isValid() ? static_cast<Node*>(index.internalPointer()) : &m_root;
  }
  QModelIndex index(int row, int column, const QModelIndex& parent) const override {
    return hasIndex(row, column, parent) ? createIndex(row, column, node(parent)->rows[row])
                                         : QModelIndex();
  }
  QModelIndex parent(const QModelIndex& index) const override {
    Node* up = index.isValid() ? node(index)->up : &m_root;
    return up == &m_root ? QModelIndex() : createIndex(int(up->up->rows.indexOf(up)), 0, up);
  }
  int rowCount(const QModelIndex& parent) const override { return int(node(parent)->rows.size()); }
  int columnCount(const QModelIndex&) const override { return 1; }
  QVariant data(const QModelIndex& index, int role) const override {
    return role == Qt::DisplayRole ? QVariant(node(index)->name) : QVariant();
  }
  void insert(const QModelIndex& parent, int row, const QString& name) {
    beginInsertRows(parent, row, row);
    node(parent)->rows.insert(row, new Node{name, node(parent), {}});
    endInsertRows();
  }
  void remove(const QModelIndex& parent, int row) {
    beginRemoveRows(parent, row, row);
    delete node(parent)->rows.takeAt(row);
    endRemoveRows();
  }
  void move(const QModelIndex& from, int row, const QModelIndex& to, int at) {
    if (!beginMoveRows(from, row, row, to, at))
      return;  // into itself, or to where it is
    Node* moved = node(from)->rows.takeAt(row);
    moved->up = node(to);
    node(to)->rows.insert(from == to && at > row ? at - 1 : at, moved);
    endMoveRows();
  }
  void swap(const QModelIndex& parent, int row, int other) {
    emit layoutAboutToBeChanged({parent});
    const QModelIndexList before = {index(row, 0, parent), index(other, 0, parent)};
    node(parent)->rows.swapItemsAt(row, other);
    changePersistentIndexList(before, {index(other, 0, parent), index(row, 0, parent)});
    emit layoutChanged({parent});
  }

private:
  mutable Node m_root{{}, nullptr, {}};
};

// The rows under parent that match or hold a match, one a line, indented by depth.
std::string shown(const QAbstractItemModel& model, const QModelIndex& parent,
                  const KR::BoxLibraryQuery& query, const std::string& indent = "") {
  std::string lines;
  for (int row = 0; row < model.rowCount(parent); ++row) {
    const QModelIndex index = model.index(row, 0, parent);
    const std::string below = shown(model, index, query, indent + ' ');
    if (!below.empty() || query.matches(index.data().toString(), {}, {}))
      lines += indent + index.data().toString().toStdString() + '\n' + below;
  }
  return lines;
}

// Random edits of a small deep tree between searches, with moves or with layout changes: a
// run for each seed. Moves would hide what layout changes break: they start the mapping over.
bool soak(bool moves, unsigned seed) {
  const QStringList queries = {"", "ab", "bc", "ca"}, names = {"ab", "bc", "ca", "d", "e"};
  NameTree tree;
  KR::BoxLibraryFilterModel filter;
  filter.setSourceModel(&tree);
  QAbstractItemModelTester tester(&filter, QAbstractItemModelTester::FailureReportingMode::Fatal);
  std::mt19937 random(seed);
  const auto pick = [&](int count) { return int(random() % unsigned(count)); };
  const auto anywhere = [&](QModelIndex index = {}) {  // mostly deep down
    while (tree.rowCount(index) && pick(8))
      index = tree.index(pick(tree.rowCount(index)), 0, index);
    return index;
  };
  for (int step = 0; step < 500; ++step) {
    const QModelIndex parent = anywhere(), to = anywhere();
    const int count = tree.rowCount(parent), row = pick(count + 1), other = count ? pick(count) : 0;
    switch (count ? pick(11) : 0) {
      case 0:
      case 1: tree.insert(parent, row, names[pick(5)] + QString::number(step)); break;
      case 2: tree.remove(parent, other); break;
      case 3:
      case 4:
      case 5:
        moves ? tree.move(parent, other, to, pick(tree.rowCount(to) + 1))
              : tree.swap(parent, row % count, other);
        break;
      default: filter.setFilterText(queries[pick(4)]);
    }
    if (shown(filter, {}, KR::BoxLibraryQuery()) !=
        shown(tree, {}, KR::BoxLibraryQuery(filter.filterText()))) {
      std::cerr << "filter_soak: the rows shown differ, " << (moves ? "moves" : "layout changes")
                << ", seed " << seed << ", step " << step << "\n";
      return false;
    }
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  QCoreApplication app(argc, argv);
  const int runs = argc > 1 ? std::atoi(argv[1]) : 5;
  for (int seed = 1; seed <= runs; ++seed) {
    if (!soak(true, unsigned(seed)) || !soak(false, unsigned(seed)))
      return 1;
  }
  std::cout << "filter_soak: " << runs << " seeds, moves and layout changes\n";
  return 0;
}
