// The Boehm collector under load: threads that come and go, threads that collect, threads that keep the heap and the
// mappings busy, which may be stopped anywhere in them; and lists of references that are shifted meanwhile.
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <time.h>

#include "gc.h"

#define REFERENCES 1000
#define SEAL 0x5EA1ED5EA1ED5EA1

typedef struct Node {
  struct Node* next;
  unsigned long seal;  // SEAL ^ its address
  unsigned long filler[6];
} Node;

static volatile int stop, lost;

static Node* make_node(Node* next) {
  Node* const node = GC_MALLOC(sizeof *node);
  *node = (Node){next, SEAL ^ (unsigned long)node};
  return node;
}
static void check(const Node* node) {
  if (node == 0 || node->seal != (SEAL ^ (unsigned long)node)) __sync_fetch_and_add(&lost, 1);
}

/// A list that takes a reference out and puts a new one in, at changing places: each is held by the list alone.
static void* shift_references(void* unused) {
  Node** const list = GC_MALLOC(REFERENCES * sizeof *list);
  for (int i = 0; i < REFERENCES; ++i) list[i] = make_node(0);
  for (unsigned round = 0; !stop; ++round) {
    const int at = round * 7919u % (round % 3 ? REFERENCES : 20);
    memmove(&list[at], &list[at + 1], (REFERENCES - 1 - at) * sizeof *list);
    list[REFERENCES - 1] = make_node(0);
    memmove(&list[at + 1], &list[at], (REFERENCES - 1 - at) * sizeof *list);
    list[at] = make_node(0);
    for (int i = 0; i < REFERENCES && round % 64 == 0; ++i) check(list[i]);
  }
  return 0;
}

/// Deep structures make the mark stack grow, while others stand still.
static void* build_trees(void* unused) {
  while (!stop) {
    Node** const wide = GC_MALLOC(20000 * sizeof *wide);
    for (int i = 0; i < 20000; ++i) wide[i] = make_node(i % 100 ? wide[i - 1] : 0);
    for (int i = 0; i < 20000; ++i) check(wide[i]);
  }
  return 0;
}

static void* use_memory(void* unused) {
  for (unsigned round = 0; !stop; ++round) {
    void* const block = malloc(round * 37 % 5000);
    char* const pages = mmap(0, 65536, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANON, -1, 0);
    pages[4096] = 1;
    mprotect(pages, 4096, PROT_READ);
    munmap(pages, 65536);
    free(block);
  }
  return 0;
}

static void* live_shortly(void* unused) {
  Node* list = 0;
  for (int i = 0; i < 200; ++i) list = make_node(list);
  for (; list; list = list->next) check(list);
  return 0;
}
static void* come_and_go(void* unused) {
  while (!stop) {
    pthread_t threads[4];
    for (int i = 0; i < 4; ++i) pthread_create(&threads[i], 0, live_shortly, 0);
    for (int i = 0; i < 4; ++i) pthread_join(threads[i], 0);
  }
  return 0;
}

static void* collect(void* unused) {
  for (; !stop; nanosleep(&(struct timespec){0, 2000000}, 0)) GC_gcollect();
  return 0;
}

int main(int argc, char** argv) {
  static void* (*const kinds[])(void*) = {shift_references, shift_references, build_trees, use_memory, use_memory,
                                          use_memory,       use_memory,       come_and_go, collect,    collect};
  enum { COUNT = sizeof kinds / sizeof kinds[0] };
  pthread_t threads[COUNT];
  GC_INIT();
  for (int i = 0; i < COUNT; ++i) pthread_create(&threads[i], 0, kinds[i], 0);
  for (int left = atoi(argv[1]); left > 0; --left) nanosleep(&(struct timespec){1, 0}, 0);
  stop = 1;
  for (int i = 0; i < COUNT; ++i) pthread_join(threads[i], 0);
  fprintf(stdout, "%lu collections, %d references lost\n", (unsigned long)GC_get_gc_no(), lost);
  return lost != 0 || GC_get_gc_no() < 100;
}
