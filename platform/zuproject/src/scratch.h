#ifndef ZU_PROJECT_SCRATCH_H
#define ZU_PROJECT_SCRATCH_H

// A model's private scratch directory under the system temporary folder, made only when
// first needed, and the bytes of written files. Not installed.

#include "beneath.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace zu {
namespace project {
namespace detail {

/// One directory "zuproject-scratch-*", locked (flock) while its owner lives, removed
/// with it. The first one a process makes removes those whose lock is free: their
/// process died before it could remove them.
class Scratch {
public:
  /// Throws Exception when no directory can be made.
  static std::shared_ptr<Scratch> create();
  ~Scratch();
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;

  const std::filesystem::path& path() const { return m_path; }
  /// The files inside, reached without following links.
  Beneath& files() { return *m_files; }
  /// A name not used yet inside, for a subtree or an extraction.
  std::string newName();
  /// A file without a name inside (gone with its last descriptor), or -1.
  int anonymousFile();

private:
  Scratch(std::filesystem::path path, int lockFd);
  std::filesystem::path m_path;
  int m_lock;
  std::unique_ptr<Beneath> m_files;
  unsigned m_next = 0;
};

/// The bytes of a file the model holds: in memory, or past a threshold in an anonymous
/// scratch file. Immutable, so models share it.
class Blob {
public:
  explicit Blob(std::string bytes) : m_bytes(std::move(bytes)), m_size(m_bytes.size()) {}
  Blob(int fd, std::uint64_t size) : m_fd(fd), m_size(size) {}
  ~Blob();
  Blob(const Blob&) = delete;
  Blob& operator=(const Blob&) = delete;

  std::uint64_t size() const { return m_size; }
  /// The bytes; nothing when the scratch file cannot be read back.
  std::optional<std::string> bytes() const;

private:
  std::string m_bytes;
  int m_fd = -1;
  std::uint64_t m_size;
};

/// Files past this size wait for the save in scratch rather than in memory.
constexpr std::size_t kMemoryLimit = 4 * 1024 * 1024;

/// Holds bytes, moving large ones to scratch (made through scratch() when needed).
/// Throws Exception when scratch cannot take them.
std::shared_ptr<const Blob> makeBlob(std::string bytes, const std::function<Scratch&()>& scratch);

}  // namespace detail
}  // namespace project
}  // namespace zu

#endif
