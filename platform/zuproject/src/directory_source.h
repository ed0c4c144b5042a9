#ifndef ZU_PROJECT_DIRECTORY_SOURCE_H
#define ZU_PROJECT_DIRECTORY_SOURCE_H

// A directory read where it is, never through a link. Not installed.

#include "beneath.h"
#include "source.h"

#include <map>
#include <memory>
#include <mutex>
#include <set>

namespace zu {
namespace project {
namespace detail {

class Scratch;

class DirectorySource : public Source {
public:
  /// Opens the directory at path (a link to it is taken, as the caller named it). A save
  /// that was cut short there is finished first. Throws PathNotFound when it cannot be
  /// opened. keep holds the scratch that a directory inside it needs; wrapper names the
  /// folder of the archive that path is, for an archive extracted there.
  DirectorySource(const std::string& path, ArchiveFormat format,
                  std::shared_ptr<Scratch> keep = nullptr, std::string wrapper = std::string());

  ArchiveFormat format() const override { return m_format; }
  std::string path() const override { return m_keep ? std::string() : m_path; }
  Kind kind(const std::string& path) override;
  std::optional<std::string> read(const std::string& path) override;
  FILE* open(const std::string& path) override;
  std::vector<Listed> list(const std::string& dir) override;
  std::unique_ptr<Reader> reader() override;
  void forget() override;
  std::vector<std::string> changedOnDisk() override;
  std::string wrapper() const override { return m_wrapper; }

  /// Of the paths a save is about to replace or remove (files, or trees), those that
  /// another writer changed since this source first read them, or made meanwhile.
  std::vector<std::string> conflicts(const std::vector<std::string>& touched);
  void settle(const std::vector<std::string>& touched) override;
  /// Takes what is on disk at path now (a file, or a directory and its direct files) as
  /// what was read there, dropping what was noted at and below it.
  void retake(const std::string& path);
  /// Whether this source knows what was at path: it read the file, or listed its directory.
  /// A file it never knew of is no sign of another writer when its directory goes whole.
  bool knows(const std::string& path);

  /// The steps of kind(), read() and list() through files: the source's own, or a reader's.
  /// They take the lock only to note what they read. isFile, when given, tells whether a
  /// regular file is at the path read, read or not.
  Kind kindVia(Beneath& files, const std::string& path);
  std::optional<std::string> readVia(Beneath& files, const std::string& path, bool* isFile);
  std::vector<Listed> listVia(Beneath& files, const std::string& dir);

  /// The directory's own path, also for one in scratch.
  const std::string& root() const { return m_path; }
  /// Runs f on the files with the lock held.
  template <typename F>
  auto withFiles(F f) {
    std::lock_guard<std::recursive_mutex> lock(m_mutex);
    return f(*m_files);
  }

private:
  std::string m_path;
  ArchiveFormat m_format;
  std::shared_ptr<Scratch> m_keep;
  std::string m_wrapper;
  // Recursive: a save holds it while the models sharing this source read through it.
  std::recursive_mutex m_mutex;
  std::unique_ptr<Beneath> m_files;
  // Each file as first read: a save checks it is still so before replacing it.
  std::map<std::string, Stamp> m_stamps;
  // The directories listed, whose files not noted in m_stamps came after.
  std::set<std::string> m_listed;

  bool noted(const std::string& path);
  void note(const std::string& path, const std::optional<struct stat>& info);
  // What this process's save made at path is seen: it is no other writer's.
  void noteTree(const std::string& path);
  // After a read of path failed with error: a file there is no longer whole in any view.
  void noteIfUnreadable(Beneath& files, const std::string& path, int error);
  void noteUnreadable(const std::string& path, int error);
  // Whether it points at a stamp whose path begins with prefix, as all those below it do.
  bool startsWith(std::map<std::string, Stamp>::const_iterator it, const std::string& prefix) const;
};

}  // namespace detail
}  // namespace project
}  // namespace zu

#endif
