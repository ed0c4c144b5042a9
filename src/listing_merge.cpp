#include <krboxlibrary/folder_listing.h>

#include <QHash>
#include <QSet>

#include <algorithm>
#include <iterator>
#include <list>
#include <vector>

namespace KR {

namespace {

// Each name once, at its first place: the tree read ignores later mentions too.
QStringList distinct(const QStringList& names) {
  QStringList result;
  QSet<QString> seen;
  for (const QString& name : names) {
    if (!seen.contains(name)) {
      seen.insert(name);
      result.append(name);
    }
  }
  return result;
}

// The names of kept that side moved: all but a longest run of them that side still lists in
// base's order. Patience sorting keeps this O(n log n) for folders of thousands of entries.
QSet<QString> movedBy(const QStringList& side, const QHash<QString, int>& basePlace,
                      const QSet<QString>& kept) {
  std::vector<QString> names;
  std::vector<int> places;
  for (const QString& name : side) {
    if (kept.contains(name)) {
      names.push_back(name);
      places.push_back(basePlace.value(name));
    }
  }
  std::vector<int> tails;  // tails[k]: index of the smallest end of a run of length k + 1
  std::vector<int> before(places.size(), -1);
  for (int i = 0; i < static_cast<int>(places.size()); ++i) {
    const auto at = std::lower_bound(tails.begin(), tails.end(), places[i],
                                     [&](int index, int place) { return places[index] < place; });
    if (at != tails.begin())
      before[i] = *std::prev(at);
    if (at == tails.end())
      tails.push_back(i);
    else
      *at = i;
  }
  QSet<QString> moved(kept.begin(), kept.end());
  for (int i = tails.empty() ? -1 : tails.back(); i >= 0; i = before[i])
    moved.remove(names[i]);
  return moved;
}

}  // namespace

FolderListing FolderListing::merge(const FolderListing& base, const FolderListing& ours,
                                   const FolderListing& theirs) {
  const QStringList baseNames = distinct(base.m_names);
  const QStringList ourNames = distinct(ours.m_names);
  const QStringList theirNames = distinct(theirs.m_names);
  QHash<QString, int> basePlace;
  for (int i = 0; i < baseNames.size(); ++i)
    basePlace.insert(baseNames[i], i);
  const QSet<QString> ourSet(ourNames.begin(), ourNames.end());
  const QSet<QString> theirSet(theirNames.begin(), theirNames.end());
  // What neither side removed.
  QSet<QString> kept;
  for (const QString& name : baseNames) {
    if (ourSet.contains(name) && theirSet.contains(name))
      kept.insert(name);
  }
  const QSet<QString> ourMoves = movedBy(ourNames, basePlace, kept);
  const QSet<QString> theirMoves = movedBy(theirNames, basePlace, kept);

  // What neither side moved keeps base's order, which agrees with both sides'.
  std::list<QString> merged;
  QHash<QString, std::list<QString>::iterator> placed;
  for (const QString& name : baseNames) {
    if (kept.contains(name) && !ourMoves.contains(name) && !theirMoves.contains(name))
      placed.insert(name, merged.insert(merged.end(), name));
  }
  // Each side then places its additions and moves after the nearest name before them on
  // that side that is already placed (and that ours did not move away); theirs go behind
  // ours at one place, so that ours stay first where both sides added.
  QSet<QString> ourPlaced;
  const auto placeSide = [&](const QStringList& names, const QSet<QString>& moves, bool mine) {
    auto anchor = merged.end();
    for (const QString& name : names) {
      const auto found = placed.constFind(name);
      if (found != placed.constEnd()) {
        // A name ours moved away says nothing about where theirs put their next one.
        if (mine || !ourMoves.contains(name))
          anchor = found.value();
        continue;
      }
      if (basePlace.contains(name) && !(kept.contains(name) && moves.contains(name)))
        continue;
      auto at = anchor == merged.end() ? merged.begin() : std::next(anchor);
      while (!mine && at != merged.end() && ourPlaced.contains(*at))
        ++at;
      anchor = merged.insert(at, name);
      placed.insert(name, anchor);
      if (mine)
        ourPlaced.insert(name);
    }
  };
  placeSide(ourNames, ourMoves, true);
  placeSide(theirNames, theirMoves, false);

  const bool expanded = ours.m_expanded != base.m_expanded ? ours.m_expanded : theirs.m_expanded;
  return FolderListing(QStringList(merged.begin(), merged.end()), expanded);
}

}  // namespace KR
