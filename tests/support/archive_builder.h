#ifndef KRBOX_ARCHIVE_BUILDER_H
#define KRBOX_ARCHIVE_BUILDER_H

#include <QByteArray>
#include <QString>
#include <string>
#include <vector>

namespace testutil {

/// One entry of an archive, as written or as read back.
struct ArchiveEntry {
  enum Kind { File, Directory, Symlink, Hardlink };
  /// UTF-8 path exactly as stored, so "../x" and "/abs" entries can be made and seen;
  /// readArchive drops only the trailing "/" of directories.
  std::string path;
  Kind kind = File;
  /// A file's content, or a link's target.
  std::string data;
};

ArchiveEntry fileEntry(const std::string& path, const std::string& data);
ArchiveEntry fileEntry(const std::string& path, const QByteArray& data);
ArchiveEntry fileEntry(const std::string& path, const char* data);
ArchiveEntry dirEntry(const std::string& path);
ArchiveEntry symlinkEntry(const std::string& path, const std::string& target);
ArchiveEntry hardlinkEntry(const std::string& path, const std::string& target);

enum class ArchiveKind { Zip, Tar, TarGz, TarBz2, TarXz };

/// What an archive on disk really holds.
struct ArchiveContent {
  ArchiveKind kind = ArchiveKind::Tar;
  std::vector<ArchiveEntry> entries;  ///< In archive order.
};

/// Writes a real archive; paths are not cleaned, so hostile archives can be made.
/// Hard links cannot be written into a zip. Throws std::runtime_error on failure.
void writeArchive(const QString& path, const std::vector<ArchiveEntry>& entries, ArchiveKind kind);

/// Reads every entry and its bytes; throws std::runtime_error on any damage (bad checksum
/// included) or when the container is neither a zip nor a plain or compressed tar.
ArchiveContent readArchive(const QString& path);

/// Cuts a file down to size bytes.
void truncateFile(const QString& path, qint64 size);
/// Inverts every bit of the byte at offset.
void flipByte(const QString& path, qint64 offset);

/// Deterministic bytes that do not compress, NUL bytes included.
QByteArray randomBytes(int size, unsigned seed);

}  // namespace testutil

#endif
