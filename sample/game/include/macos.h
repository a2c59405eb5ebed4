// The part of macOS that the game calls. There is no SDK: these are the declarations of <stdlib.h>, <string.h> and
// <stdio.h>, and each name here is an import that the library answers.
#pragma once

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

void* calloc(size_t count, size_t size);
void* malloc(size_t size);
void* realloc(void* block, size_t size);
void free(void* block);

void* memcpy(void* to, const void* from, size_t size);
int memcmp(const void* left, const void* right, size_t size);
size_t strlen(const char* text);
int strcmp(const char* left, const char* right);
int strncmp(const char* left, const char* right, size_t size);
char* strchr(const char* text, int c);
char* strdup(const char* text);

typedef struct FILE FILE;
extern FILE* __stdoutp;
int fflush(FILE* stream);
int fprintf(FILE* stream, const char* format, ...);
int snprintf(char* buffer, size_t size, const char* format, ...);

#ifdef __cplusplus
}
#endif
