// macOS's <dirent.h>, with inodes of 64 bits.
#pragma once
#include "sys/types.h"

#ifdef __cplusplus
extern "C" {
#endif
typedef struct DIR DIR;
struct dirent {
  ino_t d_ino;
  unsigned long long d_seekoff;
  unsigned short d_reclen, d_namlen;
  unsigned char d_type;
  char d_name[1024];
};
DIR* opendir(const char* path) __asm("_opendir$INODE64");
struct dirent* readdir(DIR* directory) __asm("_readdir$INODE64");
void rewinddir(DIR* directory) __asm("_rewinddir$INODE64");
int closedir(DIR* directory);
#ifdef __cplusplus
}
#endif
