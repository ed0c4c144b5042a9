#ifndef ZU_PROJECT_STREAMS_H
#define ZU_PROJECT_STREAMS_H

// FILE streams over bytes in memory, so that callers close them with plain fclose.
// Not installed.

#include <cstdio>
#include <functional>
#include <string>

namespace zu {
namespace project {
namespace detail {

/// Whether an fopen mode writes ("w", "a" or "+").
bool isWritingMode(const char* mode);

/// A stream with std::fopen's mode over initial bytes; a writing stream hands its final
/// bytes to closed when closed, and fclose fails when closed returns false. Null for a
/// mode fopen would refuse.
FILE* openMemoryStream(std::string initial, const char* mode,
                       std::function<bool(std::string&&)> closed);

}  // namespace detail
}  // namespace project
}  // namespace zu

#endif
