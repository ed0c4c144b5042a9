#include <zu/project/exceptions.h>

namespace zu {
namespace project {

// Out-of-line destructors give each type one exported type_info, so that a catch in
// another shared library matches.
Exception::~Exception() = default;
PathNotFound::~PathNotFound() = default;
CorruptedFile::~CorruptedFile() = default;
UnsupportedFormat::~UnsupportedFormat() = default;
Conflict::~Conflict() = default;
Busy::~Busy() = default;

}  // namespace project
}  // namespace zu
