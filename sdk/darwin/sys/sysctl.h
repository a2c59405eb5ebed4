// The part of macOS's <sys/sysctl.h> that guests, the real programs among them, and the sample need.
#pragma once
#include "types.h"

enum { CTL_HW = 6, HW_MODEL = 2, HW_NCPU = 3, HW_MEMSIZE = 24 };

#ifdef __cplusplus
extern "C" {
#endif
int sysctl(int* name, unsigned name_length, void* value, size_t* size, void* new_value, size_t new_size);
int sysctlbyname(const char* name, void* value, size_t* size, void* new_value, size_t new_size);
#ifdef __cplusplus
}
#endif
