#include <zu/project/file_system.h>

#include <zu/project/exceptions.h>

#include "paths.h"

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

}  // namespace project
}  // namespace zu
