#include <zu/log.h>

#include <cstdio>
#include <map>
#include <mutex>
#include <vector>

namespace zu {
namespace log {
namespace {

struct Registry {
  std::mutex mutex;
  std::map<unsigned, Handler> handlers;
  unsigned nextId = 1;
  bool defaultEnabled = true;
  LogLevel defaultLevel = LogLevel_Info;
};

Registry& registry() {
  // Never destroyed, so records logged from static destructors still find it.
  static Registry* instance = new Registry;
  return *instance;
}

const char* levelName(LogLevel level) {
  switch (level) {
    case LogLevel_Silent: return "silent";
    case LogLevel_Fatal: return "fatal";
    case LogLevel_Error: return "error";
    case LogLevel_Warning: return "warning";
    case LogLevel_Info: return "info";
    case LogLevel_Verbose: return "verbose";
    case LogLevel_Debug: return "debug";
  }
  return "unknown";
}

}  // namespace

std::string formatRecord(const Record& record) {
  std::string line = "[";
  line += levelName(record.level);
  line += "] ";
  if (!record.category.empty()) {
    line += record.category;
    line += ": ";
  }
  line += record.message;
  if (!record.function.empty()) {
    line += " (in ";
    line += record.function;
    line += ")";
  }
  return line;
}

void log(LogLevel level, const char* category, const char* message, const char* file,
         const char* function, int line) {
  Record record{level,
                category ? category : "",
                message ? message : "",
                file ? file : "",
                function ? function : "",
                line};

  // Handlers run outside the lock so that one may add or remove handlers itself.
  std::vector<Handler> handlers;
  bool toStderr = false;
  {
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    handlers.reserve(r.handlers.size());
    for (const auto& entry : r.handlers)
      handlers.push_back(entry.second);
    toStderr = r.defaultEnabled && level != LogLevel_Silent && level <= r.defaultLevel;
  }
  if (toStderr)
    std::fprintf(stderr, "%s\n", formatRecord(record).c_str());
  for (const Handler& handler : handlers)
    handler(record);
}

unsigned addHandler(Handler handler) {
  Registry& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  unsigned id = r.nextId++;
  r.handlers.emplace(id, std::move(handler));
  return id;
}

void removeHandler(unsigned id) {
  Registry& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  r.handlers.erase(id);
}

void setDefaultHandlerEnabled(bool enabled) {
  Registry& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  r.defaultEnabled = enabled;
}

bool isDefaultHandlerEnabled() {
  Registry& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  return r.defaultEnabled;
}

void setDefaultHandlerLevel(LogLevel level) {
  Registry& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  r.defaultLevel = level;
}

LogStream::LogStream(LogLevel level, const char* category, const char* file, const char* function,
                     int line)
    : std::ostream(nullptr),
      m_level(level),
      m_category(category ? category : ""),
      m_file(file ? file : ""),
      m_function(function ? function : ""),
      m_line(line) {
  rdbuf(&m_buffer);
}

LogStream::~LogStream() {
  // A destructor must not throw; a failing handler loses only its own record.
  try {
    log(m_level, m_category.c_str(), m_buffer.str().c_str(), m_file.c_str(), m_function.c_str(),
        m_line);
  } catch (...) {
  }
}

}  // namespace log
}  // namespace zu
