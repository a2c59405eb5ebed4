// The part of macOS's <sys/time.h> that the real programs need.
#pragma once
#include "types.h"
#ifdef __cplusplus
extern "C" {
#endif
struct timeval {
  time_t tv_sec;
  int tv_usec;
};
int gettimeofday(struct timeval* now, void* zone);
int utimes(const char* path, const struct timeval* times);
#ifdef __cplusplus
}
#endif
