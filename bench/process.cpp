#include "process.h"

#include "tree_walk.h"

#include <krboxlibrary/box_library.h>

#include <fcntl.h>
#include <sys/statfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>

namespace krbench {

std::string runProgram(const std::vector<std::string>& arguments, const std::string& directory,
                       Output output) {
  std::vector<char*> argv;
  for (const std::string& argument : arguments)
    argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  // The child writes into ends[1]: a pipe read here, or /dev/null.
  int ends[2] = {-1, -1};
  if (output == Output::Capture ? ::pipe2(ends, O_CLOEXEC) != 0
                                : (ends[1] = ::open("/dev/null", O_WRONLY | O_CLOEXEC)) < 0)
    throw std::runtime_error("cannot open the output of " + arguments[0] + ": " +
                             std::strerror(errno));
  const pid_t child = ::fork();
  if (child < 0) {
    const int code = errno;
    for (const int end : ends) {
      if (end >= 0)
        ::close(end);
    }
    throw std::runtime_error("cannot start " + arguments[0] + ": " + std::strerror(code));
  }
  if (child == 0) {
    ::dup2(ends[1], STDOUT_FILENO);
    if (!directory.empty() && ::chdir(directory.c_str()) != 0)
      ::_exit(126);
    ::execvp(argv[0], argv.data());
    ::_exit(127);
  }
  ::close(ends[1]);
  std::string printed;
  char buffer[4096];
  while (ends[0] >= 0) {
    const ssize_t count = ::read(ends[0], buffer, sizeof buffer);
    if (count > 0)
      printed.append(buffer, static_cast<size_t>(count));
    else if (count == 0 || errno != EINTR)
      break;
  }
  if (ends[0] >= 0)
    ::close(ends[0]);
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    throw std::runtime_error(arguments[0] + " failed (status " + std::to_string(status) + ")");
  return printed;
}

bool dropPageCache() {
  ::sync();
  std::ofstream control("/proc/sys/vm/drop_caches");
  control << "3" << std::flush;
  return control.good();
}

std::string loadAverage() {
  std::ifstream file("/proc/loadavg");
  std::string averages[3];
  file >> averages[0] >> averages[1] >> averages[2];
  return averages[0] + " " + averages[1] + " " + averages[2];
}

std::string fileSystemType(const std::string& path) {
  struct statfs info;
  if (::statfs(path.c_str(), &info) != 0)
    return "unknown";
  switch (static_cast<unsigned long>(info.f_type)) {
    case 0x01021994: return "tmpfs";
    case 0xEF53: return "ext2/3/4";
    case 0x58465342: return "xfs";
    case 0x9123683E: return "btrfs";
    case 0x794C7630: return "overlay";
    default: {
      char hex[32];
      std::snprintf(hex, sizeof hex, "0x%lx", static_cast<unsigned long>(info.f_type));
      return hex;
    }
  }
}

long peakResidentKiB() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.compare(0, 6, "VmHWM:") == 0)
      return std::stol(line.substr(6));
  }
  return 0;
}

PeakMemory probeMemory(const std::string& self, const std::string& library) {
  std::istringstream printed(runProgram({self, kMemoryProbeFlag, library}));
  PeakMemory memory;
  if (!(printed >> memory.beforeKiB >> memory.afterKiB >> memory.boxes))
    throw std::runtime_error("the memory probe printed nothing readable");
  return memory;
}

int runMemoryProbe(const std::string& library) {
  PeakMemory memory;
  memory.beforeKiB = peakResidentKiB();
  KR::BoxLibrary opened(QString::fromStdString(library), true);
  memory.boxes = readWholeTree(*opened.boxRoot()).boxes;
  memory.afterKiB = peakResidentKiB();
  std::cout << memory.beforeKiB << ' ' << memory.afterKiB << ' ' << memory.boxes << std::endl;
  return 0;
}

}  // namespace krbench
