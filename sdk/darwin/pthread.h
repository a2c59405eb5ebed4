// The part of macOS's <pthread.h> that the real programs need.
#pragma once
#include "sched.h"
#include "sys/types.h"

#define PTHREAD_MUTEX_RECURSIVE 2
#define PTHREAD_CREATE_JOINABLE 1
#define PTHREAD_CREATE_DETACHED 2
#define PTHREAD_CANCEL_DISABLE 1
// As macOS compiles it into programs: the handlers of a thread hang at the second word of its pthread_t.
#define pthread_cleanup_push(function, argument)                                                               \
  {                                                                                                            \
    struct cleanup_handler cleanup_ = {(function), (argument), ((struct cleanup_handler**)pthread_self())[1]}; \
    ((struct cleanup_handler**)pthread_self())[1] = &cleanup_;
#define pthread_cleanup_pop(execute)                             \
  ((struct cleanup_handler**)pthread_self())[1] = cleanup_.next; \
  if (execute) cleanup_.function(cleanup_.argument);             \
  }
#define PTHREAD_MUTEX_INITIALIZER {0x32AAABA7, {0}}

#ifdef __cplusplus
extern "C" {
#endif
typedef struct _opaque_pthread_t* pthread_t;
struct cleanup_handler {
  void (*function)(void*);
  void* argument;
  struct cleanup_handler* next;
};
typedef struct {
  long signature;
  char opaque[56];
} pthread_mutex_t;
typedef struct {
  long signature;
  char opaque[8];
} pthread_mutexattr_t;
typedef struct {
  long signature;
  char opaque[56];
} pthread_attr_t;

typedef struct {
  long signature;
  char opaque[40];
} pthread_cond_t;
typedef unsigned long pthread_key_t;

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument);
int pthread_attr_init(pthread_attr_t* attributes);
int pthread_attr_destroy(pthread_attr_t* attributes);
int pthread_attr_getdetachstate(const pthread_attr_t* attributes, int* state);
int pthread_attr_getstacksize(const pthread_attr_t* attributes, size_t* size);
int pthread_attr_setstacksize(pthread_attr_t* attributes, size_t size);
int pthread_setcancelstate(int state, int* old);
int pthread_join(pthread_t thread, void** result);
int pthread_detach(pthread_t thread);
pthread_t pthread_self(void);
int pthread_mutexattr_init(pthread_mutexattr_t* attributes);
int pthread_mutexattr_settype(pthread_mutexattr_t* attributes, int type);
int pthread_mutexattr_destroy(pthread_mutexattr_t* attributes);
int pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes);
int pthread_mutex_destroy(pthread_mutex_t* mutex);
int pthread_mutex_lock(pthread_mutex_t* mutex);
int pthread_mutex_trylock(pthread_mutex_t* mutex);
int pthread_mutex_unlock(pthread_mutex_t* mutex);
int pthread_cond_init(pthread_cond_t* condition, const void* attributes);
int pthread_cond_destroy(pthread_cond_t* condition);
int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex);
int pthread_cond_signal(pthread_cond_t* condition);
int pthread_cond_broadcast(pthread_cond_t* condition);
int pthread_key_create(pthread_key_t* key, void (*destroy)(void*));
int pthread_key_delete(pthread_key_t key);
void* pthread_getspecific(pthread_key_t key);
int pthread_setspecific(pthread_key_t key, const void* value);
#ifdef __cplusplus
}
#endif
