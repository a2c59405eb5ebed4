// A small conservative mark-sweep collector, of the kind that the game's runtime is, and threads that make it work:
// it stops the world through Mach, takes registers, stacks and thread-specific data for roots, and whatever it loses
// is poisoned, so that a thread that still uses it notices.
#include "darwin_threads.h"

namespace {

struct Node {
  Node* next;
  Node* other;
  uint64 tag;   // of the structure that it belongs to
  uint64 seal;  // of a live node: sealed(this); of a free one: 0
};

constexpr int32 node_count = 1 << 14;
constexpr int32 max_mutators = 64;
constexpr int32 live_mutators = 8;
constexpr int32 collections_wanted = 2000;

Node nodes[node_count];
bool marked[node_count];
Node* mark_stack[node_count];
Node* free_nodes = nullptr;

struct Mutator {
  Thread* thread;
  uint32 port;
  bool alive;
};

// Guards all of the above and below; the collector holds it while the world stands still.
Mutex heap_lock = static_mutex;
Mutator mutators[max_mutators];
int32 mutator_count = 0;
int64 collections = 0, nodes_freed = 0, threads_stopped = 0;
int64 lost_nodes = 0;  // counted by the mutators, atomically
Key structure_key;

uint64 sealed(const Node* node) { return reinterpret_cast<uint64>(node) ^ 0x5EA1ED5EA1ED5EA1; }

/// A word that may be a pointer into the heap keeps its node alive.
int32 mark_word(uint64 word, int32 depth) {
  const uint64 offset = word - reinterpret_cast<uint64>(nodes);
  if (offset >= sizeof nodes) return depth;
  const uint64 index = offset / sizeof(Node);
  if (marked[index] || nodes[index].seal == 0) return depth;
  marked[index] = true;
  mark_stack[depth] = &nodes[index];
  return depth + 1;
}

void mark_range(const void* from, const void* to) {
  int32 depth = 0;
  for (auto at = reinterpret_cast<uint64>(from) & ~7ul; at + 8 <= reinterpret_cast<uint64>(to); at += 8) {
    depth = mark_word(*reinterpret_cast<const uint64*>(at), depth);
    while (depth > 0) {
      const Node* node = mark_stack[--depth];
      depth = mark_word(reinterpret_cast<uint64>(node->next), depth);
      depth = mark_word(reinterpret_cast<uint64>(node->other), depth);
    }
  }
}

/// A thread's values lie behind the 48 bytes of its record's header.
void mark_thread_data(Thread* thread) {
  const auto* values = reinterpret_cast<const uint8*>(thread) + 48;
  mark_range(values, values + 512 * 8);
}

void mark_stopped(const Mutator& mutator) {
  ThreadState state;
  uint32 count = 42;
  if (thread_get_state(mutator.port, x86_thread_state64, &state, &count) != 0) {
    ++lost_nodes;
    return;
  }
  mark_range(&state, &state + 1);
  mark_range(reinterpret_cast<const uint8*>(state.rsp) - 128, pthread_get_stackaddr_np(mutator.thread));
  mark_thread_data(mutator.thread);
}

void sweep() {
  for (int32 i = 0; i < node_count; ++i) {
    if (marked[i]) {
      marked[i] = false;
    } else if (nodes[i].seal != 0) {
      nodes[i] = {free_nodes, nullptr, 0xDEAD, 0};
      free_nodes = &nodes[i];
      ++nodes_freed;
    }
  }
}

[[gnu::noinline]] void collect_locked() {
  Thread* const self = pthread_self();
  for (int32 i = 0; i < mutator_count; ++i) {
    if (!mutators[i].alive || mutators[i].thread == self) continue;
    if (thread_suspend(mutators[i].port) == 0) ++threads_stopped;
  }
  // The collector's own registers are in its frame: every one that System V has a callee keep, from the buffer.
  uint64 registers[6];
  asm volatile(
      "movq %%rbx, 0(%0)\n movq %%rbp, 8(%0)\n movq %%r12, 16(%0)\n movq %%r13, 24(%0)\n movq %%r14, 32(%0)\n"
      "movq %%r15, 40(%0)"
      :
      : "r"(registers)
      : "memory");
  mark_range(registers, pthread_get_stackaddr_np(self));
  mark_thread_data(self);
  for (int32 i = 0; i < mutator_count; ++i) {
    if (mutators[i].alive && mutators[i].thread != self) mark_stopped(mutators[i]);
  }
  sweep();
  for (int32 i = 0; i < mutator_count; ++i) {
    if (mutators[i].alive && mutators[i].thread != self) thread_resume(mutators[i].port);
  }
  ++collections;
}

[[gnu::noinline]] Node* allocate(Node* next, uint64 tag) {
  pthread_mutex_lock(&heap_lock);
  if (free_nodes == nullptr) collect_locked();
  Node* node = free_nodes;
  if (node != nullptr) {
    free_nodes = node->next;
    *node = {next, nullptr, tag, sealed(node)};
  }
  pthread_mutex_unlock(&heap_lock);
  return node;
}

bool is_whole(const Node* list, uint64 tag, int32 length) {
  for (; list != nullptr; list = list->next, --length) {
    if (list->seal != sealed(list) || list->tag != tag) return false;
    if (list->other != nullptr && (list->other->seal != sealed(list->other) || list->other->tag != tag)) return false;
  }
  return length == 0;
}

/// Builds lists, some held by the stack alone and one by thread-specific data alone, and looks whether they stay whole.
void mutate(uint64 tag, int32 rounds) {
  for (int32 round = 0; round < rounds; ++round) {
    const uint64 own_tag = tag + round;
    Node* list = nullptr;
    const int32 length = 20 + round % 50;
    for (int32 i = 0; i < length; ++i) {
      list = allocate(list, own_tag);
      if (list == nullptr) return;  // all live: counted as a failure below
      if (i % 3 == 0) list->other = allocate(nullptr, own_tag);
    }
    auto* kept = static_cast<Node*>(pthread_getspecific(structure_key));
    if (kept != nullptr && !is_whole(kept, kept->tag, 10)) __atomic_fetch_add(&lost_nodes, 1, __ATOMIC_RELAXED);
    pthread_setspecific(structure_key, nullptr);
    kept = nullptr;
    for (int32 i = 0; i < 10; ++i) {
      Node* longer = allocate(static_cast<Node*>(pthread_getspecific(structure_key)), own_tag);
      pthread_setspecific(structure_key, longer);
    }
    if (!is_whole(list, own_tag, length)) __atomic_fetch_add(&lost_nodes, 1, __ATOMIC_RELAXED);
    if (__atomic_load_n(&collections, __ATOMIC_RELAXED) >= collections_wanted) return;
  }
}

void* mutator_thread(void* argument) {
  auto* ended = static_cast<Signal*>(argument);
  pthread_mutex_lock(&heap_lock);
  Mutator& mutator = mutators[mutator_count++];
  mutator = {pthread_self(), mach_thread_self(), true};
  const uint64 tag = static_cast<uint64>(mutator_count) << 32;
  pthread_mutex_unlock(&heap_lock);
  mutate(tag, mutator_count >= max_mutators - live_mutators ? 1 << 30 : 20'000);
  pthread_setspecific(structure_key, nullptr);
  pthread_mutex_lock(&heap_lock);
  mutator.alive = false;
  pthread_mutex_unlock(&heap_lock);
  ended->raise();
  return nullptr;
}

}  // namespace

GUEST_TEST(a_conservative_collector_loses_nothing_while_threads_come_and_go) {
  pthread_key_create(&structure_key, nullptr);
  for (Node& node : nodes) {
    node = {free_nodes, nullptr, 0xDEAD, 0};
    free_nodes = &node;
  }
  Signal ended;
  int32 started = 0, running = 0;
  while (started < max_mutators && (running > 0 || started == 0 || collections < collections_wanted)) {
    while (running < live_mutators && started < max_mutators) {
      Thread* thread;
      if (pthread_create(&thread, nullptr, mutator_thread, &ended) != 0) break;
      ++started;
      ++running;
    }
    ended.wait();
    --running;
    if (__atomic_load_n(&collections, __ATOMIC_RELAXED) >= collections_wanted) break;
  }
  for (; running > 0; --running) ended.wait();
  CHECK(collections >= collections_wanted);
  CHECK(threads_stopped >= collections_wanted * 4);  // there was a world to stop
  CHECK(nodes_freed > collections_wanted * 1000);    // and something to free
  CHECK(started > live_mutators);                    // threads came and went
  CHECK(lost_nodes == 0);
}
