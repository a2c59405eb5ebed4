// The part of macOS's <time.h> that guests, the real programs among them, and libc++'s headers need.
#pragma once
#include "sys/types.h"

#define CLOCKS_PER_SEC 1000000

#ifdef __cplusplus
extern "C" {
#endif
typedef unsigned long clock_t;
struct tm {
  int tm_sec, tm_min, tm_hour, tm_mday, tm_mon, tm_year, tm_wday, tm_yday, tm_isdst;
  long tm_gmtoff;
  char* tm_zone;
};
struct timespec {
  time_t tv_sec;
  long tv_nsec;
};

clock_t clock(void);
time_t time(time_t* now);
double difftime(time_t later, time_t earlier);
time_t mktime(struct tm* time);
struct tm* gmtime(const time_t* time);
struct tm* localtime(const time_t* time);
size_t strftime(char* to, size_t size, const char* format, const struct tm* time);
int nanosleep(const struct timespec* time, struct timespec* left);
#ifdef __cplusplus
}
#endif
