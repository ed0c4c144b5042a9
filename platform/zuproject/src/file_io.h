#ifndef ZU_PROJECT_FILE_IO_H
#define ZU_PROJECT_FILE_IO_H

// The system calls through which the project model writes files on disk (in a library, in
// scratch, in an export), each checked by its callers. Not installed.
//
// Test hook: the environment variable ZUPROJECT_FAULT="KIND:N[:eio|:kill]" makes the N-th
// call (counted from 1) of one KIND fail with ENOSPC, or EIO with ":eio", or kills the
// process with SIGKILL just before it with ":kill". KIND is one of open (opening a file
// for writing), write, flush (fsync, fdatasync, syncfs), close (of a written file), rename
// and unlink (of a file or a directory). The setting is looked at in every call, and a new
// one starts the count again, so a test may set it right before the operation it aims at
// (in a child process for ":kill"). Without it every call goes straight to the system.

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
/// renameat2() with RENAME_EXCHANGE: the two paths trade places in one step; counted as a
/// rename. Fails with EINVAL where the filesystem cannot.
int exchange(const char* first, const char* second);
/// unlinkat(), of a file or (with AT_REMOVEDIR) an empty directory.
int unlinkAt(int dirFd, const char* name, int flags);

}  // namespace io
}  // namespace detail
}  // namespace project
}  // namespace zu

#endif
