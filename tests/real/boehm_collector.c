// The Boehm collector as one source file, as it may be built. It makes joinable threads.
#undef pthread_create
#undef pthread_join
#undef pthread_detach
#define __real_pthread_create create_joinable_thread
#define __real_pthread_join pthread_join
#define __real_pthread_detach pthread_detach
#include <pthread.h>
#include <string.h>

void* pthread_get_stackaddr_np(pthread_t thread);

#include "extra/gc.c"
