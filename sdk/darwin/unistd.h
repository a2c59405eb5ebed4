// The part of macOS's <unistd.h> that the real programs need.
#pragma once
#include "stdio.h"  // for SEEK_*, as on macOS
#include "sys/types.h"

#define F_OK 0
#define X_OK 1
#define W_OK 2
#define R_OK 4
#define _SC_PAGESIZE 29

#ifdef __cplusplus
extern "C" {
#endif
int close(int number);
ssize_t read(int number, void* to, size_t size);
ssize_t write(int number, const void* from, size_t size);
off_t lseek(int number, off_t offset, int whence);
int ftruncate(int number, off_t length);
int fsync(int number);
int fchown(int number, uid_t user, gid_t group);
int access(const char* path, int mode);
int unlink(const char* path);
int rmdir(const char* path);
char* getcwd(char* to, size_t size);
ssize_t readlink(const char* path, char* to, size_t size);
int getpagesize(void);
long sysconf(int name);
pid_t getpid(void);
uid_t geteuid(void);
unsigned sleep(unsigned seconds);
int usleep(useconds_t microseconds);
int isatty(int number);
#ifdef __cplusplus
}
#endif
