#include <zu/project/source_lock.h>

#include "beneath.h"
#include "paths.h"

#include <zu/project/exceptions.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
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

// The process holding the lock on what path names, as the kernel's table of locks tells.
std::string holderOf(const std::string& path) {
  struct stat info;
  std::ifstream locks("/proc/locks");
  if (::stat(path.c_str(), &info) == 0 && locks) {
    const std::string id = std::to_string(major(info.st_dev)) + ":" +
                           std::to_string(minor(info.st_dev)) + ":" + std::to_string(info.st_ino);
    for (std::string line; std::getline(locks, line);) {
      std::istringstream fields(line);
      std::string number, kind, advisory, mode, pid, where;
      // The device is written in hexadecimal there.
      unsigned major_ = 0, minor_ = 0;
      unsigned long inode = 0;
      if (fields >> number >> kind >> advisory >> mode >> pid >> where && kind == "FLOCK" &&
          std::sscanf(where.c_str(), "%x:%x:%lu", &major_, &minor_, &inode) == 3 &&
          major_ == major(info.st_dev) && minor_ == minor(info.st_dev) && inode == info.st_ino)
        return "process " + pid;
    }
  }
  return "another process";
}

// A locked descriptor of the source itself, -1 while another process holds it. Locking the
// directory or archive rather than a file of its own writes nothing anywhere. An archive
// replaced by the writer before this one is a new file, so the loop opens it again.
int tryLock(const std::string& path) {
  for (;;) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
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
        mine.st_ino == named.st_ino && mine.st_dev == named.st_dev)
      return fd;
    ::close(fd);
  }
}

}  // namespace

SourceLock::SourceLock(const QString& path, int waitMs, const Waiting& waiting)
    : m_path(lockedPath(path)) {
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
  ::close(found->second.fd);
  held.erase(found);
}

std::string SourceLock::lockedPath(const QString& path) {
  // One lock for every name of the source: links resolved, as far as they exist.
  std::error_code ignored;
  fs::path source = fs::weakly_canonical(absoluteDiskPath(diskPath(path)), ignored);
  return source.empty() ? absoluteDiskPath(diskPath(path)).native() : source.native();
}

}  // namespace project
}  // namespace zu
