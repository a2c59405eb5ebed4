// Three system calls of SQLite's Unix files, replaced through its own table: the game's library answers them with less
// than macOS does (see docs/real-programs.md).
#include <fcntl.h>
#include <stdarg.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "sqlite3.h"

/// The library grants every lock and says nothing about other processes'; there are none here.
static int fcntl_without_other_processes(int number, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  struct flock* const lock = command == F_GETLK || command == F_SETLK ? va_arg(arguments, struct flock*) : 0;
  va_end(arguments);
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
  const struct {
    const char* name;
    void* function;
  } replaced[] = {{"fcntl", fcntl_without_other_processes},
                  {"stat", stat_with_inode},
                  {"getpagesize", allocation_granularity}};
  for (int i = 0; i < 3; ++i) {
    const int failed = files->xSetSystemCall(files, replaced[i].name, (sqlite3_syscall_ptr)replaced[i].function);
    if (failed) return failed;
  }
  return SQLITE_OK;
}
