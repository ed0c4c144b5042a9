#include "full_write.h"

#include "archive_io.h"
#include "changes.h"
#include "paths.h"
#include "zip_commit.h"

#include <zu/project/exceptions.h>
#include <zu/project/progress_scope.h>

#include <fcntl.h>
#include <unistd.h>
#include <cerrno>
#include <vector>

namespace zu {
namespace project {
namespace detail {

namespace {

void writeDirectory(const Changes& view, const fs::path& target) {
  const int fd = ::open(target.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0)
    throwSystemError("Could not write " + target.string(),
                     std::error_code(errno, std::generic_category()));
  Beneath files(fd, std::string());
  // One flat list rather than a walk: the count of entries is known for the progress.
  const std::vector<Listed> entries = listTree(view, std::string(), true);
  for (std::size_t i = 0; i < entries.size(); ++i) {
    writeEntry(view, entries[i].name, entries[i].dir, files, entries[i].name);
    ProgressScope::report(i + 1, entries.size());
  }
  if (::syncfs(fd) != 0)
    throwSystemError("Could not write " + target.string(),
                     std::error_code(errno, std::generic_category()));
}

}  // namespace

void writeWhole(const Changes& view, const fs::path& target, ArchiveFormat format) {
  std::error_code error;
  const bool targetExists = existsNoFollow(target);
  const bool directory = format == ArchiveFormat_Directory;
  const fs::path fresh = createSibling(target, directory);
  try {
    if (directory)
      writeDirectory(view, fresh);
    else if (format == ArchiveFormat_Zip)
      writeZip(view, fresh);
    else
      writeArchive(view, fresh, format);

    std::error_code ignored;
    const bool replaceInOneStep =
        !targetExists || (!directory && !fs::is_directory(fs::symlink_status(target, ignored)));
    if (replaceInOneStep) {
      fs::rename(fresh, target, error);
      if (error)
        throwSystemError("Could not replace " + target.string(), error);
    } else {
      // A directory cannot be replaced atomically: keep the old one aside until the new one
      // is in place, and put it back if that fails.
      const fs::path old = createSibling(target, true);
      fs::remove(old, ignored);
      fs::rename(target, old, error);
      if (error)
        throwSystemError("Could not replace " + target.string(), error);
      fs::rename(fresh, target, error);
      if (error) {
        fs::rename(old, target, ignored);
        throwSystemError("Could not replace " + target.string(), error);
      }
      fs::remove_all(old, ignored);
    }
  } catch (...) {
    std::error_code ignored;
    fs::remove_all(fresh, ignored);
    throw;
  }
}

}  // namespace detail
}  // namespace project
}  // namespace zu
