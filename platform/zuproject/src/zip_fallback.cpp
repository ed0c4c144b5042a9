#include "zip_fallback.h"

#include <archive.h>
#include <archive_entry.h>

#include <memory>

namespace zu {
namespace project {
namespace detail {

namespace {

struct SourceFree {
  void operator()(zip_source_t* source) const { zip_source_free(source); }
};
struct ReadFree {
  void operator()(archive* a) const { archive_read_free(a); }
};

// A zip in memory holding just that entry, its data copied as stored.
std::optional<std::string> singleEntryZip(zip_t* source, zip_uint64_t index, std::string& error) {
  zip_error_t reason;
  zip_error_init(&reason);
  std::unique_ptr<zip_source_t, SourceFree> buffer(
      zip_source_buffer_create(nullptr, 0, 0, &reason));
  zip_t* single = buffer ? zip_open_from_source(buffer.get(), ZIP_TRUNCATE, &reason) : nullptr;
  if (!single) {
    error = zip_error_strerror(&reason);
    zip_error_fini(&reason);
    return std::nullopt;
  }
  zip_error_fini(&reason);
  zip_source_keep(buffer.get());  // the archive would free it on closing
  zip_source_t* data = zip_source_zip(single, source, index, ZIP_FL_COMPRESSED, 0, -1);
  if (!data || zip_file_add(single, "entry", data, 0) < 0 || zip_close(single) != 0) {
    error = zip_strerror(single);
    if (data)
      zip_source_free(data);
    zip_discard(single);
    return std::nullopt;
  }
  zip_stat_t info;
  std::string bytes;
  if (zip_source_open(buffer.get()) == 0) {
    if (zip_source_stat(buffer.get(), &info) == 0 && (info.valid & ZIP_STAT_SIZE)) {
      bytes.resize(static_cast<std::size_t>(info.size));
      if (zip_source_read(buffer.get(), bytes.data(), info.size) !=
          static_cast<zip_int64_t>(info.size))
        bytes.clear();
    }
    zip_source_close(buffer.get());
  }
  if (bytes.empty()) {
    error = zip_error_strerror(zip_source_error(buffer.get()));
    return std::nullopt;
  }
  return bytes;
}

}  // namespace

bool fallbackDecompresses(int method) {
  // bzip2, LZMA, XZ and PPMd, as libarchive's zip reader knows them.
  return method == 12 || method == 14 || method == 95 || method == 98;
}

std::optional<std::string> readThroughFallback(zip_t* source, zip_uint64_t index,
                                               std::uint64_t size, std::string& error) {
  const std::optional<std::string> single = singleEntryZip(source, index, error);
  if (!single)
    return std::nullopt;
  std::unique_ptr<archive, ReadFree> reader(archive_read_new());
  archive_entry* entry = nullptr;
  if (!reader || archive_read_support_format_zip(reader.get()) != ARCHIVE_OK ||
      archive_read_open_memory(reader.get(), single->data(), single->size()) != ARCHIVE_OK ||
      archive_read_next_header(reader.get(), &entry) < ARCHIVE_WARN) {
    error = reader && archive_error_string(reader.get()) ? archive_error_string(reader.get())
                                                         : "not readable by libarchive";
    return std::nullopt;
  }
  std::string data(static_cast<std::size_t>(size) + 1, '\0');  // a byte more shows excess
  std::size_t done = 0;
  for (;;) {
    const la_ssize_t count = archive_read_data(reader.get(), &data[done], data.size() - done);
    if (count < 0) {
      error = archive_error_string(reader.get());  // a checksum mismatch, or damaged data
      return std::nullopt;
    }
    if (count == 0 || (done += static_cast<std::size_t>(count)) == data.size())
      break;
  }
  if (done != size) {
    error = "its size differs from what its header declares";
    return std::nullopt;
  }
  data.resize(done);
  return data;
}

}  // namespace detail
}  // namespace project
}  // namespace zu
