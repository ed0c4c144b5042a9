#include "paths.h"

#include "beneath.h"
#include "file_io.h"

#include <zu/project/exceptions.h>

#include <QByteArray>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <vector>

namespace zu {
namespace project {
namespace detail {

std::string toUtf8(const QString& text) {
  const QByteArray bytes = text.toUtf8();
  return std::string(bytes.constData(), static_cast<size_t>(bytes.size()));
}

fs::path diskPath(const QString& path) {
  return fs::path(toUtf8(path));
}

QString fromDiskPath(const fs::path& path) {
  const std::string& native = path.native();
  return QString::fromUtf8(native.data(), static_cast<int>(native.size()));
}

fs::path absoluteDiskPath(const fs::path& path) {
  std::error_code ignored;
  fs::path result = fs::absolute(path, ignored).lexically_normal();
  std::string native = result.native();
  while (native.size() > 1 && native.back() == '/')
    native.pop_back();
  return fs::path(native);
}

namespace {

// Whether path is already in normal form: no empty, "." or ".." step. Most are, and need no
// copy.
bool isNormal(const std::string& path) {
  for (std::size_t start = 0; start < path.size();) {
    const std::size_t slash = std::min(path.find('/', start), path.size());
    const std::size_t length = slash - start;
    if (length == 0 ||
        (path[start] == '.' && (length == 1 || (length == 2 && path[start + 1] == '.'))))
      return false;
    if (slash == path.size() - 1)
      return false;  // a trailing slash
    start = slash + 1;
  }
  return true;
}

}  // namespace

std::optional<std::string> normalizeSteps(const std::string& path, bool allowParentSteps) {
  if (isNormal(path))
    return path;
  std::vector<std::string> parts;
  size_t start = 0;
  while (start <= path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string::npos)
      end = path.size();
    std::string part = path.substr(start, end - start);
    if (part == "..") {
      if (!allowParentSteps || parts.empty())
        return std::nullopt;
      parts.pop_back();
    } else if (!part.empty() && part != ".") {
      parts.push_back(std::move(part));
    }
    start = end + 1;
  }
  std::string result;
  for (const std::string& part : parts) {
    if (!result.empty())
      result += '/';
    result += part;
  }
  return result;
}

std::optional<std::string> normalizeModelPath(const QString& path) {
  const std::string bytes = toUtf8(path);
  if (bytes.find('\0') != std::string::npos)
    return std::nullopt;
  return normalizeSteps(bytes, true);
}

std::optional<std::string> normalized(const QString& path) {
  std::optional<std::string> result = normalizeModelPath(path);
  if (result && !result->empty() &&
      (isWithin(*result, kPendingName) || holdsForeignMetadata(*result)))
    return std::nullopt;
  return result;
}

QByteArray toQByteArray(const std::optional<std::string>& bytes) {
  if (!bytes)
    return QByteArray();
  QByteArray data("");  // empty, not null, for an empty file
  data.append(bytes->data(), static_cast<int>(bytes->size()));
  return data;
}

bool holdsForeignMetadata(const std::string& path) {
  for (std::size_t start = 0;;) {
    const std::size_t slash = path.find('/', start);
    if (isForeignMetadata(path.substr(start, slash - start)))
      return true;
    if (slash == std::string::npos)
      return false;
    start = slash + 1;
  }
}

bool existsNoFollow(const fs::path& path) {
  std::error_code ignored;
  return fs::exists(fs::symlink_status(path, ignored));
}

[[noreturn]] void throwSystemError(const std::string& what, const std::error_code& error) {
  throw Exception(what + ": " + error.message());
}

void copyRegularFile(const fs::path& from, const fs::path& to) {
  std::error_code error;
  fs::copy_file(from, to, fs::copy_options::overwrite_existing, error);
  if (error)
    throwSystemError("Could not copy " + from.string() + " to " + to.string(), error);
  // A read-only source file must not make the copy read-only for later edits.
  fs::permissions(to, fs::perms::owner_read | fs::perms::owner_write, fs::perm_options::add, error);
}

void copyTree(const fs::path& from, const fs::path& to) {
  std::error_code error;
  const fs::file_status status = fs::symlink_status(from, error);
  if (fs::is_regular_file(status)) {
    copyRegularFile(from, to);
    return;
  }
  if (!fs::is_directory(status))
    throw Exception("Could not copy " + from.string() + ": not a file or directory");

  fs::create_directories(to, error);
  if (error || !fs::is_directory(to))
    throwSystemError("Could not create directory " + to.string(),
                     error ? error : std::make_error_code(std::errc::not_a_directory));

  const size_t prefix = from.native().size() + 1;
  fs::recursive_directory_iterator it(from, fs::directory_options::none, error);
  if (error)
    throwSystemError("Could not read directory " + from.string(), error);
  for (const fs::recursive_directory_iterator end; it != end; it.increment(error)) {
    if (error)
      throwSystemError("Could not read directory " + from.string(), error);
    const fs::path target = to / it->path().native().substr(prefix);
    if (it->is_symlink(error)) {
      continue;  // never followed: a link could lead anywhere on the disk
    } else if (it->is_directory(error)) {
      fs::create_directory(target, error);
      if (error)
        throwSystemError("Could not create directory " + target.string(), error);
    } else if (it->is_regular_file(error)) {
      copyRegularFile(it->path(), target);
    }
  }
  if (error)
    throwSystemError("Could not read directory " + from.string(), error);
}

fs::path createSibling(const fs::path& target, bool directory) {
  static std::atomic<unsigned> counter{0};
  const fs::path parent = target.parent_path();
  const std::string base = "." + target.filename().string() + ".tmp-";
  const auto seed =
      static_cast<unsigned long>(std::chrono::steady_clock::now().time_since_epoch().count());
  for (int attempt = 0; attempt < 100; ++attempt) {
    const fs::path candidate = parent / (base + std::to_string(::getpid()) + "-" +
                                         std::to_string((seed + counter++) % 1000000007UL));
    if (directory) {
      std::error_code error;
      if (fs::create_directory(candidate, error))
        return candidate;
      if (error)
        throwSystemError("Could not create a directory in " + parent.string(), error);
    } else {
      const int fd = ::open(candidate.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
      if (fd >= 0) {
        ::close(fd);
        return candidate;
      }
      if (errno != EEXIST)
        throwSystemError("Could not create a file in " + parent.string(),
                         std::error_code(errno, std::generic_category()));
    }
  }
  throw Exception("Could not find a free temporary name in " + parent.string());
}

void writeFileAtomically(const fs::path& path, const std::string& data) {
  const fs::path parent = path.has_parent_path() ? path.parent_path() : fs::path(".");
  const int dirFd = ::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dirFd < 0)
    throwSystemError("Could not write " + path.string(),
                     std::error_code(errno, std::generic_category()));
  try {
    replaceFileAt(dirFd, path.filename().native(), data, path.string(), true);
  } catch (...) {
    ::close(dirFd);
    throw;
  }
  ::close(dirFd);
}

bool writableAt(int dirFd, const std::string& name) {
  return ::faccessat(dirFd, name.c_str(), W_OK, AT_EACCESS | AT_SYMLINK_NOFOLLOW) == 0 ||
         (errno != EACCES && errno != EPERM && errno != EROFS);
}

void replaceFileAt(int dirFd, const std::string& name, const std::string& data,
                   const std::string& what, bool flush) {
  struct stat old;
  const bool replacing = ::fstatat(dirFd, name.c_str(), &old, AT_SYMLINK_NOFOLLOW) == 0;
  if (!writableAt(dirFd, ".") || (replacing && S_ISREG(old.st_mode) && !writableAt(dirFd, name)))
    throw Exception("Could not write " + what + ": not writable");
  static std::atomic<unsigned> counter{0};
  const std::string temporary =
      "." + name + ".tmp-" + std::to_string(::getpid()) + "-" + std::to_string(counter++);
  const int fd = io::openAt(dirFd, temporary.c_str(),
                            O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
  if (fd < 0)
    throwSystemError("Could not write " + what, std::error_code(errno, std::generic_category()));
  bool ok = writeAll(fd, data.data(), data.size());
  if (ok && replacing && S_ISREG(old.st_mode))
    ok = ::fchmod(fd, old.st_mode & 07777) == 0;
  if (ok && flush)
    ok = io::sync(fd) == 0;
  int error = errno;
  if (io::close(fd) != 0 && ok) {
    ok = false;
    error = errno;
  }
  if (ok && io::renameAt(dirFd, temporary.c_str(), dirFd, name.c_str()) != 0) {
    ok = false;
    error = errno;
  }
  if (!ok) {
    ::unlinkat(dirFd, temporary.c_str(), 0);
    throwSystemError("Could not write " + what, std::error_code(error, std::generic_category()));
  }
}

}  // namespace detail
}  // namespace project
}  // namespace zu
