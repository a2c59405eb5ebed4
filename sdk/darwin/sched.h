// The part of macOS's <sched.h> that the real programs need.
#pragma once
#ifdef __cplusplus
extern "C"
#endif
    int
    sched_yield(void);
