#include "archive_io.h"

#include "changes.h"
#include "file_io.h"
#include "paths.h"

#include <zu/project/exceptions.h>
#include <zu/project/progress_scope.h>

#include <archive.h>
#include <archive_entry.h>

#include <fcntl.h>
#include <locale.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <ctime>
#include <memory>
#include <optional>
#include <vector>

namespace zu {
namespace project {
namespace detail {
namespace {

// libarchive reports "unrecognized format" with this errno on systems without EFTYPE.
#ifdef EFTYPE
constexpr int kFileFormatErrno = EFTYPE;
#else
constexpr int kFileFormatErrno = EILSEQ;
#endif

// libarchive converts entry names through the current locale, and the C locale cannot
// represent a non-ASCII name at all. Archives are therefore read and written under a
// UTF-8 character type, for this thread only, leaving the application's locale alone.
class Utf8LocaleScope {
public:
  Utf8LocaleScope() {
    for (const char* name : {"C.UTF-8", "C.utf8", "en_US.UTF-8"}) {
      m_locale = newlocale(LC_CTYPE_MASK, name, static_cast<locale_t>(0));
      if (m_locale) {
        m_previous = uselocale(m_locale);
        return;
      }
    }
  }
  ~Utf8LocaleScope() {
    if (m_locale) {
      uselocale(m_previous);
      freelocale(m_locale);
    }
  }
  Utf8LocaleScope(const Utf8LocaleScope&) = delete;
  Utf8LocaleScope& operator=(const Utf8LocaleScope&) = delete;

private:
  locale_t m_locale = static_cast<locale_t>(0);
  locale_t m_previous = static_cast<locale_t>(0);
};

struct ReadCloser {
  void operator()(archive* a) const { archive_read_free(a); }
};
struct WriteCloser {
  void operator()(archive* a) const { archive_write_free(a); }
};
struct FileCloser {
  void operator()(FILE* f) const { std::fclose(f); }
};

std::string reason(archive* a) {
  const char* text = archive_error_string(a);
  return text ? text : "unknown archive error";
}

// The entry's path relative to the extraction root, or a CorruptedFile for one that could
// land outside it.
std::string safeEntryPath(const std::string& archiveName, const char* raw) {
  const std::string path = raw ? raw : "";
  if (path.empty() || path.find('\0') != std::string::npos)
    throw CorruptedFile(archiveName + ": an entry has no name");
  if (path.front() == '/')
    throw CorruptedFile(archiveName + ": entry \"" + path + "\" has an absolute path");
  // Any ".." is refused, even one that would stay inside: no honest archive needs it.
  std::optional<std::string> relative = normalizeSteps(path, false);
  if (!relative)
    throw CorruptedFile(archiveName + ": entry \"" + path + "\" leaves the archive");
  return *relative;
}

[[noreturn]] void throwReadFailure(archive* a, const std::string& archiveName) {
  const int error = archive_errno(a);
  if (error == EACCES || error == EISDIR || error == ENOENT || error == EIO || error == ENOMEM)
    throwSystemError("Could not read " + archiveName,
                     std::error_code(error, std::generic_category()));
  // Only a file that no reader recognised is "not an archive"; a recognised but broken
  // one (a gzip stream cut short, say) is damaged.
  if (archive_format(a) == 0 && error == kFileFormatErrno)
    throw UnsupportedFormat(archiveName + ": " + reason(a));
  throw CorruptedFile(archiveName + ": " + reason(a));
}

// Errors that mean the archive contradicts itself (a file where a directory must be).
bool isConflict(int error) {
  return error == ENOTDIR || error == EISDIR || error == EEXIST;
}

[[noreturn]] void throwWriteFailure(const std::string& archiveName, const fs::path& target,
                                    int error) {
  const std::string what = archiveName + ": cannot extract " + target.string();
  if (isConflict(error))
    throw CorruptedFile(what + ": entries conflict");
  throwSystemError(what, std::error_code(error, std::generic_category()));
}

void extractData(archive* a, const std::string& archiveName, const fs::path& target,
                 la_int64_t declaredSize) {
  std::unique_ptr<FILE, FileCloser> out(std::fopen(target.c_str(), "wb"));
  if (!out)
    throwWriteFailure(archiveName, target, errno);
  la_int64_t written = 0;
  for (;;) {
    const void* block = nullptr;
    size_t size = 0;
    la_int64_t offset = 0;
    const int r = archive_read_data_block(a, &block, &size, &offset);
    if (r == ARCHIVE_EOF)
      break;
    // A warning here is a checksum mismatch: the data is damaged.
    if (r != ARCHIVE_OK)
      throw CorruptedFile(archiveName + ": " + reason(a));
    if (offset != written) {  // a hole in a sparse entry
      if (fseeko(out.get(), static_cast<off_t>(offset), SEEK_SET) != 0)
        throwWriteFailure(archiveName, target, errno);
      written = offset;
    }
    if (size > 0 && std::fwrite(block, 1, size, out.get()) != size)
      throwWriteFailure(archiveName, target, errno);
    written += static_cast<la_int64_t>(size);
  }
  // A sparse entry may end in a hole that no data block covers.
  if (declaredSize > written &&
      ::ftruncate(fileno(out.get()), static_cast<off_t>(declaredSize)) != 0)
    throwWriteFailure(archiveName, target, errno);
  FILE* raw = out.release();
  if (std::fclose(raw) != 0)
    throwWriteFailure(archiveName, target, errno);
}

ArchiveFormat formatOf(archive* a) {
  const int base = archive_format(a) & ARCHIVE_FORMAT_BASE_MASK;
  if (base == ARCHIVE_FORMAT_ZIP)
    return ArchiveFormat_Zip;
  if (base != ARCHIVE_FORMAT_TAR)
    return ArchiveFormat_Auto;
  // Filter 0 is the outermost one; a plain tar has only the "none" filter.
  switch (archive_filter_count(a) > 0 ? archive_filter_code(a, 0) : ARCHIVE_FILTER_NONE) {
    case ARCHIVE_FILTER_NONE: return ArchiveFormat_Tar;
    case ARCHIVE_FILTER_GZIP: return ArchiveFormat_TarGz;
    case ARCHIVE_FILTER_BZIP2: return ArchiveFormat_TarBz2;
    case ARCHIVE_FILTER_XZ: return ArchiveFormat_TarXz;
    default: return ArchiveFormat_Auto;
  }
}

struct OutputFile {
  int fd;
  int error;  // the first write error, 0 while all is well
};

// Never tells libarchive of a write error: in its fatal state it would no longer release
// its compressor. The error is kept and reported once the archive is closed.
la_ssize_t writeToOutput(archive*, void* data, const void* buffer, size_t length) {
  OutputFile& output = *static_cast<OutputFile*>(data);
  const char* bytes = static_cast<const char*>(buffer);
  size_t left = length;
  while (output.error == 0 && left > 0) {
    const ssize_t count = ::write(output.fd, bytes, left);
    if (count < 0 && errno == EINTR)
      continue;
    if (count <= 0) {
      output.error = count < 0 ? errno : EIO;
      break;
    }
    bytes += count;
    left -= static_cast<size_t>(count);
  }
  return static_cast<la_ssize_t>(length);
}

bool endsWith(const std::string& text, const std::string& tail) {
  return text.size() >= tail.size() &&
         text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

}  // namespace

ArchiveFormat extractArchive(const fs::path& archivePath, const fs::path& root) {
  const std::string name = archivePath.string();
  const Utf8LocaleScope utf8;  // outlives the archive object below
  std::unique_ptr<archive, ReadCloser> a(archive_read_new());
  if (!a)
    throw Exception(name + ": out of memory");
  archive_read_support_filter_all(a.get());
  // Real archive containers only: a file list (mtree) would pull in files it names on disk,
  // and would take any one-word text for a list.
  for (auto* support : {archive_read_support_format_7zip, archive_read_support_format_ar,
                        archive_read_support_format_cab, archive_read_support_format_cpio,
                        archive_read_support_format_iso9660, archive_read_support_format_lha,
                        archive_read_support_format_rar, archive_read_support_format_rar5,
                        archive_read_support_format_tar, archive_read_support_format_xar,
                        archive_read_support_format_zip})
    support(a.get());
  // Opening already runs the format detection, so it fails like a first header would.
  if (archive_read_open_filename(a.get(), archivePath.c_str(), 64 * 1024) != ARCHIVE_OK)
    throwReadFailure(a.get(), name);

  for (;;) {
    archive_entry* entry = nullptr;
    const int r = archive_read_next_header(a.get(), &entry);
    if (r == ARCHIVE_EOF)
      break;
    if (r < ARCHIVE_WARN)
      throwReadFailure(a.get(), name);

    const char* rawPath = archive_entry_pathname_utf8(entry);
    if (!rawPath)
      rawPath = archive_entry_pathname(entry);
    // Another tool's metadata is no part of the project; skipped unread, it can do no harm.
    if (rawPath && holdsForeignMetadata(rawPath))
      continue;
    if (archive_entry_hardlink(entry) || archive_entry_filetype(entry) == AE_IFLNK)
      throw CorruptedFile(name + ": entry \"" + std::string(rawPath ? rawPath : "") +
                          "\" is a link");
    const std::string relative = safeEntryPath(name, rawPath);
    const auto type = archive_entry_filetype(entry);
    if (type != AE_IFREG && type != AE_IFDIR)
      throw CorruptedFile(name + ": entry \"" + relative + "\" is not a file or directory");
    if (relative.empty())
      continue;  // the archive's own top directory

    const fs::path target = root / relative;
    std::error_code error;
    if (type == AE_IFDIR) {
      fs::create_directories(target, error);
      if (error || !fs::is_directory(target))
        throwWriteFailure(name, target, error ? error.value() : ENOTDIR);
      continue;
    }
    fs::create_directories(target.parent_path(), error);
    if (error)
      throwWriteFailure(name, target, error.value());
    extractData(a.get(), name, target,
                archive_entry_size_is_set(entry) ? archive_entry_size(entry) : 0);
  }
  // libarchive takes a zero-byte file for an empty archive; nobody means that by it.
  if ((archive_format(a.get()) & ARCHIVE_FORMAT_BASE_MASK) == ARCHIVE_FORMAT_EMPTY)
    throw UnsupportedFormat(name + ": empty file");
  const ArchiveFormat format = formatOf(a.get());
  if (archive_read_close(a.get()) < ARCHIVE_WARN)
    throw CorruptedFile(name + ": " + reason(a.get()));
  return format;
}

std::vector<ArchiveItem> archiveItems(const Changes& view, const std::string& wrapper) {
  const std::vector<Listed> entries = listTree(view, std::string(), true);
  std::vector<ArchiveItem> items;
  items.reserve(entries.size() + 1);
  if (!wrapper.empty())
    items.push_back({wrapper, std::string(), true});
  for (const Listed& entry : entries)
    items.push_back({joinPath(wrapper, entry.name), entry.name, entry.dir});
  return items;
}

void writeArchive(const Changes& view, const fs::path& target, ArchiveFormat format,
                  const std::string& wrapper) {
  const std::string name = target.string();
  const Utf8LocaleScope utf8;  // outlives the archive object below
  std::unique_ptr<archive, WriteCloser> a(archive_write_new());
  if (!a)
    throw Exception(name + ": out of memory");
  int r = archive_write_set_format_pax_restricted(a.get());
  if (r == ARCHIVE_OK && format == ArchiveFormat_TarGz)
    r = archive_write_add_filter_gzip(a.get());
  else if (r == ARCHIVE_OK && format == ArchiveFormat_TarBz2)
    r = archive_write_add_filter_bzip2(a.get());
  else if (r == ARCHIVE_OK && format == ArchiveFormat_TarXz)
    r = archive_write_add_filter_xz(a.get());
  if (r != ARCHIVE_OK)
    throw UnsupportedFormat(name + ": " + reason(a.get()));

  const int fd = ::open(target.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
  if (fd < 0)
    throwSystemError("Could not write " + name, std::error_code(errno, std::generic_category()));
  struct FdCloser {
    int fd;
    ~FdCloser() { ::close(fd); }
  } fdCloser{fd};
  OutputFile output{fd, 0};
  archive_write_set_bytes_in_last_block(a.get(), 1);  // a file needs no tape padding
  if (archive_write_open2(a.get(), &output, nullptr, writeToOutput, nullptr, nullptr) != ARCHIVE_OK)
    throw Exception("Could not write " + name + ": " + reason(a.get()));

  std::unique_ptr<archive_entry, void (*)(archive_entry*)> entry(archive_entry_new(),
                                                                 archive_entry_free);
  const time_t now = ::time(nullptr);
  // Entries in byte-wise order, so that the same project always gives the same archive.
  const std::vector<ArchiveItem> items = archiveItems(view, wrapper);
  for (std::size_t i = 0; i < items.size(); ++i) {
    const ArchiveItem& item = items[i];
    if (output.error)
      break;  // the archive is closed below, then the failure reported
    std::optional<std::string> bytes;
    if (!item.dir) {
      bytes = view.read(item.path);
      if (!bytes)
        throw Exception("Could not read " + item.path + " to save it");
    }
    archive_entry_clear(entry.get());
    archive_entry_set_pathname_utf8(entry.get(),
                                    item.dir ? (item.name + "/").c_str() : item.name.c_str());
    archive_entry_set_filetype(entry.get(), item.dir ? AE_IFDIR : AE_IFREG);
    archive_entry_set_perm(entry.get(), item.dir ? 0755 : 0644);
    archive_entry_set_size(entry.get(), bytes ? static_cast<la_int64_t>(bytes->size()) : 0);
    archive_entry_set_mtime(entry.get(), now, 0);
    if (archive_write_header(a.get(), entry.get()) < ARCHIVE_WARN)
      throw Exception("Could not write " + name + ": " + reason(a.get()));
    if (bytes && !bytes->empty() && archive_write_data(a.get(), bytes->data(), bytes->size()) < 0)
      throw Exception("Could not write " + name + ": " + reason(a.get()));
    ProgressScope::report(i + 1, items.size());
  }
  if (archive_write_close(a.get()) != ARCHIVE_OK)
    throw Exception("Could not write " + name + ": " + reason(a.get()));
  if (output.error)
    throwSystemError("Could not write " + name,
                     std::error_code(output.error, std::generic_category()));
  // The new archive must be on disk before it replaces the old one.
  if (io::sync(fd) != 0)
    throwSystemError("Could not write " + name, std::error_code(errno, std::generic_category()));
}

ArchiveFormat formatFromFileName(const std::string& fileName) {
  std::string lower = fileName;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (endsWith(lower, ".zip"))
    return ArchiveFormat_Zip;
  if (endsWith(lower, ".tar"))
    return ArchiveFormat_Tar;
  if (endsWith(lower, ".tar.gz") || endsWith(lower, ".tgz"))
    return ArchiveFormat_TarGz;
  if (endsWith(lower, ".tar.bz2") || endsWith(lower, ".tbz2"))
    return ArchiveFormat_TarBz2;
  if (endsWith(lower, ".tar.xz") || endsWith(lower, ".txz"))
    return ArchiveFormat_TarXz;
  return ArchiveFormat_Auto;
}

}  // namespace detail
}  // namespace project
}  // namespace zu
