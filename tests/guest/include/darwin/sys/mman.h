// The part of macOS's <sys/mman.h> that the real programs need.
#pragma once
#include <sys/types.h>

#define PROT_READ 1
#define PROT_WRITE 2
#define MAP_SHARED 1
#define MAP_FAILED ((void*)-1)

#ifdef __cplusplus
extern "C" {
#endif
void* mmap(void* wanted, size_t length, int protection, int flags, int number, off_t offset);
int munmap(void* start, size_t length);
#ifdef __cplusplus
}
#endif
