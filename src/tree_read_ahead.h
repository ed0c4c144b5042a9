#ifndef KRBOXLIBRARY_SRC_TREE_READ_AHEAD_H
#define KRBOXLIBRARY_SRC_TREE_READ_AHEAD_H

// Reads a library's directories on worker threads ahead of the tree read, which takes them
// on its own thread in its own order and builds the nodes from them: the tree, its signals
// and its problems are those of a read on one thread, only sooner.

#include "directory_read.h"

#include <QHash>
#include <QString>
#include <QStringList>

#include <memory>

namespace KR {

class TreeReadAhead {
public:
  /// Joins the read of model's tree under way on this thread, or starts one that ends with
  /// this object.
  explicit TreeReadAhead(zu::project::ProjectModel& model);
  ~TreeReadAhead();
  TreeReadAhead(const TreeReadAhead&) = delete;
  TreeReadAhead& operator=(const TreeReadAhead&) = delete;

  /// Queues the directories at these prefixes, in the order they will be taken and before
  /// anything queued earlier, which a depth-first read takes later.
  void request(const QStringList& prefixes);
  /// The read of the directory at prefix: a worker's when one read it and the model still
  /// shows its source there, else one made now through the model.
  DirectoryRead take(const QString& prefix);

  struct Shared;

private:
  zu::project::ProjectModel& m_model;
  std::unique_ptr<Shared> m_own;  // when this object started the read
  Shared* m_shared = nullptr;     // the read under way
  Shared* m_previous = nullptr;   // the read of another model that this one interrupts
};

}  // namespace KR

#endif
