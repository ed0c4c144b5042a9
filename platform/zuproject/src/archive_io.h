#ifndef ZU_PROJECT_ARCHIVE_IO_H
#define ZU_PROJECT_ARCHIVE_IO_H

// Archive reading and writing for the project model; not installed.

#include <zu/project/archive_format.h>

#include <filesystem>
#include <string>
#include <vector>

namespace zu {
namespace project {
namespace detail {

/// Extracts an archive into the empty directory root and returns its form (Auto for a form
/// that can be read but not written). Throws UnsupportedFormat for a file that is no
/// archive, CorruptedFile for a damaged one or one with an absolute, ".." or link entry,
/// and Exception when scratch cannot be written.
ArchiveFormat extractArchive(const std::filesystem::path& archive,
                             const std::filesystem::path& root);

class Changes;

/// Writes every file and directory of the view into a new tar archive (plain or
/// compressed) at target, an existing empty file, inside the folder wrapper when it is not
/// empty. Throws Exception with the reason.
void writeArchive(const Changes& view, const std::filesystem::path& target, ArchiveFormat format,
                  const std::string& wrapper = std::string());

/// The entries of the view as an archive holds them: byte-wise sorted, inside wrapper (its own
/// directory entry first) when it is not empty. name is the path in the archive, and path
/// the view's.
struct ArchiveItem {
  std::string name;
  std::string path;
  bool dir;
};
std::vector<ArchiveItem> archiveItems(const Changes& view, const std::string& wrapper);

/// The archive form a file name asks for, or Auto when it names none.
ArchiveFormat formatFromFileName(const std::string& fileName);

}  // namespace detail
}  // namespace project
}  // namespace zu

#endif
