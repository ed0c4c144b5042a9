#ifndef ZU_PROJECT_FULL_WRITE_H
#define ZU_PROJECT_FULL_WRITE_H

// Writing a whole view to a target of any form, and opening a source. Not installed.

#include <zu/project/archive_format.h>

#include <filesystem>
#include <memory>
#include <string>

namespace zu {
namespace project {
namespace detail {

class Changes;
class Source;

/// Writes the whole view to target in format: completed beside it, then renamed into
/// place, so a failure at any point leaves the previous file or directory as it was.
void writeWhole(const Changes& view, const std::filesystem::path& target, ArchiveFormat format);

/// The source at an absolute path: a directory in place, a zip through libzip, any other
/// archive extracted into scratch. Throws PathNotFound, UnsupportedFormat, CorruptedFile.
std::shared_ptr<Source> openSource(const std::filesystem::path& path, ArchiveFormat format);

}  // namespace detail
}  // namespace project
}  // namespace zu

#endif
