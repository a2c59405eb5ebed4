// pthread_join, which the game's library does not have: threads made with create_joinable_thread tell when they end.
#undef pthread_create
#undef pthread_join
#undef pthread_detach
#include <pthread.h>
#include <stdlib.h>
#include <time.h>

struct thread {
  pthread_t id;
  void* (*start)(void*);
  void* argument;
  void* result;
  _Atomic int ended;
  struct thread* next;
};
static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static struct thread* threads;  // guarded by the lock; those that nobody has joined

static void* run(void* given) {
  struct thread* const self = given;
  self->result = self->start(self->argument);
  self->ended = 1;
  return 0;
}

int create_joinable_thread(pthread_t* id, const pthread_attr_t* attributes, void* (*start)(void*), void* argument) {
  struct thread* const made = calloc(1, sizeof *made);
  made->start = start;
  made->argument = argument;
  pthread_mutex_lock(&lock);
  const int failed = pthread_create(&made->id, attributes, run, made);
  if (failed) {
    free(made);
  } else {
    *id = made->id;
    made->next = threads;
    threads = made;
  }
  pthread_mutex_unlock(&lock);
  return failed;
}

/// The newest of that id: an older one has ended, and its id is used again.
int pthread_join(pthread_t id, void** result) {
  pthread_mutex_lock(&lock);
  struct thread** place = &threads;
  while ((*place)->id != id) place = &(*place)->next;
  struct thread* const joined = *place;
  *place = joined->next;
  pthread_mutex_unlock(&lock);
  const struct timespec millisecond = {0, 1000000};
  while (!joined->ended) nanosleep(&millisecond, 0);
  if (result) *result = joined->result;
  free(joined);
  return pthread_detach(id);
}
