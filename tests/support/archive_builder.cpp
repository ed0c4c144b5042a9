#include "archive_builder.h"

#include <archive.h>
#include <archive_entry.h>

#include <QFile>
#include <memory>
#include <random>
#include <stdexcept>

namespace testutil {

namespace {

// A fixed timestamp keeps the archives identical from run to run.
constexpr time_t kEntryTime = 1700000000;

struct WriterDeleter {
  void operator()(archive* a) const { archive_write_free(a); }
};
struct ReaderDeleter {
  void operator()(archive* a) const { archive_read_free(a); }
};
struct EntryDeleter {
  void operator()(archive_entry* e) const { archive_entry_free(e); }
};

[[noreturn]] void fail(archive* a, const std::string& what, const QString& path) {
  const char* reason = a ? archive_error_string(a) : nullptr;
  throw std::runtime_error(what + " " + path.toStdString() + ": " +
                           (reason ? reason : "unknown error"));
}

void setUpWriter(archive* a, ArchiveKind kind, const QString& path) {
  int r = ARCHIVE_OK;
  if (kind == ArchiveKind::Zip) {
    r = archive_write_set_format_zip(a);
    // Without it, non-ASCII names would depend on the process locale.
    if (r == ARCHIVE_OK)
      r = archive_write_set_options(a, "hdrcharset=UTF-8");
  } else {
    r = archive_write_set_format_pax_restricted(a);
    if (r == ARCHIVE_OK && kind == ArchiveKind::TarGz)
      r = archive_write_add_filter_gzip(a);
    else if (r == ARCHIVE_OK && kind == ArchiveKind::TarBz2)
      r = archive_write_add_filter_bzip2(a);
    else if (r == ARCHIVE_OK && kind == ArchiveKind::TarXz)
      r = archive_write_add_filter_xz(a);
  }
  if (r != ARCHIVE_OK)
    fail(a, "cannot set up writer for", path);
}

}  // namespace

ArchiveEntry fileEntry(const std::string& path, const std::string& data) {
  return ArchiveEntry{path, ArchiveEntry::File, data};
}

ArchiveEntry fileEntry(const std::string& path, const QByteArray& data) {
  return ArchiveEntry{path, ArchiveEntry::File, data.toStdString()};
}

ArchiveEntry fileEntry(const std::string& path, const char* data) {
  return ArchiveEntry{path, ArchiveEntry::File, std::string(data)};
}

ArchiveEntry dirEntry(const std::string& path) {
  return ArchiveEntry{path, ArchiveEntry::Directory, std::string()};
}

ArchiveEntry symlinkEntry(const std::string& path, const std::string& target) {
  return ArchiveEntry{path, ArchiveEntry::Symlink, target};
}

ArchiveEntry hardlinkEntry(const std::string& path, const std::string& target) {
  return ArchiveEntry{path, ArchiveEntry::Hardlink, target};
}

void writeArchive(const QString& path, const std::vector<ArchiveEntry>& entries, ArchiveKind kind) {
  std::unique_ptr<archive, WriterDeleter> writer(archive_write_new());
  archive* a = writer.get();
  setUpWriter(a, kind, path);
  if (archive_write_open_filename(a, QFile::encodeName(path).constData()) != ARCHIVE_OK)
    fail(a, "cannot create", path);

  for (const ArchiveEntry& item : entries) {
    std::unique_ptr<archive_entry, EntryDeleter> holder(archive_entry_new());
    archive_entry* e = holder.get();
    archive_entry_set_pathname_utf8(e, item.path.c_str());
    archive_entry_set_mtime(e, kEntryTime, 0);
    switch (item.kind) {
      case ArchiveEntry::File:
        archive_entry_set_filetype(e, AE_IFREG);
        archive_entry_set_perm(e, 0644);
        archive_entry_set_size(e, static_cast<la_int64_t>(item.data.size()));
        break;
      case ArchiveEntry::Directory:
        archive_entry_set_filetype(e, AE_IFDIR);
        archive_entry_set_perm(e, 0755);
        archive_entry_set_size(e, 0);
        break;
      case ArchiveEntry::Symlink:
        archive_entry_set_filetype(e, AE_IFLNK);
        archive_entry_set_perm(e, 0777);
        archive_entry_set_symlink_utf8(e, item.data.c_str());
        archive_entry_set_size(e, 0);
        break;
      case ArchiveEntry::Hardlink:
        if (kind == ArchiveKind::Zip)
          throw std::runtime_error("a zip cannot hold a hard link");
        archive_entry_set_filetype(e, AE_IFREG);
        archive_entry_set_perm(e, 0644);
        archive_entry_set_hardlink_utf8(e, item.data.c_str());
        archive_entry_set_size(e, 0);
        break;
    }
    // A warning here only means a name could not be put in the legacy header fields;
    // the UTF-8 name is still written.
    if (archive_write_header(a, e) < ARCHIVE_WARN)
      fail(a, "cannot write entry " + item.path + " to", path);
    if (item.kind == ArchiveEntry::File && !item.data.empty()) {
      la_ssize_t written = archive_write_data(a, item.data.data(), item.data.size());
      if (written != static_cast<la_ssize_t>(item.data.size()))
        fail(a, "cannot write data of " + item.path + " to", path);
    }
  }
  if (archive_write_close(a) != ARCHIVE_OK)
    fail(a, "cannot finish", path);
}

ArchiveContent readArchive(const QString& path) {
  std::unique_ptr<archive, ReaderDeleter> reader(archive_read_new());
  archive* a = reader.get();
  archive_read_support_filter_all(a);
  archive_read_support_format_zip(a);
  archive_read_support_format_tar(a);
  if (archive_read_open_filename(a, QFile::encodeName(path).constData(), 16384) != ARCHIVE_OK)
    fail(a, "cannot open", path);

  ArchiveContent content;
  archive_entry* e = nullptr;
  for (;;) {
    int r = archive_read_next_header(a, &e);
    if (r == ARCHIVE_EOF)
      break;
    if (r < ARCHIVE_WARN)
      fail(a, "cannot read an entry header of", path);
    ArchiveEntry item;
    const char* name = archive_entry_pathname_utf8(e);
    item.path = name ? name : "";
    if (archive_entry_hardlink(e)) {
      item.kind = ArchiveEntry::Hardlink;
      const char* target = archive_entry_hardlink_utf8(e);
      item.data = target ? target : "";
    } else if (archive_entry_filetype(e) == AE_IFLNK) {
      item.kind = ArchiveEntry::Symlink;
      const char* target = archive_entry_symlink_utf8(e);
      item.data = target ? target : "";
    } else if (archive_entry_filetype(e) == AE_IFDIR) {
      item.kind = ArchiveEntry::Directory;
      while (item.path.size() > 1 && item.path.back() == '/')
        item.path.pop_back();
    }
    if (item.kind == ArchiveEntry::File) {
      char buffer[16384];
      for (;;) {
        la_ssize_t n = archive_read_data(a, buffer, sizeof buffer);
        // A bad checksum arrives as a warning at the end of the data, and is damage too.
        if (n < 0)
          fail(a, "cannot read data of " + item.path + " in", path);
        if (n == 0)
          break;
        item.data.append(buffer, static_cast<size_t>(n));
      }
    }
    content.entries.push_back(std::move(item));
  }

  int format = archive_format(a) & ARCHIVE_FORMAT_BASE_MASK;
  if (format == ARCHIVE_FORMAT_ZIP) {
    content.kind = ArchiveKind::Zip;
  } else if (format == ARCHIVE_FORMAT_TAR) {
    switch (archive_filter_code(a, 0)) {
      case ARCHIVE_FILTER_NONE: content.kind = ArchiveKind::Tar; break;
      case ARCHIVE_FILTER_GZIP: content.kind = ArchiveKind::TarGz; break;
      case ARCHIVE_FILTER_BZIP2: content.kind = ArchiveKind::TarBz2; break;
      case ARCHIVE_FILTER_XZ: content.kind = ArchiveKind::TarXz; break;
      default: throw std::runtime_error("unexpected compression in " + path.toStdString());
    }
  } else {
    throw std::runtime_error("neither a zip nor a tar: " + path.toStdString());
  }
  return content;
}

const char* archiveKindName(ArchiveKind kind) {
  switch (kind) {
    case ArchiveKind::Zip: return "zip";
    case ArchiveKind::Tar: return "tar";
    case ArchiveKind::TarGz: return "tar.gz";
    case ArchiveKind::TarBz2: return "tar.bz2";
    case ArchiveKind::TarXz: return "tar.xz";
  }
  return "?";
}

QString archiveSuffix(ArchiveKind kind) {
  return QString(".") + QString::fromLatin1(archiveKindName(kind));
}

void truncateFile(const QString& path, qint64 size) {
  if (!QFile::resize(path, size))
    throw std::runtime_error("cannot truncate " + path.toStdString());
}

void flipByte(const QString& path, qint64 offset) {
  QFile file(path);
  char byte = 0;
  if (!file.open(QIODevice::ReadWrite) || !file.seek(offset) || !file.getChar(&byte) ||
      !file.seek(offset) || !file.putChar(static_cast<char>(~byte)))
    throw std::runtime_error("cannot change a byte of " + path.toStdString());
}

qint64 zipFirstDataOffset(const QString& path) {
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly))
    throw std::runtime_error("cannot open " + path.toStdString());
  QByteArray header = file.read(30);
  if (header.size() != 30 || !header.startsWith(QByteArray("PK\x03\x04", 4)))
    throw std::runtime_error("no zip local header at the start of " + path.toStdString());
  auto le16 = [&header](int at) {
    return static_cast<qint64>(static_cast<unsigned char>(header[at])) |
           (static_cast<qint64>(static_cast<unsigned char>(header[at + 1])) << 8);
  };
  return 30 + le16(26) + le16(28);
}

QByteArray randomBytes(int size, unsigned seed) {
  std::mt19937 generator(seed);
  QByteArray bytes(size, '\0');
  for (int i = 0; i < size; ++i)
    bytes[i] = static_cast<char>(generator() & 0xff);
  return bytes;
}

}  // namespace testutil
