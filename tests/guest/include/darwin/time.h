// The part of macOS's <time.h> that libc++'s headers need.
#pragma once
typedef long time_t;
typedef unsigned long clock_t;
