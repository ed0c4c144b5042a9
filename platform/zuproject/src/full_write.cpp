#include "full_write.h"

#include "archive_io.h"
#include "changes.h"
#include "file_io.h"
#include "paths.h"
#include "zip_commit.h"

#include <zu/project/exceptions.h>
#include <zu/project/progress_scope.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <cstdlib>
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
    writeEntry(view, entries[i].name, entries[i].dir, files, entries[i].name, /*fresh=*/true);
    ProgressScope::report(i + 1, entries.size());
  }
  if (io::syncFs(fd) != 0)
    throwSystemError("Could not write " + target.string(),
                     std::error_code(errno, std::generic_category()));
}

// The names at the top of a directory that version control or macOS keep there.
std::vector<std::string> foreignMetadataIn(const fs::path& directory) {
  std::vector<std::string> names;
  std::error_code error;
  for (fs::directory_iterator it(directory, error), end; !error && it != end; it.increment(error)) {
    if (isForeignMetadata(it->path().filename().native()))
      names.push_back(it->path().filename().native());
  }
  return names;
}

// Moves the named entries from one directory to another, as many as can be; false with errno
// of the last that could not.
bool moveEntries(const std::vector<std::string>& names, const fs::path& from, const fs::path& to) {
  bool moved = true;
  for (const std::string& name : names)
    moved = io::rename((from / name).c_str(), (to / name).c_str()) == 0 && moved;
  return moved;
}

}  // namespace

void writeWhole(const Changes& view, const fs::path& target, ArchiveFormat format,
                const std::string& wrapper) {
  std::error_code error;
  const bool targetExists = existsNoFollow(target);
  const bool directory = format == ArchiveFormat_Directory;
  // Refused before anything is made beside it: what its user may not change stays.
  if (targetExists) {
    if (const std::string locked = unwritableIn(target); !locked.empty())
      throw Exception("Could not replace " + target.string() + ": " + locked + " is not writable");
  }
  const fs::path fresh = createSibling(target, directory);
  // A directory replaced keeps its repository: it is no part of the project written.
  std::vector<std::string> carried;
  try {
    if (directory)
      writeDirectory(view, fresh);
    else if (format == ArchiveFormat_Zip)
      writeZip(view, fresh, wrapper);
    else
      writeArchive(view, fresh, format, wrapper);
    // What is replaced keeps its mode.
    struct stat old;
    if (targetExists && ::stat(target.c_str(), &old) == 0 &&
        ::chmod(fresh.c_str(), old.st_mode & 07777) != 0)
      throwSystemError("Could not replace " + target.string(),
                       std::error_code(errno, std::generic_category()));

    std::error_code ignored;
    const bool replaceInOneStep =
        !targetExists || (!directory && !fs::is_directory(fs::symlink_status(target, ignored)));
    if (replaceInOneStep) {
      if (io::rename(fresh.c_str(), target.c_str()) != 0)
        throwSystemError("Could not replace " + target.string(),
                         std::error_code(errno, std::generic_category()));
    } else {
      carried = foreignMetadataIn(target);
      if (!moveEntries(carried, target, fresh))
        throwSystemError("Could not replace " + target.string(),
                         std::error_code(errno, std::generic_category()));
      // The new tree and the old trade places in one step, so that a kill at any point
      // leaves one of them whole at target; the old one is then a dead writer's sibling.
      if (io::exchange(fresh.c_str(), target.c_str()) == 0) {
        fs::remove_all(fresh, ignored);
        return;
      }
      if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP)
        throwSystemError("Could not replace " + target.string(),
                         std::error_code(errno, std::generic_category()));
      // Where the filesystem cannot, the old one waits aside until the new one is in place,
      // and goes back if that fails.
      const fs::path old = createSibling(target, true);
      fs::remove(old, ignored);
      if (io::rename(target.c_str(), old.c_str()) != 0)
        throwSystemError("Could not replace " + target.string(),
                         std::error_code(errno, std::generic_category()));
      if (io::rename(fresh.c_str(), target.c_str()) != 0) {
        const std::error_code reason(errno, std::generic_category());
        fs::rename(old, target, ignored);
        throwSystemError("Could not replace " + target.string(), reason);
      }
      fs::remove_all(old, ignored);
    }
  } catch (...) {
    // The target is back in its place by now; what was carried goes back into it.
    moveEntries(carried, fresh, target);
    std::error_code ignored;
    fs::remove_all(fresh, ignored);
    throw;
  }
}

// What a writer killed before it finished left beside target: a sibling made by
// createSibling() (and libzip's temporary beside that), named after a process that is gone.
void removeStaleSiblings(const fs::path& target) {
  // Without a target, what is beside it may be all that is left of it.
  if (!existsNoFollow(target))
    return;
  const std::string prefix = "." + target.filename().string() + ".tmp-";
  std::error_code error;
  for (fs::directory_iterator it(target.parent_path(), error), end; !error && it != end;
       it.increment(error)) {
    const std::string name = it->path().filename().native();
    if (name.compare(0, prefix.size(), prefix) != 0)
      continue;
    const long pid = std::strtol(name.c_str() + prefix.size(), nullptr, 10);
    if (pid > 0 && ::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH) {
      std::error_code ignored;
      fs::remove_all(it->path(), ignored);
    }
  }
}

std::string unwritableIn(const fs::path& target) {
  const int parent = ::open(target.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const bool parentOk = parent >= 0 && writableAt(parent, ".");
  if (parent >= 0)
    ::close(parent);
  if (!parentOk)
    return target.parent_path().string();
  std::error_code error;
  const fs::file_status status = fs::symlink_status(target, error);
  if (!fs::is_directory(status)) {
    return fs::is_regular_file(status) && ::access(target.c_str(), W_OK) != 0 ? target.string()
                                                                              : std::string();
  }
  // A directory is replaced whole, and the old tree must be removable.
  if (::access(target.c_str(), W_OK) != 0)
    return target.string();
  for (fs::recursive_directory_iterator it(target, fs::directory_options::none, error), end;
       !error && it != end; it.increment(error)) {
    if (it->is_directory(error) && !it->is_symlink(error) &&
        ::access(it->path().c_str(), W_OK) != 0)
      return it->path().string();
  }
  return std::string();
}

}  // namespace detail
}  // namespace project
}  // namespace zu
