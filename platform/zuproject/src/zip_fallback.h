#ifndef ZU_PROJECT_ZIP_FALLBACK_H
#define ZU_PROJECT_ZIP_FALLBACK_H

// Reading the zip entries libzip cannot decompress through libarchive. Not installed.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

struct archive;

namespace zu {
namespace project {
namespace detail {

/// Reads the entries of one zip whose compression method libzip lacks (LZMA, XZ, PPMd).
/// libarchive reads a zip front to back, so one pass serves many reads: small entries met on
/// the way to another are kept until they are asked for, which makes reading every box file
/// of such an archive cost about one pass, without copying the archive anywhere. Not
/// thread-safe.
class ZipFallback {
public:
  explicit ZipFallback(std::string archivePath);
  ~ZipFallback();
  ZipFallback(const ZipFallback&) = delete;
  ZipFallback& operator=(const ZipFallback&) = delete;

  /// Whether libarchive decompresses the zip compression method.
  static bool decompresses(int method);
  /// Announces an entry that will be read through this reader, by its name as stored.
  void expect(const std::string& storedName, std::uint64_t size);
  /// The bytes of an announced entry; nothing, with the reason in error, when it cannot be
  /// read.
  std::optional<std::string> read(const std::string& storedName, std::string& error);

private:
  struct Expected {
    std::uint64_t size = 0;
    std::optional<std::string> kept;
    bool unkeepable = false;  // its data failed once on the way to another entry
  };
  bool open(std::string& error);
  void close();
  // Reads the current entry's data; nothing on failure.
  std::optional<std::string> readData(std::uint64_t size, std::string& error);

  std::string m_path;
  archive* m_archive = nullptr;
  std::unordered_map<std::string, Expected> m_expected;
  std::uint64_t m_keptBytes = 0;
};

}  // namespace detail
}  // namespace project
}  // namespace zu

#endif
