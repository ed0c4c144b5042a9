#ifndef ZU_PROJECT_ZIP_SOURCE_H
#define ZU_PROJECT_ZIP_SOURCE_H

// A zip archive read entry by entry through libzip. Not installed.

#include "source.h"
#include "zip_fallback.h"

#include <zu/project/exceptions.h>

#include <zip.h>

#include <mutex>
#include <unordered_map>

namespace zu {
namespace project {
namespace detail {

/// A file libzip does not take for a zip at all; another reader may know it.
struct NotZip : UnsupportedFormat {
  using UnsupportedFormat::UnsupportedFormat;
};

class ZipSource : public Source {
public:
  /// Reads the archive's central directory and checks every name. Entries of another
  /// tool's metadata are left out; entries libzip cannot decompress are read through
  /// libarchive. Throws NotZip when the file is no zip libzip can open (the caller then
  /// tries other forms), UnsupportedFormat when it holds an entry neither can read
  /// (encrypted, or in another method), CorruptedFile for a damaged one or a hostile entry,
  /// PathNotFound or Exception when it cannot be read.
  explicit ZipSource(const std::string& path);
  ~ZipSource() override;

  ArchiveFormat format() const override { return ArchiveFormat_Zip; }
  std::string path() const override { return m_path; }
  Kind kind(const std::string& path) override;
  std::optional<std::string> read(const std::string& path) override;
  std::vector<Listed> list(const std::string& dir) override;
  std::vector<std::string> changedOnDisk() override;
  void settle(const std::vector<std::string>&) override { m_stamp = stampAt(m_path); }
  std::string wrapper() const override { return m_wrapper; }

  /// The archive and the index of the file entry at path (-1 when there is none), for
  /// copying it into another archive as it is stored.
  zip_t* archive() const { return m_archive; }
  zip_int64_t entryIndex(const std::string& path);

private:
  struct Entry {
    zip_int64_t index = -1;  // -1: a directory only implied by deeper names
    bool dir = false;
    bool fallback = false;  // read through libarchive
    std::uint64_t size = 0;
    std::vector<const std::string*> children;  // keys of the entries right below
  };
  Entry& insert(const std::string& path, bool dir);
  // The entry a project path names, below the wrapper; null when none.
  const Entry* find(const std::string& path) const;
  // Refuses an entry no reader here can decompress; true for one libarchive reads.
  bool readsThroughFallback(const zip_stat_t& info, const std::string& name);
  std::optional<std::string> readEntry(const Entry& entry, std::string& error);

  std::string m_path;
  std::optional<Stamp> m_stamp;  // the archive as it was opened
  zip_t* m_archive = nullptr;
  std::mutex m_mutex;  // guards m_archive
  std::unordered_map<std::string, Entry> m_entries;
  std::string m_wrapper;
};

}  // namespace detail
}  // namespace project
}  // namespace zu

#endif
