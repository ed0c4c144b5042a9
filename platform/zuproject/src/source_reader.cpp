#include <zu/project/source_reader.h>

#include <zu/project/project_model.h>

#include "paths.h"
#include "project_model_private.h"
#include "source.h"

#include <algorithm>

namespace zu {
namespace project {

using namespace detail;

struct SourceReader::Private {
  std::shared_ptr<Source> source;
  // Made on first use, on the thread that reads.
  std::unique_ptr<Source::Reader> reader;

  Source::Reader* files() {
    if (!reader && source)
      reader = source->reader();
    return reader.get();
  }
};

SourceReader::SourceReader(const ProjectModel& model) : d(std::make_unique<Private>()) {
  d->source = model.d->changes->source();
}

SourceReader::~SourceReader() = default;

bool SourceReader::hasFile(const QString& path) {
  const std::optional<std::string> file = normalized(path);
  Source::Reader* files = d->files();
  return files && file && !file->empty() && files->kind(*file) == Kind::File;
}

QByteArray SourceReader::readFile(const QString& path, bool* isFile) {
  if (isFile)
    *isFile = false;
  const std::optional<std::string> file = normalized(path);
  Source::Reader* files = d->files();
  if (!files || !file || file->empty())
    return QByteArray();
  return toQByteArray(files->read(*file, isFile));
}

QStringList SourceReader::directories(const QString& dir) {
  QStringList result;
  const std::optional<std::string> base = normalized(dir);
  Source::Reader* files = d->files();
  if (!files || !base)
    return result;
  std::vector<std::string> names;
  for (Listed& entry : files->list(*base)) {
    if (entry.dir)
      names.push_back(std::move(entry.name));
  }
  std::sort(names.begin(), names.end());
  result.reserve(static_cast<int>(names.size()));
  for (const std::string& name : names)
    result.append(QString::fromUtf8(name.data(), static_cast<int>(name.size())));
  return result;
}

}  // namespace project
}  // namespace zu
