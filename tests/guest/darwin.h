// The C headers of macOS as far as guests need them: include/darwin, in which the real programs and libc++ find theirs.
#pragma once

#include "guest_test.h"
#include "include/darwin/dirent.h"
#include "include/darwin/dlfcn.h"
#include "include/darwin/errno.h"
#include "include/darwin/fcntl.h"
#include "include/darwin/stdio.h"
#include "include/darwin/stdlib.h"
#include "include/darwin/string.h"
#include "include/darwin/sys/mman.h"
#include "include/darwin/sys/stat.h"
#include "include/darwin/sys/time.h"
#include "include/darwin/time.h"
#include "include/darwin/unistd.h"

/// Two texts that are equal; null is none.
inline bool same(const char* a, const char* b) { return a != nullptr && b != nullptr && strcmp(a, b) == 0; }
