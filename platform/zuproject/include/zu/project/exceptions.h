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

/// A save back to the source refused because another writer changed, since this model
/// read them, files it would replace or remove (or the archive itself); what() names them.
struct ZUPROJECT_EXPORT Conflict : Exception {
  using Exception::Exception;
  ~Conflict() override;
};

/// The source's lock still held by another writer when the wait for it ended; what() names
/// the holder when it is known.
struct ZUPROJECT_EXPORT Busy : Exception {
  using Exception::Exception;
  ~Busy() override;
};

}  // namespace project
}  // namespace zu

#endif
