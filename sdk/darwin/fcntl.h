// The part of macOS's <fcntl.h> that the real programs need.
#pragma once
#include "sys/types.h"

#define O_RDONLY 0
#define O_WRONLY 1
#define O_RDWR 2
#define O_NONBLOCK 0x4
#define O_APPEND 0x8
#define O_NOFOLLOW 0x100
#define O_CREAT 0x200
#define O_TRUNC 0x400
#define O_EXCL 0x800
#define O_CLOEXEC 0x1000000
#define F_DUPFD 0
#define F_GETFD 1
#define F_SETFD 2
#define F_GETLK 7
#define F_SETLK 8
#define F_RDLCK 1
#define F_UNLCK 2
#define F_WRLCK 3
#define FD_CLOEXEC 1

#ifdef __cplusplus
extern "C" {
#endif
struct flock {
  off_t l_start, l_len;
  pid_t l_pid;
  short l_type, l_whence;
};
int open(const char* path, int flags, ...);
int fcntl(int number, int command, ...);
#ifdef __cplusplus
}
#endif
