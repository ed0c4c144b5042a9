#include "archive_builder.h"

#include <archive.h>
#include <archive_entry.h>
#include <locale.h>

#include <QFile>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>

namespace testutil {

namespace {

using ArchivePtr = std::unique_ptr<archive, int (*)(archive*)>;

[[noreturn]] void fail(archive* a, const std::string& what, const QString& path) {
  const char* reason = archive_error_string(a);
  throw std::runtime_error(what + " " + path.toStdString() + ": " +
                           (reason ? reason : "unknown error"));
}

}  // namespace

ArchiveEntry fileEntry(const std::string& path, const std::string& data) {
  return ArchiveEntry{path, ArchiveEntry::File, data};
}

ArchiveEntry fileEntry(const std::string& path, const QByteArray& data) {
  return fileEntry(path, data.toStdString());
}

ArchiveEntry fileEntry(const std::string& path, const char* data) {
  return fileEntry(path, std::string(data));
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

// libarchive converts names through the locale; like the project model, the helpers work
// under a UTF-8 character type so that the tests may run in any locale, C included.
struct Utf8Names {
  locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(0));
  locale_t previous = uselocale(locale);
  ~Utf8Names() {
    uselocale(previous);
    freelocale(locale);
  }
};

void writeArchive(const QString& path, const std::vector<ArchiveEntry>& entries, ArchiveKind kind) {
  const Utf8Names utf8;
  ArchivePtr writer(archive_write_new(), archive_write_free);
  archive* a = writer.get();
  // Without the UTF-8 option, non-ASCII zip names would depend on the process locale.
  int r = kind == ArchiveKind::Zip ? archive_write_set_format_zip(a)
                                   : archive_write_set_format_pax_restricted(a);
  if (r == ARCHIVE_OK && kind == ArchiveKind::Zip)
    r = archive_write_set_options(a, "hdrcharset=UTF-8");
  else if (r == ARCHIVE_OK && kind == ArchiveKind::TarGz)
    r = archive_write_add_filter_gzip(a);
  else if (r == ARCHIVE_OK && kind == ArchiveKind::TarBz2)
    r = archive_write_add_filter_bzip2(a);
  else if (r == ARCHIVE_OK && kind == ArchiveKind::TarXz)
    r = archive_write_add_filter_xz(a);
  if (r != ARCHIVE_OK || archive_write_open_filename(a, QFile::encodeName(path).constData()))
    fail(a, "cannot create", path);

  for (const ArchiveEntry& item : entries) {
    std::unique_ptr<archive_entry, void (*)(archive_entry*)> holder(archive_entry_new(),
                                                                    archive_entry_free);
    archive_entry* e = holder.get();
    archive_entry_set_pathname_utf8(e, item.path.c_str());
    // A fixed timestamp keeps the archives identical from run to run.
    archive_entry_set_mtime(e, 1700000000, 0);
    const bool isDir = item.kind == ArchiveEntry::Directory;
    archive_entry_set_filetype(e, isDir                                ? AE_IFDIR
                                  : item.kind == ArchiveEntry::Symlink ? AE_IFLNK
                                                                       : AE_IFREG);
    archive_entry_set_perm(e, isDir ? 0755 : 0644);
    archive_entry_set_size(e, item.kind == ArchiveEntry::File ? item.data.size() : 0);
    if (item.kind == ArchiveEntry::Symlink)
      archive_entry_set_symlink_utf8(e, item.data.c_str());
    if (item.kind == ArchiveEntry::Hardlink && kind == ArchiveKind::Zip)
      throw std::runtime_error("a zip cannot hold a hard link");
    if (item.kind == ArchiveEntry::Hardlink)
      archive_entry_set_hardlink_utf8(e, item.data.c_str());
    // A warning only means a name did not fit the legacy header fields; UTF-8 is written.
    if (archive_write_header(a, e) < ARCHIVE_WARN ||
        (item.kind == ArchiveEntry::File && !item.data.empty() &&
         archive_write_data(a, item.data.data(), item.data.size()) !=
             static_cast<la_ssize_t>(item.data.size())))
      fail(a, "cannot write entry " + item.path + " to", path);
  }
  if (archive_write_close(a) != ARCHIVE_OK)
    fail(a, "cannot finish", path);
}

ArchiveContent readArchive(const QString& path) {
  const Utf8Names utf8;
  ArchivePtr reader(archive_read_new(), archive_read_free);
  archive* a = reader.get();
  archive_read_support_filter_all(a);
  archive_read_support_format_zip(a);
  archive_read_support_format_tar(a);
  if (archive_read_open_filename(a, QFile::encodeName(path).constData(), 16384) != ARCHIVE_OK)
    fail(a, "cannot open", path);

  ArchiveContent content;
  archive_entry* e = nullptr;
  for (int r; (r = archive_read_next_header(a, &e)) != ARCHIVE_EOF;) {
    if (r < ARCHIVE_WARN)
      fail(a, "cannot read an entry header of", path);
    auto text = [](const char* s) { return std::string(s ? s : ""); };
    ArchiveEntry item{text(archive_entry_pathname_utf8(e)), ArchiveEntry::File, ""};
    if (archive_entry_hardlink(e)) {
      item = {item.path, ArchiveEntry::Hardlink, text(archive_entry_hardlink_utf8(e))};
    } else if (archive_entry_filetype(e) == AE_IFLNK) {
      item = {item.path, ArchiveEntry::Symlink, text(archive_entry_symlink_utf8(e))};
    } else if (archive_entry_filetype(e) == AE_IFDIR) {
      item.kind = ArchiveEntry::Directory;
      while (item.path.size() > 1 && item.path.back() == '/')
        item.path.pop_back();
    } else {
      char buffer[16384];
      // A bad checksum arrives as a failure at the end of the data, and is damage too.
      for (la_ssize_t n; (n = archive_read_data(a, buffer, sizeof buffer)) != 0;) {
        if (n < 0)
          fail(a, "cannot read data of " + item.path + " in", path);
        item.data.append(buffer, static_cast<size_t>(n));
      }
    }
    content.entries.push_back(std::move(item));
  }

  const std::map<int, ArchiveKind> tars = {{ARCHIVE_FILTER_NONE, ArchiveKind::Tar},
                                           {ARCHIVE_FILTER_GZIP, ArchiveKind::TarGz},
                                           {ARCHIVE_FILTER_BZIP2, ArchiveKind::TarBz2},
                                           {ARCHIVE_FILTER_XZ, ArchiveKind::TarXz}};
  const auto tar = tars.find(archive_filter_code(a, 0));
  const int format = archive_format(a) & ARCHIVE_FORMAT_BASE_MASK;
  if (format == ARCHIVE_FORMAT_ZIP)
    content.kind = ArchiveKind::Zip;
  else if (format == ARCHIVE_FORMAT_TAR && tar != tars.end())
    content.kind = tar->second;
  else
    throw std::runtime_error("neither a zip nor a plain or compressed tar: " + path.toStdString());
  return content;
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

QByteArray randomBytes(int size, unsigned seed) {
  std::mt19937 generator(seed);
  QByteArray bytes(size, '\0');
  for (char& byte : bytes)
    byte = static_cast<char>(generator() & 0xff);
  return bytes;
}

}  // namespace testutil
