#ifndef ZU_PROJECT_EXCEPTIONS_H
#define ZU_PROJECT_EXCEPTIONS_H

#include <zu/project/zuproject_export.h>

#include <stdexcept>
#include <string>

namespace zu {
namespace project {

/// Base of every failure of the project layer; what() gives the reason.
struct ZUPROJECT_EXPORT Exception : std::runtime_error {
  using std::runtime_error::runtime_error;
  ~Exception() override;
};

/// A path that does not exist, or that would leave the project; what() is the path.
struct ZUPROJECT_EXPORT PathNotFound : Exception {
  using Exception::Exception;
  ~PathNotFound() override;
};

/// A damaged or truncated archive, or one with a hostile entry.
struct ZUPROJECT_EXPORT CorruptedFile : Exception {
  using Exception::Exception;
  ~CorruptedFile() override;
};

/// A file that is no archive the project layer can read, or a form it cannot write.
struct ZUPROJECT_EXPORT UnsupportedFormat : Exception {
  using Exception::Exception;
  ~UnsupportedFormat() override;
};

}  // namespace project
}  // namespace zu

#endif
