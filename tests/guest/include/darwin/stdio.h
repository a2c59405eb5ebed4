// The part of macOS's <stdio.h> that guests and libc++'s headers need.
#pragma once
#define __need_size_t
#include <stddef.h>

#define EOF (-1)

#ifdef __cplusplus
extern "C" {
#endif
typedef struct FILE FILE;
int remove(const char* path);  // libc++ has an algorithm of the name, and wants both
int snprintf(char* to, size_t size, const char* format, ...);
#ifdef __cplusplus
}
#endif
