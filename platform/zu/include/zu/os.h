#ifndef ZU_OS_H
#define ZU_OS_H

#include <zu/zu_export.h>

#include <cstdio>

namespace zu {
namespace os {

/// Opens a file whose path is UTF-8 text, like std::fopen; null (with errno) on failure.
ZU_EXPORT FILE* fopen(const char* utf8Path, const char* mode);

}  // namespace os
}  // namespace zu

#endif
