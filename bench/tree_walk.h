#ifndef KRBOX_BENCH_TREE_WALK_H
#define KRBOX_BENCH_TREE_WALK_H

namespace KR {
class BoxLibraryNode;
}

namespace krbench {

struct TreeCount {
  int boxes = 0;
  int folders = 0;
};

// Reads what the library panel shows of every node below node (name, expanded flag,
// tooltip, bitmaps), as a user scrolling through the whole tree would.
TreeCount readWholeTree(const KR::BoxLibraryNode& node);

}  // namespace krbench

#endif
