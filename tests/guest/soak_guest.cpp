// Game threads that do everything at once for as long as soak_test says: blocks, files, exceptions, locks; while
// threads come and go, and a collector stops the others now and then.
#define GUEST_TEST_NO_MAIN
#include "darwin_threads.h"

extern "C" {
/// Set by the program: takes the state of the process; false when the time is over.
bool (*go_on)(int64 ended_threads) = nullptr;
/// Set by the program: tells what went wrong.
void (*report)(int64 worker, const char* what) = nullptr;

int32 il2cpp_init(const char*) { return 0; }
}

namespace {

constexpr int32 worker_count = 8;

bool stop = false;
Mutex counter_lock = static_mutex;
int64 counter = 0;  // guarded by counter_lock

struct Worker {
  int64 number;
  uint32 port;
  int64 steps;
  int64 counted;  // its share of counter
  uint64 random;

  uint64 below(uint64 limit) { return ((random = random * 6364136223846793005 + 1442695040888963407) >> 33) % limit; }
  void check(bool right, const char* what) {
    if (!right) report(number, what);
  }
} workers[worker_count];

void use_heap_and_files(Worker& self) {
  char name[32], text[600], found[600];
  snprintf(name, sizeof name, "soak.tmp/save.%ld", self.number);
  const uint64 size = 1 + self.below(sizeof text);
  void* block = nullptr;
  self.check(posix_memalign(&block, 256, size) == 0, "an aligned block");
  block = realloc(memset(block, static_cast<int32>(size), size), 100 * size);
  memcpy(text, block, size);
  free(block);
  const int32 file = open(name, O_RDWR | O_CREAT | O_TRUNC, 0644);
  self.check(write(file, text, size) == static_cast<int64>(size) && lseek(file, 0, 0) == 0, "a file is written");
  self.check(read(file, found, sizeof found) == static_cast<int64>(size) && close(file) == 0, "a file is read");
  self.check(memcmp(text, found, size) == 0 && text[size - 1] == static_cast<char>(size) && unlink(name) == 0,
             "a file");
}

[[gnu::noinline]] int64 descend(int64 depth, int64& left) {
  struct Frame {
    int64& left;
    ~Frame() { ++left; }
  } frame{left};
  if (depth == 0) throw left;
  return descend(depth - 1, left) + 1;
}
void throw_across_frames(Worker& self) {
  const int64 depth = static_cast<int64>(self.below(20));
  int64 left = 0;
  try {
    descend(depth, left);
  } catch (int64) {
  }
  self.check(left == depth + 1, "an exception");
}

void lock_and_count(Worker& self) {
  pthread_mutex_lock(&counter_lock);
  counter = counter + 1;
  pthread_mutex_unlock(&counter_lock);
  ++self.counted;
}

void (*const steps[])(Worker&) = {use_heap_and_files, throw_across_frames, lock_and_count};

void work(Worker& self) {
  __atomic_store_n(&self.port, mach_thread_self(), __ATOMIC_RELEASE);
  while (!__atomic_load_n(&stop, __ATOMIC_RELAXED)) {
    const auto step = steps[self.below(sizeof steps / sizeof steps[0])];
    for (int32 i = 0; i < 10; ++i) step(self);
    ++self.steps;
  }
}

/// Between the stop and the go no heap is used: the stopped thread may hold its lock.
void stop_and_look(Worker& worker) {
  ThreadState state;
  uint32 count = 42;
  const uint32 port = __atomic_load_n(&worker.port, __ATOMIC_ACQUIRE);
  if (port == 0) return;
  const bool right = thread_suspend(port) == 0 && thread_get_state(port, x86_thread_state64, &state, &count) == 0 &&
                     state.rsp != 0 && munmap(mmap(nullptr, 4096, 3, MAP_ANON | MAP_PRIVATE, -1, 0), 4096) == 0;
  if (thread_resume(port) != 0 || !right) report(worker.number, "suspension");
}

}  // namespace

extern "C" {

/// Returns the steps that were done. A worker that stands still holds up the end.
int64 run_soak() {
  mkdir("soak.tmp", 0755);
  Crew crew(worker_count, [](int64 i) {
    workers[i].number = i;
    workers[i].random = i + 1;
    work(workers[i]);
  });
  void* const never = dispatch_semaphore_create(0);
  int64 threads = 0;
  do {
    for (int32 round = 0; round < 10; ++round) {
      for (Worker& worker : workers) stop_and_look(worker);
      dispatch_semaphore_wait(never, dispatch_time(0, 100'000'000));
    }
    run_on_threads(2, [](int64) { free(malloc(1000)); });
    threads += 2;
  } while (go_on(threads));

  __atomic_store_n(&stop, true, __ATOMIC_RELAXED);
  crew.join();
  int64 all = 0, counted = 0;
  for (const Worker& worker : workers) all += worker.steps, counted += worker.counted;
  if (counted != counter) report(-1, "a mutex let two in");
  if (rmdir("soak.tmp") != 0) report(-1, "a file was left");
  return all;
}
}
