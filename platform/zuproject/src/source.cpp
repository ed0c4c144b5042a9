#include "source.h"

#include "archive_io.h"
#include "directory_source.h"
#include "paths.h"
#include "scratch.h"
#include "zip_source.h"

#include <zu/project/exceptions.h>

#include <sys/stat.h>
#include <algorithm>

namespace zu {
namespace project {
namespace detail {

bool Stamp::operator==(const Stamp& other) const {
  return device == other.device && inode == other.inode && size == other.size &&
         seconds == other.seconds && nanoseconds == other.nanoseconds;
}

Stamp stampOf(const struct stat& info) {
  return Stamp{static_cast<std::uint64_t>(info.st_dev), static_cast<std::uint64_t>(info.st_ino),
               static_cast<std::int64_t>(info.st_size),
               static_cast<std::int64_t>(info.st_mtim.tv_sec),
               static_cast<std::int64_t>(info.st_mtim.tv_nsec)};
}

std::optional<Stamp> stampAt(const std::string& path) {
  struct stat info;
  if (::stat(path.c_str(), &info) != 0)
    return std::nullopt;
  return stampOf(info);
}

Source::~Source() = default;

FILE* Source::open(const std::string& path) {
  std::optional<std::string> bytes = read(path);
  return bytes ? openMemory(std::move(*bytes)) : nullptr;
}

void Source::attach(Changes* holder) {
  std::lock_guard<std::mutex> lock(m_holdersMutex);
  m_holders.push_back(holder);
}

void Source::detach(Changes* holder) {
  std::lock_guard<std::mutex> lock(m_holdersMutex);
  m_holders.erase(std::remove(m_holders.begin(), m_holders.end(), holder), m_holders.end());
}

std::vector<Changes*> Source::holders() const {
  std::lock_guard<std::mutex> lock(m_holdersMutex);
  return m_holders;
}

std::shared_ptr<Source> openSource(const fs::path& path, ArchiveFormat format) {
  struct stat info;
  if (path.empty() || ::stat(path.c_str(), &info) != 0)
    throw PathNotFound(path.string());
  if (S_ISDIR(info.st_mode)) {
    if (format != ArchiveFormat_Auto && format != ArchiveFormat_Current &&
        format != ArchiveFormat_Directory)
      throw UnsupportedFormat(path.string() + ": a directory, not an archive");
    return std::make_shared<DirectorySource>(path.native(), ArchiveFormat_Directory);
  }
  if (format == ArchiveFormat_Directory)
    throw UnsupportedFormat(path.string() + ": not a directory");
  // A zip is read in place; libarchive recognises every other form, and tells a text
  // from a damaged archive.
  if (info.st_size > 0) {
    try {
      return std::make_shared<ZipSource>(path.native());
    } catch (const UnsupportedFormat&) {
    }
  }
  std::shared_ptr<Scratch> scratch = Scratch::create();
  const fs::path root = scratch->path() / scratch->newName();
  std::error_code error;
  fs::create_directory(root, error);
  if (error)
    throwSystemError("Could not create " + root.string(), error);
  const ArchiveFormat extracted = extractArchive(path, root);
  if (extracted == ArchiveFormat_Zip)
    throw CorruptedFile(path.string() + ": a damaged zip archive");
  return std::make_shared<DirectorySource>(root.native(), extracted, std::move(scratch));
}

}  // namespace detail
}  // namespace project
}  // namespace zu
