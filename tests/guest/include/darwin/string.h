// The part of macOS's <string.h> that guests and libc++'s headers need.
#pragma once
#define __need_size_t
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif
void* memcpy(void* to, const void* from, size_t size);
void* memmove(void* to, const void* from, size_t size);
void* memset(void* to, int value, size_t size);
int memcmp(const void* left, const void* right, size_t size);
void* memchr(const void* block, int value, size_t size);
size_t strlen(const char* text);
int strcmp(const char* left, const char* right);
char* strchr(const char* text, int c);
char* strrchr(const char* text, int c);
char* strstr(const char* text, const char* part);
char* strpbrk(const char* text, const char* set);
#ifdef __cplusplus
}
#endif
