// The part of macOS's <string.h> that guests, the real programs among them, and libc++'s headers need.
#pragma once
#define __need_size_t
#define __need_NULL
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif
void bcopy(const void* from, void* to, size_t size);
void bzero(void* to, size_t size);
void* memcpy(void* to, const void* from, size_t size);
void* memmove(void* to, const void* from, size_t size);
void* memset(void* to, int value, size_t size);
int memcmp(const void* left, const void* right, size_t size);
void* memchr(const void* block, int value, size_t size);
size_t strlen(const char* text);
char* strcpy(char* to, const char* from);
char* strncpy(char* to, const char* from, size_t size);
char* strcat(char* to, const char* from);
int strcmp(const char* left, const char* right);
int strncmp(const char* left, const char* right, size_t size);
int strcoll(const char* left, const char* right);
char* strchr(const char* text, int c);
char* strrchr(const char* text, int c);
char* strstr(const char* text, const char* part);
char* strpbrk(const char* text, const char* set);
size_t strspn(const char* text, const char* set);
size_t strcspn(const char* text, const char* set);
char* strdup(const char* text);
char* strerror(int error);
int strerror_r(int error, char* to, size_t size);
#ifdef __cplusplus
}
#endif
