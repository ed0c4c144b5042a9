#ifndef ZU_PROJECT_ZIP_FALLBACK_H
#define ZU_PROJECT_ZIP_FALLBACK_H

// Reading the zip entries libzip cannot decompress through libarchive. Not installed.

#include <zip.h>

#include <cstdint>
#include <optional>
#include <string>

namespace zu {
namespace project {
namespace detail {

/// Whether libarchive decompresses the zip compression method (LZMA, XZ, PPMd...).
bool fallbackDecompresses(int method);

/// The bytes of the entry at index of source, decompressed by libarchive; nothing, with the
/// reason in error, when that fails (a checksum mismatch, damaged data). The entry's data is
/// copied as stored into a zip of its own in memory, so that each entry costs its own size,
/// in any order, whatever its place in the archive.
std::optional<std::string> readThroughFallback(zip_t* source, zip_uint64_t index,
                                               std::uint64_t size, std::string& error);

}  // namespace detail
}  // namespace project
}  // namespace zu

#endif
