#include "zip_fallback.h"

#include "archive_io.h"
#include "source.h"

#include <archive.h>
#include <archive_entry.h>

#include <algorithm>

namespace zu {
namespace project {
namespace detail {

namespace {
// Box files and listings are small; what is larger is read when asked for.
constexpr std::uint64_t kKeptEntryLimit = 1024 * 1024;
constexpr std::uint64_t kKeptTotalLimit = 64 * 1024 * 1024;

std::string reason(archive* a) {
  const char* text = archive_error_string(a);
  return text ? text : "unknown archive error";
}
}  // namespace

ZipFallback::ZipFallback(std::string archivePath) : m_path(std::move(archivePath)) {}

ZipFallback::~ZipFallback() {
  close();
}

bool ZipFallback::decompresses(int method) {
  // bzip2, LZMA, XZ and PPMd, as libarchive's zip reader knows them.
  return method == 12 || method == 14 || method == 95 || method == 98;
}

void ZipFallback::expect(const std::string& storedName, std::uint64_t size) {
  m_expected[storedName].size = size;
}

bool ZipFallback::open(std::string& error) {
  m_archive = archive_read_new();
  if (!m_archive) {
    error = "out of memory";
    return false;
  }
  // The seekable reader walks the central directory and seeks past what it skips.
  archive_read_support_format_zip_seekable(m_archive);
  if (archive_read_open_filename(m_archive, m_path.c_str(), 64 * 1024) != ARCHIVE_OK) {
    error = reason(m_archive);
    close();
    return false;
  }
  return true;
}

void ZipFallback::close() {
  if (m_archive)
    archive_read_free(m_archive);
  m_archive = nullptr;
}

std::optional<std::string> ZipFallback::readData(std::uint64_t size, std::string& error) {
  std::string data;
  data.reserve(static_cast<std::size_t>(std::min(size, kMaxFileSize)));
  char buffer[64 * 1024];
  for (;;) {
    const la_ssize_t count = archive_read_data(m_archive, buffer, sizeof buffer);
    if (count < 0) {
      error = reason(m_archive);  // a CRC mismatch, or damaged data
      return std::nullopt;
    }
    if (count == 0)
      break;
    if (data.size() + static_cast<std::size_t>(count) > size) {
      error = "more data than its header declares";
      return std::nullopt;
    }
    data.append(buffer, static_cast<std::size_t>(count));
  }
  if (data.size() != size) {
    error = "less data than its header declares";
    return std::nullopt;
  }
  return data;
}

std::optional<std::string> ZipFallback::read(const std::string& storedName, std::string& error) {
  const auto wanted = m_expected.find(storedName);
  if (wanted == m_expected.end()) {
    error = "no such entry";
    return std::nullopt;
  }
  if (wanted->second.kept) {
    std::optional<std::string> bytes = std::move(wanted->second.kept);
    wanted->second.kept.reset();
    m_keptBytes -= bytes->size();
    return bytes;
  }
  if (wanted->second.size > kMaxFileSize) {
    error = "larger than a project file may be";
    return std::nullopt;
  }
  const Utf8LocaleScope utf8;
  // From where the last read stopped to the end, then once from the start.
  bool fromStart = !m_archive;
  for (;;) {
    if (!m_archive && !open(error))
      return std::nullopt;
    archive_entry* entry = nullptr;
    const int r = archive_read_next_header(m_archive, &entry);
    if (r == ARCHIVE_EOF) {
      close();
      if (fromStart)
        break;
      fromStart = true;
      continue;
    }
    if (r < ARCHIVE_WARN) {
      error = reason(m_archive);
      close();
      return std::nullopt;
    }
    const char* name = archive_entry_pathname(entry);
    const auto found = m_expected.find(name ? name : "");
    if (found == wanted) {
      std::optional<std::string> bytes = readData(wanted->second.size, error);
      if (!bytes)
        close();
      return bytes;
    }
    Expected* other = found == m_expected.end() ? nullptr : &found->second;
    if (other && !other->kept && !other->unkeepable && other->size <= kKeptEntryLimit &&
        m_keptBytes + other->size <= kKeptTotalLimit) {
      std::string ignored;  // it is read again, and its failure told, when asked for
      other->kept = readData(other->size, ignored);
      if (other->kept) {
        m_keptBytes += other->size;
      } else {
        // The reader may be lost inside that entry: start over, passing it by.
        other->unkeepable = true;
        close();
        fromStart = true;
      }
    }
  }
  error = "not found where its central directory says";
  return std::nullopt;
}

}  // namespace detail
}  // namespace project
}  // namespace zu
