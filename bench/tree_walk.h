#ifndef KRBOX_BENCH_TREE_WALK_H
#define KRBOX_BENCH_TREE_WALK_H

#include <string>

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

// The names from the top of the library down to node, as krbox takes a node: "A/B/box".
std::string displayPath(const KR::BoxLibraryNode& node);
// The deepest box met last in a depth-first walk below node: the one with the longest path.
KR::BoxLibraryNode* deepestBox(KR::BoxLibraryNode* node);
// Moves node into target at index (-1: the end) with the library's editor.
void moveNode(KR::BoxLibraryNode* node, KR::BoxLibraryNode* target, int index = -1);
// Renames node with the library's editor.
void renameNode(KR::BoxLibraryNode* node, const char* name);
// name in the folder at folderPath, a path as displayPath() gives; "" is the top.
std::string joinedPath(const std::string& folderPath, const std::string& name);

}  // namespace krbench

#endif
