#include "source.h"

#include "archive_io.h"
#include "directory_source.h"
#include "paths.h"
#include "scratch.h"
#include "zip_source.h"

#include <zu/project/exceptions.h>
#include <zu/project/file_system.h>

#include <sys/stat.h>
#include <algorithm>
#include <map>

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

Source::Reader::~Reader() = default;

namespace {

// Every source guards its own calls, so a reader may simply take its turn.
class SharedReader : public Source::Reader {
public:
  explicit SharedReader(Source& source) : m_source(source) {}
  Kind kind(const std::string& path) override { return m_source.kind(path); }
  std::optional<std::string> read(const std::string& path, bool* isFile) override {
    std::optional<std::string> bytes = m_source.read(path);
    if (isFile)
      *isFile = bytes || m_source.kind(path) == Kind::File;
    return bytes;
  }
  std::vector<Listed> list(const std::string& dir) override { return m_source.list(dir); }

private:
  Source& m_source;
};

}  // namespace

std::unique_ptr<Source::Reader> Source::reader() {
  return std::make_unique<SharedReader>(*this);
}

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

std::string Source::readFailure() const {
  std::lock_guard<std::mutex> lock(m_holdersMutex);
  return m_readFailure;
}

void Source::noteReadFailure(const std::string& what) {
  std::lock_guard<std::mutex> lock(m_holdersMutex);
  if (m_readFailure.empty())
    m_readFailure = what;
}

std::string findWrapper(const std::vector<Listed>& top,
                        const std::function<bool(const std::string&)>& hasFile) {
  const Listed* folder = nullptr;
  for (const Listed& entry : top) {
    if (entry.dir) {
      if (folder)
        return std::string();
      folder = &entry;
    } else if (!isSystemFile(entry.name)) {
      return std::string();  // the top's own files, or anything else a save must keep
    }
  }
  // A box library's root listing, which every library has at its top; metadata alone is
  // no sign, since any project may hold a folder with a project in it.
  return folder && hasFile(folder->name + "/lbfinfo") ? folder->name : std::string();
}

namespace {

// The source at an absolute path, not yet registered.
std::shared_ptr<Source> openAt(const fs::path& path, ArchiveFormat format) {
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
    } catch (const NotZip&) {
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
  std::vector<Listed> top;
  for (const fs::directory_entry& entry : fs::directory_iterator(root, error))
    top.push_back({entry.path().filename().native(), entry.is_directory()});
  const std::string wrapper = findWrapper(top, [&root](const std::string& file) {
    return fs::is_regular_file(fs::symlink_status(root / file));
  });
  return std::make_shared<DirectorySource>((wrapper.empty() ? root : root / wrapper).native(),
                                           extracted, std::move(scratch), wrapper);
}

// The sources opened in this process, by path: a save that replaces a path wholesale must
// reach every model reading there.
std::mutex openedMutex;
std::multimap<std::string, std::weak_ptr<Source>> opened;

std::shared_ptr<Source> registered(const fs::path& path, std::shared_ptr<Source> source) {
  std::lock_guard<std::mutex> lock(openedMutex);
  for (auto it = opened.begin(); it != opened.end();)
    it = it->second.expired() ? opened.erase(it) : std::next(it);
  opened.emplace(path.native(), source);
  return source;
}

}  // namespace

std::vector<std::shared_ptr<Source>> sourcesAt(const std::string& path) {
  std::lock_guard<std::mutex> lock(openedMutex);
  std::vector<std::shared_ptr<Source>> sources;
  for (auto [it, end] = opened.equal_range(path); it != end; ++it) {
    if (std::shared_ptr<Source> source = it->second.lock())
      sources.push_back(std::move(source));
  }
  return sources;
}

std::shared_ptr<Source> openSource(const fs::path& path, ArchiveFormat format) {
  return registered(path, openAt(path, format));
}

}  // namespace detail
}  // namespace project
}  // namespace zu
