// The part of macOS's <signal.h> that the real programs need.
#pragma once
#define SIGINT 2
#define SIGFPE 8
#define SIGBUS 10
#define SIGSEGV 11
#define SIGALRM 14
#define SIG_DFL ((void (*)(int))0)
typedef int sig_atomic_t;
#ifdef __cplusplus
extern "C"
#endif
    void (*signal(int number, void (*handler)(int)))(int);
