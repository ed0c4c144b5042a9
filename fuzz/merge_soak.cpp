// Seeded random three-way merges of folder listings, each checked against what a plain
// reading of the two sides demands: no name twice, exactly the names neither side removed
// plus those either side added, one side's changes alone give that side, and the order of
// the names both kept follows the side that reordered them. Usage: merge_soak [RUNS] [SEED]
#include <krboxlibrary/folder_listing.h>

#include <QSet>

#include <cstdlib>
#include <iostream>
#include <random>

namespace {

using KR::FolderListing;

// The side's listing after a few random adds, removals, moves, renames and a toggle.
FolderListing edit(const FolderListing& base, std::mt19937& random, const QString& tag) {
  QStringList names = base.names();
  bool expanded = base.isExpanded();
  const int edits = static_cast<int>(random() % 4);
  for (int i = 0; i < edits; ++i) {
    const int at = names.isEmpty() ? 0 : static_cast<int>(random() % names.size());
    switch (random() % 5) {
      case 0:
        names.insert(static_cast<int>(random() % (names.size() + 1)), tag + QString::number(i));
        break;
      case 1:
        if (!names.isEmpty())
          names.removeAt(at);
        break;
      case 2:
        if (!names.isEmpty())
          names.move(at, static_cast<int>(random() % names.size()));
        break;
      case 3:
        if (!names.isEmpty())
          names[at] = tag + QStringLiteral("r") + QString::number(i);
        break;
      default: expanded = !expanded;
    }
  }
  return FolderListing(names, expanded);
}

QStringList keptIn(const QStringList& names, const QSet<QString>& kept) {
  QStringList result;
  for (const QString& name : names) {
    if (kept.contains(name))
      result.append(name);
  }
  return result;
}

QString show(const FolderListing& listing) {
  return (listing.isExpanded() ? QStringLiteral("+ ") : QStringLiteral("- ")) +
         listing.names().join(QLatin1Char(' '));
}

bool same(const FolderListing& a, const FolderListing& b) {
  return a.names() == b.names() && a.isExpanded() == b.isExpanded();
}

// What is wrong with merged; "" when nothing is.
QString check(const FolderListing& base, const FolderListing& ours, const FolderListing& theirs,
              const FolderListing& merged) {
  const QStringList names = merged.names();
  const auto setOf = [](const QStringList& list) {
    return QSet<QString>(list.begin(), list.end());
  };
  const QSet<QString> inBase = setOf(base.names());
  const QSet<QString> inOurs = setOf(ours.names());
  const QSet<QString> inTheirs = setOf(theirs.names());
  QSet<QString> expected;
  for (const QString& name : inOurs + inTheirs) {
    if (!inBase.contains(name) || (inOurs.contains(name) && inTheirs.contains(name)))
      expected.insert(name);
  }
  if (setOf(names).size() != names.size())
    return QStringLiteral("a name twice");
  if (setOf(names) != expected)
    return QStringLiteral("not the names kept and added");
  if ((same(theirs, base) && !same(merged, ours)) || (same(ours, base) && !same(merged, theirs)) ||
      (same(ours, theirs) && !same(merged, ours)))
    return QStringLiteral("one side's changes alone do not give that side");
  QSet<QString> kept = inBase;
  kept.intersect(inOurs).intersect(inTheirs);
  const QStringList baseOrder = keptIn(base.names(), kept);
  const QStringList ourOrder = keptIn(ours.names(), kept);
  const QStringList theirOrder = keptIn(theirs.names(), kept);
  const QStringList mergedOrder = keptIn(names, kept);
  if ((theirOrder == baseOrder && mergedOrder != ourOrder) ||
      (ourOrder == baseOrder && mergedOrder != theirOrder))
    return QStringLiteral("the order of the kept names is not the reordering side's");
  return QString();
}

}  // namespace

int main(int argc, char** argv) {
  const long runs = argc > 1 ? std::atol(argv[1]) : 20000;
  const unsigned seed = argc > 2 ? static_cast<unsigned>(std::atol(argv[2])) : 1;
  std::mt19937 random(seed);
  for (long run = 0; run < runs; ++run) {
    QStringList names;
    const int count = static_cast<int>(random() % 8);
    for (int i = 0; i < count; ++i)
      names.append(QString(QChar('A' + i)));
    const FolderListing base(names, random() % 2 == 0);
    const FolderListing ours = edit(base, random, QStringLiteral("o"));
    const FolderListing theirs = edit(base, random, QStringLiteral("t"));
    const FolderListing merged = FolderListing::merge(base, ours, theirs);
    const QString fault = check(base, ours, theirs, merged);
    if (!fault.isEmpty()) {
      std::cerr << "run " << run << " (seed " << seed << "): " << fault.toStdString()
                << "\n  base   " << show(base).toStdString() << "\n  ours   "
                << show(ours).toStdString() << "\n  theirs " << show(theirs).toStdString()
                << "\n  merged " << show(merged).toStdString() << '\n';
      return 1;
    }
  }
  std::cout << runs << " merges checked\n";
  return 0;
}
