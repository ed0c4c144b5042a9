#include <krboxlibrary/box_library_editor.h>

#include <krserial/xml_element.h>
#include <zu/project/project_model.h>

#include "directory_read.h"
#include "editor_private.h"
#include "text.h"
#include "vocabulary.h"

#include <algorithm>
#include <exception>
#include <unordered_set>

namespace KR {

void BoxLibraryEditor::Private::forgetEdits(const BoxLibraryNode* node) {
  edited.remove(node);
  for (const BoxLibraryNode* child : node->m_children)
    forgetEdits(child);
}

bool BoxLibraryEditor::Private::editedBelow(const BoxLibraryNode* node) const {
  if (edited.contains(node))
    return true;
  return std::any_of(node->m_children.begin(), node->m_children.end(),
                     [this](const BoxLibraryNode* child) { return editedBelow(child); });
}

BoxLibraryNode* BoxLibraryEditor::Private::nodeAt(const QString& path) const {
  BoxLibraryNode* node = library->boxRoot();
  for (const QString& part : path.split(QLatin1Char('/'), Qt::SkipEmptyParts)) {
    const std::string fileName = text::toUtf8(part);
    const auto found = std::find_if(
        node->m_children.begin(), node->m_children.end(),
        [&fileName](const BoxLibraryNode* child) { return child->m_fileName == fileName; });
    if (found == node->m_children.end())
      return nullptr;
    node = *found;
  }
  return node;
}

bool BoxLibraryEditor::Private::take(const QString& path, const BoxLibraryNode* node) {
  if (reloading)
    return true;
  if (edited.contains(node) ||
      !library->projectModel()->takeFromSource(QStringList{path}).isEmpty()) {
    conflicts.append(node->path());
    return false;
  }
  return true;
}

void BoxLibraryEditor::Private::syncBox(BoxLibraryNode* box, Changed& changed) {
  if (!take(box->path(), box))
    return;
  ModelFiles files(*library->projectModel());
  const std::optional<BoxValues> values = readBoxDirectory(files, box->directoryPrefix()).box;
  if (!values) {
    // No box any more: its folder reads the directory anew.
    syncFolder(box->m_parent, changed, box);
    return;
  }
  const BoxData fresh(nullptr, *values);
  BoxData& data = *box->m_boxData;
  const auto note = [&] {
    if (changed.isEmpty() || changed.back() != box)
      changed.append(box);
  };
  const auto take = [&](auto member, auto announce) {
    if (data.*member == fresh.*member)
      return;
    data.*member = fresh.*member;
    note();
    emit(data.*announce)(data.*member);
  };
  take(&BoxData::m_tooltip, &BoxData::tooltipChanged);
  take(&BoxData::m_bitmaps, &BoxData::bitmapsChanged);
  take(&BoxData::m_bitmapExpanded, &BoxData::bitmapExpandedChanged);
  if (data.m_behavior != fresh.m_behavior) {
    data.m_behavior = fresh.m_behavior;
    if (data.m_behavior)
      library->setBehaviorCompatible(true);
    note();
    emit box->dataChanged(box);
  }
}

void BoxLibraryEditor::Private::removeChild(BoxLibraryNode* folder, int index) {
  BoxLibraryNode* node = folder->m_children.at(index);
  emit q->nodeAboutToBeRemoved(node);
  QObject::disconnect(node, &BoxLibraryNode::dataChanged, folder, &BoxLibraryNode::dataChanged);
  folder->m_children.removeAt(index);
  node->m_parent = nullptr;
  emit q->nodeRemoved(folder, index);
  forgetEdits(node);
  delete node;
}

void BoxLibraryEditor::Private::syncFolder(BoxLibraryNode* folder, Changed& changed,
                                           const BoxLibraryNode* replace) {
  const QString prefix = folder->directoryPrefix();
  if (!take(prefix + QLatin1String(vocabulary::kListingFile), folder))
    return;
  // What the model still holds of a directory gone from disk (the listings a read rewrote)
  // would show it, unless this editor made or changed something there; and a directory
  // another model of this process saved is hidden from this one's view until taken.
  zu::project::ProjectModel& model = *library->projectModel();
  std::unordered_set<std::string> onDisk;
  if (!reloading) {
    for (const QString& name : model.sourceDirectories(folder->path()))
      onDisk.insert(text::toUtf8(name));
    for (const BoxLibraryNode* child : folder->m_children) {
      if (!onDisk.count(child->m_fileName) && !editedBelow(child))
        model.takeFromSource(QStringList{child->path()});
    }
  }
  bool expanded = false;
  std::vector<std::string> order = folder->readChildOrder(prefix, expanded, false);
  std::unordered_set<std::string> wanted(order.begin(), order.end());
  bool hidden = false;
  for (const std::string& name : onDisk) {
    if (!wanted.count(name)) {
      model.takeFromSource(QStringList{prefix + text::fromUtf8(name)});
      hidden = true;
    }
  }
  // Rare: read the order again only when something was hidden.
  if (hidden) {
    order = folder->readChildOrder(prefix, expanded, false);
    wanted = std::unordered_set<std::string>(order.begin(), order.end());
  }
  bool changedHere = false;

  // Children whose directories went; a subtree with edits of this editor stays.
  for (int i = folder->childCount() - 1; i >= 0; --i) {
    BoxLibraryNode* child = folder->m_children.at(i);
    if (wanted.count(child->m_fileName) && child != replace)
      continue;
    if (editedBelow(child)) {
      conflicts.append(child->path());
      continue;
    }
    removeChild(folder, i);
    changedHere = true;
  }
  // Then the wanted order: children in place stay, others move up, new ones are read.
  for (int i = 0; i < static_cast<int>(order.size()); ++i) {
    const std::string& fileName = order[static_cast<std::size_t>(i)];
    if (i < folder->childCount() && folder->m_children.at(i)->m_fileName == fileName)
      continue;
    int at = -1;
    for (int j = i + 1; j < folder->childCount(); ++j) {
      if (folder->m_children.at(j)->m_fileName == fileName) {
        at = j;
        break;
      }
    }
    changedHere = true;
    if (at >= 0) {
      BoxLibraryNode* node = folder->m_children.at(at);
      emit q->nodeAboutToBeMoved(node, folder, i);
      folder->m_children.move(at, i);
      emit q->nodeMoved(node);
      continue;
    }
    auto* node = new BoxLibraryNode();
    node->m_parent = folder;
    node->m_fileName = fileName;
    node->initFromProject();
    attach(folder, std::min(i, folder->childCount()), node);
  }
  if (folder->m_expanded != expanded) {
    folder->m_expanded = expanded;
    changedHere = true;
    emit q->expandedChanged(folder);
  }
  // As a read does: the listing names what the folder now holds.
  folder->saveFolder();
  if (changedHere)
    changed.append(folder);
}

void BoxLibraryEditor::Private::syncTree(BoxLibraryNode* node, Changed& changed) {
  if (node->isBox()) {
    syncBox(node, changed);
    return;
  }
  const QList<BoxLibraryNode*> before = node->m_children;
  syncFolder(node, changed);
  // Children read anew are up to date; the others are looked at in turn.
  for (BoxLibraryNode* child : node->m_children) {
    if (before.contains(child))
      syncTree(child, changed);
  }
}

QList<BoxLibraryNode*> BoxLibraryEditor::updateFromDisk(const QStringList& directories) {
  Private::Changed changed;
  d->conflicts.clear();
  d->error.clear();
  if (!d->library)
    return {};
  QStringList sorted = directories;
  // Folders before what is below them: a folder read anew needs no second look inside.
  std::sort(sorted.begin(), sorted.end());
  sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
  for (const QString& directory : sorted) {
    BoxLibraryNode* node = d->nodeAt(directory);
    if (!node)
      continue;
    if (node->isBox())
      d->syncBox(node, changed);
    else
      d->syncFolder(node, changed);
  }
  QList<BoxLibraryNode*> nodes;
  for (const QPointer<BoxLibraryNode>& node : changed) {
    if (node)
      nodes.append(node);
  }
  return nodes;
}

QStringList BoxLibraryEditor::conflicts() const {
  return d->conflicts;
}

bool BoxLibraryEditor::hasUnsavedEdit(const BoxLibraryNode* node) const {
  return d->edited.contains(node);
}

bool BoxLibraryEditor::reloadFromDisk() {
  d->conflicts.clear();
  if (!d->library)
    return d->refuse(QStringLiteral("the library is gone"));
  zu::project::ProjectModel* model = d->library->projectModel();
  try {
    model->load(model->getSourcePath(), zu::project::ArchiveFormat_Auto);
  } catch (const std::exception& e) {
    return d->refuse(
        QStringLiteral("cannot read the library again: %1")
            .arg(*e.what() ? QString::fromUtf8(e.what()) : QStringLiteral("unknown failure")));
  }
  d->edited.clear();
  d->error.clear();
  Private::Changed changed;
  d->reloading = true;
  d->syncTree(d->library->boxRoot(), changed);
  d->reloading = false;
  return true;
}

}  // namespace KR
