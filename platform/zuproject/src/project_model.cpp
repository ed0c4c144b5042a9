#include <zu/project/project_model.h>
#include <zu/project/source_lock.h>

#include "archive_io.h"
#include "changes.h"
#include "directory_commit.h"
#include "directory_source.h"
#include "full_write.h"
#include "metadata_file.h"
#include "paths.h"
#include "project_model_private.h"
#include "streams.h"

#include <krserial/xml_document.h>

#include <fcntl.h>
#include <unistd.h>
#include <algorithm>
#include <climits>
#include <cstring>
#include <optional>

namespace zu {
namespace project {

using namespace detail;

namespace {

const char kMetadataFile[] = ".metadata";
// How long a save back to the source waits for another writer to finish.
const int kLockWaitMs = 10000;

}  // namespace

ProjectModel::ProjectModel(QObject* parent) : QObject(parent), d(new Private) {}

ProjectModel::ProjectModel(const ProjectModel& other) : QObject(nullptr), d(new Private) {
  d->changes = std::make_shared<Changes>(*other.d->changes);
  d->sourcePath = other.d->sourcePath;
  d->sourceFormat = other.d->sourceFormat;
}

ProjectModel::~ProjectModel() = default;

void ProjectModel::load(const QString& path, ArchiveFormat format) {
  d->changes->reset(nullptr);
  d->sourcePath.clear();
  d->sourceFormat = ArchiveFormat_Auto;
  const fs::path source = absoluteDiskPath(diskPath(path));
  std::shared_ptr<Source> opened = openSource(path.isEmpty() ? fs::path() : source, format);
  d->changes->reset(opened);
  d->sourcePath = fromDiskPath(source);
  d->sourceFormat = opened->format();
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

  Changes& changes = *d->changes;
  // What was read is all a save can write: a file that could not be read would be lost.
  if (const std::string failure =
          changes.source() ? changes.source()->readFailure() : std::string();
      !failure.empty())
    throw CorruptedFile(toUtf8(d->sourcePath) + ": " + failure +
                        "; the project did not read whole, so it is not saved");
  const bool atSource = !d->sourcePath.isEmpty() && target == diskPath(d->sourcePath);
  if (!atSource && !d->sourcePath.isEmpty()) {
    // A copy inside the project would show as part of it; one around it would replace it.
    std::error_code ignored;
    const fs::path inside = fs::weakly_canonical(target, ignored);
    const fs::path source = fs::weakly_canonical(diskPath(d->sourcePath), ignored);
    const auto within = [](const fs::path& path, const fs::path& base) {
      const std::string& p = path.native();
      const std::string& b = base.native();
      return p == b ||
             (p.size() > b.size() && p.compare(0, b.size(), b) == 0 && p[b.size()] == '/');
    };
    if (within(inside, source) || within(source, inside))
      throw Exception(target.string() + ": the project at " + source.string() +
                      " cannot be saved into itself or around itself");
  }
  // Held from the check of what others changed to the end of the write.
  std::optional<SourceLock> lock;
  if (atSource && format == d->sourceFormat && changes.source()) {
    // Once another save of this process replaced the source, this view is written whole.
    const bool outdated = changes.source()->outdated();
    if (changes.empty() && !outdated)
      return;  // the source already is what the model shows
    lock.emplace(d->sourcePath, kLockWaitMs);
    removeStaleSiblings(target);
    auto* directory = dynamic_cast<DirectorySource*>(changes.source().get());
    if (directory && format == ArchiveFormat_Directory && !outdated) {
      commitToDirectory(changes, *directory);
      return;
    }
    // A directory replaced by this process's save has no stamps left to compare.
    if (const std::vector<std::string> changed = changes.source()->changedOnDisk();
        !changed.empty() && !(outdated && directory))
      throw Conflict(changed.front() +
                     ": changed by another writer since read, so nothing was saved");
  } else {
    removeStaleSiblings(target);
    if (existsNoFollow(target) && !overwrite)
      throw Exception(target.string() + ": already exists");
    std::error_code error;
    if (!fs::is_directory(target.parent_path(), error))
      throw PathNotFound(target.parent_path().string());
  }
  // Other models reading what is about to be replaced keep what they see: a directory's
  // files go, so they take them first; a zip stays open where they read it, and a tar form
  // in scratch.
  const std::vector<std::shared_ptr<Source>> readers = sourcesAt(target.native());
  for (const std::shared_ptr<Source>& reader : readers) {
    if (dynamic_cast<DirectorySource*>(reader.get()) && !reader->path().empty()) {
      for (Changes* holder : reader->holders()) {
        if (holder != &changes)
          holder->preserve(reader.get(), {std::string()});
      }
    }
  }
  // Back to the same archive, a folder that wraps the project stays.
  const std::string wrapper = atSource && format == d->sourceFormat && changes.source()
                                  ? changes.source()->wrapper()
                                  : std::string();
  writeWhole(changes, target, format, wrapper);
  // A model reading there saves over this save as its own, not as another writer's; one
  // that failed replaced nothing.
  for (const std::shared_ptr<Source>& reader : readers) {
    reader->markOutdated();
    reader->settle({});
  }
  changes.reset(openSource(target, format));
  d->sourcePath = fromDiskPath(target);
  d->sourceFormat = format;
}

QString ProjectModel::getSourcePath() const {
  return d->sourcePath;
}

ArchiveFormat ProjectModel::getSourceFormat() const {
  return d->sourceFormat;
}

QString ProjectModel::readFailure() const {
  const std::shared_ptr<Source>& source = d->changes->source();
  return source ? QString::fromStdString(source->readFailure()) : QString();
}

QStringList ProjectModel::takeFromSource(const QStringList& paths) {
  auto* directory = dynamic_cast<DirectorySource*>(d->changes->source().get());
  QStringList left;
  for (const QString& path : paths) {
    const std::optional<std::string> normal = normalized(path);
    if (!directory || !normal || !d->changes->dropOver(*normal)) {
      left.append(path);
      continue;
    }
    directory->retake(*normal);
  }
  return left;
}

void ProjectModel::acceptSourceChanges(const QStringList& paths) {
  const std::shared_ptr<Source>& source = d->changes->source();
  auto* directory = dynamic_cast<DirectorySource*>(source.get());
  // An archive changes whole: what is there now is taken as read, and a save replaces it.
  if (source && !directory) {
    source->settle({});
    return;
  }
  for (const QString& path : paths) {
    const std::optional<std::string> normal = normalized(path);
    if (directory && normal)
      directory->retake(*normal);
  }
}

QStringList ProjectModel::sourceDirectories(const QString& dir) const {
  QStringList names;
  const std::shared_ptr<Source>& source = d->changes->source();
  const std::optional<std::string> normal = normalized(dir);
  if (!source || !normal)
    return names;
  source->forget();
  for (const Listed& entry : source->list(*normal)) {
    if (entry.dir)
      names.append(QString::fromUtf8(entry.name.data(), static_cast<int>(entry.name.size())));
  }
  return names;
}

QStringList ProjectModel::changedInSource() const {
  QStringList paths;
  if (const std::shared_ptr<Source>& source = d->changes->source()) {
    for (const std::string& path : source->changedOnDisk())
      paths.append(QString::fromUtf8(path.data(), static_cast<int>(path.size())));
  }
  return paths;
}

bool ProjectModel::sourceChanged() const {
  const std::shared_ptr<Source>& source = d->changes->source();
  return source && !d->sourcePath.isEmpty() &&
         (d->changes->overwritten() || source->outdated() || !source->changedOnDisk().empty());
}

bool ProjectModel::showsSource(const QString& path) const {
  const std::optional<std::string> normal = normalized(path);
  return normal && d->changes->showsSource(*normal);
}

QString ProjectModel::getMetadata(const QString& key) const {
  const std::optional<std::string> text = d->changes->read(kMetadataFile);
  return entryValue(parseMetadataRoot(text ? *text : std::string()), key);
}

void ProjectModel::setMetadata(const QString& key, const QString& value) {
  const std::optional<std::string> text = d->changes->read(kMetadataFile);
  const KR::XmlElement::Ptr root = parseMetadataRoot(text ? *text : std::string());
  if (setEntry(root, key, value))
    d->changes->writeFile(kMetadataFile, KR::XmlDocument(root).saveToXmlString());
}

FILE* ProjectModel::fopen(const QString& path, const char* mode) {
  const std::optional<std::string> file = normalized(path);
  if (!file || file->empty() || !mode)
    return nullptr;
  Changes& changes = *d->changes;
  if (!isWritingMode(mode))
    return mode[0] == 'r' ? changes.openRead(*file) : nullptr;
  if (Private::holdsLongName(*file))
    return nullptr;
  const Kind kind = changes.resolve(*file).kind;
  if (kind == Kind::Dir || (mode[0] == 'r' && kind != Kind::File))
    return nullptr;
  std::string initial;
  if (mode[0] != 'w' && kind == Kind::File) {
    std::optional<std::string> bytes = changes.read(*file);
    if (!bytes)
      return nullptr;
    initial = std::move(*bytes);
  }
  try {
    changes.makeDir(splitLast(*file).first, true);
  } catch (const Exception&) {
    return nullptr;
  }
  // The bytes reach the model when the caller closes the stream.
  std::weak_ptr<Changes> model = d->changes;
  const std::string target = *file;
  return openMemoryStream(std::move(initial), mode, [model, target](std::string&& bytes) {
    const std::shared_ptr<Changes> alive = model.lock();
    if (!alive)
      return false;
    alive->writeFile(target, std::move(bytes));
    return true;
  });
}

bool ProjectModel::hasFile(const QString& path) const {
  const std::optional<std::string> file = normalized(path);
  return file && !file->empty() && d->kind(*file) == Kind::File;
}

bool ProjectModel::hasDir(const QString& path) const {
  return d->kind(path) == Kind::Dir;
}

QStringList ProjectModel::getFileList(const QString& dir, bool includeDirectories,
                                      bool includeFiles, bool recursive) const {
  QStringList result;
  const std::optional<std::string> base = normalized(dir);
  if (!base || (!includeDirectories && !includeFiles))
    return result;
  for (const Listed& entry : listTree(*d->changes, *base, recursive)) {
    if (entry.dir ? includeDirectories : includeFiles)
      result.append(QString::fromUtf8(entry.name.data(), static_cast<int>(entry.name.size())));
  }
  return result;
}

void ProjectModel::mkdir(const QString& path, bool parents) {
  const std::string dir = Private::made(path);
  if (!dir.empty())
    d->changes->makeDir(dir, parents);
}

void ProjectModel::remove(const QString& path) {
  d->changes->remove(Private::checked(path));
}

void ProjectModel::move(const QString& from, const QString& to, bool overwrite) {
  const std::string source = Private::checked(from);
  const std::string target = Private::made(to);
  if (d->kind(source) == Kind::None)
    throw PathNotFound(toUtf8(from));
  if (source == target)
    return;
  if (source.empty() || target.empty())
    throw Exception("The top of a project cannot be moved or replaced");
  // As a file manager would: nothing goes into itself, and nothing replaces what holds it.
  if (isWithin(target, source))
    throw Exception("Could not move " + source + " into itself");
  if (isWithin(source, target))
    throw Exception("Could not move " + source + " onto " + target + ", which holds it");
  if (d->kind(target) != Kind::None) {
    if (!overwrite)
      throw Exception("Could not move " + source + ": " + target + " already exists");
    d->changes->remove(target);
  }
  d->changes->copy(*d->changes, source, target);
  d->changes->remove(source);
}

void ProjectModel::importFile(const ProjectModel* source, const QString& sourcePath,
                              const QString& destinationPath, bool overwrite) {
  if (!source)
    throw Exception("No project to import from");
  const std::string from = Private::checked(sourcePath);
  const std::string to = Private::made(destinationPath);
  const Kind kind = source->d->kind(from);
  if (kind == Kind::None)
    throw PathNotFound(toUtf8(sourcePath));
  if (source == this) {
    if (from == to)
      return;
    // The copy would replace or fill what it is read from.
    if (isWithin(to, from))
      throw Exception("Could not copy " + from + " into itself");
    if (isWithin(from, to))
      throw Exception("Could not copy " + from + " onto " + to + ", which holds it");
  }
  if (to.empty() && kind == Kind::Dir &&
      source->d->kind(joinPath(from, kPendingName)) != Kind::None)
    throw Exception("Could not import " + from + ": it holds " + kPendingName +
                    ", a name the project keeps for its saves");
  const Kind existing = d->kind(to);
  if (existing != Kind::None) {
    if (!overwrite)
      throw Exception("Could not import " + from + ": " + to + " already exists");
    // A file never merges with a directory: the destination takes the source's kind.
    if (existing != kind && to.empty())
      throw Exception("The top of a project cannot be replaced by a file");
  }
  d->changes->copy(*source->d->changes, from, to);
}

void ProjectModel::exportFile(const QString& path, const QString& diskPathText, bool overwrite) {
  const std::string from = Private::checked(path);
  const Kind kind = d->kind(from);
  if (kind == Kind::None)
    throw PathNotFound(toUtf8(path));
  if (diskPathText.isEmpty())
    throw PathNotFound("");
  const fs::path target = absoluteDiskPath(diskPath(diskPathText));
  std::error_code error;
  if (!fs::is_directory(target.parent_path(), error))
    throw PathNotFound(target.parent_path().string());
  const fs::file_status existing = fs::status(target, error);
  if (fs::exists(existing)) {
    if (!overwrite)
      throw Exception("Could not export " + from + ": " + target.string() + " already exists");
    // Never delete what the caller has on disk to make room for another kind of entry.
    if (fs::is_directory(existing) != (kind == Kind::Dir))
      throw Exception("Could not export " + from + ": " + target.string() +
                      (fs::is_directory(existing) ? " is a directory" : " is not a directory"));
  }
  // The target itself is taken as the caller named it; nothing below it is followed.
  const bool intoDirectory = kind == Kind::Dir && fs::exists(existing);
  const fs::path root = intoDirectory ? target : target.parent_path();
  const int fd = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0)
    throwSystemError("Could not write " + target.string(),
                     std::error_code(errno, std::generic_category()));
  Beneath files(fd, std::string());
  writeTree(*d->changes, from, files, intoDirectory ? std::string() : target.filename().native());
}

QByteArray ProjectModel::readFile(const QString& path) const {
  const std::optional<std::string> file = normalized(path);
  if (!file || file->empty())
    return QByteArray();
  return toQByteArray(d->changes->read(*file));
}

void ProjectModel::writeFile(const QString& path, const QByteArray& data) {
  const std::string file = Private::made(path);
  if (file.empty())
    throw Exception("The top of a project is a directory, not a file");
  d->changes->writeFile(file, std::string(data.constData(), static_cast<size_t>(data.size())));
}

QString ProjectModel::getFileLocalPath(const QString& path) const {
  const std::optional<std::string> local = normalized(path);
  if (!local)
    return QString();
  return fromDiskPath(d->changes->localPath(*local));
}

}  // namespace project
}  // namespace zu
