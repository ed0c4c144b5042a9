#include "zip_source.h"

#include "beneath.h"
#include "paths.h"

#include <zu/project/exceptions.h>

#include <sys/stat.h>
#include <cerrno>

namespace zu {
namespace project {
namespace detail {

namespace {

[[noreturn]] void refuse(const std::string& archive, const std::string& name, const char* why) {
  throw CorruptedFile(archive + ": entry \"" + name + "\" " + why);
}

// The normal form of an entry's name, refusing any that could land outside the project.
std::string checkedName(const std::string& archive, const std::string& name, bool* dir) {
  if (name.empty())
    throw CorruptedFile(archive + ": an entry has no name");
  if (name.find('\\') != std::string::npos)
    refuse(archive, name, "has a backslash");
  if (name.front() == '/')
    refuse(archive, name, "has an absolute path");
  if (name.size() >= 2 && name[1] == ':')
    refuse(archive, name, "names a drive");
  const std::optional<std::string> normal = normalizeSteps(name, false);
  if (!normal)
    refuse(archive, name, "leaves the archive");
  if (!normal->empty() && isWithin(*normal, kPendingName))
    refuse(archive, name, "has a reserved name");
  *dir = name.back() == '/';
  return *normal;
}

std::string methodName(zip_uint16_t method) {
  static const std::pair<zip_uint16_t, const char*> kNames[] = {
      {1, "Shrink"},     {2, "Reduce"},  {3, "Reduce"},     {4, "Reduce"},
      {5, "Reduce"},     {6, "Implode"}, {9, "Deflate64"},  {10, "PKWARE DCL Implode"},
      {12, "bzip2"},     {14, "LZMA"},   {18, "IBM TERSE"}, {19, "IBM LZ77"},
      {93, "Zstandard"}, {95, "XZ"},     {96, "JPEG"},      {97, "WavPack"},
      {98, "PPMd"}};
  const std::string number = "method " + std::to_string(method);
  for (const auto& [code, name] : kNames) {
    if (code == method)
      return std::string(name) + " (" + number + ")";
  }
  return number;
}

std::string libzipError(int code) {
  zip_error_t error;
  zip_error_init_with_code(&error, code);
  const std::string text = zip_error_strerror(&error);
  zip_error_fini(&error);
  return text;
}

}  // namespace

ZipSource::ZipSource(const std::string& path) : m_path(path), m_stamp(stampAt(path)) {
  int error = 0;
  m_archive = zip_open(path.c_str(), ZIP_RDONLY, &error);
  if (!m_archive) {
    zip_error_t reason;
    zip_error_init_with_code(&reason, error);
    const std::string text = path + ": " + zip_error_strerror(&reason);
    const int system = zip_error_code_system(&reason);
    zip_error_fini(&reason);
    if (error == ZIP_ER_NOZIP)
      throw NotZip(text);
    if (error == ZIP_ER_NOENT)
      throw PathNotFound(path);
    if (error == ZIP_ER_OPEN || error == ZIP_ER_READ || error == ZIP_ER_MEMORY ||
        error == ZIP_ER_SEEK)
      throwSystemError("Could not read " + path,
                       std::error_code(system ? system : EIO, std::generic_category()));
    throw CorruptedFile(text);
  }
  try {
    insert("", true);
    const zip_int64_t count = zip_get_num_entries(m_archive, 0);
    m_entries.reserve(static_cast<std::size_t>(count) + 1);
    for (zip_int64_t i = 0; i < count; ++i) {
      const char* raw = zip_get_name(m_archive, static_cast<zip_uint64_t>(i), 0);
      const std::string name = raw ? raw : "";
      // Another tool's metadata is no part of the project; skipped unread, it can do no harm.
      if (holdsForeignMetadata(name))
        continue;
      bool dir = false;
      const std::string normal = checkedName(path, name, &dir);
      zip_uint8_t system = 0;
      zip_uint32_t attributes = 0;
      if (zip_file_get_external_attributes(m_archive, static_cast<zip_uint64_t>(i), 0, &system,
                                           &attributes) == 0 &&
          system == ZIP_OPSYS_UNIX) {
        const mode_t type = (attributes >> 16) & S_IFMT;
        if (type == S_IFLNK)
          refuse(path, name, "is a link");
        if (type != 0 && type != S_IFREG && type != S_IFDIR)
          refuse(path, name, "is not a file or directory");
        dir = dir || type == S_IFDIR;
      }
      if (normal.empty()) {
        if (!dir)
          throw CorruptedFile(path + ": an entry has no name");
        continue;  // the archive's own top directory
      }
      zip_stat_t info;
      zip_stat_init(&info);
      if (zip_stat_index(m_archive, static_cast<zip_uint64_t>(i), 0, &info) != 0)
        throw CorruptedFile(path + ": " + zip_strerror(m_archive));
      const bool known = m_entries.count(normal) != 0;
      Entry& entry = insert(normal, dir);
      if (known && (!dir || entry.index >= 0))
        refuse(path, name, "is stored twice");
      entry.index = i;
      entry.size = (info.valid & ZIP_STAT_SIZE) ? info.size : 0;
      entry.fallback = !dir && readsThroughFallback(info, name);
    }
    m_wrapper = findWrapper(list(std::string()), [this](const std::string& path) {
      const auto found = m_entries.find(path);
      return found != m_entries.end() && !found->second.dir;
    });
    if (!m_wrapper.empty() && m_entries.count(m_wrapper + '/' + kPendingName))
      refuse(path, m_wrapper + '/' + kPendingName, "has a reserved name");
  } catch (...) {
    zip_discard(m_archive);
    throw;
  }
}

ZipSource::~ZipSource() {
  zip_discard(m_archive);
}

ZipSource::Entry& ZipSource::insert(const std::string& path, bool dir) {
  auto found = m_entries.find(path);
  if (found != m_entries.end()) {
    if (found->second.dir != dir)
      throw CorruptedFile(m_path + ": entries conflict at \"" + path + "\"");
    return found->second;
  }
  if (!path.empty()) {
    Entry& parent = insert(splitLast(path).first, true);
    found = m_entries.emplace(path, Entry()).first;
    parent.children.push_back(&found->first);
  } else {
    found = m_entries.emplace(path, Entry()).first;
  }
  found->second.dir = dir;
  return found->second;
}

bool ZipSource::readsThroughFallback(const zip_stat_t& info, const std::string& name) {
  // Refused at once: read as missing, the entry would be lost by the first save.
  if ((info.valid & ZIP_STAT_ENCRYPTION_METHOD) && info.encryption_method != ZIP_EM_NONE)
    throw UnsupportedFormat(m_path + ": entry \"" + name + "\" is encrypted");
  if (!(info.valid & ZIP_STAT_COMP_METHOD) || zip_compression_method_supported(info.comp_method, 0))
    return false;
  if (!fallbackDecompresses(info.comp_method))
    throw UnsupportedFormat(m_path + ": entry \"" + name + "\" is compressed with " +
                            methodName(info.comp_method) + ", which cannot be read");
  return true;
}

const ZipSource::Entry* ZipSource::find(const std::string& path) const {
  const auto found = m_wrapper.empty() ? m_entries.find(path)
                     : path.empty()    ? m_entries.find(m_wrapper)
                                       : m_entries.find(m_wrapper + '/' + path);
  return found == m_entries.end() ? nullptr : &found->second;
}

// The entries are fixed once the archive is read: only the handle needs the lock.
Kind ZipSource::kind(const std::string& path) {
  const Entry* entry = find(path);
  return !entry ? Kind::None : entry->dir ? Kind::Dir : Kind::File;
}

std::vector<std::string> ZipSource::changedOnDisk() {
  if (stampAt(m_path) == m_stamp)
    return {};
  return {m_path};
}

zip_int64_t ZipSource::entryIndex(const std::string& path) {
  const Entry* entry = find(path);
  return !entry || entry->dir ? -1 : entry->index;
}

std::optional<std::string> ZipSource::read(const std::string& path) {
  const Entry* entry = find(path);
  if (!entry || entry->dir)
    return std::nullopt;
  std::lock_guard<std::mutex> lock(m_mutex);
  std::string error;
  std::optional<std::string> bytes = readEntry(*entry, error);
  if (!bytes)
    noteReadFailure("entry \"" + path + "\" could not be read: " + error);
  return bytes;
}

std::optional<std::string> ZipSource::readEntry(const Entry& entry, std::string& error) {
  if (entry.size > kMaxFileSize) {
    error = "larger than a project file may be";
    return std::nullopt;
  }
  const auto index = static_cast<zip_uint64_t>(entry.index);
  if (entry.fallback)
    return readThroughFallback(m_archive, index, entry.size, error);
  zip_file_t* file = zip_fopen_index(m_archive, index, 0);
  if (!file) {
    error = zip_strerror(m_archive);
    return std::nullopt;
  }
  // One byte more than declared shows data longer than the header says; libzip checks
  // the CRC when the data ends.
  std::string data(static_cast<std::size_t>(entry.size) + 1, '\0');
  std::size_t done = 0;
  for (;;) {
    const zip_int64_t count = zip_fread(file, &data[done], data.size() - done);
    if (count < 0)
      error = zip_file_strerror(file);
    if (count <= 0)
      break;
    done += static_cast<std::size_t>(count);
    if (done == data.size())
      break;
  }
  const int closed = zip_fclose(file);
  if (error.empty() && closed != 0)
    error = libzipError(closed);
  if (error.empty() && done != entry.size)
    error = "its size differs from what its header declares";
  if (!error.empty())
    return std::nullopt;
  data.resize(done);
  return data;
}

std::vector<Listed> ZipSource::list(const std::string& dir) {
  std::vector<Listed> entries;
  const Entry* found = find(dir);
  if (!found || !found->dir)
    return entries;
  entries.reserve(found->children.size());
  for (const std::string* child : found->children)
    entries.push_back({splitLast(*child).second, m_entries.find(*child)->second.dir});
  return entries;
}

}  // namespace detail
}  // namespace project
}  // namespace zu
