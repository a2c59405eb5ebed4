// The Boehm collector as one source file, as it may be built. It makes joinable threads.
#undef pthread_create
#undef pthread_join
#undef pthread_detach
#define __real_pthread_create create_joinable_thread
#define __real_pthread_join pthread_join
#define __real_pthread_detach pthread_detach
#include <pthread.h>

void* pthread_get_stackaddr_np(pthread_t thread);
int pthread_attr_init(pthread_attr_t* attributes);
int pthread_attr_destroy(pthread_attr_t* attributes);
/// Threads made with attributes are joinable here.
#define PTHREAD_CREATE_DETACHED 2
static int pthread_attr_getdetachstate(const pthread_attr_t* attributes, int* state) { return *state = 1, 0; }
static int pthread_attr_getstacksize(const pthread_attr_t* attributes, size_t* size) { return *size = 0x800000, 0; }

#include "extra/gc.c"
