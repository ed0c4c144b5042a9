#include <zu/project/file_system.h>

#include <zu/project/exceptions.h>

#include "paths.h"
#include "source.h"

namespace zu {
namespace project {

void remove(const std::string& utf8DiskPath) {
  const detail::fs::path path(utf8DiskPath);
  if (utf8DiskPath.empty() || !detail::existsNoFollow(path))
    throw PathNotFound(utf8DiskPath);
  std::error_code error;
  detail::fs::remove_all(path, error);
  if (error)
    detail::throwSystemError("Could not remove " + utf8DiskPath, error);
}

void writeFile(const std::string& utf8DiskPath, const std::string& bytes) {
  if (utf8DiskPath.empty())
    throw PathNotFound(utf8DiskPath);
  detail::writeFileAtomically(detail::fs::path(utf8DiskPath), bytes);
}

bool isForeignMetadata(const std::string& name) {
  // The names bsdtar's --exclude-vcs knows for directories, and what macOS's zip adds.
  static const char* const kNames[] = {".git", ".hg", ".svn", ".bzr", "_darcs", "CVS", "__MACOSX"};
  for (const char* known : kNames) {
    if (name == known)
      return true;
  }
  return false;
}

bool isReservedName(const std::string& name) {
  return name == detail::kPendingName;
}

bool isSystemFile(const std::string& name) {
  return name == ".DS_Store" || name == "Thumbs.db" || name == "desktop.ini" ||
         name.compare(0, 2, "._") == 0;
}

}  // namespace project
}  // namespace zu
