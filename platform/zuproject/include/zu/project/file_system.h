#ifndef ZU_PROJECT_FILE_SYSTEM_H
#define ZU_PROJECT_FILE_SYSTEM_H

#include <zu/project/zuproject_export.h>

#include <string>

namespace zu {
namespace project {

/// Removes a file or a whole tree on disk (a link itself, never its target);
/// PathNotFound when absent, Exception when it cannot be removed.
ZUPROJECT_EXPORT void remove(const std::string& utf8DiskPath);

/// Writes a file on disk whole or not at all: the bytes go to a hidden sibling, checked at
/// every write, flush and close, which replaces the file only once complete and takes its
/// mode. Throws Exception with the path and the system's reason, nothing left beside it,
/// when that fails or the file or its directory is not writable by its user.
ZUPROJECT_EXPORT void writeFile(const std::string& utf8DiskPath, const std::string& bytes);

/// Whether name is what version control (".git", ".hg", ".svn", ".bzr", "_darcs", "CVS")
/// or macOS ("__MACOSX") keeps for itself inside a tree. Such an entry is no part of any
/// project: a model never lists, reads, writes into, moves, packs or exports it.
ZUPROJECT_EXPORT bool isForeignMetadata(const std::string& name);

/// Whether name is one the project model keeps for itself at the top of a directory (a
/// save in progress): no project entry can be named so.
ZUPROJECT_EXPORT bool isReservedName(const std::string& name);

/// Whether name is a file a desktop system leaves in folders by itself (".DS_Store",
/// "Thumbs.db", "desktop.ini", or an AppleDouble "._" file): kept and carried with a project
/// like any file, but no part of its content.
ZUPROJECT_EXPORT bool isSystemFile(const std::string& name);

}  // namespace project
}  // namespace zu

#endif
