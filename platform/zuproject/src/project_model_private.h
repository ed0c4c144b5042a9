#ifndef ZU_PROJECT_PROJECT_MODEL_PRIVATE_H
#define ZU_PROJECT_PROJECT_MODEL_PRIVATE_H

// A project model's state, shared with the readers of its source. Not installed.

#include <zu/project/exceptions.h>
#include <zu/project/project_model.h>

#include "changes.h"
#include "paths.h"

#include <algorithm>
#include <climits>
#include <memory>
#include <optional>
#include <string>

namespace zu {
namespace project {

struct ProjectModel::Private {
  std::shared_ptr<detail::Changes> changes = std::make_shared<detail::Changes>(nullptr);
  QString sourcePath;
  ArchiveFormat sourceFormat = ArchiveFormat_Auto;

  // The normal form of a path for an operation that changes something.
  static std::string checked(const QString& path) {
    std::optional<std::string> result = detail::normalized(path);
    if (!result)
      throw PathNotFound(detail::toUtf8(path));
    return *result;
  }
  // The same for a path the operation makes: a name no file system here could hold would
  // stop every later save half-way, so it never comes in.
  static std::string made(const QString& path) {
    std::string result = checked(path);
    if (!holdsLongName(result))
      return result;
    throw Exception(result + ": a name in it is too long (more than " + std::to_string(NAME_MAX) +
                    " bytes)");
  }
  static bool holdsLongName(const std::string& path) {
    for (std::size_t start = 0; start < path.size();) {
      const std::size_t slash = std::min(path.find('/', start), path.size());
      if (slash - start > NAME_MAX)
        return true;
      start = slash + 1;
    }
    return false;
  }

  // What is at a path already in normal form.
  detail::Kind kind(const std::string& path) const { return changes->resolve(path).kind; }
  detail::Kind kind(const QString& path) const {
    const std::optional<std::string> path8 = detail::normalized(path);
    return path8 ? kind(*path8) : detail::Kind::None;
  }
};

}  // namespace project
}  // namespace zu

#endif
