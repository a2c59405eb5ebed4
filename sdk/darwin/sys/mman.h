// The part of macOS's <sys/mman.h> that the real programs need.
#pragma once
#include "types.h"

#define PROT_NONE 0
#define PROT_READ 1
#define PROT_WRITE 2
#define PROT_EXEC 4
#define MAP_SHARED 1
#define MAP_PRIVATE 2
#define MAP_FIXED 0x10
#define MAP_ANON 0x1000
#define MAP_FAILED ((void*)-1)

#ifdef __cplusplus
extern "C" {
#endif
void* mmap(void* wanted, size_t length, int protection, int flags, int number, off_t offset);
int munmap(void* start, size_t length);
int mprotect(void* start, size_t length, int protection);
#ifdef __cplusplus
}
#endif
