#include "zip_commit.h"

#include "archive_io.h"
#include "beneath.h"
#include "changes.h"
#include "file_io.h"
#include "paths.h"
#include "zip_source.h"

#include <zu/project/exceptions.h>
#include <zu/project/progress_scope.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>
#include <ctime>

namespace zu {
namespace project {
namespace detail {

namespace {

// A file's bytes, read from the view only while libzip writes that entry.
struct LazyFile {
  const Changes* view;
  std::string path;
  std::optional<std::string> bytes;
  std::size_t position = 0;
  zip_error_t error;
};

bool load(LazyFile& file) {
  if (!file.bytes)
    file.bytes = file.view->read(file.path);
  if (!file.bytes)
    zip_error_set(&file.error, ZIP_ER_READ, EIO);
  return file.bytes.has_value();
}

zip_int64_t lazyCallback(void* state, void* data, zip_uint64_t length, zip_source_cmd_t command) {
  LazyFile& file = *static_cast<LazyFile*>(state);
  switch (command) {
    case ZIP_SOURCE_OPEN: file.position = 0; return load(file) ? 0 : -1;
    case ZIP_SOURCE_READ: {
      if (!load(file))
        return -1;
      const std::size_t count = std::min<std::size_t>(static_cast<std::size_t>(length),
                                                      file.bytes->size() - file.position);
      std::memcpy(data, file.bytes->data() + file.position, count);
      file.position += count;
      return static_cast<zip_int64_t>(count);
    }
    case ZIP_SOURCE_CLOSE: file.bytes.reset(); return 0;
    case ZIP_SOURCE_STAT: {
      if (!load(file))
        return -1;
      auto* info = static_cast<zip_stat_t*>(data);
      zip_stat_init(info);
      info->size = file.bytes->size();
      info->mtime = ::time(nullptr);
      info->valid |= ZIP_STAT_SIZE | ZIP_STAT_MTIME;
      return sizeof(zip_stat_t);
    }
    case ZIP_SOURCE_ERROR: return zip_error_to_data(&file.error, data, length);
    case ZIP_SOURCE_FREE:
      zip_error_fini(&file.error);
      delete &file;
      return 0;
    case ZIP_SOURCE_SUPPORTS:
      return zip_source_make_command_bitmap(ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE,
                                            ZIP_SOURCE_STAT, ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE, -1);
    default: zip_error_set(&file.error, ZIP_ER_OPNOTSUPP, 0); return -1;
  }
}

zip_source_t* sourceFor(zip_t* archive, const Changes& view, const std::string& path) {
  const Place place = view.resolve(path);
  auto* zip = dynamic_cast<ZipSource*>(place.under.get());
  const bool unchanged = zip && place.local.empty() && !(place.node && place.node->blob);
  const zip_int64_t index = unchanged ? zip->entryIndex(place.underPath) : -1;
  if (index >= 0)
    return zip_source_zip(archive, zip->archive(), static_cast<zip_uint64_t>(index),
                          ZIP_FL_COMPRESSED, 0, -1);
  auto* file = new LazyFile{&view, path, std::nullopt, 0, zip_error_t()};
  zip_error_init(&file->error);
  zip_source_t* source = zip_source_function(archive, lazyCallback, file);
  if (!source) {
    zip_error_fini(&file->error);
    delete file;
  }
  return source;
}

// libzip does the writing in zip_close() and tells how far it got as a share.
void reportShare(zip_t*, double share, void* entries) {
  const std::size_t total = *static_cast<const std::size_t*>(entries);
  ProgressScope::report(static_cast<std::size_t>(share * static_cast<double>(total)), total);
}

}  // namespace

void writeZip(const Changes& view, const fs::path& target, const std::string& wrapper) {
  const std::string name = target.string();
  int code = 0;
  zip_t* archive = zip_open(target.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &code);
  if (!archive) {
    zip_error_t error;
    zip_error_init_with_code(&error, code);
    const std::string text = zip_error_strerror(&error);
    zip_error_fini(&error);
    throw Exception("Could not write " + name + ": " + text);
  }
  auto fail = [&](const std::string& what) {
    const std::string text = what + ": " + zip_strerror(archive);
    zip_discard(archive);
    throw Exception("Could not write " + name + ": " + text);
  };
  const std::vector<ArchiveItem> items = archiveItems(view, wrapper);
  std::size_t total = items.size();
  zip_register_progress_callback_with_state(archive, 0.001, reportShare, nullptr, &total);
  for (const ArchiveItem& item : items) {
    zip_int64_t index;
    if (item.dir) {
      index = zip_dir_add(archive, item.name.c_str(), ZIP_FL_ENC_UTF_8);
    } else {
      zip_source_t* source = sourceFor(archive, view, item.path);
      if (!source)
        fail(item.name);
      index = zip_file_add(archive, item.name.c_str(), source, ZIP_FL_ENC_UTF_8);
      if (index < 0)
        zip_source_free(source);
    }
    const zip_uint32_t mode = item.dir ? (S_IFDIR | 0755) : (S_IFREG | 0644);
    if (index < 0 || zip_file_set_external_attributes(archive, static_cast<zip_uint64_t>(index), 0,
                                                      ZIP_OPSYS_UNIX, mode << 16) != 0)
      fail(item.name);
  }
  if (zip_close(archive) != 0)
    fail("closing");
  // libzip leaves no file at all for an archive without entries; an empty one is meant.
  struct stat info;
  if (::stat(target.c_str(), &info) != 0 && errno == ENOENT) {
    static const char kEmptyZip[22] = {'P', 'K', 5, 6};
    const int fd = ::open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    const bool ok = fd >= 0 && writeAll(fd, kEmptyZip, sizeof kEmptyZip);
    if (fd >= 0)
      ::close(fd);
    if (!ok)
      throwSystemError("Could not write " + name, std::error_code(errno, std::generic_category()));
  }
  // libzip leaves the file unsynced; it must be on disk before it replaces anything.
  const int fd = ::open(target.c_str(), O_RDONLY | O_CLOEXEC);
  const bool synced = fd >= 0 && io::sync(fd) == 0;
  const std::error_code reason(errno, std::generic_category());
  if (fd >= 0)
    ::close(fd);
  if (!synced)
    throwSystemError("Could not write " + name, reason);
}

}  // namespace detail
}  // namespace project
}  // namespace zu
