#ifndef ZU_PROJECT_SOURCE_LOCK_H
#define ZU_PROJECT_SOURCE_LOCK_H

#include <zu/project/zuproject_export.h>

#include <QString>

#include <functional>
#include <string>

namespace zu {
namespace project {

/// The lock that one writer of a project's source holds at a time, across processes: an
/// advisory lock on the source directory or archive itself, so it writes nothing and no pack
/// or export can carry it. Readers never take it. Taken again in a process that holds it, it
/// is shared, never waited for.
class ZUPROJECT_EXPORT SourceLock {
public:
  /// Told once, with the holder ("process 1234"), when the lock is held by another process.
  using Waiting = std::function<void(const std::string& holder)>;

  /// Takes the lock of the source at path, waiting up to waitMs milliseconds. Throws Busy
  /// naming the holder when it is still held then, Exception when the source cannot be
  /// opened.
  SourceLock(const QString& path, int waitMs, const Waiting& waiting = Waiting());
  /// Releases the lock when no one else holds it in this process.
  ~SourceLock();
  /// Not copyable: each object releases what it took.
  SourceLock(const SourceLock&) = delete;
  /// Not copyable: each object releases what it took.
  SourceLock& operator=(const SourceLock&) = delete;

private:
  static std::string lockedPath(const QString& path);

  std::string m_path;
};

}  // namespace project
}  // namespace zu

#endif
