#include "beneath.h"

#include "file_io.h"
#include "paths.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <atomic>
#include <cerrno>

namespace zu {
namespace project {
namespace detail {

namespace {
constexpr std::size_t kCachedDirectories = 48;

// A listing of an open directory through a descriptor of its own, so that the given one
// keeps its position and stays open.
DIR* openListing(int dirFd) {
  const int own = ::openat(dirFd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  DIR* stream = own >= 0 ? ::fdopendir(own) : nullptr;
  if (!stream && own >= 0)
    ::close(own);
  return stream;
}

Kind kindOf(mode_t mode) {
  return S_ISREG(mode) ? Kind::File : S_ISDIR(mode) ? Kind::Dir : Kind::None;
}
}  // namespace

std::pair<std::string, std::string> splitLast(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos)
    return {std::string(), path};
  return {path.substr(0, slash), path.substr(slash + 1)};
}

std::string joinPath(const std::string& dir, const std::string& name) {
  return dir.empty() ? name : dir + '/' + name;
}

bool isWithin(const std::string& path, const std::string& base) {
  return base.empty() || path == base ||
         (path.size() > base.size() && path[base.size()] == '/' &&
          path.compare(0, base.size(), base) == 0);
}

Beneath::Beneath(int rootFd, std::string hiddenTop)
    : m_root(rootFd), m_hiddenTop(std::move(hiddenTop)) {}

Beneath::~Beneath() {
  forget();
  if (m_root >= 0)
    ::close(m_root);
}

bool Beneath::hidden(int parent, const std::string& name) const {
  return hiddenName(parent == m_root, name);
}

bool Beneath::hiddenName(bool top, const std::string& name) const {
  return (top && !m_hiddenTop.empty() && name == m_hiddenTop) || isForeignMetadata(name);
}

void Beneath::forget() {
  for (auto& entry : m_recent)
    ::close(entry.second);
  m_recent.clear();
  m_cache.clear();
}

int Beneath::openChild(int parent, const std::string& name) {
  if (parent < 0 || name.empty() || name == "." || name == "..")
    return -1;
  if (hidden(parent, name))
    return -1;
  return ::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

void Beneath::remember(const std::string& path, int fd) {
  m_recent.emplace_front(path, fd);
  m_cache[path] = m_recent.begin();
  if (m_recent.size() > kCachedDirectories) {
    m_cache.erase(m_recent.back().first);
    ::close(m_recent.back().second);
    m_recent.pop_back();
  }
}

int Beneath::dir(const std::string& path) {
  if (path.empty())
    return m_root;
  const auto found = m_cache.find(path);
  if (found != m_cache.end()) {
    m_recent.splice(m_recent.begin(), m_recent, found->second);
    return found->second->second;
  }
  const auto [parentPath, name] = splitLast(path);
  const int parent = dir(parentPath);
  const int fd = openChild(parent, name);
  if (fd >= 0)
    remember(path, fd);
  return fd;
}

Kind Beneath::kind(const std::string& path) {
  if (path.empty())
    return Kind::Dir;
  const std::optional<struct stat> info = status(path);
  return info ? kindOf(info->st_mode) : Kind::None;
}

std::optional<struct stat> Beneath::status(const std::string& path) {
  const auto [parentPath, name] = splitLast(path);
  const int parent = dir(parentPath);
  if (parent < 0 || hidden(parent, name))
    return std::nullopt;
  struct stat info;
  if (::fstatat(parent, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
    return std::nullopt;
  return info;
}

int Beneath::openResolved(const std::string& path) {
  static std::atomic<bool> unsupported{false};
  if (unsupported)
    return -2;
  // The rules openChild() and hidden() apply to each step, for the whole path at once.
  for (std::size_t start = 0; start <= path.size();) {
    const std::size_t slash = std::min(path.find('/', start), path.size());
    const std::string name = path.substr(start, slash - start);
    if (name.empty() || name == "." || name == ".." || hiddenName(start == 0, name))
      return -2;
    start = slash + 1;
  }
  open_how how{};
  how.flags = O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
  const long fd = ::syscall(SYS_openat2, m_root, path.c_str(), &how, sizeof how);
  if (fd >= 0)
    return static_cast<int>(fd);
  // Older kernels, and sandboxes that filter the call.
  if (errno == ENOSYS || errno == EPERM) {
    unsupported = true;
    return -2;
  }
  // A link on the way reads as nothing there, as it does step by step.
  if (errno == ELOOP || errno == EXDEV)
    errno = ENOENT;
  return -1;
}

int Beneath::openFile(const std::string& path, struct stat* info) {
  if (path.empty()) {
    errno = EINVAL;
    return -1;
  }
  int fd = openResolved(path);
  if (fd == -2) {
    const auto [parentPath, name] = splitLast(path);
    const int parent = dir(parentPath);
    if (parent < 0 || hidden(parent, name)) {
      errno = ENOENT;
      return -1;
    }
    // Non-blocking, so that a pipe put in a file's place cannot hang the open.
    fd = ::openat(parent, name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  }
  if (fd < 0) {
    if (errno == ELOOP || errno == ENOTDIR)
      errno = ENOENT;
    return -1;
  }
  struct stat status;
  if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
    ::close(fd);
    errno = EINVAL;
    return -1;
  }
  if (info)
    *info = status;
  return fd;  // O_NONBLOCK changes nothing for a regular file
}

std::optional<std::string> readAll(int fd, std::uint64_t limit, std::int64_t size) {
  struct stat info;
  if (size < 0 && ::fstat(fd, &info) == 0)
    size = info.st_size;
  if (size > 0 && static_cast<std::uint64_t>(size) > limit)
    return std::nullopt;
  // Read straight into the result; one byte more than the size shows the end at once.
  std::string data(size > 0 ? static_cast<std::size_t>(size) + 1 : 64 * 1024, '\0');
  std::size_t done = 0;
  for (;;) {
    if (done == data.size())
      data.resize(data.size() * 2);
    const ssize_t count = ::read(fd, &data[done], data.size() - done);
    if (count < 0 && errno == EINTR)
      continue;
    if (count < 0)
      return std::nullopt;
    if (count == 0)
      break;
    done += static_cast<std::size_t>(count);
    if (done > limit)
      return std::nullopt;
  }
  data.resize(done);
  return data;
}

std::optional<std::string> Beneath::read(const std::string& path, std::uint64_t limit) {
  struct stat info;
  const int fd = openFile(path, &info);
  if (fd < 0)
    return std::nullopt;
  std::optional<std::string> data = readAll(fd, limit, info.st_size);
  ::close(fd);
  return data;
}

std::vector<Listed> Beneath::list(const std::string& path) {
  std::vector<Listed> entries;
  const int fd = dir(path);
  if (fd < 0)
    return entries;
  DIR* stream = openListing(fd);
  if (!stream)
    return entries;
  while (const dirent* entry = ::readdir(stream)) {
    const std::string name = entry->d_name;
    if (name == "." || name == ".." || hidden(fd, name))
      continue;
    unsigned char type = entry->d_type;
    if (type == DT_UNKNOWN) {
      struct stat info;
      if (::fstatat(fd, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0)
        continue;
      type = S_ISDIR(info.st_mode) ? DT_DIR : S_ISREG(info.st_mode) ? DT_REG : DT_LNK;
    }
    if (type == DT_DIR || type == DT_REG)
      entries.push_back({name, type == DT_DIR});
  }
  ::closedir(stream);
  return entries;
}

bool Beneath::makeDirs(const std::string& path) {
  if (path.empty() || dir(path) >= 0)
    return true;
  const auto [parentPath, name] = splitLast(path);
  if (!makeDirs(parentPath))
    return false;
  const int parent = dir(parentPath);
  if (parent < 0 || hidden(parent, name)) {
    errno = ENOTDIR;
    return false;
  }
  if (::mkdirat(parent, name.c_str(), 0755) != 0) {
    // A link or special file where a directory belongs is replaced, never followed.
    struct stat info;
    if (errno != EEXIST || ::fstatat(parent, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0 ||
        S_ISREG(info.st_mode) || S_ISDIR(info.st_mode) ||
        ::unlinkat(parent, name.c_str(), 0) != 0 || ::mkdirat(parent, name.c_str(), 0755) != 0)
      return false;
  }
  if (dir(path) < 0) {
    errno = ENOTDIR;
    return false;
  }
  return true;
}

int Beneath::createFile(const std::string& path, bool truncate) {
  const auto [parentPath, name] = splitLast(path);
  if (name.empty() || !makeDirs(parentPath))
    return -1;
  const int parent = dir(parentPath);
  if (parent < 0 || hidden(parent, name)) {
    errno = ENOENT;
    return -1;
  }
  return io::openAt(parent, name.c_str(),
                    O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC | (truncate ? O_TRUNC : 0), 0644);
}

bool removeContents(int dirFd) {
  DIR* stream = openListing(dirFd);
  if (!stream)
    return false;
  bool ok = true;
  while (const dirent* entry = ::readdir(stream)) {
    const char* name = entry->d_name;
    if (std::string(name) == "." || std::string(name) == "..")
      continue;
    if (io::unlinkAt(dirFd, name, 0) == 0)
      continue;
    const int child = ::openat(dirFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (child < 0) {
      ok = false;
      continue;
    }
    ok = removeContents(child) && ok;
    ::close(child);
    ok = io::unlinkAt(dirFd, name, AT_REMOVEDIR) == 0 && ok;
  }
  ::closedir(stream);
  return ok;
}

bool Beneath::removeTree(const std::string& path) {
  if (path.empty())
    return false;
  const auto [parentPath, name] = splitLast(path);
  const int parent = dir(parentPath);
  if (parent < 0 || hidden(parent, name))
    return false;
  forget();
  const int again = dir(parentPath);
  if (io::unlinkAt(again, name.c_str(), 0) == 0 || errno == ENOENT)
    return true;
  const int child = openChild(again, name);
  if (child < 0)
    return false;
  const bool emptied = removeContents(child);
  ::close(child);
  return emptied && (io::unlinkAt(again, name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT);
}

bool writeAll(int fd, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t count = io::write(fd, data, size);
    if (count < 0 && errno == EINTR)
      continue;
    if (count <= 0) {
      if (count == 0)
        errno = EIO;
      return false;
    }
    data += count;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

}  // namespace detail
}  // namespace project
}  // namespace zu
