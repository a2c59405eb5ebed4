// The part of macOS's <sys/stat.h> that the real programs need.
#pragma once
#include "../time.h"
#include "types.h"

#define S_IFMT 0170000
#define S_IFDIR 0040000
#define S_IFREG 0100000
#define S_IFLNK 0120000
#define S_ISDIR(mode) (((mode) & S_IFMT) == S_IFDIR)
#define S_ISREG(mode) (((mode) & S_IFMT) == S_IFREG)
#define S_ISLNK(mode) (((mode) & S_IFMT) == S_IFLNK)

#ifdef __cplusplus
extern "C" {
#endif
/// With inodes of 64 bits.
struct stat {
  dev_t st_dev;
  mode_t st_mode;
  nlink_t st_nlink;
  ino_t st_ino;
  uid_t st_uid;
  gid_t st_gid;
  dev_t st_rdev;
  struct timespec st_atimespec, st_mtimespec, st_ctimespec, st_birthtimespec;
  off_t st_size;
  long long st_blocks;
  int st_blksize;
  unsigned st_flags, st_gen;
  int st_lspare;
  long long st_qspare[2];
};
#define st_mtime st_mtimespec.tv_sec

int stat(const char* path, struct stat* result) __asm("_stat$INODE64");
int lstat(const char* path, struct stat* result) __asm("_lstat$INODE64");
int fstat(int number, struct stat* result) __asm("_fstat$INODE64");
int mkdir(const char* path, mode_t mode);
int chmod(const char* path, mode_t mode);
int fchmod(int number, mode_t mode);
#ifdef __cplusplus
}
#endif
