#ifndef KRBOXLIBRARY_SRC_MODELS_DIRECTORY_WATCH_H
#define KRBOXLIBRARY_SRC_MODELS_DIRECTORY_WATCH_H

#include <QString>

#include <functional>
#include <memory>
#include <unordered_map>

class QSocketNotifier;

namespace KR {

/// Directories watched for changes of their entries, one kernel watch each. QFileSystemWatcher
/// checks every path added against all it watches, which makes a library of 50,000
/// directories take seconds; this keeps a hash instead. Linux only: elsewhere nothing is
/// watched and add() fails.
class DirectoryWatch {
public:
  /// changed is called with the key of a directory whose entries changed, or that went.
  explicit DirectoryWatch(std::function<void(const void*)> changed);
  ~DirectoryWatch();
  DirectoryWatch(const DirectoryWatch&) = delete;
  DirectoryWatch& operator=(const DirectoryWatch&) = delete;

  /// Watches the directory at path, reported by key; its watch id, or -1 when it cannot be
  /// watched. A directory watched under another name (it was renamed) keeps its id, now
  /// reported by this key.
  int add(const QString& path, const void* key);
  /// Ends one add() of the watch id; the watch stops with the last.
  void remove(int id);
  /// Whether watch id is there.
  bool has(int id) const { return m_watches.count(id) != 0; }

private:
  void read();

  std::function<void(const void*)> m_changed;
  int m_fd = -1;
  std::unique_ptr<QSocketNotifier> m_notifier;
  struct Watch {
    const void* key = nullptr;
    int adds = 0;
  };
  std::unordered_map<int, Watch> m_watches;
};

}  // namespace KR

#endif
