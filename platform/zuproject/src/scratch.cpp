#include "scratch.h"

#include "paths.h"

#include <zu/project/exceptions.h>

#include <QDir>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <mutex>

namespace zu {
namespace project {
namespace detail {

namespace {

const char kPrefix[] = "zuproject-scratch-";

std::error_code lastError() {
  return std::error_code(errno, std::generic_category());
}

// Scratch of processes that died (killed, crashed) is never removed by its owner.
void removeAbandoned(const fs::path& temp) {
  const int tempFd = ::open(temp.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (tempFd < 0)
    return;
  DIR* stream = ::fdopendir(tempFd);
  if (!stream) {
    ::close(tempFd);
    return;
  }
  while (const dirent* entry = ::readdir(stream)) {
    const std::string name = entry->d_name;
    if (name.compare(0, sizeof kPrefix - 1, kPrefix) != 0)
      continue;
    const int fd = ::openat(tempFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
      continue;
    if (::flock(fd, LOCK_EX | LOCK_NB) == 0) {
      removeContents(fd);
      ::unlinkat(tempFd, name.c_str(), AT_REMOVEDIR);
    }
    ::close(fd);
  }
  ::closedir(stream);
}

}  // namespace

std::shared_ptr<Scratch> Scratch::create() {
  const fs::path temp = diskPath(QDir::tempPath());
  static std::once_flag swept;
  std::call_once(swept, [&] { removeAbandoned(temp); });
  for (int attempt = 0; attempt < 10; ++attempt) {
    std::string pattern = (temp / (std::string(kPrefix) + "XXXXXX")).native();
    if (!::mkdtemp(pattern.data()))
      throwSystemError("Could not create a scratch directory in " + temp.string(), lastError());
    const int fd = ::open(pattern.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    struct stat info;
    // Another process sweeping at this very moment may take a directory not yet locked;
    // one that lost its name is given up for a new one.
    if (fd >= 0 && ::flock(fd, LOCK_EX | LOCK_NB) == 0 && ::fstat(fd, &info) == 0 &&
        info.st_nlink > 0)
      return std::shared_ptr<Scratch>(new Scratch(pattern, fd));
    if (fd >= 0)
      ::close(fd);
  }
  throw Exception("Could not create a scratch directory in " + temp.string());
}

Scratch::Scratch(fs::path path, int lockFd) : m_path(std::move(path)), m_lock(lockFd) {
  const int root = ::openat(lockFd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  m_files = std::make_unique<Beneath>(root, std::string());
}

Scratch::~Scratch() {
  m_files.reset();
  removeContents(m_lock);
  ::rmdir(m_path.c_str());
  ::close(m_lock);
}

std::string Scratch::newName() {
  return "s" + std::to_string(++m_next);
}

int Scratch::anonymousFile() {
  int fd = ::openat(m_lock, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
  if (fd >= 0 || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL))
    return fd;
  const std::string name = "anonymous-" + newName();
  fd = ::openat(m_lock, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd >= 0)
    ::unlinkat(m_lock, name.c_str(), 0);
  return fd;
}

Blob::~Blob() {
  if (m_fd >= 0)
    ::close(m_fd);
}

std::optional<std::string> Blob::bytes() const {
  if (m_fd < 0)
    return m_bytes;
  std::string data(static_cast<std::size_t>(m_size), '\0');
  std::size_t done = 0;
  while (done < data.size()) {
    const ssize_t count = ::pread(m_fd, &data[done], data.size() - done, static_cast<off_t>(done));
    if (count < 0 && errno == EINTR)
      continue;
    if (count <= 0)
      return std::nullopt;
    done += static_cast<std::size_t>(count);
  }
  return data;
}

std::shared_ptr<const Blob> makeBlob(std::string bytes, const std::function<Scratch&()>& scratch) {
  if (bytes.size() <= kMemoryLimit)
    return std::make_shared<Blob>(std::move(bytes));
  const int fd = scratch().anonymousFile();
  if (fd < 0 || !writeAll(fd, bytes.data(), bytes.size())) {
    const std::error_code reason = lastError();
    if (fd >= 0)
      ::close(fd);
    throwSystemError("Could not keep a file in scratch", reason);
  }
  return std::make_shared<Blob>(fd, bytes.size());
}

}  // namespace detail
}  // namespace project
}  // namespace zu
