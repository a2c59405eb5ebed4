// The part of macOS's <sys/ioctl.h> that the real programs need.
#pragma once
#ifdef __cplusplus
extern "C"
#endif
    int
    ioctl(int number, unsigned long request, ...);
