// The part of macOS's <stdlib.h> that guests, the real programs among them, and libc++'s headers need.
#pragma once
#define __need_size_t
#define __need_NULL
#include <stddef.h>

#define EXIT_SUCCESS 0
#define EXIT_FAILURE 1
#define RAND_MAX 0x7fffffff

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

int atexit(void (*function)(void));
void* malloc(size_t size);
void* calloc(size_t count, size_t size);
int posix_memalign(void** block, size_t alignment, size_t size);
void* realloc(void* block, size_t size);
void free(void* block);
void abort(void) __attribute__((noreturn));
void exit(int code) __attribute__((noreturn));
int abs(int value);
long labs(long value);
long long llabs(long long value);
div_t div(int value, int by);
ldiv_t ldiv(long value, long by);
lldiv_t lldiv(long long value, long long by);
int atoi(const char* text);
long atol(const char* text);
double atof(const char* text);
long strtol(const char* text, char** end, int base);
long long strtoll(const char* text, char** end, int base);
unsigned long strtoul(const char* text, char** end, int base);
double strtod(const char* text, char** end);
char* getenv(const char* name);
int setenv(const char* name, const char* value, int overwrite);
int unsetenv(const char* name);
int system(const char* command);
void* bsearch(const void* key, const void* base, size_t count, size_t size, int (*compare)(const void*, const void*));
void qsort(void* base, size_t count, size_t size, int (*compare)(const void*, const void*));
#ifdef __cplusplus
}
#endif
