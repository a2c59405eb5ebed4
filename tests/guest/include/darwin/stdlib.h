// The part of macOS's <stdlib.h> that guests and libc++'s headers need.
#pragma once
#define __need_size_t
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif
typedef struct {
  int quot, rem;
} div_t;
typedef struct {
  long quot, rem;
} ldiv_t;
typedef struct {
  long long quot, rem;
} lldiv_t;

void* malloc(size_t size);
void* calloc(size_t count, size_t size);
void* realloc(void* block, size_t size);
void free(void* block);
[[noreturn]] void abort(void);
[[noreturn]] void exit(int code);
int abs(int value);
long labs(long value);
long long llabs(long long value);
div_t div(int value, int by);
ldiv_t ldiv(long value, long by);
lldiv_t lldiv(long long value, long long by);
#ifdef __cplusplus
}
#endif
