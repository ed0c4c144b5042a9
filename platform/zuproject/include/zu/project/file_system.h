#ifndef ZU_PROJECT_FILE_SYSTEM_H
#define ZU_PROJECT_FILE_SYSTEM_H

#include <zu/project/zuproject_export.h>

#include <string>

namespace zu {
namespace project {

/// Removes a file or a whole tree on disk (a link itself, never its target);
/// PathNotFound when absent, Exception when it cannot be removed.
ZUPROJECT_EXPORT void remove(const std::string& utf8DiskPath);

}  // namespace project
}  // namespace zu

#endif
