#include "file_io.h"

#include <fcntl.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <mutex>
#include <string>

namespace zu {
namespace project {
namespace detail {
namespace io {

namespace {

enum Kind { Open, Write, Flush, Close, Rename, Unlink, Kinds };
enum Action { Fail, Kill };

struct Fault {
  int kind = -1;
  long call = 0;
  int error = ENOSPC;
  Action action = Fail;
};

Fault parseFault(const std::string& setting) {
  Fault fault;
  static const char* const kNames[Kinds] = {"open", "write", "flush", "close", "rename", "unlink"};
  const std::size_t colon = setting.find(':');
  for (int kind = 0; kind < Kinds; ++kind) {
    if (setting.compare(0, colon, kNames[kind]) == 0)
      fault.kind = kind;
  }
  if (colon != std::string::npos)
    fault.call = std::strtol(setting.c_str() + colon + 1, nullptr, 10);
  if (setting.find(":eio") != std::string::npos)
    fault.error = EIO;
  if (setting.find(":kill") != std::string::npos)
    fault.action = Kill;
  return fault;
}

// Whether this call of kind is the one to fail; errno is set when it is.
bool fails(Kind kind) {
  static std::mutex mutex;
  static std::string setting;
  static Fault fault;
  static long calls[Kinds];
  const char* text = std::getenv("ZUPROJECT_FAULT");
  std::lock_guard<std::mutex> lock(mutex);
  if (setting != (text ? text : "")) {
    setting = text ? text : "";
    fault = parseFault(setting);
    std::fill(std::begin(calls), std::end(calls), 0);
  }
  if (fault.kind != kind || ++calls[kind] != fault.call)
    return false;
  if (fault.action == Kill)
    ::raise(SIGKILL);
  errno = fault.error;
  return true;
}

}  // namespace

int openAt(int dirFd, const char* name, int flags, mode_t mode) {
  return fails(Open) ? -1 : ::openat(dirFd, name, flags, mode);
}

ssize_t write(int fd, const void* data, size_t size) {
  return fails(Write) ? -1 : ::write(fd, data, size);
}

int sync(int fd, bool dataOnly) {
  if (fails(Flush))
    return -1;
  return dataOnly ? ::fdatasync(fd) : ::fsync(fd);
}

int syncFs(int fd) {
  return fails(Flush) ? -1 : ::syncfs(fd);
}

int close(int fd) {
  if (fails(Close)) {
    const int error = errno;
    ::close(fd);
    errno = error;
    return -1;
  }
  return ::close(fd);
}

int renameAt(int fromDirFd, const char* from, int toDirFd, const char* to) {
  return fails(Rename) ? -1 : ::renameat(fromDirFd, from, toDirFd, to);
}

int rename(const char* from, const char* to) {
  return fails(Rename) ? -1 : std::rename(from, to);
}

int exchange(const char* first, const char* second) {
  return fails(Rename) ? -1 : ::renameat2(AT_FDCWD, first, AT_FDCWD, second, RENAME_EXCHANGE);
}

int unlinkAt(int dirFd, const char* name, int flags) {
  return fails(Unlink) ? -1 : ::unlinkat(dirFd, name, flags);
}

}  // namespace io
}  // namespace detail
}  // namespace project
}  // namespace zu
