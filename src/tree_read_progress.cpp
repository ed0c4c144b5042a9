#include "tree_read_progress.h"

#include <zu/project/progress_scope.h>

#include <algorithm>

namespace KR {

namespace {

struct ReadState {
  int depth = 0;
  double behind = 0;  // the share of the whole tree already read
  double share = 1;   // the share of the node being read
  std::size_t nodes = 0;
};

thread_local ReadState t_read;

// Until the read ends there is at least one node more to come. A share too small to divide by
// (a very deep tree) gives no estimate.
std::size_t estimatedTotal(std::size_t nodes, double behind) {
  const double estimate = behind > 0 ? static_cast<double>(nodes) / behind : 0;
  if (!(estimate < 1e15))
    return nodes + 1;
  return std::max(nodes + 1, static_cast<std::size_t>(estimate));
}

}  // namespace

TreeReadProgress::TreeReadProgress(std::size_t children) {
  if (t_read.depth++ == 0)
    t_read = ReadState{1, 0, 1, 0};
  m_start = t_read.behind;
  m_outerShare = t_read.share;
  m_childShare = children ? m_outerShare / static_cast<double>(children) : 0;
  t_read.share = m_childShare;
}

TreeReadProgress::~TreeReadProgress() {
  t_read.share = m_outerShare;
  if (--t_read.depth == 0 && t_read.nodes > 0)
    zu::project::ProgressScope::report(t_read.nodes, t_read.nodes);
}

void TreeReadProgress::childRead() {
  ++m_read;
  t_read.behind = m_start + m_childShare * static_cast<double>(m_read);
  ++t_read.nodes;
  zu::project::ProgressScope::report(t_read.nodes, estimatedTotal(t_read.nodes, t_read.behind));
}

}  // namespace KR
