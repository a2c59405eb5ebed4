// The C headers of macOS as far as guests need them: sdk/darwin, in which the real programs and libc++ find theirs.
#pragma once

#include "guest_test.h"
#include "sdk/darwin/dirent.h"
#include "sdk/darwin/dlfcn.h"
#include "sdk/darwin/errno.h"
#include "sdk/darwin/fcntl.h"
#include "sdk/darwin/stdio.h"
#include "sdk/darwin/stdlib.h"
#include "sdk/darwin/string.h"
#include "sdk/darwin/sys/mman.h"
#include "sdk/darwin/sys/stat.h"
#include "sdk/darwin/sys/time.h"
#include "sdk/darwin/time.h"
#include "sdk/darwin/unistd.h"

/// Two texts that are equal; null is none.
inline bool same(const char* a, const char* b) { return a != nullptr && b != nullptr && strcmp(a, b) == 0; }
