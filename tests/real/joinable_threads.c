// pthread_join, which the game's library does not have: threads made with create_joinable_thread tell when they end.
#undef pthread_create
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
static struct thread* threads;  // of the one thread that creates and joins

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
  const int failed = pthread_create(&made->id, attributes, run, made);
  if (failed) return failed;
  *id = made->id;
  made->next = threads;
  threads = made;
  return 0;
}

int pthread_join(pthread_t id, void** result) {
  struct thread* joined = threads;
  while (joined->id != id) joined = joined->next;
  const struct timespec millisecond = {0, 1000000};
  while (!joined->ended) nanosleep(&millisecond, 0);
  if (result) *result = joined->result;
  return pthread_detach(id);
}
