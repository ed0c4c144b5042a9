#ifndef ZU_PROJECT_ZIP_COMMIT_H
#define ZU_PROJECT_ZIP_COMMIT_H

// Writing a view as a zip through libzip. Not installed.

#include <filesystem>
#include <string>

namespace zu {
namespace project {
namespace detail {

class Changes;

/// Writes the view as a zip at target (a new file, fsynced). Files that come unchanged
/// from a zip source are copied as they are stored, without recompressing. Throws
/// Exception with the reason on failure. Every entry goes inside the folder wrapper when it
/// is not empty.
void writeZip(const Changes& view, const std::filesystem::path& target,
              const std::string& wrapper = std::string());

}  // namespace detail
}  // namespace project
}  // namespace zu

#endif
