// Game threads that do everything at once for as long as soak_test says: blocks, files, exceptions, locks
// and conditions, internal calls; while threads come and go, and a collector stops the others now and then.
#include "reflection_runtime.h"

#include "darwin_threads.h"

extern "C" {
/// Set by the program: takes the state of the process; false when the time is over.
bool (*go_on)(int64 ended_threads) = nullptr;
/// Set by the program: tells what went wrong.
void (*report)(int64 worker, const char* what) = nullptr;

int32 il2cpp_init(const char*) { return 0; }
}

namespace {

using Vector = S3<float, float, float>;
using Mix = double(Object*, int, float, double, Vector, long long, double, int, Vector*, float);

const Type* (*const mix_parameters[])() = {
    &TypeOf<Object*>::get,   &TypeOf<int>::get,    &TypeOf<float>::get, &TypeOf<double>::get,  &TypeOf<Vector>::get,
    &TypeOf<long long>::get, &TypeOf<double>::get, &TypeOf<int>::get,   &TypeOf<Vector*>::get, &TypeOf<float>::get};
const Method soak_methods[] = {{"Mix", false, 0x1000, 10, mix_parameters, &TypeOf<double>::get}};
const Class soak_class = {.name = "Soak", .methods = soak_methods, .method_count = 1};
const Image soak_image = {{&soak_class, nullptr}};

constexpr int32 worker_count = 8;
constexpr int64 patience = 60;  // seconds without a step

bool stop = false;
Mix* mix = nullptr;
Mutex counter_lock = static_mutex;
int64 counter = 0;  // guarded by counter_lock

/// Two workers that wake each other in turn.
struct Pair {
  Mutex mutex = static_mutex;
  Condition condition = static_condition;
  int64 turn = 0;  // of both; odd: the second one's
  bool leaving = false;
} pairs[worker_count / 2];

struct Worker {
  int64 number;
  uint32 port;
  const char* step;  // what it does now
  int64 steps;       // read by the main thread
  int64 counted;     // its share of counter
  uint64 random;

  uint64 below(uint64 limit) { return ((random = random * 6364136223846793005 + 1442695040888963407) >> 33) % limit; }
  void check(bool right) {
    if (!right) report(number, step);
  }
} workers[worker_count];

void use_blocks(Worker& self) {
  uint8* blocks[16];
  uint64 sizes[16];
  for (int32 i = 0; i < 16; ++i) {
    sizes[i] = 1 + self.below(i == 0 ? 300'000 : 3000);
    if (i % 4 == 3) {
      void* aligned = nullptr;
      self.check(posix_memalign(&aligned, 256, sizes[i]) == 0 && reinterpret_cast<uint64>(aligned) % 256 == 0);
      blocks[i] = static_cast<uint8*>(aligned);
    } else {
      blocks[i] = static_cast<uint8*>(malloc(sizes[i]));
    }
    memset(blocks[i], i, sizes[i]);
  }
  for (int32 i = 0; i < 16; ++i) {
    const uint64 size = 1 + self.below(5000), kept = size < sizes[i] ? size : sizes[i];
    blocks[i] = static_cast<uint8*>(realloc(blocks[i], size));
    self.check(blocks[i][0] == i && blocks[i][kept - 1] == i);
  }
  for (uint8* block : blocks) free(block);
}

void use_files(Worker& self) {
  char name[32], new_name[32], text[600], found[600];
  snprintf(name, sizeof name, "soak.tmp/save.%ld", self.number);
  snprintf(new_name, sizeof new_name, "%s.new", name);
  const uint64 size = 1 + self.below(sizeof text);
  memset(text, static_cast<int32>(self.below(256)), size);
  int32 file = open(new_name, 0x601, 0644);  // write only, create, truncate
  self.check(file >= 0 && write(file, text, size) == static_cast<int64>(size) && close(file) == 0);
  self.check(rename(new_name, name) == 0);
  file = open(name, 0);
  self.check(file >= 0 && read(file, found, sizeof found) == static_cast<int64>(size) && close(file) == 0);
  self.check(memcmp(text, found, size) == 0 && unlink(name) == 0);
}

struct Thrown {
  int64 depth;
};
struct Frame {
  int64& open_frames;
  explicit Frame(int64& open_frames) : open_frames(open_frames) { ++open_frames; }
  ~Frame() { --open_frames; }
};
[[gnu::noinline]] int64 descend(int64 depth, int64& open_frames) {
  const Frame frame(open_frames);
  if (depth == 0) throw Thrown{open_frames};
  const int64 result = descend(depth - 1, open_frames);
  asm volatile("" ::: "memory");
  return result + 1;
}
void throw_across_frames(Worker& self) {
  for (int32 i = 0; i < 5; ++i) {
    const int64 depth = static_cast<int64>(self.below(20));
    int64 open_frames = 0;
    try {
      descend(depth, open_frames);
      self.check(false);
    } catch (const Thrown& thrown) {
      self.check(thrown.depth == depth + 1 && open_frames == 0);
    }
  }
}

void call_the_player(Worker& self) {
  for (int32 i = 0; i < 20; ++i) {
    Vector place = {1, 2, static_cast<float>(i)};
    const double sum = mix(nullptr, 1, 2, 3, place, 4, 5, 6, &place, static_cast<float>(self.number));
    self.check(sum == 1 + 2 + 3 + 1 + 2 + i + 4 + 5 + 6 + i + self.number);
  }
}

void lock_and_count(Worker& self) {
  for (int32 i = 0; i < 50; ++i) {
    pthread_mutex_lock(&counter_lock);
    counter = counter + 1;
    pthread_mutex_unlock(&counter_lock);
    ++self.counted;
  }
}

/// Both come here as often, so each waits for the other: a wake-up that is lost holds both forever.
void wake_each_other(Worker& self) {
  Pair& pair = pairs[self.number / 2];
  for (int32 i = 0; i < 10; ++i) {
    pthread_mutex_lock(&pair.mutex);
    while (pair.turn % 2 != self.number % 2 && !pair.leaving) pthread_cond_wait(&pair.condition, &pair.mutex);
    ++pair.turn;
    pthread_cond_signal(&pair.condition);
    pthread_mutex_unlock(&pair.mutex);
  }
}

constexpr struct {
  const char* name;
  void (*run)(Worker&);
} steps[] = {{"blocks", use_blocks},
             {"files", use_files},
             {"exceptions", throw_across_frames},
             {"internal calls", call_the_player},
             {"a mutex", lock_and_count}};
constexpr uint64 step_kinds = sizeof steps / sizeof steps[0];

void work(Worker& self) {
  __atomic_store_n(&self.port, mach_thread_self(), __ATOMIC_RELEASE);
  while (!__atomic_load_n(&stop, __ATOMIC_RELAXED)) {
    const auto& step = steps[self.below(step_kinds)];
    self.step = step.name;
    step.run(self);
    self.step = "a condition";
    wake_each_other(self);
    __atomic_fetch_add(&self.steps, 1, __ATOMIC_RELAXED);
  }
  Pair& pair = pairs[self.number / 2];
  pthread_mutex_lock(&pair.mutex);
  pair.leaving = true;
  pthread_cond_broadcast(&pair.condition);
  pthread_mutex_unlock(&pair.mutex);
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

void start_and_wait_for_a_thread() {
  Thread* thread;
  const auto body = [](void* argument) -> void* {
    free(malloc(1000));
    static_cast<Signal*>(argument)->raise();
    return nullptr;
  };
  static Signal done;
  if (pthread_create(&thread, nullptr, body, &done) != 0) return report(-1, "a new thread");
  done.wait();
}

}  // namespace

const Image* reflection::assemblies[] = {&soak_image, nullptr};

extern "C" {

/// Returns the steps that were done, or 0 when a worker stands still.
int64 run_soak() {
  mix = reinterpret_cast<Mix*>(il2cpp_resolve_icall("Soak::Mix"));
  mkdir("soak.tmp", 0755);
  for (int32 i = 0; i < worker_count; ++i) {
    Worker& worker = workers[i];
    worker.number = i;
    worker.random = i + 1;
    worker.step = "its start";
  }
  // Never taken down: a worker that stands still would hold its end up.
  auto& crew = *new Crew(worker_count, [](int64 i) { work(workers[i]); });
  void* const never = dispatch_semaphore_create(0);
  int64 threads = 0, last_steps[worker_count] = {}, still_since[worker_count] = {}, tenths = 0;
  do {
    for (int32 round = 0; round < 10; ++round, ++tenths) {
      for (Worker& worker : workers) stop_and_look(worker);
      if (round % 5 == 0) start_and_wait_for_a_thread(), ++threads;
      dispatch_semaphore_wait(never, dispatch_time(0, 100'000'000));
    }
    for (Worker& worker : workers) {
      const int64 steps = __atomic_load_n(&worker.steps, __ATOMIC_RELAXED);
      if (steps != last_steps[worker.number]) still_since[worker.number] = tenths;
      last_steps[worker.number] = steps;
      if (tenths - still_since[worker.number] < 10 * patience) continue;
      report(worker.number, worker.step);
      report(worker.number, "does not end");
      return 0;
    }
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
