#include "process.h"

#include "tree_walk.h"

#include <krboxlibrary/box_library.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>

namespace krbench {

std::string runProgram(const std::vector<std::string>& arguments, const std::string& directory) {
  std::vector<char*> argv;
  for (const std::string& argument : arguments)
    argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  int output[2];
  if (::pipe2(output, O_CLOEXEC) != 0)
    throw std::runtime_error("cannot create a pipe: " + std::string(std::strerror(errno)));
  const pid_t child = ::fork();
  if (child < 0) {
    const int code = errno;
    ::close(output[0]);
    ::close(output[1]);
    throw std::runtime_error("cannot start " + arguments[0] + ": " + std::strerror(code));
  }
  if (child == 0) {
    ::dup2(output[1], STDOUT_FILENO);
    if (!directory.empty() && ::chdir(directory.c_str()) != 0)
      ::_exit(126);
    ::execvp(argv[0], argv.data());
    ::_exit(127);
  }
  ::close(output[1]);
  std::string printed;
  char buffer[4096];
  for (;;) {
    const ssize_t count = ::read(output[0], buffer, sizeof buffer);
    if (count > 0)
      printed.append(buffer, static_cast<size_t>(count));
    else if (count == 0 || errno != EINTR)
      break;
  }
  ::close(output[0]);
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    throw std::runtime_error(arguments[0] + " failed (status " + std::to_string(status) + ")");
  return printed;
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
