#include "directory_source.h"

#include "directory_commit.h"
#include "scratch.h"

#include <zu/project/exceptions.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <system_error>

namespace zu {
namespace project {
namespace detail {

DirectorySource::DirectorySource(const std::string& path, ArchiveFormat format,
                                 std::shared_ptr<Scratch> keep, std::string wrapper)
    : m_path(path), m_format(format), m_keep(std::move(keep)), m_wrapper(std::move(wrapper)) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0)
    throw PathNotFound(path);
  m_files = std::make_unique<Beneath>(fd, kPendingName);
  finishPendingSave(*m_files);
}

bool DirectorySource::startsWith(std::map<std::string, Stamp>::const_iterator it,
                                 const std::string& prefix) const {
  return it != m_stamps.end() && it->first.compare(0, prefix.size(), prefix) == 0;
}

bool DirectorySource::noted(const std::string& path) {
  std::lock_guard<std::recursive_mutex> lock(m_mutex);
  return m_stamps.count(path) != 0;
}

void DirectorySource::note(const std::string& path, const std::optional<struct stat>& info) {
  if (!info || !S_ISREG(info->st_mode))
    return;
  std::lock_guard<std::recursive_mutex> lock(m_mutex);
  m_stamps.emplace(path, stampOf(*info));
}

Kind DirectorySource::kindVia(Beneath& files, const std::string& path) {
  if (path.empty() || noted(path))
    return files.kind(path);
  const std::optional<struct stat> info = files.status(path);
  note(path, info);
  return !info                    ? Kind::None
         : S_ISREG(info->st_mode) ? Kind::File
         : S_ISDIR(info->st_mode) ? Kind::Dir
                                  : Kind::None;
}

std::optional<std::string> DirectorySource::readVia(Beneath& files, const std::string& path,
                                                    bool* isFile) {
  if (isFile)
    *isFile = false;
  if (path.empty())
    return std::nullopt;
  // Opened first, so that the status taken is the one of the file read.
  struct stat info;
  const int fd = files.openFile(path, &info);
  if (fd < 0) {
    const int error = errno;
    const std::optional<struct stat> there = error == ENOENT ? std::nullopt : files.status(path);
    const bool regular = there && S_ISREG(there->st_mode);
    if (regular) {
      if (!noted(path))
        note(path, there);
      noteUnreadable(path, error);
    }
    if (isFile)
      *isFile = regular;
    return std::nullopt;
  }
  if (isFile)
    *isFile = true;
  if (!noted(path))
    note(path, info);
  errno = 0;
  std::optional<std::string> bytes = readAll(fd, kMaxFileSize, info.st_size);
  const int error = errno;
  ::close(fd);
  if (!bytes)
    noteUnreadable(path, error);
  return bytes;
}

std::vector<Listed> DirectorySource::listVia(Beneath& files, const std::string& dir) {
  std::vector<Listed> entries = files.list(dir);
  {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    m_listed.insert(dir);
  }
  // A file listed was seen: removing it later with its folder is no conflict.
  for (const Listed& entry : entries) {
    const std::string path = joinPath(dir, entry.name);
    if (!entry.dir && !noted(path))
      note(path, files.status(path));
  }
  return entries;
}

void DirectorySource::noteUnreadable(const std::string& path, int error) {
  noteReadFailure("file \"" + path + "\" could not be read: " +
                  (error ? std::generic_category().message(error) : "too large"));
}

void DirectorySource::noteIfUnreadable(Beneath& files, const std::string& path, int error) {
  const std::optional<struct stat> info = files.status(path);
  if (info && S_ISREG(info->st_mode))
    noteUnreadable(path, error);
}

Kind DirectorySource::kind(const std::string& path) {
  std::lock_guard<std::recursive_mutex> lock(m_mutex);
  return kindVia(*m_files, path);
}

std::optional<std::string> DirectorySource::read(const std::string& path) {
  std::lock_guard<std::recursive_mutex> lock(m_mutex);
  return readVia(*m_files, path, nullptr);
}

FILE* DirectorySource::open(const std::string& path) {
  int fd;
  {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    if (!path.empty() && !m_stamps.count(path))
      note(path, m_files->status(path));
    errno = 0;
    fd = m_files->openFile(path);
    if (fd < 0)
      noteIfUnreadable(*m_files, path, errno);
  }
  if (fd < 0)
    return nullptr;
  FILE* stream = ::fdopen(fd, "rb");
  if (!stream)
    ::close(fd);
  return stream;
}

std::vector<Listed> DirectorySource::list(const std::string& dir) {
  std::lock_guard<std::recursive_mutex> lock(m_mutex);
  return listVia(*m_files, dir);
}

namespace {

// Reads through directories of its own, so that it never waits for another thread's reads;
// only the notes on what was read are shared.
class DirectoryReader : public Source::Reader {
public:
  DirectoryReader(DirectorySource& source, int rootFd)
      : m_source(source), m_files(rootFd, kPendingName) {}
  Kind kind(const std::string& path) override { return m_source.kindVia(m_files, path); }
  std::optional<std::string> read(const std::string& path, bool* isFile) override {
    return m_source.readVia(m_files, path, isFile);
  }
  std::vector<Listed> list(const std::string& dir) override {
    return m_source.listVia(m_files, dir);
  }

private:
  DirectorySource& m_source;
  Beneath m_files;
};

}  // namespace

std::unique_ptr<Source::Reader> DirectorySource::reader() {
  const int fd = ::openat(m_files->rootFd(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0)
    return Source::reader();
  return std::make_unique<DirectoryReader>(*this, fd);
}

void DirectorySource::forget() {
  std::lock_guard<std::recursive_mutex> lock(m_mutex);
  m_files->forget();
}

std::vector<std::string> DirectorySource::changedOnDisk() {
  std::lock_guard<std::recursive_mutex> lock(m_mutex);
  std::vector<std::string> changed;
  for (const auto& [path, stamp] : m_stamps) {
    const std::optional<struct stat> info = m_files->status(path);
    if (!info || stampOf(*info) != stamp)
      changed.push_back(path);
  }
  return changed;
}

std::vector<std::string> DirectorySource::conflicts(const std::vector<std::string>& touched) {
  std::lock_guard<std::recursive_mutex> lock(m_mutex);
  std::vector<std::string> changed;
  for (const std::string& path : touched) {
    const std::optional<struct stat> info = m_files->status(path);
    // A file the model never saw there was made by someone else.
    if (info && S_ISREG(info->st_mode) && !m_stamps.count(path)) {
      changed.push_back(path);
      continue;
    }
    for (auto it = m_stamps.lower_bound(path); startsWith(it, path); ++it) {
      if (!isWithin(it->first, path))
        continue;
      const std::optional<struct stat> now = it->first == path ? info : m_files->status(it->first);
      if (!now || stampOf(*now) != it->second)
        changed.push_back(it->first);
    }
  }
  return changed;
}

void DirectorySource::settle(const std::vector<std::string>& touched) {
  std::lock_guard<std::recursive_mutex> lock(m_mutex);
  m_files->forget();
  for (const std::string& path : touched) {
    for (auto it = m_stamps.lower_bound(path); startsWith(it, path);)
      it = isWithin(it->first, path) ? m_stamps.erase(it) : std::next(it);
    noteTree(path);
  }
}

void DirectorySource::retake(const std::string& path) {
  std::lock_guard<std::recursive_mutex> lock(m_mutex);
  m_files->forget();
  for (auto it = m_stamps.lower_bound(path); startsWith(it, path);)
    it = isWithin(it->first, path) ? m_stamps.erase(it) : std::next(it);
  for (auto it = m_listed.lower_bound(path);
       it != m_listed.end() && it->compare(0, path.size(), path) == 0;)
    it = isWithin(*it, path) ? m_listed.erase(it) : std::next(it);
  const std::optional<struct stat> info = m_files->status(path);
  note(path, info);
  if (info && S_ISDIR(info->st_mode))
    list(path);
}

bool DirectorySource::knows(const std::string& path) {
  std::lock_guard<std::recursive_mutex> lock(m_mutex);
  return m_stamps.count(path) || m_listed.count(splitLast(path).first);
}

void DirectorySource::noteTree(const std::string& path) {
  const std::optional<struct stat> info = m_files->status(path);
  note(path, info);
  if (info && S_ISDIR(info->st_mode)) {
    m_listed.insert(path);
    for (const Listed& entry : m_files->list(path))
      noteTree(joinPath(path, entry.name));
  }
}

}  // namespace detail
}  // namespace project
}  // namespace zu
