#ifndef ZU_PROJECT_FULL_WRITE_H
#define ZU_PROJECT_FULL_WRITE_H

// Writing a whole view to a target of any form. Not installed.

#include <zu/project/archive_format.h>

#include <filesystem>

namespace zu {
namespace project {
namespace detail {

class Changes;

/// Writes the whole view to target in format: completed beside it, then renamed into
/// place, so a failure at any point leaves the previous file or directory as it was.
void writeWhole(const Changes& view, const std::filesystem::path& target, ArchiveFormat format);

}  // namespace detail
}  // namespace project
}  // namespace zu

#endif
