#ifndef ZU_LOG_H
#define ZU_LOG_H

#include <zu/zu_export.h>

#include <functional>
#include <ostream>
#include <sstream>
#include <string>

namespace zu {
namespace log {

/// Severity of a record; lower numbers are more severe.
enum LogLevel {
  LogLevel_Silent = 0,
  LogLevel_Fatal = 1,
  LogLevel_Error = 2,
  LogLevel_Warning = 3,
  LogLevel_Info = 4,
  LogLevel_Verbose = 5,
  LogLevel_Debug = 6
};

/// One logged message with where it came from.
struct Record {
  LogLevel level;        ///< Severity.
  std::string category;  ///< Subsystem that logged it, e.g. "krboxlibrary".
  std::string message;   ///< The text, without a trailing newline.
  std::string file;      ///< Source file, may be empty.
  std::string function;  ///< Name of the logging operation.
  int line;              ///< Source line, 0 when unknown.
};

/// Receives every record; must not throw.
using Handler = std::function<void(const Record&)>;

/// Sends one record to every handler (and to stderr while the default handler is enabled).
ZU_EXPORT void log(LogLevel level, const char* category, const char* message, const char* file,
                   const char* function, int line);

/// Adds a handler that receives every record from now on; returns its id for removeHandler.
ZU_EXPORT unsigned addHandler(Handler handler);

/// Removes the handler with this id; unknown ids are ignored.
ZU_EXPORT void removeHandler(unsigned id);

/// Enables or disables the default handler, which writes one line per record to stderr.
ZU_EXPORT void setDefaultHandlerEnabled(bool enabled);

/// Whether the default stderr handler is enabled (it is at start-up).
ZU_EXPORT bool isDefaultHandlerEnabled();

/// Sets the least severe level the default handler writes (LogLevel_Info at start-up).
ZU_EXPORT void setDefaultHandlerLevel(LogLevel level);

/// The one line the default handler writes for a record, without the newline.
ZU_EXPORT std::string formatRecord(const Record& record);

/// An output stream that collects text and sends it as one record when destroyed.
class ZU_EXPORT LogStream : public std::ostream {
public:
  /// Starts a record; the strings are copied.
  LogStream(LogLevel level, const char* category, const char* file, const char* function, int line);
  /// Sends the collected text as one record.
  ~LogStream() override;

  LogStream(const LogStream&) = delete;
  LogStream& operator=(const LogStream&) = delete;

private:
  std::stringbuf m_buffer;
  LogLevel m_level;
  std::string m_category;
  std::string m_file;
  std::string m_function;
  int m_line;
};

}  // namespace log
}  // namespace zu

#endif
