// macOS's <sys/sysctl.h>.
#pragma once
#define __need_size_t
#include <stddef.h>

enum { CTL_HW = 6, HW_MODEL = 2, HW_NCPU = 3, HW_MEMSIZE = 24 };

#ifdef __cplusplus
extern "C" {
#endif
int sysctl(int* name, unsigned name_length, void* old, size_t* old_size, void* new_value, size_t new_size);
#ifdef __cplusplus
}
#endif
