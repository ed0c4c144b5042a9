#ifndef ZU_PROJECT_SOURCE_H
#define ZU_PROJECT_SOURCE_H

// What a project model reads from: a directory in place, a zip entry by entry, or a tar
// form extracted into scratch. Read-only; not installed.

#include <zu/project/archive_format.h>

#include <sys/stat.h>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace zu {
namespace project {
namespace detail {

class Changes;

/// What is at a path.
enum class Kind { None, File, Dir };

/// A direct entry of a directory.
struct Listed {
  std::string name;
  bool dir;
};

/// One state of a file on disk: a file replaced, resized or rewritten has another.
struct Stamp {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t size = -1;
  std::int64_t seconds = 0;
  std::int64_t nanoseconds = 0;
  bool operator==(const Stamp& other) const;
  bool operator!=(const Stamp& other) const { return !(*this == other); }
};

/// The stamp of a file's status.
Stamp stampOf(const struct stat& info);
/// The stamp of the file at a disk path, through links; nothing when absent.
std::optional<Stamp> stampAt(const std::string& path);

/// The largest file a source hands out; an entry that claims more is taken as damaged.
constexpr std::uint64_t kMaxFileSize = 256ull * 1024 * 1024;

/// The reserved entry at the top of a directory source that holds a save in progress
/// (staged files and the pending record). It starts with a full stop, so it stays out of
/// sight in a file manager, and no model path may name it, so it is never listed, packed
/// or exported.
extern const char* const kPendingName;

class Source {
public:
  /// Reads a source from one thread while other readers, and the source itself, read from
  /// others; what it reads is noted by the source as its own reads are.
  class Reader {
  public:
    virtual ~Reader();
    virtual Kind kind(const std::string& path) = 0;
    /// read(); isFile, when given, tells whether a regular file is there, read or not.
    virtual std::optional<std::string> read(const std::string& path, bool* isFile) = 0;
    virtual std::vector<Listed> list(const std::string& dir) = 0;
  };

  virtual ~Source();
  /// A reader for one more thread; by default one that takes turns with every other.
  virtual std::unique_ptr<Reader> reader();
  /// The form this source was read as.
  virtual ArchiveFormat format() const = 0;
  /// The path it was loaded from; empty for a source in scratch.
  virtual std::string path() const = 0;
  /// What is at path; never follows a link.
  virtual Kind kind(const std::string& path) = 0;
  /// The bytes of a file; nothing when absent or unreadable.
  virtual std::optional<std::string> read(const std::string& path) = 0;
  /// A read stream; null when absent or unreadable.
  virtual FILE* open(const std::string& path);
  /// The direct entries of a directory, unsorted; links and special files left out.
  virtual std::vector<Listed> list(const std::string& dir) = 0;
  /// Drops whatever the source cached about its files, after they were changed.
  virtual void forget() {}
  /// What another writer changed on disk of what this source read (file paths, or the
  /// archive's own path); empty when nothing.
  virtual std::vector<std::string> changedOnDisk() { return {}; }
  /// After this process saved these paths (or the whole archive): what is on disk now is
  /// what the models sharing this source read.
  virtual void settle(const std::vector<std::string>& /*touched*/) {}

  /// The one folder of the archive that holds the project, "" when the project is the
  /// archive's top; a save back to the same archive keeps it.
  virtual std::string wrapper() const { return std::string(); }

  /// Whether a save of this process replaced the files at the source's path wholesale since
  /// it was opened: the models reading it took what they show into their own changes, and
  /// write it whole when they save (the last save in the process wins).
  bool outdated() const { return m_outdated; }
  void markOutdated() { m_outdated = true; }

  /// The first file that is there but could not be read (damaged, or unreadable), with the
  /// reason; "" while every read succeeded. A view that met one is no longer whole.
  std::string readFailure() const;

  /// Models whose view reads through this source; told before a save changes it.
  void attach(Changes* holder);
  void detach(Changes* holder);
  std::vector<Changes*> holders() const;

protected:
  /// Keeps the first read failure.
  void noteReadFailure(const std::string& what);

private:
  mutable std::mutex m_holdersMutex;
  std::vector<Changes*> m_holders;
  std::string m_readFailure;  // guarded by m_holdersMutex
  std::atomic<bool> m_outdated{false};
};

/// The live sources of this process opened at an absolute disk path.
std::vector<std::shared_ptr<Source>> sourcesAt(const std::string& path);

/// The folder that wraps a box library in an archive: the only directory at the archive's
/// top, beside nothing but desktop files (so neither ".metadata" nor "lbfinfo"), when that
/// directory holds the library's root listing "lbfinfo". "" when there is none.
/// hasFile tells whether a file is at a path of the archive.
std::string findWrapper(const std::vector<Listed>& top,
                        const std::function<bool(const std::string&)>& hasFile);

/// The source at an absolute path: a directory in place, a zip through libzip, any other
/// archive extracted into scratch. Throws PathNotFound, UnsupportedFormat, CorruptedFile.
std::shared_ptr<Source> openSource(const std::filesystem::path& path, ArchiveFormat format);

/// A read stream over bytes held in memory.
FILE* openMemory(std::string bytes);

}  // namespace detail
}  // namespace project
}  // namespace zu

#endif
