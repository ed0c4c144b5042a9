#ifndef KRBOXLIBRARY_SRC_TREE_READ_PROGRESS_H
#define KRBOXLIBRARY_SRC_TREE_READ_PROGRESS_H

#include <cstddef>

namespace KR {

// Reports how far a read of a tree from its project has got, one report per node. The size of
// the tree is known only once it is read, so the total is estimated from the share of the tree
// behind the node just read, each folder's share split evenly among its children: no listing
// ahead of the read. One lives for each folder being read; the outermost one reports the end
// of a read that found anything.
class TreeReadProgress {
public:
  explicit TreeReadProgress(std::size_t children);
  ~TreeReadProgress();
  TreeReadProgress(const TreeReadProgress&) = delete;
  TreeReadProgress& operator=(const TreeReadProgress&) = delete;

  // The next child has been read, with everything below it.
  void childRead();

private:
  double m_start;
  double m_childShare;
  double m_outerShare;
  std::size_t m_read = 0;
};

}  // namespace KR

#endif
