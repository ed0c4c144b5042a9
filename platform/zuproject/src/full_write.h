#ifndef ZU_PROJECT_FULL_WRITE_H
#define ZU_PROJECT_FULL_WRITE_H

// Writing a whole view to a target of any form. Not installed.

#include <zu/project/archive_format.h>

#include <filesystem>
#include <string>

namespace zu {
namespace project {
namespace detail {

class Changes;

/// Writes the whole view to target in format: completed beside it, then renamed into
/// place, so a failure at any point leaves the previous file or directory as it was.
/// A target its user cannot write (the file, its directory, or a directory of the tree it
/// holds) is refused first, and what is replaced keeps its mode. An archive puts every entry
/// inside the folder wrapper when it is not empty.
void writeWhole(const Changes& view, const std::filesystem::path& target, ArchiveFormat format,
                const std::string& wrapper = std::string());

/// Removes what a writer killed before it finished left beside target: siblings made by
/// createSibling() (and libzip's temporaries beside those) named after a process that is
/// gone. Nothing while target is missing: what is beside it may be all that is left of it.
void removeStaleSiblings(const std::filesystem::path& target);
/// The first entry that keeps target from being replaced: its directory, the file or any
/// directory of its tree that its user cannot write; "" when there is none.
std::string unwritableIn(const std::filesystem::path& target);

}  // namespace detail
}  // namespace project
}  // namespace zu

#endif
