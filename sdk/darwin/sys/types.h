// The part of macOS's <sys/types.h> that guests, the real programs among them, need.
#pragma once
#define __need_size_t
#include <stddef.h>

typedef long ssize_t;
typedef long long off_t;
typedef long time_t;
typedef int pid_t;
typedef unsigned uid_t;
typedef unsigned gid_t;
typedef int dev_t;
typedef unsigned long long ino_t;
typedef unsigned short mode_t;
typedef unsigned short nlink_t;
typedef unsigned useconds_t;
