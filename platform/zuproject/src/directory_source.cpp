#include "directory_source.h"

#include "directory_commit.h"
#include "scratch.h"

#include <zu/project/exceptions.h>

#include <fcntl.h>
#include <unistd.h>

namespace zu {
namespace project {
namespace detail {

DirectorySource::DirectorySource(const std::string& path, ArchiveFormat format,
                                 std::shared_ptr<Scratch> keep)
    : m_path(path), m_format(format), m_keep(std::move(keep)) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0)
    throw PathNotFound(path);
  m_files = std::make_unique<Beneath>(fd, kPendingName);
  finishPendingSave(*m_files);
}

Kind DirectorySource::kind(const std::string& path) {
  std::lock_guard<std::recursive_mutex> lock(m_mutex);
  return m_files->kind(path);
}

std::optional<std::string> DirectorySource::read(const std::string& path) {
  std::lock_guard<std::recursive_mutex> lock(m_mutex);
  return m_files->read(path);
}

FILE* DirectorySource::open(const std::string& path) {
  int fd;
  {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    fd = m_files->openFile(path);
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
  return m_files->list(dir);
}

void DirectorySource::forget() {
  std::lock_guard<std::recursive_mutex> lock(m_mutex);
  m_files->forget();
}

}  // namespace detail
}  // namespace project
}  // namespace zu
