#ifndef ZU_PROJECT_PATHS_H
#define ZU_PROJECT_PATHS_H

// Helpers shared by the project model's sources; not installed.

#include <zu/project/file_system.h>

#include <QByteArray>
#include <QString>

#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

namespace zu {
namespace project {
namespace detail {

namespace fs = std::filesystem;

/// The UTF-8 bytes of a Qt string.
std::string toUtf8(const QString& text);
/// A disk path from UTF-8 text; file names on disk are taken as UTF-8 bytes.
fs::path diskPath(const QString& path);
/// A disk path as a Qt string.
QString fromDiskPath(const fs::path& path);
/// An absolute, lexically normal disk path without a trailing separator.
fs::path absoluteDiskPath(const fs::path& path);

/// A "/"-separated relative path in normal form: empty and "." steps dropped, each ".."
/// taking back the step before it when allowParentSteps is true. Nothing when a ".." is
/// not allowed or would climb above the start.
std::optional<std::string> normalizeSteps(const std::string& path, bool allowParentSteps);

/// A model path made relative and normal ("./a/../b" is "b", "" is the top); nothing when
/// it would leave the model or holds a NUL character.
std::optional<std::string> normalizeModelPath(const QString& path);
/// A model path in normal form, or nothing for one that leaves the model or names the
/// reserved pending entry or another tool's metadata.
std::optional<std::string> normalized(const QString& path);
/// A file's bytes as a model hands them out: null when absent, empty (not null) when empty.
QByteArray toQByteArray(const std::optional<std::string>& bytes);

/// Whether a step of the "/"-separated path is what version control or macOS keeps for
/// itself (isForeignMetadata()).
bool holdsForeignMetadata(const std::string& path);

/// Whether the entry exists, without following a link.
bool existsNoFollow(const fs::path& path);

/// Copies a file or a tree (merging into existing directories, replacing files); symbolic
/// links and special files are skipped, never followed. Throws Exception on failure.
void copyTree(const fs::path& from, const fs::path& to);
/// Copies one regular file over whatever file is at to, leaving it writable by its owner.
void copyRegularFile(const fs::path& from, const fs::path& to);

/// Creates an entry beside target with a unique name that starts with a full stop, either
/// an empty directory or an empty file, and returns its path.
fs::path createSibling(const fs::path& target, bool directory);

/// Replaces data atomically: writes to a sibling, then renames it over the file.
void writeFileAtomically(const fs::path& path, const std::string& data);

/// Writes the file name in the open directory dirFd whole or not at all: the bytes go to a
/// hidden sibling, checked at every write, flush and close, which is renamed over name
/// only once complete and takes the mode of the file it replaces. A file or a directory its
/// user cannot write is refused ("not writable"). Throws Exception naming what; nothing is
/// left beside name then.
void replaceFileAt(int dirFd, const std::string& name, const std::string& data,
                   const std::string& what, bool flush);

/// Whether the user may write the entry name in dirFd ("." for the directory itself);
/// false with errno EACCES when not.
bool writableAt(int dirFd, const std::string& name);

/// Throws Exception with "<what>: <system reason>".
[[noreturn]] void throwSystemError(const std::string& what, const std::error_code& error);

}  // namespace detail
}  // namespace project
}  // namespace zu

#endif
