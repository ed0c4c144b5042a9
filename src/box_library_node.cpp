#include <krboxlibrary/box_library_node.h>

#include <krboxlibrary/box_data.h>
#include <krboxlibrary/box_library.h>
#include <zu/project/project_model.h>

#include "refusal.h"

namespace KR {

namespace {

// Queued connections and QSignalSpy need the signal's argument type registered.
[[maybe_unused]] const int kNodeMetaType = qRegisterMetaType<KR::BoxLibraryNode*>();

// An index past the list is a caller's bug: refused with a warning, never a crash.
bool refuseIndex(int index, int size, const char* function) {
  if (index >= 0 && index <= size)
    return false;
  refusal::warn(function, "Refused the index " + std::to_string(index) + ": not in 0.." +
                              std::to_string(size));
  return true;
}

bool refuseName(const std::string& name, const char* function) {
  const std::string why = BoxLibraryNode::nameRefusal(name);
  if (why.empty())
    return false;
  refusal::warn(function, "Refused the name \"" + name + "\": " + why);
  return true;
}

}  // namespace

BoxLibraryNode::BoxLibraryNode() = default;

BoxLibraryNode::BoxLibraryNode(BoxLibrary* library) : QObject(library), m_library(library) {
  if (library)
    library->m_problems.clear();
  initFromProject();
}

BoxLibraryNode::~BoxLibraryNode() {
  // Box data shared elsewhere must not die with this node's QObject base.
  if (m_boxData && m_boxData->QObject::parent() == this)
    m_boxData->setParent(nullptr);
  if (m_parent)
    m_parent->m_children.removeAll(this);
  // Object children are deleted by the QObject base, after this body; the rest of the
  // list (made in place or read from the project) would leak otherwise.
  const QList<BoxLibraryNode*> children = m_children;
  m_children.clear();
  for (BoxLibraryNode* child : children) {
    child->m_parent = nullptr;
    if (!child->QObject::parent())
      delete child;
  }
}

int BoxLibraryNode::index() const {
  if (!m_parent)
    return 0;
  return static_cast<int>(m_parent->m_children.indexOf(const_cast<BoxLibraryNode*>(this)));
}

BoxLibraryNode* BoxLibraryNode::child(int i) const {
  if (i < 0 || i >= m_children.size())
    return nullptr;
  return m_children.at(i);
}

BoxLibraryNode* BoxLibraryNode::child(const std::string& name) const {
  for (BoxLibraryNode* node : m_children) {
    if (node->m_name == name)
      return node;
  }
  return nullptr;
}

BoxLibrary* BoxLibraryNode::library() const {
  for (const BoxLibraryNode* node = this; node; node = node->m_parent) {
    if (node->m_library)
      return node->m_library;
  }
  return nullptr;
}

zu::project::ProjectModel* BoxLibraryNode::project() const {
  for (const BoxLibraryNode* node = this; node; node = node->m_parent) {
    if (node->m_ownProject)
      return node->m_ownProject;
    if (node->m_library)
      return node->m_library->projectModel();
  }
  return nullptr;
}

BoxLibraryNode* BoxLibraryNode::insertChild(int index, BoxLibraryNode* node) {
  if (!node) {
    refusal::warn("insertChild", "Refused a null node");
    return nullptr;
  }
  // A node in a tree (or this node's own ancestor) would end in two places, or in a cycle.
  bool ancestor = false;
  for (const BoxLibraryNode* above = this; above; above = above->m_parent)
    ancestor = ancestor || above == node;
  if (node->m_parent || node->m_library || ancestor) {
    refusal::warn("insertChild", "Refused the node \"" + node->m_name +
                                     "\": it is in a tree already; take() it first");
    return nullptr;
  }
  if (refuseName(node->m_name, "insertChild") || refuseIndex(index, childCount(), "insertChild"))
    return nullptr;
  const QString oldPath = node->path();
  node->setParent(this);
  m_children.insert(index, node);
  node->m_parent = this;
  node->initName(node->m_name);

  zu::project::ProjectModel* model = project();
  zu::project::ProjectModel* source = node->project();
  if (model && source)
    model->importFile(source, oldPath, node->path(), true);
  // Only a model the node owns (one made by take()) is deleted; a reference to another
  // library's model is merely dropped.
  if (node->m_ownProject && node->m_ownProject->parent() == node)
    delete node->m_ownProject;
  // The moved subtree keeps reaching the library's model through this plain reference.
  node->m_ownProject = model;

  saveFolder();
  relay(node);
  return node;
}

BoxLibraryNode* BoxLibraryNode::appendChild(BoxLibraryNode* node) {
  return insertChild(childCount(), node);
}

BoxLibraryNode* BoxLibraryNode::insertChild(int index, const std::string& name, bool expanded) {
  if (refuseName(name, "insertChild") || refuseIndex(index, childCount(), "insertChild"))
    return nullptr;
  return insertNewFolder(index, name, expanded);
}

BoxLibraryNode* BoxLibraryNode::appendChild(const std::string& name, bool expanded) {
  if (refuseName(name, "appendChild"))
    return nullptr;
  return insertNewFolder(childCount(), name, expanded);
}

BoxLibraryNode* BoxLibraryNode::insertNewFolder(int index, const std::string& name, bool expanded) {
  auto* node = new BoxLibraryNode();
  m_children.insert(index, node);
  node->m_parent = this;
  node->init(name, expanded);
  saveFolder();
  relay(node);
  return node;
}

BoxLibraryNode* BoxLibraryNode::insertChild(int index, const RootBoxDescription& description) {
  if (!description.box) {
    refusal::warn("insertChild", "Refused a box description without a box element");
    return nullptr;
  }
  if (refuseName(description.name, "insertChild") ||
      refuseIndex(index, childCount(), "insertChild"))
    return nullptr;
  auto* node = new BoxLibraryNode();
  m_children.insert(index, node);
  // Naming and writing go through the parent, so it is set before init().
  node->m_parent = this;
  if (!node->init(description)) {
    // Nothing of a box whose file could not be written stays.
    m_children.removeAll(node);
    node->m_parent = nullptr;
    delete node;
    return nullptr;
  }
  saveFolder();
  relay(node);
  return node;
}

BoxLibraryNode* BoxLibraryNode::appendChild(const RootBoxDescription& description) {
  return insertChild(childCount(), description);
}

void BoxLibraryNode::removeChild(int index) {
  if (refuseIndex(index, childCount() - 1, "removeChild"))
    return;
  BoxLibraryNode* node = m_children.at(index);
  disconnect(node, &BoxLibraryNode::dataChanged, this, &BoxLibraryNode::dataChanged);
  node->unInit();
  node->m_parent = nullptr;
  m_children.removeAt(index);
  saveFolder();
}

BoxLibraryNode* BoxLibraryNode::take() {
  if (!m_parent) {
    refusal::warn("take", "Refused to take \"" + m_name + "\": it has no parent");
    return nullptr;
  }
  auto* model = new zu::project::ProjectModel(this);
  if (zu::project::ProjectModel* current = project())
    model->importFile(current, path(), QString(), true);
  m_parent->m_children.removeAll(this);
  m_parent = nullptr;
  m_library = nullptr;
  setParent(nullptr);
  // A model the node owned from an earlier take() is replaced, not leaked.
  if (m_ownProject && m_ownProject->parent() == this)
    delete m_ownProject;
  m_ownProject = model;
  return this;
}

void BoxLibraryNode::unInit() {
  if (zu::project::ProjectModel* model = project())
    model->remove(path());
}

void BoxLibraryNode::setExpanded(bool expanded) {
  m_expanded = expanded;
  saveFolder();
}

void BoxLibraryNode::relay(BoxLibraryNode* child) {
  connect(child, &BoxLibraryNode::dataChanged, this, &BoxLibraryNode::dataChanged);
}

}  // namespace KR
