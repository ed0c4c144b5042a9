#include <zu/os.h>

#include <cerrno>

namespace zu {
namespace os {

FILE* fopen(const char* utf8Path, const char* mode) {
  if (!utf8Path || !mode || !*utf8Path) {
    errno = EINVAL;
    return nullptr;
  }
  // On POSIX systems file names are bytes, and UTF-8 is what every caller passes.
  return std::fopen(utf8Path, mode);
}

}  // namespace os
}  // namespace zu
