#include <zu/project/source_lock.h>

#include "beneath.h"
#include "paths.h"

#include <zu/project/exceptions.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <chrono>
#include <map>
#include <mutex>
#include <thread>

namespace zu {
namespace project {

using namespace detail;

namespace {

// The locks this process holds: lock file -> descriptor and number of holders. flock()
// locks belong to an open file, so a second open here would wait for the first.
struct Held {
  int fd;
  int count;
};
std::mutex heldMutex;
std::map<std::string, Held> held;

// The holder named in the lock file.
std::string holderOf(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  std::optional<std::string> text = fd >= 0 ? readAll(fd, 64) : std::nullopt;
  if (fd >= 0)
    ::close(fd);
  const std::string pid = text ? text->substr(0, text->find('\n')) : std::string();
  return pid.empty() ? std::string("another process") : "process " + pid;
}

// A locked descriptor of the lock file, -1 while another process holds it. A file removed
// by its last holder after this one opened it no longer counts, so the loop opens again.
int tryLock(const std::string& path) {
  for (;;) {
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (fd < 0)
      throwSystemError("Could not lock " + path, std::error_code(errno, std::generic_category()));
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
      const int error = errno;
      ::close(fd);
      if (error == EWOULDBLOCK || error == EINTR)
        return -1;
      throwSystemError("Could not lock " + path, std::error_code(error, std::generic_category()));
    }
    struct stat mine;
    struct stat named;
    if (::fstat(fd, &mine) == 0 && ::stat(path.c_str(), &named) == 0 &&
        mine.st_ino == named.st_ino && mine.st_dev == named.st_dev) {
      const std::string pid = std::to_string(::getpid()) + "\n";
      if (::ftruncate(fd, 0) == 0)
        writeAll(fd, pid.data(), pid.size());
      return fd;
    }
    ::close(fd);
  }
}

}  // namespace

SourceLock::SourceLock(const QString& path, int waitMs, const Waiting& waiting)
    : m_path(diskPath(lockPath(path)).native()) {
  {
    std::lock_guard<std::mutex> guard(heldMutex);
    const auto found = held.find(m_path);
    if (found != held.end()) {
      ++found->second.count;
      return;
    }
  }
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(waitMs);
  bool told = false;
  int fd;
  while ((fd = tryLock(m_path)) < 0) {
    if (std::chrono::steady_clock::now() >= deadline)
      throw Busy(m_path + " is held by " + holderOf(m_path));
    if (!told && waiting)
      waiting(holderOf(m_path));
    told = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  std::lock_guard<std::mutex> guard(heldMutex);
  held[m_path] = Held{fd, 1};
}

SourceLock::~SourceLock() {
  std::lock_guard<std::mutex> guard(heldMutex);
  const auto found = held.find(m_path);
  if (found == held.end() || --found->second.count > 0)
    return;
  // Removed while still locked, so that no one locks a file that is about to go.
  ::unlink(m_path.c_str());
  ::close(found->second.fd);
  held.erase(found);
}

QString SourceLock::lockPath(const QString& path) {
  // One lock for every name of the source: links resolved, as far as they exist.
  std::error_code ignored;
  fs::path source = fs::weakly_canonical(absoluteDiskPath(diskPath(path)), ignored);
  if (source.empty())
    source = absoluteDiskPath(diskPath(path));
  return fromDiskPath(source.native() + ".lock");
}

}  // namespace project
}  // namespace zu
