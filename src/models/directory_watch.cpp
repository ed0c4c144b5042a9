#include "directory_watch.h"

#include <QFile>
#include <QSocketNotifier>

#ifdef __linux__
#include <sys/inotify.h>
#include <unistd.h>
#endif

#include <cerrno>
#include <cstring>

namespace KR {

#ifdef __linux__

namespace {

constexpr uint32_t kEvents = IN_CREATE | IN_DELETE | IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_FROM |
                             IN_MOVED_TO | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

}  // namespace

DirectoryWatch::DirectoryWatch(std::function<void(const void*)> changed)
    : m_changed(std::move(changed)), m_fd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  if (m_fd < 0)
    return;
  m_notifier = std::make_unique<QSocketNotifier>(m_fd, QSocketNotifier::Read);
  QObject::connect(m_notifier.get(), &QSocketNotifier::activated, m_notifier.get(),
                   [this] { read(); });
}

DirectoryWatch::~DirectoryWatch() {
  m_notifier.reset();
  if (m_fd >= 0)
    ::close(m_fd);
}

int DirectoryWatch::add(const QString& path, const void* key) {
  if (m_fd < 0)
    return -1;
  const int id = inotify_add_watch(m_fd, QFile::encodeName(path).constData(), kEvents);
  if (id >= 0) {
    Watch& watch = m_watches[id];
    watch.key = key;
    ++watch.adds;
  }
  return id;
}

void DirectoryWatch::remove(int id) {
  const auto found = m_watches.find(id);
  if (found == m_watches.end() || --found->second.adds > 0)
    return;
  m_watches.erase(found);
  inotify_rm_watch(m_fd, id);
}

void DirectoryWatch::read() {
  alignas(inotify_event) char buffer[16384];
  for (;;) {
    const ssize_t size = ::read(m_fd, buffer, sizeof buffer);
    if (size <= 0)
      return;
    for (ssize_t at = 0; at < size;) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
      at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      const auto found = m_watches.find(event->wd);
      if (found == m_watches.end())
        continue;
      const void* key = found->second.key;
      // The kernel dropped the watch (the directory went): so does the map.
      if (event->mask & IN_IGNORED)
        m_watches.erase(found);
      m_changed(key);
    }
  }
}

#else

DirectoryWatch::DirectoryWatch(std::function<void(const void*)> changed)
    : m_changed(std::move(changed)) {}
DirectoryWatch::~DirectoryWatch() = default;
int DirectoryWatch::add(const QString&, const void*) {
  return -1;
}
void DirectoryWatch::remove(int) {}
void DirectoryWatch::read() {}

#endif

}  // namespace KR
