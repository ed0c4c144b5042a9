#ifndef ZU_PROJECT_ZIP_SOURCE_H
#define ZU_PROJECT_ZIP_SOURCE_H

// A zip archive read entry by entry through libzip. Not installed.

#include "source.h"

#include <zip.h>

#include <mutex>
#include <unordered_map>

namespace zu {
namespace project {
namespace detail {

class ZipSource : public Source {
public:
  /// Reads the archive's central directory and checks every name. Throws
  /// UnsupportedFormat when the file is no zip libzip can open (the caller then tries
  /// other forms), CorruptedFile for a damaged one or a hostile entry, PathNotFound or
  /// Exception when it cannot be read.
  explicit ZipSource(const std::string& path);
  ~ZipSource() override;

  ArchiveFormat format() const override { return ArchiveFormat_Zip; }
  std::string path() const override { return m_path; }
  Kind kind(const std::string& path) override;
  std::optional<std::string> read(const std::string& path) override;
  std::vector<Listed> list(const std::string& dir) override;
  std::vector<std::string> changedOnDisk() override;
  void settle(const std::vector<std::string>&) override { m_stamp = stampAt(m_path); }

  /// The archive and the index of the file entry at path (-1 when there is none), for
  /// copying it into another archive as it is stored.
  zip_t* archive() const { return m_archive; }
  zip_int64_t entryIndex(const std::string& path);

private:
  struct Entry {
    zip_int64_t index = -1;  // -1: a directory only implied by deeper names
    bool dir = false;
    std::uint64_t size = 0;
    std::vector<const std::string*> children;  // keys of the entries right below
  };
  Entry& insert(const std::string& path, bool dir);

  std::string m_path;
  std::optional<Stamp> m_stamp;  // the archive as it was opened
  zip_t* m_archive = nullptr;
  std::mutex m_mutex;
  std::unordered_map<std::string, Entry> m_entries;
};

}  // namespace detail
}  // namespace project
}  // namespace zu

#endif
