// The part of macOS's <sys/sysctl.h> that the real programs need.
#pragma once
#include "types.h"

#define CTL_HW 6
#define HW_NCPU 3

#ifdef __cplusplus
extern "C" {
#endif
int sysctl(int* name, unsigned length, void* value, size_t* size, void* new_value, size_t new_size);
int sysctlbyname(const char* name, void* value, size_t* size, void* new_value, size_t new_size);
#ifdef __cplusplus
}
#endif
