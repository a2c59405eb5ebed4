// Three system calls of SQLite's Unix files, replaced through its own table: the game's library answers them with less
// than macOS does (see docs/real-programs.md).
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "sqlite3.h"

/// The library grants every lock and says nothing about other processes'; there are none here.
static int fcntl_without_other_processes(int number, int command, struct flock* lock) {
  if (command == F_GETLK) lock->l_type = F_UNLCK;
  return 0;
}

/// The library's stat makes up an inode that is not fstat's, and SQLite would take the file for another.
static int stat_with_inode(const char* path, struct stat* result) {
  if (stat(path, result) != 0 || !S_ISREG(result->st_mode)) return stat(path, result);
  const int number = open(path, O_RDONLY);
  if (number < 0) return -1;
  const int failed = fstat(number, result);
  close(number);
  return failed;
}

/// Shared memory of the write-ahead log is mapped in pieces of a page: Windows maps at multiples of this one only.
static int allocation_granularity(void) { return 65536; }

int sqlite_adapt_system_calls(const char* unused) {
  sqlite3_vfs* const files = sqlite3_vfs_find("unix");
  return files->xSetSystemCall(files, "fcntl", (sqlite3_syscall_ptr)fcntl_without_other_processes) ||
         files->xSetSystemCall(files, "stat", (sqlite3_syscall_ptr)stat_with_inode) ||
         files->xSetSystemCall(files, "getpagesize", (sqlite3_syscall_ptr)allocation_granularity);
}
