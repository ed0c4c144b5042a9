#include "tree_walk.h"

#include <krboxlibrary/box_data.h>
#include <krboxlibrary/box_library_editor.h>
#include <krboxlibrary/box_library_node.h>

#include <benchmark/benchmark.h>

namespace krbench {

TreeCount readWholeTree(const KR::BoxLibraryNode& node) {
  TreeCount count;
  size_t seen = node.name().size() + (node.isExpanded() ? 1 : 0);
  if (const auto data = node.boxData()) {
    ++count.boxes;
    seen += static_cast<size_t>(data->tooltip().size() + data->bitmaps().size());
  } else {
    ++count.folders;
  }
  for (const KR::BoxLibraryNode* child : node.childList()) {
    const TreeCount below = readWholeTree(*child);
    count.boxes += below.boxes;
    count.folders += below.folders;
  }
  benchmark::DoNotOptimize(seen);
  return count;
}

std::string displayPath(const KR::BoxLibraryNode& node) {
  const KR::BoxLibraryNode* parent = node.parent();
  if (!parent)
    return std::string();
  return joinedPath(displayPath(*parent), node.name());
}

std::string joinedPath(const std::string& folderPath, const std::string& name) {
  return folderPath.empty() ? name : folderPath + "/" + name;
}

KR::BoxLibraryNode* deepestBox(KR::BoxLibraryNode* node) {
  KR::BoxLibraryNode* found = node->isBox() ? node : nullptr;
  for (KR::BoxLibraryNode* child : node->childList()) {
    if (KR::BoxLibraryNode* below = deepestBox(child))
      found = below;
  }
  return found;
}

void moveNode(KR::BoxLibraryNode* node, KR::BoxLibraryNode* target, int index) {
  KR::BoxLibraryEditor(node->library()).move(node, target, index);
}

void renameNode(KR::BoxLibraryNode* node, const char* name) {
  KR::BoxLibraryEditor(node->library()).rename(node, QString::fromUtf8(name));
}

}  // namespace krbench
