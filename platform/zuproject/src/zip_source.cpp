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
      throw UnsupportedFormat(text);
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
    }
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

Kind ZipSource::kind(const std::string& path) {
  std::lock_guard<std::mutex> lock(m_mutex);
  const auto found = m_entries.find(path);
  return found == m_entries.end() ? Kind::None : found->second.dir ? Kind::Dir : Kind::File;
}

std::vector<std::string> ZipSource::changedOnDisk() {
  if (stampAt(m_path) == m_stamp)
    return {};
  return {m_path};
}

zip_int64_t ZipSource::entryIndex(const std::string& path) {
  std::lock_guard<std::mutex> lock(m_mutex);
  const auto found = m_entries.find(path);
  return found == m_entries.end() || found->second.dir ? -1 : found->second.index;
}

std::optional<std::string> ZipSource::read(const std::string& path) {
  std::lock_guard<std::mutex> lock(m_mutex);
  const auto found = m_entries.find(path);
  if (found == m_entries.end() || found->second.dir || found->second.size > kMaxFileSize)
    return std::nullopt;
  zip_file_t* file = zip_fopen_index(m_archive, static_cast<zip_uint64_t>(found->second.index), 0);
  if (!file)
    return std::nullopt;
  // One byte more than declared shows data longer than the header says; libzip checks
  // the CRC when the data ends.
  std::string data(static_cast<std::size_t>(found->second.size) + 1, '\0');
  std::size_t done = 0;
  bool ok = true;
  for (;;) {
    const zip_int64_t count = zip_fread(file, &data[done], data.size() - done);
    if (count < 0)
      ok = false;
    if (count <= 0)
      break;
    done += static_cast<std::size_t>(count);
    if (done == data.size())
      break;
  }
  ok = zip_fclose(file) == 0 && ok;
  if (!ok || done != found->second.size)
    return std::nullopt;
  data.resize(done);
  return data;
}

std::vector<Listed> ZipSource::list(const std::string& dir) {
  std::vector<Listed> entries;
  std::lock_guard<std::mutex> lock(m_mutex);
  const auto found = m_entries.find(dir);
  if (found == m_entries.end() || !found->second.dir)
    return entries;
  entries.reserve(found->second.children.size());
  for (const std::string* child : found->second.children)
    entries.push_back({splitLast(*child).second, m_entries.find(*child)->second.dir});
  return entries;
}

}  // namespace detail
}  // namespace project
}  // namespace zu
