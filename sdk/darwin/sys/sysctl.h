// The part of macOS's <sys/sysctl.h> that the real programs need.
#pragma once
#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif
int sysctlbyname(const char* name, void* value, size_t* size, void* new_value, size_t new_size);
#ifdef __cplusplus
}
#endif
