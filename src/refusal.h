#ifndef KRBOXLIBRARY_SRC_REFUSAL_H
#define KRBOXLIBRARY_SRC_REFUSAL_H

// One log line for an argument or a state the library refuses, or a write it could not make,
// in the library's category: the host gets the neutral result and this line, never a crash.

#include <zu/log.h>

#include "vocabulary.h"

#include <string>

namespace KR {
namespace refusal {

/// A warning: a caller's argument (or a node that is gone) refused by function.
inline void warn(const char* function, const std::string& message) {
  zu::log::LogStream(zu::log::LogLevel_Warning, vocabulary::kLogCategory, "", function, 0)
      << message;
}

/// An error: a file function could not write; path and reason name what and why.
inline void writeFailed(const char* function, const std::string& path, const std::string& reason) {
  zu::log::LogStream(zu::log::LogLevel_Error, vocabulary::kLogCategory, "", function, 0)
      << "Could not write " << path << ", reason: " << reason;
}

}  // namespace refusal
}  // namespace KR

#endif
