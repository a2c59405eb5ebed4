// pthread_join, which the game's library does not have: threads made with create_joinable_thread tell when they end.
#undef pthread_create
#undef pthread_join
#undef pthread_detach
#include <pthread.h>
#include <stdlib.h>
#include <time.h>

static struct thread {
  pthread_t id;
  void* (*start)(void*);
  void *argument, *result;
  _Atomic int ended;
  struct thread* next;
}* threads;  // guarded by the lock; those that nobody has joined, the newest first
static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;

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
  *id = made->id;
  made->next = threads;
  if (!failed) threads = made;
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
  while (!joined->ended) nanosleep(&(struct timespec){0, 1000000}, 0);
  if (result) *result = joined->result;
  free(joined);
  return pthread_detach(id);
}
