#ifndef ZU_PROJECT_FILE_IO_H
#define ZU_PROJECT_FILE_IO_H

// The system calls through which the project model writes files on disk (in a library, in
// scratch, in an export), each checked by its callers. Not installed.
//
// Test hook: the environment variable ZUPROJECT_FAULT="KIND:N[:eio]" makes the N-th call
// (counted from 1 in the process) of one KIND fail with ENOSPC, or EIO with ":eio". KIND is
// one of open (opening a file for writing), write, flush (fsync, fdatasync, syncfs), close
// (of a written file) and rename. It is read once, at the first call; tests of failing
// disks set it for a child process. Without it every call goes straight to the system.

#include <sys/types.h>

namespace zu {
namespace project {
namespace detail {
namespace io {

/// openat() of a file to write.
int openAt(int dirFd, const char* name, int flags, mode_t mode);
/// write().
ssize_t write(int fd, const void* data, size_t size);
/// fsync(); fdatasync() with dataOnly; a flush too.
int sync(int fd, bool dataOnly = false);
/// syncfs().
int syncFs(int fd);
/// close() of a written descriptor: the descriptor is closed whatever the result.
int close(int fd);
/// renameat().
int renameAt(int fromDirFd, const char* from, int toDirFd, const char* to);
/// rename() of two paths on disk.
int rename(const char* from, const char* to);

}  // namespace io
}  // namespace detail
}  // namespace project
}  // namespace zu

#endif
