#include <krboxlibrary/box_library_model.h>

#include <zu/project/project_model.h>

#include <QCoreApplication>
#include <QFileInfo>

#include "model_private.h"

#include <exception>

namespace KR {

namespace {

// Bursts (a pull of many files) end in one update; a steady stream still updates this often.
constexpr int kQuietMs = 200;
constexpr int kLongestWaitMs = 800;
// Our own save's events arrive after it: they show nothing new, and must not turn the next
// edit into a false conflict.
constexpr int kOwnSaveMs = 300;

QString joined(const QString& root, const QString& path) {
  return path.isEmpty() ? root : root + QLatin1Char('/') + path;
}

}  // namespace

void BoxLibraryModel::Private::connectFollowing() {
  diskTimer.setSingleShot(true);
  QObject::connect(&diskTimer, &QTimer::timeout, q, [this] { applyDiskChanges(); });
  startTimer.setSingleShot(true);
  QObject::connect(&startTimer, &QTimer::timeout, q, [this] { startFollowing(); });
  sliceTimer.setSingleShot(true);
  QObject::connect(&sliceTimer, &QTimer::timeout, q, [this] { watchSlice(); });
  QObject::connect(library, &BoxLibrary::saved, q, [this] {
    if (!watcher)
      return;
    // Saved elsewhere (saveTo()): that is what is followed from now on.
    if (library->path() != followedPath) {
      stopFollowing();
      startFollowing();
      return;
    }
    conflicted.clear();
    pendingDirectories.clear();
    archiveChanged = false;
    archiveStamp = QFileInfo(library->path()).lastModified();
    sinceSave.start();
    // Folders and boxes made, moved or renamed since are on disk now.
    watchAll();
  });
  if (!library->path().isEmpty())
    startTimer.start(0);
}

void BoxLibraryModel::Private::startFollowing() {
  startTimer.stop();
  if (library->path().isEmpty() || watcher)
    return;
  followedPath = library->path();
  followsArchive = QFileInfo(followedPath).isFile();
  watcher = std::make_unique<DirectoryWatch>(
      [this](const void* key) { onDiskEvent(static_cast<const BoxLibraryNode*>(key)); });
  if (archiveForm()) {
    archiveStamp = QFileInfo(followedPath).lastModified();
    // Another writer replaces the archive whole: its directory sees the rename.
    watcher->add(QFileInfo(followedPath).absolutePath(), nullptr);
    if (!library->projectModel()->changedInSource().isEmpty()) {
      archiveChanged = true;
      diskTimer.start(0);
    }
    return;
  }
  toWatch.emplace_back(library->boxRoot(), followedPath);
  sliceTimer.start(0);
}

void BoxLibraryModel::Private::watchSlice() {
  constexpr int kSlice = 4000;
  for (int done = 0; done < kSlice && !toWatch.empty(); ++done) {
    const auto [node, path] = toWatch.back();
    toWatch.pop_back();
    if (!node || !watcher)
      continue;
    watchOne(node, path);
    for (BoxLibraryNode* child : node->childList())
      toWatch.emplace_back(child,
                           path + QLatin1Char('/') + QString::fromUtf8(child->fileName().c_str()));
  }
  if (!toWatch.empty())
    sliceTimer.start(0);
  else if (watcher)
    catchUp();
}

void BoxLibraryModel::Private::catchUp() {
  // What changed between the reading of the files and its watch had nothing to see it: the
  // files as read tell.
  for (const QString& file : library->projectModel()->changedInSource()) {
    const int slash = file.lastIndexOf(QLatin1Char('/'));
    pendingDirectories.insert(slash < 0 ? QString() : file.left(slash));
  }
  if (!pendingDirectories.isEmpty())
    diskTimer.start(0);
}

void BoxLibraryModel::Private::stopFollowing() {
  startTimer.stop();
  sliceTimer.stop();
  toWatch.clear();
  diskTimer.stop();
  pendingDirectories.clear();
  watched.clear();
  watcher.reset();
}

void BoxLibraryModel::Private::watch(const BoxLibraryNode* node) {
  if (watcher && !archiveForm())
    watchTree(node, joined(library->path(), node->path()));
}

void BoxLibraryModel::Private::watchTree(const BoxLibraryNode* node, const QString& path) {
  watchOne(node, path);
  for (const BoxLibraryNode* child : node->childList())
    watchTree(child, path + QLatin1Char('/') + QString::fromUtf8(child->fileName().c_str()));
}

void BoxLibraryModel::Private::watchOne(const BoxLibraryNode* node, const QString& path) {
  const size_t hash = qHash(path);
  const auto found = watched.find(node);
  if (found == watched.end() || found->second.path != hash || !watcher->has(found->second.id)) {
    if (found != watched.end()) {
      watcher->remove(found->second.id);
      watched.erase(found);
    }
    // A folder made and not saved is not on disk yet: it is watched once saved.
    const int id = watcher->add(path, node);
    if (id >= 0)
      watched[node] = Watched{id, hash};
  }
}

void BoxLibraryModel::Private::onDiskEvent(const BoxLibraryNode* node) {
  if (sinceSave.isValid() && sinceSave.elapsed() < kOwnSaveMs)
    return;
  if (archiveForm()) {
    if (QFileInfo(library->path()).lastModified() == archiveStamp)
      return;
    archiveChanged = true;
  } else if (node) {
    pendingDirectories.insert(node->path());
  }
  if (!diskTimer.isActive())
    firstDiskEvent.start();
  if (firstDiskEvent.elapsed() < kLongestWaitMs)
    diskTimer.start(kQuietMs);
}

bool BoxLibraryModel::Private::hasUnsavedEdits(const BoxLibraryNode* node) const {
  if (editor.hasUnsavedEdit(node))
    return true;
  for (const BoxLibraryNode* child : node->childList()) {
    if (hasUnsavedEdits(child))
      return true;
  }
  return false;
}

void BoxLibraryModel::Private::applyDiskChanges() {
  diskTimer.stop();
  QStringList conflicts;
  QList<BoxLibraryNode*> changed;
  if (archiveForm()) {
    if (!archiveChanged)
      return;
    archiveChanged = false;
    archiveStamp = QFileInfo(library->path()).lastModified();
    // An archive is read whole: with edits not saved, the user chooses.
    if (hasUnsavedEdits(library->boxRoot()))
      conflicts.append(QString());
    else if (editor.reloadFromDisk())
      changed.append(library->boxRoot());
  } else {
    QStringList directories(pendingDirectories.begin(), pendingDirectories.end());
    pendingDirectories.clear();
    if (directories.isEmpty())
      return;
    changed = editor.updateFromDisk(directories);
    conflicts = editor.conflicts();
  }
  QStringList changedPaths;
  if (!changed.isEmpty())
    ++diskGeneration;
  for (BoxLibraryNode* node : changed) {
    changedOnDiskAt[node] = diskGeneration;
    changedPaths.append(node->path());
  }
  for (const QString& path : conflicts) {
    if (!conflicted.contains(path))
      conflicted.append(path);
  }
  if (!changedPaths.isEmpty())
    emit q->changedOnDisk(changedPaths);
  if (!conflicts.isEmpty())
    emit q->conflictOnDisk(conflicts);
}

QString BoxLibraryModel::Private::changedSince(const EditCommand& command) const {
  const auto changed = [&](const BoxLibraryNode* node) {
    const auto found = changedOnDiskAt.find(node);
    return found != changedOnDiskAt.end() && found->second > command.diskGeneration;
  };
  for (const EditStep& step : command.steps) {
    for (const QList<int>* path : {&step.parent, &step.toParent}) {
      const BoxLibraryNode* node = library->boxRoot();
      for (int i = 0; node && i <= path->size(); ++i) {
        if (changed(node))
          return QStringLiteral("%1 changed on disk since")
              .arg(node->parent() ? QStringLiteral("\u201c%1\u201d")
                                        .arg(QString::fromUtf8(node->name().c_str()))
                                  : QStringLiteral("the top of the library"));
        node = i < path->size() ? node->child(path->at(i)) : nullptr;
      }
    }
    const BoxLibraryNode* folder = library->node(step.parent);
    const BoxLibraryNode* node = folder ? folder->child(step.row) : nullptr;
    if (node && changed(node))
      return QStringLiteral("\u201c%1\u201d changed on disk since")
          .arg(QString::fromUtf8(node->name().c_str()));
  }
  return QString();
}

bool BoxLibraryModel::followsDisk() const {
  return d->watcher || d->startTimer.isActive();
}

void BoxLibraryModel::setFollowsDisk(bool follows) {
  if (follows) {
    d->startFollowing();
    return;
  }
  d->stopFollowing();
}

void BoxLibraryModel::updateFromDisk() {
  if (d->startTimer.isActive())
    d->startFollowing();
  // The watches not set yet go now, with what changed before them.
  if (!d->toWatch.empty()) {
    d->sliceTimer.stop();
    while (!d->toWatch.empty())
      d->watchSlice();
    d->sliceTimer.stop();
  }
  if (d->watcher) {
    // The watcher's news of what another process just did is already queued.
    QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
    d->applyDiskChanges();
    return;
  }
  // Without the watcher nothing says where to look: every folder and box is.
  QStringList directories;
  const std::function<void(const BoxLibraryNode*)> collect = [&](const BoxLibraryNode* node) {
    directories.append(node->path());
    for (const BoxLibraryNode* child : node->childList())
      collect(child);
  };
  collect(d->library->boxRoot());
  d->pendingDirectories = QSet<QString>(directories.begin(), directories.end());
  d->followsArchive = QFileInfo(d->library->path()).isFile();
  d->archiveChanged = d->followsArchive;
  d->applyDiskChanges();
}

bool BoxLibraryModel::reloadFromDisk() {
  if (!d->editor.reloadFromDisk())
    return d->refuse(d->editor.errorString());
  d->conflicted.clear();
  ++d->diskGeneration;
  d->changedOnDiskAt[d->library->boxRoot()] = d->diskGeneration;
  clearUndoStack();
  d->watchAll();
  return true;
}

bool BoxLibraryModel::saveOverwriting() {
  try {
    d->library->saveOverwriting(d->conflicted);
  } catch (const std::exception& e) {
    return d->refuse(QStringLiteral("cannot save: %1").arg(QString::fromUtf8(e.what())));
  }
  return true;
}

}  // namespace KR
