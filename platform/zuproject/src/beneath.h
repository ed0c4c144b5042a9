#ifndef ZU_PROJECT_BENEATH_H
#define ZU_PROJECT_BENEATH_H

// Access to the files below one directory, never following a symbolic link in any
// component: every step is an openat with O_NOFOLLOW from an already checked directory.
// Recently used directories stay open, so a path costs one system call once its parent
// was visited. Not thread-safe; not installed.

#include "source.h"

#include <list>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace zu {
namespace project {
namespace detail {

/// The parent part and the last name of a "/"-separated path ("" and "a" for "a").
std::pair<std::string, std::string> splitLast(const std::string& path);
/// "a/b" from "a" and "b"; the name alone under the top.
std::string joinPath(const std::string& dir, const std::string& name);
/// Whether path is base or lies below it.
bool isWithin(const std::string& path, const std::string& base);

class Beneath {
public:
  /// Takes ownership of rootFd, an open directory. hiddenTop names an entry at the top
  /// that is never seen (empty for none); the metadata of version control and of desktop
  /// systems is never seen at any depth.
  Beneath(int rootFd, std::string hiddenTop);
  ~Beneath();
  Beneath(const Beneath&) = delete;
  Beneath& operator=(const Beneath&) = delete;

  int rootFd() const { return m_root; }
  /// An open directory at path, owned by the cache: valid until the next call. -1 when
  /// it is absent, not a directory, or reached through a link.
  int dir(const std::string& path);
  Kind kind(const std::string& path);
  /// The status of the entry at a path other than the top, link not followed; nothing when
  /// absent.
  std::optional<struct stat> status(const std::string& path);
  /// A new read descriptor for a regular file, or -1 with errno set (ENOENT when nothing is
  /// there, EINVAL when it is no regular file); info, when given, takes the file's status.
  int openFile(const std::string& path, struct stat* info = nullptr);
  /// The bytes of a regular file; nothing when absent, unreadable or larger than limit.
  std::optional<std::string> read(const std::string& path, std::uint64_t limit = kMaxFileSize);
  std::vector<Listed> list(const std::string& path);
  /// Creates a regular file (replacing one) and its missing parents; a new write
  /// descriptor, or -1 with errno set.
  int createFile(const std::string& path, bool truncate);
  /// Creates a directory and its missing parents; false with errno set on failure.
  bool makeDirs(const std::string& path);
  /// Removes a file or a tree (links themselves, never their targets); true when gone.
  bool removeTree(const std::string& path);
  /// Closes the cached directories, after entries were renamed or removed.
  void forget();

private:
  int openChild(int parent, const std::string& name);
  // openFile() in one system call that refuses every link on the way; -2 where the kernel
  // cannot, or the path needs the checks made step by step.
  int openResolved(const std::string& path);
  bool hidden(int parent, const std::string& name) const;
  // hidden() for a name at the top or deeper.
  bool hiddenName(bool top, const std::string& name) const;
  void remember(const std::string& path, int fd);

  int m_root;
  std::string m_hiddenTop;
  std::list<std::pair<std::string, int>> m_recent;
  std::unordered_map<std::string, std::list<std::pair<std::string, int>>::iterator> m_cache;
};

/// Removes the entries of an open directory and everything below them.
bool removeContents(int dirFd);
/// Writes all of data to fd; false with errno set on failure.
bool writeAll(int fd, const char* data, std::size_t size);
/// Reads a whole descriptor; nothing on failure or past limit. size, when known, is what
/// the file holds, which saves asking.
std::optional<std::string> readAll(int fd, std::uint64_t limit, std::int64_t size = -1);

}  // namespace detail
}  // namespace project
}  // namespace zu

#endif
