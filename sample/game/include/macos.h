// The part of macOS that the game calls. There is no SDK: these are the declarations of <stdlib.h>, <string.h>,
// <stdio.h>, <time.h>, <dlfcn.h> and <sys/sysctl.h>, and each name here is an import that the library answers.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

void* calloc(size_t count, size_t size);
void* malloc(size_t size);
void free(void* block);
long strtol(const char* text, char** end, int base);

void* memcpy(void* to, const void* from, size_t size);
int memcmp(const void* left, const void* right, size_t size);
size_t strlen(const char* text);
int strcmp(const char* left, const char* right);
char* strchr(const char* text, int c);
char* strdup(const char* text);

typedef struct FILE FILE;
extern FILE* __stdoutp;
int fflush(FILE* stream);
int fprintf(FILE* stream, const char* format, ...);
int snprintf(char* buffer, size_t size, const char* format, ...);
FILE* fopen(const char* path, const char* mode);
int fclose(FILE* stream);
size_t fread(void* to, size_t size, size_t count, FILE* stream);
size_t fwrite(const void* from, size_t size, size_t count, FILE* stream);
int rename(const char* old_path, const char* new_path);

typedef long time_t;
struct tm;  // passed on, not looked into
time_t time(time_t* result);
struct tm* localtime(const time_t* time);
size_t strftime(char* buffer, size_t size, const char* format, const struct tm* time);

void* dlopen(const char* path, int mode);
void* dlsym(void* handle, const char* name);
const char* dlerror(void);

enum { CTL_HW = 6, HW_MODEL = 2, HW_NCPU = 3, HW_MEMSIZE = 24 };
int sysctl(const int* name, unsigned name_length, void* old, size_t* old_size, void* new_value, size_t new_size);

#ifdef __cplusplus
}
#endif
