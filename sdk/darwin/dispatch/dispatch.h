// The part of macOS's <dispatch/dispatch.h> that guests need.
#pragma once

#define DISPATCH_TIME_NOW 0ul
#define DISPATCH_TIME_FOREVER (~0ul)

#ifdef __cplusplus
extern "C" {
#endif
void dispatch_once_f(long* predicate, void* context, void (*function)(void*));
void* dispatch_semaphore_create(long value);
long dispatch_semaphore_wait(void* semaphore, unsigned long timeout);
long dispatch_semaphore_signal(void* semaphore);
unsigned long dispatch_time(unsigned long when, long delta);
void dispatch_release(void* object);
#ifdef __cplusplus
}
#endif
