#include <zu/project/project_model.h>

#include <zu/project/project.h>

#include "archive_io.h"
#include "paths.h"

#include <QDir>
#include <QTemporaryDir>

#include <algorithm>
#include <cstring>
#include <vector>

namespace zu {
namespace project {

using namespace detail;

struct ProjectModel::Private {
  QTemporaryDir workingCopy{QDir::tempPath() + "/zuproject-XXXXXX"};
  fs::path root;
  QString sourcePath;
  ArchiveFormat sourceFormat = ArchiveFormat_Auto;

  Private() {
    if (!workingCopy.isValid())
      throw Exception("Could not create a working directory: " + toUtf8(workingCopy.errorString()));
    root = diskPath(workingCopy.path());
  }

  fs::path local(const std::string& normalized) const {
    return normalized.empty() ? root : root / normalized;
  }

  // The normal form of a path for an operation that changes something.
  static std::string checked(const QString& path) {
    std::optional<std::string> normalized = normalizeModelPath(path);
    if (!normalized)
      throw PathNotFound(toUtf8(path));
    return *normalized;
  }

  void clear() {
    std::error_code error;
    for (fs::directory_iterator it(root, error), end; !error && it != end; it.increment(error)) {
      std::error_code ignored;
      fs::remove_all(it->path(), ignored);
    }
  }
};

ProjectModel::ProjectModel(QObject* parent) : QObject(parent), d(new Private) {}

ProjectModel::ProjectModel(const ProjectModel& other) : QObject(nullptr), d(new Private) {
  copyTree(other.d->root, d->root);
  d->sourcePath = other.d->sourcePath;
  d->sourceFormat = other.d->sourceFormat;
}

ProjectModel::~ProjectModel() {
  // std::filesystem removes a tree with fewer system calls than QTemporaryDir, which stats
  // every entry first; it then only has the empty top left to remove.
  d->clear();
}

void ProjectModel::load(const QString& path, ArchiveFormat format) {
  d->clear();
  d->sourcePath.clear();
  d->sourceFormat = ArchiveFormat_Auto;
  const fs::path source = absoluteDiskPath(diskPath(path));
  try {
    std::error_code error;
    const fs::file_status status = fs::status(source, error);
    if (path.isEmpty() || !fs::exists(status))
      throw PathNotFound(toUtf8(path));
    ArchiveFormat loaded;
    if (fs::is_directory(status)) {
      if (format != ArchiveFormat_Auto && format != ArchiveFormat_Current &&
          format != ArchiveFormat_Directory)
        throw UnsupportedFormat(toUtf8(path) + ": a directory, not an archive");
      copyTree(source, d->root);
      loaded = ArchiveFormat_Directory;
    } else {
      if (format == ArchiveFormat_Directory)
        throw UnsupportedFormat(toUtf8(path) + ": not a directory");
      loaded = extractArchive(source, d->root);
    }
    d->sourcePath = fromDiskPath(source);
    d->sourceFormat = loaded;
  } catch (...) {
    d->clear();  // nothing half-loaded stays
    throw;
  }
}

void ProjectModel::save(const QString& path, ArchiveFormat format, bool overwrite) {
  const QString targetText = path.isEmpty() ? d->sourcePath : path;
  if (targetText.isEmpty())
    throw Exception("The project has no source path to save to");
  const fs::path target = absoluteDiskPath(diskPath(targetText));

  if (format == ArchiveFormat_Current) {
    format = d->sourceFormat;
    if (format == ArchiveFormat_Auto && path.isEmpty())
      throw UnsupportedFormat(target.string() + ": this archive form can be read, not written");
  }
  if (format == ArchiveFormat_Auto) {
    format = formatFromFileName(target.filename().string());
    if (format == ArchiveFormat_Auto) {
      std::error_code ignored;
      format = fs::is_directory(fs::symlink_status(target, ignored)) ? ArchiveFormat_Directory
                                                                     : ArchiveFormat_Zip;
    }
  }
  if (format < ArchiveFormat_Directory || format > ArchiveFormat_Zip)
    throw UnsupportedFormat(target.string() + ": unknown archive format " +
                            std::to_string(static_cast<int>(format)));

  const bool targetExists = existsNoFollow(target);
  if (targetExists && !overwrite)
    throw Exception(target.string() + ": already exists");
  std::error_code error;
  if (!fs::is_directory(target.parent_path(), error))
    throw PathNotFound(target.parent_path().string());

  // The new content is completed beside the target and only then renamed into place,
  // so a failure at any point leaves the previous file or directory as it was.
  const bool directory = format == ArchiveFormat_Directory;
  const fs::path fresh = createSibling(target, directory);
  try {
    if (directory)
      copyTree(d->root, fresh);
    else
      writeArchive(d->root, fresh, format);

    std::error_code ignored;
    const bool replaceInOneStep =
        !targetExists || (!directory && !fs::is_directory(fs::symlink_status(target, ignored)));
    if (replaceInOneStep) {
      fs::rename(fresh, target, error);
      if (error)
        throwSystemError("Could not replace " + target.string(), error);
    } else {
      // A directory cannot be replaced atomically: keep the old one aside until the new one
      // is in place, and put it back if that fails.
      const fs::path old = createSibling(target, true);
      fs::remove(old, ignored);
      fs::rename(target, old, error);
      if (error)
        throwSystemError("Could not replace " + target.string(), error);
      fs::rename(fresh, target, error);
      if (error) {
        fs::rename(old, target, ignored);
        throwSystemError("Could not replace " + target.string(), error);
      }
      fs::remove_all(old, ignored);
    }
  } catch (...) {
    std::error_code ignored;
    fs::remove_all(fresh, ignored);
    throw;
  }
  d->sourcePath = fromDiskPath(target);
  d->sourceFormat = format;
}

QString ProjectModel::getSourcePath() const {
  return d->sourcePath;
}

ArchiveFormat ProjectModel::getSourceFormat() const {
  return d->sourceFormat;
}

QString ProjectModel::getMetadata(const QString& key) const {
  return Project(d->root.native()).metadata(key);
}

void ProjectModel::setMetadata(const QString& key, const QString& value) {
  Project(d->root.native()).setMetadata(key, value);
}

FILE* ProjectModel::fopen(const QString& path, const char* mode) {
  const std::optional<std::string> normalized = normalizeModelPath(path);
  if (!normalized || normalized->empty() || !mode)
    return nullptr;
  const fs::path file = d->local(*normalized);
  std::error_code error;
  const bool creates = std::strchr(mode, 'w') || std::strchr(mode, 'a');
  if (creates)
    fs::create_directories(file.parent_path(), error);
  else if (!fs::is_regular_file(fs::symlink_status(file, error)))
    return nullptr;
  return std::fopen(file.c_str(), mode);
}

bool ProjectModel::hasFile(const QString& path) const {
  const std::optional<std::string> normalized = normalizeModelPath(path);
  std::error_code error;
  return normalized && !normalized->empty() &&
         fs::is_regular_file(fs::symlink_status(d->local(*normalized), error));
}

bool ProjectModel::hasDir(const QString& path) const {
  const std::optional<std::string> normalized = normalizeModelPath(path);
  std::error_code error;
  return normalized && fs::is_directory(fs::symlink_status(d->local(*normalized), error));
}

QStringList ProjectModel::getFileList(const QString& dir, bool includeDirectories,
                                      bool includeFiles, bool recursive) const {
  QStringList result;
  const std::optional<std::string> normalized = normalizeModelPath(dir);
  if (!normalized)
    return result;
  const fs::path base = d->local(*normalized);
  std::error_code error;
  if (!fs::is_directory(fs::symlink_status(base, error)))
    return result;

  std::vector<std::string> names;
  const size_t prefix = base.native().size() + 1;
  auto take = [&](const fs::directory_entry& entry) {
    std::error_code ignored;
    const fs::file_status status = entry.symlink_status(ignored);
    if ((includeDirectories && fs::is_directory(status)) ||
        (includeFiles && fs::is_regular_file(status)))
      names.push_back(entry.path().native().substr(prefix));
  };
  if (recursive) {
    for (fs::recursive_directory_iterator it(base, error), end; !error && it != end;
         it.increment(error))
      take(*it);
  } else {
    for (fs::directory_iterator it(base, error), end; !error && it != end; it.increment(error))
      take(*it);
  }
  std::sort(names.begin(), names.end());  // std::string compares bytes
  result.reserve(static_cast<int>(names.size()));
  for (const std::string& name : names)
    result.append(QString::fromUtf8(name.data(), static_cast<int>(name.size())));
  return result;
}

void ProjectModel::mkdir(const QString& path, bool parents) {
  const std::string normalized = Private::checked(path);
  if (normalized.empty())
    return;
  const fs::path dir = d->local(normalized);
  std::error_code error;
  if (fs::is_directory(fs::symlink_status(dir, error)))
    return;
  if (parents)
    fs::create_directories(dir, error);
  else if (!fs::is_directory(dir.parent_path(), error))
    throw PathNotFound(toUtf8(path));
  else
    fs::create_directory(dir, error);
  if (error || !fs::is_directory(dir, error))
    throwSystemError("Could not create directory " + normalized,
                     error ? error : std::make_error_code(std::errc::file_exists));
}

void ProjectModel::remove(const QString& path) {
  const std::string normalized = Private::checked(path);
  if (normalized.empty()) {
    d->clear();
    return;
  }
  const fs::path target = d->local(normalized);
  if (!existsNoFollow(target))
    throw PathNotFound(toUtf8(path));
  std::error_code error;
  fs::remove_all(target, error);
  if (error)
    throwSystemError("Could not remove " + normalized, error);
}

void ProjectModel::move(const QString& from, const QString& to, bool overwrite) {
  const std::string source = Private::checked(from);
  const std::string target = Private::checked(to);
  if (source.empty() || target.empty())
    throw Exception("The top of a project cannot be moved or replaced");
  const fs::path sourcePath = d->local(source);
  const fs::path targetPath = d->local(target);
  if (!existsNoFollow(sourcePath))
    throw PathNotFound(toUtf8(from));
  if (source == target)
    return;
  if (target.compare(0, source.size() + 1, source + "/") == 0)
    throw Exception("Could not move " + source + " into itself");
  std::error_code error;
  if (existsNoFollow(targetPath)) {
    if (!overwrite)
      throw Exception("Could not move " + source + ": " + target + " already exists");
    fs::remove_all(targetPath, error);
  } else {
    fs::create_directories(targetPath.parent_path(), error);
  }
  if (!error)
    fs::rename(sourcePath, targetPath, error);
  if (error)
    throwSystemError("Could not move " + source + " to " + target, error);
}

void ProjectModel::importFile(const ProjectModel* source, const QString& sourcePath,
                              const QString& destinationPath, bool overwrite) {
  if (!source)
    throw Exception("No project to import from");
  const std::string from = Private::checked(sourcePath);
  const std::string to = Private::checked(destinationPath);
  const fs::path fromPath = source->d->local(from);
  const fs::path toPath = d->local(to);
  std::error_code error;
  const fs::file_status status = fs::symlink_status(fromPath, error);
  if (!fs::is_regular_file(status) && !fs::is_directory(status))
    throw PathNotFound(toUtf8(sourcePath));
  if (source == this) {
    if (from == to)
      return;
    if (fs::is_directory(status) &&
        (from.empty() || to.compare(0, from.size() + 1, from + "/") == 0))
      throw Exception("Could not copy " + from + " into itself");
  }
  const fs::file_status existing = fs::symlink_status(toPath, error);
  if (fs::exists(existing)) {
    if (!overwrite)
      throw Exception("Could not import " + from + ": " + to + " already exists");
    // A file never merges with a directory: the destination takes the source's kind.
    if (fs::is_directory(existing) != fs::is_directory(status)) {
      if (to.empty())
        throw Exception("The top of a project cannot be replaced by a file");
      fs::remove_all(toPath, error);
      if (error)
        throwSystemError("Could not replace " + to, error);
    }
  } else {
    fs::create_directories(toPath.parent_path(), error);
    if (error)
      throwSystemError("Could not create the parent of " + to, error);
  }
  copyTree(fromPath, toPath);
}

void ProjectModel::exportFile(const QString& path, const QString& diskPathText, bool overwrite) {
  const std::string from = Private::checked(path);
  const fs::path fromPath = d->local(from);
  std::error_code error;
  const fs::file_status status = fs::symlink_status(fromPath, error);
  if (!fs::is_regular_file(status) && !fs::is_directory(status))
    throw PathNotFound(toUtf8(path));
  if (diskPathText.isEmpty())
    throw PathNotFound("");
  const fs::path target = absoluteDiskPath(diskPath(diskPathText));
  if (!fs::is_directory(target.parent_path(), error))
    throw PathNotFound(target.parent_path().string());
  const fs::file_status existing = fs::status(target, error);
  if (fs::exists(existing)) {
    if (!overwrite)
      throw Exception("Could not export " + from + ": " + target.string() + " already exists");
    // Never delete what the caller has on disk to make room for another kind of entry.
    if (fs::is_directory(existing) != fs::is_directory(status))
      throw Exception("Could not export " + from + ": " + target.string() +
                      (fs::is_directory(existing) ? " is a directory" : " is not a directory"));
  }
  copyTree(fromPath, target);
}

QByteArray ProjectModel::readFile(const QString& path) const {
  const std::optional<std::string> normalized = normalizeModelPath(path);
  if (!normalized || normalized->empty())
    return QByteArray();
  const fs::path file = d->local(*normalized);
  std::error_code error;
  if (!fs::is_regular_file(fs::symlink_status(file, error)))
    return QByteArray();
  FILE* stream = std::fopen(file.c_str(), "rb");
  if (!stream)
    return QByteArray();
  QByteArray data("");  // empty, not null, for an empty file
  char buffer[64 * 1024];
  size_t count = 0;
  while ((count = std::fread(buffer, 1, sizeof buffer, stream)) > 0)
    data.append(buffer, static_cast<int>(count));
  const bool failed = std::ferror(stream);
  std::fclose(stream);
  return failed ? QByteArray() : data;
}

void ProjectModel::writeFile(const QString& path, const QByteArray& data) {
  const std::string normalized = Private::checked(path);
  if (normalized.empty())
    throw Exception("The top of a project is a directory, not a file");
  const fs::path file = d->local(normalized);
  std::error_code error;
  fs::create_directories(file.parent_path(), error);
  if (error)
    throwSystemError("Could not create the parent of " + normalized, error);
  writeFileAtomically(file, std::string(data.constData(), static_cast<size_t>(data.size())));
}

QString ProjectModel::getFileLocalPath(const QString& path) const {
  const std::optional<std::string> normalized = normalizeModelPath(path);
  return normalized ? fromDiskPath(d->local(*normalized)) : QString();
}

}  // namespace project
}  // namespace zu
